"""Codes, their texts, and the exceptions that carry them."""

from __future__ import annotations

import enum
from typing import Any, Dict, Optional, Tuple, Type

from ._library import load


class ErrorCode(enum.IntEnum):
    """The codes that the library raises by itself. Servers and devices may answer with any other."""

    OK = 0
    DISCONNECTED = 5
    DEVICE_ID = 4097
    NO_ROUTER = 4101
    ROUTER = 4103
    TIMEOUT = 4104
    TOPIC = 4106
    PROTOCOL = 4107
    TOO_SHORT = 4108
    LENGTH = 4112
    SEND = 4113
    RESERVED_PORT = 4114
    INVOKE_ID = 4115
    HANDLE = 8193
    ADAPTER = 8194
    RESOURCE = 8195
    PARAM = 8196
    MEMORY = 8200
    FILE_OPEN = 12289
    FILE_READ = 12291
    FILE_HANDLE = 12293
    FILE_TRANSFER = 12294
    CANCELLED = 20481
    """A transfer was cancelled; or a request ended early: the connection was closed, or its receive thread stopped."""
    ENDED = 20481
    """The same."""
    WOULD_BLOCK = 20482
    TOO_LATE = 20483
    TOO_LONG = 20484
    FILE_CHANGED = 20485
    DEVICE = 20486


def error_text(code: int) -> str:
    """The English text of a code."""
    return str(load().libzelx_strerror(code).decode("ascii"))


class ZelError(Exception):
    """A failed call: `code`, `text`, and

    - `data`: what a device sent along with its error;
    - `reason`: why the link failed, "connect 10.0.0.9:9999: refused", when that is the cause, else "";
    - `may_be_sent`: of a request, False when nothing of it has left, so that asking again is safe; True when it may have
      reached the device. None when that is not known, or no request failed. Nothing is ever sent twice by itself;
    - `sent`: of publish_many, how many messages were handed to the system whole; else None.
    """

    def __init__(
        self, code: int, data: bytes = b"", *, reason: str = "", may_be_sent: Optional[bool] = None
    ) -> None:
        self.code = code = int(code)  # a member of ErrorCode is written by its name before Python 3.11
        self.text = error_text(code)
        self.data = data
        self.reason = reason
        self.may_be_sent = may_be_sent
        self.sent: Optional[int] = None
        super().__init__(f"{self.text} ({code})" + (f": {reason}" if reason else ""))

    def __reduce__(self) -> Tuple[Any, ...]:
        return _rebuild, (type(self), self.code, self.data, self.reason, self.may_be_sent), {"sent": self.sent}


class ZelTimeout(ZelError, TimeoutError):
    """Nothing arrived in time."""


class ZelDisconnected(ZelError, ConnectionError):
    """The connection is down and could not be restored."""


class ZelDeviceError(ZelError):
    """The device answered with an error of its own: `code` is its error word, which may be any number."""


def _rebuild(kind: Type[ZelError], code: int, data: bytes, reason: str, may_be_sent: Optional[bool]) -> ZelError:
    return kind(code, data, reason=reason, may_be_sent=may_be_sent)


def error(code: int, data: bytes = b"", *, reason: str = "", may_be_sent: Optional[bool] = None) -> ZelError:
    """The exception for a code of the library's."""
    kinds: Dict[int, Type[ZelError]] = {ErrorCode.TIMEOUT: ZelTimeout, ErrorCode.DISCONNECTED: ZelDisconnected}
    return kinds.get(code, ZelError)(code, data, reason=reason, may_be_sent=may_be_sent)


def check(code: int) -> None:
    if code != 0:
        raise error(code)
