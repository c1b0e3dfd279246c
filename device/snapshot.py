# SPDX-License-Identifier: Apache-2.0
"""Takes the USB part of the virtual device's sysfs as a text, for tests that read a real tree.

    device/snapshot.py > tests/data/usb-tree.txt

Form and use: tests/data/README.md.
"""

import base64
import io
import sys
import tarfile

from vdev import CATALOG, NO_GATE, Machine, Probe, wait_for_service

# Kind, port, entry, and what the kernel has to have made of it before the picture is taken.
ATTACHED = (
    ("keyboard", "1", "1-1", "input0"),
    ("disk", "3", "2-3", "sda"),
    ("dock", None, "3-1", "usb1"),
    ("usb-serial", "5", "1-5", "ttyUSB0"),
    ("programmer", "2.1", "1-2.1", "hidraw2"),
    ("typing-stick", "2.4.1", "1-2.4.1", "hidraw3"),
    ("displaylink", "7", "1-7", None),
    ("hostile", "6", "1-6", None),
)
# Nothing but what a reader of the USB tree asks for: the rest is half a megabyte.
ATTRIBUTES = frozenset("""
    authorized bAlternateSetting bConfigurationValue bDeviceClass bDeviceProtocol bDeviceSubClass
    bInterfaceClass bInterfaceNumber bInterfaceProtocol bInterfaceSubClass bMaxPacketSize0 bMaxPower
    bNumConfigurations bNumEndpoints bNumInterfaces bcdDevice bmAttributes busnum configuration devnum
    devpath devspec idProduct idVendor interface manufacturer maxchild product removable rx_lanes serial
    speed tx_lanes version
""".split())
LEFT_OUT = frozenset(("power", "wakeup", "queue", "statistics", "queues", "trace", "mq", "integrity", "bdi"))

COPY = (
    "mkdir -p /tmp/tree/sys/bus/usb/devices; cp -a /sys/bus/usb/devices/* /tmp/tree/sys/bus/usb/devices/; "
    "for bus in /sys/bus/usb/devices/usb*; do real=$(readlink -f $bus); mkdir -p /tmp/tree${real%/*}; "
    "cp -a $real /tmp/tree${real%/*}/ 2>/dev/null; done; "  # some files cannot be read, and are not wanted
    "cd /tmp/tree && tar czf - sys | base64 -w 0")


def escaped(data):
    """C's escapes, so that one line is one file whatever a device calls itself."""
    return "".join(chr(byte) if 32 <= byte < 127 and byte != 92 else f"\\x{byte:02x}" for byte in data)


def wanted(member):
    parts = member.name.split("/")
    if LEFT_OUT.intersection(parts):
        return False
    return not member.isfile() or parts[-1] in ATTRIBUTES


def lines(archive):
    for member in sorted(archive.getmembers(), key=lambda member: member.name):
        path = "/" + member.name
        if not wanted(member):
            continue
        if member.isdir():
            yield f"dir {path}"
        elif member.issym() and (path.startswith("/sys/bus/") or path.endswith("/driver")):
            yield f"link {path} {member.linkname}"
        elif member.isfile():
            yield f"file {path} {escaped(archive.extractfile(member).read())}"


def main():
    with Machine(reporter=NO_GATE) as machine:
        probe = Probe(machine)
        # A refused device would show less than it has.
        wait_for_service(machine)
        for kind, port, entry, function in ATTACHED:
            machine.plug(CATALOG[kind], port=port)
            machine.wait_until(lambda: probe.interfaces(entry) and function in {None} | probe.functions(entry),
                               seconds=30, what=f"{kind} at {entry}")
        data = machine.shell(COPY, seconds=120)
    with tarfile.open(fileobj=io.BytesIO(base64.b64decode(data)), mode="r:gz") as archive:
        sys.stdout.write("".join(line + "\n" for line in lines(archive)))


if __name__ == "__main__":
    main()
