# SPDX-License-Identifier: Apache-2.0
"""One virtual device: boots it, runs commands in it, plugs USB devices, waits for conditions.

A Machine is a context manager; leaving it ends the emulator and removes its files. Commands
go through a virtio-serial port to the guest's init, one at a time; plugging goes through
QEMU's own control socket (QMP). Nothing of the host is shared with the guest.
"""

import base64
import json
import re
import select
import shlex
import shutil
import socket
import subprocess
import tempfile
import threading
import time
from pathlib import Path

IMAGE_DIR = Path(__file__).resolve().parents[2] / "build" / "device"
EMULATOR = "qemu-system-aarch64"
BOARD = (
    "-M", "virt,acpi=off,gic-version=2", "-cpu", "cortex-a57", "-accel", "tcg",
    "-nodefaults", "-display", "none", "-monitor", "none",
    "-device", "virtio-serial-pci,romfile=", "-device", "virtserialport,chardev=agent,name=agent",
    "-device", "qemu-xhci,id=xhci,p2=8,p3=8,addr=0x8",
    "-device", "usb-hub,id=hub2,bus=xhci.0,port=2",
    "-device", "usb-hub,id=hub24,bus=xhci.0,port=2.4",
)
# The same in every machine: what is saved of one fits another.
HARDWARE = (*BOARD, "-m", "256", "-no-reboot")
# What the kernel does against a processor that gives its secrets away has nobody to be done against
# here, and is dear: the emulator forgets all addresses when page tables are switched, which with
# kpti is twice a system call, and makes the call some ten times as long.
KERNEL_WORDS = "console=ttyAMA0 quiet panic=-1 cryptomgr.notests mitigations=off kpti=off"
# How the component that reports devices is started: holding each back until its verdict.
GATE = "--gate"
# The old way, in which what is refused has its drivers until the verdict.
NO_GATE = "--gate=off"


class MachineError(Exception):
    """The emulator or the guest did not do what was asked of it."""


class GuestError(MachineError):
    """A command in the guest ended with another status than 0."""


def check_image():
    if not (IMAGE_DIR / "device.cpio").exists():
        raise MachineError("the device's image is not built: run device/build.sh")


class NotInTime(MachineError):
    """What was waited for did not come."""


class Qmp:
    """QEMU's control socket: a request, an answer; events in between are skipped."""

    def __init__(self, connection):
        self._lock = threading.Lock()
        self._connection = connection
        self._file = connection.makefile("r")
        self._read()  # the greeting
        self.execute("qmp_capabilities")

    def _read(self):
        line = self._file.readline()
        if not line:
            raise MachineError("the emulator has ended")
        return json.loads(line)

    def execute(self, command, file=None, **arguments):
        """With `file`, the request takes it along."""
        request = json.dumps({"execute": command, "arguments": arguments}) + "\n"
        with self._lock:
            socket.send_fds(self._connection, [request.encode()], [file.fileno()] if file else [])
            while True:
                answer = self._read()
                if "error" in answer:
                    raise MachineError(f"{command}: {answer['error']['desc']}")
                if "return" in answer:
                    return answer["return"]


class Machine:
    """The hubs: port 2 of the super-speed controller (bus 1) has one, and its port 4 another,
    so that a device can be plugged at 1-2.4.1."""

    BOOT_SECONDS = 60

    def __init__(self, prompt_socket=None, state=None, reporter=GATE, arguments=()):
        """With `state`, a file that save() wrote for the same image, it goes on from there. Otherwise
        it boots, and starts the component that reports devices with the options `reporter`.
        `arguments` are more hardware, for the emulator; a state has none of it."""
        self._dir = Path(tempfile.mkdtemp(prefix="vus-device."))
        self._prompt_socket = prompt_socket
        self._state = state
        self._reporter = reporter
        self._arguments = arguments
        self._process = None
        self._pending = b""
        self._plugged = {}
        self._lock = threading.Lock()
        self.boot_seconds = None

    def __enter__(self):
        try:
            self._boot() if self._state is None else self._resume()
        except BaseException:
            self.close()
            raise
        return self

    def __exit__(self, *_):
        self.close()

    # Life.

    def _image(self):
        """The part of the emulator's command line that says what it runs."""
        check_image()
        return [*HARDWARE, "-kernel", str(IMAGE_DIR / "Image"), "-dtb", str(IMAGE_DIR / "soc.dtb"),
                "-initrd", str(IMAGE_DIR / "device.cpio"),
                "-append", f'{KERNEL_WORDS} reporter="{self._reporter}"']

    def _command(self):
        """The emulator's command line; with a state, for a machine that waits for it."""
        command = [
            EMULATOR, *self._image(), *self._arguments,
            "-serial", f"file:{self._dir}/console",
            "-qmp", f"unix:{self._dir}/qmp,server=on,wait=off",
            "-chardev", f"socket,id=agent,path={self._dir}/agent,server=on,wait=off",
        ]
        if self._prompt_socket:
            command += ["-chardev", f"socket,id=prompt,path={self._prompt_socket},server=on,wait=off",
                        "-device", "virtserialport,chardev=prompt,name=prompt"]
        if self._state is not None:
            command += ["-incoming", "defer"]
        return command

    def _launch(self):
        command = self._command()
        with open(self._dir / "stderr", "wb") as errors:
            self._process = subprocess.Popen(
                command, stdin=subprocess.DEVNULL, stdout=errors, stderr=errors)
        self.qmp = Qmp(self._connect("qmp"))
        self._agent = self._connect("agent")

    def _boot(self):
        start = time.monotonic()
        self._launch()
        self._wait_for_agent()
        self.boot_seconds = time.monotonic() - start

    def _wait_for_agent(self):
        self._read_until(rb"@@READY [\d.]+\n", self.BOOT_SECONDS)

    def _resume(self):
        self._launch()
        with open(self._state, "rb") as state:
            self._carry_over("migrate-incoming", state)
        self.qmp.execute("cont")

    def save(self, path):
        """Writes the machine's state to a file, from which others go on; this one stops for good.
        Nothing may be plugged: what is plugged is not part of the machine's command line."""
        if self._plugged:
            raise MachineError("a machine with devices plugged cannot be saved")
        self.qmp.execute("stop")
        with open(path, "wb") as state:
            self._carry_over("migrate", state)

    def _carry_over(self, command, state):
        self.qmp.execute("getfd", file=state, fdname="state")
        self.qmp.execute(command, uri="fd:state")
        deadline = time.monotonic() + self.BOOT_SECONDS
        while True:
            status = self.qmp.execute("query-migrate").get("status")
            if status == "completed":
                return
            if status in ("failed", "cancelled") or time.monotonic() > deadline:
                raise MachineError(f"the machine's state was not carried over ({status}): {self._errors()}")
            time.sleep(0.005)

    def _connect(self, name):
        deadline = time.monotonic() + 10
        connection = socket.socket(socket.AF_UNIX)
        while True:
            try:
                connection.connect(str(self._dir / name))
                return connection
            except OSError:
                if self._process.poll() is not None or time.monotonic() > deadline:
                    raise MachineError("the emulator did not start: " + self._errors()) from None
                time.sleep(0.01)

    def _errors(self):
        return (self._dir / "stderr").read_text(errors="replace").strip()

    def console(self):
        """What the kernel and init printed."""
        path = self._dir / "console"
        return path.read_text(errors="replace") if path.exists() else ""

    def close(self):
        for name in list(self._plugged):
            self._plugged.pop(name).stop()
        if self._process and self._process.poll() is None:
            self._process.kill()
            self._process.wait()
        shutil.rmtree(self._dir, ignore_errors=True)

    # Commands.

    def _read_until(self, pattern, seconds):
        deadline = time.monotonic() + seconds
        while True:
            match = re.search(pattern, self._pending)
            if match:
                before = self._pending[:match.start()]
                self._pending = self._pending[match.end():]
                return before, match
            ready, _, _ = select.select([self._agent], [], [], max(0, deadline - time.monotonic()))
            data = self._agent.recv(65536) if ready else b""
            if not data:
                what = "the guest does not answer" if not ready else "the guest has ended"
                raise MachineError(f"{what}\n{self._pending.decode(errors='replace')}\n"
                                   f"{self.console()[-2000:]}")
            self._pending += data

    def run(self, command, seconds=60):
        """Runs a shell command in the guest; returns its exit status and its output."""
        with self._lock:
            self._agent.sendall(command.replace("\n", "; ").encode() + b"\n")
            output, match = self._read_until(rb"\n@@STATUS (\d+)\n", seconds)
        return int(match.group(1)), output.decode(errors="replace").replace("\r\n", "\n")

    def shell(self, command, seconds=60):
        """Like run(), but returns the output alone and fails if the command does."""
        status, output = self.run(command, seconds)
        if status != 0:
            raise GuestError(f"status {status} of: {command}\n{output}")
        return output

    def read(self, path):
        return self.shell(f"cat {shlex.quote(path)}")

    def exists(self, path):
        return self.run(f"[ -e {shlex.quote(path)} ]")[0] == 0

    def write(self, path, text):
        """Writes in place, as a program does that truncates and writes."""
        data = base64.b64encode(text.encode()).decode()
        self.shell(f"echo {data} | base64 -d > {shlex.quote(path)}")

    def wait_until(self, condition, seconds=60, what=None):
        """Waits until `condition` (a shell condition or a callable) holds; returns what it
        answered. Polls: the guest has no event for most of what is waited for. A question may be
        long work for the emulated processor, which has some time for what is waited for, too."""
        deadline = time.monotonic() + seconds
        while True:
            asked = time.monotonic()
            answer = condition() if callable(condition) else self.run(condition)[0] == 0
            if answer:
                return answer
            answered = time.monotonic()
            if answered > deadline:
                raise NotInTime(f"not within {seconds} s: {what() if callable(what) else what or condition}")
            time.sleep(min(max(0.02, answered - asked), 0.2))

    # Devices.

    def plug(self, device, name=None, port=None):
        """Plugs a device of the catalog; returns the name to unplug it by."""
        name = name or device.name
        if name in self._plugged:
            raise MachineError(f"{name} is plugged already")
        self._plugged[name] = device.plug(self, name, port)
        return name

    def unplug(self, name):
        if name not in self._plugged:
            raise MachineError(f"{name} is not plugged")
        self._plugged.pop(name).unplug()

    def become(self, name, description):
        """Has a device that is described in Python leave, and come back as another one."""
        self._plugged[name].become(description)

    def plugged(self):
        return sorted(self._plugged)

    def usb_bus(self):
        """What the emulator has attached to its controllers, whatever the kernel knows of it."""
        return self.qmp.execute("human-monitor-command", **{"command-line": "info usb"})

    def socket_path(self, name):
        return str(self._dir / name)

