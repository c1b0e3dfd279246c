# SPDX-License-Identifier: Apache-2.0
"""What other devices cost a decision, on the virtual device.

    /usr/bin/python3 bench/device_costs.py [--image DIR] [--runs N] [TABLE...]

TABLE is one of:
  time     the daemon's processor time, its reads and the lines of its log for a plug and unplug of a
           refused serial adapter, with 0, 10 and 30 other devices attached, and what a line costs
  counted  the same in instructions, the kernel's on the daemon's behalf included. The machine's clock goes
           by them, so they are the same within one in a hundred, however busy the host
  held-up  the time from a device's arrival in the kernel to the write that switches it off, beside
           devices and clients that do not answer

All are the daemon's own: without the gate, by which a device is off before anybody decides.
DIR is an image that device/build.sh made, of this checkout if none is given: a table of another
commit is had by building that one's. Times are the guest's: processor time as its scheduler counts
it, moments by probes in its kernel. Emulated (but for counted), and so much the longer the more the host does beside
it: nothing else should run, and ratios are what to look at.
"""

import argparse
import contextlib
import math
import re
import statistics
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "device"))
sys.path.insert(0, str(Path(__file__).resolve().parent))

from moments import Moments  # noqa: E402
from vdev import CATALOG, NO_GATE, Machine, NotInTime, Probe, ready_machine, wait_for_service, machine as vdev_machine  # noqa: E402
from vdev.ready import wait_for_hubs  # noqa: E402
from vdev.catalog import RedirDevice  # noqa: E402
from vdev.usbredir import INTERRUPT_IN, VENDOR_PAGE, Description, Interface  # noqa: E402

OTHERS = (0, 10, 30)
# Bound, unbound, with a function and without one. The hubs that carry them count, too.
KINDS = ("webcam", "keyboard", "headset", "disk", "programmer")
ADAPTER, ADAPTER_PORT, ADAPTER_VENDOR = "usb-serial", "8", 0x0403
GADGET_VENDOR = 0x0525
SOURCES = ["AINPUT_SOURCE_" + name for name in (
    "KEYBOARD", "DPAD", "GAMEPAD", "TOUCHSCREEN", "MOUSE", "STYLUS", "TRACKBALL", "MOUSE_RELATIVE", "TOUCHPAD",
    "TOUCH_NAVIGATION", "ROTARY_ENCODER", "JOYSTICK")]
ALL_SOURCES = 0x1737700
# Longer than the daemon waits for a client.
STOPPED_SECONDS = 10
GIVEN_UP_SECONDS = 180
# A clock that goes on by two nanoseconds an instruction.
BY_INSTRUCTIONS = ("-icount", "shift=1")
INSTRUCTIONS_PER_MS = 500_000
PROBES = ("p:new usb_new_device", "p:off usb_deauthorize_interface")


def silent_interface():
    return Interface(3, 0, 0, (INTERRUPT_IN,), report=VENDOR_PAGE)


SILENT_COMPOSITE = RedirDevice("silent-composite", "four HID interfaces that do not answer", lambda: Description(
    0x1209, 0x0010, [silent_interface() for _ in range(4)], product_name="Silent composite", answers=False))
SILENT_HUB = RedirDevice("silent-hub", "a hub that never becomes one", lambda: Description(
    0x1209, 0x0011, [Interface(9, 0, 0, (INTERRUPT_IN,))], product_name="Silent hub", device_class=(9, 0, 0),
    answers=False))


class Daemon:
    def __init__(self, machine):
        self.machine = machine

    def _task_files(self, name):
        return self.machine.shell(f"cat /proc/$(cat /run/vusd.pid)/task/*/{name}")

    def cpu_ms(self):
        return sum(int(line.split()[0]) for line in self._task_files("schedstat").splitlines()) / 1e6

    def reads(self):
        return sum(map(int, re.findall(r"syscr: (\d+)", self._task_files("io"))))

    def log_lines(self):
        return int(self.machine.shell("wc -l < /data/log/vusd.log"))

    def counters(self):
        return self.cpu_ms(), self.reads(), self.log_lines()

    def wait_until_idle(self):
        """Until it has done nothing for three tenths of a second."""
        last = None
        while last != (last := self.cpu_ms()):
            time.sleep(0.3)


def set_policy(machine, text):
    assert Probe(machine).set_policy(text) == (0, "SUCCESS\n"), text
    machine.wait_until(lambda: "host" in machine.read("/sys/devices/platform/soc/a800000.ssusb/mode"))
    Daemon(machine).wait_until_idle()


def attach_others(machine, count):
    """Devices on all ports but the adapter's, on hubs where there are not enough."""
    if count == 0:
        return
    hubs = ["1", "3"] if count > 12 else []
    for hub in hubs:
        machine.plug(CATALOG["hub"], name=f"hub-{hub}", port=hub)
        machine.wait_until(f"[ -e /sys/bus/usb/devices/1-{hub}:1.0/driver ]")
    ports = [f"{hub}.{n}" for hub in hubs for n in range(1, 9)]
    ports += ["4", "5", "6", "7"] + [f"2.{n}" for n in (1, 2, 3, 5, 6, 7, 8)] + [f"2.4.{n}" for n in range(1, 8)]
    for number, port in enumerate(ports[:count - len(hubs)]):
        kind = CATALOG[KINDS[number % len(KINDS)]]
        machine.plug(kind, name=f"{kind.name}-{number}", port=port)
        # A disk at the controller's own port is on its super-speed bus.
        machine.wait_until(f"[ -e /sys/bus/usb/devices/[12]-{port}:1.0 ]", seconds=60)
    Daemon(machine).wait_until_idle()


def plug_cost(machine, daemon):
    """What a plug and unplug of the adapter adds: milliseconds, reads, lines of the log."""
    before = daemon.counters()
    seen = len(Probe(machine).answers(f"1-{ADAPTER_PORT}"))
    machine.plug(CATALOG[ADAPTER], port=ADAPTER_PORT)
    machine.wait_until(lambda: len(Probe(machine).answers(f"1-{ADAPTER_PORT}")) > seen, seconds=60)
    daemon.wait_until_idle()
    machine.unplug(ADAPTER)
    machine.wait_until(f"[ ! -e /sys/bus/usb/devices/1-{ADAPTER_PORT} ]")
    daemon.wait_until_idle()
    return [after - earlier for after, earlier in zip(daemon.counters(), before)]


@contextlib.contextmanager
def with_others(count, chosen=None):
    with chosen or ready_machine(NO_GATE) as machine:
        set_policy(machine, f'<usbconfig mode="blacklist"><vid vendorid="{ADAPTER_VENDOR}"/></usbconfig>')
        attach_others(machine, count)
        yield machine


def line_ms(machine, daemon):
    """What a line of the log costs: a judgement logs one for each input source that is listed."""
    rules = "".join(f"<class>{name}</class>" for name in SOURCES)
    set_policy(machine, f'<usbconfig mode="whitelist">{rules}</usbconfig>')

    def cost_of(sources, repetitions=20):
        before, lines = daemon.cpu_ms(), daemon.log_lines()
        machine.shell(f"for n in $(seq {repetitions}); do "
                      f"vusctl judge --input --id 5 --class {sources:#x} >/dev/null || exit 1; done")
        return daemon.cpu_ms() - before, daemon.log_lines() - lines
    cost_of(ALL_SOURCES)
    many, one = cost_of(ALL_SOURCES), cost_of(0x100)
    return (many[0] - one[0]) / (many[1] - one[1])


@contextlib.contextmanager
def counting_machine():
    with Machine(reporter=NO_GATE, arguments=BY_INSTRUCTIONS) as machine:
        wait_for_service(machine)
        wait_for_hubs(machine)
        yield machine


def counted_table(runs):
    print("instructions for a plug and unplug of a refused serial adapter, in thousands\n"
          f"{'others':>8}{'thousands':>12}{'(range)':>16}{'reads':>8}{'log lines':>12}")
    for count in OTHERS:
        with with_others(count, counting_machine()) as machine:
            daemon = Daemon(machine)
            # Twice for nothing: the second time the kernel has all that it allocates for it.
            costs = [plug_cost(machine, daemon) for _ in range(2 + runs)][2:]
        times, reads, lines = zip(*costs)
        thousands = [ms * INSTRUCTIONS_PER_MS / 1000 for ms in times]
        spread = f"({min(thousands):.0f} to {max(thousands):.0f})"
        print(f"{count:>8}{statistics.median(thousands):>12.0f}{spread:>16}{statistics.median(reads):>8.0f}"
              f"{statistics.median(lines):>12.0f}", flush=True)


def time_table(runs):
    print("what a plug and unplug of a refused serial adapter costs vusd\n"
          f"{'others':>8}{'ms':>8}{'(range)':>16}{'reads':>8}{'log lines':>12}{'a line, ms':>12}")
    for count in OTHERS:
        with with_others(count) as machine:
            daemon = Daemon(machine)
            plug_cost(machine, daemon)
            costs = [plug_cost(machine, daemon) for _ in range(runs)]
            times, reads, lines = zip(*costs)
            spread = f"({min(times):.1f} to {max(times):.1f})"
            line = f"{line_ms(machine, daemon):.3f}" if count == 0 else ""
            print(f"{count:>8}{statistics.median(times):>8.1f}{spread:>16}{statistics.median(reads):>8.0f}"
                  f"{statistics.median(lines):>12.0f}{line:>12}", flush=True)


def refused_after_ms(moments, seconds):
    """From the last arrival before the first switching off to that."""
    off = moments.wait("off", seconds=seconds)
    return off - max(at for at in moments.of("new") if at < off)


def silent_alone(machine, number):
    ports = ("5", "1.1", "3.1", "4.1", "6.1", "7.1", "2.1", "2.4.1")[:number]
    for port in ports:
        hub = port.split(".")[0]
        if "." in port and hub != "2":
            machine.plug(CATALOG["hub"], name=f"hub-{hub}", port=hub)
            machine.wait_until(f"[ -e /sys/bus/usb/devices/1-{hub}:1.0/driver ]")
    # The one on the root hub last: until the kernel gives it up, nothing else is met there.
    for port in reversed(ports):
        machine.plug(CATALOG["silent"], name=f"silent-{port}", port=port)
        machine.wait_until(f"[ -e /sys/bus/usb/devices/1-{port}:1.0 ]")


def silent_one(device, port):
    def plug(machine):
        machine.plug(device, port=port)
        machine.wait_until(f"[ -e /sys/bus/usb/devices/1-{port}:1.0 ]")
    return plug


def stopped_client(machine):
    """A client under SIGSTOP, and twenty judgements of which it should have heard."""
    pid = machine.shell("vusctl watch >/dev/null 2>&1 & echo $!").strip()
    machine.wait_until("grep -q 'Size of callbacks' /data/log/vusd.log")
    machine.shell(f"kill -STOP {pid}")
    for number in range(900, 920):
        machine.shell(f"vusctl judge --id {number} --interfaces 255 >/dev/null 2>&1 &")
    time.sleep(STOPPED_SECONDS)


SITUATIONS = {
    "nothing": lambda machine: None,
    "1 silent device": lambda machine: silent_alone(machine, 1),
    "8 silent devices": lambda machine: silent_alone(machine, 8),
    "a silent composite": silent_one(SILENT_COMPOSITE, "5"),
    "a hub that is locked": silent_one(SILENT_HUB, "2.1"),
    "a client that is stopped": stopped_client,
}


def held_up_once(situation):
    """Milliseconds until a refused serial adapter on another bus is switched off; infinite for never."""
    with ready_machine(NO_GATE) as machine:
        set_policy(machine, f'<usbconfig mode="blacklist"><vid vendorid="{GADGET_VENDOR}"/></usbconfig>')
        moments = Moments(machine, PROBES)
        SITUATIONS[situation](machine)
        moments.forget()
        machine.plug(CATALOG["serial"])
        try:
            return refused_after_ms(moments, GIVEN_UP_SECONDS)
        except NotInTime:
            return math.inf


def held_up_table(runs):
    print("from a refused device's arrival to the write that switches it off, beside\n"
          f"{'':<24}{'ms':>8}{'(range)':>20}")
    for situation in SITUATIONS:
        times = [held_up_once(situation) for _ in range(runs)]
        spread = f"({min(times):.0f} to {max(times):.0f})"
        print(f"{situation:<24}{statistics.median(times):>8.0f}{spread:>20}", flush=True)


TABLES = {"time": time_table, "counted": counted_table, "held-up": held_up_table}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--image", type=Path, help="the image's folder")
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("tables", nargs="*", metavar="TABLE", help="time, counted or held-up; all without one")
    arguments = parser.parse_args()
    unknown = set(arguments.tables) - set(TABLES)
    if unknown:
        parser.error(f"no table {', '.join(sorted(unknown))}")
    if arguments.image:
        vdev_machine.IMAGE_DIR = arguments.image
    for name in arguments.tables or TABLES:
        TABLES[name](arguments.runs)


if __name__ == "__main__":
    main()
