# SPDX-License-Identifier: Apache-2.0
"""Real devices are judged, and a refused one is switched off."""

import pytest

from vdev import NO_GATE
from vdev.probe import SYSFS

STORAGE = "<class>USB_CLASS_MASS_STORAGE</class>"
KEYBOARD = "<class>AINPUT_SOURCE_KEYBOARD</class>"
BY_STORAGE = "Whitelisted: Match by ClassName, CLASS : USB_CLASS_MASS_STORAGE "
NOT_LISTED = "No matching rule found to Whitelist the device"


def assert_switched_off(device, entry):
    assert set(device.probe.authorized(entry)) == {"0"}
    assert device.probe.functions(entry) == set()


def test_the_default_policy_allows_everything(device):
    device.plug("dock")
    device.plug("disk", "3")
    for entry in ("3-1", "2-3"):
        record = device.probe.judged(entry)
        assert (record["status"], record["reason"]) == (1, "Enabled by default rule")
        assert set(device.probe.authorized(entry)) == {"1"}


def test_a_disk_is_allowed_by_its_class(device):
    device.set_policy(STORAGE)
    device.plug("disk", "3")
    record = device.probe.judged("2-3")
    assert (record["status"], record["reason"]) == (1, BY_STORAGE)
    assert (record["category"], record["categoryPath"]) == (4, "sdcard;")
    device.machine.wait_until(lambda: "sda" in device.probe.functions("2-3"))


# Behind the gate its HID interface is known for its vendor's own, before it is reported.
@pytest.mark.reporter(NO_GATE)
def test_a_composite_device_is_refused_with_every_interface(device):
    device.set_policy(STORAGE)
    device.plug("dock")
    record = device.probe.judged("3-1")
    assert (record["status"], record["reason"]) == (0, NOT_LISTED)
    assert record["interfaceClassList"] == [2, 10, 2, 10, 8, 3]
    assert len(device.probe.authorized("3-1")) == 6
    assert_switched_off(device, "3-1")
    assert device.machine.run("ls /sys/class/tty/ttyACM0")[0] != 0


@pytest.mark.parametrize("kind, port, entry, function", [
    ("network", "4", "1-4", "usb0"),
    ("usb-serial", "5", "1-5", "ttyUSB0"),
    ("serial", None, "3-1", "ttyACM0"),
    ("programmer", "2.1", "1-2.1", "hidraw0"),
])
def test_what_a_refused_device_brought_is_gone(device, kind, port, entry, function):
    device.plug(kind, port)
    device.probe.judged(entry)
    assert function in device.probe.functions(entry)
    device.set_policy(STORAGE)
    assert device.probe.judged(entry, NOT_LISTED)["status"] == 0
    assert_switched_off(device, entry)


# Before it is an input device, the gate asks nobody on the USB side.
@pytest.mark.reporter(NO_GATE)
def test_a_keyboard_is_left_to_the_input_side(device):
    device.set_policy(KEYBOARD)
    device.plug("keyboard", "1")
    record = device.probe.judged_input("Keyboard")
    assert record["reason"] == "Whitelisted: Match by ClassName, CLASS : AINPUT_SOURCE_KEYBOARD "
    device.machine.wait_until(lambda: device.probe.words("1-1") == {"not-allowed"})
    assert device.probe.record("1-1") is None
    assert device.probe.authorized("1-1") == ["1"]


# Behind the gate its interface is off until it is allowed.
@pytest.mark.reporter(NO_GATE)
def test_a_refused_input_device_is_not_switched_off_as_a_usb_device(device):
    device.set_policy(STORAGE)
    device.plug("mouse", "1")
    record = device.probe.judged_input("Mouse")
    assert (record["status"], record["reason"]) == (0, NOT_LISTED)
    assert device.probe.authorized("1-1") == ["1"]


def test_a_vendor_hid_is_judged_as_a_usb_device(device):
    device.set_policy('<vid vendorid="9601"><pid>61904</pid></vid>')
    device.plug("security-key", "6")
    record = device.probe.judged("1-6")
    assert record["reason"] == "Whitelisted: Match by VID_PID combination, VID : 9601 PID: 61904"
    assert record["category"] == 8
    device.plug("programmer", "5")
    assert device.probe.judged("1-5")["reason"] == NOT_LISTED
    assert_switched_off(device, "1-5")


def test_a_device_behind_two_hubs(device):
    device.set_policy(STORAGE + KEYBOARD)
    device.plug("typing-stick", "2.4.1")
    assert device.probe.judged("1-2.4.1")["reason"] == BY_STORAGE
    assert device.probe.judged_input("Stick that types")["status"] == 1
    device.set_policy("<class>USB_CLASS_AUDIO</class>")
    assert device.probe.judged("1-2.4.1", NOT_LISTED)["status"] == 0
    assert_switched_off(device, "1-2.4.1")
    assert "1" in device.probe.authorized("1-2"), "the hubs themselves are left alone"


def test_a_disk_that_calls_itself_a_hub_is_judged(device):
    device.plug("false-hub", "5")
    assert device.probe.judged("1-5")["deviceClass"] == 9
    # Real enough: the kernel's driver of disks serves it.
    assert [interface.driver for interface in device.probe.interfaces("1-5")] == ["usb-storage"]
    device.set_policy("<class>USB_CLASS_AUDIO</class>")
    record = device.probe.judged("1-5", NOT_LISTED)
    assert (record["status"], record["interfaceClassList"]) == (0, [8])
    assert_switched_off(device, "1-5")
    assert [interface.driver for interface in device.probe.interfaces("1-5")] == ["-"]


@pytest.mark.parametrize("kind, prepare, configure", [
    ("unwilling", "true", f"echo 1 >{SYSFS}/1-5/bConfigurationValue"),
    ("webcam", f"echo 0 >{SYSFS}/usb1/authorized_default", f"echo 1 >{SYSFS}/1-5/authorized"),
])
def test_interfaces_that_appear_later_are_judged(device, kind, prepare, configure):
    """A device that refuses its configuration at first, and one that nobody had let in yet."""
    device.set_policy(STORAGE)
    device.machine.shell(prepare)
    device.plug(kind, "5")
    # Nothing to judge yet: neither allowed, nor listed.
    device.machine.wait_until(lambda: device.probe.words("1-5") == {"not-allowed"})
    assert device.probe.interfaces("1-5") == [] and device.probe.record("1-5") is None
    device.machine.shell(configure)
    record = device.probe.judged("1-5")
    assert (record["status"], record["reason"]) == (0, NOT_LISTED)
    assert_switched_off(device, "1-5")


def test_a_blacklist_refuses_the_whole_vendor(device):
    device.set_policy('<vid vendorid="3141"/>', "blacklist")
    device.plug("webcam", "5")
    record = device.probe.judged("1-5")
    assert (record["status"], record["reason"]) == (0, "Blacklisted: Match by VID, VID : 3141")
    assert set(device.probe.authorized("1-5")) == {"0"}
    device.plug("headset", "6")
    assert device.probe.judged("1-6")["reason"] == "No matching rule found to Blacklist the device"


def test_hostile_strings_do_no_harm(device):
    device.plug("hostile", "5")
    record = device.probe.judged("1-5")
    assert record["deviceName"].startswith("'; rm -rf / #")
    table = device.machine.shell("vusctl list")
    assert "\x1b" not in table and len(table.splitlines()) == 2


# Behind the gate it is asked about twice: held, and as what it becomes.
@pytest.mark.reporter(NO_GATE)
def test_automation_allows_everything_and_lists_nothing(device):
    device.set_policy(STORAGE)
    device.machine.shell("setprop ro.config.device.vus_automation 1")
    device.plug("webcam", "5")
    device.machine.wait_until(lambda: device.probe.answers("1-5")[-1:] == ["allowed"])
    assert device.probe.records() == []
    assert set(device.probe.authorized("1-5")) == {"1"}


def test_a_removal_empties_the_list(device):
    device.plug("webcam", "5")
    device.probe.judged("1-5")
    device.machine.unplug("webcam")
    device.machine.wait_until(lambda: device.probe.records() == [])
