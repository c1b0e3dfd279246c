# SPDX-License-Identifier: Apache-2.0
"""A device that never answers, dying clients: the daemon goes on."""

import json
import time

from conftest import policy

# Far below the 20 s for which the kernel keeps the silent device's attributes.
AT_ONCE = 5


def test_a_silent_device_holds_up_nobody_else(device):
    # On another bus: the kernel itself handles nothing on the silent one's hub meanwhile.
    device.plug("serial")
    device.probe.judged("3-1")
    silent = device.start_stuck_decision()
    start = time.monotonic()
    assert len(device.probe.records()) == 1
    assert device.machine.run("vusctl judge --input --id 5 --class 0x101")[0] == 0
    device.machine.unplug("serial")
    device.machine.wait_until(lambda: len(device.probe.records()) == 1, seconds=AT_ONCE)
    device.machine.write("/data/system/usbdeviceconfig/usb_device_config.xml", policy("", "whitelist"))
    device.machine.wait_until("grep -q 'no element, blocking all device' /data/log/vusd.log", seconds=AT_ONCE)
    assert time.monotonic() - start < AT_ONCE
    # Its own decision has waited all the while.
    assert silent not in [record["deviceId"] for record in device.probe.records()]


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
    device.machine.wait_until(lambda: device.probe.answers("1-5") == ["not-allowed"], seconds=60)
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
    for _ in range(2):
        device.plug("webcam", "5")
        device.probe.judged("1-5")
        device.machine.shell("vusctl dump > /dev/null; vusctl dump test > /dev/null; vusctl reset")
        device.machine.unplug("webcam")
        device.machine.wait_until(lambda: device.probe.records() == [])
        now = int(device.machine.shell(count))
        before = now if _ == 0 else before
    assert now == before
