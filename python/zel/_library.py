"""The library's functions, loaded and set up on first use, and what is done when the interpreter ends."""

from __future__ import annotations

import atexit
import ctypes
import itertools
import operator
import queue
import threading
import time
from contextlib import ExitStack, contextmanager
from ctypes import POINTER, c_bool, c_char, c_char_p, c_int32, c_int64, c_size_t, c_uint8, c_uint16, c_uint32
from ctypes import c_uint64, c_void_p
from typing import Any, Callable, Dict, Generic, Iterator, List, Optional, Tuple, TypeVar

from ._find import library_file

Item = TypeVar("Item")


class RawDeviceId(ctypes.Structure):
    _fields_ = [("bytes", c_uint8 * 6)]


class RawDeviceAddress(ctypes.Structure):
    _fields_ = [("id", RawDeviceId), ("port", c_uint16)]


class RawScanResult(ctypes.Structure):
    _fields_ = [
        ("ip", c_char * 32),
        ("spare", c_char * 32),
        ("frameMacAddr", c_char * 32),
        ("serialNo", c_char * 32),
        ("sn", c_char * 32),
        ("zelDeviceId", c_char * 32),
        ("zelVersion", c_char * 32),
        ("rteVersion", c_char * 32),
        ("vorlinVersion", c_char * 256),
        ("hostName", c_char * 32),
    ]


class RawRequest(ctypes.Structure):
    _fields_ = [
        ("size", c_size_t),
        ("port", c_uint16),
        ("command", c_uint16),
        ("group", c_uint32),
        ("offset", c_uint32),
        ("data", c_char_p),
        ("length", c_uint32),
        ("timeoutMs", c_uint32),
    ]


class RawOutcome(ctypes.Structure):
    _fields_ = [
        ("size", c_size_t),
        ("result", c_int32),
        ("deviceError", c_uint32),
        ("answerLength", c_uint32),
        ("maySent", c_uint32),
    ]


class RawMessage(ctypes.Structure):
    _fields_ = [
        ("size", c_size_t),
        ("topic", c_char_p),
        ("group", c_uint32),
        ("offset", c_uint32),
        ("data", c_char_p),
        ("length", c_uint32),
        ("reserved", c_uint32),
    ]


class RawStats(ctypes.Structure):
    _fields_ = [
        ("size", c_size_t),
        ("connected", c_int32),
        ("inFlight", c_uint32),
        ("connectedMs", c_int64),
        ("counts", c_uint64 * 16),
    ]


class RawFileEvent(ctypes.Structure):
    _fields_ = [
        ("size", c_size_t),
        ("ticket", c_uint64),
        ("sent", c_uint64),
        ("total", c_uint64),
        ("ended", c_int32),
        ("result", c_int32),
        ("deviceError", c_uint32),
        ("reserved", c_uint32),
        ("readOffset", c_uint64),
    ]


class RawDiscovery(ctypes.Structure):
    _fields_ = [
        ("size", c_size_t),
        ("running", c_int32),
        ("adapters", c_uint32),
        ("restarts", c_uint32),
        ("reserved", c_uint32),
        ("answers", c_uint64),
        ("dropped", c_uint64),
        ("adapterList", c_char * 512),
        ("reason", c_char * 160),
    ]


EventFunction = ctypes.CFUNCTYPE(None, POINTER(RawDeviceId), c_void_p, c_int32)
TopicFunction = ctypes.CFUNCTYPE(None, c_uint32, c_uint32, c_char_p, c_void_p, c_uint32, c_void_p)
RouteFunction = ctypes.CFUNCTYPE(None, c_uint16, c_void_p, c_uint32, c_void_p)
AnswerFunction = ctypes.CFUNCTYPE(None, c_uint64, POINTER(RawOutcome), c_void_p, c_void_p)
LogFunction = ctypes.CFUNCTYPE(None, c_int32, c_int64, c_uint32, c_char_p, c_char_p, c_int32, c_char_p, c_void_p)
ScanFunction = ctypes.CFUNCTYPE(None, RawScanResult, c_void_p)
FileFunction = ctypes.CFUNCTYPE(c_int32, POINTER(RawFileEvent), c_void_p)

_PROTOTYPES: Dict[str, Tuple[Any, List[Any]]] = {
    "libzel_init": (c_int32, []),
    "libzel_version": (c_int32, [POINTER(c_uint32), POINTER(c_uint32), POINTER(c_uint32)]),
    "libzel_get_errno": (c_int32, []),
    "libzel_destory": (c_int32, []),
    "libzel_createInstanceEx": (c_size_t, [POINTER(RawDeviceId), c_uint32, c_int32, EventFunction, c_void_p]),
    "libzel_releaseInstance": (c_int32, [c_size_t]),
    "libzel_loop_start": (c_int32, [c_size_t]),
    "libzel_loop_stop": (c_int32, [c_size_t]),
    "libzel_reconnect": (c_bool, [c_size_t, c_int32]),
    "libzel_reconnect_delay_set": (c_int32, [c_size_t, c_uint32]),
    "libzel_registerZelScanEvent": (c_int32, [ScanFunction, c_void_p]),
    "libzel_startZelScan": (c_int32, []),
    "libzel_stopZelScan": (c_int32, []),
    "libzel_sync_send": (c_int32, [c_size_t, c_uint16, c_uint32, c_uint32, c_char_p, c_uint32, c_uint32]),
    "libzel_sync_recv": (c_int32, [c_size_t, c_void_p, c_void_p, c_uint32, c_uint32]),
    "libzel_publish": (c_int32, [c_size_t, c_uint32, c_uint32, c_char_p, c_char_p, c_uint32]),
    "libzel_subscribe": (c_int32, [c_size_t, c_char_p, TopicFunction, c_void_p]),
    "libzel_unsubscribe": (c_int32, [c_size_t, c_char_p]),
    "libzel__registerRouterEvent": (c_int32, [c_size_t, c_uint16, RouteFunction, c_void_p]),
    "libzel__unregisterRouterEvent": (c_int32, [c_size_t, c_uint16]),
    "libzel_getLocalZelDeviceId": (c_int32, [POINTER(RawDeviceId)]),
    "libzel_getRemoteZelDeviceId": (c_int32, [c_char_p, c_int32, POINTER(RawDeviceId)]),
    "libzel_setRemoteZelDeviceId": (c_int32, [c_char_p, c_char_p, c_int32]),
    "libzelx_strerror": (c_char_p, [c_int32]),
    "libzelx_requestEx": (c_int32, [c_size_t, POINTER(RawRequest), c_void_p, c_uint32, POINTER(RawOutcome)]),
    "libzelx_requestAsync": (
        c_int32,
        [c_size_t, POINTER(RawRequest), AnswerFunction, c_void_p, POINTER(c_uint64)],
    ),
    "libzelx_cancel": (c_int32, [c_size_t, c_uint64]),
    "libzelx_publish": (c_int32, [c_size_t, c_uint32, c_uint32, c_char_p, c_char_p, c_uint32, c_uint32]),
    "libzelx_publishMany": (c_int32, [c_size_t, POINTER(RawMessage), c_size_t, c_uint32, POINTER(c_size_t)]),
    "libzelx_flush": (c_int32, [c_size_t, c_uint32]),
    "libzelx_lastFailure": (c_int32, [c_size_t, c_char_p, c_size_t]),
    "libzelx_getStats": (c_int32, [c_size_t, POINTER(RawStats)]),
    "libzelx_sendFile": (
        c_int32,
        [POINTER(RawDeviceAddress), c_char_p, c_char_p, FileFunction, c_void_p, POINTER(c_uint64)],
    ),
    "libzelx_cancelFile": (c_int32, [c_uint64]),
    "libzelx_setLogSink": (c_int32, [LogFunction, c_void_p]),
    "libzelx_setLogLevel": (c_int32, [c_int32]),
    "libzelx_protect": (c_int32, []),
    "libzelx_setOption": (c_int32, [c_size_t, c_int32, c_int64]),
    "libzelx_getOption": (c_int32, [c_size_t, c_int32, POINTER(c_int64)]),
    "libzelx_setNetworks": (c_int32, [c_char_p, c_char_p]),
    "libzelx_startDiscovery": (c_int32, []),
    "libzelx_getDiscovery": (c_int32, [POINTER(RawDiscovery)]),
    "libzelx_setRoute": (c_int32, [POINTER(RawDeviceId), c_char_p]),
    "libzelx_getRoute": (c_int32, [POINTER(RawDeviceId), c_char_p, c_size_t]),
}

setup_lock = threading.RLock()
_loaded: Optional[ctypes.CDLL] = None
_is_started = False
_before_start: List[Callable[[], None]] = []
_at_exit: List[Callable[[], None]] = []
_at_end: List[Callable[[], None]] = []


def load() -> ctypes.CDLL:
    """The library, not necessarily set up. OSError when it cannot be found."""
    global _loaded
    if _loaded is not None:
        return _loaded  # without the lock, which somebody may hold who waits for the caller's own
    with setup_lock:
        if _loaded is None:
            library = ctypes.CDLL(library_file())
            for function, (result, arguments) in _PROTOTYPES.items():
                getattr(library, function).restype = result
                getattr(library, function).argtypes = arguments
            _loaded = library
        return _loaded


def started() -> ctypes.CDLL:
    """The library, set up."""
    global _is_started
    library = load()
    with setup_lock:
        if not _is_started:
            for function in _before_start:
                function()
            code = library.libzel_init()
            if code != 0:
                raise OSError(code, "the system's socket library did not start")
            _is_started = True
            atexit.register(_finish)
    return library


def is_started() -> bool:
    """Under setup_lock, for an answer that stays true."""
    return _is_started


def stdout_sink() -> Any:
    """The library's own log sink."""
    return ctypes.cast(load().libzelx_stdoutSink, LogFunction)


def before_start(function: Callable[[], None]) -> None:
    """Has a function called before the library is set up."""
    _before_start.append(function)


def at_exit(function: Callable[[], None]) -> None:
    """Has a function called before the library is shut down."""
    _at_exit.append(function)


def at_end(function: Callable[[], None]) -> None:
    """Has a function called when the library has been shut down."""
    _at_end.append(function)


def _finish() -> None:
    # The library's threads must not call into an interpreter that is going away. Each is done whatever another raises.
    with ExitStack() as last_to_first:
        functions: List[Callable[[], Any]] = [*_at_exit, load().libzel_destory, *_at_end]
        for function in reversed(functions):
            last_to_first.callback(function)


def version() -> str:
    """The version of the library's first interface, "0.2.3"; zel.__version__ has the product's."""
    numbers = [c_uint32() for _ in range(3)]
    load().libzel_version(*(ctypes.byref(number) for number in numbers))
    return ".".join(str(number.value) for number in numbers)


def _time_out(seconds: float) -> float:
    if isinstance(seconds, (str, bytes)) or not hasattr(seconds, "__float__"):
        raise TypeError(f"a time-out is a number of seconds, not {type(seconds).__name__}")
    if not seconds >= 0:
        raise ValueError(f"not a time-out: {seconds}")
    return seconds


def milliseconds(seconds: float) -> int:
    return int(min(_time_out(seconds) * 1000, 0x7FFFFFFF))


def end_of(timeout: Optional[float]) -> Optional[float]:
    """When a time-out that begins now is over, of time.monotonic(). None is never."""
    return None if timeout is None else time.monotonic() + _time_out(timeout)


def unsigned(name: str, number: int, most: int = 0xFFFFFFFF) -> int:
    """The number; ctypes would cut one that does not fit."""
    try:
        whole = operator.index(number)
    except TypeError:
        raise TypeError(f"a {name} is a whole number, not {type(number).__name__}") from None
    if not 0 <= whole <= most:
        raise ValueError(f"not a {name}: {number}")
    return whole


def longest_wait() -> float:
    """For how long a thread may wait for a lock, before it looks whether there was a signal.

    The main thread alone is told of them: on Windows not while it waits, and elsewhere not of one that comes in the moment
    before it waits.
    """
    return 0.1 if threading.current_thread() is threading.main_thread() else 86400.0


def _slice_until(end: Optional[float]) -> float:
    return longest_wait() if end is None else min(longest_wait(), max(0.0, end - time.monotonic()))


def wait_for(event: threading.Event, end: Optional[float]) -> bool:
    """Waits for an event until the end, of time.monotonic(); False when it has not come."""
    while not event.wait(_slice_until(end)):
        if end is not None and time.monotonic() >= end:
            return False
    return True


class Inbox(Generic[Item]):
    """Items from one thread to another, until it is closed."""

    def __init__(self) -> None:
        self._queue: queue.SimpleQueue[Optional[Item]] = queue.SimpleQueue()

    def put(self, item: Item) -> None:
        self._queue.put(item)

    def close(self) -> None:
        """What is in it can still be got."""
        self._queue.put(None)

    def get(self, end: Optional[float]) -> Optional[Item]:
        """The next item; None at the end, of time.monotonic(), or when there are none and it is closed."""
        while True:
            try:
                item = self._queue.get(timeout=_slice_until(end))
            except queue.Empty:
                if end is not None and time.monotonic() >= end:
                    return None
                continue
            if item is None:
                self._queue.put(None)  # for whoever asks next
            return item


class Targets:
    """Who is behind the numbers that the library is given as user pointers.

    A number is never used twice, so a call that comes late finds nobody, and nothing that is freed is ever reached.
    """

    def __init__(self) -> None:
        self._numbers = itertools.count(1)
        self._targets: Dict[int, Any] = {}

    def add(self, target: Any) -> int:
        number = next(self._numbers)
        self._targets[number] = target
        return number

    def get(self, number: Optional[int]) -> Any:
        return self._targets.get(number or 0)

    def remove(self, number: int) -> None:
        self._targets.pop(number, None)


_callbacks = threading.local()


@contextmanager
def callback_scope() -> Iterator[None]:
    """Marks the thread as running a callback."""
    _callbacks.depth = getattr(_callbacks, "depth", 0) + 1
    try:
        yield
    finally:
        _callbacks.depth -= 1


def in_callback() -> bool:
    return getattr(_callbacks, "depth", 0) > 0


def refuse_in_callback(what: str) -> None:
    if in_callback():
        raise RuntimeError(what + " is not possible in a callback")
