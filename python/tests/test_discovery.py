"""Scans, and identifiers asked of a host."""

import threading

import pytest
import zel

HOST = "10.77.0.2"


def test_scan_finds_the_device_once(device):
    with zel.scan(timeout=4) as devices:
        found = list(devices)
    assert [d.id for d in found] == [device]
    assert (found[0].address, found[0].host_name, found[0].protocol_version) == (HOST, "press-4", "1.5")
    assert found[0].hardware_address == "02:00:0A:4D:00:02"


def test_scan_callback_comes_with_each_answer(device, seen):
    with zel.scan(callback=seen.put):
        assert seen.take().id == device
        assert seen.take().id == device


def test_there_is_one_scan_at_a_time():
    with zel.scan():
        with pytest.raises(RuntimeError):
            zel.scan()
    zel.scan().close()


def test_scan_of_a_negative_time_is_refused_and_hinders_no_other():
    with pytest.raises(ValueError):
        zel.scan(timeout=-1)
    zel.scan(timeout=0).close()


def test_host_tells_and_takes_its_identifier(device):
    assert zel.DeviceId.of(HOST, timeout=5) == device
    other = zel.DeviceId.parse("1.2.3.4.5.6")
    other.assign_to(HOST, timeout=5)
    assert zel.DeviceId.of(HOST, timeout=5) == other
    device.assign_to(HOST, timeout=5)


def test_silent_host_is_a_timeout():
    with pytest.raises(zel.ZelTimeout):
        zel.DeviceId.of("127.0.0.9", timeout=0.1)


def test_local_identifier_is_not_zero():
    assert zel.DeviceId.local() != zel.DeviceId()


def test_scans_in_a_row_need_no_close(device):
    for i in range(2):
        found = [d.id for d in zel.scan(timeout=4)]
        assert found == [device]


def test_close_ends_the_iteration_at_once(seen):
    devices = zel.scan()
    reader = threading.Thread(target=lambda: seen.put(list(devices)))
    reader.start()
    devices.close()
    seen.take()
    reader.join()
