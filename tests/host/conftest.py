# SPDX-License-Identifier: Apache-2.0
"""One virtual host and its life with our packages: the tests of a file are its chapters, in order."""

import json
import re
import subprocess
import sys
import time
from dataclasses import dataclass
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "device"))

from vdev.host import CATALOG, HOST_DIR, HostMachine, configured_disk, copy_disk, disk_of  # noqa: E402

PACKAGES = ROOT / "build" / "packages" / "arm64"
SYSFS = "/sys/bus/usb/devices"
UNITS = ("vus-binder", "vus-servicemanager", "vusd", "vus-hotplug")
# The emulator's processor is slow, and shared.
SECONDS = 300


def renumbered(deb, version, directory):
    """The package as an older version of itself: what an upgrade starts from."""
    unpacked = directory / "unpacked"
    subprocess.run(["dpkg-deb", "-R", str(deb), str(unpacked)], check=True)
    control = unpacked / "DEBIAN" / "control"
    now = re.search(r"^Version: (.+)$", control.read_text(), flags=re.M).group(1)
    control.write_text(control.read_text().replace(f"Version: {now}\n", f"Version: {version}\n")
                       .replace(f"(= {now})", f"(= {version})"))
    subprocess.run(["dpkg-deb", "--root-owner-group", "-b", str(unpacked), str(directory)], check=True,
                   capture_output=True)
    subprocess.run(["rm", "-r", str(unpacked)], check=True)


@pytest.fixture(scope="session")
def repositories(tmp_path_factory):
    """The image of a file system with two of apt's: before, and now."""
    debs = sorted(PACKAGES.glob("*.deb"))
    assert len(debs) == 2, f"run ./package arm64: {debs}"
    top = tmp_path_factory.mktemp("repositories")
    for name in ("before", "now"):
        (top / "files" / name).mkdir(parents=True)
        for deb in debs:
            if name == "before":
                renumbered(deb, "0.0.9~before", top / "files" / name)
            else:
                (top / "files" / name / deb.name).write_bytes(deb.read_bytes())
        listing = subprocess.run(["dpkg-scanpackages", "."], cwd=top / "files" / name, check=True,
                                 capture_output=True, text=True).stdout
        (top / "files" / name / "Packages").write_text(listing)
    disk_of(top / "files", top / "repositories.img")
    return top / "repositories.img"


@dataclass(frozen=True)
class Device:
    """One of the catalog, where it is plugged in, and the kernel's name for that."""

    kind: str
    port: str
    entry: str

    @property
    def interface(self):
        return f"{self.entry}:1.0"


class Host:
    """The machine, and what it shows."""

    def __init__(self, machine):
        self.machine = machine
        self.run, self.shell = machine.run, machine.shell

    def mount(self):
        """What the test has brought along."""
        self.shell("mountpoint -q /srv/vus || { mkdir -p /srv/vus; mount -o ro /dev/vdb /srv/vus; }")

    # Packages.

    def use(self, repository):
        """From now on apt has this one besides Debian's own."""
        self.mount()
        self.machine.write("/etc/apt/sources.list", "deb [trusted=yes] file:/srv/debian ./\n"
                           f"deb [trusted=yes] file:/srv/vus/{repository} ./\n")
        self.shell("apt-get -q update", SECONDS)

    def apt(self, words):
        return self.shell(f"apt-get -q -y --no-install-recommends {words}", 3 * SECONDS)

    def version(self):
        return self.shell("dpkg-query -W -f '${Version}' vus")

    def files(self):
        """Every file that is not kept about all packages alike, or written by the system as it runs."""
        found = self.shell("find / -xdev -not -path '/var/lib/dpkg/*' -not -path '/var/lib/apt/*' "
                           "-not -path '/var/cache/*' -not -path '/var/log/*' -not -path '/tmp/*' "
                           "-not -path '/var/tmp/*' -not -path '/var/lib/systemd/*' -not -path '/var/backups/*' "
                           "-not -path '/home/*'", SECONDS)
        return {line for line in found.splitlines() if line.startswith("/")}

    # Services.

    def states(self):
        return dict(zip(UNITS, self.run(f"systemctl is-active {' '.join(UNITS)}")[1].split()))

    def all_active(self):
        return set(self.states().values()) == {"active"}

    def answers(self):
        return self.run("vusctl list >/dev/null 2>&1")[0] == 0

    def wait_until_it_answers(self):
        self.machine.wait_until(lambda: self.all_active() and self.answers(), SECONDS,
                                lambda: str(self.states()))

    def as_alice(self, command, seconds=60):
        """A login of a member of the group: the groups are those of now."""
        return self.run(f"runuser -u alice -- sh -c 'cd /home/alice && {command}' 2>&1", seconds)

    # Devices.

    def records(self):
        status, text = self.run("vusctl list --json 2>/dev/null")
        return json.loads(text) if status == 0 else []

    def plug(self, device):
        self.machine.plug(CATALOG[device.kind], port=device.port)
        self.machine.wait_until(f"[ -e {SYSFS}/{device.entry} ]", SECONDS)

    def unplug(self, device):
        self.machine.unplug(device.kind)
        self.machine.wait_until(f"[ ! -e {SYSFS}/{device.entry} ]", SECONDS)

    def is_off(self, device):
        """Switched off, and no driver has it. Behind the gate it may not even be configured."""
        at = f"{SYSFS}/{device.interface}"
        return self.run(f"[ ! -e {at}/driver ] && [ \"$(cat {at}/authorized 2>/dev/null)\" != 1 ]")[0] == 0

    def is_on(self, device):
        at = f"{SYSFS}/{device.interface}"
        return self.run(f"[ $(cat {at}/authorized) = 1 ] && [ -e {at}/driver ]")[0] == 0

    def is_refused(self, device):
        """The daemon says so, and it is off."""
        numbers = self.run(f"cat {SYSFS}/{device.entry}/busnum {SYSFS}/{device.entry}/devnum")[1].split()
        wanted = int(numbers[0]) * 1000 + int(numbers[1]) if len(numbers) == 2 else None
        said = [record["status"] for record in self.records()
                if record["deviceType"] == 0 and record["deviceId"] == wanted]
        return said == [0] and self.is_off(device)

    def wait_until_refused(self, device):
        self.machine.wait_until(lambda: self.is_refused(device), SECONDS, f"{device} being refused")

    def wait_until_on(self, device):
        self.machine.wait_until(lambda: self.is_on(device), SECONDS, f"{device} being on")

    def types(self, device):
        """Whether a key that is pressed on the keyboard reaches the system."""
        found = self.run(f"ls -d {SYSFS}/{device.interface}/*/input/input*/event*")
        event = found[1].strip().rsplit("/", 1)[-1]
        if found[0] != 0 or not event.startswith("event"):
            return False
        self.shell("rm -f /run/typed; touch /run/typed; "
                   f"(timeout {SECONDS} head -c 24 /dev/input/{event} >/run/typed 2>/dev/null &)")
        deadline = time.monotonic() + 60
        while time.monotonic() < deadline:
            for down in (True, False):
                self.machine.qmp.execute("input-send-event", events=[
                    {"type": "key", "data": {"down": down, "key": {"type": "qcode", "data": "a"}}}])
            if self.run("[ -s /run/typed ]")[0] == 0:
                return True
            time.sleep(0.2)
        return False


@pytest.fixture(scope="module")
def host(repositories, tmp_path_factory):
    disk = tmp_path_factory.mktemp("host") / "debian.img"
    copy_disk(configured_disk(), disk)
    with HostMachine(disk, packages=repositories) as machine:
        assert machine.settle() == "running", machine.run("systemctl --failed --no-legend")[1]
        yield Host(machine)
        (HOST_DIR / "journal.log").write_text(machine.run("journalctl --no-pager -b -o short-monotonic")[1])
