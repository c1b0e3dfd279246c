# SPDX-License-Identifier: Apache-2.0
"""When the kernel of the virtual device did what somebody asks about: by probes in it, in the time of
its clock, and not by the word of what is measured."""

import re

TRACING = "/sys/kernel/tracing"


class Moments:
    """What the probes have seen since forget(). `probes` are in the words of kprobe_events."""

    def __init__(self, machine, probes):
        self.machine = machine
        machine.shell(f"[ -e {TRACING}/trace ] || mount -t tracefs tracefs {TRACING}")
        for probe in probes:
            machine.shell(f"echo '{probe}' >>{TRACING}/kprobe_events")
        machine.shell(f"echo 1 >{TRACING}/events/kprobes/enable")

    def forget(self):
        self.machine.shell(f"echo >{TRACING}/trace")

    def of(self, event, name=None, value=""):
        """Milliseconds, in their order. The probe says `name` and `value`, of which the latter begins
        so; the former is an expression."""
        said = "" if name is None else rf'.*name="{name}"' + (rf' value="{value}' if value else "")
        trace = self.machine.read(f"{TRACING}/trace")
        return [float(at) * 1000 for at in re.findall(rf"(\d+\.\d+): {event}:{said}", trace)]

    def wait(self, *wanted, seconds):
        """The first of them, of which there is to be one in that time."""
        return self.machine.wait_until(lambda: self.of(*wanted), seconds=seconds, what=" ".join(wanted))[0]
