"""Ctrl-C, and connections that nobody closes."""

import contextlib
import gc
import pathlib
import subprocess
import sys
import textwrap
import time
import warnings

import pytest
import zel
from conftest import PATIENCE

# On the lab's network, where nobody has this address.
NOWHERE = "10.77.0.99.0.1"

BEGIN = """
import os, signal, sys, threading, time, zel

def frames():
    frame = sys._current_frames()[threading.main_thread().ident]
    while frame is not None:
        yield frame
        frame = frame.f_back

def interrupt():
    "Ctrl-C, when the main thread is inside of the call that is tried, and waits."
    while not any(frame.f_code.co_name == "tried" for frame in frames()) or next(frames()).f_code.co_name not in (
        "wait", "get", "wait_for"
    ):
        time.sleep(0.001)
    begun.append(time.monotonic())
    os.kill(os.getpid(), signal.SIGINT)

def report(action):
    begun.clear()
    threading.Thread(target=interrupt, daemon=True).start()
    def tried():
        action()
    try:
        tried()
    except KeyboardInterrupt:
        seconds = time.monotonic() - begun[0]
        print("at once" if seconds < 1.5 else seconds)

begun = []
"""


def run(script):
    """What a program printed, and how it ended."""
    begun = time.monotonic()
    done = subprocess.run(
        [sys.executable, "-c", BEGIN + textwrap.dedent(script)], capture_output=True, text=True, timeout=60
    )
    assert time.monotonic() - begun < PATIENCE
    assert (done.returncode, done.stderr) == (0, "")
    return done.stdout.splitlines()


@pytest.mark.parametrize(
    "action",
    [
        "connection.request(602, timeout=50)",
        "connection.submit(602, timeout=50).result()",
        "connection.messages('quiet').get()",
        "next(connection.messages('quiet'))",
        "zel.DeviceId.of('10.77.0.99', timeout=50)",
        "zel.DeviceId().assign_to('10.77.0.99', timeout=50)",
        "list(zel.scan())",
        "zel.send_file(NOWHERE, 602, sys.executable, 'x').wait()",
    ],
)
def test_ctrl_c_ends_a_call_at_once(device, action):
    assert run(
        f"""
        device, NOWHERE = {str(device)!r}, {NOWHERE!r}
        with zel.Connection(device, timeout=5) as connection:
            report(lambda: {action})
        """
    ) == ["at once"]


def test_ctrl_c_ends_a_wait_for_an_answer_by_hand_at_once():
    assert run(
        """
        import socket
        silent = socket.create_server(("127.0.0.1", 9999))
        with zel.Connection("127.0.0.1.0.1", timeout=5) as connection:
            connection.send(600)
            report(lambda: connection.receive(timeout=50))
        """
    ) == ["at once"]


def test_ctrl_c_ends_a_connect_at_once():
    assert run(f"report(lambda: zel.Connection({NOWHERE!r}, timeout=50))") == ["at once"]


def test_ctrl_c_within_a_callback_of_the_connect_ends_it_too():
    printed = run(
        f"""
        def on_event(device, event):
            begun.append(time.monotonic())
            os.kill(os.getpid(), signal.SIGINT)
        try:
            zel.Connection({NOWHERE!r}, timeout=50, on_event=on_event)
        except KeyboardInterrupt:
            print(time.monotonic() - begun[0] < 1.5)
        """
    )
    assert printed == ["True"]


def test_ctrl_c_ends_a_close_that_waits_for_a_callback(device):
    assert run(
        f"""
        entered, leave = threading.Event(), threading.Event()
        connection = zel.Connection({str(device)!r}, timeout=5)
        connection.route(700, lambda port, payload: (entered.set(), leave.wait(20)))
        connection.start_loop()
        entered.wait(20)
        report(connection.close)
        leave.set()
        """
    ) == ["at once"]


def test_ctrl_c_that_nobody_catches_ends_the_program(device):
    script = f"""
with zel.Connection({str(device)!r}, timeout=5) as connection:
    threading.Thread(target=interrupt, daemon=True).start()
    def tried():
        connection.request(602, timeout=50)
    tried()
"""
    done = subprocess.run([sys.executable, "-c", BEGIN + script], capture_output=True, text=True, timeout=PATIENCE)
    assert done.returncode == -2
    assert done.stderr.endswith("KeyboardInterrupt\n")


def test_connection_goes_on_behind_an_interrupted_request(device):
    assert run(
        f"""
        with zel.Connection({str(device)!r}, timeout=5) as connection:
            report(lambda: connection.request(602, timeout=50))
            print(connection.request(600, b"next", timeout=5))
        """
    ) == ["at once", "b'next'"]


def test_program_whose_calls_were_interrupted_ends_at_once(device):
    run(
        f"""
        for i in range(3):
            report(lambda: zel.Connection({NOWHERE!r}, timeout=50))
        connection = zel.Connection({str(device)!r}, timeout=5)
        report(lambda: connection.request(602, timeout=50))
        """
    )


# ---- What is dropped


def threads_of_the_library():
    names = []
    for task in pathlib.Path("/proc/self/task").iterdir():
        with contextlib.suppress(OSError):  # it has ended meanwhile
            names.append((task / "comm").read_text().strip())
    return names.count("zel-receive")


def wait_until(condition):
    end = time.monotonic() + PATIENCE
    while not condition() and time.monotonic() < end:
        time.sleep(0.005)
    return condition()


def test_dropped_connection_warns_and_is_closed(device, seen):
    connection = zel.Connection(device, timeout=5, on_event=lambda device, event: None)
    connection.route(700, lambda port, payload: seen.put(payload))
    connection.start_loop()
    seen.take()
    open_ones = len(zel._connection._targets._targets)
    with pytest.warns(ResourceWarning, match="unclosed <zel.Connection 10.77.0.2.0.1>"):
        del connection
        gc.collect()
    assert wait_until(lambda: len(zel._connection._targets._targets) == open_ones - 2)
    while not seen.empty():
        seen.take()
    assert seen.empty()


@pytest.mark.skipif(sys.platform != "linux", reason="counts in /proc")
def test_dropped_connection_ends_its_thread(device):
    before = threads_of_the_library()
    connection = zel.Connection(device, timeout=5)
    connection.start_loop()
    assert wait_until(lambda: threads_of_the_library() == before + 1)
    with pytest.warns(ResourceWarning):
        del connection
        gc.collect()
    assert wait_until(lambda: threads_of_the_library() == before)


def test_connection_may_be_dropped_in_its_own_callback(device):
    assert run(
        f"""
        import gc, queue, warnings
        warnings.simplefilter("ignore")
        seen, held = queue.Queue(), []
        held.append(zel.Connection({str(device)!r}, timeout=5))
        def callback(port, payload):
            held.clear()
            gc.collect()
            seen.put(port)
        held[0].route(700, callback)
        held[0].start_loop()
        print(seen.get(timeout=20))
        """
    ) == ["700"]


def test_closed_connection_warns_of_nothing(device):
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        connection = zel.Connection(device, timeout=5)
        connection.close()
        del connection
        gc.collect()


def test_program_that_drops_its_connection_ends_cleanly(device):
    assert run(f"zel.Connection({str(device)!r}, timeout=5).start_loop()\nprint('end')") == ["end"]
