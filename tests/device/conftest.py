# SPDX-License-Identifier: Apache-2.0
"""Every test has a virtual device of its own, fresh from its image: nothing is left over."""

import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "device"))

from vdev import CATALOG, Machine, Probe  # noqa: E402


def pytest_configure(config):
    config.addinivalue_line("markers", "soak: half an hour at random; ./test soak")


class Device:
    """The virtual device of a test: the machine, and what it shows."""

    def __init__(self, machine):
        self.machine = machine
        self.probe = Probe(machine)

    def plug(self, kind, port=None, name=None):
        return self.machine.plug(CATALOG[kind], name=name, port=port)

    def set_policy(self, rules, mode="whitelist"):
        assert self.probe.set_policy(policy(rules, mode)) == (0, "SUCCESS\n")

    def mode_writes(self, controller):
        """The values written to a controller's mode, with the milliseconds between them."""
        lines = [line.split() for line in self.machine.read(f"{SOC}/{controller}/mode_log").splitlines()]
        times = [int(at) / 1000 for at, _ in lines]
        return [value for _, value in lines], [after - before for before, after in zip(times, times[1:])]


SOC = "/sys/devices/platform/soc"


def policy(rules, mode="whitelist"):
    return f'<usbconfig mode="{mode}">{rules}</usbconfig>'


@pytest.fixture
def device():
    with Machine() as machine:
        machine.wait_until("vusctl list >/dev/null 2>&1", what="the service")
        yield Device(machine)
