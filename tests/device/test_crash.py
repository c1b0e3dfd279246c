# SPDX-License-Identifier: Apache-2.0
"""The daemon dies, in every way, and comes back with the last good policy."""

import pytest

from conftest import policy
from vdev import NO_GATE
from vdev.probe import BACKUP, POLICY

VIDEO = "<class>USB_CLASS_VIDEO</class>"
GOOD = policy(VIDEO)
CRASHED = "Unable to apply the USB Admin config rules"


def end(device, signal):
    """Ends the daemon and keeps it from coming back."""
    device.machine.shell(f"touch /run/vusd.hold; kill -{signal} $(cat /run/vusd.pid)")
    return device.machine.wait_until(lambda: device.probe.ends("vusd"))


def come_back(device):
    device.machine.shell("rm /run/vusd.hold")
    device.machine.wait_until("vusctl list >/dev/null 2>&1")


@pytest.mark.parametrize("signal, status", [("SEGV", 11), ("ABRT", 6)])
def test_a_crash_restores_the_backup(device, signal, status):
    device.set_policy(VIDEO)
    backup = device.machine.read(BACKUP)
    assert end(device, signal) == [status]
    assert device.machine.read(POLICY) == backup
    assert device.probe.status() == CRASHED
    log = device.machine.read("/data/log/vusd.log")
    assert f"Segmentation faultsignum{status}" in log
    assert "Stack Trace" in log and "#00 pc" in log
    come_back(device)
    device.plug("webcam", "5")
    assert device.probe.judged("1-5")["reason"].startswith("Whitelisted: ")


def test_a_crash_within_the_crash_handler(device):
    """The second signal finds the handler of the first at work."""
    device.set_policy(VIDEO)
    backup = device.machine.read(BACKUP)
    device.machine.write("/data/torn.xml", "<usbconfig")
    device.machine.shell(f"touch /run/vusd.hold; p=$(cat /run/vusd.pid); kill -STOP $p; "
                         f"cat /data/torn.xml >{POLICY}; kill -ABRT $p; kill -SEGV $p; kill -CONT $p")
    device.machine.wait_until(lambda: device.probe.ends("vusd"))
    assert device.probe.ends("vusd") in ([6], [11])
    assert device.machine.read(POLICY) == backup
    assert device.probe.status() == CRASHED
    come_back(device)


def test_a_crash_while_the_policy_is_rewritten(device):
    device.set_policy(VIDEO)
    device.machine.shell(f"exec 3>{POLICY}; printf '<usbconfig mode=\"whi' >&3; touch /run/vusd.hold; "
                         "kill -ABRT $(cat /run/vusd.pid); "
                         "until grep -q 'vusd ended' /data/log/supervise.log 2>/dev/null; do usleep 10000; done; "
                         "exec 3>&-")
    assert device.machine.read(POLICY) == device.machine.read(BACKUP) == GOOD + "\n"
    come_back(device)
    assert device.probe.status() == "SUCCESS"


def test_devices_are_judged_again_by_the_new_daemon(device):
    device.plug("webcam", "5")
    device.plug("keyboard", "1")
    device.probe.judged("1-5")
    device.probe.judged_input("Keyboard")
    end(device, "KILL")
    assert device.machine.run("vusctl list")[0] == 3
    come_back(device)
    device.probe.judged("1-5")
    device.probe.judged_input("Keyboard")


@pytest.mark.reporter(NO_GATE)
def test_killed_in_the_middle_of_a_decision(device):
    """The daemon waits for a device that does not answer, and is killed meanwhile."""
    device.start_stuck_decision()
    device.machine.shell("kill -9 $(cat /run/vusd.pid)")
    # It waits within a write, which the kernel lets no signal end.
    device.machine.wait_until(lambda: device.probe.ends("vusd"), seconds=60)
    device.machine.wait_until("vusctl list >/dev/null 2>&1")
    device.machine.wait_until(lambda: device.probe.record("1-5"), seconds=90, what="a verdict in the end")
