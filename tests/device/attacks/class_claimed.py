# SPDX-License-Identifier: Apache-2.0
from attacking import EXPOSED, GATE, HELD, REPORTER, Attack
from vdev.usbredir import BULK_PAIR, Description, Interface

# What it says it is, and what serves it: drivers that go by vendor and product alone.
CLAIMS = {
    "1-5": Description(0x0403, 0x6001, [Interface(9, 5, 0, BULK_PAIR)], product_name="Hub, it says"),
    "1-6": Description(0x0409, 0x0040, [Interface(9, 5, 0x50, BULK_PAIR)], product_name="Hub, too", stalls=True),
    "1-7": Description(0x0403, 0x6001, [Interface(3, 0, 0, BULK_PAIR)], product_name="HID, it says"),
}


class ATTACK(Attack):
    title = "A class is claimed"
    who = "a device: a serial adapter and a disk that say class 9 (hub), and a serial adapter that says class 3 (HID)"
    wants = "to be taken for something that is nobody's to judge, and to be served by its driver, which goes by ids"
    expected = {REPORTER: EXPOSED, GATE: HELD}
    answer = ("A hub is what the kernel's hub driver has bound, HID what usbhid has. Anything else that says so is judged "
              "as what it is.")
    unwanted = r" 1-[567]:"

    def run(self, scene):
        for entry, description in CLAIMS.items():
            scene.plug_described(description, entry[2:])
        for entry in CLAIMS:
            scene.refused(entry)
