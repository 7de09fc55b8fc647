"""From the library's threads to an event loop, and back."""

from __future__ import annotations

import asyncio
import collections
import contextlib
import time
from types import TracebackType
from typing import Any, Awaitable, Callable, Deque, Generic, Optional, Type, TypeVar

from ._calls import Line
from ._library import end_of

Value = TypeVar("Value")
Item = TypeVar("Item")


def tell(loop: asyncio.AbstractEventLoop, function: Callable[..., Any], *arguments: Any) -> bool:
    """From any thread. False when the loop is closed, and hears nothing any more."""
    try:
        loop.call_soon_threadsafe(function, *arguments)
    except RuntimeError:
        return False
    return True


def quietly(function: Callable[..., Any], *arguments: Any) -> Callable[[], None]:
    def run() -> None:
        with contextlib.suppress(Exception):
            function(*arguments)

    return run


async def do(
    line: Line, function: Callable[[], Value], undo: Optional[Callable[[Value], Any]] = None
) -> Value:
    """Does something on a line. When nobody waits for it any more `undo` gets what it gives, on the line, too."""
    loop = asyncio.get_running_loop()
    future: asyncio.Future[Value] = loop.create_future()

    def give(value: Value) -> None:
        if not future.done():
            future.set_result(value)
        elif undo is not None:
            line.put(quietly(undo, value))

    def fail(failure: BaseException) -> None:
        if not future.done():
            future.set_exception(failure)

    def run() -> None:
        if future.cancelled():
            return
        try:
            value = function()
        except BaseException as failure:
            tell(loop, fail, failure)
            return
        if not tell(loop, give, value) and undo is not None:
            quietly(undo, value)()

    line.put(run)
    return await future


class Mailbox(Generic[Item]):
    """Items from other threads to one task. It knows nobody, so that whoever reads it may be dropped."""

    def __init__(self, loop: asyncio.AbstractEventLoop) -> None:
        self._loop = loop
        self._items: Deque[Item] = collections.deque()
        self._waiter: Optional[asyncio.Future[None]] = None
        self._is_closed = False

    def post(self, item: Item) -> None:
        """From any thread."""
        tell(self._loop, self._put, item)

    def _put(self, item: Item) -> None:
        if not self._is_closed:
            self._items.append(item)
            self._wake()

    def close(self) -> None:
        """On the loop. What is in it can still be got."""
        self._is_closed = True
        self._wake()

    def _wake(self) -> None:
        if self._waiter is not None and not self._waiter.done():
            self._waiter.set_result(None)

    async def get(self, end: Optional[float]) -> Optional[Item]:
        """The next one; None at the end, of time.monotonic(), or when there are none and it is closed. A cancelled wait
        takes none."""
        if self._waiter is not None:
            raise RuntimeError("another task waits for the next one")
        while not self._items:
            left = None if end is None else end - time.monotonic()
            if self._is_closed or (left is not None and left <= 0):
                return None
            self._waiter = self._loop.create_future()
            timer = None if left is None else self._loop.call_later(left, self._wake)
            try:
                await self._waiter
            finally:
                self._waiter = None
                if timer is not None:
                    timer.cancel()
        return self._items.popleft()


class Inflow(Generic[Item]):
    """What comes in until it is closed: an asynchronous iterator. It begins with the first `get`, or with `async with`, which
    closes it at its end, too; one that is dropped is closed as well."""

    def __init__(
        self,
        begin: Callable[[Mailbox[Item]], Awaitable[Callable[[], Any]]],
        line: Line,
        pause: Optional[float],
        total: Optional[float],
    ) -> None:
        end_of(pause), end_of(total)  # refuses what is none
        self._begin_it = begin
        self._line = line
        self._pause = pause
        self._total = total
        self._end: Optional[float] = None
        self._mailbox: Optional[Mailbox[Item]] = None
        self._stop: Optional[Callable[[], Any]] = None
        self._is_closed = False

    async def _begin(self) -> Mailbox[Item]:
        if self._mailbox is None:
            self._mailbox = Mailbox(asyncio.get_running_loop())
            if not self._is_closed:
                try:
                    self._stop = await self._begin_it(self._mailbox)
                except BaseException:
                    self._mailbox = None
                    raise
            self._end = end_of(self._total)
        return self._mailbox

    async def get(self, timeout: Optional[float] = None) -> Optional[Item]:
        """The next one; None when none came in time, or it was closed."""
        end_of(timeout)
        mailbox = await self._begin()
        ends = [end for end in (end_of(timeout), self._end) if end is not None]
        return await mailbox.get(min(ends, default=None))

    def __aiter__(self) -> Inflow[Item]:
        return self

    async def __anext__(self) -> Item:
        item = await self.get(self._pause)
        if item is not None:
            return item
        await self.aclose()
        raise StopAsyncIteration

    async def aclose(self) -> None:
        """Ends it. Again does nothing."""
        self._is_closed = True
        if self._mailbox is not None:
            self._mailbox.close()
        stop, self._stop = self._stop, None
        if stop is not None:
            await do(self._line, stop)

    async def __aenter__(self) -> Inflow[Item]:
        await self._begin()
        return self

    async def __aexit__(
        self, kind: Optional[Type[BaseException]], value: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        await self.aclose()

    def __del__(self) -> None:
        stop = getattr(self, "_stop", None)
        if stop is not None:
            self._line.put(quietly(stop))
