# SPDX-License-Identifier: Apache-2.0
from attacking import DOCUMENTED, REPORTER, Attack


class ATTACK(Attack):
    title = "Control transfers to a refused device"
    who = "a program that was given the node of a refused serial adapter"
    wants = "to talk to the device itself, which has no interface for that"
    expected = {REPORTER: DOCUMENTED}
    answer = ("The kernel switches interfaces, not devices: requests to the device itself pass. Nodes are root's, mode 0600; hand "
              "out none.")
    unwanted = r"^$"

    def run(self, scene):
        scene.plug("usb-serial", "5")
        scene.refused("1-5")

    def succeeds(self, scene):
        return scene.usbfs("1-5", "control")["control"] == "ok"
