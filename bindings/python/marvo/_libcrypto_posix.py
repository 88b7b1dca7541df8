"""Finds the libcrypto of a library on systems whose loader also searches the library's dependencies."""

from __future__ import annotations

import ctypes
import os
from ctypes import c_char_p, c_int, c_void_p
from typing import Optional


class _Place(ctypes.Structure):
    _fields_ = [("file", c_char_p), ("base", c_void_p), ("name", c_char_p), ("address", c_void_p)]


def libcrypto_of(library: ctypes.CDLL) -> ctypes.CDLL:
    """A function of libcrypto is found through the library that is linked to it."""
    return library


def file_of_libcrypto(library: ctypes.CDLL) -> Optional[str]:
    try:
        function = libcrypto_of(library)["OPENSSL_init_crypto"]
    except AttributeError:
        return None
    place = _Place()
    dladdr = ctypes.CDLL(None)["dladdr"]
    dladdr.restype, dladdr.argtypes = c_int, (c_void_p, c_void_p)
    if dladdr(ctypes.cast(function, c_void_p), ctypes.byref(place)) == 0:
        return None
    return os.path.realpath(os.fsdecode(place.file))
