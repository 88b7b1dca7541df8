"""The PIN as a text that can be overwritten."""

from __future__ import annotations

import ctypes
from types import TracebackType
from typing import Optional, Type, Union

Pin = Union[bytes, bytearray]


class PinText:
    """A zero-terminated copy of the PIN, for the time of a "with" block.

    At the end of the block, the copy is overwritten, and so is the caller's PIN if it is a bytearray. Python
    does not allow that for bytes.
    """

    def __init__(self, pin: Pin) -> None:
        if not isinstance(pin, (bytes, bytearray)):
            raise TypeError("the PIN must be a bytearray or bytes")
        if b"\0" in pin:
            wipe(pin)
            raise ValueError("the PIN contains a zero byte")
        self._pin = pin
        self._copy = ctypes.create_string_buffer(len(pin) + 1)

    def __enter__(self) -> "ctypes.Array[ctypes.c_char]":
        if isinstance(self._pin, bytes):
            ctypes.memmove(self._copy, self._pin, len(self._pin))
        else:
            ctypes.memmove(self._copy, _memory_of(self._pin), len(self._pin))
        return self._copy

    def __exit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        ctypes.memset(self._copy, 0, len(self._copy))
        wipe(self._pin)


def wipe(pin: Pin) -> None:
    """Overwrites a bytearray with zeros. Does nothing with bytes."""
    if isinstance(pin, bytearray):
        ctypes.memset(_memory_of(pin), 0, len(pin))


def _memory_of(pin: bytearray) -> "ctypes.Array[ctypes.c_char]":
    return (ctypes.c_char * len(pin)).from_buffer(pin)
