# SPDX-License-Identifier: Apache-2.0
"""What the meter says of devices is what probes in the kernel say: which drivers had them, and for
how long."""

import json

import pytest

from test_reporter import KEYBOARD, NOT_LISTED, STORAGE, stop_reporter
from vdev import NO_GATE
from vdev.trials import USBFS, Trials, together_ms

EVENTS = "/var/lib/vus-hotplug/events.jsonl"
# By how much the two may differ: the kernel tells of a driver when it has the device already, and a
# busy machine hears of it late.
SLACK_MS = 250


@pytest.fixture
def metered(device):
    device.trials = Trials.begin(device.machine)
    return device


def told(device, entry):
    """The last that the meter said of an entry; None if it has said nothing."""
    # There is no file before there is a line.
    text = device.machine.run(f"cat {EVENTS} 2>/dev/null")[1]
    lines = [json.loads(line) for line in text.splitlines()]
    return ([line for line in lines if line.get("entry") == entry] or [None])[-1]


def refused(device, entry):
    """What it said of one that it has seen refused, and off."""
    def found():
        line = told(device, entry)
        return line if line and line["verdict"] == "refused" and not line.get("on") else None
    return device.machine.wait_until(found, what=f"{entry} refused and off", seconds=60)


def summary(device):
    return json.loads(device.machine.shell("vusctl exposure --json"))


def tried_at(device, entry):
    return [trial for trial in device.trials.all() if trial.name.startswith(entry) and trial.driver != USBFS]


def test_nothing_that_the_gate_refuses_is_exposed(metered):
    metered.set_policy(STORAGE)
    metered.plug("keyboard", "1")
    metered.plug("usb-serial", "5")
    metered.plug("disk", "6")
    metered.plug("dock")
    for entry in ("1-5", "3-1", "1-1:1.0"):
        line = refused(metered, entry)
        assert (line["exposedMs"], line["drivers"]) == (0, []), line
        assert line["held"] and line["verdictMs"] > 0 and "offMs" not in line
    disk = metered.machine.wait_until(lambda: told(metered, "2-6"), what="a line of the disk")
    assert disk["verdict"] == "allowed" and disk["driverMs"] > 0
    assert {trial.driver for trial in metered.trials.all()} - {USBFS} == {"usb-storage"}
    result = summary(metered)
    assert (result["refused"], result["exposedMs"], result["stillOn"], result["malformed"]) == (3, 0, 0, 0)
    assert metered.machine.run("vusctl exposure --fail-above 0")[0] == 0


def test_what_goes_before_it_is_judged_counts_as_exposed(metered):
    """Even a keyboard that the policy allows, and that the gate has let in by what it says of itself."""
    metered.set_policy(KEYBOARD)

    def goes_at_once():
        metered.plug("keyboard", "1")
        metered.machine.wait_until("[ -e /sys/bus/usb/devices/1-1:1.0/driver ]", what="a driver")
        metered.machine.unplug("keyboard")
        metered.machine.wait_until("[ ! -e /sys/bus/usb/devices/1-1 ]", what="its end")
        return summary(metered)["exposedMs"] > 0
    # It may have gone before its driver was told of, or after it was judged.
    assert any(goes_at_once() for _ in range(20))
    result = summary(metered)
    worst = result["worst"]
    assert (result["refused"], result["stillOn"]) == (0, 0), result
    # The input device, if that was just being asked about.
    assert worst["entry"] == "1-1" or worst["entry"].startswith("input"), worst
    assert (worst["verdict"], worst["gone"]) == ("none", True)
    assert metered.machine.run("vusctl exposure --fail-above 0")[0] == 1


@pytest.mark.reporter(NO_GATE)
def test_exposure_is_what_the_kernel_says(metered):
    metered.set_policy(STORAGE)
    metered.plug("usb-serial", "5")
    line = refused(metered, "1-5")
    kernel = together_ms(tried_at(metered, "1-5"))
    assert [each["driver"] for each in line["drivers"]] == ["ftdi_sio"]
    assert {trial.driver for trial in tried_at(metered, "1-5")} >= {"ftdi_sio"}
    assert line["exposedMs"] > 0 and abs(line["exposedMs"] - kernel) < SLACK_MS, (line, kernel)
    assert metered.probe.judged("1-5")["reason"] == NOT_LISTED
    assert summary(metered)["worst"]["entry"] == "1-5"
    assert metered.machine.run("vusctl exposure --fail-above 0")[0] == 1


@pytest.mark.reporter(NO_GATE)
def test_a_refused_keyboard_was_a_keyboard_until_its_driver_went(metered):
    metered.set_policy(STORAGE)
    metered.plug("keyboard", "1")
    assert metered.probe.judged_input("Keyboard")["status"] == 0
    line = refused(metered, "input0")
    assert [each["driver"] for each in line["drivers"]] == ["hid-generic"]
    kernel = together_ms([trial for trial in metered.trials.all() if trial.driver == "hid-generic"])
    assert line["exposedMs"] > 0 and abs(line["exposedMs"] - kernel) < SLACK_MS, (line, kernel)


def test_what_was_there_before_is_not_said_to_be_measured(metered):
    metered.set_policy(KEYBOARD)
    stop_reporter(metered)
    metered.plug("usb-serial", "5")
    metered.machine.wait_until("[ -e /sys/bus/usb/devices/1-5 ]")
    metered.machine.shell("rm /run/vus_hotplug.hold")
    line = refused(metered, "1-5")
    assert line["notMeasured"] == "present" and "exposedMs" not in line
    assert summary(metered)["notMeasured"]["refused"] == 1
