#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Writes each recorded device tree as one text file, in the format of tests/data/README.md.

usage: unpack.py RECORDINGS OUTPUT

RECORDINGS holds INDEX.tsv, whose first column names the files of one machine a row, and the
tool that makes a sysfs of them. A blank in a path is written as \\x20, like in a value.

OUTPUT is shared by the build trees of a checkout: the first one to come does the work, and it is
done again only for another program, tool or index.
"""

import csv
import fcntl
import hashlib
import multiprocessing
import pathlib
import re
import subprocess
import sys
import tempfile

TOOL = "umockdev2tree.py"
LINKS = "sys/bus/usb/devices"


def escape(raw, blanks=False):
    kept = range(0x21 if blanks else 0x20, 0x7F)
    return "".join(chr(byte) if byte in kept and byte != 0x5C else f"\\x{byte:02x}" for byte in raw)


def unpack(tool, files, root):
    if files[0].name.endswith(".tar.xz"):
        subprocess.run(["tar", "-C", root, "-xf", files[0]], check=True)
        found = next(root.glob(f"**/{LINKS}")).parents[3]
        return found
    subprocess.run(["/usr/bin/python3", tool, "--derive", "--descriptors", root, *files],
                   check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return root


def usb_directories(root):
    """The buses' and devices' directories, each before what is in it."""
    tops = {entry.resolve() for entry in (root / LINKS).iterdir()}
    return sorted(top for top in tops if top.is_dir() and not tops.intersection(top.parents))


def lines(root):
    for entry in sorted((root / LINKS).iterdir()):
        yield entry_line(root, entry)
    for top in usb_directories(root):
        for path in [top, *sorted(top.rglob("*"))]:
            yield entry_line(root, path)


def entry_line(root, path):
    name = escape(bytes(pathlib.Path("/") / path.relative_to(root)), blanks=True)
    if path.is_symlink():
        return f"link {name} {escape(bytes(path.readlink()), blanks=True)}"
    if path.is_dir():
        return f"dir {name}"
    return f"file {name} {escape(path.read_bytes())}"


def unpack_row(recordings, row, output):
    files = sorted(path for path in recordings.glob(row) if path.is_file())
    if not files:
        raise FileNotFoundError(row)
    with tempfile.TemporaryDirectory() as folder:
        root = unpack(recordings / TOOL, files, pathlib.Path(folder).resolve())
        name = re.sub(r"[^A-Za-z0-9]+", "_", row).strip("_")
        (output / f"{name}.txt").write_text("\n".join(lines(root)) + "\n", encoding="ascii")


def unpack_all(recordings, output):
    with open(recordings / "INDEX.tsv", newline="", encoding="utf-8") as index:
        rows = [row["file"] for row in csv.DictReader(index, delimiter="\t")]
    for old in output.glob("*.txt"):
        old.unlink()
    with multiprocessing.Pool() as pool:
        pool.starmap(unpack_row, [(recordings, row, output) for row in rows])


def main(recordings, output):
    made_by = hashlib.sha256()
    for source in (pathlib.Path(__file__), recordings / TOOL, recordings / "INDEX.tsv"):
        made_by.update(source.read_bytes())
    output.mkdir(parents=True, exist_ok=True)
    with open(output / ".made-by", "a+", encoding="ascii") as stamp:
        fcntl.flock(stamp, fcntl.LOCK_EX)
        stamp.seek(0)
        if stamp.read() == made_by.hexdigest():
            return
        stamp.truncate(0)
        unpack_all(recordings, output)
        stamp.write(made_by.hexdigest())


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]))
