"""The programs of both sides, run on loopback ports of a network namespace that the check has for itself."""

import itertools
import json
import os
import signal
import subprocess
import threading
import time

# Media is paced, so that a busy machine does not overrun the receiver's socket buffer: a loss would be blamed on
# the wrong side.
RATE_MBIT = 5
SOCKET_BUFFER = 4000000
LIMIT_SECONDS = 40

_port_lock = threading.Lock()
_ports = itertools.count(20000, 10)


def next_port():
    """Returns an even port with the nine after it free: nobody else is in the namespace."""
    with _port_lock:
        return next(_ports)


class Failure(Exception):
    """A comparison that does not hold; the text says which."""


def is_bound(port):
    wanted = f":{port:04X}"
    for table in ("/proc/net/udp", "/proc/net/udp6"):
        with open(table, encoding="ascii") as file:
            if any(line.split()[1].endswith(wanted) for line in file.readlines()[1:]):
                return True
    return False


class Peer:
    """A program that runs in the background, its messages in a file."""

    def __init__(self, folder, command, **options):
        self.log = os.path.join(folder, f"{os.path.basename(command[0])}-{time.monotonic_ns()}.log")
        self.command = command
        with open(self.log, "wb") as log:
            self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stderr=log,
                                            stdout=options.get("stdout", log), cwd=folder)

    def wait_bound(self, *ports):
        deadline = time.monotonic() + LIMIT_SECONDS
        while not all(is_bound(port) for port in ports):
            if self.process.poll() is not None or time.monotonic() > deadline:
                self.stop()
                raise Failure(f"does not listen: {self.messages()}")
            time.sleep(0.02)

    def wait(self, seconds=LIMIT_SECONDS):
        """Waits for the end. Returns the exit code, or none when the program had to be stopped."""
        try:
            return self.process.wait(seconds)
        except subprocess.TimeoutExpired:
            self.stop()
            return None

    def stop(self):
        for each in (signal.SIGINT, signal.SIGKILL):
            if self.process.poll() is None:
                self.process.send_signal(each)
                try:
                    self.process.wait(3)
                except subprocess.TimeoutExpired:
                    pass

    def messages(self):
        with open(self.log, encoding="utf-8", errors="replace") as file:
            return file.read()[-400:].strip()


class Talrtp:
    """Our program."""

    def __init__(self, program, folder):
        self.program = program
        self.folder = folder

    def send(self, stream, to, *options, seconds=LIMIT_SECONDS):
        """Sends to the end. Returns the report."""
        rate = () if "--rate" in options or "--fps" in options else ("--rate", str(RATE_MBIT))
        command = [self.program, "send", stream, "--to", to, "--json", *rate, *options]
        done = subprocess.run(command, capture_output=True, timeout=seconds, check=False, cwd=self.folder)
        if done.returncode != 0:
            raise Failure(f"send ended with {done.returncode}: {done.stderr.decode()[-300:]}")
        return json.loads(done.stdout)

    def sdp(self, stream, to, *options):
        """Returns the path of the session description that `talrtp sdp` prints."""
        path = os.path.join(self.folder, f"session-{time.monotonic_ns()}.sdp")
        done = subprocess.run([self.program, "sdp", stream, "--to", to, *options], capture_output=True, timeout=20,
                              check=False)
        if done.returncode != 0:
            raise Failure(f"sdp ended with {done.returncode}: {done.stderr.decode()[-300:]}")
        with open(path, "wb") as file:
            file.write(done.stdout.split(b"\n\n", 1)[0] + b"\n")
        return path

    def receive(self, out, *options):
        report = out + ".json"
        with open(report, "wb") as file:
            peer = Peer(self.folder, [self.program, "recv", "--out", out, "--json", "--idle", "4", *options], stdout=file)
        peer.report = report
        return peer

    def report_of(self, peer):
        """Waits for a receiver's end and returns its report."""
        code = peer.wait()
        with open(peer.report, encoding="utf-8") as file:
            text = file.read()
        if not text:
            raise Failure(f"recv ended with {code}: {peer.messages()}")
        return json.loads(text)


def ffmpeg_receives(folder, sdp, out):
    return Peer(folder, ["ffmpeg", "-v", "warning", "-y", "-protocol_whitelist", "file,udp,rtp", "-buffer_size",
                         str(SOCKET_BUFFER), "-i", sdp, "-c", "copy", "-f", "h264", out])


def gstreamer_receives(folder, sdp, out):
    return Peer(folder, ["gst-launch-1.0", "-q", "filesrc", f"location={sdp}", "!", "sdpdemux", "latency=500", "!",
                         "rtph264depay", "!", "video/x-h264,stream-format=byte-stream,alignment=nal", "!", "filesink",
                         f"location={out}"])


def gstreamer_reports(folder, out, port, reports_to):
    """Sends its reports to the port `reports_to`. It does not end by itself."""
    caps = "application/x-rtp,media=video,clock-rate=90000,encoding-name=H264,payload=98"
    return Peer(folder, [
        "gst-launch-1.0", "-e", "-q", "rtpbin", "name=session", "udpsrc", f"port={port}", f"caps={caps}",
        f"buffer-size={SOCKET_BUFFER}", "!", "session.recv_rtp_sink_0", "session.", "!", "rtph264depay", "!",
        "video/x-h264,stream-format=byte-stream,alignment=nal", "!", "filesink", f"location={out}", "udpsrc",
        f"port={port + 1}", "!", "session.recv_rtcp_sink_0", "session.send_rtcp_src_0", "!", "udpsink",
        "host=127.0.0.1", f"port={reports_to}", "sync=false", "async=false"])


def ffmpeg_sends(folder, arguments, port, sdp, *options):
    return Peer(folder, ["ffmpeg", "-v", "warning", "-y", "-re", *arguments, "-c", "copy", "-f", "rtp", "-payload_type",
                         "98", "-rtpflags", "send_bye", "-sdp_file", sdp, *options, f"rtp://127.0.0.1:{port}"])


def gstreamer_sends(folder, stream, port, *pay_options, mtu=1200):
    """Sends with RTCP, so that a goodbye ends the stream."""
    return Peer(folder, [
        "gst-launch-1.0", "-q", "rtpbin", "name=session", "filesrc", f"location={stream}", "!", "h264parse", "!",
        "video/x-h264,stream-format=avc,alignment=au", "!", "rtph264pay", "pt=98", f"mtu={mtu}",
        *pay_options, "!", "session.send_rtp_sink_0", "session.send_rtp_src_0", "!", "udpsink", "host=127.0.0.1",
        f"port={port}", "session.send_rtcp_src_0", "!", "udpsink", "host=127.0.0.1", f"port={port + 1}", "sync=false",
        "async=false"])
