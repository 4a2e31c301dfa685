# SPDX-License-Identifier: Apache-2.0
"""Writes the seeds of the fuzz targets to tests/fuzz/corpus/TARGET/seed_NAME: packets, frames and call sequences as they
occur with a real camera, each in the form in which its target reads them. Run it when a target reads its bytes otherwise.
The other files of the corpora were found by fuzzing."""

import pathlib
import re
import struct

HERE = pathlib.Path(__file__).parent
HELPFUL = 0


def seed(target, name, data):
    folder = HERE / "corpus" / target
    folder.mkdir(parents=True, exist_ok=True)
    (folder / f"seed_{name}").write_bytes(bytes(data))


def word(value):
    return list(struct.pack(">H", value))


def dword(value):
    return list(struct.pack(">I", value))


# ---- packets


def discovery_ack(model=b"Model", version=b"3.1.0", mac=1):
    packet = bytearray(256)
    packet[3] = 3
    packet[4:8] = struct.pack(">HH", 248, 1)
    packet[8:16] = struct.pack(">HHI", 2, 1, 0x80000001)
    packet[18:24] = bytes([2, 0, 0, 0, 0, mac])
    packet[24:32] = struct.pack(">II", 0x80000007, 5)
    packet[44:48] = bytes([10, 9, 0, 2])
    packet[60:64] = bytes([255, 255, 255, 0])
    packet[76:80] = bytes([10, 9, 0, 254])
    for offset, text in ((80, b"Maker"), (112, model), (144, version), (176, b"Info"), (224, b"S0001"), (240, b"Name")):
        packet[offset : offset + len(text)] = text
    return bytes(packet)


def literal(packet):
    """A datagram taken as it is by the targets discovery and event_packet."""
    return [0] + word(len(packet)) + list(packet)


def acknowledge_seeds():
    read = [0] + dword(0x0A00)
    good = [3] + word(4) + dword(2)
    pending = [1] + word(500)
    stale = [2, 7, 0xEE] + word(4) + dword(0)
    seed("acknowledge", "read", read + [1] + good)
    seed("acknowledge", "read_pending", read + [2] + pending + good)
    seed("acknowledge", "read_stale_answer", read + [2] + stale + good + [1] + good)
    seed("acknowledge", "read_silent_then_answered", read + [0, 1] + good)
    seed("acknowledge", "write", [1] + dword(0x0A00) + dword(2) + [1, 3] + word(4) + dword(1))
    seed("acknowledge", "write_refused", [1] + dword(0x0A00) + dword(2) + [1, 2, 0, 0x80] + word(0))
    seed("acknowledge", "read_memory", [2] + dword(0x0200) + word(512) + [1, 3] + word(516) + dword(0x0200) + [0x41] * 512)
    seed("acknowledge", "read_memory_short", [2] + dword(0x0200) + word(16) + [1, 3] + word(12) + dword(0x0200) + [1] * 8)
    seed("acknowledge", "write_memory", [3] + dword(0x1000) + word(520) + [1, 3] + word(4) + dword(1))
    seed("acknowledge", "read_pair", [4] + dword(0x093C) + [1] + good + [1] + good)


def discovery_seeds():
    one = literal(discovery_ack())
    other = literal(discovery_ack(mac=2))
    rest = [0, 64, 0]  # an info query with 64 bytes of space, no answer to the probe, no discovery by function
    seed("discovery", "one_camera", [1] + one + rest)
    seed("discovery", "two_cameras_one_leaves", [2] + one + other + rest + [1] + other + rest)
    seed("discovery", "twice_in_one_scan", [3] + one + other + one + rest)
    seed("discovery", "too_old", [1] + literal(discovery_ack(version=b"2.9.9")) + [0])
    seed("discovery", "full_fields", [1] + literal(discovery_ack(model=b"M" * 32, version=b"3.1.0" + b"V" * 27)) + rest)
    seed("discovery", "a_byte_too_short", [1] + literal(discovery_ack()[:255]) + [0])
    ack = bytes([0, 0, 0, 0x81, 0, 4, 0, 1, 0, 0, 0, 2])
    seed("discovery", "controlled_by_another", [1] + one + [5, 64, len(ack)] + list(ack) + [0])
    seed("discovery", "by_function", [0, 1, 1] + one + [1])


def event_seeds():
    event = bytes([0x42, 0, 0, 0xC0, 0, 16, 0, 1, 0, 16, 0x90, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x10, 0])
    seed("event_packet", "event", literal(event))
    seed("event_packet", "a_byte_too_short", literal(event[:23]))
    seed("event_packet", "with_data", literal(event + bytes(range(64))))
    seed("event_packet", "another_command", literal(event[:3] + b"\x80" + event[4:]))
    seed("event_packet", "largest", literal(event + bytes(1400)))


def frame(width, height, data_offset=176, part=120, size=None):
    pixels = bytes(i & 0xFF for i in range(width * height))
    header = bytearray(176)
    header[0:4] = b"GNDC"
    struct.pack_into("<Q", header, 16, 7)
    struct.pack_into("<I", header, 56, 64)
    struct.pack_into("<Q", header, 88, 123456789)
    struct.pack_into("<I", header, 112, part)
    struct.pack_into("<HHI", header, 120, 0x4200, 5, 56)
    struct.pack_into("<I", header, 128, 0x01080001)
    struct.pack_into("<QQ", header, 144, len(pixels) if size is None else size, data_offset)
    struct.pack_into("<II", header, 160, width, height)
    return bytes(header) + pixels


def gendc_seeds():
    def run(data, buffers=((300, 0), (256, 1)), payload=256):
        announced = [len(buffers)] + [byte for size, own in buffers for byte in word(size) + [own]]
        return word(payload) + announced + [0, 0] + word(len(data)) + list(data)

    seed("gendc", "picture", run(frame(16, 16)))
    seed("gendc", "consumer_buffer", run(frame(16, 16), [(100, 1)]))
    seed("gendc", "no_buffer", run(frame(16, 16), []))
    seed("gendc", "short", run(frame(16, 16)[:200]))
    seed("gendc", "part_behind_the_block", run(frame(16, 16, part=0xFFFFFFF0)))
    seed("gendc", "part_at_the_end", run(frame(16, 16, part=432 - 56)))
    seed("gendc", "data_behind_the_block", run(frame(16, 16, data_offset=433, size=0)))
    seed("gendc", "data_too_large", run(frame(16, 16, size=257)))
    seed("gendc", "data_size_wraps", run(frame(16, 16, size=0xFFFFFFFFFFFFFFFF)))


def text_seeds():
    for name, kind, text in (
        ("escape", 0, b"a%20b%2Fc%G1%"),
        ("space", 0, b"a b/c d"),
        ("windows_path", 1, rb"C:\dir\file.xml"),
        ("path", 1, b"/dir/sub/file.xml"),
        ("folder", 1, b"/dir/"),
        ("ip_address", 3, b"192.168.1.5"),
        ("mac_address", 3, b"02-00-00-00-00-0a"),
        ("hexadecimal", 3, b"3Fa9"),
    ):
        seed("text", name, bytes([kind]) + text)
    name = b"NQGenTLGev_TL_1_0_0.xml"
    seed("text", "local_url", bytes([2]) + struct.pack(">Q", 0x10000) + bytes([len(name)]) + name + b"<RegisterDescription/>")
    first = b"Local:camera.zip;8000;1A2B"
    second = b"http://10.9.0.2/camera.xml"
    for name, urls in (("urls", (first, second)), ("one_url", (first, b"")), ("full_url", (b"u" * 512, second))):
        data = [4]
        for url in urls:
            data += [0] + word(len(url)) + list(url) + [0]
        seed("text", name, data)


def port_seeds():
    system, interface, device, stream, remote, buffer = range(6)
    everyone = (("system", system, 16), ("interface", interface, 21), ("device", device, 16), ("stream", stream, 18))
    for name, port, count in everyone:
        reads = [byte for i in range(count) for byte in [port, 0, 1, 1, 1, i, 1] + word(300)]
        writes = [byte for i in range(count) for byte in [port, 0, 1, 0, 1, i, 0, 4] + dword(1)]
        seed("port", name, reads + writes)
    seed("port", "camera_register", [remote, 0, 1, 1, 1] + word(0x0A00) + [0, 4] + dword(0))
    seed("port", "camera_memory", [remote, 0, 1, 1, 1] + word(0x0200) + [1] + word(1025))
    seed("port", "buffer", [buffer, 0, 1, 1, 1, 0, 0, 0, 4])


# The first byte chooses the verb; then each answer has one, below 160 for the truth.
def tool_seeds():
    type_of, value, text, size, code = 0xA0 | 1, 0xA0 | 2, 0xA0 | 4, 0xA0 | 8, 0xB0
    for name, first in (("list", 1), ("grab", 0x40), ("announce", 0x42), ("verify", 0x44), ("pictures", 0x48)):
        seed("tool", name, [first])
        # One lie each, at places that are reached one after the other.
        for at in (5, 20, 40):
            seed("tool", f"{name}_no_size_{at}", [first] + [0] * at + [size, 250])
            seed("tool", f"{name}_edge_{at}", [first] + [0] * at + [value, 249, value, 251, value, 247])
            seed("tool", f"{name}_type_{at}", [first] + [0] * at + [type_of, 9])
            seed("tool", f"{name}_refused_{at}", [first] + [0] * at + [code, 3])
    seed("tool", "latin1", [1] + [text, 3, 0x4B, 0xFC, 0x1B] * 20)


# The first byte chooses whether the file is converted too; then one container after the other.
def recording_seeds():
    written, made_up, plain, changed = range(4)

    def container(ident, width, height):
        return list(struct.pack(">Q", ident)) + [width - 1, height - 1, 5, 0x80]

    def edge(at, number, size=3):
        return word(at) + [1, number, size]

    for name, first in (("read", 0), ("converted", 1)):
        seed("recording", f"{name}_one", [first, written] + container(7, 16, 16))
        seed("recording", f"{name}_three", [first] + [step for n in range(3) for step in [written] + container(n, 4, 3)])
        seed("recording", f"{name}_parts", [first, made_up, 2, 3, 7, 2, 9] + [1] * 6 + [0] + word(4) + [0, 1])
    seed("recording", "cut", [1, written] + container(7, 4, 4) + [plain, 100] + list(frame(8, 8)[:100]))
    seed("recording", "no_container", [1, plain, 64] + list(range(64)))
    # The numbers of a container, of its component and of its part: each once as large as can be.
    for place in (8, 32, 40, 48, 52, 56, 64, 110, 112, 120, 144, 152, 160, 164, 168):
        seed("recording", f"edge_{place}", [1, changed] + container(7, 8, 8) + [0] + edge(place, 10))


# ---- call sequences


def functions():
    text = (HERE / "../../include/GenTL/GenTLFunctions.h").read_text()
    return re.findall(r"^    X\((\w+)\)", text, re.MULTILINE)


class Sequence:
    def __init__(self):
        self.names = functions()
        self.bytes = []

    def call(self, name, *arguments):
        self.bytes += [self.names.index(name), HELPFUL, *arguments]
        return self


def good(index=0):
    """A good handle of the kind that the call wants."""
    return (15, index)


RIGHT_ID = 15
WITH_OUTPUT = 0
INFINITE = 0


def open_stream(announced=0, queued=0):
    calls = Sequence()
    calls.call("GCInitLib").call("TLOpen", WITH_OUTPUT).call("TLUpdateInterfaceList", *good(), 0, 0)
    calls.call("TLOpenInterface", *good(), RIGHT_ID, WITH_OUTPUT).call("IFUpdateDeviceList", *good(), 1)
    calls.call("IFOpenDevice", *good(), RIGHT_ID, 0x0C - 4, WITH_OUTPUT)
    calls.call("DevOpenDataStream", *good(), RIGHT_ID, WITH_OUTPUT)
    calls.call("GCRegisterEvent", *good(), 1, WITH_OUTPUT)
    for index in range(announced):
        if index % 2 == 0:
            calls.call("DSAnnounceBuffer", *good(), 0, index, WITH_OUTPUT, 0)
        else:
            calls.call("DSAllocAndAnnounceBuffer", *good(), WITH_OUTPUT, *[0] * 8)
    for index in range(queued):
        calls.call("DSQueueBuffer", *good(), *good(index))
    return calls


def call_seeds():
    closing = {"GCCloseLib": (0,), "TLClose": (0, *good()), "IFClose": (0, *good()), "DevClose": (0, *good()), "DSClose": good()}
    for name, arguments in closing.items():
        started = open_stream(3, 2).call("DSStartAcquisition", *good(), INFINITE)
        started.call(name, *arguments)
        # Every handle is stale or closed now.
        started.call("EventGetData", 2, 0, 0, 0).call("DSQueueBuffer", 2, 0, 2, 1).call("DevGetPort", 2, 2, 0)
        started.call("GCInitLib").call("TLOpen", WITH_OUTPUT)
        seed("calls", f"{name.lower()}_while_started", started.bytes)
    restart = open_stream(2, 2)
    for stop in (0, 1):
        restart.call("DSStartAcquisition", *good(), INFINITE).call("DSStopAcquisition", *good(), stop)
    seed("calls", "start_stop_twice", restart.bytes)
    opened = open_stream(2, 1).call("DSClose", *good()).call("DSStartAcquisition", *good(), INFINITE)
    opened.call("DevOpenDataStream", *good(), RIGHT_ID, WITH_OUTPUT).call("DSStartAcquisition", *good(), INFINITE)
    seed("calls", "opened_while_started", opened.call("DSStopAcquisition", *good(), 0).call("DevClose", 0, *good()).bytes)
    lists = open_stream(4, 3)
    for operation in (0, 3, 2, 0, 4, 1):
        lists.call("DSFlushQueue", *good(), operation + 1).call("EventGetData", *good(), 0, 0)
        lists.call("DSGetInfo", *good(), 5, 0).call("DSRevokeBuffer", *good(), *good(0), 0)
    seed("calls", "lists", lists.bytes)
    killed = open_stream(1, 1).call("EventKill", *good()).call("EventGetData", *good(), 3, 0)
    killed.call("DSFlushQueue", *good(), 1).call("EventFlush", *good()).call("EventGetData", *good(), 3, 0)
    seed("calls", "kill_and_flush", killed.call("GCUnregisterEvent", *good(), 1).bytes)
    every = open_stream(2, 1)
    for name in functions():
        if name not in closing:
            every.call(name, *good(), *good(), 0, 0, 0, 0, 0, 0)
    seed("calls", "every_function", every.bytes)


# ---- the software RDMA


def entry(offset, length):
    return word(offset) + word(length) + [1]


def post_receive(length=1024, count=1):
    return [0] + entry(0, length) + entry(0, 0) + [count]


def post_send(length=60, count=1):
    return [2] + entry(0, length) + entry(0, 0) + [count, 1]


def stream_message(length=60, magic=None, whole=1):
    return [4] + ([1] if magic is None else [0] + dword(magic)) + [0, 1, 1] + word(length) + [whole]


def stream_acknowledgement(kind, sequence=1, status=0):
    return [6, 1, kind, 1, status, 1, sequence]


def stream_seeds():
    placed, refused, down, up, waiting = range(5)
    seed("loopback_stream", "message", (post_receive() + stream_message()) * 3)
    seed("loopback_stream", "message_that_waits", stream_message() + post_receive() + stream_message(0) + post_receive())
    seed("loopback_stream", "message_too_long", post_receive(100) + post_receive() + stream_message(101))
    seed("loopback_stream", "half_a_message", post_receive() + stream_message(500, whole=0) + [3, 3, 1, 2, 3] + [9, 1])
    seed("loopback_stream", "broken_header", post_receive() + stream_message(magic=1))
    seed("loopback_stream", "sends", post_send() * 3 + stream_acknowledgement(placed, 2) + stream_acknowledgement(placed, 3))
    seed("loopback_stream", "send_that_waits", post_send() + stream_acknowledgement(waiting) + stream_acknowledgement(placed))
    seed("loopback_stream", "send_refused", post_send() * 2 + stream_acknowledgement(refused, 1, 9) + post_receive())
    seed("loopback_stream", "refused_for_no_reason", post_send() + [6, 1, refused, 0] + dword(4096) + [1, 1])
    seed("loopback_stream", "unknown_acknowledgement", post_send() + [6, 0] + dword(77) + [1, 0, 1, 1])
    seed("loopback_stream", "send_outside_its_region", post_send(2100) + post_send())
    seed("loopback_stream", "link", post_send() + stream_acknowledgement(down) + [10, 0] + post_send() + [10, 1])
    seed("loopback_stream", "link_comes_back", stream_acknowledgement(down) + stream_acknowledgement(up) + post_send())
    seed("loopback_stream", "peer_goes", post_send() + post_receive() + [9, 0] + [9, 1])
    seed("loopback_stream", "broken_link", post_send() + post_receive() + [11, 0])


REQUEST, WHO_HAS, TAKEN, NOT_HERE, NO_ANSWER, NOT_LISTENING, REPLY, READY, REJECT, DISCONNECT, DISCONNECTED = range(11)
WITHOUT_STREAMS, ONE_STREAM, STREAMS = 1, 3, 4


def said(kind, how=WITHOUT_STREAMS):
    return [how, 1, kind, 1]


def says(kind, how=WITHOUT_STREAMS, stranger=0):
    return [1, stranger] + said(kind, how)


def use(action, which=0):
    return [5, which, action]


def rendezvous_seeds():
    disconnect, destroy, reject, link, accept = range(5)
    offer = [0]
    request = offer + says(REQUEST, STREAMS)
    accepted = request + [1]
    established = accepted + says(READY)
    found = [6, 2] + said(TAKEN) + said(REPLY)
    seeds = {
        "silent_offer": offer,
        "offer_without_streams": offer + says(REQUEST),
        "offer_of_one_stream": offer + says(REQUEST, ONE_STREAM) + [1],
        "who_has": offer + says(WHO_HAS),
        "stranger_disconnects": established + says(DISCONNECT) + use(disconnect),
        "we_disconnect": established + use(disconnect) + says(DISCONNECTED),
        "both_disconnect": established + use(disconnect) + says(DISCONNECT),
        "stranger_dies": established + [4, 0, 0],
        "destroyed": established + use(destroy),
        "rejected_by_us": request + [0] + use(reject),
        "rejected_by_stranger": accepted + says(REJECT),
        "second_request": accepted + says(REQUEST, STREAMS),
        "request_when_established": established + says(REQUEST, STREAMS),
        "reject_when_established": established + says(REJECT),
        "link": established + use(link) + [0] + use(link) + [1] + says(DISCONNECT),
        "bytes": offer + [1, 0, 0] + word(5) + [1, 2, 3, 4, 5],
        "found": found + use(disconnect),
        "found_and_refused": [6, 2] + said(TAKEN) + said(REJECT),
        "found_and_silent": [6, 1] + said(TAKEN) + [4, 0, 0],
        "not_found": [6, 1] + said(NOT_LISTENING),
        "reply_twice": [6, 3] + said(TAKEN) + said(REPLY) + said(REPLY),
        "request_back": [6, 2] + said(TAKEN) + said(REQUEST, STREAMS),
        "file": [7, 15] + list(b"4792_1_any_1_1x") + [1],
        "unfinished": [7, 12] + list(b"unfinished_1") + [0],
    }
    for name, steps in seeds.items():
        seed("loopback_rendezvous", name, steps)


# ---- the virtual camera


def camera_command(code, body, ident=1, flags=1, host=0):
    packet = [0x42, flags] + word(code) + word(len(body)) + word(ident) + list(body)
    return [0, host] + word(len(packet)) + packet


def camera_write(address, value, ident=1, host=0):
    return camera_command(0x82, dword(address) + dword(value), ident, host=host)


def camera_read(address, host=0):
    return camera_command(0x80, dword(address), 2, host=host)


def camera_packet_seeds():
    take = camera_write(0x0A00, 2)
    enable = camera_write(0xE030, 0x80000000, 3)
    repeat = [4, 0]
    frame = [7, 1]
    other = camera_read(0x0A00, host=1) + camera_write(0x10000, 9, host=1)
    seed("camera_packet", "discovery", camera_command(2, [], flags=0x11))
    seed("camera_packet", "control_and_a_stranger", take + other + camera_write(0x0A00, 0, 4) + other)
    seed("camera_packet", "exclusive", camera_write(0x0A00, 1) + camera_read(0x0904, host=2) + camera_read(0x0A00, host=2))
    geometry = [(0x10000, 32), (0x10008, 32), (0x10004, 24), (0x1000C, 24), (0x10010, 0x02180014), (0x1003C, 2)]
    steps = [step for n, (at, value) in enumerate(geometry) for step in camera_write(at, value, 16 + n)]
    seed("camera_packet", "geometry", take + steps + enable + frame + frame)
    seed("camera_packet", "frames", take + enable + frame * 4 + camera_write(0xE030, 0, 4) + frame)
    rate = camera_write(0x10030, 0x3A83126F, 5)
    seed("camera_packet", "frame_rate", take + rate + enable + frame * 3 + [7, 0])
    trigger = camera_write(0x10040, 1, 5) + enable + camera_write(0x10048, 1, 6)
    seed("camera_packet", "trigger", take + trigger + frame * 2)
    channel = camera_write(0x0B10, 0x7F000001, 5) + camera_write(0x0B00, 5000, 6)
    event = camera_write(0x10064, 1, 7)
    seed("camera_packet", "repeated_event", take + channel + event + camera_read(0x0904, 1) + repeat + [6, 3] + word(0x9000))
    stream = camera_write(0x0D18, 0x7F000001, 5) + camera_write(0x0D00, 5001, 6)
    seed("camera_packet", "packet_size_test", take + stream + camera_write(0x0D04, 0xC0000578, 7))
    seed("camera_packet", "reset", take + camera_write(0x1005C, 1, 5) + repeat + camera_read(0x0A00))
    user_set = camera_write(0x10050, 1, 5) + camera_write(0x10058, 1, 6) + camera_write(0x10054, 1, 7)
    seed("camera_packet", "user_set", take + user_set)
    memory = camera_command(0x84, dword(0x0200) + dword(536)) + camera_command(0x86, dword(0xE8) + [69] * 16)
    outside = camera_command(0x82, [0] * 544) + camera_command(0x84, dword(0xFFFFFFFC) + dword(8))
    seed("camera_packet", "memory", take + memory + outside)
    for fault in range(20):
        armed = [5, fault] + [0, 0, 0, 0] + dword(100) + [0, 2]
        seed("camera_packet", f"fault_{fault}", take + armed + enable + frame * 2 + camera_read(0xE600) + channel + event)


def camera_control_seeds():
    def line(text, client=0, end=1):
        return [client, 2, len(text)] + list(text) + [end]

    read = [0, 1]
    status = b'{"cmd":"status"}'
    seed("camera_control", "status", line(status) + read + line(b'{"cmd":"status","camera":1}') + read)
    faults = (b'{"fault":"late-ack:200:3"}', b'{"cmd":"fault","name":"id-jump","arg":7,"count":2}')
    armed = [step for text in faults for step in line(text) + read]
    seed("camera_control", "faults", armed + line(status) + read + line(b'{"cmd":"clear","name":"late-ack"}') + read)
    seed("camera_control", "reboot", line(b'{"fault":"reboot:0"}') + line(b'{"fault":"privilege-taken:1"}') + line(b'{"cmd":"clear"}'))
    seed("camera_control", "event", line(b'{"cmd":"event","id":36881}') + line(b'{"cmd":"trigger","camera":0}') + read)
    seed("camera_control", "no_utf8", line(b'{"cmd":"\xff"}') + line(b"\xff") + read)
    seed("camera_control", "pieces", line(b'{"cmd":', 1, 0) + line(status) + line(b'"status"}', 1) + [1, 1] + [0, 0])
    seed("camera_control", "never_reads", (line(b"\n" * 200, 2) + line(status, 2)) * 6)
    odd = [b"[]", b"{}", b"null", b'{"cmd":7}', b'{"fault":{}}', b"[" * 200]
    odd += [b'{"cmd":"event","id":-1}', b'{"cmd":"status","camera":1e99}']
    seed("camera_control", "odd", [step for text in odd for step in line(text) + read])


for make in (acknowledge_seeds, discovery_seeds, event_seeds, gendc_seeds, text_seeds, port_seeds, tool_seeds, recording_seeds,
             call_seeds, stream_seeds, rendezvous_seeds, camera_packet_seeds, camera_control_seeds):
    make()
