"""Packets made of known bytes or captured, and what tshark with the dissector says of them."""

import pathlib
import struct
import subprocess
import xml.etree.ElementTree as ElementTree

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "tools" / "wireshark" / "zel.lua"

CLIENT_PORT = 40000


def outer(version, port, length, reserved=0):
    return struct.pack("<BBHI", reserved, version, port, length)


def inner(error, invoke_id, command=9):
    return struct.pack(">IIH3x", error, invoke_id, command)


def message(port, body, version=1):
    return outer(version, port, len(body)) + body


def request(port, invoke_id, payload, group=1, offset=2, command=9):
    return message(port, inner(0, invoke_id, command) + struct.pack(">II", group, offset) + payload)


def answer(port, invoke_id, payload, error=0, command=9):
    return message(port, inner(error, invoke_id, command) + payload)


def record(verb, topic, data=b"", group=0, offset=0):
    lengths = struct.pack("<QQQ", len(verb), len(topic), len(data))
    return lengths + verb + b"\0" + topic + b"\0" + data + b"\0" + struct.pack("<II", group, offset)


def to_server(data):
    return "I", data


def to_client(data):
    return "O", data


def write_capture(path, protocol, server_port, packets, client_port=CLIENT_PORT):
    """A capture of one conversation; packets are made by to_server and to_client."""
    text = path.with_suffix(".txt")
    with text.open("w") as dump:
        for direction, data in packets:
            dump.write(direction + "\n")
            for at in range(0, len(data), 16):
                dump.write(f"{at:06x} {data[at:at + 16].hex(' ')}\n")
    ports = f"{client_port},{server_port}"
    option = {"tcp": "-T", "udp": "-u"}[protocol]
    subprocess.run(["text2pcap", "-q", "-D", option, ports, str(text), str(path)], check=True)
    return path


class Item:
    """One message as the dissector shows it: its fields by name, in order, and its expert notes."""

    def __init__(self, frame, proto):
        self.frame = frame
        self.fields = {}
        self.experts = []
        for field in proto.iter("field"):
            name = field.get("name", "")
            if name.startswith(("zel.", "zel_scan.")):
                if "bad_" in name or name.endswith((".failed", ".unasked")):
                    self.experts.append(name.split(".", 1)[1])
                else:
                    self.fields.setdefault(name, []).append(field)

    def show(self, name):
        return self.fields[name][0].get("show") if name in self.fields else None

    def number(self, name):
        return int(self.show(name), 0) if name in self.fields else None

    def bytes(self, name):
        return bytes.fromhex(self.fields[name][0].get("value")) if name in self.fields else None


def dissect(path, protocol="zel"):
    """The dissected messages of a capture, in order, after two passes."""
    done = subprocess.run(
        ["tshark", "-r", str(path), "-2", "-X", f"lua_script:{SCRIPT}", "-T", "pdml"], capture_output=True, check=True
    )
    assert b"Lua" not in done.stderr, done.stderr.decode()
    items = []
    for packet in ElementTree.fromstring(done.stdout).iter("packet"):
        frame = int(packet.find("./proto[@name='geninfo']/field[@name='num']").get("show"))
        items += [Item(frame, proto) for proto in packet.findall(f"./proto[@name='{protocol}']")]
        error = packet.find(".//field[@name='_ws.lua.text']")
        assert error is None, error.get("show")
    return items


def protocols(path):
    """The names of all protocols that were seen, by frame."""
    done = subprocess.run(
        ["tshark", "-r", str(path), "-X", f"lua_script:{SCRIPT}", "-T", "fields", "-e", "frame.protocols"],
        capture_output=True,
        check=True,
        text=True,
    )
    return done.stdout.splitlines()


def summaries(path):
    """The info column of each packet."""
    done = subprocess.run(
        ["tshark", "-r", str(path), "-X", f"lua_script:{SCRIPT}", "-T", "fields", "-e", "_ws.col.Info"],
        capture_output=True,
        check=True,
        text=True,
    )
    return done.stdout.splitlines()
