"""What a Python program is protected from, and how it chooses something else.

What holds for the whole process is shown in one of its own.
"""

import os
import subprocess
import sys
import textwrap

import pytest
import zel
from zel import Option

HOST = "10.77.0.2"
LAB = os.path.join(os.path.dirname(__file__), "..", "..", "tests", "lab", "lab.sh")
# A host of its own for a program: discovery's port is taken on the one of these tests.
ALONE = [LAB, "--"]
WITHOUT_ADAPTER = [LAB, "--hosts", "0", "--"]

PROTECTIVE = {
    Option.DISCOVERY: 0,
    Option.CHECK_XML: 1,
    Option.DROP_BAD_ANSWERS: 1,
    Option.CHECK_SENDER: 1,
    Option.MAX_ROUTES: 100000,
    Option.KEEP_ROUTES: 1,
    Option.ALL_ADAPTERS: 0,
    Option.DISCOVERY_RETRY_MS: 5000,
    Option.FILE_DROP_UNOPENED: 1,
    Option.FILE_TOTAL_MS: 3600000,
    Option.FILE_WORKERS: 1,
    Option.WRITE_STALL_MS: 5000,
    Option.CLOSE_WAIT_MS: 1000,
    Option.HEADER_WAIT_MS: 30000,
    Option.BODY_WAIT_MS: 30000,
    Option.JITTER_PERCENT: 50,
    Option.RECONNECT_MAX_SEC: 60,
    Option.MAX_BODY: 10485759,
    Option.DEAD_PEER_MS: 30000,
    Option.FOLLOW_ROUTE: 1,
}
LETTER = {**dict.fromkeys(Option, 0), Option.DISCOVERY: 1, Option.FILE_WORKERS: 1, Option.HEADER_WAIT_MS: 20}

BEGIN = """
import socket, time, zel
from zel import Option

def code_of(action, *arguments, **named):
    try:
        action(*arguments, **named)
    except zel.ZelError as failure:
        return failure.code
    return 0

def answers(data, until):
    "A device on this host answers until something comes of it; what was given back then."
    end = time.monotonic() + 20
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as device:
        while not until() and time.monotonic() < end:
            device.sendto(data, ("127.0.0.1", 38897))
            time.sleep(0.01)
    return until()

MALFORMED = b"\\x01" + bytes(8) + b"not json"
GOOD = b"\\x01" + bytes(8) + b'{"device":{"zelDeviceId":"1.2.3.4.5.6"}}'
"""


def run(script, lab=()):
    """What a program of its own printed, or how it ended."""
    command = [*lab, sys.executable, "-c", BEGIN + textwrap.dedent(script)]
    done = subprocess.run(command, capture_output=True, text=True, timeout=60)
    assert done.returncode == 0, (done.returncode, done.stderr)
    return done.stdout.splitlines()


def options_after(script):
    printed = run(script + "\nfor option in Option: print(int(option), zel.get_option(option))\n")
    return {Option(int(number)): int(value) for number, value in (line.split() for line in printed)}


# ---- Of the process


def test_programs_are_protected_by_default():
    assert options_after("") == PROTECTIVE


def test_init_protects_as_well():
    assert options_after("zel.init()") == PROTECTIVE


def test_letter_is_there_on_request():
    assert options_after("zel.init(protect=False)") == LETTER


def test_single_options_hold_beside_protection():
    given = {Option.CHECK_XML: 0, Option.WRITE_STALL_MS: 2000}
    assert options_after(
        "zel.init(options={Option.CHECK_XML: 0, Option.WRITE_STALL_MS: 2000})"
    ) == {**PROTECTIVE, **given}


def test_single_options_hold_by_the_letter():
    found = options_after("zel.init(protect=False, options={Option.DROP_BAD_ANSWERS: 1})")
    assert found == {**LETTER, Option.DROP_BAD_ANSWERS: 1}


def test_other_choices_are_too_late_behind_the_start():
    assert run(
        """
        zel.version(), zel.discovery()
        print(code_of(zel.init, protect=False))
        print(code_of(zel.init, options={Option.DISCOVERY: 1}))
        print(code_of(zel.init, peers="10.0.0.0/8"))
        print(code_of(zel.set_option, Option.CHECK_XML, 0))
        print(zel.get_option(Option.DROP_BAD_ANSWERS), zel.get_option(Option.DISCOVERY))
        """
    ) == ["20483"] * 4 + ["1 0"]


def test_same_choice_may_be_made_again():
    choice = "zel.init(protect=False, options={Option.DISCOVERY: 0, Option.MAX_ROUTES: 7}, peers='10.0.0.0/8')"
    assert run(f"{choice}\n{choice}\nzel.init()\nprint(zel.get_option(Option.MAX_ROUTES))") == ["7"]


def test_init_that_fails_leaves_the_library_to_be_set_up():
    assert run(
        """
        print(code_of(zel.init, options={Option.FILE_WORKERS: 65}))
        print(code_of(zel.init, peers="everywhere"))
        zel.init(protect=False)
        print(zel.get_option(Option.DROP_BAD_ANSWERS))
        """
    ) == ["8196", "8196", "0"]


def test_start_by_somebody_else_is_told():
    assert run(
        """
        import ctypes, os
        library = ctypes.CDLL(os.environ["ZEL_LIBRARY"])
        library.libzelx_setLogSink(None, None)
        library.libzel_init()
        print(code_of(zel.discovery))
        zel.init(protect=False)
        print(code_of(zel.discovery))
        """
    ) == ["20483", "0"]


def test_options_of_the_process_can_be_set_later():
    earlier = zel.get_option(Option.FILE_TOTAL_MS)
    zel.set_option(Option.FILE_TOTAL_MS, 60000)
    assert zel.get_option(Option.FILE_TOTAL_MS) == 60000
    zel.set_option(Option.FILE_TOTAL_MS, earlier)


@pytest.mark.parametrize("value", [65, 0, -1, 2**63, 2**64 + 1, -(2**64)])
def test_value_out_of_range_is_refused(value):
    with pytest.raises(zel.ZelError) as raised:
        zel.set_option(Option.FILE_WORKERS, value)
    assert raised.value.code == zel.ErrorCode.PARAM
    assert zel.get_option(Option.FILE_WORKERS) == 1


def test_value_is_a_whole_number():
    with pytest.raises(TypeError):
        zel.set_option(Option.FILE_TOTAL_MS, 1.5)


# ---- Of a connection


def test_connection_begins_protected(connection):
    assert connection.get_option(Option.DEAD_PEER_MS) == 30000


def test_connection_has_options_of_its_own(device, connection):
    with zel.Connection(device, options={Option.WRITE_STALL_MS: 2000, Option.MAX_BODY: 1024}) as other:
        other.set_option(Option.JITTER_PERCENT, 10)
        found = [other.get_option(o) for o in (Option.WRITE_STALL_MS, Option.MAX_BODY, Option.JITTER_PERCENT)]
    assert found == [2000, 1024, 10]
    assert connection.get_option(Option.WRITE_STALL_MS) == 5000
    assert zel.get_option(Option.WRITE_STALL_MS) == 5000


@pytest.mark.parametrize(
    "option, value, code",
    [
        (Option.JITTER_PERCENT, 101, zel.ErrorCode.PARAM),
        (Option.HEADER_WAIT_MS, -1, zel.ErrorCode.PARAM),
        (Option.MAX_ROUTES, 1, zel.ErrorCode.HANDLE),
    ],
)
def test_connection_refuses_what_is_not_its_own_or_out_of_range(device, option, value, code):
    with pytest.raises(zel.ZelError) as raised:
        zel.Connection(device, options={option: value})
    assert raised.value.code == code


def test_closed_connection_sets_nothing_of_the_process(device):
    connection = zel.Connection(device)
    connection.close()
    for option in (Option.MAX_ROUTES, Option.MAX_BODY):
        with pytest.raises(zel.ZelError) as raised:
            connection.set_option(option, 7)
        assert raised.value.code == zel.ErrorCode.HANDLE
        assert zel.get_option(option) == PROTECTIVE[option]
    with pytest.raises(zel.ZelError):
        connection.get_option(Option.MAX_BODY)


# ---- Discovery


def test_nothing_is_bound_before_a_scan():
    assert run(
        """
        zel.init()
        socket.socket(socket.AF_INET, socket.SOCK_DGRAM).bind(("0.0.0.0", 38897))
        state = zel.discovery()
        print(state.running, repr(state.reason))
        """,
        ALONE,
    ) == ["False ''"]


def test_scan_starts_discovery(device):
    with zel.scan(timeout=10) as devices:
        assert next(devices).id == device
    state = zel.discovery()
    assert (state.running, state.adapters, state.reason) == (True, 1, "")
    assert state.adapter_names != ""
    assert state.answers >= 1


def test_discovery_starts_without_a_scan():
    assert run("zel.start_discovery()\nzel.start_discovery()\nprint(zel.discovery().running)") == ["True"]


def test_scan_raises_when_the_port_is_taken():
    assert run(
        """
        other = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        other.bind(("0.0.0.0", 38897))
        for i in range(2):
            try:
                zel.scan()
            except zel.ZelError as failure:
                print(failure.code, failure.reason.split(": ")[0])
        print(zel.discovery().running)
        """,
        ALONE,
    ) == ["8195 bind ZEL_MUTILCAST_PORT:38897"] * 2 + ["False"]


def test_scan_works_when_the_port_is_free_again():
    assert run(
        """
        other = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        other.bind(("0.0.0.0", 38897))
        zel.init(options={Option.DISCOVERY_RETRY_MS: 50})
        print(code_of(zel.scan))
        other.close()
        end = time.monotonic() + 20
        while not zel.discovery().running and time.monotonic() < end:
            time.sleep(0.01)
        heard = []
        with zel.scan(callback=heard.append):
            print(answers(GOOD, lambda: any(device.id_text == "1.2.3.4.5.6" for device in heard)))
        """,
        ALONE,
    ) == ["8195", "True"]


def test_scan_raises_without_an_adapter():
    printed = run(
        """
        try:
            zel.scan()
        except zel.ZelError as failure:
            print(failure.code, failure.reason != "", zel.discovery().running)
        """,
        WITHOUT_ADAPTER,
    )
    assert printed == ["8195 True False"]


def test_answers_from_other_networks_are_dropped():
    assert run(
        """
        zel.init(peers="192.0.2.0/24")
        with zel.scan():
            print(answers(GOOD, lambda: zel.discovery().dropped > 0), zel.discovery().answers)
        """,
        ALONE,
    ) == ["True 0"]


HEAR_MALFORMED = """
heard = []
with zel.scan(callback=heard.append):
    print(answers(MALFORMED, lambda: zel.discovery().dropped > 0))
    print(answers(GOOD, lambda: any(device.id_text == "1.2.3.4.5.6" for device in heard)))
"""


def test_malformed_answer_is_dropped():
    assert run(HEAR_MALFORMED, ALONE) == ["True", "True"]


def test_malformed_answer_ends_the_program_by_the_letter():
    script = BEGIN + "zel.init(protect=False)" + HEAR_MALFORMED
    done = subprocess.run([*ALONE, sys.executable, "-c", script], capture_output=True, text=True, timeout=60)
    assert done.returncode == 128 + 6
    assert done.stdout == ""


# ---- Routes


def test_unknown_identifier_leads_to_its_first_four_bytes():
    assert zel.get_route("9.8.7.6.5.4") == "9.8.7.6"


def test_connection_goes_where_it_is_pinned():
    zel.set_route("9.8.7.6.5.3", HOST)
    assert zel.get_route("9.8.7.6.5.3") == HOST
    with zel.Connection("9.8.7.6.5.3", timeout=5) as connection:
        assert connection.request(600, b"what", timeout=5) == b"what"


def test_pinned_route_can_be_forgotten():
    zel.set_route("9.8.7.6.5.2", HOST)
    zel.set_route("9.8.7.6.5.2", None)
    assert zel.get_route("9.8.7.6.5.2") == "9.8.7.6"


def test_what_is_no_address_is_refused():
    with pytest.raises(zel.ZelError) as raised:
        zel.set_route("9.8.7.6.5.1", "press-4")
    assert raised.value.code == zel.ErrorCode.PARAM
