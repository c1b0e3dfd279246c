# SPDX-License-Identifier: Apache-2.0
"""A disk of which every write is recorded, in its order, and what is on it after any of them.

The record is the emulator's (its driver blklogwrites), in the format of the kernel's dm-log-writes:
a sector with the head, then for each write a sector that tells of it, and its data.
"""

import struct

SECTOR = 512
MAGIC = 0x6A736677736872
HEAD = struct.Struct("<QQQI")
ENTRY = struct.Struct("<QQQQ")  # sector, sectors, flags, bytes
DISCARD = 4
LOG_BYTES = 1 << 30  # at most; the file has holes


def recorded_disk(image, log):
    """The emulator's arguments for a disk with the image's content."""
    with open(log, "wb") as file:
        file.truncate(LOG_BYTES)
    return ("-blockdev", f"driver=file,filename={image},node-name=image",
            "-blockdev", f"driver=file,filename={log},node-name=log",
            "-blockdev", f"driver=blklogwrites,file=image,log=log,log-sector-size={SECTOR},node-name=recorded",
            "-device", "virtio-blk-pci,romfile=,drive=recorded")


def plain_disk(image):
    return ("-blockdev", f"driver=file,filename={image},node-name=image",
            "-device", "virtio-blk-pci,romfile=,drive=image")


def writes(log):
    """What has been written up to now: (offset, data or None for what was discarded, length)."""
    found = []
    with open(log, "rb") as file:
        magic, _, number, sector = HEAD.unpack(file.read(HEAD.size))
        assert (magic, sector) == (MAGIC, SECTOR), "this is no record of a disk"
        at = SECTOR
        for _ in range(number):
            file.seek(at)
            start, count, flags, size = ENTRY.unpack(file.read(ENTRY.size))
            at += SECTOR
            if flags & DISCARD:
                found.append((start * SECTOR, None, count * SECTOR))
            elif count:
                file.seek(at)
                found.append((start * SECTOR, file.read(count * SECTOR), count * SECTOR))
                at += count * SECTOR
            assert size in (0, count * SECTOR)
    return found


class Replay:
    """A disk that begins as `image` was and takes one recorded write after the other."""

    def __init__(self, image):
        self._content = bytearray(image)

    def take(self, write):
        offset, data, length = write
        self._content[offset:offset + length] = data if data is not None else bytes(length)

    def put(self, path):
        """Makes it the content of a file that is there already, and may be open."""
        with open(path, "r+b") as file:
            file.write(self._content)
