# SPDX-License-Identifier: Apache-2.0
"""How long a rewritten policy takes to reach the attached devices, on the virtual device.

    /usr/bin/python3 bench/reload.py [RUNS]

From the close of the rewritten policy to the first device that is judged under it, and where the
time goes. All times are the guest's own clock; /proc/uptime, which times the close and the
verdict, counts hundredths of a second. Emulated: the parts that sleep are as on the product, the
rest is not.
"""

import statistics
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "device"))

from vdev import CATALOG, Probe, ready_machine  # noqa: E402
from vdev.probe import POLICY, SOC  # noqa: E402

WATCH = ("vusctl watch | while read line; do echo \"$(cut -d' ' -f1 /proc/uptime) $line\" >> /tmp/events; done &")
PHASES = ("close to first controller off", "to the super-speed controller off", "to it being host again",
          "to the first device judged")


def mode_times(machine, controller):
    return [int(line.split()[0]) / 1000 for line in machine.read(f"{SOC}/{controller}/mode_log").splitlines()]


def run_once(machine, probe, mode):
    """Milliseconds of each phase, and in all."""
    machine.shell(f": > /tmp/events; for c in {SOC}/*/mode_log; do echo > $c; done")
    policy = f'<usbconfig mode="{mode}"><class>USB_CLASS_VIDEO</class></usbconfig>'
    closed = float(machine.shell(f"echo '{policy}' > {POLICY}; cut -d' ' -f1 /proc/uptime")) * 1000
    machine.wait_until("grep -q added /tmp/events")
    judged = float(machine.shell("grep -m1 added /tmp/events").split()[0]) * 1000
    machine.wait_until(lambda: len(mode_times(machine, "a800000.ssusb")) == 2)
    first = mode_times(machine, "c200000.hsusb")[0]
    off, host = mode_times(machine, "a800000.ssusb")
    probe.judged("1-5")
    return [first - closed, off - first, host - off, judged - host], judged - closed


def main():
    runs = int(sys.argv[1]) if len(sys.argv) > 1 else 9
    with ready_machine() as machine:
        probe = Probe(machine)
        machine.plug(CATALOG["webcam"], port="5")
        probe.judged("1-5")
        machine.shell(WATCH)
        machine.wait_until("grep -q 'Size of callbacks' /data/log/vusd.log")
        results = [run_once(machine, probe, ("whitelist", "blacklist")[n % 2]) for n in range(runs)]
    for name, values in zip(PHASES, zip(*(phases for phases, _ in results))):
        print(f"{name:<36}{statistics.median(values):7.0f} ms")
    totals = [total for _, total in results]
    print(f"{'in all (median of ' + str(runs) + ')':<36}{statistics.median(totals):7.0f} ms"
          f"   ({min(totals):.0f} to {max(totals):.0f})")


if __name__ == "__main__":
    main()
