# SPDX-License-Identifier: Apache-2.0
from attacking import EXPOSED, GATE, HELD, REPORTER, Attack


class ATTACK(Attack):
    title = "Another configuration, by usbfs"
    who = "a program that was given the node of a refused network adapter with two configurations"
    wants = "the adapter, in its other configuration"
    expected = {REPORTER: EXPOSED, GATE: HELD}
    answer = "As above: that takes no right but the node. Hand nodes out to nobody who should not choose what a device is."
    unwanted = r" 1-5:"

    def run(self, scene):
        scene.plug("network", "5")
        scene.refused("1-5")
        assert scene.usbfs("1-5", "configuration:1", "configuration:2").get("configuration:1") == "ok"
        scene.refused("1-5")
