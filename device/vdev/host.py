# SPDX-License-Identifier: Apache-2.0
"""The virtual host: a Debian 12 with systemd on a disk of its own, made by device/host/build.sh.

It keeps its disk when it starts again, also as another emulator: a power cut is the emulator's end.
What is plugged stays plugged over that, and is there when the machine starts.
"""

import fcntl
import subprocess
import time

from . import machine as machines
from .catalog import CATALOG
from .machine import BOARD, Machine, MachineError

HOST_DIR = machines.IMAGE_DIR.parent / "host"
# A start takes minutes on a busy machine: nothing of it is given up meanwhile.
WORDS = (f"{machines.KERNEL_WORDS} systemd.show_status=0 "
         "systemd.default_timeout_start_sec=900 systemd.mask=serial-getty@ttyAMA0.service")
FIRST_START_SECONDS = 3600


def copy_disk(source, target):
    """Holes stay holes: most of a disk is empty."""
    subprocess.run(["cp", "--sparse=always", "--reflink=auto", str(source), str(target)], check=True)


def configured_disk():
    """The disk of a machine that has been started once. Made now if there is none."""
    built = HOST_DIR / "debian.img"
    if not built.exists():
        raise MachineError("the host's disk is not built: run device/host/build.sh")
    done = HOST_DIR / "configured.img"
    with open(HOST_DIR / ".configured.lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not done.exists() or done.stat().st_mtime < built.stat().st_mtime:
            fresh = HOST_DIR / "configured.img.new"
            copy_disk(built, fresh)
            _first_start(fresh)
            fresh.rename(done)
    return done


def _first_start(disk):
    with HostMachine(disk, words="first-start", agent=False) as machine:
        machine.wait_for_end(FIRST_START_SECONDS)
        said = machine.console()
    (HOST_DIR / "first-start.log").write_text(said)
    if "first-start: everything is configured" not in said:
        raise MachineError("the host's packages could not be configured: see build/host/first-start.log")


class HostMachine(Machine):
    BOOT_SECONDS = 900

    def __init__(self, disk, packages=None, words="", agent=True):
        """`disk` is written to. `packages`, the image of a file system, is the machine's second disk."""
        super().__init__()
        self._disk, self._packages, self._words, self._has_agent = disk, packages, words, agent
        self._present = {}  # name: device and port, to be plugged again

    def _image(self):
        command = [*BOARD, "-m", "768", "-kernel", str(HOST_DIR / "Image"), "-initrd", str(HOST_DIR / "start.cpio"),
                   "-append", f"{WORDS} {self._words}".strip()]
        disks = [(self._disk, "off")] + ([(self._packages, "on")] if self._packages else [])
        for number, (path, read_only) in enumerate(disks):
            command += ["-drive", f"if=none,id=disk{number},format=raw,cache=unsafe,readonly={read_only},file={path}",
                        "-device", f"virtio-blk-pci,drive=disk{number},romfile="]
        return command

    def _wait_for_agent(self):
        if self._has_agent:
            super()._wait_for_agent()

    def run(self, command, seconds=300):
        """As Machine's. A system with services of its own answers later."""
        return super().run(command, seconds)

    def shell(self, command, seconds=300):
        return super().shell(command, seconds)

    def wait_for_end(self, seconds):
        try:
            self._process.wait(seconds)
        except subprocess.TimeoutExpired:
            raise MachineError(f"the machine is still running after {seconds} s\n{self.console()[-3000:]}") from None

    def settle(self):
        """Waits until the start is over; returns what systemd says of it: "running", if all is well."""
        return self.run("systemctl is-system-running --wait 2>/dev/null", self.BOOT_SECONDS)[1].strip()

    def plug(self, device, name=None, port=None):
        name = super().plug(device, name, port)
        self._present[name] = (device, port)
        return name

    def unplug(self, name):
        super().unplug(name)
        del self._present[name]

    def reboot(self):
        """As an administrator does. The time until the agent answers is in boot_seconds."""
        start = time.monotonic()
        with self._lock:
            self._agent.sendall(b"systemctl reboot\n")
            self._wait_for_agent()
        self.boot_seconds = time.monotonic() - start
        return self.settle()

    def cut_power(self, words=""):
        """Starts again with these words on the kernel's command line; nothing is told beforehand."""
        for plugged in self._plugged.values():
            plugged.stop()
        self._plugged.clear()
        self._process.kill()
        self._process.wait()
        self._agent.close()
        self._pending = b""
        for name in ("qmp", "agent"):
            (self._dir / name).unlink(missing_ok=True)
        self._words = words
        start = time.monotonic()
        self._launch()
        present, self._present = self._present, {}
        for name, (device, port) in present.items():
            self.plug(device, name, port)
        self._wait_for_agent()
        self.boot_seconds = time.monotonic() - start
        return self.settle()


def disk_of(directory, image):
    """An ext4 image with the directory's files, root's all of them."""
    subprocess.run(["fakeroot", "/sbin/mke2fs", "-q", "-t", "ext4", "-d", str(directory), str(image), "64M"],
                   check=True)


__all__ = ["CATALOG", "HostMachine", "configured_disk", "copy_disk", "disk_of"]
