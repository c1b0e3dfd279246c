# SPDX-License-Identifier: Apache-2.0
"""Half an hour of everything at random: plug, unplug, rewrite, undock, kill. ./test soak

VUS_SOAK_SECONDS shortens it, VUS_SOAK_SEED repeats one. It ends with the daemon's list, its map
of interfaces and sysfs agreeing, and with a daemon no larger than it was.
"""

import os
import random
import time
from collections import Counter

import pytest

from conftest import policy
from vdev.probe import POLICY, SOC

SECONDS = float(os.environ.get("VUS_SOAK_SECONDS", 1800))
SEED = int(os.environ.get("VUS_SOAK_SEED", random.SystemRandom().randrange(1 << 32)))
PORTS = ["1", "4", "5", "6", "2.1", "2.2", "2.4.1", "2.4.2"]
KINDS = ["webcam", "headset", "programmer", "security-key", "typing-stick", "hostile", "keyboard"]
CLASSES = ["AUDIO", "VIDEO", "MASS_STORAGE", "PRINTER"]
BROKEN = ['<usbconfig mode="whitelist"><class>', '<usbconfig mode="greylist"/>', "", "no xml at all",
          policy("<class>USB_CLASS_HID</class>")]


class Soak:
    def __init__(self, device, choose):
        self.device = device
        self.machine = device.machine
        self.choose = choose
        self.free = list(PORTS)
        self.taken = {}  # name: port
        self.counts = Counter()

    def plug(self):
        if not self.free:
            return
        port = self.free.pop(self.choose.randrange(len(self.free)))
        name = f"soak-{port.replace('.', '-')}"
        self.device.plug(self.choose.choice(KINDS), port, name)
        self.taken[name] = port

    def unplug(self):
        if not self.taken:
            return
        name = self.choose.choice(sorted(self.taken))
        self.machine.unplug(name)
        self.free.append(self.taken.pop(name))

    def rewrite(self):
        rules = "".join(f"<class>USB_CLASS_{name}</class>" for name in CLASSES if self.choose.random() < 0.5)
        self.machine.write(POLICY, policy(rules, self.choose.choice(["whitelist", "blacklist", "default"])))

    def break_policy(self):
        self.machine.write(POLICY, self.choose.choice(BROKEN))

    def undock(self):
        self.machine.run(f"vusctl undock {self.choose.randrange(1, 400)}")

    def reset(self):
        self.machine.run("vusctl reset")

    def kill(self):
        # Not in the middle of a reset: a controller that is off then stays off, as it has to.
        self.settle_controllers()
        signal = self.choose.choice(["SEGV", "ABRT", "KILL"])
        self.machine.run(f"kill -{signal} $(cat /run/vusd.pid)")
        self.machine.wait_until("vusctl list >/dev/null 2>&1", seconds=60)

    def look(self):
        self.machine.run("vusctl list >/dev/null; vusctl dump >/dev/null; vusctl dump test >/dev/null")

    ACTIONS = [(plug, 6), (unplug, 5), (rewrite, 3), (break_policy, 2), (undock, 1), (reset, 1), (kill, 1), (look, 2)]

    def step(self):
        actions, weights = zip(*self.ACTIONS)
        action = self.choose.choices(actions, weights)[0]
        self.counts[action.__name__] += 1
        action(self)
        assert self.machine.wait_until("vusctl list >/dev/null 2>&1", seconds=60, what="the daemon")

    def settle_controllers(self):
        """Waits until the daemon has answered every event, those included that its answers raise:
        a roll-back is answered with a reload. A file that is written now is seen only after them."""
        reloads = None
        while reloads != (now := self._reloads()):
            reloads = now
            self.counts["marks"] += 1
            mark = f"mark{self.counts['marks']}"
            self.machine.shell(f"cd /data/system/usbdeviceconfig; echo > {mark}; rm {mark}")
            self.machine.wait_until(f"tail -n 400 /data/log/vusd.log | grep -q 'filename.*/{mark}$'",
                                    seconds=120, what=mark)

    def _reloads(self):
        return self.machine.run("grep -c 'config file call parsing' /data/log/vusd.log")[1]

    def agree(self):
        """The daemon's list and its map show what sysfs has, all controllers being on."""
        self.settle_controllers()
        for controller in ("c200000.hsusb", "a800000.ssusb"):
            assert self.machine.read(f"{SOC}/{controller}/mode").strip() == "host"
        self.device.assert_agreement()


def resident_kb(machine):
    return int(machine.shell("grep VmRSS /proc/$(cat /run/vusd.pid)/status").split()[1])


@pytest.mark.soak
def test_soak(device, record_property):
    print(f"seed {SEED}, {SECONDS:.0f} s")
    record_property("seed", SEED)
    soak = Soak(device, random.Random(SEED))
    end = time.monotonic() + SECONDS
    while time.monotonic() < end:
        for _ in range(25):
            soak.step()
        soak.agree()
        # The log is the soak's own only memory of the past; the guest's is small.
        device.machine.shell("for f in /data/log/*.log; do tail -n 2000 $f > /tmp/tail; cat /tmp/tail > $f; done")
        assert resident_kb(device.machine) < 8 * 1024
    print(f"seed {SEED}: {dict(soak.counts)}, resident {resident_kb(device.machine)} kB")
