# SPDX-License-Identifier: Apache-2.0
from attacking import EXPOSED, GATE, HELD, REPORTER, Attack
from vdev.probe import SYSFS
from vdev.usbredir import BULK_PAIR, Description, Interface

DISK = Description(0x1209, 0x0049, [Interface(8, 6, 0x50, BULK_PAIR)], product_name="Decoy", stalls=True)


class ATTACK(Attack):
    title = "A swapped device at the same port"
    who = "a person who pulls an allowed disk when its verdict is about to come, and plugs a serial adapter in its place"
    wants = "the disk's verdict for the adapter"
    expected = {REPORTER: EXPOSED, GATE: HELD}
    answer = "A verdict is asked for a port and a number, and is followed for that device only."
    unwanted = r"ftdi_sio 1-5:"

    def run(self, scene):
        decoy = scene.plug_described(DISK, "5")
        scene.machine.wait_until(f"[ -e {SYSFS}/1-5 ]")
        scene.machine.unplug(decoy)
        scene.plug("usb-serial", "5")
        scene.machine.wait_until(f"grep -q 6001 {SYSFS}/1-5/idProduct")
        scene.refused("1-5")
