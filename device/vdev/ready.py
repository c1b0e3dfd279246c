# SPDX-License-Identifier: Apache-2.0
"""A machine in which the service answers, in a fraction of the time that a boot takes.

The first one of an image boots, and leaves its state beside the image; all others go on from
there. Each is as fresh as if it had booted: nothing that one does reaches another.
"""

import fcntl
import hashlib
import subprocess

from . import machine as machines
from .machine import EMULATOR, HARDWARE, Machine, check_image


def wait_for_service(machine):
    machine.wait_until("vusctl list >/dev/null 2>&1", what="the service")


def ready_machine():
    """A Machine, not entered yet."""
    return Machine(state=_state())


def _state():
    """The state of the image's machine, made now if there is none or the image is another one."""
    check_image()
    with open(machines.IMAGE_DIR / ".state.lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)  # of several at once, one boots
        path = machines.IMAGE_DIR / f"state-{_key()}"
        if not path.exists():
            for old in machines.IMAGE_DIR.glob("state-*"):
                old.unlink()
            _make(path)
        return path


def _make(path):
    unfinished = path.with_name(f".{path.name}")
    with Machine() as machine:
        wait_for_service(machine)
        machine.save(unfinished)
    unfinished.rename(path)


def _key():
    """What a state depends on: the image, and the machine that runs it."""
    files = [(name, (machines.IMAGE_DIR / name).stat()) for name in ("Image", "soc.dtb", "device.cpio")]
    parts = [f"{name} {found.st_size} {found.st_mtime_ns}" for name, found in files]
    parts += [subprocess.run([EMULATOR, "--version"], check=True, capture_output=True, text=True).stdout]
    parts += HARDWARE
    return hashlib.sha256("\n".join(parts).encode()).hexdigest()[:16]
