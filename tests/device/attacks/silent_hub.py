# SPDX-License-Identifier: Apache-2.0
from attacking import EXPOSED, GATE, HELD, REPORTER, Attack
from vdev.probe import SYSFS
from vdev.usbredir import INTERRUPT_IN, Description, Interface

SILENT_HUB = Description(0x1209, 0x0011, [Interface(9, 0, 0, (INTERRUPT_IN,))], product_name="Silent hub",
                         device_class=(9, 0, 0), answers=False)


class ATTACK(Attack):
    title = "A hub that never finishes"
    who = "a hub that does not answer its driver, which keeps the hub above it locked, and a serial adapter elsewhere"
    wants = "the adapter to work while everybody waits for the hub"
    expected = {REPORTER: EXPOSED, GATE: HELD}
    answer = "Nobody waits for one device to judge another. What hangs on the same hub is not even enumerated meanwhile."
    unwanted = r" 3-1:"

    def run(self, scene):
        scene.plug_described(SILENT_HUB, "2.1")
        scene.machine.wait_until(f"[ -e {SYSFS}/1-2.1:1.0 ]")
        scene.plug("serial")
        scene.refused("3-1")
