# SPDX-License-Identifier: Apache-2.0
"""A device that never answers, dying clients: the daemon goes on."""

import json
import re
import time

import pytest
from conftest import SYSFS, policy
from vdev import NO_GATE

# Far below the 20 s for which the kernel keeps the silent device's attributes.
AT_ONCE = 10


# While a driver waits for a device, the kernel locks it: behind the gate a refused one has no driver.
@pytest.mark.reporter(NO_GATE)
def test_a_silent_device_holds_up_nobody_else(device):
    # On another bus: the kernel itself handles nothing on the silent one's hub meanwhile.
    device.plug("serial")
    device.probe.judged("3-1")
    silent = device.start_stuck_decision()
    start = time.monotonic()
    device.machine.wait_until(lambda: len(device.probe.records()) == 1, seconds=AT_ONCE)
    assert device.machine.run("vusctl judge --input --id 5 --class 0x101")[0] == 0
    device.machine.unplug("serial")
    device.machine.wait_until(lambda: len(device.probe.records()) == 1, seconds=AT_ONCE)
    device.machine.write("/data/system/usbdeviceconfig/usb_device_config.xml", policy("", "whitelist"))
    device.machine.wait_until("grep -q 'no element, blocking all device' /data/log/vusd.log", seconds=AT_ONCE)
    assert time.monotonic() - start < AT_ONCE
    # Its own decision has waited all the while.
    assert silent not in [record["deviceId"] for record in device.probe.records()]


def plug_silent(device, port):
    device.plug("silent", port, f"silent-{port}")
    device.machine.wait_until(f"[ -e {SYSFS}/1-{port}:1.0 ]")


@pytest.mark.reporter(NO_GATE)
@pytest.mark.parametrize("ports", [["5"], ["2.4.1", "2.1", "5"]], ids=["one", "behind-each-other"])
def test_a_refusal_waits_for_no_silent_device(device, ports):
    """Behind hubs, the hubs are locked as well: the kernel is busy with what hangs on them."""
    device.set_policy('<vid vendorid="1317"/>', "blacklist")
    for port in ports:
        plug_silent(device, port)
    # On another bus: on theirs the kernel itself handles nothing meanwhile.
    device.plug("serial")
    device.machine.wait_until(lambda: device.probe.authorized("3-1") == ["0", "0"], seconds=AT_ONCE)
    # And the kernel still keeps the silent one's attributes back.
    locked = f"cat {SYSFS}/1-5/bNumInterfaces >/dev/null 2>&1 & sleep 1; kill -0 $!"
    assert device.machine.run(locked)[0] == 0
    device.probe.judged("3-1")


def reads_of(device, action):
    """How many system calls of the daemon read something until it has done all that follows."""
    def count():
        text = device.machine.shell("cat /proc/$(cat /run/vusd.pid)/task/*/io")
        return sum(map(int, re.findall(r"syscr: (\d+)", text)))
    before = last = count()
    action()
    while True:
        time.sleep(0.5)  # it has been idle for half a second: nothing is under way any more
        if last == (last := count()):
            return last - before


def test_entries_that_are_the_same_are_not_read_again(device):
    device.set_policy("<class>USB_CLASS_VIDEO</class>")

    def plug_and_unplug():
        device.plug("usb-serial", "8")
        device.machine.wait_until("grep -q '^1-8 .*not-allowed' /data/log/vus_hotplug.log")
        device.machine.unplug("usb-serial")
        device.machine.wait_until(f"[ ! -e {SYSFS}/1-8 ]")
        device.machine.shell(": > /data/log/vus_hotplug.log")
    plug_and_unplug()
    alone = reads_of(device, plug_and_unplug)
    for number, port in enumerate(["1", "3", "4", "5", "2.1", "2.2", "2.3", "2.5", "2.4.1", "2.4.2"]):
        device.plug("webcam", port, f"webcam-{number}")
        device.probe.judged(f"1-{port}")
    plug_and_unplug()
    # Ten devices with two interfaces each have 340 attributes.
    assert reads_of(device, plug_and_unplug) <= alone + 10
    # The dump does read them.
    assert reads_of(device, lambda: device.machine.shell("vusctl dump test")) > 340


def test_the_kernel_numbers_what_is_plugged_anew(device):
    """What the daemon relies on when it does not read an entry again."""
    def number(entry):
        return device.machine.shell(f"ls -di {SYSFS}/{entry}").split()[0]
    numbers = set()
    for _ in range(3):
        device.plug("webcam", "5")
        device.probe.judged("1-5")
        numbers |= {number("1-5"), number("1-5:1.0"), number("1-5:1.1")}
        before = number("1-5"), number("1-5:1.0")
        # Its interfaces leave and come again, and the device stays.
        device.machine.shell(f"echo 0 > {SYSFS}/1-5/bConfigurationValue; echo 1 > {SYSFS}/1-5/bConfigurationValue")
        device.machine.wait_until(f"[ -e {SYSFS}/1-5:1.0 ]")
        assert number("1-5") == before[0]
        assert number("1-5:1.0") != before[1]
        device.machine.unplug("webcam")
        device.machine.wait_until(f"[ ! -e {SYSFS}/1-5 ]")
    assert len(numbers) == 9


def test_a_device_that_cannot_be_configured(device):
    device.plug("serial")
    device.probe.judged("3-1")
    device.plug("unconfigured", "5")
    device.machine.wait_until("[ -e /sys/bus/usb/devices/1-5 ]")
    # The kernel now waits 5 s for its answer. Nobody else does.
    device.machine.shell("vusctl list && vusctl judge --input --id 5 --class 0x101")
    device.machine.unplug("serial")
    device.machine.wait_until(lambda: len(device.probe.records()) == 1)
    assert device.probe.answers("1-5") == []
    # Then it gives up, and there is a device without interfaces: nothing to judge.
    device.machine.wait_until(lambda: device.probe.words("1-5") == {"not-allowed"}, seconds=60)
    assert "1-5: can't set config #1, error -110" in device.machine.shell("dmesg")
    assert device.probe.record("1-5") is None
    device.machine.unplug("unconfigured")
    device.plug("webcam", "5")
    device.probe.judged("1-5")


def test_clients_hear_of_additions_and_removals(device):
    device.machine.shell("for n in 1 2 3 4; do vusctl watch --json > /tmp/watch.$n & echo $! > /tmp/watch.$n.pid; done")
    registered = "[ $(grep -c 'Size of callbacks at registerVusCallback' /data/log/vusd.log) = 4 ]"
    device.machine.wait_until(registered)
    device.machine.shell("kill -9 $(cat /tmp/watch.2.pid)")
    device.machine.wait_until("grep -q 'Callback from dead process unregistered' /data/log/vusd.log")
    device.plug("webcam", "5")
    device.probe.judged("1-5")
    device.machine.unplug("webcam")
    for number in (1, 3, 4):
        device.machine.wait_until(f"[ $(wc -l < /tmp/watch.{number}) = 2 ]")
        events = [json.loads(line) for line in device.machine.read(f"/tmp/watch.{number}").splitlines()]
        assert [event["event"] for event in events] == ["added", "removed"]
        assert events[0]["device"]["deviceName"] == "Webcam"
    device.machine.shell("kill -INT $(cat /tmp/watch.1.pid)")
    device.machine.wait_until("grep -q 'Callback successfully removed from list' /data/log/vusd.log")


def test_an_allowed_disk_is_announced_once_and_a_keyboard_as_no_usb_device(device):
    """Behind the gate, where they become what they are only when they have been let in."""
    device.set_policy("<class>USB_CLASS_MASS_STORAGE</class><class>AINPUT_SOURCE_KEYBOARD</class>")
    device.machine.shell("vusctl watch --json >/tmp/watched & echo $! >/tmp/watch.pid")
    device.machine.wait_until("grep -q 'Size of callbacks at registerVusCallback 1$' /data/log/vusd.log")
    device.plug("disk", "5")
    disk = device.probe.judged("2-5")
    device.plug("keyboard", "6")
    assert device.probe.judged_input("Keyboard")["status"] == 1
    device.machine.unplug("keyboard")
    device.machine.wait_until(lambda: len(device.probe.records()) == 1)
    device.machine.unplug("disk")
    device.machine.wait_until("grep -q removed /tmp/watched")
    events = [json.loads(line) for line in device.machine.read("/tmp/watched").splitlines()]
    assert [each["event"] for each in events if each["device"]["deviceId"] == disk["deviceId"]] == ["added", "removed"]
    assert [each["device"]["deviceId"] for each in events if each["event"] == "added"] == [disk["deviceId"]]
    assert events[0]["device"]["status"] == 1


def test_an_idle_daemon_sleeps_and_is_small(device):
    device.plug("webcam", "5")
    device.probe.judged("1-5")

    def switches():
        return device.machine.shell("cat /proc/$(cat /run/vusd.pid)/task/*/status | grep ctxt")
    before = switches()
    time.sleep(3)  # the measurement itself: three seconds without a call
    assert switches() == before
    resident = int(device.machine.shell("grep VmRSS /proc/$(cat /run/vusd.pid)/status").split()[1])
    assert resident < 8 * 1024


def test_no_descriptor_is_left_open(device):
    count = "ls /proc/$(cat /run/vusd.pid)/fd | wc -l"
    before = None
    for _ in range(2):
        device.plug("webcam", "5")
        device.probe.judged("1-5")
        device.machine.shell("vusctl dump > /dev/null; vusctl dump test > /dev/null; vusctl reset")
        device.machine.unplug("webcam")
        device.machine.wait_until(lambda: device.probe.records() == [])
        now = int(device.machine.shell(count))
        before = before or now
    assert now == before
