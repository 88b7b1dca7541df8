"""Which libcrypto a loaded library uses. The client and libmarvo must use the same one."""

from __future__ import annotations

import ctypes
import sys
from ctypes import c_char_p, c_int, c_ubyte, c_void_p
from typing import Optional

from ._errors import LibcryptoError

if sys.platform == "win32":
    from ._libcrypto_win import file_of_libcrypto, libcrypto_of
else:
    from ._libcrypto_posix import file_of_libcrypto, libcrypto_of


def check_one_libcrypto(library: ctypes.CDLL, libssl: ctypes.CDLL) -> None:
    """Fails unless libmarvo and the client's libssl use the same libcrypto."""
    ours, theirs = _file_of(library, "the library"), _file_of(libssl, "the client's libssl")
    if ours != theirs:
        raise LibcryptoError(f"the client's libssl uses {theirs}, but the library uses {ours}")


def certificate_to_der(library: ctypes.CDLL, certificate: int) -> bytes:
    encode = libcrypto_of(library)["i2d_X509"]
    encode.restype, encode.argtypes = c_int, (c_void_p, c_void_p)
    size = encode(certificate, None)
    if size <= 0:
        raise LibcryptoError("OpenSSL cannot encode the certificate")
    der = (c_ubyte * size)()
    encode(certificate, ctypes.byref(c_void_p(ctypes.addressof(der))))
    return bytes(der)


def restore_default_methods(library: ctypes.CDLL, engine_id: bytes) -> None:
    """Removes the loaded engine from OpenSSL's defaults for other keys."""
    libcrypto = libcrypto_of(library)
    find, free = libcrypto["ENGINE_by_id"], libcrypto["ENGINE_free"]
    find.restype, find.argtypes = c_void_p, (c_char_p,)
    free.restype, free.argtypes = c_int, (c_void_p,)
    engine = find(engine_id)
    if not engine:
        raise LibcryptoError(f"OpenSSL has no engine '{engine_id.decode()}'")
    for methods in ("RSA", "EC", "pkey_meths"):
        unregister = libcrypto[f"ENGINE_unregister_{methods}"]
        unregister.restype, unregister.argtypes = None, (c_void_p,)
        unregister(engine)
    free(engine)


def _file_of(library: ctypes.CDLL, user: str) -> str:
    file: Optional[str] = file_of_libcrypto(library)
    if file is None:
        raise LibcryptoError(f"{user} ({library._name}) is not linked to libcrypto dynamically")
    return file
