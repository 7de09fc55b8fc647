"""The library for asyncio.

    async with zel.aio.Connection("192.168.1.20.0.1") as connection:
        print(await connection.request(600, b"what"))
        async for message in connection.messages("press/temperature"):
            print(message.data)

    async for device in zel.aio.scan(timeout=5):
        print(device.id, device.address)

    await zel.aio.send_file("192.168.1.20.0.1", 700, "program.bin", "program.bin", progress=print)

What is awaited can be cancelled, with a time limit or a task group, say: the wait ends at once, what was sent stays sent. The
event loop is never held up: each open connection has one thread that sends, beside the library's, and no call begins
another. Callbacks run on the event loop. Exceptions are those of the package. A connection belongs to the event loop on
which it was opened.
"""

from __future__ import annotations

import asyncio
import os
import threading
import time
import weakref
from types import TracebackType
from typing import Any, Callable, Iterable, List, Optional, Set, Tuple, Type, Union

from . import _connection, _files, _scan
from ._bridge import Inflow, Mailbox, do, tell
from ._calls import Line, later
from ._connection import EventCallback, Message, Stats
from ._device import DeviceId, DeviceLike, from_raw, to_raw
from ._errors import ErrorCode, error
from ._files import FileProgress, FileTransfer, ProgressCallback
from ._library import milliseconds, unsigned
from ._options import Option, OptionValues
from ._requests import BytesLike, Request, fill, payload, submit
from ._scan import Device

__all__ = ["Connection", "Inflow", "scan", "send_file"]

# ---- Connections


class Connection:
    """One connection to the server of a device, for use in an `async with`, or with `open` and `close`.

    A server that is not there is no failure: what is sent connects later, and `on_event` tells. Any number of tasks may use
    one connection.
    """

    def __init__(
        self,
        device: DeviceLike,
        *,
        timeout: float = 1.5,
        on_event: Optional[EventCallback] = None,
        options: Optional[OptionValues] = None,
    ) -> None:
        milliseconds(timeout)  # refuses what is none
        self.device: DeviceId = from_raw(to_raw(device))
        self._timeout = timeout
        self._on_event = on_event
        self._options = dict(options or {})
        self._line: Optional[Line] = None
        self._inner: Optional[_connection.Connection] = None
        self._mailboxes: weakref.WeakSet[Mailbox[Any]] = weakref.WeakSet()

    async def open(self) -> None:
        """Connects. Again does nothing."""
        if self._inner is not None:
            return
        loop, wanted = asyncio.get_running_loop(), self._on_event

        def on_event(device: DeviceId, event: _connection.Event) -> None:
            tell(loop, wanted, device, event)  # type: ignore[arg-type]

        device, timeout, options = self.device, self._timeout, self._options

        def connect() -> _connection.Connection:
            callback = None if wanted is None else on_event
            return _connection.Connection(device, timeout=timeout, on_event=callback, options=options)

        def close(connection: _connection.Connection) -> None:
            connection.close()

        line = Line("zel-aio")
        try:
            opened = await do(line, connect, close)
        except BaseException:
            # Behind the call that nobody waits for, and what undoes that: the loop has heard of it before.
            line.put(lambda: None if tell(loop, line.close) else line.close())
            raise
        self._inner, self._line = opened, line

    async def close(self) -> None:
        """Ends what is under way, and closes. Again does nothing."""
        inner, line, self._inner, self._line = self._inner, self._line, None, None
        for mailbox in list(self._mailboxes):
            mailbox.close()
        if inner is None or line is None:
            return
        loop = asyncio.get_running_loop()
        closed: asyncio.Future[None] = loop.create_future()
        connection = inner

        def settle() -> None:
            if not closed.done():
                closed.set_result(None)

        # Not on the line, where a write may be under way, which this ends.
        def run() -> None:
            try:
                connection.close()
            finally:
                tell(loop, settle)

        if not later(run):
            run()
        line.close()
        await closed

    async def __aenter__(self) -> Connection:
        await self.open()
        return self

    async def __aexit__(
        self, kind: Optional[Type[BaseException]], value: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        await self.close()

    def __del__(self) -> None:
        line = getattr(self, "_line", None)
        if line is not None:
            line.close()  # the connection in here tells of itself

    def __repr__(self) -> str:
        return f"<zel.aio.Connection {self.device}{' closed' if self.closed else ''}>"

    def _parts(self) -> Tuple[_connection.Connection, Line]:
        if self._inner is None or self._line is None:
            raise error(ErrorCode.HANDLE)
        return self._inner, self._line

    @property
    def closed(self) -> bool:
        return self._inner is None

    @property
    def is_up(self) -> bool:
        """Whether the link is up at this moment."""
        return self._inner is not None and self._inner.is_up

    @property
    def last_failure(self) -> str:
        """Why the link last failed, in one sentence; "" when it never did."""
        return self._parts()[0].last_failure

    def stats(self) -> Stats:
        """What has been counted since the connection was opened."""
        return self._parts()[0].stats()

    def set_option(self, option: Option, value: int) -> None:
        """Sets an option of this connection alone."""
        self._parts()[0].set_option(option, value)

    def get_option(self, option: Option) -> int:
        """What an option of this connection is now."""
        return self._parts()[0].get_option(option)

    def set_reconnect_interval(self, seconds: int) -> None:
        """The least time between two automatic reconnects."""
        self._parts()[0].set_reconnect_interval(seconds)

    async def reconnect(self, timeout: float = 1.5) -> None:
        """Connects again, whatever the present state."""
        inner, line = self._parts()
        await do(line, lambda: inner.reconnect(timeout))

    async def request(
        self, port: int, data: BytesLike = b"", *, group: int = 0, offset: int = 0, timeout: float = 1.0
    ) -> bytes:
        """Sends a request and gives its answer. The time-out is for all of it. Any number of tasks may ask at the same time.

        A task that is cancelled gives up waiting; what was sent stays sent.
        """
        inner, line = self._parts()
        asked = _Asked(inner, fill(port, data, group, offset, timeout), timeout)
        line.put(asked.begin)
        try:
            return await asked.answer
        finally:
            asked.end()

    async def publish(
        self, topic: str, data: BytesLike, *, group: int = 0, offset: int = 0, timeout: float = 5.0
    ) -> None:
        """Publishes on a topic. When the time-out is over within the frame the link is dropped."""
        inner, line = self._parts()
        end, given = _end(timeout), payload(data)
        await do(line, lambda: inner.publish(topic, given, group=group, offset=offset, timeout=_left(end)))

    async def publish_many(self, messages: Iterable[Message], *, timeout: float = 5.0) -> None:
        """Publishes messages in order, packed into few writes."""
        inner, line = self._parts()
        end, given = _end(timeout), list(messages)
        await do(line, lambda: inner.publish_many(given, timeout=_left(end)))

    async def flush(self, timeout: float = 5.0) -> None:
        """Waits until the peer's system has acknowledged all that was written."""
        inner, line = self._parts()
        end = _end(timeout)
        await do(line, lambda: inner.flush(_left(end)))

    def messages(self, *topics: str, timeout: Optional[float] = None) -> Inflow[Message]:
        """What is published on topics, ending after `timeout` without any, or when the connection is closed."""
        inner, line = self._parts()

        async def begin(mailbox: Mailbox[Message]) -> Callable[[], Any]:
            self._mailboxes.add(mailbox)

            def stop() -> None:
                for topic in topics:
                    if not inner.closed:
                        inner.unsubscribe(topic)

            def subscribe() -> Callable[[], Any]:
                for topic in topics:
                    inner.subscribe(topic, mailbox.post)
                inner.start_loop()
                return stop

            return await do(line, subscribe, lambda stop: stop())

        return Inflow(begin, line, timeout, None)

    def routed(self, port: int, *, timeout: Optional[float] = None) -> Inflow[bytes]:
        """The messages on a port, 501 to 65535, ending after `timeout` without any, or when the connection is closed. A
        port has one reader."""
        inner, line = self._parts()
        unsigned("port", port, 0xFFFF)

        async def begin(mailbox: Mailbox[bytes]) -> Callable[[], Any]:
            self._mailboxes.add(mailbox)

            def stop() -> None:
                if not inner.closed:
                    inner.unroute(port)

            def route() -> Callable[[], Any]:
                inner.route(port, lambda port, data: mailbox.post(data))
                inner.start_loop()
                return stop

            return await do(line, route, lambda stop: stop())

        return Inflow(begin, line, timeout, None)


def _end(timeout: float) -> float:
    milliseconds(timeout)  # refuses what is none
    return time.monotonic() + timeout


def _left(end: float) -> float:
    return max(0.0, end - time.monotonic())


class _Asked:
    """A request of a task. Its time runs while others of its connection write, too."""

    def __init__(self, inner: _connection.Connection, raw: Any, timeout: float) -> None:
        self._inner = inner
        self._raw = raw
        self._end = _end(timeout)
        self._loop = asyncio.get_running_loop()
        self.answer: asyncio.Future[bytes] = self._loop.create_future()
        self._timer = self._loop.call_later(min(timeout, 86400.0), self._expire)
        self._request: Optional[Request] = None
        self._has_begun = False

    def begin(self) -> None:
        """On the line."""
        self._has_begun = True
        if self.answer.done():
            return
        self._raw.timeoutMs = milliseconds(_left(self._end))
        try:
            self._request = submit(self._inner._handle, self._raw)
        except BaseException as failure:
            tell(self._loop, self._settle, None, failure)
            return
        self._request.add_done_callback(self._take)
        if self.answer.done():
            self._request.cancel()

    def end(self) -> None:
        """On the loop, when nobody waits any more."""
        self._timer.cancel()
        if self._request is not None and not self._request.done():
            self._request.give_up()

    def _take(self, request: Any) -> None:
        if request.cancelled():
            return
        failure = request.exception()
        tell(self._loop, self._settle, None if failure is not None else request.result(), failure)

    def _settle(self, answer: Optional[bytes], failure: Optional[BaseException]) -> None:
        if self.answer.done():
            return
        if failure is not None:
            self.answer.set_exception(failure)
        else:
            self.answer.set_result(answer or b"")

    def _expire(self) -> None:
        """What has begun ends in its own time."""
        if not self._has_begun:
            self._settle(None, error(ErrorCode.TIMEOUT, may_be_sent=False))


# ---- Devices and files

_common: List[Line] = []


def _line_of_all() -> Line:
    """For what belongs to no connection: short calls only."""
    if not _common:
        _common.append(Line("zel-aio"))
    return _common[0]


if hasattr(os, "register_at_fork"):
    os.register_at_fork(after_in_child=_common.clear)


def scan(timeout: Optional[float] = None) -> Inflow[Device]:
    """Looks for devices; each comes once. The iteration ends after `timeout`. There can be one scan at a time.

    Raises ZelError with the reason when discovery is broken.
    """
    line = _line_of_all()

    async def begin(mailbox: Mailbox[Device]) -> Callable[[], Any]:
        seen: Set[Tuple[str, str]] = set()

        def on_device(device: Device) -> None:
            key = (device.id_text, device.address)
            if key not in seen:
                seen.add(key)
                mailbox.post(device)

        def start() -> Callable[[], Any]:
            return _scan.Scan(callback=on_device).close

        return await do(line, start, lambda stop: stop())

    return Inflow(begin, line, None, timeout)


async def send_file(
    device: DeviceLike,
    port: int,
    local_path: Union[str, "os.PathLike[str]"],
    remote_path: str,
    progress: Optional[ProgressCallback] = None,
) -> None:
    """Sends a local file to a port of a device.

    `progress` is called for each step, on the event loop; it stops the transfer by returning False, or by an exception, which
    is raised here. A task that is cancelled stops the transfer. Raises ZelDeviceError when the device refused, ZelError for
    another end than all sent.
    """
    loop = asyncio.get_running_loop()
    ended: asyncio.Future[None] = loop.create_future()
    raised: List[BaseException] = []
    begun: List[FileTransfer] = []
    is_stopped = threading.Event()

    def show(step: FileProgress) -> None:
        if is_stopped.is_set() or progress is None:
            return
        try:
            goes_on = progress(step) is not False
        except Exception as exception:
            raised.append(exception)
            goes_on = False
        if not goes_on:
            stop()

    def stop() -> None:
        is_stopped.set()
        for transfer in begun:
            transfer.cancel()

    def on_step(step: FileProgress) -> bool:
        tell(loop, show, step)
        return not is_stopped.is_set()

    def end() -> None:
        if not ended.done():
            ended.set_result(None)

    def finish() -> None:
        tell(loop, end)

    def begin() -> FileTransfer:
        shown = None if progress is None else on_step
        transfer = _files.begin(device, port, local_path, remote_path, shown, finish)
        begun.append(transfer)
        return transfer

    transfer = await do(_line_of_all(), begin, FileTransfer.cancel)
    try:
        await ended
    except asyncio.CancelledError:
        transfer.cancel()
        raise
    if raised:
        raise raised[0]
    transfer.wait(0)
