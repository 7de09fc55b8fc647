"""Connections: requests, topics, routed messages."""

from __future__ import annotations

import ctypes
import enum
import warnings
import weakref
from dataclasses import dataclass
from types import TracebackType
from typing import Any, Callable, Dict, Iterable, Iterator, List, Optional, Sequence, Tuple, Type

from ._calls import call, later
from ._device import DeviceId, DeviceLike, from_raw, to_raw
from ._errors import ErrorCode, ZelDeviceError, ZelError, check, error
from ._library import (
    EventFunction,
    Inbox,
    RawMessage,
    RouteFunction,
    Targets,
    TopicFunction,
    at_exit,
    callback_scope,
    end_of,
    milliseconds,
    refuse_in_callback,
    started,
    unsigned,
)
from ._options import Option, OptionValues, get_of, set_of
from ._requests import (
    BytesLike,
    Request,
    ask,
    fill,
    is_up,
    last_failure,
    payload,
    reason_of,
    receive,
    stats_of,
    submit,
)

_MAX_FRAME = 10485760
_REQUEST_OVERHEAD = 29
_PUBLICATION_OVERHEAD = 38


class Event(enum.IntEnum):
    CONNECTED = 1
    PENDING = 2
    DISCONNECTED = 5
    FAILED = 6


@dataclass(frozen=True)
class Message:
    """A publication on a subscribed topic."""

    topic: str
    data: bytes
    group: int = 0
    offset: int = 0


def _raw_message(message: Message) -> RawMessage:
    data = payload(message.data)
    return RawMessage(
        size=ctypes.sizeof(RawMessage),
        topic=_topic_bytes(message.topic),
        group=unsigned("group", message.group),
        offset=unsigned("offset", message.offset),
        data=data,
        length=len(data),
    )


@dataclass(frozen=True)
class Stats:
    """What has been counted of a connection."""

    connected: bool
    connected_seconds: float
    """How long the link has been up; 0 while it is down."""
    in_flight: int
    """Requests that have no outcome yet."""
    frames_in: int
    frames_out: int
    bytes_in: int
    bytes_out: int
    connects: int
    failed_connects: int
    losses: int
    late_answers: int
    short_headers: int
    bad_lengths: int
    short_bodies: int
    bad_records: int
    no_port: int
    no_topic: int
    too_long: int
    stalled_writes: int


EventCallback = Callable[[DeviceId, Event], Any]
TopicCallback = Callable[[Message], Any]
RouteCallback = Callable[[int, bytes], Any]

_targets = Targets()
_open: weakref.WeakSet[Connection] = weakref.WeakSet()


def _on_event(device: Any, user: Optional[int], event: int) -> None:
    callback = _targets.get(user)
    if callback is not None:
        with callback_scope():
            callback(from_raw(device.contents), Event(event))


def _on_topic(group: int, offset: int, topic: bytes, data: int, length: int, user: Optional[int]) -> None:
    callback = _targets.get(user)
    if callback is not None:
        message = Message(topic.decode(errors="replace"), ctypes.string_at(data, length), group, offset)
        with callback_scope():
            callback(message)


def _on_route(port: int, payload: int, length: int, user: Optional[int]) -> None:
    callback = _targets.get(user)
    if callback is not None:
        with callback_scope():
            callback(port, ctypes.string_at(payload, length) if length else b"")


# These live as long as the module, and so longer than every thread that calls them.
_EVENT = EventFunction(_on_event)
_TOPIC = TopicFunction(_on_topic)
_ROUTE = RouteFunction(_on_route)


# The library, the handle, what its user pointers stand for, and who waits for messages.
_Parts = Tuple[Any, int, List[int], List["Inbox[Message]"]]


def _release(parts: Optional[_Parts]) -> None:
    if parts is None:
        return
    library, handle, numbers, inboxes = parts
    library.libzel_releaseInstance(handle)
    for number in numbers:
        _targets.remove(number)
    for inbox in inboxes:
        inbox.close()


class Connection:
    """One connection to the server of a device. Use it in a `with`, or close it.

    A server that is not there is no failure: sends and the receive thread connect later, and `on_event` tells. Topics
    and routed messages come through the receive thread (start_loop); the first request starts it, too. Any number of threads
    may use one connection. One that is dropped unclosed is closed with a ResourceWarning. `options` are of this connection
    alone, {zel.Option.WRITE_STALL_MS: 2000}.
    """

    def __init__(
        self,
        device: DeviceLike,
        *,
        timeout: float = 1.5,
        on_event: Optional[EventCallback] = None,
        options: Optional[OptionValues] = None,
    ) -> None:
        self._handle = 0
        self._topics: Dict[str, int] = {}
        self._routes: Dict[int, int] = {}
        self._subscriptions: weakref.WeakSet[Subscription] = weakref.WeakSet()
        raw = to_raw(device)
        self.device = from_raw(raw)
        self._library = library = started()
        self._event = event = _targets.add(on_event)
        given = milliseconds(timeout)

        def create() -> Tuple[int, int]:
            handle = library.libzel_createInstanceEx(ctypes.byref(raw), 0, given, _EVENT, event)
            return handle, library.libzel_get_errno()

        def undo(made: Tuple[int, int]) -> None:
            _release((library, made[0], [event], []))

        self._handle, code = call(create, undo)
        if self._handle == 0:
            _targets.remove(event)
            raise error(code)
        _open.add(self)
        try:
            for option, value in (options or {}).items():
                self.set_option(option, value)
        except BaseException:
            self.close()
            raise

    def close(self) -> None:
        """Stops the receive thread, waits for its callback, and closes. Again does nothing."""
        refuse_in_callback("closing a connection")
        parts = self._give_up()
        call(lambda: _release(parts))
        _open.discard(self)

    def _give_up(self) -> Optional[_Parts]:
        """What is to be released, once."""
        handle, self._handle = self._handle, 0
        if handle == 0:
            return None
        numbers = [self._event, *self._topics.values(), *self._routes.values()]
        return self._library, handle, numbers, [subscription._inbox for subscription in list(self._subscriptions)]

    def __del__(self) -> None:
        if getattr(self, "_handle", 0) == 0:
            return
        text, parts = f"unclosed {self!r}", self._give_up()
        # On another thread: this one may be any, the receive thread, too, which would wait for itself.
        later(lambda: _release(parts))
        warnings.warn(text, ResourceWarning, source=self)

    def __repr__(self) -> str:
        return f"<zel.Connection {self.device}{' closed' if self.closed else ''}>"

    def __enter__(self) -> Connection:
        return self

    def __exit__(
        self, kind: Optional[Type[BaseException]], value: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        self.close()

    @property
    def closed(self) -> bool:
        return self._handle == 0

    def set_option(self, option: Option, value: int) -> None:
        """Sets an option of this connection alone.

        Raises ZelError: ErrorCode.PARAM for a value out of range, ErrorCode.HANDLE for an option of the process.
        """
        self._refuse_closed()
        set_of(self._handle, option, value)

    def get_option(self, option: Option) -> int:
        """What an option of this connection is now."""
        self._refuse_closed()
        return get_of(self._handle, option)

    def start_loop(self) -> None:
        """Starts the receive thread."""
        check(self._library.libzel_loop_start(self._handle))

    def stop_loop(self) -> None:
        """Stops the receive thread and waits for its callback."""
        refuse_in_callback("stopping the receive thread")
        check(call(lambda: int(self._library.libzel_loop_stop(self._handle))))

    def reconnect(self, timeout: float = 1.5) -> None:
        """Connects again, whatever the present state, and subscribes the topics again."""
        given = milliseconds(timeout)
        is_up, code = self._with_errno(lambda: int(self._library.libzel_reconnect(self._handle, given)))
        if not is_up:
            raise self._error(code or ErrorCode.DISCONNECTED)

    @property
    def is_up(self) -> bool:
        """Whether the link is up at this moment."""
        return is_up(self._handle)

    def stats(self) -> Stats:
        """What has been counted since the connection was made."""
        self._refuse_closed()
        raw = stats_of(self._handle)
        return Stats(bool(raw.connected), raw.connectedMs / 1000, raw.inFlight, *raw.counts)

    @property
    def last_failure(self) -> str:
        """Why the link last failed, in one sentence; "" when it never did. It stays when the link comes back."""
        return last_failure(self._handle)

    def set_reconnect_interval(self, seconds: int) -> None:
        """The least time between two automatic reconnects."""
        check(self._library.libzel_reconnect_delay_set(self._handle, unsigned("time", seconds)))

    # ---- Requests

    def request(
        self, port: int, data: BytesLike = b"", *, group: int = 0, offset: int = 0, timeout: float = 1.0
    ) -> bytes:
        """Sends a request and waits for its answer, which is whole, however long it is.

        The time-out is for all of it: connect, write, wait. Any number of threads may ask at the same time, beside topics,
        routed messages and publications. Raises ZelDeviceError when the device answers with an error.
        """
        return ask(self._handle, fill(port, data, group, offset, timeout))

    def submit(
        self, port: int, data: BytesLike = b"", *, group: int = 0, offset: int = 0, timeout: float = 1.0
    ) -> Request:
        """Sends a request and gives a concurrent.futures.Future of its answer, which can be cancelled.

        May be called from a callback. What is added to the future with add_done_callback runs on the receive thread.
        """
        return submit(self._handle, fill(port, data, group, offset, timeout))

    # ---- Requests by hand

    def send(
        self, port: int, data: BytesLike = b"", *, group: int = 0, offset: int = 0, timeout: float = 1.0
    ) -> None:
        """Sends a request by hand, without waiting for its answer.

        One thread at a time may do that, and not while the receive thread runs, which request() starts.
        """
        given = payload(data)
        raw = fill(port, given, group, offset, timeout)
        to = self._handle, raw.port, raw.group, raw.offset
        sent, code = self._with_errno(
            lambda: int(self._library.libzel_sync_send(*to, given, len(given), raw.timeoutMs))
        )
        if sent <= 0:
            raise self._error(code or ErrorCode.DISCONNECTED)

    def receive(self, timeout: float = 1.0, max_size: int = _MAX_FRAME) -> bytes:
        """The answer to the last send(); the rest of one that is longer than `max_size` is lost.

        A server's error is raised, with the data it sent.
        """
        got, code, data = receive(self._handle, timeout, unsigned("size", max_size, 0x7FFFFFFF))
        if got < 0:
            raise self._error(code or ErrorCode.DISCONNECTED)
        if code != 0:
            raise ZelDeviceError(code, data)
        return data

    # ---- Topics

    def publish(
        self, topic: str, data: BytesLike, *, group: int = 0, offset: int = 0, timeout: Optional[float] = None
    ) -> None:
        """Publishes on a topic. The time-out is for all of it; when it is over within the frame the link is dropped.
        Without one the write lasts as Option.WRITE_STALL_MS says."""
        name, given = _topic_bytes(topic), payload(data)
        if len(name) + len(given) + _PUBLICATION_OVERHEAD > _MAX_FRAME - _REQUEST_OVERHEAD:
            raise error(ErrorCode.TOO_LONG)
        what = self._handle, unsigned("group", group), unsigned("offset", offset), name, given, len(given)
        library = self._library
        if timeout is None:
            self._check(call(lambda: int(library.libzel_publish(*what))))
        else:
            limit = milliseconds(timeout)
            self._check(call(lambda: int(library.libzelx_publish(*what, limit))))

    def publish_many(self, messages: Iterable[Message], *, timeout: float = 5.0) -> None:
        """Publishes messages in order, packed into few writes: far quicker than one call for each.

        The time-out is for all of them. The `sent` of a ZelError is how many were handed to the system whole.
        """
        all_of_them = [_raw_message(message) for message in messages]
        raw = (RawMessage * len(all_of_them))(*all_of_them)
        sent, limit = ctypes.c_size_t(), milliseconds(timeout)
        publish, count = self._library.libzelx_publishMany, ctypes.byref(sent)
        code = call(lambda: int(publish(self._handle, raw, len(raw), limit, count)))
        if code != 0:
            failure = self._error(code)
            failure.sent = sent.value
            raise failure

    def flush(self, timeout: float = 5.0) -> None:
        """Waits until the peer's system has acknowledged all that was written; its program may not have read it.

        Raises ZelTimeout when it has not, and ZelError with ErrorCode.PROTOCOL where the system cannot tell (Windows).
        """
        limit = milliseconds(timeout)
        self._check(call(lambda: int(self._library.libzelx_flush(self._handle, limit))))

    def subscribe(self, topic: str, callback: TopicCallback) -> None:
        """Subscribes, or gives a subscribed topic another callback.

        When the send fails this raises, and the subscription stays and is sent again with the next connect.
        """
        name = _topic_bytes(topic)
        self._refuse_closed()
        number = _targets.add(callback)
        earlier = self._topics.get(topic)
        self._topics[topic] = number
        code = call(lambda: int(self._library.libzel_subscribe(self._handle, name, _TOPIC, number)))
        if earlier is not None:
            _targets.remove(earlier)
        self._check(code)

    def unsubscribe(self, topic: str) -> None:
        """Ends a subscription; a callback that runs at this moment is not waited for."""
        name = _topic_bytes(topic)
        self._refuse_closed()
        number = self._topics.pop(topic, None)
        if number is not None:
            _targets.remove(number)
        self._check(call(lambda: int(self._library.libzel_unsubscribe(self._handle, name))))

    def messages(self, *topics: str, timeout: Optional[float] = None) -> Subscription:
        """Subscribes topics and gives an iterator over what is published, ending after `timeout` without any.

        Starts the receive thread.
        """
        return Subscription(self, topics, timeout)

    # ---- Routed messages

    def route(self, port: int, callback: RouteCallback) -> None:
        """Hands the messages on a port (501 to 65535) to a callback. A port that has one keeps it."""
        _check_port(port)
        self._refuse_closed()
        number = _targets.add(callback)
        code = self._library.libzel__registerRouterEvent(self._handle, port, _ROUTE, number)
        if code != 0:
            _targets.remove(number)
            raise error(code)
        self._routes[port] = number

    def unroute(self, port: int) -> None:
        """Removes the callback of a port; one that runs at this moment is not waited for."""
        _check_port(port)
        if port <= 500:
            raise error(ErrorCode.RESERVED_PORT)
        number = self._routes.pop(port, None)
        if number is not None:
            _targets.remove(number)
        check(self._library.libzel__unregisterRouterEvent(self._handle, port))

    def _with_errno(self, function: Callable[[], int]) -> Tuple[int, int]:
        """What a call gives, and its thread's error number."""
        return call(lambda: (function(), int(self._library.libzel_get_errno())))

    def _error(self, code: int) -> ZelError:
        return error(code, reason=reason_of(self._handle, code))

    def _check(self, code: int) -> None:
        if code != 0:
            raise self._error(code)

    def _refuse_closed(self) -> None:
        if self._handle == 0:
            raise error(ErrorCode.HANDLE)


class Subscription:
    """An iterator over the messages of some topics. In a `with` it unsubscribes them at the end."""

    def __init__(self, connection: Connection, topics: Sequence[str], timeout: Optional[float]) -> None:
        end_of(timeout)  # refuses what is none
        self._connection = connection
        self._timeout = timeout
        self._inbox: Inbox[Message] = Inbox()
        connection._subscriptions.add(self)
        self._topics: List[str] = list(topics)
        for topic in topics:
            connection.subscribe(topic, self._inbox.put)
        connection.start_loop()

    def __iter__(self) -> Iterator[Message]:
        return self

    def __next__(self) -> Message:
        message = self.get(self._timeout)
        if message is None:
            raise StopIteration
        return message

    def get(self, timeout: Optional[float] = None) -> Optional[Message]:
        """The next message; None when none came in time, or the subscription or the connection was closed."""
        return self._inbox.get(end_of(timeout))

    def close(self) -> None:
        """Ends the subscriptions. Again does nothing."""
        self._inbox.close()
        topics, self._topics = self._topics, []
        for topic in topics:
            if not self._connection.closed:
                self._connection.unsubscribe(topic)

    def __enter__(self) -> Subscription:
        return self

    def __exit__(
        self, kind: Optional[Type[BaseException]], value: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        self.close()


def _check_port(port: int) -> None:
    unsigned("port", port, 0xFFFF)


def _topic_bytes(topic: str) -> bytes:
    if not isinstance(topic, str):
        raise TypeError(f"a topic is a str, not {type(topic).__name__}")
    if "\0" in topic:
        raise ValueError("a topic has no NUL")
    return topic.encode()


def _close_all() -> None:
    for connection in list(_open):
        connection.close()


at_exit(_close_all)
