"""The settings of the library."""

from __future__ import annotations

import ctypes
import dataclasses
import enum
from typing import Any, Optional

from ._abi import TableObject, encode


class CryptoIf(enum.IntEnum):
    """The back-end that reads the keys."""

    CAPI = 1
    PKCS11 = 2
    CAPI_STORE = 3


@dataclasses.dataclass(frozen=True)
class Settings:
    """What to set before the library starts; None keeps its default.

    docs/settings.md describes each setting. The environment (ossl_scard_cfg_...) overrides them.
    """

    crypto_if: Optional[CryptoIf] = None
    capi_openssl_engine_dll: Optional[str] = None
    capi_csp_name: Optional[str] = None
    capi_key_type: Optional[int] = None
    pkcs11_openssl_engine_dll: Optional[str] = None
    pkcs11_module_dll: Optional[str] = None
    capi_store_openssl_engine_dll: Optional[str] = None
    capi_store_cert_store_name: Optional[str] = None
    priv_key_name: Optional[str] = None
    cert_name: Optional[str] = None
    kuse_filter_type: Optional[int] = None
    kuse_filter: Optional[int] = None
    xkuse_filter_type: Optional[int] = None
    xkuse_nid_filter: Optional[str] = None
    logfile: Optional[str] = None
    logfile_severity: Optional[int] = None
    logfile_append: Optional[bool] = None

    def apply_to(self, cfg: TableObject) -> None:
        for field in dataclasses.fields(self):
            value = getattr(self, field.name)
            if value is not None:
                _apply(cfg, field.name, value)


def _apply(cfg: TableObject, name: str, value: Any) -> None:
    if name == "crypto_if":
        cfg.call("set_crypto_if", ctypes.byref(ctypes.c_uint(CryptoIf(value))))
    elif name == "logfile_append":
        cfg.call("enable_logfile_append" if value else "disable_logfile_append")
    else:
        cfg.call(f"set_{name}", encode(value) if isinstance(value, str) else value)
