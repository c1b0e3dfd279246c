# SPDX-License-Identifier: Apache-2.0
"""From a bare Debian to a protected host, and back: docs/linux-host.md from the packages alone. The
tests are chapters of one story: each goes on where the one before ended."""

import pytest

from conftest import BEFORE, BROKEN, SECONDS, SYSFS, UNITS, Device

STATE = "/data/system/usbdeviceconfig"
POLICY = f"{STATE}/usb_device_config.xml"
BACKUP = f"{STATE}/usb_device_config_backup.xml"
EVENTS = "/var/lib/vus-hotplug/events.jsonl"
KEYBOARD = Device("keyboard", "1", "1-1")
DISK = Device("disk", "3", "2-3")
# Behind a hub; two interfaces of a vendor's own.
DOCK = Device("displaylink", "2.2", "1-2.2")
# systemd-analyze's measure, 0 (nothing) to 10 (anything).
MOST_EXPOSURE = 2.0


@pytest.fixture(scope="module")
def before(host, needs):
    """The files of the machine without our packages, but with what they need."""
    host.use("before")
    host.apt(f"install {' '.join(needs)}")
    return host.files()


# From the installation to the first start.


def without_binder(host, directory):
    """From now on the module cannot be loaded."""
    host.shell(f"mkdir -p {directory}")
    host.machine.write(f"{directory}/no-binder.conf", "install binder_linux /bin/false\n")


def test_installation_without_binder_shuts_nothing(host, before):
    """Nobody would open it again."""
    without_binder(host, "/run/modprobe.d")
    status, text = host.run("apt-get -q -y install vus 2>&1", 3 * SECONDS)
    host.shell("rm -r /run/modprobe.d")
    assert status != 0 and "this kernel has no binder" in text, text
    assert "active" not in host.states().values()
    assert host.run("systemctl is-enabled vus-hotplug vusd vus-alive.timer")[1].split() == ["disabled"] * 3
    assert host.read("/sys/bus/usb/drivers_autoprobe") == "1\n"
    host.apt("purge vus vus-tools")
    after = host.files()
    assert (after - before, before - after) == (set(), set())


def test_installation_starts_the_services(host, before):
    host.apt("install vus")
    assert host.version() == BEFORE
    host.wait_until_it_answers()
    assert host.shell("stat -c '%U %G %a' -L /dev/binder") == "root vus 660\n"
    # Also the bus of which no device has come yet.
    assert host.shell("cat /sys/bus/usb/drivers_autoprobe /sys/bus/hid/drivers_autoprobe").split() == ["0", "0"]


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
    assert "vus_hotplug" in host.shell("ps -e -o comm"), "somebody could be denied something"
    assert [line for line in said.splitlines()
            if any(word in line for word in ("not permitted", "ermission denied", "Read-only", "code=killed"))] == []


@pytest.mark.parametrize("unit", ["vus-servicemanager", "vusd", "vus-hotplug"])
def test_the_services_may_do_little(host, before, unit):
    """As they run, with what is installed: `./test scripts units` asks the same of the source."""
    text = host.shell(f"systemd-analyze security --no-pager {unit}.service | tail -n 1")
    assert float(text.split(": ")[1].split()[0]) <= MOST_EXPOSURE, text


# A policy.


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
    host.wait_until_authorized(DOCK)
    # The gate could read the policy that a member of the group has written.
    foreseen = f"grep '\"entry\":\"{DOCK.entry}\"' {EVENTS} | tail -n 1 | grep -q '\"foreseen\":true'"
    host.machine.wait_until(foreseen, SECONDS)
    host.machine.wait_until("vusctl exposure | grep -q ' 1 refused, 0 ms exposed'", SECONDS,
                            lambda: host.run("vusctl exposure")[1])
    assert host.types(KEYBOARD)


# What goes wrong.


@pytest.mark.parametrize("unit", ["vusd", "vus-servicemanager", "vus-hotplug"])
def test_a_killed_service_comes_back_and_nothing_refused_works(host, before, unit):
    old, taken = host.process(unit), host.taken(DISK)
    with host.typing(KEYBOARD):
        host.shell(f"kill -9 {old}")
        assert host.is_off(DISK)
        host.machine.wait_until(lambda: host.process(unit) not in (0, old), SECONDS, f"{unit} coming back")
        host.wait_until_it_answers()
        host.wait_until_refused(DISK)
        host.wait_until_allowed_input(KEYBOARD)
    assert host.taken(DISK) == taken
    host.machine.wait_until("vusctl verify", SECONDS)


def test_what_comes_while_the_daemon_is_away_waits_for_it(host, before):
    host.unplug(DISK)
    host.unplug(DOCK)
    with host.typing(KEYBOARD):
        host.shell("systemctl stop vusd")
        host.plug(DISK)
        host.plug(DOCK)
        host.machine.wait_until(f"[ -e {SYSFS}/{DOCK.interface} ] && [ -e {SYSFS}/{DISK.interface} ]", SECONDS)
        assert host.is_off(DISK) and host.is_off(DOCK)
        host.shell("systemctl start vusd")
        host.wait_until_authorized(DOCK)
        host.wait_until_refused(DISK)


def test_without_a_policy_that_loads_nothing_comes_in(host, before):
    whole = host.read(POLICY)
    host.unplug(DOCK)
    with host.typing(KEYBOARD):
        host.shell(f"systemctl stop vusd; truncate -s {len(whole) // 2} {POLICY} {BACKUP}; "
                   "systemctl start --no-block vusd")
        host.machine.wait_until("[ $(systemctl show -P NRestarts vusd) -ge 2 ]", SECONDS)
        host.plug(DOCK)
        host.machine.wait_until(f"[ -e {SYSFS}/{DOCK.interface} ]", SECONDS)
        assert host.is_off(DOCK) and host.is_off(DISK)
        assert not host.answers()
        host.machine.write(POLICY, whole)
        host.wait_until_it_answers()
        host.wait_until_authorized(DOCK)
        host.wait_until_refused(DISK)
    host.machine.wait_until(lambda: host.read(BACKUP) == whole, SECONDS)


def test_the_packages_own_test_of_the_services(host, before):
    """As autopkgtest runs it. Here who does not answer is not waited for as long."""
    host.shell("mkdir -p /run/systemd/system/vus-alive.service.d")
    host.machine.write("/run/systemd/system/vus-alive.service.d/sooner.conf",
                       "[Service]\nExecStart=\nExecStart=/usr/libexec/vus/still-alive 20\n")
    host.shell("systemctl daemon-reload")
    host.mount()
    status, text = host.run("/srv/vus/tests/services 2>&1", 4 * SECONDS)
    host.shell("rm -r /run/systemd/system/vus-alive.service.d; systemctl daemon-reload")
    assert status == 0, text
    assert text.count("started again after a kill") == 3 and text.count("started again when it hangs") == 2
    host.wait_until_refused(DISK)
    host.wait_until_on(KEYBOARD)


# Starts.


def test_what_is_refused_is_off_after_the_start(host, before):
    assert host.machine.reboot() == "running"
    host.wait_until_it_answers()
    host.wait_until_refused(DISK)
    host.wait_until_allowed_input(KEYBOARD)
    assert host.types(KEYBOARD) and host.is_on(KEYBOARD)
    host.machine.wait_until("vusctl verify", SECONDS)


def test_a_torn_policy_is_mended_before_anything_is_judged(host, before):
    whole = host.read(POLICY)
    # While nobody watches the file; with the disk's cache written, as a power cut has it at its worst.
    host.shell(f"systemctl stop vusd; truncate -s {len(whole) // 2} {POLICY}; sync")
    assert host.machine.cut_power() == "running"
    host.wait_until_it_answers()
    assert host.read(POLICY) == whole
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


def test_without_binder_nothing_gets_a_driver_until_there_is_one(host, before):
    without_binder(host, "/etc/modprobe.d")
    host.unplug(DISK)
    assert host.machine.reboot() in ("running", "degraded")
    # It ends at once, and has shut the gate before.
    host.machine.wait_until("[ $(systemctl show -P NRestarts vus-hotplug) -ge 2 ]", SECONDS)
    host.plug(DISK)
    host.machine.wait_until("udevadm settle && [ $(systemctl show -P NRestarts vus-hotplug) -ge 9 ]", SECONDS)
    assert host.is_off(DISK) and host.taken(DISK) == 0
    assert host.states()["vusd"] != "active" and not host.answers()
    # Once it can be loaded, nobody has to do anything.
    host.shell("rm /etc/modprobe.d/no-binder.conf")
    host.wait_until_it_answers()
    host.wait_until_refused(DISK)
    host.wait_until_on(KEYBOARD)
    host.wait_until_types(KEYBOARD)
    assert host.taken(DISK) == 0


# And back.


def test_an_upgrade_opens_nothing(host, before):
    taken, policy = host.taken(DISK), host.read(POLICY)
    processes = [host.process(unit) for unit in UNITS[1:]]
    with host.typing(KEYBOARD):
        host.use("now")
        host.apt("install vus")
        assert host.version() not in (BEFORE, BROKEN)
        host.wait_until_it_answers()
        host.wait_until_refused(DISK)
        host.wait_until_allowed_input(KEYBOARD)
    assert host.taken(DISK) == taken
    assert not set(processes) & {host.process(unit) for unit in UNITS[1:]}, "the new programs run"
    assert host.read(POLICY) == policy
    assert host.run("systemctl --failed --no-legend")[1].strip() == ""


def test_an_upgrade_that_fails_changes_nothing(host, before):
    version, taken = host.version(), host.taken(DISK)
    with host.typing(KEYBOARD):
        host.use("broken")
        assert host.run("apt-get -q -y install vus 2>&1", 3 * SECONDS)[0] != 0
        host.wait_until_it_answers()
        host.wait_until_refused(DISK)
        assert host.version() == version
        # apt has unpacked half of it by then.
        host.use("now")
        host.apt(f"--allow-downgrades install vus={version} vus-tools={version}")
        host.wait_until_it_answers()
        host.wait_until_refused(DISK)
    assert host.taken(DISK) == taken
    assert host.run("dpkg --audit")[1] == ""


def test_removal_opens_the_door_and_keeps_the_policy(host, before):
    policy = host.read(POLICY)
    with host.typing(KEYBOARD):
        host.apt("remove vus")
        host.wait_until_on(DISK)
    assert host.read("/var/lib/vus/usb_device_config.xml") == policy
    assert host.run("pgrep -x 'vusd|vus_hotplug|servicemanager'")[0] == 1
    switches = host.shell("cat /sys/bus/usb/drivers_autoprobe /sys/bus/hid/drivers_autoprobe "
                          f"{SYSFS}/usb*/interface_authorized_default")
    assert set(switches.split()) == {"1"}
    host.unplug(KEYBOARD)
    host.plug(KEYBOARD)
    host.wait_until_on(KEYBOARD)
    host.wait_until_types(KEYBOARD)


def test_a_policy_that_stayed_is_in_force_after_the_next_installation(host, before):
    with host.typing(KEYBOARD):
        host.apt("install vus")
        host.wait_until_it_answers()
        host.wait_until_refused(DISK)


def test_purge_leaves_nothing_behind(host, before):
    with host.typing(KEYBOARD):
        host.apt("purge vus vus-tools")
        host.wait_until_on(DISK)
    after = host.files()
    assert (after - before, before - after) == (set(), set())
    assert host.run("ls -d /run/vus* /run/systemd/system/vus* 2>/dev/null")[1].strip() == ""
    assert host.run("systemctl list-units --all --plain --no-legend 'vus*'")[1].strip() == ""
    assert host.machine.reboot() == "running"
    host.wait_until_on(DISK)
    host.wait_until_types(KEYBOARD)
