# SPDX-License-Identifier: Apache-2.0
"""Behind the gate: what is refused never has a driver, and what is allowed works. Which driver was
tried on what is the kernel's word, by probes in it, not the reporter's."""

import re

import pytest

from conftest import policy
from test_reporter import (FALSE_CLAIMS, KEYBOARD, LOG, NOT_LISTED, STORAGE, drivers, start_daemon, stop_daemon,
                           stop_reporter)
from vdev import GATE, NO_GATE, RedirDevice
from vdev.probe import POLICY, SOC, SYSFS
from vdev.usbredir import BOOT_KEYBOARD, BOOT_MOUSE, INTERRUPT_IN, VENDOR_PAGE, Description, Endpoint, Interface

TRACING = "/sys/kernel/tracing"
# The kernel's own for devices, and what makes hubs of hubs.
HARMLESS = {"usb", "hub"}
# Configured as a disk at first, as the keyboard that it is, too, when somebody wants it.
HANDSET = RedirDevice("handset", "a telephone that types", lambda: Description(
    0x1209, 0x0020, [Interface(0xFF, 0, 0, (Endpoint(0x81), Endpoint(2))),
                     Interface(3, 0, 0, (INTERRUPT_IN,), report=VENDOR_PAGE),
                     Interface(3, 1, 1, (INTERRUPT_IN,), report=BOOT_KEYBOARD)], product_name="Handset"))


class Trials:
    """Every driver that the kernel tries on a device, from now on."""

    def __init__(self, machine):
        self.machine = machine
        machine.shell(f"mount -t tracefs tracefs {TRACING}; cd {TRACING}; echo 0 >tracing_on; "
                      "echo 'p:trial really_probe name=+0(+0($arg1)):string driver=+0(+0($arg2)):string' >kprobe_events; "
                      "echo 1 >events/kprobes/enable; echo 1 >tracing_on")

    def tried(self):
        """{(driver, device)}: of USB and HID devices, those of harmless drivers aside."""
        rows = re.findall(r'trial: .*name="([^"]+)" driver="([^"]+)"', self.machine.read(f"{TRACING}/trace"))
        return {(driver, name) for name, driver in rows
                if re.match(r"\d+-|[0-9A-F]{4}:[0-9A-F]{4}:", name) and driver not in HARMLESS}


@pytest.fixture
def gate(device):
    """A device with nothing plugged. When its reporter is killed, nobody starts another."""
    device.machine.shell("touch /run/vus_hotplug.hold")
    device.trials = Trials(device.machine)
    return device


def start_gate(device):
    """Beside nobody: the supervised reporter has been stopped."""
    device.machine.shell(f"vus_hotplug --verbose --gate >>{LOG} 2>&1 & echo $! >/run/vus_hotplug.pid")


def kill_gate(device):
    device.machine.shell("kill -9 $(cat /run/vus_hotplug.pid)")


def refused(device, entry):
    def found():
        record = device.probe.record(entry)
        return record and record["status"] == 0
    device.machine.wait_until(found, what=f"{entry} refused", seconds=90)


def refused_input(device, name):
    def found():
        record = device.probe.input_record(name)
        return record and record["status"] == 0
    device.machine.wait_until(found, what=f"{name} refused", seconds=60)


def reset(device):
    for controller in ("a800000.ssusb", "c200000.hsusb"):
        device.machine.shell(f"echo none >{SOC}/{controller}/mode; usleep 300000; echo host >{SOC}/{controller}/mode")


def test_what_is_refused_never_has_a_driver(gate):
    gate.set_policy("<class>USB_CLASS_VIDEO</class>")
    for kind, port in (("keyboard", "1"), ("usb-serial", "5"), ("disk", "6"), ("typing-stick", "7"), ("programmer", "8")):
        gate.plug(kind, port)
    gate.plug("dock")
    gate.plug("headset", "2.4.1")

    def all_refused():
        for entry in ("1-5", "1-7", "1-8", "3-1", "1-2.4.1"):
            refused(gate, entry)
        gate.machine.wait_until(lambda: any("HARDDRIVE" in r["deviceName"] and r["status"] == 0
                                            for r in gate.probe.records()))
        refused_input(gate, "Keyboard")
    all_refused()
    assert gate.probe.record("1-5")["reason"] == NOT_LISTED
    reset(gate)
    all_refused()
    # Nobody is there to hold the door, and a board that resets.
    kill_gate(gate)
    reset(gate)
    gate.machine.wait_until(f"ls -d {SYSFS}/usb3")
    start_gate(gate)
    all_refused()
    assert gate.trials.tried() == set()
    assert gate.machine.run("ls /dev/ttyUSB* /dev/sd* /dev/ttyACM* /dev/hidraw* /dev/input/event* 2>/dev/null")[1] == ""


def test_what_is_allowed_works(gate):
    gate.set_policy(KEYBOARD + STORAGE + "<class>USB_CLASS_COMM</class><class>USB_CLASS_CDC_DATA</class>"
                    "<vid vendorid=\"1027\"/><vid vendorid=\"8137\"/>")
    gate.plug("disk", "6")
    gate.plug("keyboard", "1")
    gate.plug("usb-serial", "5")
    gate.plug("programmer", "8")
    gate.plug("hub", "3")
    gate.plug("network", "3.1")
    gate.plug("dock")
    assert gate.probe.judged_input("Keyboard")["status"] == 1
    gate.machine.wait_until("grep 0 /sys/class/input/input*/inhibited && ! grep 1 /sys/class/input/input*/inhibited")
    gate.machine.wait_until("ls /dev/input/event0 /dev/hidraw0 /dev/ttyUSB0 /dev/ttyACM0 /dev/sda")
    assert gate.probe.judged("1-5")["status"] == 1
    assert drivers(gate, "1-3.1") == ["cdc_ether", "cdc_ether"]
    # The list says what they have become, and nobody was told that they went meanwhile.
    gate.machine.wait_until(lambda: (gate.probe.record("3-1") or {}).get("category") == 1 + 2 + 4 + 8)
    paths = gate.probe.record("3-1")["categoryPath"].split(";")
    assert "ttyACM0" in paths and any(re.match(r"usb\d", path) for path in paths)
    assert gate.probe.judged("1-8")["category"] == 8
    for entry in ("1-5", "1-8", "1-3.1", "3-1"):
        assert gate.probe.words(entry) == {"allowed"}


def test_a_composite_device_is_let_in_part_by_part(gate):
    gate.set_policy(STORAGE)
    gate.plug("typing-stick", "7")
    assert gate.probe.judged("1-7")["status"] == 1
    refused_input(gate, "Stick that types")
    gate.machine.wait_until(lambda: drivers(gate, "1-7") == ["usb-storage", "-"], seconds=60)
    assert gate.probe.authorized("1-7") == ["1", "0"]
    assert gate.trials.tried() == {("usb-storage", "1-7:1.0")}
    gate.machine.unplug("typing-stick")
    gate.machine.wait_until(lambda: gate.probe.records() == [])


def test_a_vendors_own_part_brings_no_keyboard(gate):
    gate.set_policy('<vid vendorid="4617"><pid>32</pid></vid>')
    gate.machine.plug(HANDSET, port="5")
    assert gate.probe.judged("1-5")["status"] == 1
    gate.set_policy(KEYBOARD)
    refused(gate, "1-5")
    assert set(drivers(gate, "1-5")) == {"-"}


def test_false_claims_get_no_driver(gate):
    gate.set_policy(STORAGE)
    for entry, (kind, _, _) in FALSE_CLAIMS.items():
        gate.machine.plug(kind, port=entry[2:])
    for entry in FALSE_CLAIMS:
        refused(gate, entry)
    # Each was taken for what it says, by a driver that does not go by vendor and product.
    assert gate.trials.tried() <= {("usbhid", "1-7:1.0")}
    gate.plug("disk", "2.4.1")
    assert gate.probe.judged("1-2.4.1")["status"] == 1


def test_another_configuration_is_held_too(gate):
    gate.set_policy(STORAGE)
    gate.plug("network", "5")
    refused(gate, "1-5")
    for value in ("1", "2", "1", "2"):
        gate.machine.shell(f"echo {value} >{SYSFS}/1-5/bConfigurationValue; usleep 200000")
    refused(gate, "1-5")
    assert gate.trials.tried() == set()


def test_a_policy_that_is_rewritten_opens_and_closes(gate):
    gate.set_policy(STORAGE)
    gate.plug("keyboard", "1")
    gate.plug("usb-serial", "5")
    refused(gate, "1-5")
    refused_input(gate, "Keyboard")
    assert gate.trials.tried() == set()
    gate.set_policy(KEYBOARD + '<vid vendorid="1027"/>')
    gate.machine.wait_until("ls /dev/ttyUSB0 /dev/input/event0")
    gate.machine.wait_until(lambda: sorted(r["status"] for r in gate.probe.records()) == [1, 1])
    gate.set_policy(STORAGE)
    refused(gate, "1-5")
    refused_input(gate, "Keyboard")
    assert gate.machine.run("ls /dev/ttyUSB* /dev/input/event* 2>/dev/null")[1] == ""


def test_the_daemon_is_away(gate):
    gate.set_policy(KEYBOARD + STORAGE)
    stop_daemon(gate)
    gate.plug("keyboard", "1")
    gate.plug("usb-serial", "5")
    gate.plug("disk", "2.4.1")
    gate.machine.wait_until(f"ls -d {SYSFS}/1-2.4.1:1.0 {SYSFS}/1-1:1.0 {SYSFS}/1-5:1.0")
    assert gate.trials.tried() == set()
    start_daemon(gate)
    gate.machine.wait_until("ls /dev/input/event0")
    refused(gate, "1-5")
    gate.machine.wait_until(lambda: drivers(gate, "1-2.4.1") == ["usb-storage"])
    assert {driver for driver, _ in gate.trials.tried()} == {"usbhid", "hid-generic", "usb-storage"}


def test_the_reporter_is_killed_at_any_moment(gate):
    gate.set_policy(STORAGE)
    for round_ in range(4):
        gate.plug("typing-stick", "7")
        gate.plug("usb-serial", "5")
        gate.machine.shell(f"usleep {round_ * 60000}")
        kill_gate(gate)
        start_gate(gate)
        refused(gate, "1-5")
        gate.machine.wait_until(lambda: drivers(gate, "1-7") == ["usb-storage", "-"], seconds=60)
        refused_input(gate, "Stick that types")
        for kind in ("typing-stick", "usb-serial"):
            gate.machine.unplug(kind)
        gate.machine.wait_until(lambda: gate.probe.records() == [])
    assert {driver for driver, _ in gate.trials.tried()} == {"usb-storage"}


def test_the_door_is_opened_again(gate):
    gate.machine.write(POLICY, policy("<class>USB_CLASS_VIDEO</class>"))
    gate.plug("keyboard", "1")
    refused_input(gate, "Keyboard")
    kill_gate(gate)
    gate.plug("usb-serial", "5")
    gate.machine.wait_until(f"[ -e {SYSFS}/1-5 ]")
    assert drivers(gate, "1-5") == []
    gate.machine.shell("vus_hotplug --open")
    gate.machine.wait_until("ls /dev/input/event0 /dev/ttyUSB0")
    assert gate.machine.read("/sys/bus/usb/drivers_autoprobe") == "1\n"
    gate.plug("disk", "2.4.1")
    gate.machine.wait_until(lambda: drivers(gate, "1-2.4.1") == ["usb-storage"])


# A mouse to who asks it first, and a keyboard to who asks it then.
KEYS_OF_A_MOUSES_LENGTH = bytes.fromhex("0601000501") + BOOT_KEYBOARD
assert len(KEYS_OF_A_MOUSES_LENGTH) == len(BOOT_MOUSE)
TWO_FACES = RedirDevice("two-faces", "a mouse that becomes a keyboard", lambda: Description(
    0x1209, 0x0048, [Interface(3, 0, 0, (INTERRUPT_IN,), report=BOOT_MOUSE, later_report=KEYS_OF_A_MOUSES_LENGTH)],
    product_name="Two faces"))


ANOTHER_KEYBOARD = RedirDevice("another-keyboard", "a keyboard", lambda: Description(
    0x1209, 0x0049, [Interface(3, 1, 1, (INTERRUPT_IN,), report=BOOT_KEYBOARD)], product_name="Another keyboard"))


def test_beside_a_daemon_that_hangs_nothing_is_heard_that_was_not_foreseen(gate):
    gate.set_policy(STORAGE + "<class>AINPUT_SOURCE_MOUSE</class>")
    gate.machine.shell("kill -STOP $(cat /run/vusd.pid)")
    gate.machine.plug(TWO_FACES, port="5")
    gate.plug("disk", "2.4.1")
    gate.plug("usb-serial", "7")
    gate.machine.wait_until(lambda: drivers(gate, "1-2.4.1") == ["usb-storage"])
    gate.machine.wait_until("grep -l 'Two faces' /sys/class/input/input*/name")
    gate.machine.wait_until(f"[ -e {SYSFS}/1-7:1.0 ]")
    silent = gate.machine.shell("cat $(dirname $(grep -l 'Two faces' /sys/class/input/input*/name))/inhibited")
    assert silent.split() == ["1"]
    assert drivers(gate, "1-7") == ["-"]
    assert drivers(gate, "1-2.4.1") == ["usb-storage"]
    gate.machine.shell("kill -CONT $(cat /run/vusd.pid)")
    refused_input(gate, "Two faces")
    gate.machine.wait_until("! ls /dev/input/event* /dev/hidraw* 2>/dev/null")
    refused(gate, "1-7")


def test_beside_a_daemon_that_hangs_an_allowed_keyboard_types(gate):
    """Whether it comes then, or was there before the reporter: the policy's word does until the daemon's."""
    gate.set_policy("<class>AINPUT_SOURCE_KEYBOARD</class>")
    gate.plug("keyboard", "1")
    assert gate.probe.judged_input("Keyboard")["status"] == 1
    kill_gate(gate)
    gate.machine.shell("kill -STOP $(cat /run/vusd.pid)")
    start_gate(gate)
    gate.machine.plug(ANOTHER_KEYBOARD, port="5")
    gate.machine.wait_until("ls /dev/input/event0 /dev/input/event1")
    # Until nobody has patience any more.
    seen = float(gate.machine.read("/proc/uptime").split()[0])
    gate.machine.wait_until(lambda: float(gate.machine.read("/proc/uptime").split()[0]) > seen + 3)
    assert gate.machine.shell("cat /sys/class/input/input*/inhibited").split() == ["0", "0"]
    assert "no answer" not in gate.machine.read(LOG)
    gate.machine.shell("kill -CONT $(cat /run/vusd.pid)")
    assert gate.probe.judged_input("Another keyboard")["status"] == 1
    assert gate.machine.shell("cat /sys/class/input/input*/inhibited").split() == ["0", "0"]


def test_the_door_stays_shut_when_its_holder_ends(gate):
    gate.set_policy('<vid vendorid="1027"/>')
    gate.machine.shell("kill -TERM $(cat /run/vus_hotplug.pid)")
    gate.machine.wait_until("! kill -0 $(cat /run/vus_hotplug.pid) 2>/dev/null")
    gate.plug("keyboard", "1")
    gate.plug("usb-serial", "5")
    gate.machine.wait_until(f"[ -e {SYSFS}/1-1 ] && [ -e {SYSFS}/1-5 ]")
    assert gate.machine.read("/sys/bus/usb/drivers_autoprobe") == "0\n"
    assert drivers(gate, "1-1") == drivers(gate, "1-5") == []
    start_gate(gate)
    refused_input(gate, "Keyboard")
    gate.machine.wait_until(lambda: drivers(gate, "1-5") == ["ftdi_sio"])
    assert {driver for driver, _ in gate.trials.tried()} == {"ftdi_sio"}


@pytest.mark.reporter(NO_GATE)
def test_a_keyboard_that_was_there_before_is_judged_not_torn_away(device):
    stop_reporter(device)
    device.plug("keyboard", "1")
    device.machine.wait_until("ls /dev/input/event0 /dev/hidraw0")
    before = device.machine.shell("readlink /sys/class/input/event0")
    start_gate(device)
    assert device.probe.judged_input("Keyboard")["status"] == 1
    device.plug("webcam", "5")
    assert device.probe.judged("1-5")["status"] == 1
    assert device.machine.shell("readlink /sys/class/input/event0") == before


# A disk that brings a serial adapter along: the class of that neither admits nor refuses.
CARRIER = RedirDevice("carrier", "a disk that brings a serial adapter along", lambda: Description(
    0x0403, 0x6001, [Interface(8, 6, 0x50, (Endpoint(0x82), Endpoint(1))),
                     Interface(0xFF, 0, 0, (Endpoint(0x81), Endpoint(2)))], product_name="Carrier"))


@pytest.mark.reporter(f"{GATE} --interfaces")
def test_what_rides_along_stays_shut_if_so_wished(gate):
    gate.set_policy(STORAGE)
    gate.machine.plug(CARRIER, port="5")
    assert gate.probe.judged("1-5")["status"] == 1
    gate.machine.wait_until(lambda: gate.probe.authorized("1-5") == ["1", "0"])
    assert {name for _, name in gate.trials.tried()} == {"1-5:1.0"}
    # Its vendor admits all of it, and a whitelist of classes takes that back.
    gate.set_policy(STORAGE + '<vid vendorid="1027"/>')
    gate.machine.wait_until(lambda: gate.probe.authorized("1-5") == ["1", "1"])
    gate.set_policy(STORAGE)
    gate.machine.wait_until(lambda: gate.probe.authorized("1-5") == ["1", "0"])
    assert gate.probe.judged("1-5")["status"] == 1
