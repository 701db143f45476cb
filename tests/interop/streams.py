"""H.264 byte streams: their units, their decoded pictures, and the streams that the check makes for itself."""

import glob
import os
import re
import subprocess

START_CODE = re.compile(b"\x00\x00\x01")
SPS, PPS = 7, 8


def units_of(data):
    """Returns the NAL units of a byte stream, without start codes and trailing zeros."""
    marks = [(match.start(), match.end()) for match in START_CODE.finditer(data)]
    ends = [start for start, _ in marks[1:]] + [len(data)]
    return [data[begin:end].rstrip(b"\x00") for (_, begin), end in zip(marks, ends)]


def units_of_file(path):
    with open(path, "rb") as file:
        return units_of(file.read())


def unit_type(unit):
    return unit[0] & 0x1F


def is_parameter_set(unit):
    return unit_type(unit) in (SPS, PPS)


def describe_difference(got, wanted):
    """Returns an empty string for equal lists of units, else where they part."""
    for i, (a, b) in enumerate(zip(got, wanted)):
        if a != b:
            return f"unit {i} is of type {unit_type(a)} and {len(a)} bytes, not {unit_type(b)} and {len(b)}"
    return "" if len(got) == len(wanted) else f"{len(got)} units, not {len(wanted)}"


def pictures_of(path):
    """Returns the MD5 of each decoded picture, by ffmpeg; none when nothing in the stream can be decoded."""
    command = ["ffmpeg", "-v", "quiet", "-f", "h264", "-i", path, "-vsync", "passthrough", "-f", "framemd5", "-"]
    text = subprocess.run(command, stdout=subprocess.PIPE, stdin=subprocess.DEVNULL, timeout=60, check=False).stdout
    return [line.rsplit(b",", 1)[1].strip() for line in text.splitlines() if line and not line.startswith(b"#")]


MADE = {
    "made-b-pictures": ("testsrc2=size=320x240:rate=25:duration=2",
                        ["-bf", "3", "-x264-params", "b-pyramid=normal:keyint=20"]),
    "made-tiny-units": ("testsrc=size=64x48:rate=50:duration=2", ["-qp", "40", "-x264-params", "keyint=10:slices=2"]),
    "made-huge-idr": ("testsrc2=size=1280x720:rate=25:duration=0.32", ["-qp", "6", "-g", "4"]),
    "made-cavlc": ("testsrc2=size=176x144:rate=25:duration=1.2", ["-profile:v", "baseline", "-crf", "18"]),
}


def make(folder, name, extension=".264"):
    """Encodes a stream; the extension ".ts" puts it into an MPEG transport stream, with real timestamps."""
    source, options = MADE[name]
    path = os.path.join(folder, name + extension)
    container = "mpegts" if extension == ".ts" else "h264"
    subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", source, "-pix_fmt", "yuv420p", "-c:v", "libx264",
                    "-threads", "1", *options, "-f", container, path], check=True, timeout=60, stdin=subprocess.DEVNULL)
    return path


def collect(folders, scratch):
    """Returns the streams of `folders` and those that are made, as pairs of name and path."""
    found = [path for folder in folders for pattern in ("*.264", "*.jsv")
             for path in sorted(glob.glob(os.path.join(folder, pattern)))]
    named = {os.path.basename(path): os.path.abspath(path) for path in found}
    return list(named.items()) + [(name, make(scratch, name)) for name in MADE]
