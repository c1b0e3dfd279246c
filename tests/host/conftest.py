# SPDX-License-Identifier: Apache-2.0
"""One virtual host and its life with our packages: the tests of a file are its chapters, in order."""

import json
import re
import shutil
import subprocess
import sys
import threading
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


# Of one version, the version before it, and one that cannot be installed.
BEFORE, BROKEN = "0.0.9~before", "999~broken"


def renumbered(deb, version, directory):
    """The package as another version of itself."""
    unpacked = directory / "unpacked"
    subprocess.run(["dpkg-deb", "-R", str(deb), str(unpacked)], check=True)
    control = unpacked / "DEBIAN" / "control"
    now = re.search(r"^Version: (.+)$", control.read_text(), flags=re.M).group(1)
    control.write_text(control.read_text().replace(f"Version: {now}\n", f"Version: {version}\n")
                       .replace(f"(= {now})", f"(= {version})"))
    if version == BROKEN and deb.name.startswith("vus_"):
        (unpacked / "DEBIAN" / "preinst").write_text("#!/bin/sh\nexit 1\n")
        (unpacked / "DEBIAN" / "preinst").chmod(0o755)
    subprocess.run(["dpkg-deb", "--root-owner-group", "-b", str(unpacked), str(directory)], check=True,
                   capture_output=True)
    subprocess.run(["rm", "-r", str(unpacked)], check=True)


def make_repository(directory, debs, version=None):
    """What apt installs from: the packages, as this version."""
    directory.mkdir(parents=True)
    for deb in debs:
        if version is None:
            (directory / deb.name).write_bytes(deb.read_bytes())
        else:
            renumbered(deb, version, directory)
    listing = subprocess.run(["dpkg-scanpackages", "."], cwd=directory, check=True, capture_output=True,
                             text=True).stdout
    (directory / "Packages").write_text(listing)


@pytest.fixture(scope="session")
def repositories(tmp_path_factory):
    """The image of a file system with apt's repositories of the packages, and the packages' own tests."""
    debs = sorted(PACKAGES.glob("*.deb"))
    assert len(debs) == 2, f"run ./package arm64: {debs}"
    top = tmp_path_factory.mktemp("repositories")
    for name, version in (("before", BEFORE), ("now", None), ("broken", BROKEN)):
        make_repository(top / "files" / name, debs, version)
    shutil.copytree(ROOT / "debian" / "tests", top / "files" / "tests")
    disk_of(top / "files", top / "repositories.img")
    return top / "repositories.img"


@pytest.fixture(scope="session")
def needs():
    """The packages of others that ours depend on."""
    fields = [subprocess.run(["dpkg-deb", "-f", str(deb), "Depends"], check=True, capture_output=True,
                             text=True).stdout for deb in PACKAGES.glob("*.deb")]
    names = {re.split(r"[ |]", each.strip())[0] for field in fields for each in field.split(",")}
    return sorted(name for name in names if not name.startswith("vus"))


@dataclass(frozen=True)
class Device:
    """One of the catalog, where it is plugged in, and the kernel's name for that."""

    kind: str
    port: str
    entry: str

    @property
    def interface(self):
        return f"{self.entry}:1.0"


class Typing:
    """Somebody types while this is entered: every key has to reach who reads the input device, which
    is the same one all the time."""

    # Count the keys that were pressed among the kernel's input events.
    COUNT = ("perl -e 'local $/ = \\24; my $n = 0; while (<>) { my (undef, undef, $type, $code, $value) = "
             "unpack(\"qqSSl\", $_); $n++ if $type == 1 && $value == 1 } print $n' /run/typed")

    def __init__(self, machine, device):
        self._machine, self._device = machine, device
        self._done = threading.Event()
        self._pressed = 0
        self._typist = threading.Thread(target=self._type)

    def __enter__(self):
        nodes = self._machine.shell(f"ls -d {SYSFS}/{self._device.interface}/*/input/input*/event*").split()
        node = nodes[0].rsplit("/", 1)[-1]
        self._machine.shell(f"rm -f /run/typed; (nice -n -20 cat /dev/input/{node} >/run/typed 2>/dev/null &)")
        self._machine.wait_until(f"ls -l /proc/[0-9]*/fd 2>/dev/null | grep -q 'input/{node}$'", SECONDS)
        self._typist.start()
        return self

    def __exit__(self, kind, *_):
        self._done.set()
        self._typist.join()
        if kind is None:
            self._machine.wait_until(lambda: self._arrived() == self._pressed, 60,
                                     lambda: f"{self._arrived()} of {self._pressed} keys arrived")

    def _type(self):
        while self._pressed < 2 or not self._done.wait(0.5):
            for down in (True, False):
                self._machine.qmp.execute("input-send-event", events=[
                    {"type": "key", "data": {"down": down, "key": {"type": "qcode", "data": "a"}}}])
            self._pressed += 1

    def _arrived(self):
        return int(self._machine.shell(self.COUNT))


class Host:
    """The machine, and what it shows."""

    def __init__(self, machine):
        self.machine = machine
        self.run, self.shell, self.read = machine.run, machine.shell, machine.read

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

    def process(self, unit):
        return int(self.shell(f"systemctl show -P MainPID {unit}"))

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

    def wait_until_authorized(self, device):
        """Let in, whether the kernel has a driver for it or not."""
        self.machine.wait_until(f"[ \"$(cat {SYSFS}/{device.interface}/authorized)\" = 1 ]", SECONDS,
                                f"{device} being let in")

    def wait_until_allowed_input(self, device):
        """The daemon says so of the input device, and it is heard."""
        def is_allowed():
            found = self.run(f"cd {SYSFS}/{device.interface}/*/input/input* && pwd && cat inhibited")[1].split()
            if len(found) != 2 or found[1] != "0":
                return False
            number = int(found[0].rsplit("input", 1)[-1])
            return [record["status"] for record in self.records()
                    if record["deviceType"] == 1 and record["deviceId"] == number] == [1]
        self.machine.wait_until(is_allowed, SECONDS, f"{device} being allowed")

    def taken(self, device):
        """How often a disk's driver has had it, since the machine's start."""
        return int(self.run(f"dmesg | grep -c 'usb-storage {device.interface}: USB Mass Storage device detected'")[1])

    def typing(self, device):
        return Typing(self.machine, device)

    def types(self, device):
        with self.typing(device):
            return True

    def wait_until_types(self, device):
        """One that has just been plugged in, of which nothing but the driver is there yet."""
        self.machine.wait_until(f"ls -d {SYSFS}/{device.interface}/*/input/input*/event*", SECONDS)
        assert self.types(device)


@pytest.fixture(scope="module")
def host(repositories, tmp_path_factory):
    disk = tmp_path_factory.mktemp("host") / "debian.img"
    copy_disk(configured_disk(), disk)
    with HostMachine(disk, packages=repositories) as machine:
        assert machine.settle() == "running", machine.run("systemctl --failed --no-legend")[1]
        yield Host(machine)
        (HOST_DIR / "journal.log").write_text(machine.run("journalctl --no-pager -b -o short-monotonic")[1])
