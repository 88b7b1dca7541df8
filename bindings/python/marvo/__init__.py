"""TLS client authentication with smart cards, through libmarvo.

The package calls the library by ctypes. Importing it does not load the library.
"""

from ._errors import Error, LibcryptoError, LibraryError, OperationError, PinRequiredError, TlsError
from ._tls import error_queue

__all__ = [
    "Error",
    "LibcryptoError",
    "LibraryError",
    "OperationError",
    "PinRequiredError",
    "TlsError",
    "error_queue",
]
