"""Codes, their texts, and the exceptions that carry them."""

from __future__ import annotations

import enum

from ._library import load


class ErrorCode(enum.IntEnum):
    """The codes that the library raises by itself. Servers and devices may answer with any other."""

    CANCELLED = -2
    OK = 0
    DISCONNECTED = 5
    DEVICE_ID = 4097
    NO_ROUTER = 4101
    ROUTER = 4103
    TIMEOUT = 4104
    TOPIC = 4106
    PROTOCOL = 4107
    TOO_SHORT = 4108
    TOO_LONG = 4109
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


def error_text(code: int) -> str:
    """The English text of a code."""
    if code == ErrorCode.CANCELLED:
        return "transfer cancelled"
    return str(load().libzel_strerror(code).decode("ascii"))


class ZelError(Exception):
    """A failed call: `code`, `text`, and `data`, what a server sent along with its error."""

    def __init__(self, code: int, data: bytes = b"") -> None:
        self.code = code
        self.text = error_text(code)
        self.data = data
        super().__init__(f"{self.text} ({code})")


class ZelTimeout(ZelError, TimeoutError):
    """Nothing arrived in time."""


class ZelDisconnected(ZelError, ConnectionError):
    """The connection is down and could not be restored."""


def error(code: int, data: bytes = b"") -> ZelError:
    """The exception for a code."""
    if code == ErrorCode.TIMEOUT:
        return ZelTimeout(code, data)
    if code == ErrorCode.DISCONNECTED:
        return ZelDisconnected(code, data)
    return ZelError(code, data)


def check(code: int) -> None:
    if code != 0:
        raise error(code)
