"""Requests: from several threads, their answers, and why there is none."""

import array
import concurrent.futures
import pickle
import threading
import time

import pytest
import zel

NOBODY = "127.0.0.9.0.1"
PLENTY = 20


@pytest.fixture
def nobody():
    with zel.Connection(NOBODY, timeout=0.2) as made:
        made.set_reconnect_interval(0)
        yield made


def wrong_answers(connection, threads, count):
    wrong = []

    def run(thread):
        for i in range(count):
            question = f"thread {thread} question {i} ".encode() * (1 + i % 7)
            answer = connection.request(600, question, timeout=PLENTY)
            if answer != question:
                wrong.append((question, answer))

    with concurrent.futures.ThreadPoolExecutor(threads) as pool:
        for done in [pool.submit(run, thread) for thread in range(threads)]:
            done.result()
    return wrong


def test_request_gives_the_answer(connection):
    assert connection.request(600, b"what", group=1, offset=2, timeout=5) == b"what"
    assert connection.request(600, timeout=5) == b""


def test_three_threads_get_their_own_answers(connection):
    assert wrong_answers(connection, 3, 100) == []


def test_eight_threads_get_their_own_answers_beside_everything_else(connection, seen):
    connection.route(700, lambda port, payload: seen.put("routed"))
    connection.subscribe("press/4", lambda message: seen.put("topic"))
    connection.start_loop()
    stop = threading.Event()

    def publish():
        while not stop.wait(0.001):
            connection.publish("press/4", b"21.5")

    publisher = threading.Thread(target=publish)
    publisher.start()
    try:
        assert wrong_answers(connection, 8, 50) == []
    finally:
        stop.set()
        publisher.join()
    while {seen.take(), seen.take(), seen.take()} != {"routed", "topic"}:
        pass


def test_other_threads_run_while_one_waits(connection):
    turns, waiting = 0, concurrent.futures.ThreadPoolExecutor(1)
    asked = waiting.submit(lambda: connection.request(602, timeout=0.5))
    while not asked.done():
        turns += 1
        time.sleep(0.001)
    assert turns > 50
    assert isinstance(asked.exception(), zel.ZelTimeout)


def test_answer_of_a_megabyte_is_whole(connection):
    assert connection.request(603, timeout=PLENTY) == bytes(range(256)) * 4096


def test_longest_answer_is_whole(connection):
    question = bytes(range(251)) * (10485731 // 251)
    assert connection.request(600, question, timeout=PLENTY) == question


def test_short_answer_after_a_long_one_is_itself(connection):
    connection.request(603, timeout=PLENTY)
    assert connection.request(600, b"short", timeout=PLENTY) == b"short"


def test_devices_error_is_told_from_the_librarys(connection):
    with pytest.raises(zel.ZelDeviceError) as raised:
        connection.request(601, b"x", timeout=5)
    assert not isinstance(raised.value, zel.ZelDisconnected)
    assert (raised.value.code, len(raised.value.data), raised.value.reason) == (5, 3, "")


def test_refused_connect_is_the_reason_and_nothing_was_sent(nobody):
    with pytest.raises(zel.ZelDisconnected) as raised:
        nobody.request(600, b"x", timeout=2)
    assert isinstance(raised.value, ConnectionError)
    assert raised.value.reason == "connect 127.0.0.9:9999: refused"
    assert str(raised.value) == "alaready disconnect (5): connect 127.0.0.9:9999: refused"
    assert raised.value.may_be_sent is False


def test_every_call_that_needs_the_link_tells_the_reason(nobody):
    for call in (
        lambda: nobody.reconnect(1),
        lambda: nobody.publish("t", b"x"),
        lambda: nobody.subscribe("t", print),
        lambda: nobody.send(600, timeout=1),
        lambda: nobody.submit(600, timeout=1),
    ):
        with pytest.raises(zel.ZelDisconnected) as raised:
            call()
        assert raised.value.reason == "connect 127.0.0.9:9999: refused"
    assert nobody.last_failure == "connect 127.0.0.9:9999: refused"


def test_connection_that_never_failed_has_no_last_failure(connection):
    assert connection.last_failure == ""


def test_silence_is_a_timeout_and_may_have_been_sent(connection):
    with pytest.raises(zel.ZelTimeout) as raised:
        connection.request(602, b"x", timeout=0.1)
    assert isinstance(raised.value, TimeoutError)
    assert raised.value.may_be_sent is True
    assert raised.value.reason == ""


def test_what_does_not_fit_is_refused_unsent(connection):
    with pytest.raises(zel.ZelError) as raised:
        connection.request(600, bytes(10485732))
    assert raised.value.code == zel.ErrorCode.TOO_LONG
    assert raised.value.may_be_sent is False


@pytest.mark.parametrize("wrong", [{"timeout": -1}, {"timeout": float("nan")}, {"group": -1}, {"offset": 1 << 32}])
def test_number_out_of_range_is_refused(connection, wrong):
    with pytest.raises(ValueError):
        connection.request(600, b"x", **wrong)


def test_any_buffer_is_sent_whole(connection):
    for data in (array.array("I", [1, 2]), memoryview(b"abcdef")[::2], bytearray(b"abc")):
        assert connection.request(600, data, timeout=5) == memoryview(data).tobytes()
    with pytest.raises(TypeError):
        connection.request(600, 5)


def test_request_from_a_callback_on_the_receive_thread_is_refused(connection, seen):
    def callback(port, payload):
        try:
            connection.request(600, b"x", timeout=PLENTY)
        except zel.ZelError as refused:
            seen.put(refused)

    connection.route(700, callback)
    connection.start_loop()
    refused = seen.take()
    assert (refused.code, refused.may_be_sent) == (zel.ErrorCode.WOULD_BLOCK, False)
    connection.stop_loop()


def test_callback_may_ask_another_connection(device, connection, seen):
    with zel.Connection(device, timeout=5) as other:
        connection.route(700, lambda port, payload: seen.put(other.request(600, b"inside", timeout=PLENTY)))
        connection.start_loop()
        assert seen.take() == b"inside"
        connection.stop_loop()


def test_error_survives_pickling(nobody):
    with pytest.raises(zel.ZelDisconnected) as raised:
        nobody.request(600, b"x", timeout=2)
    copy = pickle.loads(pickle.dumps(raised.value))
    assert type(copy) is zel.ZelDisconnected
    assert (str(copy), copy.may_be_sent) == (str(raised.value), False)


# ---- Without waiting


def test_future_gets_the_answer(connection):
    questions = [b"%d" % i for i in range(100)]
    asked = [connection.submit(600, question, timeout=PLENTY) for question in questions]
    assert [request.result(PLENTY) for request in asked] == questions
    assert not asked[0].cancel()


def test_future_gets_the_error(connection):
    assert connection.submit(601, timeout=PLENTY).exception(PLENTY).code == 5
    error = connection.submit(602, timeout=0.05).exception(PLENTY)
    assert isinstance(error, zel.ZelTimeout) and error.may_be_sent


def test_future_gets_a_whole_answer(connection):
    assert len(connection.submit(603, timeout=PLENTY).result(PLENTY)) == 1048576


def test_cancelled_future_is_done_at_once(connection):
    request = connection.submit(602, timeout=PLENTY)
    assert request.cancel()
    assert request.cancelled() and request.cancel()
    with pytest.raises(concurrent.futures.CancelledError):
        request.result(0)
    assert concurrent.futures.wait([request], timeout=0).not_done == set()


def test_callback_may_ask_on(connection, seen):
    def then(first):
        connection.submit(600, first.result() + b" and more", timeout=PLENTY).add_done_callback(
            lambda second: seen.put(second.result())
        )

    connection.submit(600, b"one", timeout=PLENTY).add_done_callback(then)
    assert seen.take() == b"one and more"


def test_close_ends_what_waits(device):
    connection = zel.Connection(device, timeout=5)
    waiting = [connection.submit(602, timeout=PLENTY) for _ in range(3)]
    connection.close()
    assert [request.exception(0).code for request in waiting] == [zel.ErrorCode.ENDED] * 3


def test_close_ends_a_request_of_another_thread(device):
    connection = zel.Connection(device, timeout=5)
    with concurrent.futures.ThreadPoolExecutor(1) as pool:
        asked = pool.submit(connection.request, 602, timeout=PLENTY)
        concurrent.futures.wait([connection.submit(600, timeout=PLENTY)])
        begun = time.monotonic()
        connection.close()
        # It has not begun, or it was ended.
        assert asked.exception(PLENTY).code in (zel.ErrorCode.ENDED, zel.ErrorCode.HANDLE)
    assert time.monotonic() - begun < PLENTY / 2
