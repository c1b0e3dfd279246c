# SPDX-License-Identifier: Apache-2.0
"""HID devices that are no USB device's: the guest's own kernel plays them, by /dev/uhid, as it does
for a Bluetooth keyboard.

What is written to it is of one write, and may be shorter than the kernel's largest event.
"""

import base64
import struct

BLUETOOTH = 5
CREATE, INPUT = 11, 12
# A report of a boot keyboard: no modifier, "a" down, and nothing down.
PRESS, RELEASE = bytes([0, 0, 4, 0, 0, 0, 0, 0]), bytes(8)


def creation(name, bus, vendor, product, report):
    return struct.pack("<I128s64s64sHHIIII", CREATE, name.encode(), b"", b"", len(report), bus, vendor, product,
                       0, 0) + report


def typing(report):
    return struct.pack("<IH", INPUT, len(report)) + report


class UhidDevice:
    """There as long as somebody in the guest has it open; types "a" several times a second."""

    def __init__(self, machine, name, report, vendor=0x1209, product=0x0B1E, bus=BLUETOOTH):
        self._machine = machine
        self._write("create", creation(name, bus, vendor, product, report))
        self._write("press", typing(PRESS))
        self._write("release", typing(RELEASE))
        machine.write("/tmp/uhid.sh", """
            exec 3<>/dev/uhid
            put() { dd if=/tmp/uhid.$1 bs=4096 count=1 >&3 2>/dev/null; }
            put create
            while :; do put press; usleep 100000; put release; usleep 100000; done""")
        self._pid = machine.shell("sh /tmp/uhid.sh >/dev/null 2>&1 & echo $!").strip()

    def _write(self, event, data):
        text = base64.b64encode(data).decode()
        self._machine.shell(f"echo {text} | base64 -d >/tmp/uhid.{event}")

    def unplug(self):
        self._machine.shell(f"kill {self._pid}")
