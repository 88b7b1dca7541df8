"""TLS client authentication with smart cards, through libmarvo.

The package calls the library by ctypes. Importing it does not load the library; opening a Session does.
"""

from ._errors import Error, LibcryptoError, LibraryError, OperationError, PinRequiredError, TlsError
from ._session import Key, LoadedKey, LogFileWarning, Session
from ._settings import CryptoIf, Settings
from ._tls import error_queue

__all__ = [
    "CryptoIf",
    "Error",
    "Key",
    "LibcryptoError",
    "LibraryError",
    "LoadedKey",
    "LogFileWarning",
    "OperationError",
    "PinRequiredError",
    "Session",
    "Settings",
    "TlsError",
    "error_queue",
]
