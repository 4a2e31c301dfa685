#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""cable.py CAPTURE CAMERA HOST BUFFERS: checks one captured acquisition packet by packet. The last line sums it up."""
import collections
import subprocess
import sys

ROCE_PORT = "4791"
SEND_FIRST, SEND_MIDDLE, SEND_LAST, SEND_ONLY, ACKNOWLEDGE = 0, 1, 2, 4, 17
DATAGRAM_SEND_ONLY = 100  # messages of the connection manager, on queue pair 1
READY_MESSAGE = 60  # bytes

FIELDS = ["ip.src", "ip.dst", "udp.dstport", "udp.length", "infiniband.bth.opcode", "infiniband.bth.destqp",
          "infiniband.bth.psn", "infiniband.aeth.syndrome.opcode", "infiniband.payload"]

Packet = collections.namedtuple("Packet", "source target port length opcode queue number syndrome payload")


def packets(capture):
    command = ["tshark", "-n", "-r", capture, "-Y", "infiniband || udp.port == 4791", "-T", "fields"]
    for field in FIELDS:
        command += ["-e", field]
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True) as tshark:
        for line in tshark.stdout:
            yield Packet(*line.rstrip("\n").split("\t"))


def precedes(number, other):
    """Packet numbers count modulo 2 to the 24."""
    return 0 < (other - number) % (1 << 24) < 1 << 23


class Check:
    def __init__(self, camera, host, buffers):
        self.camera, self.host, self.buffers = camera, host, buffers
        self.counts = collections.Counter()
        self.seen = set()
        self.acknowledged = {}  # by host: the last packet number it acknowledged
        self.refused = {}  # by host: the packet number it asked for again
        self.complaints = collections.Counter()
        self.reasons = collections.Counter()

    def take(self, packet):
        if packet.port != ROCE_PORT or not packet.opcode:
            self.complaints[f"a packet to port {packet.port} with opcode {packet.opcode or 'unknown'}"] += 1
            return
        opcode = int(packet.opcode, 0)
        if opcode == DATAGRAM_SEND_ONLY and int(packet.queue, 0) == 1:
            self.counts["connection manager"] += 1
        elif opcode == ACKNOWLEDGE:
            self.take_acknowledge(packet)
        elif packet.source == self.camera and opcode in (SEND_FIRST, SEND_MIDDLE, SEND_LAST, SEND_ONLY):
            self.take_frame_packet(packet, opcode)
        elif packet.source == self.host and opcode == SEND_ONLY:
            self.take_ready_message(packet)
        else:
            self.complaints[f"opcode {opcode} from {packet.source}"] += 1

    def take_acknowledge(self, packet):
        # The upper bits of the syndrome: 0 acknowledge, 1 receiver not ready, 3 negative acknowledge.
        kind = {0: "acknowledges", 1: "receiver-not-ready answers", 3: "negative acknowledges"}
        syndrome = int(packet.syndrome or "0", 0)
        self.counts[kind.get(syndrome, "strange acknowledges")] += 1
        number = int(packet.number, 0)
        if syndrome != 0:
            self.refused[packet.source] = number
        elif not precedes(number, self.acknowledged.get(packet.source, number)):
            self.acknowledged[packet.source] = number

    def why_again(self, packet):
        """Why a packet that was on the cable already comes again, as far as the cable shows it."""
        number = int(packet.number, 0)
        if packet.target in self.acknowledged and not precedes(self.acknowledged[packet.target], number):
            return "acknowledged in time, which the sender was late to read"
        if packet.target in self.refused:
            return "asked for by the receiver, which was late to take it in"
        return "not acknowledged in time by a late receiver"

    def is_new(self, packet):
        key = (packet.source, packet.queue, packet.number)
        if key in self.seen:
            self.counts["retransmissions"] += 1
            self.reasons[self.why_again(packet)] += 1
            return False
        self.seen.add(key)
        return True

    def take_frame_packet(self, packet, opcode):
        if not self.is_new(packet):
            return
        self.counts["frame packets"] += 1
        if opcode in (SEND_FIRST, SEND_ONLY):
            self.counts["frames"] += 1
            if self.counts["frames"] > self.counts["ready messages"]:
                self.complaints["a frame without a ready message"] += 1

    def take_ready_message(self, packet):
        if not self.is_new(packet):
            return
        self.counts["ready messages"] += 1
        if self.counts["ready messages"] > self.counts["frames"] + self.buffers:
            self.complaints["a ready message for a block that the camera has already"] += 1
        # UDP header 8, base transport header 12, invariant CRC 4.
        if int(packet.length) - 24 != READY_MESSAGE:
            self.complaints[f"a ready message of {int(packet.length) - 24} bytes"] += 1
        expected = "01000001" + "00" * (READY_MESSAGE - 4)
        if packet.payload and not packet.payload.replace(":", "").startswith(expected):
            self.complaints["a ready message with other bytes"] += 1

    def finish(self):
        frames, ready = self.counts["frames"], self.counts["ready messages"]
        if frames == 0:
            self.complaints["no frames"] += 1
        if not frames <= ready <= frames + self.buffers:
            self.complaints[f"{ready} ready messages for {frames} frames and {self.buffers} buffers"] += 1
        if self.counts["acknowledges"] == 0:
            self.complaints["no acknowledges"] += 1


def main():
    check = Check(sys.argv[2], sys.argv[3], int(sys.argv[4]))
    for packet in packets(sys.argv[1]):
        check.take(packet)
    check.finish()
    for name, count in check.complaints.items():
        print(f"wrong: {name} ({count} times)")
    order = ["frames", "ready messages", "frame packets", "acknowledges", "receiver-not-ready answers",
             "negative acknowledges", "retransmissions", "connection manager"]
    text = ", ".join(f"{check.counts[name]} {name}" for name in order)
    if check.reasons:
        text += "; retransmitted were " + ", ".join(f"{count} {why}" for why, count in check.reasons.items())
    print(f"{next(iter(check.complaints))}; {text}" if check.complaints else text)
    return 1 if check.complaints else 0


sys.exit(main())
