# SPDX-License-Identifier: MIT
"""What a story's outcome is judged by, read without any of the product's code.

Units are 64 KiB of the cached device: bit b of a bitmap, least significant bit first in its byte,
is unit b. Sectors are 512 bytes.
"""
import fcntl
import json
import os
import struct
import time
from typing import NamedTuple

SECTOR = 512
UNIT = 65536
UNIT_SECTORS = UNIT // SECTOR
BITMAP_FILE = "quorcachepinfile.bitmap"

_FIEMAP = 0xC020660B
_FIEMAP_HEAD = struct.Struct("=QQIIII")   # start, length, flags, mapped, room, reserved
_FIEMAP_EXTENT = struct.Struct("=QQQ2QI3I")  # logical, physical, length, -, flags, -
_LAST, _UNKNOWN, _DELAYED, _UNWRITTEN = 0x1, 0x2, 0x4, 0x800
_NOT_ON_DEVICE = _UNKNOWN | _DELAYED | 0x8 | 0x100 | 0x200  # encoded, not aligned, inline
_AT_A_TIME = 64


class Extent(NamedTuple):
    file_sector: int    # where in the file it begins
    device_sector: int  # where on the volume's block device it begins
    sectors: int        # how long it is
    unwritten: bool     # has a place on the device and was never written


def _map(descriptor, start):
    """One answer of the kernel: up to _AT_A_TIME raw extents at or after byte `start`."""
    room = bytearray(_FIEMAP_HEAD.size + _AT_A_TIME * _FIEMAP_EXTENT.size)
    _FIEMAP_HEAD.pack_into(room, 0, start, 2**64 - 1 - start, 0, 0, _AT_A_TIME, 0)
    fcntl.ioctl(descriptor, _FIEMAP, room)
    mapped = _FIEMAP_HEAD.unpack_from(room)[3]
    for index in range(mapped):
        logical, physical, length, _, _, flags, *_ = _FIEMAP_EXTENT.unpack_from(
            room, _FIEMAP_HEAD.size + index * _FIEMAP_EXTENT.size)
        yield logical, physical, length, flags


def extents(path):
    """The extents of a file that have a place on the device, in file order."""
    found, start, more = [], 0, True
    with open(path, "rb") as file:
        while more:
            answer = list(_map(file, start))
            more = bool(answer) and not answer[-1][3] & _LAST
            for logical, physical, length, flags in answer:
                start = logical + length
                if not flags & _NOT_ON_DEVICE:
                    found.append(Extent(logical // SECTOR, physical // SECTOR, length // SECTOR,
                                        bool(flags & _UNWRITTEN)))
    return found


def units(paths):
    """The set of units in which the files at `paths` have data."""
    return {unit for path in paths for extent in extents(path)
            for unit in range(extent.device_sector // UNIT_SECTORS,
                              (extent.device_sector + extent.sectors - 1) // UNIT_SECTORS + 1)}


def ranges(paths):
    """[start sector, number of sectors] of every extent: what releasing the files must hand over."""
    return [[extent.device_sector, extent.sectors] for path in paths for extent in extents(path)]


def bits(raw):
    """The set of bits that are 1 in the bytes of a bitmap."""
    return {8 * index + bit for index, byte in enumerate(raw) if byte
            for bit in range(8) if byte >> bit & 1}


def bitmap_bytes(device_size):
    """Length of the bitmap of a device of `device_size` bytes."""
    return device_size >> 19


def bitmap_file(mount_path):
    """The raw bytes of the volume's bitmap file, or None when it has none."""
    try:
        with open(os.path.join(mount_path, BITMAP_FILE), "rb") as file:
            return file.read()
    except FileNotFoundError:
        return None


def pinned_bits(mount_path):
    """The set of bits in the volume's bitmap file; empty when there is no such file."""
    return bits(bitmap_file(mount_path) or b"")


def configuration(path):
    """The configuration file as a document, or None while there is none.

    The service rewrites the file in place, so one that is met half written is read again.
    """
    for last in [False] * 100 + [True]:
        try:
            with open(path, encoding="utf-8", errors="surrogateescape") as file:
                return json.load(file)
        except FileNotFoundError:
            return None
        except ValueError:
            if last:
                raise
            time.sleep(0.01)


def pinned_files(path, mount_path):
    """{inode number as text: relative path} that the configuration file lists for the volume."""
    volumes = (configuration(path) or {}).get("volumes") or {}
    return volumes.get(mount_path, {}).get("files", {})


def listing(mount_path, paths):
    """What `pinned_files` must be when exactly `paths` are pinned."""
    return {str(os.stat(path).st_ino % 2**32): os.path.relpath(path, mount_path) for path in paths}
