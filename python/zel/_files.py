"""Sending files."""

from __future__ import annotations

import ctypes
import enum
import os
import threading
from dataclasses import dataclass
from typing import Any, Callable, Optional, Union

from ._device import DeviceId, DeviceLike, from_raw, to_raw
from ._errors import ErrorCode, ZelDeviceError, ZelError, error
from ._library import (
    FileFunction,
    RawDeviceAddress,
    RawFileEvent,
    Targets,
    callback_scope,
    end_of,
    refuse_in_callback,
    started,
    unsigned,
    wait_for,
)

_STOP = -1
_GO_ON = 0


class FileState(enum.IntEnum):
    GOING_ON = 1
    FINISHED = 2
    FAILED = 3


@dataclass(frozen=True)
class FileProgress:
    """One step of a transfer; `progress` is from 0 to 1. The state of the last one, and of no other, is FINISHED or
    FAILED; with FAILED `code` says why: the library's code, or the device's own error word."""

    device: DeviceId
    transfer: int
    progress: float
    code: int
    state: FileState
    sent: int
    total: int


ProgressCallback = Callable[[FileProgress], Any]


def _failure(event: RawFileEvent) -> Optional[ZelError]:
    if event.result == ErrorCode.DEVICE:
        return ZelDeviceError(ctypes.c_int32(event.deviceError).value)
    reason = f"at byte {event.readOffset}" if event.result == ErrorCode.FILE_READ else ""
    return error(event.result, reason=reason) if event.result != 0 else None


class FileTransfer:
    """A file on its way. Letting go of this object lets the transfer go on."""

    def __init__(
        self, device: DeviceId, progress: Optional[ProgressCallback], ended: Optional[Callable[[], None]] = None
    ) -> None:
        self._device = device
        self._progress = progress
        self._ended = ended
        self._ticket = ctypes.c_uint64()
        self._failure: Optional[BaseException] = None
        self._raised: Optional[BaseException] = None
        self._over = threading.Event()

    @property
    def number(self) -> int:
        """The library's number of the transfer, 1 for the first; 0 when it could not begin."""
        return self._ticket.value

    @property
    def done(self) -> bool:
        """True when it has ended."""
        return self._over.is_set()

    def cancel(self) -> None:
        """Stops the transfer after the message that it is in, unless it ends with that."""
        if self._ticket.value != 0:
            started().libzelx_cancelFile(self._ticket)

    def wait(self, timeout: Optional[float] = None) -> None:
        """Waits for the end. Raises what the progress callback raised, ZelDeviceError when the device refused, ZelError
        for another end than all sent, or TimeoutError when it goes on after this time."""
        refuse_in_callback("waiting for a transfer")
        if not wait_for(self._over, end_of(timeout)):
            raise TimeoutError("the transfer goes on")
        failure = self._raised or self._failure
        if failure is not None:
            raise failure

    def _take(self, event: RawFileEvent) -> bool:
        """False when the library is to stop."""
        failure = _failure(event) if event.ended else None
        goes_on = self._tell(event, failure.code if failure is not None else 0)
        if event.ended:
            self._failure = failure
            self._progress = None
            self._over.set()
            if self._ended is not None:
                self._ended()
        return goes_on

    def _tell(self, event: RawFileEvent, code: int) -> bool:
        if self._progress is None:
            return True
        state = FileState.GOING_ON
        if event.ended:
            state = FileState.FAILED if code != 0 else FileState.FINISHED
        done = event.sent / event.total if event.total else float(state == FileState.FINISHED)
        step = FileProgress(self._device, event.ticket, done, code, state, event.sent, event.total)
        try:
            with callback_scope():
                return self._progress(step) is not False
        except BaseException as exception:
            self._raised = self._raised or exception
            return False


_targets = Targets()


def _on_event(raw: Any, user: Optional[int]) -> int:
    transfer = _targets.get(user)
    if transfer is None:
        return _GO_ON
    event = raw.contents
    if event.ended:
        _targets.remove(user or 0)
    return _GO_ON if transfer._take(event) else _STOP


_FILE = FileFunction(_on_event)


def send_file(
    device: DeviceLike,
    port: int,
    local_path: Union[str, "os.PathLike[str]"],
    remote_path: str,
    progress: Optional[ProgressCallback] = None,
) -> FileTransfer:
    """Sends a local file to a port of a device and returns when it is opened. Files to one device go one after the other.

    `progress` is called for each step, on a thread of the library; it stops the transfer by returning False. What cannot
    be opened, or is no regular file, is over at once with ErrorCode.FILE_OPEN; progress is told of that on this thread.
    """
    return begin(device, port, local_path, remote_path, progress, None)


def begin(
    device: DeviceLike,
    port: int,
    local_path: Union[str, "os.PathLike[str]"],
    remote_path: str,
    progress: Optional[ProgressCallback],
    ended: Optional[Callable[[], None]],
) -> FileTransfer:
    """As send_file; `ended` is called behind the last step."""
    unsigned("port", port, 0xFFFF)
    paths = [os.fsencode(local_path), remote_path.encode()]
    if any(b"\0" in path for path in paths):
        raise ValueError("a path with a NUL")
    target = RawDeviceAddress(to_raw(device), port)
    transfer = FileTransfer(from_raw(target.id), progress, ended)
    number = _targets.add(transfer)
    code = started().libzelx_sendFile(
        ctypes.byref(target), *paths, _FILE, number, ctypes.byref(transfer._ticket)
    )
    if code != 0:
        _targets.remove(number)
        transfer._take(RawFileEvent(size=ctypes.sizeof(RawFileEvent), ended=1, result=code))
        if isinstance(transfer._raised, KeyboardInterrupt):
            raise transfer._raised  # this is the thread that is to end
    return transfer
