# SPDX-License-Identifier: Apache-2.0
"""Every test has a virtual device of its own, as fresh as if it had booted: nothing is left over."""

import re
import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "device"))

from vdev import CATALOG, GATE, Probe, ready_machine  # noqa: E402
from vdev.probe import SOC, SYSFS  # noqa: E402


def pytest_addoption(parser):
    parser.addoption("--write-table", action="store_true", help="keep what the attacks' exposure is measured to be, and "
                     "write docs/attacks.md")


def pytest_configure(config):
    config.addinivalue_line("markers", "soak: half an hour at random; ./test soak")
    config.addinivalue_line("markers", "power: every write to a disk; ./test power")
    config.addinivalue_line("markers", "reporter(options): how the component that reports devices is started; "
                                       "without it, with the gate")


class Device:
    """The virtual device of a test: the machine, and what it shows."""

    def __init__(self, machine):
        self.machine = machine
        self.probe = Probe(machine)

    def plug(self, kind, port=None, name=None):
        return self.machine.plug(CATALOG[kind], name=name, port=port)

    def set_policy(self, rules, mode="whitelist"):
        """Sets a policy and waits until the reset that follows it is over."""
        before = len(self.mode_writes("a800000.ssusb")[0])
        assert self.probe.set_policy(policy(rules, mode)) == (0, "SUCCESS\n")
        self.machine.wait_until(lambda: len(self.mode_writes("a800000.ssusb")[0]) == before + 2)

    def start_stuck_decision(self):
        """Plugs a device that never answers and has it refused at once, as a disk: the kernel keeps
        the daemon waiting for the device's lock, to switch it off, for 20 s and more. Returns the
        device's id."""
        self.set_policy("<class>USB_CLASS_MASS_STORAGE</class>", "blacklist")
        log = "grep -c 'update_status path is :/sys/bus/usb/devices/1-5:' /data/log/vusd.log"
        begun = int(self.machine.run(log)[1])
        self.plug("silent", "5")
        self.machine.wait_until(f"[ -e {SYSFS}/1-5:1.0 ]")
        number = self.probe.device_id("1-5")
        self.machine.shell(f"vusctl judge --id {number} --interfaces 8 >/dev/null 2>&1 &")
        self.machine.wait_until(f"[ $({log}) -gt {begun} ]")
        return number

    def mode_writes(self, controller):
        """The values written to a controller's mode, with the milliseconds between them."""
        lines = [line.split() for line in self.machine.read(f"{SOC}/{controller}/mode_log").splitlines()]
        times = [int(at) / 1000 for at, _ in lines]
        return [value for _, value in lines], [after - before for before, after in zip(times, times[1:])]

    def assert_agreement(self):
        """The daemon's list and its map come to show what sysfs has."""
        self.machine.wait_until(self._list_agrees, seconds=60, what="list and sysfs agreeing")
        self.machine.wait_until(self._map_agrees, seconds=30, what="map and sysfs agreeing")

    def _list_agrees(self):
        sure, maybe = self._entries()
        listed = {record["deviceId"] for record in self.probe.records() if record["deviceType"] == 0}
        return self._ids(sure) <= listed <= self._ids(sure + maybe)

    def _map_agrees(self):
        # A device that is only now enumerated may come between the two.
        mapped = re.findall(r"Interface name : ([^,]+),", self.machine.shell("vusctl dump test"))
        present = self.machine.run(f"cd {SYSFS}; ls -d *-*:* | grep -v -- '-0:'")[1].split()
        return sorted(mapped) == sorted(present)

    def _ids(self, entries):
        return {self.probe.device_id(entry) for entry in entries}

    def _entries(self):
        """The attached devices that must be listed as USB devices, and those that may be: one with
        nothing but HID interfaces is listed if it was a vendor's own when it was judged, and once
        it is switched off nothing tells any more."""
        listing = self.machine.shell(f"cd {SYSFS}; for d in [0-9]*-*; do case $d in *:*) continue;; esac; "
                                     "echo $d $(cat $d/$d:*/bInterfaceClass 2>/dev/null); done")
        devices = [line.split() for line in listing.splitlines()]
        others = [(entry, set(classes)) for entry, *classes in devices if set(classes) != {"09"}]
        return ([entry for entry, classes in others if classes != {"03"}],
                [entry for entry, classes in others if classes == {"03"}])


def policy(rules, mode="whitelist"):
    return f'<usbconfig mode="{mode}">{rules}</usbconfig>'


# A hub that sleeps is woken by what is plugged into it.
STATE = ("tail -n 15 /data/log/*.log; dmesg | tail -n 15; "
         "for hub in /sys/bus/usb/devices/*/bDeviceClass; do hub=${hub%/*}; echo ${hub##*/} "
         "$(cat $hub/bDeviceClass $hub/power/runtime_status); done")


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """A failed test shows what its machine said last."""
    outcome = yield
    report = outcome.get_result()
    fixtures = getattr(item, "funcargs", {})
    device = fixtures.get("device") or fixtures.get("scene")
    if report.when == "call" and report.failed and device is not None:
        try:
            text = device.machine.run(STATE, seconds=10)[1] + device.machine.usb_bus()
        except Exception as error:  # whatever it is, the test's own failure matters more
            text = f"the machine does not answer: {error}"
        report.sections.append(("virtual device", text))


@pytest.fixture
def device(request):
    marker = request.node.get_closest_marker("reporter")
    with ready_machine(*(marker.args if marker else (GATE,))) as machine:
        yield Device(machine)
