# SPDX-License-Identifier: Apache-2.0
"""Clients that do not return from their callbacks, and a log that nobody reads: admission goes on."""

import json
import re

LOG = "/data/log/vusd.log"
KINDS = ["webcam", "headset", "programmer", "displaylink"]
PORTS = ["1", "3", "4", "5", "6", "7", "8"] + [f"2.{n}" for n in (1, 2, 3, 5, 6, 7, 8)] \
    + [f"2.4.{n}" for n in (1, 2, 3, 5, 6, 7)]
ROUNDS = 5


class Watcher:
    """A `vusctl watch` in the guest."""

    def __init__(self, device, name, prepare="", output=None):
        self.machine = device.machine
        self.output = output or f"/tmp/{name}.out"
        before = self._registrations()
        self.machine.shell(f"{prepare} vusctl watch --json >{self.output} 2>&1 & echo $! >/tmp/{name}.pid")
        self.machine.wait_until(lambda: self._registrations() == before + 1)
        self.pid = self.machine.read(f"/tmp/{name}.pid").strip()

    def _registrations(self):
        return int(self.machine.run(f"grep -c 'Size of callbacks at registerVusCallback' {LOG}")[1])

    def heard(self, event):
        events = map(json.loads, self.machine.read(self.output).splitlines())
        return [heard["device"]["deviceId"] for heard in events if heard["event"] == event]


def stopped(device):
    """Stopped from outside, as by Ctrl-Z."""
    watcher = Watcher(device, "stopped")
    device.machine.shell(f"kill -STOP {watcher.pid}")
    return watcher, f"kill -CONT {watcher.pid}"


def asleep(device):
    """Sleeps in its callback: what it prints there is a pipe's that is full and that nobody reads."""
    device.machine.shell("mkfifo /tmp/full; sh -c 'exec 3<>/tmp/full; while :; do sleep 1000; done' & sleep 0.1; "
                         "timeout 1 dd if=/dev/zero of=/tmp/full bs=65536 count=1 2>/dev/null")
    return Watcher(device, "asleep", output="/tmp/full"), "cat /tmp/full >/dev/null &"


def plug_and_unplug_all(device, number):
    """Returns the devices' ids."""
    for place, port in enumerate(PORTS):
        device.plug(KINDS[place % 4], port, f"d{number}-{port}")

    def listed():
        records = [record for record in device.probe.records() if record["deviceType"] == 0]
        return records if len(records) == len(PORTS) else None
    records = device.machine.wait_until(listed, seconds=90, what="the plugged devices, listed")
    for port in PORTS:
        assert set(device.probe.authorized(f"1-{port}")) == {"0"}, port
    for port in PORTS:
        device.machine.unplug(f"d{number}-{port}")
    device.machine.wait_until(lambda: device.probe.records() == [], seconds=90)
    return {record["deviceId"] for record in records}


def test_clients_that_do_not_return_turn_nothing_off(device):
    machine = device.machine
    device.set_policy("")
    before = Watcher(device, "before")
    stuck = [stopped(device), asleep(device)]
    after = Watcher(device, "after")

    seen = [plug_and_unplug_all(device, number) for number in range(ROUNDS)]
    assert sum(map(len, seen)) == 100
    for number in set().union(*seen):
        for watcher in (before, after):
            times = sum(number in ids for ids in seen)
            assert watcher.heard("added").count(number) >= times
            assert watcher.heard("removed").count(number) >= times
    log = machine.read(LOG)
    for watcher, _ in stuck:
        assert log.count(f"the client of process {watcher.pid} has not returned for 5 s: it is passed over") == 1
    assert log.count("is passed over") == len(stuck)
    threads = machine.shell("cat /proc/$(cat /run/vusd.pid)/task/*/comm").split()
    assert threads.count("vus_client_call") <= 2 + len(stuck)

    for watcher, wake in stuck:
        machine.shell(wake)
        back = rf"the client of process {watcher.pid} is back after \d+ s: it has missed (\d+) events"
        missed = machine.wait_until(lambda text=back: re.search(text, machine.read(LOG)))
        assert int(missed.group(1)) >= 2 * 100 - 1


def test_a_log_that_nobody_reads_turns_nothing_off(device):
    machine = device.machine
    machine.shell("touch /run/vusd.hold; kill -9 $(cat /run/vusd.pid)")
    machine.wait_until(lambda: device.probe.ends("vusd"))
    machine.shell("mkfifo /tmp/log; sh -c 'exec 3<>/tmp/log; while :; do sleep 1000; done' & sleep 0.1; "
                  "/system_ext/bin/vusd >/tmp/log 2>&1 & echo $! >/run/vusd.pid")
    machine.wait_until("vusctl list >/dev/null 2>&1")
    # More lines than a pipe of the largest size holds.
    machine.shell("n=0; while [ $n -lt 12000 ]; do printf '<vid vendorid=\"%d\"/>' $n; n=$((n + 1)); done "
                  ">/tmp/rules; { echo '<usbconfig mode=\"blacklist\">'; cat /tmp/rules; echo '</usbconfig>'; } "
                  ">/tmp/policy.xml; for n in 1 2 3; do vusctl policy set /tmp/policy.xml; done", seconds=120)
    assert device.probe.set_policy('<usbconfig mode="whitelist"></usbconfig>') == (0, "SUCCESS\n")
    device.plug("webcam", "5")
    device.probe.judged("1-5")
    assert set(device.probe.authorized("1-5")) == {"0"}
    machine.shell("cat /tmp/log >/tmp/read & echo $! >/tmp/cat.pid")
    device.machine.unplug("webcam")
    # The loss is told with the next line for which there is room: each question is one.
    machine.wait_until("vusctl list >/dev/null; "
                       "grep -q 'lines of the log were dropped: nobody read them' /tmp/read")
