"""Sets a loaded key in an SSL_CTX of the client."""

from __future__ import annotations

import ctypes
import sys
from ctypes import c_char_p, c_int, c_long, c_size_t, c_ulong, c_void_p
from typing import List, Optional

from ._errors import TlsError

if sys.platform == "win32":
    from ._libcrypto_win import libcrypto_of
else:
    from ._libcrypto_posix import libcrypto_of

# Control numbers and values of <openssl/ssl.h> and <openssl/tls1.h>.
_SET_MAX_PROTO_VERSION = 124
_SET_CLIENT_SIGALGS_LIST = 102
_TLS1_2_VERSION = 0x0303


def use_key(libssl: ctypes.CDLL, ssl_ctx: int, private_key: int, certificate: int, uses_cryptoapi: bool) -> None:
    """The SSL_CTX takes references of its own, which must end before the library frees the key."""
    # libssl["NAME"] is a function object of our own: the caller's may have other types.
    _set(libssl, "SSL_CTX_use_certificate", ssl_ctx, certificate)
    _set(libssl, "SSL_CTX_use_PrivateKey", ssl_ctx, private_key)
    if uses_cryptoapi:
        # OpenSSL's CryptoAPI engine signs only with PKCS#1 v1.5, which TLS 1.3 does not allow.
        _control(libssl, ssl_ctx, _SET_MAX_PROTO_VERSION, _TLS1_2_VERSION, None)
        _control(libssl, ssl_ctx, _SET_CLIENT_SIGALGS_LIST, 0, b"RSA+SHA256:RSA+SHA384:RSA+SHA512")


def _set(libssl: ctypes.CDLL, name: str, ssl_ctx: int, value: int) -> None:
    function = libssl[name]
    function.restype, function.argtypes = c_int, (c_void_p, c_void_p)
    if function(ssl_ctx, value) != 1:
        raise TlsError(_failure(libssl, f"{name}()"))


def _control(libssl: ctypes.CDLL, ssl_ctx: int, command: int, number: int, text: Optional[bytes]) -> None:
    function = libssl["SSL_CTX_ctrl"]
    function.restype, function.argtypes = c_long, (c_void_p, c_int, c_long, c_char_p)
    if function(ssl_ctx, command, number, text) != 1:
        raise TlsError(_failure(libssl, f"SSL_CTX_ctrl({command})"))


def _failure(libssl: ctypes.CDLL, what: str) -> str:
    return "\n".join([f"{what} failed", *error_queue(libssl)])


def error_queue(libssl: ctypes.CDLL) -> List[str]:
    """Empties OpenSSL's error queue of this thread."""
    libcrypto = libcrypto_of(libssl)
    get_error, describe = libcrypto["ERR_get_error"], libcrypto["ERR_error_string_n"]
    get_error.restype, get_error.argtypes = c_ulong, ()
    describe.restype, describe.argtypes = None, (c_ulong, c_char_p, c_size_t)
    lines = []
    while (code := get_error()) != 0:
        line = ctypes.create_string_buffer(256)
        describe(code, line, len(line))
        lines.append(line.value.decode("utf-8", "replace"))
    return lines
