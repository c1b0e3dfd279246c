# SPDX-License-Identifier: Apache-2.0
"""The host reset and the virtual undock, on controllers and supplies that really switch."""

import pytest

from conftest import SOC

SUPPLY = "/sys/class/power_supply"
BY_DEVICE_TREE = "a600000.ssusb"


def properties(device):
    return {name: device.machine.shell(f"getprop persist.vendor.monitor.{name}").strip()
            for name in ("undock", "dock", "reset")}


def undock_in_background(device, milliseconds):
    device.machine.shell(f"(vusctl undock {milliseconds}; touch /tmp/undocked) >/dev/null 2>&1 &")


def test_a_reset_enumerates_every_device_again(device):
    device.plug("webcam", "5")
    device.plug("serial")
    before = {entry: device.probe.judged(entry)["deviceId"] for entry in ("1-5", "3-1")}
    device.machine.shell("vusctl reset")
    for entry, old in before.items():
        device.machine.wait_until(lambda e=entry: device.probe.record(e))
        assert device.probe.record(entry)["deviceName"]
    assert device.mode_writes("c200000.hsusb")[0] == ["none", "host"]
    assert device.mode_writes("a800000.ssusb")[0] == ["none", "host"]
    assert len(device.probe.records()) == 2


def test_without_a_displaylink_dock_properties_tell(device):
    # Long enough to be looked at by a machine that is held up for some seconds.
    undock_in_background(device, 10000)
    device.machine.wait_until(lambda: properties(device) == {"undock": "1", "dock": "", "reset": "1"})
    device.machine.wait_until("[ -e /tmp/undocked ]")
    assert properties(device) == {"undock": "1", "dock": "1", "reset": "1"}
    device.machine.wait_until("grep -q 'exit poll due to virtual dock' /data/log/vusd.log")
    assert device.mode_writes("a800000.ssusb")[0] == []


def test_without_dock_power_nothing_happens(device):
    device.machine.shell(f"echo 0 > {SUPPLY}/dc/online; vusctl undock 1")
    assert properties(device) == {"undock": "", "dock": "", "reset": ""}


def test_dock_power_lost_meanwhile_ends_the_undock_at_once(device):
    undock_in_background(device, 120000)
    device.machine.wait_until(lambda: properties(device)["undock"] == "1")
    device.machine.shell(f"echo 0 > {SUPPLY}/dc/online")
    device.machine.wait_until(lambda: properties(device)["dock"] == "1", seconds=30)
    assert not device.machine.exists("/tmp/undocked")


@pytest.mark.parametrize("usb, dc, writes", [
    (1, 0, ["none", "host"]), (0, 1, ["none", "host"]), (0, 0, ["none"])])
def test_with_a_displaylink_dock_its_controller_is_switched(device, usb, dc, writes):
    device.plug("displaylink", "7")
    device.probe.judged("1-7")
    device.machine.shell(f"echo {usb} > {SUPPLY}/usb/online; echo {dc} > {SUPPLY}/dc/online")
    device.machine.shell("vusctl undock 300")
    values, pauses = device.mode_writes(BY_DEVICE_TREE)
    assert values == writes
    assert all(pause >= 300 for pause in pauses)
    assert device.machine.read(f"{SOC}/{BY_DEVICE_TREE}/mode").strip() == writes[-1]
    assert properties(device) == {"undock": "", "dock": "", "reset": ""}
    if writes[-1] == "host":
        device.probe.judged("1-7")
