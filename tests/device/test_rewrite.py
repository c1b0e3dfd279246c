# SPDX-License-Identifier: Apache-2.0
"""A rewritten policy reaches what is attached: with and without the gate, on boards that reset no
controller, and on buses that nobody resets. And a reporter that finds devices when nobody is there
to be asked."""

import pytest

from test_gate import Trials, refused, refused_input
from test_reporter import KEYBOARD, LOG, STORAGE, drivers, start_daemon, stop_daemon, stop_reporter, wait_switched_off
from vdev import GATE, NO_GATE
from vdev.probe import SOC
from vdev.uhid import UhidDevice
from vdev.usbredir import BOOT_KEYBOARD, BOOT_MOUSE

VIDEO = "<class>USB_CLASS_VIDEO</class>"
SERIAL = '<vid vendorid="1027"/>'
NAME = "Wireless example"

with_and_without = pytest.mark.parametrize("way", [
    pytest.param(GATE, marks=pytest.mark.reporter(GATE)), pytest.param(NO_GATE, marks=pytest.mark.reporter(NO_GATE))])


def rewrite(device, rules, mode="whitelist"):
    """Without waiting for a reset, of which there may be none."""
    text = f'<usbconfig mode="{mode}">{rules}</usbconfig>'
    assert device.probe.set_policy(text) == (0, "SUCCESS\n")


def gone(device, *nodes):
    device.machine.wait_until(f"! ls {' '.join(nodes)} 2>/dev/null", what=f"no {' '.join(nodes)}")


@pytest.fixture
def plain(device):
    """A machine whose controllers nobody can reset: a common PC."""
    device.machine.shell(f"mount -t tmpfs tmpfs {SOC}")
    return device


@with_and_without
def test_what_is_attached_is_asked_about_again(plain, way):
    rewrite(plain, KEYBOARD + SERIAL)
    plain.plug("keyboard", "1")
    plain.plug("usb-serial", "5")
    plain.plug("headset", "6")
    plain.machine.wait_until("ls /dev/ttyUSB0 /dev/input/event0")
    refused(plain, "1-6")
    rewrite(plain, VIDEO)
    refused(plain, "1-5")
    refused_input(plain, "Keyboard")
    gone(plain, "/dev/ttyUSB*", "/dev/input/event*", "/dev/hidraw*")
    # As it was, and another one beside it.
    rewrite(plain, KEYBOARD + SERIAL + "<class>USB_CLASS_AUDIO</class>")
    plain.machine.wait_until("ls /dev/ttyUSB0 /dev/input/event*")
    for entry in ("1-5", "1-6"):
        plain.machine.wait_until(lambda e=entry: (plain.probe.record(e) or {}).get("status") == 1)
    plain.machine.wait_until(lambda: (plain.probe.input_record("Keyboard") or {}).get("status") == 1)
    # Each is listed once.
    ids = [(record["deviceType"], record["deviceName"]) for record in plain.probe.records()]
    assert len(ids) == len(set(ids))


@with_and_without
def test_a_keyboard_of_another_bus_is_asked_about_again(device, way):
    device.set_policy(KEYBOARD)
    keyboard = UhidDevice(device.machine, NAME, BOOT_KEYBOARD)
    typed = "timeout 2 dd if=/dev/input/event0 bs=24 count=4 2>/dev/null | grep -q ."
    device.machine.wait_until(f"ls /dev/input/event0 && {typed}", what="what it types")
    device.set_policy(STORAGE)
    refused_input(device, NAME)
    gone(device, "/dev/input/event*", "/dev/hidraw*")
    device.set_policy(KEYBOARD)
    device.machine.wait_until("ls /dev/input/event*")
    device.machine.wait_until(lambda: (device.probe.input_record(NAME) or {}).get("status") == 1)
    device.machine.wait_until("[ $(cat /sys/class/input/input*/inhibited) = 0 ]")
    keyboard.unplug()
    device.machine.wait_until(lambda: device.probe.records() == [])


def test_a_refused_keyboard_of_another_bus_never_has_a_driver(device):
    device.set_policy(STORAGE)
    trials = Trials(device.machine)
    keyboard = UhidDevice(device.machine, NAME, BOOT_KEYBOARD)
    refused_input(device, NAME)
    assert device.machine.run("ls /sys/bus/hid/devices")[1].startswith("0005:1209:0B1E.")
    assert trials.tried() == set()
    gone(device, "/dev/input/event*", "/dev/hidraw*")
    keyboard.unplug()
    device.machine.wait_until(lambda: device.probe.records() == [])


def test_a_mouse_that_its_maker_does_not_settle_is_silent_until_it_is_refused(device):
    """Keyboards are listed: what it is shows when it has its driver, and not before."""
    device.set_policy(KEYBOARD)
    trials = Trials(device.machine)
    UhidDevice(device.machine, NAME, BOOT_MOUSE)
    refused_input(device, NAME)
    gone(device, "/dev/input/event*", "/dev/hidraw*")
    assert {driver for driver, _ in trials.tried()} == {"hid-generic"}
    assert "closed input" in device.machine.read(LOG)


@pytest.mark.reporter(NO_GATE)
@pytest.mark.parametrize("options", ["--fail-closed", "--gate --fail-closed"])
def test_what_was_there_when_nobody_was(device, options):
    device.set_policy(STORAGE)
    stop_reporter(device)
    stop_daemon(device)
    for kind, port in (("usb-serial", "5"), ("disk", "2.4.1"), ("keyboard", "1")):
        device.plug(kind, port)
    device.machine.wait_until("ls /dev/ttyUSB0 /dev/input/event0 /dev/sda")
    device.machine.shell(f"vus_hotplug --verbose {options} >>{LOG} 2>&1 & echo $! >/run/vus_hotplug.pid")
    # The policy refuses it.
    wait_switched_off(device, "1-5")
    assert device.machine.run(f"grep 'closed 1-5: the daemon is away, and the policy refuses it' {LOG}")[0] == 0
    # Silent, not torn away.
    device.machine.wait_until("[ $(cat /sys/class/input/event0/device/inhibited) = 1 ]")
    assert drivers(device, "1-2.4.1") == ["usb-storage"]
    # What comes now is another matter: nobody has allowed it.
    device.plug("webcam", "6")
    wait_switched_off(device, "1-6")
    start_daemon(device)
    for entry in ("1-5", "1-6"):
        refused(device, entry)
    refused_input(device, "Keyboard")
    assert drivers(device, "1-2.4.1") == ["usb-storage"]
