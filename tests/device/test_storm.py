# SPDX-License-Identifier: Apache-2.0
"""Storms of devices and of clients: nobody misses anything, and the daemon stays as it is.

VUS_STORM_SEED repeats one.
"""

import json
import os
import random
import re
import time

import pytest

KINDS = ["webcam", "headset", "programmer", "displaylink"]
PORTS = ["1", "3", "4", "5", "6", "7", "8"] + [f"2.{n}" for n in (1, 2, 3, 5, 6, 7, 8)] \
    + [f"2.4.{n}" for n in (1, 2, 3, 5, 6, 7)]
CLIENTS = 64
CLIENT_STORM_SECONDS = 15  # each of the three
# A registration takes half a kilobyte and more in the daemon (binder's proxy, ours, the recipient and
# its entry), and a storm has more than 64 that are gone at its end: what stayed would be there after each
# of them. Pages come by four kilobytes, and when many calls meet, once more of them.
HEAP_GROWTH_KB = 24


@pytest.fixture
def choose(record_property):
    seed = int(os.environ.get("VUS_STORM_SEED", random.SystemRandom().randrange(1 << 32)))
    print(f"seed {seed}")
    record_property("seed", seed)
    return random.Random(seed)


class Ports:
    """What is plugged where, plugged and unplugged without waiting for anything."""

    def __init__(self, device):
        self.device = device
        self.kinds = {}  # by port
        self.plugs = 0

    def plug(self, port, kind):
        self.plugs += 1
        self.kinds[port] = kind, self.device.plug(kind, port, f"storm-{self.plugs}")

    def unplug(self, port):
        self.device.machine.unplug(self.kinds.pop(port)[1])

    def ids(self):
        """None among them for a device that the kernel has not found yet."""
        return {self.device.probe.device_id(f"1-{port}") for port in self.kinds}

    def wait_until_listed(self):
        """Returns the devices' ids."""
        def listed():
            return {record["deviceId"] for record in self.device.probe.records() if record["deviceType"] == 0}
        self.device.machine.wait_until(lambda: listed() == self.ids(), seconds=60, what="the plugged devices, listed")
        return self.ids()

    def assert_verdicts(self):
        for port, (kind, _) in self.kinds.items():
            allowed = "1" if kind == "webcam" else "0"
            assert set(self.device.probe.authorized(f"1-{port}")) == {allowed}, port


def test_twenty_devices_in_and_out(device, choose):
    device.set_policy("<class>USB_CLASS_VIDEO</class>")
    ports = Ports(device)
    assert len(PORTS) == 20
    for number, port in enumerate(PORTS):
        ports.plug(port, KINDS[number % 4])
    ports.wait_until_listed()
    ports.assert_verdicts()
    device.assert_agreement()

    # Out and in again faster than any of them is found.
    for port in choose.choices(PORTS, k=60):
        if port in ports.kinds:
            ports.unplug(port)
        else:
            ports.plug(port, choose.choice(KINDS))
    ports.wait_until_listed()
    ports.assert_verdicts()
    device.assert_agreement()

    for port in list(ports.kinds):
        ports.unplug(port)
    device.machine.wait_until(lambda: device.probe.records() == [], seconds=60)
    device.assert_agreement()


class Watchers:
    """Processes of `vusctl watch` in the guest: as many as there are slots, each killed at random and
    replaced at once, as fast as the emulated processor starts programs."""

    LOG = "/data/log/vusd.log"

    def __init__(self, device, choose):
        self.device = device
        self.machine = device.machine
        self.choose = choose

    def start_one_that_stays(self):
        self.machine.shell("vusctl watch --json >/tmp/stays 2>&1 &")
        self._wait_for_registry(1)

    def heard(self, event):
        """The ids of the devices of which the one that stays has heard, in order."""
        events = map(json.loads, self.machine.read("/tmp/stays").splitlines())
        return [heard["device"]["deviceId"] for heard in events if heard["event"] == event]

    def start_storm(self):
        """The clients are all there when it begins."""
        self.machine.write("/tmp/storm.sh", f"""
            cd /tmp
            watch() {{
                vusctl watch >/dev/null 2>&1 &
                echo $! >watch.$1
            }}
            for slot in $(seq {CLIENTS}); do watch $slot; done
            until [ -e go ]; do usleep 10000; done
            for slot in {" ".join(str(1 + self.choose.randrange(CLIENTS)) for _ in range(1000))}; do
                [ ! -e stop ] || break
                kill -9 $(cat watch.$slot)
                watch $slot
            done
            kill -9 $(cat watch.*)
            rm -f watch.* go stop""")
        self.machine.shell(f": >{self.LOG}; sh /tmp/storm.sh >/tmp/storm.log 2>&1 & echo $! >/tmp/storm.pid")
        self._wait_for_registry(1 + CLIENTS)
        self.machine.shell("touch /tmp/go")

    def end_storm(self):
        """Returns how many registrations there were."""
        self.machine.shell("touch /tmp/stop")
        self.machine.wait_until("! kill -0 $(cat /tmp/storm.pid)", seconds=30)
        # The last of them may die, or register, after the storm.
        self.machine.wait_until("! ps | grep -q '[v]usctl watch$'", seconds=30)
        self.machine.wait_until(f"grep 'Size of callbacks' {self.LOG} | tail -n 1 | grep -q 'binderDied 1$'",
                                seconds=60, what="the registry as it was before the storm")
        return int(self.machine.shell(f"grep -c 'Size of callbacks at registerVusCallback' {self.LOG}"))

    def _wait_for_registry(self, size):
        self.machine.wait_until(f"grep -q 'Size of callbacks at registerVusCallback {size}$' {self.LOG}", seconds=90,
                                what=f"{size} registrations at once")


def run_with_one_heap(device):
    """Has the daemon's threads share one heap, without caches of their own, so that its size tells
    what is in use. With a heap for each few of them what is free in one is of no use to another, and
    all of them grow for a long time although the daemon does not."""
    device.machine.shell("touch /run/vusd.hold; kill -9 $(cat /run/vusd.pid)")
    device.machine.wait_until(lambda: device.probe.ends("vusd"))
    device.machine.shell("GLIBC_TUNABLES=glibc.malloc.arena_max=1:glibc.malloc.tcache_count=0 "
                         "/system_ext/bin/vusd >>/data/log/vusd.log 2>&1 & echo $! >/run/vusd.pid")
    device.machine.wait_until("vusctl list >/dev/null 2>&1")


def heap_kb(machine):
    smaps = machine.shell("grep -A 4 -F '[heap]' /proc/$(cat /run/vusd.pid)/smaps")
    return int(re.search(r"^Rss: +(\d+) kB", smaps, re.MULTILINE).group(1))


def test_clients_killed_at_random_while_devices_come_and_go(device, choose, record_property):
    """64 at a time, but not a thousand: in its time the emulated processor starts some three hundred.
    The thousand are the unit tests' (callback_storm_test)."""
    run_with_one_heap(device)
    ports = Ports(device)
    watchers = Watchers(device, choose)
    watchers.start_one_that_stays()
    seen, registrations, heap = [], [], []
    for _ in range(3):
        watchers.start_storm()
        end = time.monotonic() + CLIENT_STORM_SECONDS
        while time.monotonic() < end:
            for port in choose.sample(PORTS, 3):
                ports.plug(port, "webcam")
            seen += sorted(ports.wait_until_listed())
            for port in list(ports.kinds):
                ports.unplug(port)
            device.machine.wait_until(lambda: device.probe.records() == [], seconds=60)
        registrations.append(watchers.end_storm())
        heap.append(heap_kb(device.machine))
    print(f"{registrations} registrations, {len(seen)} devices, heap {heap} kB")
    record_property("registrations", sum(registrations))
    # Still the same process, or there would be none.
    assert device.machine.run("kill -0 $(cat /run/vusd.pid)")[0] == 0
    assert sorted(watchers.heard("added")) == sorted(watchers.heard("removed")) == sorted(seen)
    assert min(registrations) > CLIENTS, "some were killed, and others came"
    assert min(heap[1] - heap[0], heap[2] - heap[1]) < HEAP_GROWTH_KB
