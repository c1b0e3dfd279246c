# SPDX-License-Identifier: Apache-2.0
"""The USB devices that can be plugged into the virtual device, by name.

Three kinds: QEMU's own models; devices described in Python (usbredir.py), for any ids, classes
and strings; and gadgets made by the guest's kernel, where a network interface, a serial port
or a disk must really appear.
"""

import time
from dataclasses import dataclass, field

from . import usbredir
from .machine import MachineError
from .usbredir import Description, Endpoint, Interface

CONTROLLER = "xhci.0"


@dataclass
class Plugged:
    """A device at its port; unplug() takes it out, stop() only frees what the host holds. One that
    can leave by itself and come back as something else becomes what a Description says."""

    unplug: callable
    stop: callable = lambda: None
    become: callable = None


@dataclass
class QemuDevice:
    name: str
    summary: str
    driver: str
    properties: dict = field(default_factory=dict)
    # A file's worth of zeros behind the device.
    disk_bytes: int = 0
    backend: str = None  # a network back end

    def plug(self, machine, name, port):
        properties = dict(self.properties)
        if self.disk_bytes:
            path = machine.socket_path(f"{name}.img")
            with open(path, "wb") as image:
                image.truncate(self.disk_bytes)
            machine.qmp.execute("blockdev-add", **{"node-name": f"disk-{name}", "driver": "file", "filename": path})
            properties["drive"] = f"disk-{name}"
        if self.backend == "network":
            machine.qmp.execute("netdev_add", type="user", id=f"net-{name}", restrict=True)
            properties["netdev"] = f"net-{name}"
        if self.backend == "serial":
            machine.qmp.execute("chardev-add", id=f"chr-{name}", backend={"type": "null", "data": {}})
            properties["chardev"] = f"chr-{name}"
        _add(machine, self.driver, name, port, properties)
        return Plugged(unplug=lambda: self._unplug(machine, name))

    def _unplug(self, machine, name):
        _remove(machine, name)
        if self.disk_bytes:
            _when_free(machine, "blockdev-del", **{"node-name": f"disk-{name}"})
        if self.backend == "network":
            _when_free(machine, "netdev_del", id=f"net-{name}")
        if self.backend == "serial":
            _when_free(machine, "chardev-remove", id=f"chr-{name}")


@dataclass
class RedirDevice:
    name: str
    summary: str
    describe: callable

    def plug(self, machine, name, port):
        path = machine.socket_path(f"{name}.usb")
        machine.qmp.execute("chardev-add", id=f"chr-{name}", backend={"type": "socket", "data": {
            "addr": {"type": "unix", "data": {"path": path}}, "server": True, "wait": False}})
        server = usbredir.Server(self.describe(), path)
        _add(machine, "usb-redir", name, port, {"chardev": f"chr-{name}"})

        def unplug():
            _remove(machine, name)  # takes its chardev with it
            server.stop()
        return Plugged(unplug=unplug, stop=server.stop, become=server.become)


@dataclass
class Gadget:
    """Sits on the high-speed controller's only port, one at a time."""

    name: str
    summary: str
    vendor: int
    product: int
    manufacturer: str
    product_name: str
    functions: tuple

    def plug(self, machine, name, port):
        if port is not None:
            raise MachineError(f"{self.name} has a port of its own")
        machine.shell(f"gadget up {name} {self.vendor:#06x} {self.product:#06x} '{self.manufacturer}' "
                      f"'{self.product_name}' {' '.join(self.functions)}")
        return Plugged(unplug=lambda: machine.shell(f"gadget down {name}"))


def _add(machine, driver, name, port, properties):
    arguments = {"driver": driver, "id": name, "bus": CONTROLLER, **properties}
    if port is not None:
        arguments["port"] = str(port)
    machine.qmp.execute("device_add", **arguments)


def _remove(machine, name):
    machine.qmp.execute("device_del", id=name)


def _when_free(machine, command, **arguments):
    """A back end is busy until its device has gone."""
    deadline = time.monotonic() + 5
    while True:
        try:
            return machine.qmp.execute(command, **arguments)
        except MachineError:
            if time.monotonic() > deadline:
                raise
            time.sleep(0.02)


def _security_key():
    return Description(0x2581, 0xF1D0, [Interface(3, 0, 0, (Endpoint(0x81, 3, 64, 5), Endpoint(1, 3, 64, 5)),
                                                  report=usbredir.SECURITY_KEY)],
                       manufacturer="Example", product_name="Security key")


def _vendor_hid():
    return Description(0x1FC9, 0x0090, [Interface(3, 0, 0, (Endpoint(0x81, 3, 64, 5), Endpoint(1, 3, 64, 5)),
                                                  report=usbredir.VENDOR_PAGE)],
                       manufacturer="Example", product_name="Programmer")


def _webcam():
    return Description(0x0C45, 0x6366, [Interface(14, 1, 0, (Endpoint(0x83, 3, 16, 8),), name="Camera"),
                                        Interface(14, 2, 0)],
                       manufacturer="Example", product_name="Webcam", device_class=(0xEF, 2, 1),
                       speed=usbredir.HIGH)


def _headset():
    return Description(0x0D8C, 0x0014, [Interface(1, 1, 0), Interface(1, 2, 0),
                                        Interface(3, 0, 0, (usbredir.INTERRUPT_IN,), report=usbredir.BOOT_KEYBOARD)],
                       manufacturer="Example", product_name="Headset")


def _stick_with_keyboard():
    return Description(0x46F4, 0x0BAD, [Interface(8, 6, 0x50, (Endpoint(0x82), Endpoint(2))),
                                        Interface(3, 1, 1, (usbredir.INTERRUPT_IN,), report=usbredir.BOOT_KEYBOARD)],
                       manufacturer="Example", product_name="Stick that types")


def _displaylink():
    return Description(0x17E9, 0x6006, [Interface(255, 0, 0, (Endpoint(2), Endpoint(0x84))),
                                        Interface(255, 0, 3, (Endpoint(0x83, 3, 64, 4),))],
                       manufacturer="DisplayLink", product_name="Display dock", serial="D0C5",
                       speed=usbredir.HIGH)


def _silent():
    """Enumerates, then lets the kernel's driver wait for an answer that never comes."""
    return Description(0x1209, 0x0001, [Interface(3, 0, 0, (usbredir.INTERRUPT_IN,), report=usbredir.VENDOR_PAGE),
                                        Interface(255, 0, 0)],
                       manufacturer="Example", product_name="Silent one", answers=False)


def _unwilling():
    """Has no interfaces until it is configured once more."""
    return Description(0x1209, 0x0002, [Interface(255, 0, 0)], manufacturer="Example",
                       product_name="Unwilling one", refusals=1)


def _unconfigured():
    """Lets the kernel wait for its configuration, and has no interfaces in the end."""
    return Description(0x1209, 0x0003, [Interface(255, 0, 0)], manufacturer="Example",
                       product_name="Unconfigured one", refusals=None)


def _false_hub():
    return Description(0x1209, 0x0004, [Interface(8, 6, 0x50, (Endpoint(0x82), Endpoint(2)))],
                       manufacturer="Example", product_name="Disk, says hub", device_class=(9, 0, 0))


def _hostile():
    return Description(0x1209, 0x0666, [Interface(255, 0, 0)],
                       manufacturer="A\nB\x1b[31m", product_name="'; rm -rf / #\n\n" + "x" * 90, serial="%s%n\x01")


CATALOG = {device.name: device for device in (
    QemuDevice("keyboard", "a plain keyboard", "usb-kbd"),
    QemuDevice("mouse", "a plain mouse", "usb-mouse"),
    QemuDevice("disk", "a flash drive of 8 MB", "usb-storage", {"removable": True}, disk_bytes=8 << 20),
    QemuDevice("usb-serial", "a serial adapter (ttyUSB0)", "usb-serial", {"always-plugged": True}, backend="serial"),
    QemuDevice("network", "a network adapter (usb0)", "usb-net", backend="network"),
    QemuDevice("hub", "a hub with eight ports", "usb-hub"),
    RedirDevice("security-key", "a security key: HID, but no input device", _security_key),
    RedirDevice("programmer", "a device with a vendor's own HID protocol", _vendor_hid),
    RedirDevice("webcam", "a webcam", _webcam),
    RedirDevice("headset", "a headset with volume keys", _headset),
    RedirDevice("typing-stick", "a flash drive that is a keyboard, too", _stick_with_keyboard),
    RedirDevice("displaylink", "a DisplayLink dock", _displaylink),
    RedirDevice("silent", "a device that stops answering", _silent),
    RedirDevice("unwilling", "a device that refuses its configuration at first", _unwilling),
    RedirDevice("unconfigured", "a device that never answers to its configuration", _unconfigured),
    RedirDevice("false-hub", "a disk that calls itself a hub", _false_hub),
    RedirDevice("hostile", "a device with hostile strings", _hostile),
    Gadget("serial", "a serial adapter (ttyACM0)", 0x0525, 0xA4A7, "Example", "Serial adapter", ("acm",)),
    Gadget("dock", "a dock: network, serial port, disk and a vendor's own HID", 0x1D6B, 0x0104, "Example",
           "Composite dock", ("ecm", "acm", "storage", "vendor-hid")),
)}
