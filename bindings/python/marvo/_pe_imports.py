"""Reads the names of the DLLs that a 64-bit Windows file imports."""

from __future__ import annotations

import struct
from typing import Iterator, List, NamedTuple

_IMPORTS = 1  # index in the data directories
_DESCRIPTOR_SIZE = 20


class Section(NamedTuple):
    address: int
    size: int  # in the file
    offset: int


def imported_dlls(image: bytes) -> List[str]:
    """Returns no names if the file imports nothing; raises ValueError if it is not a 64-bit Windows file."""
    try:
        return list(_read(image))
    except (struct.error, IndexError) as error:
        raise ValueError("the file is not a complete Windows file") from error


def _read(image: bytes) -> Iterator[str]:
    (pe,) = struct.unpack_from("<I", image, 0x3C)
    if image[:2] != b"MZ" or image[pe : pe + 4] != b"PE\0\0":
        raise ValueError("the file is not a complete Windows file")
    num_sections, optional_size = struct.unpack_from("<H12xH", image, pe + 6)
    optional = pe + 24
    if struct.unpack_from("<H", image, optional) != (0x20B,):
        raise ValueError("the file is not a 64-bit Windows file")
    (imports,) = struct.unpack_from("<I", image, optional + 112 + 8 * _IMPORTS)
    if imports == 0:
        return
    sections: List[Section] = [
        Section._make(struct.unpack_from("<III", image, optional + optional_size + 40 * i + 12))
        for i in range(num_sections)
    ]
    descriptor = _offset(imports, sections)
    while True:
        (name,) = struct.unpack_from("<I", image, descriptor + 12)
        if name == 0:
            return
        start = _offset(name, sections)
        yield image[start:].split(b"\0", 1)[0].decode("ascii", "replace")
        descriptor += _DESCRIPTOR_SIZE


def _offset(address: int, sections: List[Section]) -> int:
    for section in sections:
        if section.address <= address < section.address + section.size:
            return address - section.address + section.offset
    raise IndexError("address outside of the sections")
