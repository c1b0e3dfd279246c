# SPDX-License-Identifier: Apache-2.0
from attacking import EXPOSED, GATE, REPORTER, Attack
from vdev.usbredir import BOOT_KEYBOARD, BOOT_MOUSE, INTERRUPT_IN, Description, Interface

# With its usage page said three times it is as long as the mouse's.
KEYBOARD = bytes.fromhex("0601000501") + BOOT_KEYBOARD
assert len(KEYBOARD) == len(BOOT_MOUSE)


class ATTACK(Attack):
    title = "A report descriptor that changes"
    who = "a HID device that is a mouse to who asks it first, and a keyboard to who asks it then"
    wants = "a mouse's verdict for a keyboard: the gate asks first, the driver then"
    expected = {REPORTER: EXPOSED}
    answer = ("What a driver has made of a device is compared with what was foreseen, and judged: what is refused is shut out "
              "again. Until then it is there, and silent, however long the daemon takes; the kernel shows nobody what the driver "
              "was told before it is bound.")
    unwanted = r" 0003:1209:0048"

    def run(self, scene):
        # Without the gate the driver is the first to ask.
        first = BOOT_MOUSE if scene.setup == GATE else KEYBOARD
        scene.plug_described(Description(0x1209, 0x0048, [Interface(3, 0, 0, (INTERRUPT_IN,), report=first,
                                                                    later_report=KEYBOARD)], product_name="Two faces"), "5")
        scene.refused_input("Two faces")
