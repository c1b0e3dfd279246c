# SPDX-License-Identifier: Apache-2.0
"""Ten minutes of everything at random behind the gate: no driver but the kernel's own for devices,
and the hubs', is ever tried on what is refused. ./test soak

VUS_GATE_STORM_SECONDS shortens it, VUS_SOAK_SEED repeats one.
"""

import os
import random
import re
import time
from collections import Counter

import pytest

from conftest import policy
from test_gate import TRACING, Trials
from test_reporter import LOG, STORAGE
from vdev.probe import POLICY, SOC, SYSFS

SECONDS = float(os.environ.get("VUS_GATE_STORM_SECONDS", 600))
SEED = int(os.environ.get("VUS_SOAK_SEED", random.SystemRandom().randrange(1 << 32)))
# All of them are refused.
KINDS = ["usb-serial", "keyboard", "mouse", "network", "headset", "programmer", "security-key", "webcam"]
PORTS = ["1", "4", "5", "7", "8", "2.1", "2.2", "2.4.1", "2.4.2"]
# Only disks are plugged here, and they are allowed.
ALLOWED_PORT = "6"
MODES = f"{SOC}/*/mode"


class Storm:
    def __init__(self, device, choose):
        self.device = device
        self.machine = device.machine
        self.choose = choose
        self.taken = {}  # port: name
        self.counts = Counter()

    def plug(self):
        free = [port for port in [*PORTS, ALLOWED_PORT] if port not in self.taken]
        if not free:
            return
        port = self.choose.choice(free)
        kind = "disk" if port == ALLOWED_PORT else self.choose.choice(KINDS)
        self.counts["plugs"] += 1
        self.taken[port] = self.device.plug(kind, port, f"storm-{self.counts['plugs']}")

    def unplug(self):
        if self.taken:
            port = self.choose.choice(sorted(self.taken))
            self.machine.unplug(self.taken.pop(port))

    def dock(self):
        if "dock" in self.machine.plugged():
            self.machine.unplug("dock")
        else:
            self.device.plug("dock")

    def configure(self):
        self.machine.run(f"for file in {SYSFS}/[13]-*/bConfigurationValue; do case $file in *:*) continue ;; esac; "
                         f"echo {self.choose.choice([1, 2])} >$file; done 2>/dev/null")

    def authorize(self):
        """Somebody switches refused interfaces on: without a driver's being looked for."""
        self.machine.run(f"for file in {SYSFS}/1-[14578]:*/authorized; do echo 1 >$file; done 2>/dev/null")

    def rewrite(self):
        self.machine.write(POLICY, policy(STORAGE))

    def reset(self):
        self.machine.run("vusctl reset")

    def kill_reporter(self):
        self.machine.run(f"kill -9 $(cat /run/vus_hotplug.pid); usleep {self.choose.randrange(500000)}")

    def kill_daemon(self):
        """Now and then in the middle of a reset: the controller that is off then stays off until somebody
        brings it back."""
        self.machine.run("kill -9 $(cat /run/vusd.pid)")
        self.machine.wait_until("vusctl list >/dev/null 2>&1", seconds=60)
        self.machine.run(f"for file in {MODES}; do grep -q none $file && echo host >$file; done")

    ACTIONS = [(plug, 12), (unplug, 8), (dock, 2), (configure, 2), (authorize, 1), (rewrite, 1), (reset, 1),
               (kill_reporter, 2), (kill_daemon, 1)]

    def step(self):
        actions, weights = zip(*self.ACTIONS)
        action = self.choose.choices(actions, weights)[0]
        self.counts[action.__name__] += 1
        action(self)


def assert_nothing_lost(machine):
    """The kernel has kept every trial that it has noted."""
    kept, noted = re.search(r"entries-in-buffer/entries-written: (\d+)/(\d+)",
                            machine.read(f"{TRACING}/trace")).groups()
    assert kept == noted


@pytest.mark.soak
def test_storm_behind_the_gate(device, record_property):
    print(f"seed {SEED}, {SECONDS:.0f} s")
    record_property("seed", SEED)
    device.set_policy(STORAGE)
    trials = Trials(device.machine)
    device.machine.shell(f"echo 16384 >{TRACING}/buffer_size_kb")
    storm = Storm(device, random.Random(SEED))
    allowed = re.compile(rf"[12]-{ALLOWED_PORT}:")
    end = time.monotonic() + SECONDS
    while time.monotonic() < end:
        for _ in range(25):
            storm.step()
        on_refused = {trial for trial in trials.tried() if not allowed.match(trial[1])}
        assert on_refused == set(), dict(storm.counts)
        device.machine.shell(f"for f in /data/log/vusd.log {LOG}; do tail -n 2000 $f >/tmp/tail; cat /tmp/tail >$f; done")
    assert_nothing_lost(device.machine)
    assert storm.counts["plugs"] > 0
    # It still lets in what is allowed.
    for name in list(storm.taken.values()):
        device.machine.unplug(name)
    device.plug("disk", ALLOWED_PORT, "last")
    device.machine.wait_until(f"[ -e {SYSFS}/2-{ALLOWED_PORT}:1.0/driver ]", seconds=60, what="the disk let in")
    assert any(driver == "usb-storage" for driver, _ in trials.tried())
    print(f"seed {SEED}: {dict(storm.counts)}, {len(trials.tried())} trials, all on allowed disks")
