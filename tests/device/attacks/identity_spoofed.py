# SPDX-License-Identifier: Apache-2.0
from attacking import COMPANY, IMPOSSIBLE, REPORTER, Attack
from vdev.usbredir import BOOT_KEYBOARD, INTERRUPT_IN, Description, Interface


class ATTACK(Attack):
    title = "An identity is spoofed"
    who = "a keyboard that has vendor and product of a listed device"
    wants = "to be let in as that device"
    expected = {REPORTER: IMPOSSIBLE}
    answer = ("Vendor and product are what a device says, and USB has no proof of them. A rule by ids keeps out who does not "
              "know the ids: keep the policy from who plugs, and look at what was let in.")
    unwanted = r" 1-5:| 0003:0C45:6366"

    def run(self, scene):
        scene.plug_described(Description(*COMPANY, [Interface(3, 1, 1, (INTERRUPT_IN,), report=BOOT_KEYBOARD)],
                                         product_name="Webcam"), "5")
        assert scene.probe.judged_input("Webcam")["status"] == 1
