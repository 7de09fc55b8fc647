"""Sending files."""

from __future__ import annotations

import enum
import os
import sys
import threading
import time
from dataclasses import dataclass
from typing import Any, Callable, Optional, Union

from ._device import DeviceId, DeviceLike, from_raw, to_raw
from ._errors import ErrorCode, check
from ._library import FileFunction, RawDeviceAddress, Targets, at_exit, callback_scope, refuse_in_callback, started

_CHUNK_SIZE = 8192
_STOP = -1
_GO_ON = 0
_EXIT_SECONDS = 5.0


class FileState(enum.IntEnum):
    REGISTERED = 0
    GOING_ON = 1
    FINISHED = 2
    FAILED = 3


@dataclass(frozen=True)
class FileProgress:
    """One step of a transfer; `progress` is from 0 to 1, `code` 0 or the error of this step."""

    device: DeviceId
    transfer: int
    progress: float
    code: int
    state: FileState


ProgressCallback = Callable[[FileProgress], Any]


class FileTransfer:
    """A file on its way. Letting go of this object lets the transfer go on."""

    def __init__(self, size: int, progress: Optional[ProgressCallback]) -> None:
        self.number = -1
        """The library's number of the transfer, 0 for the first."""
        self._progress = progress
        # Its description, its chunks, and an empty message when no chunk is short.
        self._steps_left = 2 + size // _CHUNK_SIZE
        self._cancelled = False
        self._code = 0
        self._exception: Optional[BaseException] = None
        self._over = threading.Event()

    @property
    def done(self) -> bool:
        return self._over.is_set()

    def cancel(self) -> None:
        """Stops the transfer after the step that it is in."""
        self._cancelled = True

    def wait(self, timeout: Optional[float] = None) -> None:
        """Waits for the end. Raises what the progress callback raised, ZelError for the transfer's first error, or
        TimeoutError when it goes on after this time."""
        refuse_in_callback("waiting for a transfer")
        if not self._over.wait(timeout):
            raise TimeoutError("the transfer goes on")
        if self._exception is not None:
            raise self._exception
        check(self._code)

    def _take(self, step: FileProgress) -> bool:
        """False when the library is to stop."""
        if self._progress is not None:
            try:
                with callback_scope():
                    if self._progress(step) is False:
                        self._cancelled = True
            except BaseException as exception:
                self._exception = exception
                self._cancelled = True
        self._code = self._code or step.code
        if step.state == FileState.REGISTERED:
            # A transfer without a file would hold up all later ones. A cancelled one still does its first step.
            if step.code != 0:
                self._finish()
            return step.code == 0 and not self._cancelled
        self._steps_left -= 1
        is_over = (
            step.state == FileState.FINISHED or self._steps_left == 0 or step.code == ErrorCode.FILE_TRANSFER
        )
        if not is_over and self._cancelled:
            self._code = self._code or ErrorCode.CANCELLED
        if is_over or self._cancelled:
            self._finish()
        return not self._cancelled

    def _finish(self) -> None:
        self._progress = None
        self._over.set()


_targets = Targets()


def _on_step(device: Any, transfer: int, progress: float, code: int, state: int, user: Optional[int]) -> int:
    target = _targets.get(user)
    if target is None:
        return _GO_ON
    step = FileProgress(from_raw(device.contents), transfer, progress, code, FileState(state))
    goes_on = target._take(step)
    if target.done:
        _targets.remove(user or 0)
    return _GO_ON if goes_on else _STOP


_FILE = FileFunction(_on_step)


def send_file(
    device: DeviceLike,
    port: int,
    local_path: Union[str, "os.PathLike[str]"],
    remote_path: str,
    progress: Optional[ProgressCallback] = None,
) -> FileTransfer:
    """Sends a local file to a port of a device and returns at once; one transfer runs after the other.

    `progress` is called for each step, first on this thread, then on the library's transfer thread; it stops the
    transfer by returning False. The device's errors do not stop it.
    """
    if not 0 <= port <= 0xFFFF:
        raise ValueError(f"not a port: {port}")
    path = os.fspath(local_path)
    size = os.path.getsize(path) if os.path.isfile(path) else 0
    transfer = FileTransfer(size, progress)
    number = _targets.add(transfer)
    encoding = "mbcs" if sys.platform == "win32" else sys.getfilesystemencoding()
    transfer.number = started().ZelFileTransfer(
        RawDeviceAddress(to_raw(device), port), 0, 0, path.encode(encoding), remote_path.encode(), _FILE, number
    )
    return transfer


def _cancel_all() -> None:
    for transfer in _targets.all():
        transfer.cancel()
    end = time.monotonic() + _EXIT_SECONDS
    for transfer in _targets.all():
        transfer._over.wait(max(0.0, end - time.monotonic()))


at_exit(_cancel_all)
