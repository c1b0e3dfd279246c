# SPDX-License-Identifier: Apache-2.0
from attacking import EXPOSED, GATE, HELD, REPORTER, Attack
from vdev.probe import SYSFS


class ATTACK(Attack):
    title = "Another configuration, by sysfs"
    who = "a program of root's that means well, and a network adapter with two configurations"
    wants = "the refused adapter, by giving it another configuration, again and again"
    expected = {REPORTER: EXPOSED, GATE: HELD}
    answer = ("Interfaces that come back are off at once; the second time within 10 s the whole device is, until it is plugged "
              "anew.")
    unwanted = r" 1-5:"

    def run(self, scene):
        scene.plug("network", "5")
        scene.refused("1-5")
        scene.machine.run(f"for value in 1 2 1 2; do echo $value >{SYSFS}/1-5/bConfigurationValue; usleep 200000; done")
        scene.refused("1-5")
