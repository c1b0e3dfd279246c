# SPDX-License-Identifier: Apache-2.0
from attacking import EXPOSED, GATE, HELD, REPORTER, Attack
from attacks.two_faced import KEYBOARD
from vdev.usbredir import BOOT_MOUSE, INTERRUPT_IN, Description, Interface


def changeling(report, after_reset=None):
    return Description(0x1209, 0x004A, [Interface(3, 0, 0, (INTERRUPT_IN,), report=report)], product_name="Changed",
                       after_reset=after_reset)


class ATTACK(Attack):
    title = "Another report descriptor after a reset"
    who = ("an allowed mouse that has a keyboard's report descriptor of the same length after a reset, which it can bring about "
           "by stalling")
    wants = "the mouse's verdict for the keyboard: to the kernel it is the same device and the same interface"
    expected = {REPORTER: EXPOSED, GATE: HELD}
    answer = ("The kernel makes another HID device of the interface. The gate lets that one in by what the device says when it is "
              "asked again.")
    # The first is the mouse.
    unwanted = r" 0003:1209:004A\.0002"

    def run(self, scene):
        scene.plug_described(changeling(BOOT_MOUSE, after_reset=changeling(KEYBOARD)), "5")
        assert scene.probe.judged_input("Changed")["status"] == 1
        scene.usbfs("1-5", "reset")
        scene.refused_input("Changed")
