"""Uses a loaded key in a context of pyOpenSSL, and so in urllib3 and requests.

pyOpenSSL and the library must use the same libcrypto. This is the case for the packages of Linux distributions.
The wheels of the package cryptography contain a libcrypto of their own, which use_key() refuses.
"""

from __future__ import annotations

import ctypes
import importlib
from typing import Any

from ._session import LoadedKey


def use_key(context: Any, loaded: LoadedKey) -> None:
    """Sets key and certificate in an OpenSSL.SSL.Context; see LoadedKey.use_in()."""
    from OpenSSL import SSL

    # pyOpenSSL has no public access to its SSL_CTX, nor to the file of its bindings.
    pointer = int(SSL._ffi.cast("uintptr_t", context._context))
    loaded.use_in(pointer, _bindings())


def _bindings() -> ctypes.CDLL:
    """The extension module of the package cryptography that is linked to libssl."""
    folder = "cryptography.hazmat.bindings"
    try:
        module = importlib.import_module(f"{folder}._openssl")
    except ImportError:
        module = importlib.import_module(f"{folder}._rust")  # since cryptography 40
    return ctypes.CDLL(module.__file__)
