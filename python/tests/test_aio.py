"""The library for asyncio."""

import asyncio
import functools
import gc
import subprocess
import sys
import threading
import time

import pytest
import zel
import zel.aio
from conftest import PATIENCE
from zel import Message

NOBODY = "127.0.0.9.0.1"
NOWHERE = "10.77.0.99.0.1"  # on the lab's network, where nobody has this address
PORT = 700
SILENT = 602


def on_loop(test):
    """Runs a test on an event loop, in bounded time."""

    @functools.wraps(test)
    def run(**fixtures):
        asyncio.run(asyncio.wait_for(test(**fixtures), PATIENCE))

    return run


def opened(device, **options):
    return zel.aio.Connection(device, timeout=5, **options)


# ---- Requests


@on_loop
async def test_request_gives_the_answer(device):
    async with opened(device) as connection:
        assert await connection.request(600, b"what\0", timeout=5) == b"what\0"


@on_loop
async def test_each_of_many_tasks_gets_its_own_answer(device):
    async with opened(device) as connection:
        questions = [b"%d" % i for i in range(300)]
        answers = await asyncio.gather(*(connection.request(600, question, timeout=20) for question in questions))
        assert answers == questions


@on_loop
async def test_loop_goes_on_while_a_request_waits(device):
    async with opened(device) as connection:
        asked = asyncio.ensure_future(connection.request(SILENT, timeout=1))
        turns = 0
        while not asked.done():
            await asyncio.sleep(0.001)
            turns += 1
        assert turns > 30
        assert isinstance(asked.exception(), zel.ZelTimeout)


@on_loop
async def test_no_call_begins_a_thread(device):
    async with opened(device) as connection:
        await connection.request(600, timeout=5)
        before = threading.active_count()
        asked = [asyncio.ensure_future(connection.request(SILENT, timeout=PATIENCE)) for _ in range(50)]
        await connection.request(600, timeout=5)
        assert threading.active_count() == before
        for request in asked:
            request.cancel()


@on_loop
async def test_devices_error_is_raised(device):
    async with opened(device) as connection:
        with pytest.raises(zel.ZelDeviceError) as raised:
            await connection.request(601, timeout=5)
        assert raised.value.code == 5


@on_loop
async def test_lost_link_is_raised_with_its_reason():
    async with zel.aio.Connection(NOBODY, timeout=0.2) as connection:
        connection.set_reconnect_interval(0)
        with pytest.raises(zel.ZelDisconnected) as raised:
            await connection.request(600, timeout=2)
        assert raised.value.reason == "connect 127.0.0.9:9999: refused"


@on_loop
async def test_cancelled_request_ends_at_once_and_waits_for_nothing(device):
    async with opened(device) as connection:
        asked = asyncio.ensure_future(connection.request(SILENT, timeout=PATIENCE))
        while connection.stats().in_flight == 0:
            await asyncio.sleep(0.001)
        asked.cancel()
        with pytest.raises(asyncio.CancelledError):
            await asked
        assert connection.stats().in_flight == 0


@on_loop
async def test_time_limit_ends_a_request(device):
    async with opened(device) as connection:
        begun = time.monotonic()
        with pytest.raises(asyncio.TimeoutError):
            await asyncio.wait_for(connection.request(SILENT, timeout=PATIENCE), 0.05)
        assert time.monotonic() - begun < PATIENCE / 2
        assert await connection.request(600, b"next", timeout=5) == b"next"


@on_loop
async def test_time_of_a_request_runs_while_another_call_of_its_connection_lasts(device):
    async with opened(device) as connection:
        release = threading.Event()
        connection._line.put(lambda: release.wait(PATIENCE))  # as a write that stalls
        try:
            with pytest.raises(zel.ZelTimeout) as raised:
                await connection.request(600, timeout=0.05)
            assert raised.value.may_be_sent is False
        finally:
            release.set()


@pytest.mark.parametrize("wrong", [{"timeout": -1}, {"group": -1}, {"port": 65536}])
def test_number_out_of_range_is_refused(device, wrong):
    @on_loop
    async def test():
        async with opened(device) as connection:
            with pytest.raises(ValueError):
                await connection.request(**{"port": 600, **wrong})

    test()


# ---- Connections


@on_loop
async def test_events_come_on_the_loop(device):
    events = []

    def on_event(device, event):
        assert asyncio.get_running_loop() is not None
        events.append(event)

    async with opened(device, on_event=on_event):
        while len(events) < 2:
            await asyncio.sleep(0.001)
    assert events[:2] == [zel.Event.PENDING, zel.Event.CONNECTED]


@on_loop
async def test_loop_goes_on_while_a_connection_is_made():
    making = asyncio.ensure_future(zel.aio.Connection(NOWHERE, timeout=50).open())
    for _ in range(30):
        await asyncio.sleep(0.001)
    assert not making.done()
    making.cancel()
    with pytest.raises(asyncio.CancelledError):
        await making


@on_loop
async def test_closed_connection_refuses_everything(device):
    connection = opened(device)
    for _ in range(2):
        with pytest.raises(zel.ZelError) as raised:
            await connection.request(600)
        assert raised.value.code == zel.ErrorCode.HANDLE
        await connection.open()
        await connection.close()
        await connection.close()
        assert connection.closed


@on_loop
async def test_close_ends_what_waits(device):
    connection = opened(device)
    await connection.open()
    asked = asyncio.ensure_future(connection.request(SILENT, timeout=PATIENCE))
    while connection.stats().in_flight == 0:
        await asyncio.sleep(0.001)
    await connection.close()
    with pytest.raises(zel.ZelError) as raised:
        await asked
    assert raised.value.code == zel.ErrorCode.CANCELLED
    with pytest.raises(zel.ZelError):
        await connection.publish("t", b"")


@on_loop
async def test_connection_that_was_made_for_nobody_is_closed(device):
    instances = len(zel._connection._open)
    for _ in range(5):
        making = asyncio.ensure_future(opened(device).open())
        await asyncio.sleep(0)
        making.cancel()
    while len(zel._connection._open) > instances:
        await asyncio.sleep(0.001)


@on_loop
async def test_dropped_connection_warns_and_ends_its_threads(device):
    connection = opened(device)
    await connection.open()
    before = threading.active_count()
    with pytest.warns(ResourceWarning):
        del connection
        while threading.active_count() >= before:
            gc.collect()
            await asyncio.sleep(0.001)


@on_loop
async def test_publications_are_flushed(device):
    async with opened(device) as connection:
        await connection.publish("t", b"x")
        await connection.publish_many([Message("t", b"y"), Message("t", b"z")])
        if sys.platform != "win32":
            await connection.flush(5)
        assert connection.stats().frames_out >= 2


# ---- What comes in


@on_loop
async def test_messages_are_an_iterator(device):
    async with opened(device) as connection:
        got = []
        async with connection.messages("a/b", "c") as messages:
            await connection.publish("a/b", b"1", group=2)
            await connection.publish("c", b"2")
            async for message in messages:
                got.append(message)
                if len(got) == 2:
                    break
        assert got == [Message("a/b", b"1", 2), Message("c", b"2")]


@on_loop
async def test_messages_need_no_with(device):
    async with opened(device) as connection:
        async for message in connection.messages("flood"):
            assert message.topic == "flood"
            break


@on_loop
async def test_messages_that_are_dropped_are_unsubscribed(device):
    async with opened(device) as connection:
        async for _ in connection.messages("flood"):
            break
        gc.collect()
        while connection._inner._topics:
            await asyncio.sleep(0.001)


@on_loop
async def test_iteration_ends_when_nothing_comes(device):
    async with opened(device) as connection:
        assert [message async for message in connection.messages("quiet", timeout=0.05)] == []


@on_loop
async def test_cancelled_wait_takes_no_message(device):
    async with opened(device) as connection, connection.messages("a") as messages:
        for _ in range(20):
            with pytest.raises(asyncio.TimeoutError):
                await asyncio.wait_for(messages.get(), 0.001)
        await connection.publish("a", b"1")
        assert await messages.get(5) == Message("a", b"1")


@on_loop
async def test_second_reader_of_the_same_messages_is_refused(device):
    async with opened(device) as connection, connection.messages("a") as messages:
        first = asyncio.ensure_future(messages.get())
        await asyncio.sleep(0)
        with pytest.raises(RuntimeError):
            await messages.get()
        first.cancel()


@on_loop
async def test_close_of_the_connection_ends_the_messages(device):
    connection = opened(device)
    await connection.open()
    messages = connection.messages("a")
    reader = asyncio.ensure_future(messages.get())
    while not connection._inner._topics:
        await asyncio.sleep(0.001)
    await connection.close()
    assert await reader is None


@on_loop
async def test_routed_messages_arrive(device):
    async with opened(device) as connection:
        async with connection.routed(PORT) as routed:
            assert (await routed.get(5)).isdigit()
        async with connection.routed(PORT) as routed:
            assert (await routed.get(5)).isdigit()


@on_loop
async def test_negative_waits_are_refused(device):
    with pytest.raises(ValueError):
        zel.aio.scan(timeout=-1)
    async with opened(device) as connection:
        with pytest.raises(ValueError):
            connection.messages("a", timeout=-1)


# ---- Devices and files


@on_loop
async def test_scan_finds_the_device(device):
    async for found in zel.aio.scan(timeout=10):
        assert found.id == device
        break


@on_loop
async def test_scan_ends_in_time_and_one_may_follow_another(device):
    for _ in range(2):
        assert [found.id async for found in zel.aio.scan(timeout=4)] == [device]


@on_loop
async def test_there_is_one_scan_at_a_time():
    async with zel.aio.scan():
        with pytest.raises(RuntimeError):
            async with zel.aio.scan():
                pass


def write(path, size):
    path.write_bytes(bytes(size))
    return path


@on_loop
async def test_file_arrives_and_progress_is_told_on_the_loop(device, lab):
    steps = []

    def progress(step):
        assert asyncio.get_running_loop() is not None
        steps.append(step.sent)

    await zel.aio.send_file(device, PORT, write(lab / "aio", 20000), "aio.stored", progress)
    assert (lab / "aio.stored").read_bytes() == bytes(20000)
    assert steps == [0, 8192, 16384, 20000]


@on_loop
async def test_refused_file_is_raised(device, lab):
    with pytest.raises(zel.ZelDeviceError):
        await zel.aio.send_file(device, 601, write(lab / "aio.refused", 10), "x")
    with pytest.raises(zel.ZelError) as raised:
        await zel.aio.send_file(device, PORT, lab / "missing", "x")
    assert raised.value.code == zel.ErrorCode.FILE_OPEN


@on_loop
async def test_exception_of_progress_stops_the_transfer_and_is_raised(device, lab):
    def progress(step):
        raise LookupError("mine")

    with pytest.raises(LookupError):
        await zel.aio.send_file(device, PORT, write(lab / "aio.raised", 8192 * 2000), "aio.raised.stored", progress)
    assert not (lab / "aio.raised.stored").exists()


@on_loop
async def test_progress_stops_the_transfer(device, lab):
    with pytest.raises(zel.ZelError) as raised:
        await zel.aio.send_file(
            device, PORT, write(lab / "aio.stopped", 8192 * 2000), "aio.stopped.stored", lambda step: False
        )
    assert raised.value.code == zel.ErrorCode.CANCELLED


@on_loop
async def test_cancelled_task_stops_the_transfer(device, lab):
    steps = asyncio.Queue()
    sending = asyncio.ensure_future(
        zel.aio.send_file(device, PORT, write(lab / "aio.left", 8192 * 5000), "aio.left.stored", steps.put_nowait)
    )
    await steps.get()
    sending.cancel()
    with pytest.raises(asyncio.CancelledError):
        await sending
    await zel.aio.send_file(device, PORT, write(lab / "aio.next", 10), "aio.next.stored")  # has its turn
    assert not (lab / "aio.left.stored").exists()


# ---- Programs


def run(script):
    done = subprocess.run([sys.executable, "-X", "dev", "-c", script], capture_output=True, text=True, timeout=60)
    return done.returncode, done.stdout, done.stderr


def test_module_comes_with_the_package():
    assert run("import zel; print(zel.aio.scan.__name__)")[1] == "scan\n"


def test_package_alone_does_not_import_asyncio():
    assert run("import sys, zel; print('asyncio' in sys.modules)")[1] == "False\n"


def test_ctrl_c_ends_a_program_that_waits(device):
    begun = time.monotonic()
    code, printed, _ = run(
        f"""
import asyncio, os, signal, zel
async def main():
    async with zel.aio.Connection({str(device)!r}, timeout=5) as connection:
        asked = asyncio.ensure_future(connection.request(602, timeout=50))
        while connection.stats().in_flight == 0:
            await asyncio.sleep(0.001)
        os.kill(os.getpid(), signal.SIGINT)
        await asked
try:
    asyncio.run(main())
except KeyboardInterrupt:
    print("interrupted")
"""
    )
    assert (code, printed) == (0, "interrupted\n")
    assert time.monotonic() - begun < PATIENCE


def test_program_that_leaves_all_open_ends_cleanly(device):
    code, printed, said = run(
        f"""
import asyncio, warnings, zel
warnings.simplefilter("ignore")
async def main():
    global connection, messages
    connection = zel.aio.Connection({str(device)!r}, timeout=5)
    await connection.open()
    messages = connection.messages("flood")
    print((await messages.get()).topic)
asyncio.run(main())
"""
    )
    assert (code, printed, said) == (0, "flood\n", "")
