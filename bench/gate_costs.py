# SPDX-License-Identifier: Apache-2.0
"""What the gate costs, and what it closes, on the virtual device.

    /usr/bin/python3 bench/gate_costs.py [--image DIR] [--runs N] [--pairs N] [--others N,N...]
                                         [--minutes N] [TABLE...]

TABLE is one of:
  ways   no gate, fail-closed and gate, with 0, 10 and 30 other devices attached: how long a refused
         device has drivers, when the daemon's word is written, when an allowed one is usable, and
         what both programs need
  delay  how much later an allowed disk and keyboard is usable behind the gate: pairs of plugs, one
         in a machine without a gate, one in a machine with it

Both without one, in some 15 minutes on an idle machine with two cores; Markdown. Where that is not
enough, fewer plugs are made than --runs and --pairs ask for, and the tables say how many. DIR is an
image that device/build.sh made, of this checkout if none is given.

Moments are the guest's kernel's, by probes in it: a device is added (device_add), an interface gets
a driver (driver_bound) and loses it (usb_unbind_interface), somebody writes its `authorized`
(interface_authorized_store). Nothing is by the word of the programs that are measured. Processor
time is what the guest's scheduler counts, over all the plugs of the refused serial adapter.
Emulated: ratios are what to look at, and nothing else should run.
"""

import argparse
import contextlib
import re
import statistics
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "device"))
sys.path.insert(0, str(Path(__file__).resolve().parent))

from device_costs import ADAPTER_VENDOR, OTHERS, attach_others, set_policy  # noqa: E402
from moments import Moments  # noqa: E402
from vdev import CATALOG, GATE, NO_GATE, MachineError, ready_machine, machine as vdev_machine  # noqa: E402

WAYS = {"no gate": NO_GATE, "fail-closed": f"{NO_GATE} --fail-closed", "gate": f"{GATE} --fail-closed"}
DOCK_VENDOR = 0x1D6B
REFUSED = f'<usbconfig mode="blacklist"><vid vendorid="{ADAPTER_VENDOR}"/><vid vendorid="{DOCK_VENDOR}"/></usbconfig>'
PORT = "8"  # the one that the others leave free
PROBES = ("p:added device_add name=+0(+0($arg1)):string",
          "p:bound driver_bound name=+0(+0($arg1)):string",
          "p:unbound usb_unbind_interface name=+0(+0($arg1)):string",
          "p:wrote interface_authorized_store name=+0(+0($arg1)):string value=+0($arg3):string")
PROGRAMS = ("vusd", "vus_hotplug")
IDLE_SECONDS = 5
TICKS_A_SECOND = 100  # what the kernel counts processor time in, for everybody
LIMIT_SECONDS = 60
# Longer than a plug's events take. Whoever looks sooner takes the emulated processor's time, of which
# there is one, from those that are timed.
UNDISTURBED_SECONDS = 0.5
# What a row may take of the time that is left, before its last plug begins; and a row of delays.
SHARE_OF_PLUGS = 0.75
DELAY_SECONDS = 110
NEVER = "–"


class Programs:
    """Both, as the kernel counts them."""

    def __init__(self, machine):
        self.machine = machine

    def _read(self, name):
        """Of all of them that there are: threads may end meanwhile."""
        files = " ".join(f"/proc/$(cat /run/{program}.pid)/{name}" for program in PROGRAMS)
        return self.machine.run(f"cat {files} 2>/dev/null")[1]

    def cpu_ms(self):
        """Of threads that have ended, too; to a tick of the scheduler's, so of many plugs at once."""
        times = [line.rsplit(")", 1)[1].split()[11:13] for line in self._read("stat").splitlines()]
        return sum(int(ticks) for pair in times for ticks in pair) * 1000 / TICKS_A_SECOND

    def resident_kb(self):
        return sum(map(int, re.findall(r"^Rss: +(\d+) kB", self._read("smaps"), re.MULTILINE)))

    def switches(self):
        return sum(map(int, re.findall(r"ctxt_switches:\s+(\d+)", self._read("task/*/status"))))

    def wait_until_idle(self):
        """Until neither has done anything for three tenths of a second."""
        last = None
        while last != (last := (self.cpu_ms(), self.switches())):
            time.sleep(0.3)


class Bench:
    """A machine in which devices are plugged, one after the other."""

    def __init__(self, machine):
        self.machine = machine
        self.programs = Programs(machine)
        self.moments = Moments(machine, PROBES)

    @contextlib.contextmanager
    def plugged(self, kind, entry, port=PORT):
        self.programs.wait_until_idle()
        self.moments.forget()
        self.machine.plug(CATALOG[kind], port=port)
        try:
            yield
        finally:
            self.machine.unplug(kind)
            self.machine.wait_until(f"[ ! -e /sys/bus/usb/devices/{entry} ]")
            self.programs.wait_until_idle()

    def refused(self, kind, entry, port=PORT):
        """(milliseconds with a driver, milliseconds until the daemon's word is written)"""
        interfaces = re.escape(entry) + r":1\.\d+"
        with self.plugged(kind, entry, port):
            word = self.moments.wait("wrote", re.escape(f"{entry}:1.0"), "0", seconds=LIMIT_SECONDS)
            self.programs.wait_until_idle()
            added = self.moments.of("added", re.escape(entry))[0]
            bound, unbound = self.moments.of("bound", interfaces), self.moments.of("unbound", interfaces)
            if self.machine.run(f"ls -d /sys/bus/usb/devices/{entry}:*/driver")[0] == 0 or (bound and not unbound):
                raise MachineError(f"{entry} still has a driver")
            return (max(unbound) - min(bound)) if bound else 0.0, word - added

    def allowed(self, kind, entry, event, name):
        """Milliseconds until it is usable."""
        with self.plugged(kind, entry):
            usable = self.moments.wait(event, name, seconds=LIMIT_SECONDS)
            return usable - self.moments.of("added", re.escape(entry))[0]

    def serial(self):
        return self.refused("usb-serial", f"1-{PORT}")

    def dock(self):
        return self.refused("dock", "3-1", None)

    def disk(self):
        return self.allowed("disk", f"2-{PORT}", "bound", re.escape(f"2-{PORT}:1.0"))

    def keyboard(self):
        return self.allowed("keyboard", f"1-{PORT}", "added", r"event\d+")

    def serial_and_its_cpu(self):
        self.programs.wait_until_idle()
        before = self.programs.cpu_ms()
        times = self.serial()
        return (*times, self.programs.cpu_ms() - before)

    def idle_switches(self):
        self.programs.wait_until_idle()
        before = self.programs.switches()
        time.sleep(IDLE_SECONDS)
        return self.programs.switches() - before


@contextlib.contextmanager
def bench_of(way, others=0):
    with ready_machine(WAYS[way]) as machine:
        set_policy(machine, REFUSED)
        attach_others(machine, others)
        yield Bench(machine)


def middle(values, digits=1):
    return f"{statistics.median(values):.{digits}f}"


def spread(values):
    return f"{middle(values)} ({min(values):.1f} to {max(values):.1f})"


def repeat(measure, times, deadline):
    """What `measure` answers, that often, but no longer than until the deadline; once in any case.
    Once before for nothing: the emulator translates what is executed for the first time."""
    measure()
    answers = [measure()]
    while len(answers) < times and time.monotonic() < deadline:
        answers.append(measure())
    return answers


def row_of(bench, runs, deadline):
    def measure():
        return *bench.serial_and_its_cpu(), *bench.dock(), bench.disk(), bench.keyboard()
    rows = repeat(measure, runs, deadline)
    serial_on, serial_word, cpu, dock_on, dock_word, disk, keyboard = zip(*rows)
    return [str(len(rows)), spread(serial_on), spread(dock_on), middle(serial_word), middle(dock_word), middle(disk),
            middle(keyboard), f"{statistics.mean(cpu):.0f}", f"{bench.programs.resident_kb() / 1024:.1f}",
            str(bench.idle_switches())]


def ways_table(arguments):
    heads = ["", "Others", "Runs", "Refused serial adapter exposed, ms", "Refused dock exposed, ms",
             "Serial adapter: the daemon's word written after, ms", "Dock: after, ms", "Allowed disk has its driver after, ms",
             "Allowed keyboard has its event node after, ms", "Processor time a plug, both programs, ms",
             "Resident, both, MB", f"Wake-ups in {IDLE_SECONDS} idle s"]
    print_row(heads)
    print_row(["---"] * len(heads))
    rows = [(way, others) for way in WAYS for others in arguments.others]
    for number, (way, others) in enumerate(rows):
        now = time.monotonic()
        deadline = now + SHARE_OF_PLUGS * (arguments.deadline - now) / (len(rows) - number)
        try:
            with bench_of(way, others) as bench:
                cells = row_of(bench, arguments.runs, deadline)
        except MachineError as error:  # the others are worth having
            print(f"{way}, {others} others: {error}", file=sys.stderr)
            cells = [NEVER] * (len(heads) - 2)
        print_row([way, str(others), *cells])
    print()


def delay_table(arguments):
    heads = ["Allowed", "Pairs", "No gate, ms", "Gate, ms", "Later behind the gate, ms: median of the pairs"]
    print_row(heads)
    print_row(["---"] * len(heads))
    with bench_of("no gate") as without, bench_of("gate") as behind:
        for name in ("disk", "keyboard"):
            plugs = [getattr(bench, name) for bench in (without, behind)]
            deadline = time.monotonic() + DELAY_SECONDS
            pairs = repeat(lambda both=plugs: (both[0](), both[1]()), arguments.pairs, deadline)
            delays = [later - at for at, later in pairs]
            print_row([name, str(len(pairs)), *(middle(column) for column in zip(*pairs)), spread(delays)])
    print()


def print_row(cells):
    print(f"| {' | '.join(cells)} |", flush=True)


TABLES = {"delay": delay_table, "ways": ways_table}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--image", type=Path, help="the image's folder")
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--pairs", type=int, default=20)
    parser.add_argument("--minutes", type=float, default=18)
    parser.add_argument("--others", type=lambda text: [int(part) for part in text.split(",")], default=OTHERS)
    parser.add_argument("tables", nargs="*", metavar="TABLE", help="ways or delay; both without one")
    arguments = parser.parse_args()
    arguments.deadline = time.monotonic() + arguments.minutes * 60
    unknown = set(arguments.tables) - set(TABLES)
    if unknown:
        parser.error(f"no table {', '.join(sorted(unknown))}")
    if arguments.image:
        vdev_machine.IMAGE_DIR = arguments.image
    for name in arguments.tables or TABLES:
        TABLES[name](arguments)


if __name__ == "__main__":
    main()
