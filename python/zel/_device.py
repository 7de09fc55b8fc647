"""Device identifiers."""

from __future__ import annotations

import ctypes
from dataclasses import dataclass
from typing import Optional, Union

from ._calls import call
from ._errors import check
from ._library import RawDeviceId, milliseconds, started


@dataclass(frozen=True, order=True)
class DeviceId:
    """A device's identifier: six bytes, ordered from the first to the last."""

    raw: bytes = b"\0" * 6

    def __post_init__(self) -> None:
        if len(self.raw) != 6:
            raise ValueError("a device identifier has six bytes")

    @classmethod
    def parse(cls, text: str) -> DeviceId:
        """Six decimals from 0 to 255 joined by "."; ValueError for everything else."""
        parts = text.split(".")
        if len(parts) != 6 or not all(p.isascii() and p.isdigit() and len(p) <= 3 and int(p) < 256 for p in parts):
            raise ValueError(f"not a device identifier: {text!r}")
        return cls(bytes(int(part) for part in parts))

    @classmethod
    def local(cls) -> DeviceId:
        """This machine's identifier."""
        raw = RawDeviceId()
        check(started().libzel_getLocalZelDeviceId(ctypes.byref(raw)))
        return from_raw(raw)

    @classmethod
    def of(cls, host: str, timeout: float = 1.0) -> DeviceId:
        """Asks a host (dotted IPv4) for its identifier."""
        raw = RawDeviceId()
        get, given = started().libzel_getRemoteZelDeviceId, milliseconds(timeout)
        check(call(lambda: int(get(host.encode(), given, ctypes.byref(raw))), calls_back=False))
        return from_raw(raw)

    def assign_to(self, host: str, timeout: float = 1.0) -> None:
        """Gives a host (dotted IPv4) this identifier."""
        assign, given = started().libzel_setRemoteZelDeviceId, milliseconds(timeout)
        check(call(lambda: int(assign(host.encode(), str(self).encode(), given)), calls_back=False))

    def __str__(self) -> str:
        return ".".join(str(byte) for byte in self.raw)


DeviceLike = Union[DeviceId, str]


def to_raw(device: DeviceLike) -> RawDeviceId:
    given = DeviceId.parse(device) if isinstance(device, str) else device
    if not isinstance(given, DeviceId):
        raise TypeError(f"a device is a zel.DeviceId or its text, not {type(given).__name__}")
    return RawDeviceId((ctypes.c_uint8 * 6)(*given.raw))


def from_raw(raw: RawDeviceId) -> DeviceId:
    return DeviceId(bytes(raw.bytes))


def set_route(device: DeviceLike, host: Optional[str]) -> None:
    """Pins the host (dotted IPv4) of an identifier for connections made later, or forgets what is known of it (None).

    Discovery leaves a pinned one alone, unless the program is by the letter.
    """
    library = started()
    check(library.libzelx_setRoute(ctypes.byref(to_raw(device)), None if host is None else host.encode()))


def get_route(device: DeviceLike) -> str:
    """The host that a connection made now would get: the one that is known, else the identifier's first four bytes."""
    host = ctypes.create_string_buffer(16)
    check(started().libzelx_getRoute(ctypes.byref(to_raw(device)), host, len(host)))
    return host.value.decode()
