# SPDX-License-Identifier: Apache-2.0
"""What the resident memory of the two daemons is, on the virtual device.

    /usr/bin/python3 bench/memory.py [DEVICES]

After DEVICES (10) have been plugged, judged and unplugged once, and are plugged again: a line for
each file that is mapped, with what is resident of it, and how much of that is the process's own
(written to: relocations, data, heap, stacks) rather than shared with whoever maps the same file.
"""

import re
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "device"))

from vdev import CATALOG, Probe, ready_machine  # noqa: E402

PORTS = ["1", "3", "4", "5", "6", "7", "8", "2.1", "2.2", "2.3", "2.5", "2.6", "2.7", "2.8"]


def mappings(text):
    """{name: (resident, own)} in kB, of an smaps file."""
    sizes = {}
    name = None
    for line in text.splitlines():
        head = re.match(r"[0-9a-f]+-[0-9a-f]+ \S+ \S+ \S+ \d+ *(.*)$", line)
        if head:
            name = head.group(1) or "(anonymous: heaps of threads, stacks)"
        field = re.match(r"(Rss|Private_Dirty): +(\d+) kB", line)
        if field:
            resident, own = sizes.get(name, (0, 0))
            kb = int(field.group(2))
            sizes[name] = (resident + kb, own) if field.group(1) == "Rss" else (resident, own + kb)
    return sizes


def report(machine, program):
    sizes = mappings(machine.shell(f"cat /proc/$(cat /run/{program}.pid)/smaps"))
    print(f"{program:<52}{'resident':>10}{'own':>8}  kB")
    for name, (resident, own) in sorted(sizes.items(), key=lambda item: -item[1][0]):
        if resident:
            print(f"  {name:<50}{resident:>10}{own:>8}")
    print(f"  {'in all':<50}{sum(r for r, _ in sizes.values()):>10}{sum(o for _, o in sizes.values()):>8}")


def plug(machine, probe, number, turn):
    names = [machine.plug(CATALOG["webcam"], name=f"{turn}-{n}", port=PORTS[n]) for n in range(number)]
    machine.wait_until(lambda: len(probe.records()) == number, seconds=120, what="the plugged devices, judged")
    return names


def main():
    number = int(sys.argv[1]) if len(sys.argv) > 1 else 10
    with ready_machine() as machine:
        probe = Probe(machine)
        for name in plug(machine, probe, number, "first"):
            machine.unplug(name)
        machine.wait_until(lambda: probe.records() == [], seconds=120)
        plug(machine, probe, number, "second")
        for program in ("vusd", "vus_hotplug"):
            report(machine, program)


if __name__ == "__main__":
    main()
