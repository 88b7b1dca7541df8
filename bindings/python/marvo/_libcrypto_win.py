"""Finds the libcrypto of a DLL on Windows, which loads one DLL of a name for all its importers."""

from __future__ import annotations

import ctypes
from typing import Optional

from ._errors import LibcryptoError
from ._pe_imports import imported_dlls

_LONGEST_PATH = 32768


def libcrypto_of(library: ctypes.CDLL) -> ctypes.CDLL:
    name = file_of_libcrypto(library)
    if name is None:
        raise LibcryptoError(f"{library._name} is not linked to libcrypto dynamically")
    return ctypes.CDLL(name)


def file_of_libcrypto(library: ctypes.CDLL) -> Optional[str]:
    """The name of the libcrypto that the DLL imports, in lower case."""
    kernel32 = ctypes.WinDLL("kernel32")
    path = ctypes.create_unicode_buffer(_LONGEST_PATH)
    kernel32.GetModuleFileNameW(ctypes.c_void_p(library._handle), path, len(path))
    with open(path.value, "rb") as file:
        names = [name.lower() for name in imported_dlls(file.read())]
    return next((name for name in names if name.startswith("libcrypto")), None)
