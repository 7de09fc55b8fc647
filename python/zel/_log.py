"""The library's log, as the program wants it."""

from __future__ import annotations

import logging
import queue
import threading
import traceback
from typing import Optional, Tuple, Union

from ._library import LogFunction, at_end, before_start, callback_scope, load, stdout_sink


class Stdout:
    """The type of zel.STDOUT."""

    def __repr__(self) -> str:
        return "zel.STDOUT"


STDOUT = Stdout()
"""For init(): the library's own log on standard output, in colour, as a C program has it."""

LogTarget = Union[logging.Logger, Stdout, None]


class Unchanged:
    """The type of what init() has for a log when none is given."""


UNCHANGED = Unchanged()

_TRACE = 5
_LIBRARY_LEVELS = ((_TRACE, 0), (logging.DEBUG, 1), (logging.INFO, 2), (logging.WARNING, 4), (logging.ERROR, 8))
_NOTHING = 0x7FFFFFFF
# The library's notices tell its version.
_LOGGING_LEVELS = {0: _TRACE, 1: logging.DEBUG, 2: logging.INFO, 4: logging.WARNING, 8: logging.ERROR, 32: logging.INFO}
_MOST_WAITING = 10000
_EXIT_SECONDS = 5.0

# Level, time in ns, thread, file, function, line, message.
_Line = Tuple[int, int, int, bytes, bytes, int, bytes]


class _Pump:
    """Takes lines from the threads that log to one that hands them to a logger.

    The library calls a sink with its log locked: whoever logs waits meanwhile. A handler may wait for anything, for a lock
    that a thread in the library holds, too, or call the library. So the sink waits for nothing but the interpreter, which a
    thread in the library does not hold, and this thread, which holds nothing, does the rest.
    """

    def __init__(self, logger: logging.Logger) -> None:
        self.logger = logger
        self._lines: queue.SimpleQueue[Optional[_Line]] = queue.SimpleQueue()
        self._dropped = 0
        self._thread = threading.Thread(target=self._run, name="zel-log", daemon=True)
        self._thread.start()

    def put(self, line: _Line) -> None:
        """From one thread at a time."""
        if line[2] == self._thread.native_id:
            return  # a handler that calls the library would never end
        if self._lines.qsize() >= _MOST_WAITING:
            self._dropped += 1
        else:
            self._lines.put(line)

    def stop(self) -> None:
        """Hands over what waits. Nothing is put in any more."""
        self._lines.put(None)
        if threading.current_thread() is not self._thread:
            self._thread.join(_EXIT_SECONDS)

    def _run(self) -> None:
        reported = 0
        while True:
            line = self._lines.get()
            if self._dropped != reported:
                count, reported = self._dropped - reported, self._dropped
                self.logger.warning("%d lines of the log were dropped, handlers are too slow", count)
            if line is None:
                return
            try:
                self._hand_over(line)
            except Exception:
                if logging.raiseExceptions:
                    traceback.print_exc()

    def _hand_over(self, line: _Line) -> None:
        number, nanoseconds, thread, file, function, line_number, message = line
        level = _LOGGING_LEVELS.get(number, logging.INFO)
        if not self.logger.isEnabledFor(level):
            return
        record = self.logger.makeRecord(
            self.logger.name,
            level,
            file.decode(errors="replace"),
            line_number,
            message.decode(errors="replace"),
            (),
            None,
            function.decode(errors="replace"),
        )
        record.created = nanoseconds / 1e9
        record.msecs = nanoseconds // 1000000 % 1000
        record.thread, record.threadName = thread, f"libzel-{thread}"
        self.logger.handle(record)


# As of any library: a program that sets up no logging hears nothing. Some lines come with each message, of a port that
# nobody asked for, say.
DEFAULT_LOG = logging.getLogger("zel")
DEFAULT_LOG.addHandler(logging.NullHandler())

_lock = threading.RLock()
_pump: Optional[_Pump] = None
_target: LogTarget = DEFAULT_LOG
_is_chosen = False


def _on_line(
    level: int, time: int, thread: int, file: bytes, function: bytes, line: int, message: bytes, user: Optional[int]
) -> None:
    pump = _pump
    if pump is not None:
        # Whatever the interpreter runs meanwhile, a finalizer, say, must not wait for the library.
        with callback_scope():
            pump.put((level, time, thread, file, function, line, message))


_LINE = LogFunction(_on_line)
_NOBODY = LogFunction(0)


def check_log(log: Union[LogTarget, Unchanged]) -> None:
    if not (log is None or log is STDOUT or log is UNCHANGED or isinstance(log, logging.Logger)):
        raise TypeError(f"a log is a logging.Logger, zel.STDOUT or None, not {log!r}")


def choose_log(given: Union[LogTarget, Unchanged], level: Optional[int]) -> None:
    """Not under setup_lock: it waits for handlers, which may call what needs that."""
    global _pump, _target, _is_chosen
    library = load()
    with _lock:
        log = _target if isinstance(given, Unchanged) else given
        _target = log
        earlier = _pump
        if isinstance(log, logging.Logger):
            library.libzelx_setLogLevel(_library_level(log.getEffectiveLevel() if level is None else level))
            _pump = _Pump(log)
            library.libzelx_setLogSink(_LINE, None)
        else:
            library.libzelx_setLogLevel(_library_level(logging.DEBUG if level is None else level))
            library.libzelx_setLogSink(stdout_sink() if log is STDOUT else _NOBODY, None)
            _pump = None
        _is_chosen = True
    if earlier is not None:
        earlier.stop()


def _library_level(level: int) -> int:
    for logging_level, library_level in _LIBRARY_LEVELS:
        if level <= logging_level:
            return library_level
    return _NOTHING


def _choose_default() -> None:
    with _lock:
        if not _is_chosen:
            choose_log(DEFAULT_LOG, None)


def _detach() -> None:
    """The library's threads must not call into an interpreter that is going away; one that is in here is waited for."""
    global _pump
    with _lock:
        earlier, _pump = _pump, None
        if earlier is not None:
            load().libzelx_setLogSink(_NOBODY, None)
    if earlier is not None:
        earlier.stop()


before_start(_choose_default)
at_end(_detach)
