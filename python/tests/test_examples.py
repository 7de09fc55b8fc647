"""The examples, run as a user runs them. They print on standard error."""

import pathlib
import subprocess
import sys

import pytest

EXAMPLES = pathlib.Path(__file__).parent.parent / "examples"
DEVICE = "10.77.0.2.0.1"


def run(*arguments):
    done = subprocess.run([sys.executable, *map(str, arguments)], cwd=EXAMPLES, capture_output=True, timeout=60)
    return done.returncode, done.stderr.decode()


def test_request():
    assert run("request.py", DEVICE, 600, "what") == (0, "what\n")
    assert run("request.py", DEVICE, 601, "what") == (1, "alaready disconnect (5)\n")


def test_request_tells_why_nobody_answers():
    refused = "alaready disconnect (5): connect 127.0.0.9:9999: refused\n"
    assert run("request.py", "127.0.0.9.0.1", 600, "what") == (1, refused)


def test_many_requests():
    right = "400 of 400 answers were right\n"
    assert run("many_requests.py", DEVICE, 600, 602) == (0, "the slow one was given up\n" + right)
    assert run("many_requests.py", DEVICE, 600, 600) == (0, "the slow one answered 4 bytes\n" + right)


def test_asynchronous():
    code, text = run("asynchronous.py", DEVICE, 600, "flood")
    assert (code, text.splitlines()[-1]) == (0, "400 of 400 answers were right")


def test_discover():
    assert run("discover.py", 3) == (0, "10.77.0.2.0.1 10.77.0.2 press-4 1.5\n")


def test_send_file(lab):
    (lab / "sent").write_bytes(bytes(20000))
    code, text = run("send_file.py", DEVICE, 700, lab / "sent", "example.stored")
    assert (code, text.split()[-2:]) == (0, ["100%", "sent"])
    assert (lab / "example.stored").read_bytes() == bytes(20000)


def test_subscribe():
    arguments = [sys.executable, str(EXAMPLES / "subscribe.py"), DEVICE, "flood"]
    with subprocess.Popen(arguments, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE) as process:
        lines = [process.stderr.readline().split()[0] for _ in range(3)]
        process.terminate()
    assert lines == [b"PENDING", b"CONNECTED", b"flood"]


@pytest.mark.parametrize("example", ["asynchronous", "many_requests", "request", "subscribe", "send_file"])
def test_usage_is_told(example):
    code, text = run(f"{example}.py")
    assert code == 1 and f"{example}.py DEVICE" in text
