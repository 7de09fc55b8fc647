"""Frames of known bytes, sound and malformed."""

import struct

import pytest
from capture import answer, dissect, inner, message, outer, protocols, record, request, summaries
from capture import to_client, to_server, write_capture


@pytest.fixture
def tcp(tmp_path):
    return lambda *packets: dissect(write_capture(tmp_path / "tcp.pcap", "tcp", 9999, packets))


@pytest.fixture
def direct(tmp_path):
    return lambda *packets: dissect(write_capture(tmp_path / "udp.pcap", "udp", 38898, packets))


@pytest.fixture
def scan(tmp_path):
    return lambda *packets, port=38897: dissect(write_capture(tmp_path / "scan.pcap", "udp", port, packets), "zel_scan")


def test_request_has_an_address_block(tcp):
    [item] = tcp(to_server(request(600, 7, b"hello", 0x11, 0x22)))
    assert item.experts == []
    assert item.number("zel.version") == 1
    assert item.number("zel.port") == 600
    assert item.number("zel.length") == 26
    assert (item.number("zel.error"), item.number("zel.invoke_id"), item.number("zel.command")) == (0, 7, 9)
    assert (item.number("zel.id_group"), item.number("zel.id_offset")) == (0x11, 0x22)
    assert item.bytes("zel.payload") == b"hello"


def test_answer_has_none_and_is_linked_to_its_request(tcp):
    asked, other, told = tcp(
        to_server(request(600, 7, b"hello")), to_server(request(600, 8, b"x")), to_client(answer(600, 7, b"world"))
    )
    assert told.number("zel.id_group") is None
    assert told.bytes("zel.payload") == b"world"
    assert told.number("zel.response_to") == asked.frame
    assert asked.number("zel.response_in") == told.frame
    assert other.number("zel.response_in") is None
    assert float(told.show("zel.time")) == pytest.approx(0.002, abs=1e-6)


def test_reused_invoke_identifier_is_linked_to_the_latest_request(tcp):
    items = tcp(
        to_server(request(600, 7, b"a")),
        to_client(answer(600, 7, b"b")),
        to_server(request(600, 7, b"c")),
        to_client(answer(600, 7, b"d")),
    )
    assert [item.number("zel.response_to") for item in items] == [None, 1, None, 3]
    assert [item.number("zel.response_in") for item in items] == [2, None, 4, None]


def test_error_of_an_answer_is_noted(tcp):
    _, told = tcp(to_server(request(600, 7, b"")), to_client(answer(600, 7, b"", error=4104)))
    assert told.number("zel.error") == 4104
    assert told.experts == ["failed"]


def test_answer_without_a_request_is_noted(tcp):
    [told] = tcp(to_client(answer(600, 9, b"x")))
    assert told.experts == ["unasked"]


def test_message_of_the_server_is_no_answer(tcp):
    [told] = tcp(to_client(answer(700, 0, b"tick")))
    assert told.experts == []
    assert told.bytes("zel.payload") == b"tick"


def test_bare_message_is_all_payload(tcp):
    [told] = tcp(to_client(message(700, b"tick", version=0)))
    assert told.experts == []
    assert told.bytes("zel.payload") == b"tick"
    assert told.number("zel.error") is None


def test_topic_record_of_a_publication(tcp):
    [item] = tcp(to_server(request(103, 7, record(b"pub", b"a", b"\x07\0\x09", 1, 2))))
    assert item.experts == []
    assert (item.show("zel.topic.verb"), item.show("zel.topic.name")) == ("pub", "a")
    assert item.bytes("zel.topic.data") == b"\x07\0\x09"
    lengths = [item.number(f"zel.topic.{name}_length") for name in ("verb", "topic", "data")]
    assert lengths == [3, 1, 3]
    assert (item.number("zel.topic.id_group"), item.number("zel.topic.id_offset")) == (1, 2)
    assert (item.number("zel.id_group"), item.number("zel.id_offset")) == (1, 2)


def test_topic_records_without_data_and_from_the_server(tcp):
    subscribed, told = tcp(
        to_server(request(103, 7, record(b"sub", b"press/4"), 0, 0)), to_client(answer(103, 0, record(b"pub", b"t", b"x")))
    )
    assert (subscribed.show("zel.topic.verb"), subscribed.show("zel.topic.name")) == ("sub", "press/4")
    assert subscribed.bytes("zel.topic.data") is None
    assert (told.show("zel.topic.verb"), told.bytes("zel.topic.data")) == ("pub", b"x")
    assert subscribed.experts == told.experts == []


HUGE = 2**64 - 3


@pytest.mark.parametrize(
    "broken",
    [
        b"",
        b"\1" * 23,
        record(b"pub", b"a", b"xyz")[:-1],
        record(b"pub", b"a", b"xyz") + b"\0",
        struct.pack("<QQQ", 3, 1, 100) + b"pub\0a\0xyz\0" + bytes(8),
        struct.pack("<QQQ", HUGE, 1, 3) + b"pub\0a\0xyz\0" + bytes(8),
        struct.pack("<QQQ", 3, HUGE, HUGE) + b"pub\0a\0xyz\0" + bytes(8),
        struct.pack("<QQQ", 2**32 + 3, 1, 3) + b"pub\0a\0xyz\0" + bytes(8),
    ],
)
def test_topic_record_that_does_not_fit_is_noted(tcp, broken):
    [item] = tcp(to_client(answer(103, 0, broken)))
    assert item.experts == ["bad_record"]


def test_unknown_verb_is_noted(tcp):
    [item] = tcp(to_server(request(103, 7, record(b"get", b"a"))))
    assert item.experts == ["bad_verb"]


def test_file_messages_and_their_answers(tcp):
    information = struct.pack(">BBBIII", 1, 4, 6, 8195, 8192, 2) + b"name" + b"remote"
    items = tcp(
        to_server(request(700, 1, information, 0x1002, 1)),
        to_client(answer(700, 1, struct.pack(">BII", 1, 77, 0))),
        to_server(request(700, 2, struct.pack(">BII", 2, 1, 77) + b"z" * 8192, 0x1002, 1)),
        to_client(answer(700, 2, struct.pack(">BII", 2, 0, 0))),
        to_server(request(700, 3, struct.pack(">BII", 130, 2, 77) + b"end", 0x1002, 1)),
        to_client(answer(700, 3, struct.pack(">BII", 130, 0, 8201))),
        to_server(request(700, 4, b"", 0x1002, 1)),
    )
    assert [item.number("zel.file.type") for item in items] == [1, 1, 2, 2, 2, 2, None]
    assert [item.number("zel.file.last") for item in items] == [0, 0, 0, 0, 1, 1, None]
    told = items[0]
    assert (told.number("zel.file.size"), told.number("zel.file.chunk_size")) == (8195, 8192)
    assert told.number("zel.file.chunk_count") == 2
    assert (told.show("zel.file.name"), told.show("zel.file.path")) == ("name", "remote")
    assert items[1].number("zel.file.handle") == 77
    assert (items[2].number("zel.file.chunk"), items[2].number("zel.file.handle")) == (1, 77)
    assert items[2].bytes("zel.file.data") == b"z" * 8192
    assert items[4].bytes("zel.file.data") == b"end"
    assert items[5].number("zel.file.error") == 8201
    assert items[6].number("zel.file.empty") == 1
    assert [item.experts for item in items] == [[], [], [], [], [], ["failed"], []]


@pytest.mark.parametrize(
    "broken",
    [
        b"\1",
        struct.pack(">BBBIII", 1, 4, 6, 1, 8192, 1) + b"short",
        b"\2" + bytes(8),
        b"\2" + bytes(8 + 8193),
        b"\3" + bytes(20),
    ],
)
def test_file_message_of_another_size_is_noted(tcp, broken):
    [item] = tcp(to_server(request(700, 1, broken, 0x1002, 1)))
    assert item.experts == ["bad_file"]


@pytest.mark.parametrize(
    "data, expert",
    [
        (outer(1, 600, 0), "bad_length"),
        (outer(1, 600, 10485760) + b"rest", "bad_length"),
        (outer(1, 600, 0xFFFFFFFF) + b"rest", "bad_length"),
        (outer(1, 600, 12) + bytes(12), "bad_inner"),
        (outer(1, 600, 20) + bytes(20), "bad_address"),
        (outer(2, 600, 4) + bytes(4), "bad_version"),
        (outer(1, 600, 21, reserved=1) + bytes(21), "bad_reserved"),
    ],
)
def test_malformed_message_is_noted(tcp, data, expert):
    [item] = tcp(to_server(data))
    assert item.experts == [expert]


def test_message_split_at_every_byte_is_put_together(tcp):
    whole = request(103, 7, record(b"pub", b"a", b"\x07\0\x09", 1, 2))
    packets = []
    for at in range(1, len(whole)):
        packets += [to_server(whole[:at]), to_server(whole[at:])]
    items = tcp(*packets)
    assert len(items) == 70
    assert {item.bytes("zel.topic.data") for item in items} == {b"\x07\0\x09"}
    assert [item.experts for item in items] == [[]] * 70


def test_messages_in_one_segment_are_taken_apart(tcp):
    items = tcp(to_server(b"".join(request(600, n, bytes([n])) for n in range(1, 21))))
    assert [item.number("zel.invoke_id") for item in items] == list(range(1, 21))
    assert [item.bytes("zel.payload") for item in items] == [bytes([n]) for n in range(1, 21)]


def test_summary_names_each_message_of_a_packet(tmp_path):
    first, second = request(103, 7, record(b"pub", b"a")), request(600, 8, b"x")
    packets = [to_server(first[:30]), to_server(first[30:] + second), to_client(answer(600, 8, b"", error=5))]
    path = write_capture(tmp_path / "summary.pcap", "tcp", 9999, packets)
    assert summaries(path)[1:] == ["Request 7 port 103 pub a | Request 8 port 600", "Answer 8 port 600 error 5"]


def test_direct_request_reads_an_identifier(direct):
    asked, told = direct(
        to_server(request(101, 0, b"", 0x1000, 0x1001, command=1)),
        to_client(answer(101, 0, bytes([10, 77, 0, 2, 0, 1]), command=1)),
    )
    assert (asked.number("zel.command"), asked.number("zel.id_group"), asked.number("zel.id_offset")) == (1, 0x1000, 0x1001)
    assert told.show("zel.device_id") == "10.77.0.2.0.1"
    assert (told.number("zel.response_to"), asked.number("zel.response_in")) == (1, 2)
    assert asked.experts == told.experts == []


def test_direct_request_writes_an_identifier(direct):
    [asked] = direct(to_server(request(101, 3, bytes([1, 2, 3, 4, 5, 255]), 0x1001, 0x1002, command=5)))
    assert asked.show("zel.device_id") == "1.2.3.4.5.255"


@pytest.mark.parametrize(
    "data, expert",
    [
        (b"\0\1\x65", "bad_header"),
        (outer(1, 101, 22) + bytes(21), "bad_datagram"),
        (outer(1, 101, 12) + bytes(12), "bad_inner"),
        (outer(1, 101, 13) + bytes(13), "bad_address"),
    ],
)
def test_malformed_direct_request_is_noted(direct, data, expert):
    [item] = direct(to_server(data))
    assert item.experts == [expert]


def scan_header(kind, reserved=0, time=1700000000):
    return struct.pack(">BII", kind, reserved, time)


DOCUMENT = b'{"device":{"zelDeviceId":"1.2.3.4.5.6","hostName":"press-4"},"frames":[]}'


def test_scan_request_is_answered_in_json(scan, tmp_path):
    asked, told, again = scan(
        to_server(scan_header(0)), to_client(scan_header(1) + DOCUMENT), to_client(scan_header(1) + DOCUMENT)
    )
    assert asked.number("zel_scan.type") == 0
    assert "2023" in asked.show("zel_scan.timestamp") and "22:13:20" in asked.show("zel_scan.timestamp")
    assert (told.number("zel_scan.type"), told.number("zel_scan.response_to")) == (1, 1)
    assert again.number("zel_scan.response_to") == 1
    assert [int(field.get("show")) for field in asked.fields["zel_scan.response_in"]] == [2, 3]
    assert float(again.show("zel_scan.time")) == pytest.approx(0.002, abs=1e-6)
    assert asked.experts == told.experts == []
    assert [name.split(":")[-1] for name in protocols(tmp_path / "scan.pcap")] == ["zel_scan", "json", "json"]


def test_broadcast_request_has_its_own_port(scan):
    [asked] = scan(to_server(scan_header(2)), port=38896)
    assert asked.number("zel_scan.type") == 2
    assert asked.experts == []


@pytest.mark.parametrize(
    "data, experts",
    [
        (b"\1\0\0\0\0\0\0\0", ["bad_header"]),
        (scan_header(3), ["bad_type"]),
        (scan_header(0, reserved=1), ["bad_reserved"]),
        (scan_header(0) + b"x", ["bad_request"]),
        (scan_header(1), ["bad_document"]),
        (scan_header(1) + b"[1]", ["bad_document"]),
        (scan_header(1) + b"no json", ["bad_document"]),
        (scan_header(1) + b'{"a":"' + b"x" * 2040 + b'"}', ["bad_size"]),
    ],
)
def test_malformed_discovery_is_noted(scan, data, experts):
    [item] = scan(to_client(data))
    assert item.experts == experts


def test_body_of_the_inner_header_alone_is_sound(tcp):
    _, told = tcp(to_server(request(600, 5, b"")), to_client(message(600, inner(0, 5))))
    assert told.experts == []
    assert told.number("zel.length") == 13
