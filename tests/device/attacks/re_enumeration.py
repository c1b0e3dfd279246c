# SPDX-License-Identifier: Apache-2.0
from attacking import EXPOSED, GATE, HELD, REPORTER, Attack
from vdev.usbredir import BOOT_KEYBOARD, BULK_PAIR, INTERRUPT_IN, Description, Interface

DISK = Description(0x1209, 0x0043, [Interface(8, 6, 0x50, BULK_PAIR)], product_name="Turncoat", stalls=True)
KEYBOARD = Description(0x1209, 0x0043, [Interface(3, 1, 1, (INTERRUPT_IN,), report=BOOT_KEYBOARD)], product_name="Turncoat")


class ATTACK(Attack):
    title = "Re-enumeration as another device"
    who = "an allowed disk that leaves the bus by itself and comes back at the same port, with the same ids, as a keyboard"
    wants = "the disk's verdict for the keyboard"
    expected = {REPORTER: EXPOSED, GATE: HELD}
    answer = "What comes back is a new device to the kernel, with a new number, and to everybody else."
    unwanted = r"usbhid 1-5:| 0003:1209:0043"

    def run(self, scene):
        name = scene.plug_described(DISK, "5")
        assert scene.probe.judged("1-5")["status"] == 1
        scene.machine.become(name, KEYBOARD)
        scene.refused_input("Turncoat")
