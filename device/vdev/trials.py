# SPDX-License-Identifier: Apache-2.0
"""Which drivers the kernel tries on USB and HID devices, which of them get one, and for how long:
by probes in the kernel, whose clock tells the times. Nothing that is tested has a part in it."""

import re
from dataclasses import dataclass

TRACING = "/sys/kernel/tracing"
# The kernel's own for devices, and what makes hubs of hubs.
HARMLESS = {"usb", "hub"}
USBFS = "usbfs"
PROBES = (
    "p:trial really_probe name=+0(+0($arg1)):string driver=+0(+0($arg2)):string",
    # The driver is the sixth pointer after the device's kobject.
    "p:bound driver_bound name=+0(+0($arg1)):string driver=+0(+0(+104($arg1))):string",
    # The end of an unbinding, and of a trial that came to nothing.
    "p:free device_unbind_cleanup name=+0(+0($arg1)):string",
)
LINE = re.compile(r'(\d+\.\d+): (trial|bound|free): .*? name="([^"]+)"(?: driver="([^"]+)")?')
DEVICE = re.compile(r"\d+-|[0-9A-F]{4}:[0-9A-F]{4}:")


@dataclass
class Trial:
    """A driver at a device: from when it was tried until the device was free of it, in ms."""

    name: str
    driver: str  # usbfs is not tried, it takes the device for somebody who has its node
    begin: float
    end: float = None
    bound: bool = False


class Trials:
    """What the kernel tries from now on."""

    def __init__(self, machine):
        self.machine = machine

    @classmethod
    def begin(cls, machine):
        machine.shell(f"[ -e {TRACING}/trace ] || mount -t tracefs tracefs {TRACING}; cd {TRACING}; echo 0 >tracing_on; "
                      + "".join(f"echo '{probe}' >>kprobe_events; " for probe in PROBES)
                      + "echo 1 >events/kprobes/enable; echo 1 >tracing_on")
        return cls(machine)

    def all(self):
        """Of USB and HID devices, those of harmless drivers aside; the oldest first."""
        trials, open_trials = [], {}
        for at, event, name, driver in LINE.findall(self.machine.read(f"{TRACING}/trace")):
            if not DEVICE.match(name):
                continue
            at = float(at) * 1000
            if event == "free":
                if name in open_trials:
                    open_trials.pop(name).end = at
                continue
            if event == "trial" or name not in open_trials:
                open_trials[name] = Trial(name, driver, at)
                trials.append(open_trials[name])
            open_trials[name].bound |= event == "bound"
        return [trial for trial in trials if trial.driver not in HARMLESS]

    def tried(self):
        """{(driver, device)}"""
        return {(trial.driver, trial.name) for trial in self.all() if trial.driver != USBFS}


def together_ms(trials):
    """For how long any of them had a device; those without end do not count."""
    total, until = 0, 0
    for trial in sorted((one for one in trials if one.end is not None), key=lambda one: one.begin):
        total += max(0, trial.end - max(trial.begin, until))
        until = max(until, trial.end)
    return total
