# SPDX-License-Identifier: Apache-2.0
"""A machine in which the service answers, in a fraction of the time that a boot takes.

The first one of an image boots, and leaves its state beside the image; all others go on from
there. So does the first one in which the component that reports devices is started otherwise. Each
is as fresh as if it had booted: nothing that one does reaches another. Machines that have more in
common go on from a state of their own, which is made in the same way.
"""

import fcntl
import hashlib
import subprocess

from . import machine as machines
from .machine import EMULATOR, GATE, HARDWARE, KERNEL_WORDS, Machine, check_image


def wait_for_service(machine):
    machine.wait_until("vusctl list >/dev/null 2>&1", what="the service")


def wait_for_gate(machine):
    """Until the door is shut, at every bus."""
    switches = ("/sys/bus/usb/drivers_autoprobe /sys/bus/hid/drivers_autoprobe "
                "/sys/bus/usb/devices/usb*/interface_authorized_default")
    machine.wait_until(f"! cat {switches} | grep -q 1", what="the gate")


def wait_for_hubs(machine):
    """Until those that are always there have been met, and sleep: a hub of the emulator that falls
    asleep while something is plugged into it may not wake."""
    machine.wait_until("[ -e /sys/bus/usb/drivers/hub/1-2.4:1.0 ] && "
                       "! cat /sys/bus/usb/devices/*/power/runtime_status | grep -qv suspended", what="sleeping hubs")


def ready_machine(reporter=GATE):
    """A Machine, not entered yet, in which the component that reports devices runs with those
    options."""
    return Machine(state=_state(reporter, _boot), reporter=reporter)


def prepared_machine(reporter, prepare, what):
    """The same, for which prepare(machine) has been done, without anything left plugged. `what` is
    all that this depends on, besides the machine itself: another text is another state."""
    def go_on(unfinished, reporter):
        with ready_machine(reporter) as machine:
            prepare(machine)
            wait_for_hubs(machine)
            machine.save(unfinished)
    return Machine(state=_state(reporter, go_on, f"-prepared-{_digest(what)}"), reporter=reporter)


def _state(reporter, make, preparation=""):
    """The state of the image's machine, made now if there is none or the image is another one."""
    check_image()
    kind = reporter.replace(" ", "")
    lock_name = f".state{kind if preparation else ''}.lock"
    with open(machines.IMAGE_DIR / lock_name, "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)  # of several at once, one makes it
        key = _key()
        for old in machines.IMAGE_DIR.glob("state-*"):
            prepared_otherwise = preparation and old.name.startswith(f"state-{key}{kind}-prepared-")
            if not old.name.startswith(f"state-{key}") or prepared_otherwise and not old.name.endswith(preparation):
                old.unlink(missing_ok=True)
        path = machines.IMAGE_DIR / f"state-{key}{kind}{preparation}"
        if not path.exists():
            unfinished = path.with_name(f".{path.name}")
            make(unfinished, reporter)
            unfinished.rename(path)
        return path


def _boot(unfinished, reporter):
    with Machine(reporter=reporter) as machine:
        wait_for_service(machine)
        if GATE in reporter.split():
            wait_for_gate(machine)
        wait_for_hubs(machine)
        machine.save(unfinished)


def _digest(text):
    return hashlib.sha256(text.encode()).hexdigest()[:16]


def _key():
    """What a state depends on: the image, and the machine that runs it."""
    files = [(name, (machines.IMAGE_DIR / name).stat()) for name in ("Image", "soc.dtb", "device.cpio")]
    parts = [f"{name} {found.st_size} {found.st_mtime_ns}" for name, found in files]
    parts += [subprocess.run([EMULATOR, "--version"], check=True, capture_output=True, text=True).stdout]
    parts += [*HARDWARE, KERNEL_WORDS]
    return _digest("\n".join(parts))
