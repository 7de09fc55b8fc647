"""Finding devices."""

from __future__ import annotations

import ctypes
import threading
from dataclasses import dataclass
from types import TracebackType
from typing import Any, Callable, Iterator, Optional, Set, Tuple, Type

from ._calls import call
from ._device import DeviceId
from ._errors import check, error
from ._library import Inbox, RawDiscovery, ScanFunction, at_exit, callback_scope, end_of, in_callback, started


@dataclass(frozen=True)
class Device:
    """A device that answered a scan."""

    address: str
    """Dotted IPv4, where the answer came from."""
    id: Optional[DeviceId]
    """None when the device's own text is no identifier."""
    id_text: str
    hardware_address: str
    host_name: str
    serial_number: str
    second_serial_number: str
    protocol_version: str
    runtime_version: str
    system_version: str


@dataclass(frozen=True)
class Discovery:
    """The state of discovery: whether no device answered, or it is broken."""

    running: bool
    adapters: int
    """On how many adapters it asks."""
    adapter_names: str
    """Joined by commas; cut at 511 bytes."""
    restarts: int
    """How often it was started again after a failure."""
    answers: int
    """Answers taken."""
    dropped: int
    """Answers dropped: malformed, or from networks that may not answer."""
    reason: str
    """Why it does not run; "" while it does, and before it was started."""


def discovery() -> Discovery:
    """The state of discovery now."""
    raw = RawDiscovery(size=ctypes.sizeof(RawDiscovery))
    check(started().libzelx_getDiscovery(ctypes.byref(raw)))
    return Discovery(
        running=bool(raw.running),
        adapters=raw.adapters,
        adapter_names=_text(raw.adapterList),
        restarts=raw.restarts,
        answers=raw.answers,
        dropped=raw.dropped,
        reason=_text(raw.reason),
    )


def start_discovery() -> None:
    """Starts discovery, which has no socket and sends no packet before, unless the program is by the letter.

    Again does nothing. A scan does it by itself. Raises ZelError with the reason when discovery is broken.
    """
    code = call(started().libzelx_startDiscovery)
    if code != 0:
        raise error(code, reason=discovery().reason)


DeviceCallback = Callable[[Device], Any]

_lock = threading.Condition()
_active: Optional[Scan] = None
_running = 0


def _on_device(raw: Any, user: Optional[int]) -> None:
    global _running
    with _lock:
        scan_object = _active
        _running += 1
    try:
        if scan_object is not None:
            with callback_scope():
                scan_object._take(_to_device(raw))
    finally:
        with _lock:
            _running -= 1
            _lock.notify_all()


_SCAN = ScanFunction(_on_device)
_NOBODY = ScanFunction(0)


class Scan:
    """A scan that goes on; there can be one at a time. An iterator over the devices, each of which comes once; its end
    closes the scan.

    With a callback it is called, on the library's scan thread, each time that a device answers.
    """

    def __init__(self, timeout: Optional[float] = None, callback: Optional[DeviceCallback] = None) -> None:
        global _active
        self._end = end_of(timeout)
        self._callback = callback
        self._found: Inbox[Device] = Inbox()
        self._seen: Set[Tuple[str, str]] = set()
        self._is_open = False
        library = started()
        with _lock:
            if _active is not None:
                raise RuntimeError("another scan goes on")
            _active = self
        self._is_open = True
        try:
            start_discovery()
            check(library.libzel_registerZelScanEvent(_SCAN, None))
            check(library.libzel_startZelScan())
        except BaseException:
            self.close()
            raise

    def _take(self, device: Device) -> None:
        key = (device.id_text, device.address)
        if key not in self._seen:
            self._seen.add(key)
            self._found.put(device)
        if self._callback is not None:
            self._callback(device)

    def __iter__(self) -> Iterator[Device]:
        return self

    def __next__(self) -> Device:
        device = self._found.get(self._end)
        if device is not None:
            return device
        self.close()
        raise StopIteration

    def close(self) -> None:
        """Ends the scan and, but for a call from its own callback, waits for it. Again does nothing."""
        global _active
        if not self._is_open:
            return
        self._is_open = False
        self._found.close()
        library = started()
        call(library.libzel_stopZelScan)
        call(lambda: int(library.libzel_registerZelScanEvent(_NOBODY, None)))
        with _lock:
            _active = None
            if not in_callback():
                _lock.wait_for(lambda: _running == 0)

    def __enter__(self) -> Scan:
        return self

    def __exit__(
        self, kind: Optional[Type[BaseException]], value: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        self.close()


def scan(timeout: Optional[float] = None, callback: Optional[DeviceCallback] = None) -> Scan:
    """Looks for devices on all networks of this machine until the scan is closed; iteration ends after `timeout`.

    Raises ZelError with the reason when discovery is broken: no adapter, or its port is taken.
    """
    return Scan(timeout, callback)


def _to_device(raw: Any) -> Device:
    id_text = _text(raw.zelDeviceId)
    try:
        identifier: Optional[DeviceId] = DeviceId.parse(id_text)
    except ValueError:
        identifier = None
    return Device(
        address=_text(raw.ip),
        id=identifier,
        id_text=id_text,
        hardware_address=_text(raw.frameMacAddr),
        host_name=_text(raw.hostName),
        serial_number=_text(raw.serialNo),
        second_serial_number=_text(raw.sn),
        protocol_version=_text(raw.zelVersion),
        runtime_version=_text(raw.rteVersion),
        system_version=_text(raw.vorlinVersion),
    )


def _text(raw: bytes) -> str:
    return raw.decode(errors="replace")


def _close_active() -> None:
    if _active is not None:
        _active.close()


at_exit(_close_active)
