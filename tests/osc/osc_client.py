"""An OSC client that shares nothing with the program it tests: the standard library only.

osc_client.py udp|tcp|slip HOST PORT

Prints what arrives, a line of JSON for each message: [address, argument, ...]. Takes orders as lines of JSON:

    {"send": [address, argument, ...]}     int is sent as i, float as f, str as s, bool as T or F
    {"flood": 20000, "send": [...]}        that many of them, as fast as they go
    {"malformed": 10000, "seed": 1}        packets of which none can be taken
    {"raw": "2f676f00"}                    one packet
    {"bytes": "504f5354"}                  bytes of a stream, without a frame

and prints ["done", count] after each. The end of the input ends it.
"""

import json
import random
import socket
import struct
import sys
import threading


def pad(data):
    return data + b"\0" * (4 - len(data) % 4)


def write(address, arguments):
    tags, body = ",", b""
    for value in arguments:
        if isinstance(value, bool):
            tags += "T" if value else "F"
        elif isinstance(value, int):
            tags += "i"
            body += struct.pack(">i", value)
        elif isinstance(value, float):
            tags += "f"
            body += struct.pack(">f", value)
        else:
            tags += "s"
            body += pad(value.encode())
    return pad(address.encode()) + pad(tags.encode()) + body


def take_text(data):
    end = data.index(b"\0")
    return data[:end].decode(), data[end + 4 - end % 4 :]


def read(packet):
    """The messages of a packet."""
    if packet.startswith(b"#bundle\0"):
        messages, rest = [], packet[16:]
        while rest:
            (size,) = struct.unpack(">I", rest[:4])
            messages += read(rest[4 : 4 + size])
            rest = rest[4 + size :]
        return messages
    address, rest = take_text(packet)
    tags, rest = take_text(rest)
    values = []
    for tag in tags[1:]:
        if tag in "TF":
            values.append(tag == "T")
        elif tag == "s":
            text, rest = take_text(rest)
            values.append(text)
        else:
            form = {"i": ">i", "f": ">f", "h": ">q", "d": ">d"}[tag]
            size = struct.calcsize(form)
            values.append(struct.unpack(form, rest[:size])[0])
            rest = rest[size:]
    return [[address] + values]


def make_malformed(chance):
    """Something that no reader can take: cut off, padded wrongly, of unknown types, or noise."""
    kind = chance.randrange(6)
    whole = write("/tavo/tempo", [chance.random()])
    if kind == 0:
        return whole[: chance.randrange(1, len(whole) - 1) | 1]
    if kind == 1:
        return b"#bundle\0" + b"\0" * 8 + struct.pack(">I", chance.randrange(13, 2**32)) + b"/go\0,\0\0\0"
    if kind == 2:
        return b"\1" + bytes(chance.randrange(256) for _ in range(chance.randrange(3, 200)))
    if kind == 3:
        return pad(b"/tavo/tempo") + pad(b",ssss") + b"/" * 4
    if kind == 4:
        return pad(b"/tavo/edit") + pad(b",b") + struct.pack(">I", chance.randrange(64, 2**32)) + b"\0" * 8
    return pad(b"/tavo/go") + pad(b",ifsTxyz") + b"\0" * 4 * chance.randrange(4)


def frame(kind, packet):
    if kind == "udp":
        return packet
    if kind == "tcp":
        return struct.pack(">I", len(packet)) + packet
    return b"\xc0" + packet.replace(b"\xdb", b"\xdb\xdd").replace(b"\xc0", b"\xdb\xdc") + b"\xc0"


def frames(kind, connection):
    """The packets that arrive."""
    if kind == "udp":
        while True:
            try:
                yield connection.recv(65536)
            except ConnectionRefusedError:
                pass
    data = b""
    while True:
        more = connection.recv(65536)
        if not more:
            return
        data += more
        if kind == "slip":
            *whole, data = data.split(b"\xc0")
            for packet in filter(None, whole):
                yield packet.replace(b"\xdb\xdc", b"\xc0").replace(b"\xdb\xdd", b"\xdb")
            continue
        while len(data) >= 4 and len(data) >= 4 + struct.unpack(">I", data[:4])[0]:
            size = struct.unpack(">I", data[:4])[0]
            yield data[4 : 4 + size]
            data = data[4 + size :]


def say(values):
    with lock:
        print(json.dumps(values), flush=True)


def listen():
    try:
        for packet in frames(kind, connection):
            for message in read(packet):
                say(message)
    except OSError:
        pass
    say(["closed"])


def obey(order):
    if "bytes" in order:
        connection.sendall(bytes.fromhex(order["bytes"]))
        return 1
    if "malformed" in order:
        chance = random.Random(order["seed"])
        for _ in range(order["malformed"]):
            connection.sendall(frame(kind, make_malformed(chance)))
        return order["malformed"]
    packet = bytes.fromhex(order["raw"]) if "raw" in order else write(order["send"][0], order["send"][1:])
    for _ in range(order.get("flood", 1)):
        connection.sendall(frame(kind, packet))
    return order.get("flood", 1)


kind, host, port = sys.argv[1], sys.argv[2], int(sys.argv[3])
lock = threading.Lock()
connection = socket.socket(socket.AF_INET, socket.SOCK_DGRAM if kind == "udp" else socket.SOCK_STREAM)
connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4 << 20)
connection.connect((host, port))
threading.Thread(target=listen, daemon=True).start()
say(["ready"])
for line in sys.stdin:
    try:
        say(["done", obey(json.loads(line))])
    except OSError as problem:
        say(["failed", str(problem)])
