# SPDX-License-Identifier: Apache-2.0
"""The packages in a root of their own that has nothing but apt: they bring what they need, and
leave nothing behind. Nothing is started there: such a root has no system manager."""

import os
import pathlib
import re
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PACKAGES = ROOT / "build" / "packages"
# What dpkg, apt and the tools of a system's users keep of everything.
NOT_OURS = re.compile(r"/(var/(lib/(dpkg|apt|systemd|pam|ucf)|cache|log|backups)|proc|sys|dev|tmp|run)(/|$)"
                      r"|/etc/(passwd|group|shadow|gshadow|subuid|subgid)-?$|/etc/ld\.so\.cache$")


class Root:
    """A Debian of its own, entered by chroot."""

    def __init__(self, top):
        self.top = top

    def run(self, *command, check=True):
        result = subprocess.run(
            ["unshare", "--mount", "--fork", "--pid", "sh", "-c",
             'mount -t proc proc "$0/proc" && exec chroot "$0" "$@"', str(self.top), *command],
            capture_output=True, text=True, check=False, timeout=600,
            env={**os.environ, "PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C.UTF-8",
                 "DEBIAN_FRONTEND": "noninteractive"})
        assert not check or result.returncode == 0, result.stdout + result.stderr
        return result.stdout

    def install(self, name):
        (deb,) = PACKAGES.glob(f"{name}_*.deb")
        target = self.top / deb.name
        target.write_bytes(deb.read_bytes())
        self.run("apt-get", "-q", "-y", "install", "--no-install-recommends", f"/{deb.name}")
        target.unlink()

    def files(self):
        every = subprocess.run(["find", str(self.top), "-xdev"], capture_output=True, text=True,
                               check=True).stdout.splitlines()
        paths = {path.removeprefix(str(self.top)) for path in every}
        return {path for path in paths if path and not NOT_OURS.match(path)}

    def path(self, name):
        return self.top / name.lstrip("/")


def needs(name):
    """The packages of others that one of ours depends on, the first of each choice."""
    (deb,) = PACKAGES.glob(f"{name}_*.deb")
    depends = subprocess.run(["dpkg-deb", "-f", str(deb), "Depends"], capture_output=True,
                             text=True, check=True).stdout
    names = [re.split(r"[ |]", each.strip())[0] for each in depends.split(",")]
    return [each for each in names if not each.startswith("vus")]


@pytest.fixture(scope="module")
def root(tmp_path_factory):
    top = tmp_path_factory.mktemp("debian") / "root"
    sources = sorted(pathlib.Path("/etc/apt").glob("sources.list*/*.sources"))
    sources += [path for path in [pathlib.Path("/etc/apt/sources.list")] if path.exists()]
    subprocess.run(["mmdebstrap", "--quiet", "--variant=apt", "bookworm", str(top),
                    *map(str, sources)], check=True, timeout=900)
    debian = Root(top)
    debian.run("apt-get", "-q", "update")
    return debian


@pytest.fixture(scope="module")
def tools(root):
    root.install("vus-tools")
    return root


def test_tools_run(tools):
    assert tools.run("vusctl", "--version").startswith("vusctl ")
    example = "/usr/share/doc/vus-tools/examples/till.xml"
    assert tools.run("vusctl", "policy", "check", example).startswith("SUCCESS\n")


def test_life_of_the_package(tools):
    root = tools
    # What the package brings along stays when it goes.
    root.run("apt-get", "-q", "-y", "install", "--no-install-recommends", *needs("vus"))
    before = root.files()

    root.install("vus")
    assert "vus:" in root.path("/etc/group").read_text()
    directory = root.path("/var/lib/vus")
    assert oct(directory.stat().st_mode)[-4:] == "2770"
    assert root.run("readlink", "/data/system/usbdeviceconfig") == "/var/lib/vus\n"
    for unit in ("vusd", "vus-hotplug"):
        wanted = f"/etc/systemd/system/sysinit.target.wants/{unit}.service"
        assert root.path(wanted).is_symlink()
    assert root.run("vus_hotplug", "--version").startswith("vus_hotplug ")
    assert "not found" not in root.run("ldd", "/usr/libexec/vus/vusd")

    # The unit's steps, as far as they go without binder.
    root.run("vusctl", "policy", "repair")
    root.run("/usr/libexec/vus/vusd", "run-startup-tasks")
    policy = directory / "usb_device_config.xml"
    assert policy.stat().st_size == 78
    assert root.run("stat", "-c", "%G", "/var/lib/vus/usb_device_config.xml") == "vus\n"

    # As if the /sys of the machine around it were bound there.
    closed = root.path("/sys/class/input/input9/inhibited")
    closed.parent.mkdir(parents=True)
    closed.write_text("1\n")
    root.run("apt-get", "-q", "-y", "remove", "vus")
    assert closed.read_text() == "1\n", "the door of another machine was opened"
    assert policy.exists() and not root.path("/usr/libexec/vus").exists()
    root.install("vus")
    root.run("apt-get", "-q", "-y", "purge", "vus")
    assert root.files() - before == set()


def mode_and_owner(root, path):
    return root.run("stat", "-c", "%a %U %G", path).strip()


def test_an_administrators_data_stays_as_it_is(tools):
    root = tools
    root.run("install", "-d", "-m", "0751", "-g", "games", "/data")
    root.install("vus")
    assert mode_and_owner(root, "/data") == "751 root games"
    assert mode_and_owner(root, "/data/system") == "755 root root"
    # As at each start of the machine.
    root.run("systemd-tmpfiles", "--create", "vus.conf")
    assert mode_and_owner(root, "/data") == "751 root games"
    root.run("apt-get", "-q", "-y", "purge", "vus")


def test_purge_is_of_the_root_that_dpkg_works_on(tools):
    """Which is not always this one: dpkg has the scripts told by DPKG_ROOT."""
    root = tools
    root.install("vus")
    paths = ("/var/lib/vus/policy", "/var/lib/vus-hotplug/events", "/etc/vus/properties.d/own",
             "/run/vus-properties/own", "/run/vus_hotplug/closed")
    for path in (*paths, *(f"/elsewhere{path}" for path in paths)):
        root.path(path).parent.mkdir(parents=True, exist_ok=True)
        root.path(path).write_text("")
    root.run("mkdir", "-p", "/elsewhere/data/system")
    root.run("ln", "-s", "/var/lib/vus", "/elsewhere/data/system/usbdeviceconfig")
    root.run("env", "DPKG_ROOT=/elsewhere", "DPKG_MAINTSCRIPT_PACKAGE=vus", "/var/lib/dpkg/info/vus.postrm", "purge")
    assert [path for path in paths if not root.path(path).exists()] == []
    assert root.path("/data/system/usbdeviceconfig").is_symlink()
    left = subprocess.run(["find", str(root.path("/elsewhere")), "-name", "*vus*", "-not", "-path", "*/systemd/*"],
                          capture_output=True, text=True, check=True).stdout
    assert left == "" and not root.path("/elsewhere/data").exists()
    root.run("apt-get", "-q", "-y", "purge", "vus")
