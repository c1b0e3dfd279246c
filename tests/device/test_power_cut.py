# SPDX-License-Identifier: Apache-2.0
"""The power is cut after every single write to the disk that the policy is on, of all that write
there: whatever is found then, the old or the new policy is put in force, and the status says so."""

import subprocess
from dataclasses import dataclass
from pathlib import Path

import pytest

from conftest import policy
from vdev import Machine
from vdev.block_log import Replay, plain_disk, recorded_disk, writes
from vdev.probe import BACKUP, POLICY, STATUS

pytestmark = pytest.mark.power

DIRECTORY = str(Path(POLICY).parent)
DISK_BYTES = 64 << 20  # the least that f2fs takes
FORMATS = {"ext4": ("mke2fs", "-q", "-t", "ext4", "-b", "1024"), "f2fs": ("mkfs.f2fs", "-q")}
# Somebody else on the same disk, who brings his own files there: the lengths of all others may come
# with them, and their contents may not. That a file has two names makes f2fs write all that it knows.
TOUCH = "dd if=/dev/zero bs=1 count=1 conv=fsync,notrunc 2>/dev/null of=/disk"
NEIGHBOUR = f"{TOUCH}/one && ln -f /disk/one /disk/two && {TOUCH}/two"

# Longer than what f2fs keeps in the inode itself, where it comes and goes with the length.
REMARK = "\n".join(["<!-- " + "one rule among many " * 4 + "-->"] * 100)
CLASSES = {"AUDIO": 1, "PRINTER": 7, "MASS_STORAGE": 8, "VIDEO": 14}
AUDIO, PRINTER, DISK, VIDEO = (f"{policy(f'<class>USB_CLASS_{name}</class>')}\n{REMARK}\n" for name in CLASSES)
BAD = f"<usbconfig mode='open'/>\n{REMARK}\n"

# What the units and the .rc have run before the daemon; what is there to be repaired is nothing yet.
BEFORE_THE_DAEMON = "vusctl policy repair && /system_ext/bin/vusd run-startup-tasks >/dev/null 2>&1"
TRIAL_SECONDS = 15


@dataclass
class Phase:
    name: str
    allowed: set  # policies, any of which may be found to be in force
    last: int     # number of its last write


class Recording:
    """A machine whose policy is on the recorded disk, and the writes of each thing that it does."""

    def __init__(self, machine, log):
        self.machine = machine
        self.log = log
        self.phases = []

    def settle(self):
        self.machine.shell("sync")
        return len(writes(self.log))

    def phase(self, name, allowed, action, until, new="", afterwards=None):
        """With `afterwards`, no more than that is allowed once the action has ended."""
        self.machine.write("/tmp/new.xml", new)
        self.machine.write("/tmp/bad.xml", BAD)
        self.machine.shell(action)
        if afterwards is not None:
            self.phases.append(Phase(name, allowed, len(writes(self.log))))
            name, allowed = f"after {name}", afterwards
        self.machine.shell(NEIGHBOUR)
        self.machine.wait_until(until, what=name)
        self.machine.shell(NEIGHBOUR)
        self.phases.append(Phase(name, allowed, self.settle()))


def mount(kind):
    return f"mkdir -p /disk; mount -t {kind} /dev/vda /disk; mkdir -p /disk/policy; mount --bind /disk/policy {DIRECTORY}"


def load_modules(machine):
    machine.shell("while read -r module; do insmod /modules/$module; done </modules/disks")


START = "rm /run/vusd.hold"


def stop_daemon(machine):
    """Until it is let go again; see START."""
    machine.wait_until("vusctl list >/dev/null 2>&1")
    machine.shell("touch /run/vusd.hold; kill -9 $(cat /run/vusd.pid)")
    machine.wait_until("! pidof vusd")


# Conditions: what is to be in force is, and the status says so, unless it says what was rejected.
RESTORED = f"cmp -s /tmp/new.xml {POLICY} && cmp -s /tmp/new.xml {BACKUP}"
DONE = f"{RESTORED} && grep -q '^SUCCESS' {STATUS}"
ON_TRIAL = f"cmp -s /tmp/new.xml {BACKUP} && ! cmp -s /tmp/new.xml {POLICY}"


def first_start(recording):
    """The policy that the product begins with. A copy of it has a line end more."""
    machine = recording.machine
    before = recording.settle()
    recording.phase("first policy", set(), BEFORE_THE_DAEMON, f"[ -s {POLICY} ]")
    default = machine.read(POLICY)
    recording.phases[0].allowed = defaults = {default, default + "\n"}
    copied = f"(cat {POLICY}; echo) | cmp -s - {BACKUP} && grep -q '^SUCCESS' {STATUS}"
    recording.phase("first start", defaults, START, copied)
    return before, defaults


def record(image, log, kind):
    """Returns the phases, how many writes came before them, and the policies to begin with."""
    with Machine(arguments=recorded_disk(image, log)) as machine:
        stop_daemon(machine)
        load_modules(machine)
        machine.shell(f"{mount(kind)}; chmod 0770 {DIRECTORY}")
        recording = Recording(machine, log)
        before, defaults = first_start(recording)
        phase = recording.phase
        phase("set", {*defaults, VIDEO}, "vusctl policy set /tmp/new.xml", DONE, VIDEO)
        phase("rewrite", {VIDEO, PRINTER}, f"cat /tmp/new.xml >{POLICY}", DONE, PRINTER)
        phase("reject", {PRINTER}, f"cat /tmp/bad.xml >{POLICY}", RESTORED, PRINTER)
        # A trial is for whoever may shut himself out: what he tries does not outlive a power cut.
        phase("try", {PRINTER, DISK}, "vusctl policy try /tmp/new.xml --seconds 600", ON_TRIAL, DISK, {PRINTER})
        phase("keep", {PRINTER, DISK}, "vusctl policy keep", DONE, DISK, {DISK})
        phase("try again", {DISK, AUDIO}, f"vusctl policy try /tmp/new.xml --seconds {TRIAL_SECONDS}", ON_TRIAL, AUDIO,
              {DISK})
        phase("take back", {DISK}, "true", DONE, DISK)
        stop_daemon(machine)
        phase("tear", {DISK}, f"cat /tmp/bad.xml >{POLICY}", "true")
        phase("repair", {DISK}, "vusctl policy repair", RESTORED, DISK)
        phase("start after the repair", {DISK}, START, DONE, DISK)
        stop_daemon(machine)
        phase("start with a new policy", {DISK, VIDEO}, f"cat /tmp/new.xml >{POLICY}; {START}", DONE, VIDEO)
    return before, recording.phases, defaults


class Host:
    """A machine that runs on while the disk that it mounts is another one each time, and starts the
    daemon from it, unless it has done so from files of the same content."""

    def __init__(self, machine, kind):
        self.machine = machine
        self.kind = kind
        self.seen = {}  # what was found: what was in force then

    def recover(self):
        """The policy that is found, and how it ends: (policy or what the repair says, what is in
        force)."""
        self.machine.shell(f"blockdev --flushbufs /dev/vda; {mount(self.kind)}")
        missing, found = self.machine.run(f"cat {POLICY} 2>/dev/null")
        files = self.machine.shell(f"cd {DIRECTORY}; find . -type f | sort | xargs -r sha256sum")
        if files not in self.seen:
            self.seen[files] = self._start()
        self.machine.shell(f"umount {DIRECTORY}; umount /disk")
        return None if missing else found, *self.seen[files]

    def _start(self):
        failed, words = self.machine.run(BEFORE_THE_DAEMON)
        if failed:
            return words, None
        self.machine.shell(START)
        self.machine.wait_until("vusctl list >/dev/null 2>&1")
        in_force = self.machine.shell(f"cat {STATUS}"), self._allowed_classes()
        stop_daemon(self.machine)
        return self.machine.read(POLICY), in_force

    def _allowed_classes(self):
        asked = " ".join(map(str, CLASSES.values()))
        yes = self.machine.shell(f"for class in {asked}; do vusctl judge --id $((900 + class)) --interfaces $class "
                                 ">/dev/null 2>&1 && echo $class; done; true")
        return set(map(int, yes.split()))


def in_force(text, defaults):
    """What is to be seen of a policy that is in force: the status, and what the daemon answers."""
    classes = {code for name, code in CLASSES.items() if f"USB_CLASS_{name}<" in text}
    return "SUCCESS", set(CLASSES.values()) if text in defaults else classes


@pytest.mark.parametrize("kind", FORMATS)
def test_the_old_or_the_new_policy_is_in_force(kind, tmp_path):
    image, log, copy = tmp_path / "image", tmp_path / "log", tmp_path / "copy"
    for path in (image, copy):
        with open(path, "wb") as file:
            file.truncate(DISK_BYTES)
    subprocess.run([*FORMATS[kind], str(image)], check=True, capture_output=True)
    replay = Replay(image.read_bytes())
    before, phases, defaults = record(image, log, kind)
    recorded = writes(log)[:phases[-1].last]
    torn = 0
    with Machine(arguments=plain_disk(copy)) as machine:
        stop_daemon(machine)
        load_modules(machine)
        host = Host(machine, kind)
        for number, write in enumerate(recorded, start=1):
            replay.take(write)
            if number < before:
                continue
            phase = next(phase for phase in phases if number <= phase.last)
            replay.put(copy)
            found, policy_then, seen = host.recover()
            where = f"{phase.name}, after write {number} of {len(recorded)}"
            assert policy_then in phase.allowed, f"{where}: {policy_then[:100]!r} ({(found or '')[:100]!r})"
            status, classes = seen
            assert (status.strip(), classes) == in_force(policy_then, defaults), f"{where}: {policy_then[:100]!r}"
            torn += found is not None and found not in phase.allowed
    print(f"power: {kind}: {len(recorded) - before} writes, {torn} of which left a policy that had to be repaired; "
          f"started from {len(host.seen)} different contents")
    first = [0, *(phase.last - before for phase in phases)]
    print(f"power: {kind}: " + ", ".join(f"{phase.name} {end - begin}"
                                         for phase, begin, end in zip(phases, first, first[1:])))
    assert torn > 0, "nothing was torn: then nothing was tried"
