"""Requests, topics, routed messages, and what callbacks may do."""

import gc
import subprocess
import sys
import threading
import weakref

import pytest
import zel


def test_answer_by_hand_is_cut_to_the_room_there_is(connection):
    connection.send(600, b"abcdef")
    assert connection.receive(timeout=5, max_size=4) == b"abcd"


def test_answer_by_hand_is_whole_otherwise(connection):
    connection.send(603)
    assert len(connection.receive(timeout=20)) == 1048576


@pytest.mark.parametrize("data", [b"a\0b", b"\0", bytes(5000)], ids=["inside", "alone", "many"])
def test_request_by_hand_carries_its_nuls_and_nothing_else(connection, data):
    connection.send(600, data)
    assert connection.receive(timeout=5) == data


def test_what_does_not_fit_is_refused(connection):
    for call in (lambda: connection.send(600, bytes(10485760)), lambda: connection.publish("t", bytes(10485760))):
        with pytest.raises(zel.ZelError) as raised:
            call()
        assert raised.value.code == zel.ErrorCode.TOO_LONG
    with pytest.raises(ValueError):
        connection.send(65536)


def test_events_tell_of_the_connect(device):
    events = []
    with zel.Connection(device, timeout=5, on_event=lambda *event: events.append(event)) as connection:
        assert events == [(device, zel.Event.PENDING), (device, zel.Event.CONNECTED)]
        connection.reconnect(5)
        assert len(events) == 4


def test_absent_server_is_no_failure_of_the_constructor():
    events = []
    with zel.Connection("127.0.0.9.0.1", timeout=0.5, on_event=lambda _, event: events.append(event)) as connection:
        assert events == [zel.Event.PENDING, zel.Event.FAILED]
        with pytest.raises(zel.ZelDisconnected) as raised:
            connection.send(600, b"x", timeout=0.1)
        assert isinstance(raised.value, ConnectionError)
        with pytest.raises(zel.ZelDisconnected):
            connection.reconnect(0.1)


def test_publication_reaches_the_callback(connection, seen):
    connection.subscribe("press/temperature", seen.put)
    connection.start_loop()
    connection.publish("press/temperature", b"21\0.5", group=3, offset=4)
    assert seen.take() == zel.Message("press/temperature", b"21\0.5", 3, 4)


def test_publication_in_bounded_time_reaches_the_callback(connection, seen):
    connection.subscribe("within", seen.put)
    connection.start_loop()
    connection.publish("within", b"a\0b", group=3, timeout=5)
    assert seen.take() == zel.Message("within", b"a\0b", 3)


def test_many_publications_arrive_in_order(connection, seen):
    connection.subscribe("many", seen.put)
    connection.start_loop()
    messages = [zel.Message("many", b"%d\0" % i, i, i + 1) for i in range(100)]
    connection.publish_many(messages, timeout=5)
    assert [seen.take() for _ in messages] == messages


def test_of_publications_one_of_which_does_not_fit_none_is_sent(connection):
    with pytest.raises(zel.ZelError) as raised:
        connection.publish_many([zel.Message("t", b"x"), zel.Message("t", bytes(10485760))])
    assert (raised.value.code, raised.value.sent) == (zel.ErrorCode.TOO_LONG, 0)
    assert connection.stats().frames_out == 0


@pytest.mark.skipif(sys.platform == "win32", reason="the system cannot tell")
def test_flush_waits_until_the_peer_has_all(connection):
    connection.publish("t", b"x")
    connection.flush(5)


def test_frames_and_the_link_are_told_of(connection):
    assert connection.stats().frames_out == 0
    connection.publish("t", b"x")
    stats = connection.stats()
    assert (stats.frames_out, stats.connected, stats.connects) == (1, True, 1)
    assert connection.is_up
    connection.close()
    assert not connection.is_up


@pytest.mark.parametrize(
    "call",
    [
        lambda c: c.request("600"),
        lambda c: c.request(600.0),
        lambda c: c.request(600, "text"),
        lambda c: c.request(600, timeout="1"),
        lambda c: c.publish(b"topic", b"x"),
        lambda c: c.subscribe(5, print),
        lambda c: zel.Connection(5),
        lambda c: zel.Connection(None),
    ],
)
def test_wrong_types_are_told_plainly(connection, call):
    with pytest.raises(TypeError, match=r" (is|are) a? ?.*, not "):
        call(connection)


def test_subscription_is_an_iterator(connection):
    with connection.messages("a", "b", timeout=20) as messages:
        connection.publish("a", b"1")
        connection.publish("b", b"2")
        assert [next(messages), next(messages)] == [zel.Message("a", b"1"), zel.Message("b", b"2")]
        assert messages.get(timeout=0.05) is None
    with pytest.raises(zel.ZelError) as raised:
        connection.unsubscribe("a")
    assert raised.value.code == zel.ErrorCode.TOPIC


@pytest.mark.parametrize("timeout", [-1, float("nan")])
def test_negative_wait_for_messages_is_refused(connection, timeout):
    with pytest.raises(ValueError):
        connection.messages("a", timeout=timeout)
    with connection.messages("a") as messages, pytest.raises(ValueError):
        messages.get(timeout=timeout)


@pytest.mark.parametrize("timeout", [1e300, float("inf")])
def test_wait_for_messages_may_be_endless(connection, timeout):
    with connection.messages("a") as messages:
        connection.publish("a", b"1")
        assert messages.get(timeout=timeout) == zel.Message("a", b"1")


def test_iteration_ends_when_nothing_comes(connection):
    with connection.messages("quiet", timeout=0.05) as messages:
        assert list(messages) == []


def test_replaced_callback_is_let_go_of(connection):
    class Callback:
        def __call__(self, message):
            pass

    first = Callback()
    gone = weakref.ref(first)
    connection.subscribe("a", first)
    del first
    gc.collect()
    assert gone() is not None
    connection.subscribe("a", print)
    gc.collect()
    assert gone() is None


def test_callbacks_are_replaced_while_messages_pour(connection, seen):
    connection.start_loop()
    for round_number in range(50):
        connection.subscribe("flood", lambda message, n=round_number: seen.put(n) if n == 49 else None)
        gc.collect()
    assert seen.take() == 49
    connection.unsubscribe("flood")


def test_routed_messages_arrive_until_the_port_is_unrouted(connection, seen):
    connection.route(700, lambda port, payload: seen.put((port, payload)))
    with pytest.raises(zel.ZelError) as raised:
        connection.route(700, print)
    assert raised.value.code == zel.ErrorCode.ROUTER
    connection.start_loop()
    port, payload = seen.take()
    assert port == 700 and payload.isdigit()
    connection.unroute(700)
    with pytest.raises(zel.ZelError):
        connection.unroute(700)
    for port in (500, 103):
        with pytest.raises(zel.ZelError) as raised:
            connection.unroute(port)
        assert raised.value.code == zel.ErrorCode.RESERVED_PORT


def test_closing_in_a_callback_is_refused(connection, seen):
    def callback(port, payload):
        for call in (connection.close, connection.stop_loop):
            try:
                call()
            except RuntimeError as refused:
                seen.put(str(refused))

    connection.route(700, callback)
    connection.start_loop()
    assert seen.take() == "closing a connection is not possible in a callback"
    assert seen.take() == "stopping the receive thread is not possible in a callback"
    assert not connection.closed


def test_exception_in_a_callback_is_reported_and_the_thread_goes_on(connection, seen, monkeypatch):
    monkeypatch.setattr(sys, "unraisablehook", lambda unraisable: seen.put(unraisable.exc_value))

    def callback(port, payload):
        raise LookupError("mine")

    connection.route(700, callback)
    connection.start_loop()
    assert isinstance(seen.take(), LookupError)
    assert isinstance(seen.take(), LookupError)
    connection.stop_loop()


def test_close_waits_for_the_callback(connection, seen):
    release, ended = threading.Event(), []

    def callback(port, payload):
        seen.put(port)
        release.wait(20)
        ended.append(port)

    connection.route(700, callback)
    connection.start_loop()
    seen.take()
    threading.Timer(0.05, release.set).start()
    connection.close()
    assert ended


def test_interpreter_ends_cleanly_with_all_left_open():
    script = """
import zel
c = zel.Connection("10.77.0.2.0.1")
c.subscribe("flood", lambda message: None)
c.route(700, lambda port, payload: None)
c.start_loop()
s = zel.scan()
next(s)
"""
    done = subprocess.run([sys.executable, "-c", script], capture_output=True, timeout=60)
    assert (done.returncode, done.stderr) == (0, b"")


def test_missing_library_is_said_plainly():
    script = "import zel\ntry:\n  zel.version()\nexcept OSError as e:\n  print(e)"
    environment = {"ZEL_LIBRARY": "/nowhere/libzel.so.0", "PYTHONPATH": ":".join(sys.path)}
    done = subprocess.run([sys.executable, "-c", script], capture_output=True, timeout=60, env=environment)
    assert b"/nowhere/libzel.so.0" in done.stdout


@pytest.mark.parametrize("number", [-1, 2**32])
def test_numbers_that_do_not_fit_are_refused(connection, number):
    with pytest.raises(ValueError):
        connection.publish("a", b"", group=number)
    with pytest.raises(ValueError):
        connection.publish("a", b"", offset=number)
    with pytest.raises(ValueError):
        connection.set_reconnect_interval(number)
    with pytest.raises(ValueError):
        connection.receive(max_size=number)


@pytest.mark.parametrize("end", ["subscription", "connection"])
def test_close_wakes_whoever_waits_for_messages(device, seen, end):
    connection = zel.Connection(device, timeout=5)
    messages = connection.messages("nothing/here")
    reader = threading.Thread(target=lambda: seen.put([messages.get(), messages.get()]))
    reader.start()
    (messages if end == "subscription" else connection).close()
    assert seen.take() == [None, None]
    reader.join()
    connection.close()


FORK = """
import os, sys, zel
connection = zel.Connection({device!r}, timeout=5)
print(connection.request(600, b"before", timeout=5), flush=True)
if os.fork() == 0:
    try:
        connection.request(600, b"in the child", timeout=5)
    except zel.ZelError as error:
        print(error.code == zel.ErrorCode.HANDLE, flush=True)
    sys.exit(0)  # with all that is done at the end
print(os.wait()[1])
print(connection.request(600, b"after", timeout=5), repr(connection.last_failure))
"""


def test_end_of_a_forked_child_leaves_the_connection_alone(device):
    # From Python 3.12 on a fork in a program with threads is warned of, whatever they do.
    command = [sys.executable, "-W", "ignore::DeprecationWarning", "-c", FORK.format(device=str(device))]
    done = subprocess.run(command, capture_output=True, text=True, timeout=60)
    assert done.stderr == ""
    assert done.stdout.splitlines() == ["b'before'", "True", "0", "b'after' ''"]
