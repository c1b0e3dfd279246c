# SPDX-License-Identifier: Apache-2.0
"""A USB device described in Python and served to QEMU over the usbredir protocol.

A Description says what the device's descriptors say: ids, classes, strings, interfaces with
their alternate settings and report descriptors, speed. Its endpoints never have data; a
control request that is not answered from the descriptors is accepted or stalled as real
devices do. A Server speaks the protocol for one device on one socket, in a thread of its own.
"""

import socket
import struct
import threading
import time
from dataclasses import dataclass, field

# Report descriptors: what tells the kernel's HID core a keyboard from a vendor's own device.
BOOT_KEYBOARD = bytes.fromhex(
    "05010906a101050719e029e71500250175019508810295017508810395067508150025650507190029658100c0")
BOOT_MOUSE = bytes.fromhex(
    "05010902a1010901a1000509190129031500250175019503810275059501810105010930093115812 57f750895028106c0c0"
    .replace(" ", ""))
VENDOR_PAGE = bytes.fromhex("0600ff0901a101150026ff0075089540090181029540090191 02c0".replace(" ", ""))
SECURITY_KEY = bytes.fromhex("06d0f10901a1010920150026ff007508954081020921150026ff00750895409102c0")

LOW, FULL, HIGH, SUPER = 0, 1, 2, 3

# Descriptor types and requests, as USB 2.0 numbers them (its chapter 9).
DEVICE, CONFIGURATION, STRING, INTERFACE, ENDPOINT, HID, REPORT = 1, 2, 3, 4, 5, 0x21, 0x22
GET_STATUS, GET_DESCRIPTOR = 0, 6
TO_HOST, CLASS_OR_VENDOR = 0x80, 0x60


@dataclass
class Endpoint:
    address: int
    attributes: int = 2  # bulk
    max_packet: int = 64
    interval: int = 0


INTERRUPT_IN = Endpoint(0x81, 3, 8, 10)
BULK_PAIR = (Endpoint(0x81), Endpoint(2))


@dataclass
class Interface:
    class_code: int
    subclass: int = 0
    protocol: int = 0
    endpoints: tuple = ()
    report: bytes = None  # a HID report descriptor
    later_report: bytes = None  # what it says instead when it is asked again
    extra: bytes = b""    # class-specific descriptors
    name: str = None
    alternates: tuple = ()  # its settings 1, 2, ..., as interfaces without any of their own

    @property
    def settings(self):
        return (self, *self.alternates)

    def next_report(self):
        report = self.report
        self.report = self.later_report or report
        return report

    def hid_descriptor(self):
        if self.report is None:
            return b""
        return struct.pack("<BBHBBBH", 9, HID, 0x0111, 0, 1, REPORT, len(self.report))


@dataclass
class Description:
    vendor: int
    product: int
    interfaces: list
    manufacturer: str = None
    product_name: str = None
    serial: str = None
    configuration: str = None
    device_class: tuple = (0, 0, 0)
    speed: int = FULL
    # The last control requests are not answered: the kernel waits for them until it gives up.
    answers: bool = True
    # So are these requests of a class or vendor.
    unanswered: tuple = ()
    # How often it refuses to be configured; None: it never answers that.
    refusals: int = 0
    # Whether it stalls when it is asked for data, and not only never has any.
    stalls: bool = False
    # What it is after it has been reset: a Description, if that is something else.
    after_reset: object = None
    _strings: list = field(default_factory=lambda: [None])

    def __post_init__(self):
        self.device_descriptor = struct.pack(
            "<BBHBBBBHHHBBBB", 18, DEVICE, 0x0200, *self.device_class, 64, self.vendor, self.product,
            0x0100, self._string_index(self.manufacturer), self._string_index(self.product_name),
            self._string_index(self.serial), 1)
        body = b"".join(self._interface(number, interface)
                        for number, interface in enumerate(self.interfaces))
        self.configuration_descriptor = struct.pack(
            "<BBHBBBBB", 9, CONFIGURATION, 9 + len(body), len(self.interfaces), 1,
            self._string_index(self.configuration), 0x80, 50) + body

    def _string_index(self, text):
        if text is None:
            return 0
        self._strings.append(text)
        return len(self._strings) - 1

    def _interface(self, number, interface):
        return b"".join(self._setting(number, alternate, setting)
                        for alternate, setting in enumerate(interface.settings))

    def _setting(self, number, alternate, interface):
        descriptor = struct.pack(
            "<BBBBBBBBB", 9, INTERFACE, number, alternate, len(interface.endpoints), interface.class_code,
            interface.subclass, interface.protocol, self._string_index(interface.name))
        descriptor += interface.hid_descriptor() + interface.extra
        for endpoint in interface.endpoints:
            descriptor += struct.pack("<BBBBHB", 7, ENDPOINT, endpoint.address, endpoint.attributes,
                                      endpoint.max_packet, endpoint.interval)
        return descriptor

    def _string(self, index):
        if index == 0:
            return bytes([4, STRING, 0x09, 0x04])  # English
        if index >= len(self._strings):
            return None
        text = self._strings[index].encode("utf-16-le", "surrogatepass")
        return bytes([len(text) + 2, STRING]) + text

    def _descriptor(self, value):
        kind, index = value >> 8, value & 0xFF
        if kind == DEVICE:
            return self.device_descriptor
        if kind == CONFIGURATION:
            return self.configuration_descriptor
        return self._string(index) if kind == STRING else None

    def control(self, request_type, request, value, index, length):
        """The answer to a control request; None is a stall."""
        if not request_type & TO_HOST:
            return b""
        if request == GET_DESCRIPTOR and request_type == 0x80:
            answer = self._descriptor(value)
        elif request == GET_DESCRIPTOR and request_type == 0x81 and value >> 8 == REPORT:
            reports = [setting.next_report() for setting in self.interfaces[index & 0xFF].settings]
            answer = next((report for report in reports if report is not None), None)
        elif request == GET_STATUS:
            answer = bytes(2)
        else:
            answer = bytes(length) if request_type & CLASS_OR_VENDOR else None
        return None if answer is None else answer[:length]


# Packet types of the usbredir protocol.
HELLO, DEVICE_CONNECT, DEVICE_DISCONNECT, RESET, INTERFACE_INFO, EP_INFO = 0, 1, 2, 3, 4, 5
SET_CONFIGURATION, GET_CONFIGURATION, CONFIGURATION_STATUS = 6, 7, 8
SET_ALT, GET_ALT, ALT_STATUS = 9, 10, 11
START_INTERRUPT, STOP_INTERRUPT, INTERRUPT_STATUS = 15, 16, 17
CONTROL, BULK, INTERRUPT = 100, 101, 103
STALL = 4
# Connect with a device version, endpoint packet sizes, 64-bit ids, 32-bit bulk lengths: QEMU's
# xHCI insists on the last three.
CAPABILITIES = (1 << 1) | (1 << 4) | (1 << 5) | (1 << 6)
ID_64BIT = 1 << 5


class Server(threading.Thread):
    def __init__(self, description, path):
        super().__init__(daemon=True)
        self._is(description)
        self._wide_ids = False
        self._sending = threading.Lock()
        self._socket = _connected(path)
        self.start()

    def become(self, description):
        """Leaves the bus by itself, and comes back as something else."""
        self._send(DEVICE_DISCONNECT, 0, b"")
        self._is(description)
        self._announce()

    def _is(self, description):
        self._configuration = 0
        self._settings = {}
        self._refusals = description.refusals
        self._description = description

    def stop(self):
        try:
            self._socket.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass
        self._socket.close()

    def run(self):
        try:
            self._greet()
            self._announce()
            while True:
                self._answer(*self._receive())
        except (EOFError, OSError):
            pass  # unplugged

    def _send(self, kind, packet_id, body):
        header = struct.pack("<IIQ" if self._wide_ids else "<III", kind, len(body), packet_id)
        with self._sending:
            self._socket.sendall(header + body)

    def _read(self, length):
        data = b""
        while len(data) < length:
            chunk = self._socket.recv(length - len(data))
            if not chunk:
                raise EOFError
            data += chunk
        return data

    def _receive(self):
        form = "<IIQ" if self._wide_ids else "<III"
        kind, length, packet_id = struct.unpack(form, self._read(struct.calcsize(form)))
        return kind, packet_id, self._read(length)

    def _greet(self):
        self._send(HELLO, 0, b"vus".ljust(64, b"\0") + struct.pack("<I", CAPABILITIES))
        _, _, hello = self._receive()
        peer = struct.unpack("<I", hello[64:68])[0] if len(hello) >= 68 else 0
        self._wide_ids = bool(peer & ID_64BIT)

    def _announce(self):
        self._send_interfaces()
        description = self._description
        self._send(DEVICE_CONNECT, 0, struct.pack(
            "<BBBBHHH", description.speed, *description.device_class, description.vendor,
            description.product, 0x0100))

    def _send_interfaces(self):
        types, intervals, owners, sizes = [255] * 32, [0] * 32, [0] * 32, [0] * 32
        for control in (0, 16):
            types[control], sizes[control] = 0, 64
        interfaces = [interface.settings[self._settings.get(number, 0)]
                      for number, interface in enumerate(self._description.interfaces)]
        for number, interface in enumerate(interfaces):
            for endpoint in interface.endpoints:
                at = (endpoint.address & 0x80) >> 3 | endpoint.address & 15
                types[at], intervals[at] = endpoint.attributes & 3, endpoint.interval
                owners[at], sizes[at] = number, endpoint.max_packet
        self._send(EP_INFO, 0, bytes(types) + bytes(intervals) + bytes(owners) + struct.pack("<32H", *sizes))

        def column(values):
            return bytes(values).ljust(32, b"\0")
        self._send(INTERFACE_INFO, 0, struct.pack("<I", len(interfaces)) + column(range(len(interfaces)))
                   + column(i.class_code for i in interfaces) + column(i.subclass for i in interfaces)
                   + column(i.protocol for i in interfaces))

    def _answer(self, kind, packet_id, body):
        if kind == SET_CONFIGURATION:
            self._configure(packet_id, body[0])
        elif kind == GET_CONFIGURATION:
            self._send(CONFIGURATION_STATUS, packet_id, bytes([0, self._configuration]))
        elif kind == RESET:
            self._reset()
        elif kind == SET_ALT:
            self._settings[body[0]] = body[1]
            self._send_interfaces()
            self._send(ALT_STATUS, packet_id, bytes([0, *body[:2]]))
        elif kind == GET_ALT:
            self._send(ALT_STATUS, packet_id, bytes([0, body[0], self._settings.get(body[0], 0)]))
        elif kind in (START_INTERRUPT, STOP_INTERRUPT):
            self._send(INTERRUPT_STATUS, packet_id, bytes([0, body[0]]))
        elif kind == CONTROL:
            self._answer_control(packet_id, body)
        elif kind == BULK and (self._description.stalls or not body[0] & TO_HOST):
            status = STALL if body[0] & TO_HOST else 0
            self._send(BULK, packet_id, struct.pack("<BBHIH", body[0], status, *struct.unpack("<H", body[2:4]), 0, 0))
        elif kind == INTERRUPT and not body[0] & TO_HOST:
            self._send(INTERRUPT, packet_id, struct.pack("<BBH", body[0], 0, *struct.unpack("<H", body[2:4])))

    def _reset(self):
        # The kernel resets what it has not met yet, too.
        if self._configuration and self._description.after_reset:
            self._is(self._description.after_reset)
            self._send_interfaces()

    def _configure(self, packet_id, configuration):
        if self._refusals is None:
            return
        if self._refusals > 0:
            self._refusals -= 1
            self._send(CONFIGURATION_STATUS, packet_id, bytes([STALL, self._configuration]))
            return
        self._configuration = configuration
        self._send_interfaces()
        self._send(CONFIGURATION_STATUS, packet_id, bytes([0, configuration]))

    def _answer_control(self, packet_id, body):
        endpoint, request, request_type, _, value, index, length = struct.unpack("<BBBBHHH", body[:10])
        special = request_type & CLASS_OR_VENDOR
        if special and request in self._description.unanswered:
            return
        if not self._description.answers and special | (request_type == 0x81):
            return
        answer = self._description.control(request_type, request, value, index, length)
        status = STALL if answer is None else 0
        sent = length if answer is not None and not request_type & TO_HOST else len(answer or b"")
        self._send(CONTROL, packet_id, struct.pack(
            "<BBBBHHH", endpoint, request, request_type, status, value, index, sent) + (answer or b""))


def _connected(path):
    deadline = time.monotonic() + 5
    connection = socket.socket(socket.AF_UNIX)
    while True:
        try:
            connection.connect(path)
            return connection
        except OSError:
            if time.monotonic() > deadline:
                raise
            time.sleep(0.01)
