"""The fields that tshark reads in a capture, and a second reading of our FEC headers."""

import os
import subprocess
import time
from collections import namedtuple

MEDIA_TYPE, FEC_TYPE = 98, 111

Packet = namedtuple("Packet", "type sequence timestamp marker payload")


def run_tshark(arguments):
    done = subprocess.run(["tshark", *arguments], capture_output=True, text=True, timeout=60, check=False)
    if done.returncode != 0:
        raise RuntimeError(f"tshark failed: {done.stderr[-300:]}")
    return done.stdout.splitlines()


class Recording:
    """A capture of the loopback interface that ended; `path` is its file."""

    def __init__(self, path):
        self.path = path

    def rtcp(self, port):
        return RtcpSeen(self.path, port)

    def media_packets(self, port):
        lines = run_tshark(["-r", self.path, "-d", f"udp.port=={port},rtp", "-Y", f"udp.dstport=={port} && rtp",
                            "-T", "fields", "-e", "rtp.seq"])
        return len(set(lines))


class RtcpSeen:
    """The RTCP packets of a capture, as tshark reads them."""

    FIELDS = ("rtcp.pt", "rtcp.senderssrc", "rtcp.ssrc.identifier", "rtcp.ssrc.cum_nr", "rtcp.sender.packetcount",
              "frame.number")

    def __init__(self, path, port):
        decode = ["-r", path, "-d", f"udp.port=={port},rtp", "-d", f"udp.port=={port + 1},rtcp", "-d",
                  f"udp.port=={port + 5},rtcp"]
        self.malformed = run_tshark(decode + ["-Y", "_ws.malformed || rtcp.length_check == 0", "-T", "fields", "-e",
                                              "frame.number"])
        options = [word for field in self.FIELDS for word in ("-e", field)]
        self.datagrams = [dict(zip(self.FIELDS, line.split("\t"))) for line in run_tshark(
            decode + ["-Y", "rtcp", "-T", "fields", *options])]
        media = run_tshark(decode + ["-Y", "rtp", "-T", "fields", "-e", "rtp.ssrc"])
        self.media_ssrc = int(media[0], 16) if media else 0

    def _of(self, ssrc, kind):
        """The datagrams of source `ssrc` that hold a packet of type `kind`."""
        return [each for each in self.datagrams
                if kind in each["rtcp.pt"].split(",") and
                ssrc in [int(text, 16) for text in each["rtcp.senderssrc"].split(",") if text] +
                [int(text, 16) for text in each["rtcp.ssrc.identifier"].split(",") if text]]

    def reports_from(self, ssrc):
        return len(self._of(ssrc, "200"))

    def goodbyes_of(self, ssrc):
        return len(self._of(ssrc, "203"))

    def last_sender_count(self, ssrc):
        reports = self._of(ssrc, "200")
        return int(reports[-1]["rtcp.sender.packetcount"]) if reports else None

    def blocks_about(self, ssrc):
        """The report blocks about `ssrc`, in order. A datagram of these peers has one."""
        blocks = []
        for each in self.datagrams:
            lost = [text for text in each["rtcp.ssrc.cum_nr"].split(",") if text]
            about = [int(text, 16) for text in each["rtcp.ssrc.identifier"].split(",") if text]
            if lost and ssrc in about:
                blocks.append({"lost": int(lost[0])})
        return blocks


class Capture:
    """The RTP packets in a file that `talrtp send --pcap` wrote."""

    def __init__(self, path):
        lines = run_tshark(["-r", path, "-Y", "udp", "-T", "fields", "-e", "udp.payload"])
        self.packets = [self._read(bytes.fromhex(line)) for line in lines if len(line) >= 24]

    @staticmethod
    def _read(data):
        return Packet(data[1] & 0x7F, int.from_bytes(data[2:4], "big"), int.from_bytes(data[4:8], "big"),
                      bool(data[1] & 0x80), data[12:])

    class recording:  # pylint: disable=invalid-name
        """Records the loopback interface around a block; ports from `port` to `port` + 9."""

        def __init__(self, folder, port):
            self.path = os.path.join(folder, "loopback.pcapng")
            self.port = port

        def __enter__(self):
            self.process = subprocess.Popen(["dumpcap", "-q", "-i", "lo", "-f", f"udp portrange {self.port}-{self.port + 9}",
                                             "-w", self.path], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                            stderr=subprocess.DEVNULL)
            deadline = time.monotonic() + 10
            while not (os.path.exists(self.path) and os.path.getsize(self.path) > 0) and time.monotonic() < deadline:
                time.sleep(0.05)
            time.sleep(0.3)
            return Recording(self.path)

        def __exit__(self, *_):
            time.sleep(0.5)
            self.process.terminate()
            self.process.wait(10)


def distance(number, base):
    return (number - base + 0x8000) % 0x10000 - 0x8000


def members(packet, scheme):
    """The sequence numbers of the media packets that an FEC packet protects."""
    base = int.from_bytes(packet.payload[0:2], "big")
    if scheme == "xor":
        mask = int.from_bytes(packet.payload[5:8], "big")
        return tuple((base + i) % 0x10000 for i in range(24) if mask >> (23 - i) & 1)
    return tuple((base + i) % 0x10000 for i in range(packet.payload[6]))


def fec_groups(capture, scheme):
    """Returns (media packets missing, those of them that no FEC brings back)."""
    numbers = [packet.sequence for packet in capture.packets if packet.type == MEDIA_TYPE]
    arrived = set(numbers)
    parity = {}
    for packet in capture.packets:
        if packet.type == FEC_TYPE:
            group = members(packet, scheme)
            parity[group] = parity.get(group, 0) + 1
    covered = {number for group in parity for number in group}
    # Numbers wrap around, so they are compared by their distance from one of them.
    first = min(arrived, key=lambda number: distance(number, numbers[0]))
    last = max(arrived, key=lambda number: distance(number, numbers[0]))
    everything = {(first + i) % 0x10000 for i in range(distance(last, first) + 1)} | covered
    missing = everything - arrived
    beyond = set(missing)
    for group, count in parity.items():
        lost = [number for number in group if number in missing]
        if len(lost) <= count:
            beyond -= set(lost)
    return len(missing), len(beyond)
