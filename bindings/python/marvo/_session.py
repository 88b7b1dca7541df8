"""A session with the library, from its start to its end."""

from __future__ import annotations

import ctypes
import dataclasses
import enum
import warnings
from types import TracebackType
from typing import Any, List, Optional, Type

from . import _abi
from ._errors import Error, LibraryError, OperationError, PinRequiredError
from ._libcrypto import certificate_to_der, check_one_libcrypto, restore_default_methods
from ._pin import Pin, PinText
from ._settings import CryptoIf, Settings
from ._tls import use_key


class _PinState(enum.Enum):
    NONE = enum.auto()
    SET = enum.auto()
    FAILED = enum.auto()  # a call that logs in has failed with the PIN


class LogFileWarning(UserWarning):
    """The log file cannot be opened. The session works without it."""


@dataclasses.dataclass(frozen=True)
class Key:
    """A private key that Session.keys() found.

    Store the id and the type, not the number: the number may differ in the next run. The id is None if the
    library cannot select the key; Session.load() then reports the reason.
    """

    number: int
    name: str
    id: Optional[str]
    type: int
    listing: int = dataclasses.field(repr=False, compare=False, default=0)


class LoadedKey:
    """The loaded private key and its certificate, until the session unloads them or ends."""

    def __init__(self, session: "Session", private_key: int, certificate: int) -> None:
        self._session = session
        self._private_key = private_key
        self._certificate = certificate

    @property
    def private_key(self) -> int:
        """The address of OpenSSL's EVP_PKEY. The library owns the object."""
        self._require_loaded()
        return self._private_key

    @property
    def certificate(self) -> int:
        """The address of OpenSSL's X509. The library owns the object."""
        self._require_loaded()
        return self._certificate

    def certificate_der(self) -> bytes:
        """The certificate in DER format, for example for the package cryptography."""
        return certificate_to_der(self._session.loaded_library, self.certificate)

    def use_in(self, ssl_ctx: int, libssl: ctypes.CDLL) -> None:
        """Sets key and certificate in an SSL_CTX of libssl, and what keys of CryptoAPI need besides.

        Fails if libssl and the library do not use the same libcrypto. Free the SSL_CTX and what was made from
        it before the session unloads the key or ends.
        """
        private_key, certificate = self.private_key, self.certificate
        check_one_libcrypto(self._session.loaded_library, libssl)
        uses_cryptoapi = self._session.crypto_if != CryptoIf.PKCS11
        use_key(libssl, ssl_ctx, private_key, certificate, uses_cryptoapi)

    def _require_loaded(self) -> None:
        if self._session.loaded is not self:
            raise Error("the key is no longer loaded")


class Session:
    """The library in this process. Only one session can be open at a time; use it from one thread at a time.

    Use it in a "with" block, or call close(). Opening loads the library: from the argument "library", else from
    the path in the environment variable MARVO_LIBRARY, else from where the system's loader finds it.
    """

    _current: Optional["Session"] = None

    def __init__(self, settings: Optional[Settings] = None, *, library: Optional[_abi.PathLike] = None) -> None:
        if Session._current is not None:
            raise Error("this process has an open session already")
        self.loaded_library = _abi.load_library(library)
        self.loaded: Optional[LoadedKey] = None
        self._pin = _PinState.NONE
        self._is_card_read = False
        self._listing = 0
        self._init_error = ""
        self._if: Optional[_abi.TableObject] = self._create_object()
        Session._current = self
        try:
            self._check("version_check", _abi.INTERFACE_VERSION)
            cfg = self._cfg("get_config_default")
            (settings or Settings()).apply_to(cfg)
            self._init(cfg)
        except BaseException:
            self.close()
            raise

    def __enter__(self) -> "Session":
        return self

    def __exit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        self.close()

    def close(self) -> None:
        """Unloads the key and ends the session. First free every TLS object that uses the key."""
        if self._if is None:
            return
        self.loaded = None
        interface, self._if = self._if, None
        Session._current = None
        interface.call("destroy")

    @property
    def version(self) -> str:
        """The version of the library, such as "4.3.0"."""
        return _abi.decode(self._call("get_version"))

    @property
    def crypto_if(self) -> int:
        """The back-end in use, which the environment may have changed: a value of CryptoIf, or any other."""
        return int(self._cfg("get_config_used").call("get_crypto_if").contents.value)

    @property
    def pin_required(self) -> bool:
        """Whether the card that read_card() found needs a PIN from set_pin()."""
        return bool(self._call("is_pin_required"))

    def read_card(self) -> None:
        """Finds the card. Earlier keys become invalid; a PIN that was set stays set if the card needs one."""
        self._listing += 1
        self._is_card_read = False
        status = self._call("read_scard")
        if status != 0:
            error = self._error("read_scard", status)
            raise OperationError("init", status, f"{self._init_error}\n{error}") if self._init_error else error
        if self._init_error:
            # Only the log file has failed: otherwise, the state would not allow read_scard().
            warnings.warn(self._init_error, LogFileWarning, stacklevel=2)
            self._init_error = ""
        self._is_card_read = True
        if not self.pin_required:
            self._pin = _PinState.NONE  # the library has cleared its copy

    def set_pin(self, pin: Pin) -> None:
        """Stores a copy of the PIN in the library, and overwrites a bytearray with zeros.

        First reads the card again: with some versions of libp11, keys() would not return if the card was removed
        while the user typed the PIN. A PIN for a card that needs none is not stored: it belongs to another card. The
        card checks the PIN in keys() and load(). After a failure of these, the PIN counts as wrong and is not used
        again.
        """
        with PinText(pin) as text:
            if not pin:
                raise ValueError("the PIN is empty")
            self.read_card()
            if not self.pin_required:
                return
            self._pin = _PinState.NONE
            self._check("set_pin", text)
            self._pin = _PinState.SET

    def keys(self) -> List[Key]:
        """Logs in if the card needs a PIN, and returns the keys whose certificates pass the filter.

        Call read_card() before.
        """
        self._require_pin()
        self._listing += 1
        count = ctypes.c_size_t()
        self._check_login("discover_keys", ctypes.byref(count))
        used = self._cfg("get_config_used")
        names = {name: used.call(f"get_{name}") for name in ("priv_key_name", "cert_name", "capi_key_type")}
        try:
            return [self._describe(number, used) for number in range(count.value)]
        finally:
            for name, value in names.items():
                used.call(f"set_{name}", value)

    def find_key(self, key_id: str, key_type: int = 0) -> Key:
        """Returns the first key of keys() with that id and type."""
        for key in self.keys():
            if (key.id, key.type) == (key_id, key_type):
                return key
        raise Error(f"the card has no suitable key with the id '{key_id}' and the type {key_type}")

    def load(self, key: Optional[Key] = None, *, openssl_defaults: bool = False) -> LoadedKey:
        """Loads a key of the last keys() with its certificate, or, without one, the key that the settings name.

        Call read_card() before, also to load again. At each load, the library makes the engine OpenSSL's default for all
        keys of the process. With openssl_defaults, keys that are not on the card use OpenSSL itself again.
        """
        self._require_pin()
        if key is not None:
            if key.listing != self._listing:
                raise Error("the key is from an earlier listing; call keys() again")
            self._check("set_key_by_number", key.number)
        self._check("notify_config_done")
        self.loaded = None  # the library frees what it loaded before
        self._check_login("ossl_load")
        self.loaded = LoadedKey(self, self._pointer("ossl_get_private_key"), self._pointer("ossl_get_certificate"))
        if openssl_defaults:
            is_pkcs11 = self.crypto_if == CryptoIf.PKCS11
            restore_default_methods(self.loaded_library, b"pkcs11" if is_pkcs11 else b"capi")
        return self.loaded

    def unload(self) -> None:
        """Frees the key and the certificate. First free every TLS object that uses the key."""
        self.loaded = None
        self._check("ossl_unload")

    def _create_object(self) -> _abi.TableObject:
        address = self.loaded_library.get_ossl_scard_if()
        if not address:
            raise LibraryError("the library returned no object")
        return _abi.TableObject(address, _abi.IF_OPERATIONS)

    def _init(self, cfg: _abi.TableObject) -> None:
        # init() also fails if only the log file cannot be opened. read_card() finds out.
        status = self._call("init", cfg.address)
        if status != 0:
            self._init_error = str(self._error("init", status))

    def _require_pin(self) -> None:
        # Only a card that was read says whether it needs a PIN.
        if not self._is_card_read:
            raise Error("no card was read")
        if self.pin_required and self._pin != _PinState.SET:
            raise PinRequiredError(has_failed=self._pin == _PinState.FAILED)

    def _check_login(self, operation: str, *arguments: Any) -> None:
        """Every try with a wrong PIN costs one of the card's tries, so a PIN is not used again after a failure."""
        try:
            self._check(operation, *arguments)
        except OperationError:
            if self._pin == _PinState.SET:
                self._pin = _PinState.FAILED
            raise

    def _describe(self, number: int, used: _abi.TableObject) -> Key:
        """Selects the key, because the settings in use then contain its id and type."""
        name = _abi.decode(self._call("get_key_name", number))
        if self._call("set_key_by_number", number) != 0:
            return Key(number, name, None, 0, self._listing)
        uri = _abi.decode(used.call("get_priv_key_name"))
        crypto_if = self.crypto_if
        key_id = _id_in_uri(uri) if crypto_if == CryptoIf.PKCS11 else uri
        key_type = used.call("get_capi_key_type") if crypto_if == CryptoIf.CAPI else 0
        return Key(number, name, key_id, key_type, self._listing)

    def _pointer(self, operation: str) -> int:
        pointer = ctypes.c_void_p()
        self._check(operation, ctypes.byref(pointer))
        if not pointer.value:
            raise Error(f"{operation} returned no object")
        return pointer.value

    def _cfg(self, operation: str) -> _abi.TableObject:
        return _abi.TableObject(self._call(operation), _abi.CFG_OPERATIONS)

    def _call(self, operation: str, *arguments: Any) -> Any:
        if self._if is None:
            raise Error("the session is closed")
        return self._if.call(operation, *arguments)

    def _error(self, operation: str, status: int) -> OperationError:
        return OperationError(operation, status, _abi.decode(self._call("get_last_error_msg")))

    def _check(self, operation: str, *arguments: Any) -> None:
        status = self._call(operation, *arguments)
        if status != 0:
            raise self._error(operation, status)


def _id_in_uri(uri: str) -> str:
    """The label of the token may contain anything, the id only "%", digits and letters."""
    return uri.rpartition(";id=")[2].partition(";")[0]
