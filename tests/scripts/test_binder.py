# SPDX-License-Identifier: Apache-2.0
"""How a Linux host comes by binder, and what its services do without it."""

import os
import pathlib
import re
import stat
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
UNITS = ROOT / "packaging" / "systemd"


def lines(unit):
    return (UNITS / f"{unit}.in").read_text().splitlines()


def named(unit, *settings):
    """The units that these settings of this one name."""
    return {name for line in lines(unit) for setting in settings if line.startswith(f"{setting}=")
            for name in line.split("=", 1)[1].split()}


def test_binder_that_was_not_there_is_looked_for_again():
    text = lines("vus-binder.service")
    assert "Type=oneshot" in text and "Restart=on-failure" in text and "StartLimitIntervalSec=0" in text


def test_the_reporter_starts_without_binder_too():
    """It shuts the gate; started again, it has binder looked for again, and all that needs it started."""
    unit = "vus-hotplug.service"
    assert {"vus-binder.service", "vusd.service"} <= named(unit, "Wants") & named(unit, "After")
    assert named(unit, "BindsTo", "Requires", "Requisite") == set()
    assert "Restart=always" in lines(unit)


@pytest.mark.parametrize("unit", ["vusd.service", "vus-servicemanager.service"])
def test_what_would_only_crash_waits_for_binder(unit):
    """A machine that starts both in vain every second has time for little else. Neither ends with it."""
    assert "vus-binder.service" in named(unit, "Requires") & named(unit, "After")
    assert named(unit, "BindsTo") == set()


# Each is told of in a file. What the kernel does is done by `mount` and `modprobe`.
STUBS = {
    "modprobe": 'echo "modprobe $*" >>"$TOLD"; [ -z "$MODULE_BRINGS" ] || : >"$MODULE_BRINGS"; [ -n "$MODULE_BRINGS" ]',
    "grep": 'case "$*" in "-qw binder /proc/filesystems") exit "$NO_BINDERFS" ;; esac; exec /bin/grep "$@"',
    "mountpoint": '[ -e "$2/binder" ]',
    "mount": 'echo "mount $*" >>"$TOLD"; : >"$4/binder"',
    "chgrp": 'echo "chgrp $*" >>"$TOLD"',
}


class Kernel:
    """One whose binder comes by a module, or by a file system, or not at all."""

    def __init__(self, top):
        self.top = top
        self.node, self.told = top / "dev" / "binder", top / "told"
        self.node.parent.mkdir()
        for name, text in STUBS.items():
            (top / name).write_text(f"#!/bin/sh\n{text}\n")
            (top / name).chmod(0o755)

    def binder_up(self, module=False, binderfs=False):
        """Returns the exit status, what it said, and what the programs were called with."""
        self.told.write_text("")
        result = subprocess.run(
            [ROOT / "packaging" / "binder-up", self.node], check=False, capture_output=True, text=True, timeout=60,
            env={**os.environ, "PATH": f"{self.top}:{os.environ['PATH']}", "TOLD": str(self.told),
                 "MODULE_BRINGS": str(self.node) if module else "", "NO_BINDERFS": "0" if binderfs else "1"})
        assert result.stdout == ""
        return result.returncode, result.stderr, self.told.read_text().splitlines()

    def mode(self):
        return stat.S_IMODE(self.node.stat().st_mode)


LOADED = "modprobe -q binder_linux devices=binder"


@pytest.fixture
def kernel(tmp_path):
    return Kernel(tmp_path)


def test_the_module_brings_binder(kernel):
    group = f"chgrp vus {kernel.node}"
    assert kernel.binder_up(module=True, binderfs=True) == (0, "", [LOADED, group])
    assert kernel.mode() == 0o660 and not kernel.node.is_symlink()
    kernel.node.chmod(0o600)
    assert kernel.binder_up(module=True) == (0, "", [group])
    assert kernel.mode() == 0o660


def test_binderfs_is_mounted_once_and_its_device_given_to_the_group(kernel):
    folder = kernel.node.parent / "binderfs"
    group = f"chgrp vus {kernel.node}"
    assert kernel.binder_up(binderfs=True) == (0, "", [LOADED, f"mount -t binder binder {folder}", group])
    assert kernel.node.resolve() == folder / "binder"
    assert kernel.mode() == 0o660
    kernel.node.unlink()
    assert kernel.binder_up(binderfs=True) == (0, "", [LOADED, group])
    assert kernel.node.resolve() == folder / "binder"


def test_a_link_that_leads_nowhere_is_mended(kernel):
    """Somebody has unmounted the file system."""
    kernel.node.symlink_to("elsewhere/binder")
    assert kernel.binder_up(binderfs=True)[0] == 0
    assert kernel.node.resolve() == kernel.node.parent / "binderfs" / "binder"


def test_a_kernel_without_binder(kernel):
    status, said, told = kernel.binder_up()
    assert (status, told) == (1, [LOADED])
    assert re.fullmatch(r"binder-up: this kernel has no binder \(module binder_linux\)\n", said)
    assert list(kernel.node.parent.iterdir()) == []
