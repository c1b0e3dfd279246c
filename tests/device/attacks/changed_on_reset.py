# SPDX-License-Identifier: Apache-2.0
from attacking import EXPOSED, GATE, HELD, REPORTER, Attack
from vdev.usbredir import BOOT_KEYBOARD, BULK_PAIR, INTERRUPT_IN, Description, Interface

KEYBOARD = Description(0x1209, 0x0044, [Interface(3, 1, 1, (INTERRUPT_IN,), report=BOOT_KEYBOARD)], product_name="Changeling")


class ATTACK(Attack):
    title = "Other descriptors after a reset"
    who = "an allowed disk that has a keyboard's descriptors after a reset, and a program that resets it by its node"
    wants = "the disk's verdict for the keyboard, without ever having left"
    expected = {REPORTER: EXPOSED, GATE: HELD}
    answer = "The kernel compares descriptors after a reset. A device with other ones is a new device to it."
    unwanted = r"usbhid 1-5:| 0003:1209:0044"

    def run(self, scene):
        scene.plug_described(Description(0x1209, 0x0044, [Interface(8, 6, 0x50, BULK_PAIR)], product_name="Changeling",
                                         stalls=True, after_reset=KEYBOARD), "5")
        assert scene.probe.judged("1-5")["status"] == 1
        scene.usbfs("1-5", "reset")
        scene.refused_input("Changeling")
