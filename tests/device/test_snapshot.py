# SPDX-License-Identifier: Apache-2.0
"""The recorded tree can be unpacked as its README says. Needs no machine."""

import posixpath
import re
from pathlib import Path

import pytest

TREE = Path(__file__).resolve().parents[1] / "data" / "usb-tree.txt"
BUS = "/sys/bus/usb/devices"


@pytest.fixture(scope="module")
def entries():
    """Path to (kind, content or target), in the order of the file."""
    lines = TREE.read_text(encoding="ascii").splitlines()
    found = {}
    for line in lines:
        kind, path, *rest = line.split(" ", 2)
        assert kind in ("dir", "file", "link"), line
        found[path] = (kind, rest[0] if rest else None)
    assert len(found) == len(lines)
    return found


def content(entries, path):
    kind, text = entries[path]
    assert kind == "file"
    return re.sub(r"\\x(..)", lambda match: chr(int(match[1], 16)), text).encode("latin-1")


def real(entries, entry):
    kind, target = entries[f"{BUS}/{entry}"]
    assert kind == "link"
    return posixpath.normpath(posixpath.join(BUS, target))


def test_a_directory_comes_before_what_is_in_it(entries):
    seen = {"/"}
    for path, (kind, _) in entries.items():
        assert posixpath.dirname(path) in seen, path
        if kind == "dir":
            seen.add(path)


def test_every_entry_of_the_bus_leads_to_a_directory(entries):
    names = [path.rsplit("/", 1)[1] for path in entries if posixpath.dirname(path) == BUS]
    assert {"usb1", "usb2", "usb3", "1-0:1.0", "1-2.4.1", "1-2.4.1:1.1", "3-1:1.5"} <= set(names)
    for name in names:
        assert entries[real(entries, name)][0] == "dir"


def test_values_are_the_kernels_own(entries):
    assert content(entries, real(entries, "1-2.4.1:1.0") + "/bAlternateSetting") == b" 0\n"
    assert content(entries, real(entries, "1-7") + "/idVendor") == b"17e9\n"
    assert content(entries, real(entries, "usb1") + "/devspec") == b"/soc@0/ssusb@a600000/dwc3@a600000\n"
    assert content(entries, real(entries, "1-7") + "/configuration") == b""
    assert content(entries, real(entries, "1-6") + "/manufacturer") == b"A\nB\x1b[31m\n"


def test_nothing_is_switched_off(entries):
    states = [content(entries, path) for path, (kind, _) in entries.items()
              if kind == "file" and path.endswith("/authorized")]
    assert states and set(states) == {b"1\n"}


def test_functions_are_there(entries):
    assert f"{real(entries, '3-1:1.0')}/net/usb1" in entries
    assert f"{real(entries, '3-1:1.2')}/tty/ttyACM0" in entries
    assert any(path.startswith(f"{real(entries, '1-1:1.0')}/0003:") and path.endswith("/input") for path in entries)
