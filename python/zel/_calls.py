"""Calls that may take their time.

The interpreter handles a signal between two steps of its main thread, and a call into the library is one step. So the main
thread has another one make such a call, and waits for that: Ctrl-C ends the wait, within 0.1 s. The call goes on until it ends by
itself, and what it gives is dropped.
"""

from __future__ import annotations

import os
import queue
import threading
import time
from _thread import allocate_lock, start_new_thread
from typing import Any, Callable, Generic, List, Optional, Set, TypeVar

from ._library import at_end, longest_wait

Value = TypeVar("Value")

_EXIT_SECONDS = 5.0


class _Task(Generic[Value]):
    """One call, and what became of it."""

    def __init__(self, function: Callable[[], Value]) -> None:
        self._function = function
        self._values: List[Value] = []
        self._failure: Optional[BaseException] = None
        self._done = allocate_lock()
        self._done.acquire()

    def run(self) -> None:
        try:
            self._values.append(self._function())
        except BaseException as failure:
            self._failure = failure
        self._done.release()

    def wait(self) -> None:
        while not self._done.acquire(True, longest_wait()):
            pass

    def undo(self, function: Callable[[Value], None]) -> None:
        for value in self._values:
            function(value)

    def outcome(self) -> Value:
        failure, self._failure = self._failure, None
        if failure is None:
            return self._values[0]
        try:
            raise failure
        finally:
            del failure  # or the frames of the call would live until they are collected


class Line:
    """A thread that does one thing after the other, until it is closed."""

    def __init__(self, name: str) -> None:
        self._work: queue.SimpleQueue[Optional[Callable[[], Any]]] = queue.SimpleQueue()
        self._ended = allocate_lock()
        self._ended.acquire()
        threading.Thread(target=_do_all, args=(self._work, self._ended), name=name, daemon=True).start()

    def put(self, function: Callable[[], Any]) -> None:
        """From any thread, and from a finalizer."""
        self._work.put(function)

    def close(self, *, is_awaited: bool = True) -> None:
        """What waits is done before. The end of the program waits for it, if it is to be awaited."""
        if is_awaited:
            _leaving.add(self._ended)
        self._work.put(None)


# The thread knows the line's parts alone, so that a line may be dropped.
def _do_all(work: queue.SimpleQueue[Optional[Callable[[], Any]]], ended: Any) -> None:
    while True:
        function = work.get()
        if function is None:
            break
        function()
        del function
    _leaving.discard(ended)
    ended.release()


# Lines that nobody uses at this moment, and locks that are free when a thread has done its last.
_idle: List[Line] = []
_leaving: Set[Any] = set()


def call(
    function: Callable[[], Value], undo: Optional[Callable[[Value], None]] = None, *, calls_back: bool = True
) -> Value:
    """Makes a call that may take its time. When it is interrupted, `undo` is called with what it gives in the end.

    The end of the program waits for one that may call back, which ends soon then.
    """
    if threading.current_thread() is not threading.main_thread():
        return function()
    line = _line()
    if line is None:
        return function()
    task = _Task(function)
    line.put(task.run)
    try:
        task.wait()
    except BaseException:
        if undo is not None:
            wanted = undo
            line.put(lambda: task.undo(wanted))
        line.close(is_awaited=calls_back)
        raise
    _idle.append(line)
    return task.outcome()


def _line() -> Optional[Line]:
    try:
        return _idle.pop() if _idle else Line("zel-call")
    except RuntimeError:  # at the end of the program no thread begins
        return None


def later(function: Callable[[], Any]) -> bool:
    """Does something on a thread of its own; for finalizers, which run anywhere. The end of the program waits for it.

    False at the end of the program, when no thread begins any more.
    """
    ended = allocate_lock()
    ended.acquire()
    _leaving.add(ended)
    try:
        start_new_thread(_do_one, (function, ended))
    except RuntimeError:
        _leaving.discard(ended)
        return False
    return True


def _do_one(function: Callable[[], Any], ended: Any) -> None:
    try:
        function()
    finally:
        _leaving.discard(ended)
        ended.release()


def _await_all() -> None:
    """Nothing of the library is under way any more: what is left ends soon."""
    end = time.monotonic() + _EXIT_SECONDS
    for ended in list(_leaving):
        ended.acquire(True, max(0.0, end - time.monotonic()))


def _forget() -> None:
    """In a child, which has none of the threads."""
    _idle.clear()
    _leaving.clear()


at_end(_await_all)
if hasattr(os, "register_at_fork"):
    os.register_at_fork(after_in_child=_forget)
