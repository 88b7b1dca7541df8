"""The exceptions of the package."""

from __future__ import annotations


class Error(Exception):
    """The base of every exception that this package defines."""


class LibraryError(Error):
    """The library cannot be loaded, or is not libmarvo."""


class OperationError(Error):
    """An operation of the library failed. The text is the library's own."""

    def __init__(self, operation: str, status: int, text: str) -> None:
        super().__init__(text or f"{operation} failed with status {status}")
        self.operation = operation
        self.status = status


class PinRequiredError(Error):
    """The card needs a PIN, and none was set, or one with which keys() or load() has failed.

    The card was not asked, so this costs none of its tries.
    """

    def __init__(self, has_failed: bool = False) -> None:
        failed = ", and the one that was set is not used again after a failure; call set_pin() again"
        super().__init__("the card needs a PIN" + (failed if has_failed else "; call set_pin() first"))


class LibcryptoError(Error):
    """The client and the library do not use the same libcrypto."""


class TlsError(Error):
    """A function of the client's libssl failed. The text has the lines of OpenSSL's error queue."""
