# SPDX-License-Identifier: Apache-2.0
"""From a bare Debian to a protected host: docs/linux-host.md from the packages alone. The
tests are chapters of one story: each goes on where the one before ended."""

import pytest

from conftest import SECONDS, Device

KEYBOARD = Device("keyboard", "1", "1-1")
DISK = Device("disk", "3", "2-3")
# Behind a hub; two interfaces of a vendor's own.
DOCK = Device("displaylink", "2.2", "1-2.2")


@pytest.fixture(scope="module")
def before(host):
    """The files of the machine without our packages, but with what they need."""
    host.use("before")
    host.apt("install android-libbacktrace android-libutils android-libcutils libevdev2 libjsoncpp25 "
             "libtinyxml2-9 libssl3")
    return host.files()


def test_installation_starts_the_services(host, before):
    host.apt("install vus")
    assert host.version() == "0.0.9~before"
    host.wait_until_it_answers()
    assert host.shell("stat -c '%U %G %a' -L /dev/binder") == "root vus 660\n"


def test_a_member_of_the_group_asks_and_nobody_else(host, before):
    assert host.as_alice("vusctl list")[0] != 0
    host.shell("adduser alice vus")
    status, text = host.as_alice("vusctl list")
    assert status == 0, text


def test_what_is_there_at_the_start_works(host, before):
    for device in (KEYBOARD, DISK, DOCK):
        host.plug(device)
    assert host.machine.reboot() == "running"
    host.wait_until_it_answers()
    host.wait_until_on(DISK)
    host.wait_until_on(KEYBOARD)
    assert host.types(KEYBOARD)
    # The power button, the keyboard's keys, the disk and the dock.
    host.machine.wait_until(lambda: len(host.records()) >= 4, SECONDS, lambda: str(host.records()))
    assert [record for record in host.records() if record["status"] != 1] == []


def test_the_services_are_there_before_everything_else(host, before):
    names = ("vus-servicemanager.service", "vusd.service", "vus-hotplug.service", "sysinit.target")
    times = [int(host.shell(f"systemctl show -P ActiveEnterTimestampMonotonic {name}")) for name in names]
    assert 0 < times[0] <= times[1] <= times[2] <= times[3]


def test_nothing_is_denied_to_the_services(host, before):
    """Their sandboxes fit: no call of theirs fails for want of a right."""
    said = host.shell("journalctl -b --no-pager -o cat -u vus-binder -u vus-servicemanager -u vusd -u vus-hotplug")
    assert [line for line in said.splitlines()
            if any(word in line for word in ("not permitted", "ermission denied", "Read-only", "code=killed"))] == []


def test_a_policy_by_a_member_of_the_group(host, before):
    host.unplug(DISK)
    for command in ("vusctl policy learn --live > new.xml", "vusctl policy check new.xml",
                    "vusctl policy try new.xml --seconds 600"):
        status, text = host.as_alice(command, SECONDS)
        assert status == 0, text
    status, text = host.as_alice("vusctl policy keep", SECONDS)
    assert status == 0, text
    host.machine.wait_until("vusctl verify", SECONDS)
    assert host.as_alice("vusctl verify")[0] == 0
    assert host.types(KEYBOARD) and host.is_on(KEYBOARD)


def test_what_the_policy_does_not_name_is_switched_off(host, before):
    host.plug(DISK)
    host.wait_until_refused(DISK)
    assert host.run("ls /sys/block/sd*")[0] != 0
    host.unplug(DOCK)
    host.plug(DOCK)
    host.machine.wait_until(f"[ $(cat /sys/bus/usb/devices/{DOCK.interface}/authorized) = 1 ]", SECONDS)
    assert host.types(KEYBOARD)
