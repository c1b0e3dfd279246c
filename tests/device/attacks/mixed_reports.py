# SPDX-License-Identifier: Apache-2.0
from attacking import EXPOSED, GATE, HELD, REPORTER, Attack
from vdev.usbredir import BOOT_KEYBOARD, BOOT_MOUSE, INTERRUPT_IN, Description, Interface


class ATTACK(Attack):
    title = "Mixed report descriptors"
    who = "a mouse whose report descriptor has a keyboard, too"
    wants = "to type, where mice are allowed and keyboards are not"
    expected = {REPORTER: EXPOSED, GATE: HELD}
    answer = "Each of its applications is judged. One that is refused keeps all of the interface out: a driver takes it as a whole."
    unwanted = r"usbhid 1-5:| 0003:1209:0047"

    def run(self, scene):
        scene.plug_described(Description(0x1209, 0x0047, [Interface(3, 0, 0, (INTERRUPT_IN,), report=BOOT_MOUSE + BOOT_KEYBOARD)],
                                         product_name="Mixed"), "5")
        scene.refused_input("Mixed")
