"""Where the library's log goes in a Python program."""

import logging
import re
import subprocess
import sys
import threading
import time

import pytest
import zel
from conftest import PATIENCE

NOBODY = "127.0.0.9.0.1"


class Lines(logging.Handler):
    """Keeps what it is given."""

    def __init__(self):
        super().__init__()
        self.records = []

    def emit(self, record):
        self.records.append(record)

    def messages(self):
        """All that was logged until now."""
        zel.init(log=None)  # hands over what waits
        return [record.getMessage() for record in self.records]


@pytest.fixture
def lines():
    return Lines()


@pytest.fixture
def logger(lines, request):
    made = logging.getLogger(f"test.{request.node.name}")
    made.setLevel(logging.WARNING)
    made.propagate = False
    made.addHandler(lines)
    yield made
    zel.init(log=logging.getLogger("zel"))


@pytest.fixture
def nobody():
    with zel.Connection(NOBODY, timeout=0.1) as made:
        yield made


def log_an_error(connection, topic="a"):
    """An ERROR line, "topic:<topic> no subscribe"."""
    with pytest.raises(zel.ZelError):
        connection.unsubscribe(topic)


def run(script):
    return subprocess.run([sys.executable, "-c", script], capture_output=True, text=True, timeout=60)


FAIL = f"""
import zel
c = zel.Connection({NOBODY!r}, timeout=0.1)
try:
    c.unsubscribe("a")
except zel.ZelError:
    pass
"""


def test_nothing_is_printed_by_default():
    done = run(FAIL)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


def test_configured_logging_gets_the_lines_before_the_interpreter_ends():
    done = run("import logging\nlogging.basicConfig(level=logging.DEBUG, format='%(levelname)s %(name)s %(message)s')" + FAIL)
    assert done.stdout == ""
    assert "ERROR zel topic:a no subscribe\n" in done.stderr
    assert "INFO zel libzelclient Version 0.2.3\n" in done.stderr
    assert "DEBUG zel " in done.stderr


def test_standard_output_is_there_on_request():
    done = run("import zel\nzel.init(log=zel.STDOUT)" + FAIL)
    assert "[libzel,NOTICE," in done.stdout and "topic:a no subscribe" in done.stdout
    assert "[libzel,DEBUG," in done.stdout
    assert done.stderr == ""


def test_no_log_is_no_log():
    done = run("import logging, zel\nlogging.basicConfig(level=logging.DEBUG)\nzel.init(log=None)" + FAIL)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


def test_record_has_every_part(logger, lines, nobody):
    zel.init(log=logger)
    before = time.time()
    thread = threading.Thread(target=log_an_error, args=[nobody])
    thread.start()
    thread.join()
    assert "topic:a no subscribe" in lines.messages()
    record = next(record for record in lines.records if record.getMessage() == "topic:a no subscribe")
    assert (record.name, record.levelno) == (logger.name, logging.ERROR)
    assert (record.filename, record.funcName) == ("ZelTcpclient.cpp", "CTcpclient::UnSubscribe")
    assert record.lineno > 1
    assert before - 0.001 <= record.created <= time.time()
    assert record.thread == thread.native_id


def test_level_is_the_loggers(logger, lines, nobody):
    zel.init(log=logger)
    zel.Connection(NOBODY, timeout=0.1).close()
    assert lines.messages() != []
    assert {record.levelno for record in lines.records} == {logging.ERROR}


def test_level_can_be_given(logger, lines, nobody):
    logger.setLevel(logging.DEBUG)
    zel.init(log=logger, level=logging.CRITICAL)
    log_an_error(nobody)
    zel.init(log=logger, level=logging.ERROR)
    log_an_error(nobody, "b")
    zel.init(log=logger, level=logging.DEBUG)
    zel.Connection(NOBODY, timeout=0.1).close()
    assert lines.messages()[0] == "topic:b no subscribe"
    assert logging.DEBUG in {record.levelno for record in lines.records}


def test_later_options_leave_the_log_where_it_is(logger, lines, nobody):
    zel.init(log=logger)
    zel.init(options={zel.Option.FILE_TOTAL_MS: zel.get_option(zel.Option.FILE_TOTAL_MS)})
    zel.init()
    log_an_error(nobody)
    assert "topic:a no subscribe" in lines.messages()


def test_later_level_leaves_the_log_where_it_is(logger, lines, nobody):
    zel.init(log=logger)
    zel.init(level=logging.CRITICAL)
    log_an_error(nobody, "unheard")
    zel.init(level=logging.ERROR)
    log_an_error(nobody, "heard")
    assert lines.messages() == ["topic:heard no subscribe"]


def test_refused_options_leave_the_log_where_it_is(logger, lines, nobody):
    zel.init(log=logger)
    with pytest.raises(zel.ZelError):
        zel.init(log=None, protect=False)
    log_an_error(nobody)
    assert "topic:a no subscribe" in lines.messages()


# As when one thread chooses a log while another sets the library up.
@pytest.mark.parametrize("log", [zel.STDOUT, None, logging.getLogger("zel")])
def test_log_is_chosen_while_somebody_sets_the_library_up(log):
    zel.version()
    chooser = threading.Thread(target=zel._log.choose_log, args=[log, logging.CRITICAL], daemon=True)
    with zel._library.setup_lock:
        chooser.start()
        chooser.join(PATIENCE)
        assert not chooser.is_alive()
    zel.init(log=logging.getLogger("zel"))


def test_threads_may_choose_and_set_up_at_the_same_time():
    done = run(
        """
import threading, zel
ready = threading.Barrier(3)
def choose():
    ready.wait()
    for _ in range(50):
        zel.init(log=None)
        zel.init(log=zel.STDOUT, level=100)
def begin():
    ready.wait()
    zel.discovery()
threads = [threading.Thread(target=target) for target in (choose, choose, begin)]
for thread in threads:
    thread.start()
for thread in threads:
    thread.join()
"""
    )
    assert (done.returncode, done.stderr) == (0, "")


@pytest.mark.parametrize("wrong", ["zel", sys.stdout, 3])
def test_other_logs_are_refused(wrong):
    with pytest.raises(TypeError):
        zel.init(log=wrong)


def test_many_threads_log_and_no_line_is_lost(logger, lines, nobody):
    zel.init(log=logger)

    def run_one(topic):
        for _ in range(200):
            log_an_error(nobody, topic)

    threads = [threading.Thread(target=run_one, args=[f"thread{i}"]) for i in range(8)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    messages = lines.messages()
    assert [messages.count(f"topic:thread{i} no subscribe") for i in range(8)] == [200] * 8


def test_handler_may_wait_for_a_thread_that_logs(logger, lines, nobody):
    zel.init(log=logger)
    other = threading.Thread(target=log_an_error, args=[nobody, "other"], daemon=True)
    lines.acquire()
    try:
        other.start()
        other.join(PATIENCE)
        assert not other.is_alive()
        log_an_error(nobody, "mine")
    finally:
        lines.release()
    messages = lines.messages()
    assert "topic:other no subscribe" in messages and "topic:mine no subscribe" in messages


def test_handler_may_call_the_library_and_causes_no_line(logger, lines, nobody):
    class Calls(logging.Handler):
        def emit(self, record):
            log_an_error(nobody, "from the handler")

    logger.addHandler(Calls())
    zel.init(log=logger)
    log_an_error(nobody)
    messages = lines.messages()
    assert "topic:a no subscribe" in messages
    assert "topic:from the handler no subscribe" not in messages


def test_handler_that_raises_leaves_the_others_their_lines(logger, lines, nobody, capsys):
    class Raises(logging.Filter):
        def filter(self, record):
            if "first" in record.getMessage():
                raise LookupError("mine")
            return True

    logger.addFilter(Raises())
    zel.init(log=logger)
    log_an_error(nobody, "first")
    log_an_error(nobody, "second")
    assert "topic:second no subscribe" in lines.messages()
    assert "LookupError: mine" in capsys.readouterr().err


def test_lines_that_are_too_many_are_counted(logger, lines, nobody, monkeypatch):
    monkeypatch.setattr(zel._log, "_MOST_WAITING", 10)
    zel.init(log=logger)
    lines.acquire()
    try:
        for _ in range(100):
            log_an_error(nobody)
    finally:
        lines.release()
    messages = lines.messages()
    kept = messages.count("topic:a no subscribe")
    assert 10 <= kept < 20
    reports = [re.fullmatch(r"(\d+) lines of the log were dropped, handlers are too slow", text) for text in messages]
    assert sum(int(report[1]) for report in reports if report) == 100 - kept


@pytest.mark.parametrize("attempt", range(5))
def test_interpreter_ends_cleanly_while_everything_logs(attempt):
    script = """
import logging, threading, zel
zel.init(level=logging.DEBUG)
c = zel.Connection("10.77.0.2.0.1")
arrived = threading.Event()
c.subscribe("flood", lambda message: arrived.set())
c.start_loop()
def log():
    while True:
        try:
            c.unsubscribe("never")
        except zel.ZelError:
            pass
for _ in range(4):
    threading.Thread(target=log, daemon=True).start()
assert arrived.wait(20)
"""
    done = run(script)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


def test_child_that_was_forked_off_repeats_no_line():
    fork = "import os, sys\nif os.fork() == 0:\n  sys.exit()\nos.wait()\n"
    done = run("import logging\nlogging.basicConfig()" + FAIL + fork)
    assert (done.returncode, done.stderr.count("topic:a no subscribe")) == (0, 1)
