#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Unpacks packages of another architecture, and writes dpkg's account of them.

    unpack_debs.py ROOT DEB...

No script of theirs is run: for dpkg they are unpacked and wait for their configuration.
"""

import re
import subprocess
import sys
from pathlib import Path


def pipe(deb, part, *tar):
    """dpkg-deb's archive of one part of a package, through tar."""
    with subprocess.Popen(["dpkg-deb", part, deb], stdout=subprocess.PIPE) as archive:
        out = subprocess.run(["tar", *tar], stdin=archive.stdout, check=True, capture_output=True, text=True).stdout
    if archive.returncode != 0:
        sys.exit(f"{deb} is no package")
    return out


def fields(control):
    """Of a control file: its lines without those that the status file has no use for."""
    return {name: value for name, value in re.findall(r"^(\S+):\s*(.*)$", control, flags=re.M)}


def conffiles(info, name):
    """What dpkg keeps of the files that belong to the administrator, before it has asked about them."""
    listed = info / f"{name}.conffiles"
    if not listed.exists():
        return ""
    paths = [line for line in listed.read_text().splitlines() if line.startswith("/")]
    return "Conffiles:\n" + "".join(f" {path} newconffile\n" for path in paths)


def unpack(root, deb):
    """Unpacks the package; returns its paragraph of the status file."""
    info = root / "var/lib/dpkg/info"
    pipe(deb, "--fsys-tarfile", "-x", "-p", "--same-owner", "--keep-directory-symlink", "-C", root)
    listing = pipe(deb, "--fsys-tarfile", "-t")
    control = pipe(deb, "--ctrl-tarfile", "-x", "-O", "./control")
    values = fields(control)
    name = values["Package"]
    if values.get("Multi-Arch") == "same":
        name += ":" + values["Architecture"]
    scratch = info / f"{name}.new"
    scratch.mkdir()
    pipe(deb, "--ctrl-tarfile", "-x", "-p", "-C", scratch)
    for file in scratch.iterdir():
        if file.name != "control":
            file.rename(info / f"{name}.{file.name}")
    (scratch / "control").unlink()
    scratch.rmdir()
    paths = ["/." if line == "./" else line.removeprefix(".").rstrip("/")
             for line in listing.splitlines()]
    (info / f"{name}.list").write_text("".join(f"{path}\n" for path in paths))
    head, rest = control.split("\n", 1)
    return f"{head}\nStatus: install ok unpacked\n{rest.rstrip()}\n{conffiles(info, name)}\n"


def main(root, *debs):
    dpkg = Path(root) / "var/lib/dpkg"
    for directory in ("info", "updates", "parts", "alternatives", "triggers"):
        (dpkg / directory).mkdir(parents=True, exist_ok=True)
    (dpkg / "info/format").write_text("1\n")
    (dpkg / "available").touch()
    (dpkg / "status").write_text("".join(unpack(Path(root), deb) for deb in debs))


if __name__ == "__main__":
    main(*sys.argv[1:])
