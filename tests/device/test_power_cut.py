# SPDX-License-Identifier: Apache-2.0
"""The power is cut after every single write to the disk that the policy is on, of all that write
there: whatever is found then, the old or the new policy is put in force."""

import subprocess
from pathlib import Path

import pytest

from conftest import policy
from vdev import Machine
from vdev.block_log import Replay, plain_disk, recorded_disk, writes
from vdev.probe import POLICY

pytestmark = pytest.mark.power

DIRECTORY = str(Path(POLICY).parent)
BACKUP = f"{DIRECTORY}/usb_device_config_backup.xml"
DISK_BYTES = 64 << 20  # the least that f2fs takes
FORMATS = {"ext4": ("mke2fs", "-q", "-t", "ext4", "-b", "1024"), "f2fs": ("mkfs.f2fs", "-q")}
# Somebody else on the same disk, who brings his own files there: the lengths of all others may come
# with them, and their contents may not. That a file has two names makes f2fs write all that it knows.
TOUCH = "dd if=/dev/zero bs=1 count=1 conv=fsync,notrunc 2>/dev/null of=/disk"
NEIGHBOUR = f"{TOUCH}/one && ln -f /disk/one /disk/two && {TOUCH}/two"

# Longer than what f2fs keeps in the inode itself, where it comes and goes with the length.
REMARK = "\n".join(["<!-- " + "one rule among many " * 4 + "-->"] * 100)
AUDIO, VIDEO, PRINTER, DISK = (f"{policy(f'<class>USB_CLASS_{name}</class>')}\n{REMARK}\n"
                               for name in ("AUDIO", "VIDEO", "PRINTER", "MASS_STORAGE"))
BAD = f"<usbconfig mode='open'/>\n{REMARK}\n"


class Recording:
    """A machine whose policy is on the recorded disk, and the writes of each thing that it does."""

    def __init__(self, machine, log):
        self.machine = machine
        self.log = log
        self.phases = []  # (name, the policies that may be found, number of the last write)

    def settle(self):
        self.machine.shell("sync")
        return len(writes(self.log))

    def phase(self, name, old, new, action, until):
        self.machine.write("/tmp/new.xml", new)
        self.machine.write("/tmp/bad.xml", BAD)
        self.machine.shell(f"{action}; {NEIGHBOUR}")
        self.machine.wait_until(until, what=name)
        self.machine.shell(NEIGHBOUR)
        self.phases.append((name, {old, new}, self.settle()))

    def start_daemon(self):
        self.machine.shell("rm /run/vusd.hold")
        self.machine.wait_until("vusctl list >/dev/null 2>&1")


def mount(kind):
    return f"mkdir -p /disk; mount -t {kind} /dev/vda /disk; mkdir -p /disk/policy; mount --bind /disk/policy {DIRECTORY}"


def load_modules(machine):
    machine.shell("while read -r module; do insmod /modules/$module; done </modules/disks")


def stop_daemon(machine):
    """Until it is let go again; see Recording.start_daemon()."""
    machine.wait_until("vusctl list >/dev/null 2>&1")
    machine.shell("touch /run/vusd.hold; kill -9 $(cat /run/vusd.pid)")
    machine.wait_until("! pidof vusd")


def record(image, log, kind):
    """Returns the phases, and how many writes came before them."""
    with Machine(arguments=recorded_disk(image, log)) as machine:
        stop_daemon(machine)
        load_modules(machine)
        machine.shell(f"{mount(kind)}; chmod 0770 {DIRECTORY}; cp /dev/null {POLICY}")
        machine.write(POLICY, AUDIO)
        recording = Recording(machine, log)
        recording.start_daemon()
        machine.wait_until(f"cmp -s {POLICY} {BACKUP}")
        first = recording.settle()
        backed_up = f"cmp -s /tmp/new.xml {BACKUP} && cmp -s {POLICY} {BACKUP}"
        recording.phase("set", AUDIO, VIDEO, "vusctl policy set /tmp/new.xml", backed_up)
        recording.phase("rewrite", VIDEO, PRINTER, f"cat /tmp/new.xml >{POLICY}", backed_up)
        recording.phase("reject", PRINTER, PRINTER, f"cat /tmp/bad.xml >{POLICY}", backed_up)
        recording.phase("try", PRINTER, DISK, "vusctl policy try /tmp/new.xml --seconds 600",
                        f"cmp -s /tmp/new.xml {BACKUP}")
        recording.phase("keep", PRINTER, DISK, "vusctl policy keep", backed_up)
        stop_daemon(machine)
        recording.phase("tear", DISK, DISK, f"cat /tmp/bad.xml >{POLICY}", "true")
        recording.phase("repair", DISK, DISK, "vusctl policy repair", backed_up)
    return first, recording.phases


def recover(machine, kind):
    """What a start finds and does: the policy before the repair, and after it."""
    machine.shell(f"blockdev --flushbufs /dev/vda; {mount(kind)}")
    found = machine.run(f"cat {POLICY} 2>/dev/null")[1]
    status, words = machine.run("vusctl policy repair")
    repaired = machine.run(f"cat {POLICY} 2>/dev/null")[1]
    machine.shell(f"umount {DIRECTORY}; umount /disk")
    return found, (repaired if status == 0 else words)


@pytest.mark.parametrize("kind", FORMATS)
def test_the_old_or_the_new_policy_is_found(kind, tmp_path):
    image, log, copy = tmp_path / "image", tmp_path / "log", tmp_path / "copy"
    for path in (image, copy):
        with open(path, "wb") as file:
            file.truncate(DISK_BYTES)
    subprocess.run([*FORMATS[kind], str(image)], check=True, capture_output=True)
    replay = Replay(image.read_bytes())
    first, phases = record(image, log, kind)
    recorded = writes(log)
    torn = 0
    with Machine(arguments=plain_disk(copy)) as machine:
        stop_daemon(machine)
        load_modules(machine)
        for number, write in enumerate(recorded[:phases[-1][2]], start=1):
            replay.take(write)
            if number < first:
                continue
            name, allowed, _ = next(phase for phase in phases if number <= phase[2])
            replay.put(copy)
            found, repaired = recover(machine, kind)
            assert repaired in allowed, f"{name}, after write {number} of {len(recorded)}: {repaired[:100]!r} ({found[:100]!r})"
            torn += found not in allowed
    print(f"power: {kind}: {phases[-1][2] - first} writes, {torn} of which left a policy that had to be repaired")
    assert torn > 0, "nothing was torn: then nothing was tried"
