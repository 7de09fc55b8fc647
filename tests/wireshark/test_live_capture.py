"""The library and the lab's device, captured between the hosts: what was sent is what is decoded."""

import os
import pathlib
import socket
import subprocess
import time

import pytest
import zel
from capture import dissect, protocols

DEVICE = "10.77.0.2.0.1"
HOST = "10.77.0.2"
LARGE = bytes(range(256)) * 400
MARK = b"this is the end of the capture"


def await_that(condition, seconds=20):
    end = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < end, "waited in vain"
        time.sleep(0.01)


def run_traffic(lab):
    with zel.scan(timeout=20) as devices:
        next(devices)
    zel.DeviceId.of(HOST, timeout=5)
    with zel.Connection(DEVICE, timeout=5) as connection:
        connection.request(600, b"hello", group=0x11, offset=0x22, timeout=5)
        connection.request(600, LARGE, timeout=5)
        connection.request(602, b"late", timeout=5)
        with pytest.raises(zel.ZelError):
            connection.request(601, b"x", timeout=5)
    with zel.Connection(DEVICE, timeout=5) as connection:
        with connection.messages("press/temperature", timeout=20) as messages:
            connection.publish("press/temperature", b"21\0.5", group=3, offset=4)
            next(messages)
    (lab / "file").write_bytes(LARGE[:20000])
    zel.send_file(DEVICE, 700, lab / "file", "stored").wait(20)


@pytest.fixture(scope="module")
def captured():
    lab = pathlib.Path(os.environ["ZEL_LAB"])
    path, log = lab / "live.pcap", lab / "dumpcap.log"
    with log.open("wb") as out:
        dumpcap = subprocess.Popen(["dumpcap", "-q", "-P", "-i", "eth0", "-w", str(path)], stderr=out)
    try:
        # Written when the interface is open.
        await_that(lambda: b"File:" in log.read_bytes())
        run_traffic(lab)
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as mark:
            await_that(lambda: mark.sendto(MARK, (HOST, 9)) and path.exists() and MARK in path.read_bytes())
    finally:
        dumpcap.terminate()
        dumpcap.wait()
    return path


@pytest.fixture(scope="module")
def messages(captured):
    return dissect(captured)


def requests_to(messages, port, group=None):
    found = [m for m in messages if m.number("zel.port") == port and m.number("zel.id_group") is not None]
    return [m for m in found if group is None or m.number("zel.id_group") == group]


def answer_to(messages, asked):
    [told] = [
        m
        for m in messages
        if m.number("zel.response_to") == asked.frame
        and m.number("zel.invoke_id") == asked.number("zel.invoke_id")
        and m.number("zel.port") == asked.number("zel.port")
    ]
    assert asked.number("zel.response_in") == told.frame
    return told


def test_request_and_answer(messages):
    [asked] = requests_to(messages, 600, 0x11)
    assert (asked.number("zel.id_offset"), asked.bytes("zel.payload")) == (0x22, b"hello")
    told = answer_to(messages, asked)
    assert told.bytes("zel.payload") == b"hello"
    assert float(told.show("zel.time")) > 0


def test_large_request_is_put_together(messages):
    [asked] = requests_to(messages, 600, 0)
    assert asked.bytes("zel.payload") == LARGE
    assert answer_to(messages, asked).bytes("zel.payload") == LARGE


def test_round_trip_is_the_devices_delay(messages):
    [asked] = requests_to(messages, 602)
    assert 50 <= float(answer_to(messages, asked).show("zel.time")) < 5000


def test_error_answer_is_noted(messages):
    [asked] = requests_to(messages, 601)
    told = answer_to(messages, asked)
    assert (told.number("zel.error"), told.experts) == (5, ["failed"])


def test_topic_goes_out_and_comes_back(messages):
    records = [m for m in messages if m.number("zel.port") == 103]
    assert [m.show("zel.topic.verb") for m in records] == ["sub", "pub", "pub", "unsub"]
    assert {m.show("zel.topic.name") for m in records} == {"press/temperature"}
    sent, received = records[1:3]
    for m in (sent, received):
        assert m.bytes("zel.topic.data") == b"21\0.5"
        assert (m.number("zel.topic.id_group"), m.number("zel.topic.id_offset")) == (3, 4)
    assert sent.number("zel.id_group") == 3
    assert received.number("zel.id_group") is None


def test_file_goes_out_in_chunks(messages):
    sent = requests_to(messages, 700, 0x1002)
    assert [m.number("zel.file.type") for m in sent] == [1, 2, 2, 2]
    assert [m.number("zel.file.last") for m in sent] == [0, 0, 0, 1]
    assert sent[0].number("zel.file.size") == 20000
    assert sent[0].show("zel.file.path") == "stored"
    assert b"".join(m.bytes("zel.file.data") for m in sent[1:]) == LARGE[:20000]
    told = [answer_to(messages, m) for m in sent]
    assert [m.number("zel.file.error") for m in told] == [0, 0, 0, 0]
    assert told[0].number("zel.file.handle") == sent[1].number("zel.file.handle")


def test_ticks_are_no_answers(messages):
    ticks = [m for m in messages if m.number("zel.port") == 701]
    for m in ticks:
        assert m.bytes("zel.payload").isdigit() and m.experts == []


def test_direct_request_is_answered(messages):
    [asked] = requests_to(messages, 101)
    assert answer_to(messages, asked).show("zel.device_id") == DEVICE


def test_discovery_is_answered(captured):
    scans = dissect(captured, "zel_scan")
    assert {m.number("zel_scan.type") for m in scans} == {0, 1, 2}
    told = [m for m in scans if m.number("zel_scan.type") == 1]
    assert told
    asked = {m.frame for m in scans if m.number("zel_scan.type") != 1}
    assert all(m.number("zel_scan.response_to") in asked for m in told)
    assert all(float(m.show("zel_scan.time")) >= 0 for m in told)
    assert any(name.endswith(":zel_scan:json") for name in protocols(captured))
    assert [m.experts for m in scans] == [[]] * len(scans)


def test_nothing_sound_is_called_malformed(messages):
    assert {expert for m in messages for expert in m.experts} == {"failed"}
