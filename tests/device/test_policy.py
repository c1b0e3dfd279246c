# SPDX-License-Identifier: Apache-2.0
"""The policy is rewritten, refused, rolled back, while devices are attached."""

import pytest

from conftest import SOC, policy
from vdev.probe import BACKUP, POLICY

HIGH_SPEED, SUPER_SPEED = "c200000.hsusb", "a800000.ssusb"
GOOD = policy("<class>USB_CLASS_AUDIO</class>")


def test_a_rewritten_policy_resets_each_controller_once(device):
    device.machine.write(POLICY, GOOD)
    for controller in (HIGH_SPEED, SUPER_SPEED):
        device.machine.wait_until(lambda c=controller: len(device.mode_writes(c)[0]) == 2)
        values, pauses = device.mode_writes(controller)
        assert values == ["none", "host"]
        assert pauses[0] >= 100
    first = device.machine.read(f"{SOC}/{HIGH_SPEED}/mode_log").split()[2]
    second = device.machine.read(f"{SOC}/{SUPER_SPEED}/mode_log").split()[0]
    assert int(second) - int(first) >= 100_000, "the second controller waits for the first"
    assert device.machine.read(BACKUP) == GOOD + "\n"
    assert device.probe.status() == "SUCCESS"


def test_the_same_policy_again_resets_again(device):
    for times in (1, 2):
        device.machine.write(POLICY, GOOD)
        device.machine.wait_until(lambda: len(device.mode_writes(SUPER_SPEED)[0]) == 2 * times)


@pytest.mark.parametrize("text, status", [
    ('<usbconfig mode="whitelist"><class>8</class></usbconfig>', "INVALID CLASS VALUE:8"),
    ('<usbconfig mode="graylist"/>', "INVALID MODE"),
    ('<usbconfig mode="whitelist"><vid vendorid="0x46d"/></usbconfig>', "INVALID VENDOR ID VALUE:0x46d"),
])
def test_a_broken_policy_is_rolled_back_without_a_reset(device, text, status):
    device.machine.write(POLICY, GOOD)
    device.machine.wait_until(lambda: len(device.mode_writes(SUPER_SPEED)[0]) == 2)
    device.machine.write(POLICY, text)
    device.machine.wait_until(lambda: device.machine.read(POLICY) == GOOD + "\n")
    # The restore raises a reload of its own, which must change nothing but the tables.
    device.machine.wait_until(
        "[ $(grep -c 'Parsing status xml_parse_status 1' /data/log/vusd.log) = 2 ]")
    device.machine.wait_until("vusctl judge --id 77 --interfaces 1 >/dev/null")
    assert device.probe.status() == status
    assert device.machine.read(BACKUP) == GOOD + "\n"
    assert len(device.mode_writes(SUPER_SPEED)[0]) == 2


def test_a_rename_over_the_policy_is_not_noticed(device):
    device.machine.write("/data/new.xml", GOOD)
    device.machine.shell(f"mv /data/new.xml {POLICY}")
    device.machine.write(f"{POLICY}.other", "the next event in the directory")
    device.machine.wait_until("grep -q 'xml.other' /data/log/vusd.log")
    assert device.mode_writes(SUPER_SPEED)[0] == []


def test_vusctl_sets_checks_and_shows(device):
    device.machine.write("/tmp/good.xml", GOOD)
    device.machine.write("/tmp/bad.xml", policy("<class>USB_CLASS_HID</class>"))
    status, text = device.machine.run("vusctl policy check /tmp/good.xml")
    assert (status, text.splitlines()[0]) == (0, "SUCCESS")
    status, text = device.machine.run("vusctl policy check /tmp/bad.xml")
    assert (status, text.splitlines()[0]) == (1, "INVALID CLASS VALUE:USB_CLASS_HID")
    assert "did you mean: AINPUT_SOURCE_KEYBOARD" in text
    status, text = device.machine.run("vusctl policy set /tmp/bad.xml 2>&1")
    assert status == 1 and "INVALID CLASS VALUE:USB_CLASS_HID" in text
    assert "default" in device.machine.shell("vusctl policy show")
    assert device.machine.run("vusctl policy set /tmp/good.xml") == (0, "SUCCESS\n")
    assert device.machine.shell("vusctl policy show") == GOOD
    assert device.machine.shell("vusctl status") == "SUCCESS\n"


def test_a_full_directory_leaves_the_rules_in_force(device):
    """The policy's file system is full: the rewrite is cut, refused, and the backup read again."""
    device.machine.write("/data/keep.xml", GOOD)
    device.machine.shell("mount -t tmpfs -o size=32k tmpfs /data/system/usbdeviceconfig && "
                         "cp /data/keep.xml /data/system/usbdeviceconfig/usb_device_config.xml && "
                         "kill -9 $(cat /run/vusd.pid)")
    device.machine.wait_until(lambda: device.machine.run(f"cat {BACKUP}")[1] == GOOD + "\n")
    device.machine.run("dd if=/dev/zero of=/data/system/usbdeviceconfig/fill bs=1k count=64 2>/dev/null")
    # Again until it is heard: the daemon has its backup before it watches.
    device.machine.wait_until("grep -q 'copying backup file content' /data/log/vusd.log || "
                              f"{{ printf '<usbconfig mode=\"whitelist\"><class>' > {POLICY}; false; }}")
    device.machine.wait_until(lambda: device.machine.run(
        "vusctl judge --id 78 --interfaces 1")[0] == 0, what="the backup's rules in force")


def test_nobody_outside_the_group_enters_the_directory(device):
    assert device.machine.shell("stat -c %a /data/system/usbdeviceconfig") == "770\n"


def test_a_truncated_policy_and_then_the_good_one(device):
    """The restore of the backup never wins against the policy that was written last."""
    def text(number):
        return policy(f'<vid vendorid="{number}"/>')

    for number in range(1, 25):
        device.machine.write("/tmp/next.xml", text(number))
        device.machine.shell(f": >{POLICY}; usleep {number % 6 * 1000}; cat /tmp/next.xml >{POLICY}")
        device.machine.wait_until(lambda n=number: device.machine.read(BACKUP) == text(n) + "\n",
                                  what=f"policy {number} in force")
        assert device.probe.status() == "SUCCESS"
        assert device.machine.read(POLICY) == text(number)


@pytest.mark.parametrize("make, status", [
    ("mkfifo {0}", "XML_ERROR_FILE_READ_ERROR"),
    ("ln -s /dev/zero {0}", "XML_ERROR_EMPTY_DOCUMENT"),
    ("ln -s /proc/kmsg {0}", "XML_ERROR_EMPTY_DOCUMENT"),
    ("dd if=/dev/zero of={0} bs=1M count=40 2>/dev/null", "XML_ERROR_FILE_READ_ERROR"),
])
def test_a_daemon_starts_whatever_the_policy_is(device, make, status):
    # Made while no daemon is there: the one before would answer its close.
    device.machine.shell("touch /run/vusd.hold; kill -9 $(cat /run/vusd.pid)")
    device.machine.wait_until(lambda: device.probe.ends("vusd"))
    device.machine.shell(f"rm {POLICY}; {make.format(POLICY)}; rm /run/vusd.hold")
    device.machine.wait_until("vusctl list >/dev/null 2>&1")
    assert status in device.probe.status()
    # And it watches: the next policy is taken over.
    device.machine.shell(f"rm {POLICY}")
    device.machine.write(POLICY, GOOD)
    device.machine.wait_until(lambda: device.probe.status() == "SUCCESS")
    assert device.machine.read(BACKUP) == GOOD + "\n"


def test_a_pipe_as_status_file_holds_nobody_up(device):
    device.machine.shell("cd /data/system/usbdeviceconfig && rm status.txt && mkfifo status.txt")
    device.machine.write(POLICY, GOOD)
    device.machine.wait_until(lambda: device.machine.run(f"cat {BACKUP}")[1] == GOOD + "\n")


def test_a_policy_whose_event_is_lost_is_loaded(device):
    """Somebody reads a file of the directory while the daemon is held, until the queue is full."""
    device.machine.shell("echo 16 >/proc/sys/fs/inotify/max_queued_events; kill -9 $(cat /run/vusd.pid)")
    device.machine.wait_until(lambda: device.probe.ends("vusd"))
    device.machine.wait_until("vusctl list >/dev/null 2>&1")
    device.machine.wait_until("grep -q 'registered successfully file observer' /data/log/vusd.log")
    device.machine.write("/data/next.xml", GOOD)
    device.machine.shell("p=$(cat /run/vusd.pid); kill -STOP $p; for i in $(seq 20); do "
                         "cat /data/system/usbdeviceconfig/status.txt >/dev/null; done; "
                         f"cat /data/next.xml >{POLICY}; kill -CONT $p")
    device.machine.wait_until(lambda: device.machine.run(f"cat {BACKUP}")[1] == GOOD + "\n")
    assert "were lost: loading the policy again" in device.machine.read("/data/log/vusd.log")
    assert device.probe.status() == "SUCCESS"


def test_a_policy_on_trial_is_taken_back(device):
    """The daemon reads neither the file that is renamed over the one on trial, nor the one kept."""
    device.machine.write(POLICY, GOOD)
    device.machine.wait_until(lambda: len(device.mode_writes(SUPER_SPEED)[0]) == 2)
    device.machine.write("/tmp/new.xml", policy("<class>USB_CLASS_PRINTER</class>"))
    status, text = device.machine.run("vusctl policy try /tmp/new.xml --seconds 2")
    assert (status, text) == (0, "SUCCESS\non trial for 2 s: vusctl policy keep keeps it\n")
    assert device.machine.read(POLICY) == GOOD
    assert device.machine.read(BACKUP) == policy("<class>USB_CLASS_PRINTER</class>") + "\n"
    assert device.machine.run("vusctl status")[0] == 1
    device.machine.wait_until(lambda: device.machine.read(BACKUP) == GOOD + "\n", what="the way back")
    device.machine.wait_until(lambda: len(device.mode_writes(SUPER_SPEED)[0]) == 6)
    assert device.machine.run("vusctl status") == (0, "SUCCESS\n")
    assert device.machine.run("vusctl policy keep") == (1, "vusctl: no policy is on trial\n")


def test_a_policy_on_trial_is_kept_without_a_reset(device):
    new = policy("<class>USB_CLASS_PRINTER</class>")
    device.machine.write("/tmp/new.xml", new)
    assert device.machine.run("vusctl policy try /tmp/new.xml --seconds 600")[0] == 0
    device.machine.wait_until(lambda: len(device.mode_writes(SUPER_SPEED)[0]) == 2)
    assert device.machine.run("vusctl policy keep") == (0, "kept\n")
    assert device.machine.read(POLICY) == new
    assert device.machine.run("vusctl status") == (0, "SUCCESS\n")
    assert len(device.mode_writes(SUPER_SPEED)[0]) == 2
