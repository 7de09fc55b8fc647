"""What becomes of requests."""

from __future__ import annotations

import array
import ctypes
import mmap
import threading
from concurrent.futures import Future
from typing import Any, Optional, Tuple, Union

from ._calls import call
from ._errors import ErrorCode, ZelDeviceError, ZelError, check, error
from ._library import (
    AnswerFunction,
    RawOutcome,
    RawRequest,
    RawStats,
    Targets,
    callback_scope,
    load,
    milliseconds,
    unsigned,
)

BytesLike = Union[bytes, bytearray, memoryview, "array.array[Any]"]

_MAX_PAYLOAD = 10485731


def payload(data: BytesLike) -> bytes:
    """All bytes of whatever holds bytes."""
    if isinstance(data, bytes):
        return data
    try:
        return memoryview(data).tobytes()
    except TypeError:
        raise TypeError(f"data are bytes, or a buffer of them, not {type(data).__name__}") from None


def last_failure(handle: int) -> str:
    text = ctypes.create_string_buffer(512)
    load().libzelx_lastFailure(handle, text, len(text))
    return text.value.decode(errors="replace")


def stats_of(handle: int) -> RawStats:
    stats = RawStats(size=ctypes.sizeof(RawStats))
    check(load().libzelx_getStats(handle, ctypes.byref(stats)))
    return stats


def is_up(handle: int) -> bool:
    """0, too, which is the whole process, is none."""
    stats = RawStats(size=ctypes.sizeof(RawStats))
    return handle != 0 and load().libzelx_getStats(handle, ctypes.byref(stats)) == 0 and bool(stats.connected)


def reason_of(handle: int, code: int) -> str:
    """Why the link failed, if that is what the code tells of. A request that ran out of time while it was written has
    dropped its link."""
    is_links = code == ErrorCode.DISCONNECTED or (code == ErrorCode.TIMEOUT and not is_up(handle))
    return last_failure(handle) if is_links else ""


def fill(port: int, data: BytesLike, group: int, offset: int, timeout: float) -> RawRequest:
    """ValueError for a number that does not fit, ZelError for data that do not."""
    for name, number, most in (("port", port, 0xFFFF), ("group", group, 0xFFFFFFFF), ("offset", offset, 0xFFFFFFFF)):
        unsigned(name, number, most)
    given = payload(data)
    if len(given) > _MAX_PAYLOAD:
        raise error(ErrorCode.TOO_LONG, may_be_sent=False)
    return RawRequest(
        size=ctypes.sizeof(RawRequest),
        port=port,
        group=group,
        offset=offset,
        data=given,
        length=len(given),
        timeoutMs=milliseconds(timeout),
    )


def _failure(handle: int, outcome: Any, data: bytes) -> Optional[ZelError]:
    may_be_sent = bool(outcome.maySent)
    if outcome.result != 0:
        return error(outcome.result, reason=reason_of(handle, outcome.result), may_be_sent=may_be_sent)
    if outcome.deviceError != 0:
        return ZelDeviceError(ctypes.c_int32(outcome.deviceError).value, data, may_be_sent=may_be_sent)
    return None


# ---- Waiting


class _Room:
    """Room for the longest answer that there can be, so that none has to be asked for twice.

    Only those pages that an answer fills are ever real memory.
    """

    SIZE = 10485760

    def __init__(self) -> None:
        self.bytes = mmap.mmap(-1, self.SIZE)
        self._view = (ctypes.c_char * self.SIZE).from_buffer(self.bytes)
        self.address = ctypes.addressof(self._view)


_MOST_KEPT = 262144
_rooms = threading.local()


def _take_room() -> _Room:
    """The thread's own, but for a callback in a request of this thread that asks, too."""
    room: Optional[_Room] = getattr(_rooms, "kept", None)
    _rooms.kept = None
    return room or _Room()


def _give_back(room: _Room, size: int) -> bytes:
    """The answer. A room that a large one has filled is not kept."""
    data: bytes = room.bytes[:size]
    if size <= _MOST_KEPT:
        _rooms.kept = room
    return data


def ask(handle: int, request: RawRequest) -> bytes:
    """Sends a request and waits for its answer."""
    room = _take_room()
    outcome = RawOutcome(size=ctypes.sizeof(RawOutcome))
    send, out = load().libzelx_requestEx, ctypes.byref(outcome)
    call(lambda: int(send(handle, ctypes.byref(request), room.address, room.SIZE, out)))
    data = _give_back(room, outcome.answerLength)
    failure = _failure(handle, outcome, data)
    if failure is not None:
        raise failure
    return data


def receive(handle: int, timeout: float, max_size: int) -> Tuple[int, int, bytes]:
    """What libzel_sync_recv gives, the error number, and the answer."""
    room = _take_room()
    size = max(0, min(max_size, room.SIZE))
    library, given = load(), milliseconds(timeout)

    def run() -> Tuple[int, int]:
        return library.libzel_sync_recv(handle, None, room.address, size, given), library.libzel_get_errno()

    got, code = call(run)
    return got, code, _give_back(room, max(0, min(got, size)))


# ---- Not waiting


class Request(Future[bytes]):
    """A request whose answer is not waited for: a concurrent.futures.Future of the answer."""

    def __init__(self, handle: int) -> None:
        super().__init__()
        self._handle = handle
        self._ticket = ctypes.c_uint64()
        self._number = _targets.add(self)

    def cancel(self) -> bool:
        """Gives up waiting; what was sent stays sent. True when there is no outcome and never will be."""
        return call(self.give_up)

    def give_up(self) -> bool:
        """As cancel, on this very thread: short, unless a done callback is running."""
        if load().libzelx_cancel(self._handle, self._ticket) != 0:
            return self.cancelled()
        _targets.remove(self._number)
        super().cancel()
        self.set_running_or_notify_cancel()
        return True


_targets = Targets()


def _on_answer(ticket: int, raw: Any, answer: Optional[int], user: Optional[int]) -> None:
    request = _targets.get(user)
    if request is None:
        return
    _targets.remove(user or 0)
    outcome = raw.contents
    data = ctypes.string_at(answer, outcome.answerLength) if answer else b""
    failure = _failure(request._handle, outcome, data)
    with callback_scope():
        if failure is not None:
            request.set_exception(failure)
        else:
            request.set_result(data)


_ANSWER = AnswerFunction(_on_answer)


def submit(handle: int, raw: RawRequest) -> Request:
    """Sends a request without waiting for its answer."""
    request = Request(handle)
    begin, user, ticket = load().libzelx_requestAsync, request._number, ctypes.byref(request._ticket)
    code = call(lambda: int(begin(handle, ctypes.byref(raw), _ANSWER, user, ticket)))
    if code != 0:
        _targets.remove(request._number)
        is_open = code in (ErrorCode.DISCONNECTED, ErrorCode.TIMEOUT)
        raise error(code, reason=reason_of(handle, code), may_be_sent=None if is_open else False)
    return request
