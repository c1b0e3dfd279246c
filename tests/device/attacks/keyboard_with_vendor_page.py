# SPDX-License-Identifier: Apache-2.0
from attacking import EXPOSED, GATE, HELD, REPORTER, Attack
from vdev.usbredir import BOOT_KEYBOARD, INTERRUPT_IN, VENDOR_PAGE, Description, Interface


class ATTACK(Attack):
    title = "A keyboard and a vendor's page in one interface"
    who = "a HID device whose one report descriptor has a keyboard and a vendor's own page"
    wants = "the vendor's page, which is read by hidraw and is no input, once the keyboard is refused"
    expected = {REPORTER: EXPOSED, GATE: HELD}
    answer = "A refused input device takes the HID device behind it along, and hidraw with that."
    unwanted = r"usbhid 1-5:| 0003:1209:0046"

    def run(self, scene):
        scene.plug_described(Description(0x1209, 0x0046, [Interface(3, 0, 0, (INTERRUPT_IN,), report=BOOT_KEYBOARD + VENDOR_PAGE)],
                                         product_name="Two pages"), "5")
        scene.refused_input("Two pages")
        scene.machine.wait_until("[ ! -e /dev/hidraw0 ]")
