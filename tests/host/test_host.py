# SPDX-License-Identifier: Apache-2.0
"""From a bare Debian to a protected host, and back: docs/linux-host.md, word by word, from the
packages alone. The tests are chapters of one story: each goes on where the one before ended."""

import pytest

from conftest import SECONDS, Device

POLICY = "/data/system/usbdeviceconfig/usb_device_config.xml"
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


def test_the_packages_own_test(host, before):
    """The one that autopkgtest runs: each service is killed, and has to come back; so is what hangs."""
    host.mount()
    status, text = host.run("/srv/vus/services 2>&1", 4 * SECONDS)
    assert status == 0, text
    assert text.count("started again when it hangs") == 2


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


def test_what_is_refused_is_off_after_the_start(host, before):
    assert host.machine.reboot() == "running"
    host.wait_until_it_answers()
    host.wait_until_refused(DISK)
    assert host.types(KEYBOARD) and host.is_on(KEYBOARD)
    host.machine.wait_until("vusctl verify", SECONDS)


@pytest.mark.parametrize("unit", ["vusd", "vus-servicemanager", "vus-hotplug"])
def test_a_killed_service_comes_back_and_nothing_refused_works(host, before, unit):
    old, taken = host.process(unit), host.taken(DISK)
    host.shell(f"kill -9 {old}")
    assert host.is_off(DISK)
    host.machine.wait_until(lambda: host.process(unit) not in (0, old), SECONDS, f"{unit} coming back")
    host.wait_until_it_answers()
    assert host.is_off(DISK) and host.types(KEYBOARD)
    host.machine.wait_until("vusctl verify", SECONDS)
    assert host.taken(DISK) == taken


def test_a_torn_policy_is_mended_before_anything_is_judged(host, before):
    whole = host.shell(f"cat {POLICY}")
    # While nobody watches the file; with the disk's cache written, as a power cut has it at its worst.
    host.shell(f"systemctl stop vusd; truncate -s {len(whole) // 2} {POLICY}; sync")
    assert host.machine.cut_power() == "running"
    host.wait_until_it_answers()
    assert host.shell(f"cat {POLICY}") == whole
    host.wait_until_refused(DISK)
    assert host.types(KEYBOARD)


def test_a_word_on_the_command_line_lets_a_locked_out_administrator_in(host, before):
    assert host.machine.cut_power(words="vus.off") == "running"
    assert set(host.states().values()) == {"inactive"}
    host.wait_until_on(DISK)
    assert host.types(KEYBOARD)
    assert host.machine.cut_power() == "running"
    host.wait_until_it_answers()
    host.wait_until_refused(DISK)


def test_an_upgrade_opens_nothing(host, before):
    taken = host.taken(DISK)
    host.use("now")
    host.apt("install vus")
    assert host.version() != "0.0.9~before"
    host.wait_until_it_answers()
    assert host.is_off(DISK) and host.taken(DISK) == taken
    assert host.types(KEYBOARD)
    assert host.run("systemctl --failed --no-legend")[1].strip() == ""


def test_removal_opens_the_door_and_keeps_the_policy(host, before):
    host.apt("remove vus")
    host.wait_until_on(DISK)
    assert host.types(KEYBOARD)
    assert host.machine.exists("/var/lib/vus/usb_device_config.xml")
    assert host.run("pgrep -x 'vusd|vus_hotplug|servicemanager'")[0] == 1


def test_purge_leaves_nothing_behind(host, before):
    host.apt("purge vus vus-tools")
    assert host.files() - before == set()
    assert host.machine.reboot() == "running"
    host.wait_until_on(DISK)
    assert host.types(KEYBOARD)
