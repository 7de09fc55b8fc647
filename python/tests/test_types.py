"""What needs no server."""

import os

import pytest
import zel
from zel._find import library_file, places


def test_version_is_the_librarys():
    assert zel.version() == "0.2.3"


def test_library_is_looked_for_inside_of_the_package_first():
    assert places("linux", "/opt/zel", {}) == ["/opt/zel/libzel.so.0"]


def test_library_is_found_beside_the_package_and_in_bin_and_on_the_path_of_windows():
    path = {"PATH": 'C:\\Windows;"D:\\My tools";;relative'}
    assert places("win32", "C:\\libzel\\python\\zel", path) == [
        "C:\\libzel\\python\\zel\\libzel.dll",
        "C:\\libzel\\python\\libzel.dll",
        "C:\\libzel\\bin\\libzel.dll",
        "C:\\Windows\\libzel.dll",
        "D:\\My tools\\libzel.dll",
    ]


def test_library_that_the_environment_names_is_taken_before_all(monkeypatch):
    monkeypatch.setenv("ZEL_LIBRARY", "/somewhere/libzel.so")
    assert library_file() == "/somewhere/libzel.so"


def test_version_of_the_package_is_the_products():
    assert zel.__version__ == os.environ["ZEL_EXPECTED_VERSION"]


@pytest.mark.parametrize("text", ["0.0.0.0.0.0", "192.168.1.20.0.1", "255.255.255.255.255.255"])
def test_device_id_reads_what_it_prints(text):
    assert str(zel.DeviceId.parse(text)) == text


@pytest.mark.parametrize(
    "text", ["", "1.2.3.4.5", "1.2.3.4.5.6.7", "1..3.4.5.6", "1.2.3.4.5.256", "1.2.3.4.5.-1", "1.2.3.4.5. 6", "a.b.c.d.e.f"]
)
def test_device_id_refuses_everything_else(text):
    with pytest.raises(ValueError):
        zel.DeviceId.parse(text)


def test_device_ids_compare_and_hash_by_value():
    low, high = zel.DeviceId(bytes([1, 2, 3, 4, 5, 6])), zel.DeviceId(bytes([1, 2, 3, 4, 5, 200]))
    assert low < high and low == zel.DeviceId.parse("1.2.3.4.5.6")
    assert len({low, high, zel.DeviceId.parse("1.2.3.4.5.6")}) == 2


def test_error_carries_code_and_text():
    error = zel.ZelError(4104, b"x")
    assert (error.code, error.text, error.data) == (4104, "recv message timeout", b"x")
    assert str(error) == "recv message timeout (4104)"


@pytest.mark.parametrize(
    "code, text", [(zel.ErrorCode.RESOURCE, "init resource fail"), (zel.ErrorCode.MEMORY, "no memory")]
)
def test_codes_of_failures_inside_have_names(code, text):
    assert zel.ZelError(code).text == text


def test_closed_connection_refuses_everything():
    connection = zel.Connection("127.0.0.9.0.1", timeout=0.1)
    connection.close()
    connection.close()
    assert connection.closed
    for call in (
        connection.start_loop,
        connection.stop_loop,
        connection.reconnect,
        lambda: connection.set_reconnect_interval(1),
        lambda: connection.send(600, b"x"),
        connection.receive,
        lambda: connection.publish("t", b"x"),
        lambda: connection.subscribe("t", print),
        lambda: connection.unsubscribe("t"),
        lambda: connection.route(700, print),
        lambda: connection.unroute(700),
    ):
        with pytest.raises(zel.ZelError) as raised:
            call()
        assert raised.value.code == zel.ErrorCode.HANDLE


def test_every_code_of_the_library_has_its_text():
    for code in zel.ErrorCode:
        assert zel.error_text(code) != "Unknown error code"
