"""The binary interface of the library: objects whose first word points to a table of functions.

Both calling conventions of 64-bit systems are the default ones of ctypes, on Linux and on Windows.
"""

from __future__ import annotations

import ctypes
import os
import sys
from ctypes import POINTER, c_bool, c_char_p, c_int, c_size_t, c_uint, c_void_p
from typing import Any, NamedTuple, Optional, Sequence, Union

from ._errors import LibraryError

INTERFACE_VERSION = 4
PATH_VARIABLE = "MARVO_LIBRARY"

PathLike = Union[str, "os.PathLike[str]"]


class Operation(NamedTuple):
    """One entry of a table. The first argument, the object itself, is not listed."""

    name: str
    result: Any
    arguments: Sequence[Any]


IF_OPERATIONS = (
    Operation("version_check", c_int, (c_uint,)),
    Operation("get_config_default", c_void_p, ()),
    Operation("get_config_used", c_void_p, ()),
    Operation("init", c_int, (c_void_p,)),
    Operation("read_scard", c_int, ()),
    Operation("is_pin_required", c_bool, ()),
    Operation("set_pin", c_int, (c_void_p,)),
    Operation("discover_keys", c_int, (POINTER(c_size_t),)),
    Operation("get_key_name", c_char_p, (c_size_t,)),
    Operation("set_key_by_id", c_int, (c_uint, c_char_p)),
    Operation("set_key_by_number", c_int, (c_size_t,)),
    Operation("notify_config_done", c_int, ()),
    Operation("ossl_load", c_int, ()),
    Operation("ossl_unload", c_int, ()),
    Operation("ossl_get_private_key", c_int, (POINTER(c_void_p),)),
    Operation("ossl_get_certificate", c_int, (POINTER(c_void_p),)),
    Operation("destructor", c_void_p, (c_uint,)),
    Operation("get_version", c_char_p, ()),
    Operation("destroy", None, ()),
    Operation("get_last_error_msg", c_char_p, ()),
    Operation("select_key_from_console", c_int, (POINTER(c_size_t),)),
)


def _text(setting: str) -> tuple[Operation, Operation]:
    return Operation(f"set_{setting}", None, (c_char_p,)), Operation(f"get_{setting}", c_char_p, ())


def _number(setting: str) -> tuple[Operation, Operation]:
    return Operation(f"set_{setting}", None, (c_uint,)), Operation(f"get_{setting}", c_uint, ())


CFG_OPERATIONS = (
    Operation("destructor", c_void_p, (c_uint,)),
    Operation("clone", c_void_p, ()),
    # The back-end is passed by address, in both directions.
    Operation("set_crypto_if", None, (POINTER(c_uint),)),
    Operation("get_crypto_if", POINTER(c_uint), ()),
    *_text("capi_openssl_engine_dll"),
    *_text("capi_csp_name"),
    *_number("capi_key_type"),
    *_text("pkcs11_openssl_engine_dll"),
    *_text("pkcs11_module_dll"),
    *_text("capi_store_openssl_engine_dll"),
    *_text("capi_store_cert_store_name"),
    *_text("priv_key_name"),
    *_text("cert_name"),
    *_number("kuse_filter_type"),
    *_number("kuse_filter"),
    *_number("xkuse_filter_type"),
    *_text("xkuse_nid_filter"),
    *_text("logfile"),
    *_number("logfile_severity"),
    Operation("enable_logfile_append", None, ()),
    Operation("disable_logfile_append", None, ()),
    Operation("get_logfile_append", c_bool, ()),
    Operation("get_crypto_if_description", c_void_p, (c_uint, c_void_p, c_size_t)),
    Operation("dump_settings", c_void_p, (c_void_p, c_size_t)),
    Operation("select_crypto_if_from_console", c_int, (POINTER(c_uint),)),
)


class TableObject:
    """An object of the library, whose operations are called by name."""

    def __init__(self, address: int, operations: Sequence[Operation]) -> None:
        self.address = address
        table = ctypes.cast(address, POINTER(POINTER(c_void_p))).contents
        self._functions = {
            operation.name: ctypes.CFUNCTYPE(operation.result, c_void_p, *operation.arguments)(table[index])
            for index, operation in enumerate(operations)
        }

    def call(self, operation: str, *arguments: Any) -> Any:
        return self._functions[operation](self.address, *arguments)


def encode(text: str) -> bytes:
    """Windows passes texts in the code page of the process; other systems in UTF-8."""
    if "\0" in text:
        raise ValueError("the text contains a zero byte")
    return text.encode("mbcs") if sys.platform == "win32" else text.encode("utf-8", "surrogateescape")


def decode(text: Optional[bytes]) -> str:
    """The inverse of encode(). On Linux, bytes that are not UTF-8 survive the way back into the library."""
    if text is None:
        return ""
    if sys.platform == "win32":
        return text.decode("mbcs", "replace")
    return text.decode("utf-8", "surrogateescape")


def library_path(path: Optional[PathLike] = None) -> str:
    """The argument, else the environment variable, else the name for which the system's loader searches."""
    default = "libmarvo-4.dll" if sys.platform == "win32" else "libmarvo-4.so"
    return os.fspath(path) if path is not None else os.environ.get(PATH_VARIABLE) or default


def load_library(path: Optional[PathLike] = None) -> ctypes.CDLL:
    """Loads the library. It stays in the process, as the library itself requires."""
    name = library_path(path)
    try:
        library = ctypes.CDLL(name)
    except OSError as error:
        raise LibraryError(f"cannot load the library '{name}': {error}") from error
    try:
        library.get_ossl_scard_if.restype = c_void_p
    except AttributeError as error:
        raise LibraryError(f"'{name}' is not libmarvo: it does not export get_ossl_scard_if") from error
    return library
