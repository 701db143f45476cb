"""Shared by the tests of the program `talrtp`: their cases, the processes that they start, and streams.

A test is a script whose cases are functions with the decorator `case`. Without a case all run, one after the other,
each in a folder of its own:

    tests/host/NAME-program PROGRAM MEDIA_FOLDER [CASE]...
"""

import json
import os
import random
import signal
import subprocess
import sys
import tempfile
import time

if len(sys.argv) < 3:
    sys.exit(sys.modules["__main__"].__doc__.strip())
PROGRAM = os.path.abspath(sys.argv[1])
MEDIA = os.path.abspath(sys.argv[2])
SLICES = os.path.join(MEDIA, "own-testsrc2-640x360-4slices.264")
SVC = os.path.join(MEDIA, "own-svc-320x180-t4-prefix.264")
LIMIT = 60  # seconds that a process may take on a machine under load
CASES = {}
RUNNING = []


def case(function):
    """The function returns nothing, or what it measured, as a text."""
    CASES[function.__name__.replace("_", "-")] = function
    return function


def check(condition, text):
    if not condition:
        raise AssertionError(text)


def equal(got, wanted, text):
    check(got == wanted, f"{text}: {got!r}, not {wanted!r}")


# ---- processes

def start(*arguments, **options):
    options.setdefault("stdout", subprocess.PIPE)
    options.setdefault("stderr", subprocess.PIPE)
    process = subprocess.Popen([PROGRAM, *map(str, arguments)], **options)
    RUNNING.append(process)
    return process


class Outcome:
    def __init__(self, process, stdin=None):
        self.out, self.err = process.communicate(stdin, timeout=LIMIT)
        self.status = process.returncode
        self.err = self.err.decode() if self.err else ""

    def report(self, stream="out"):
        text = getattr(self, stream)
        try:
            return json.loads(text)
        except ValueError as error:
            raise AssertionError(f"not one report: {error}; status {self.status}, {stream}: {text!r}") from error

    def ended_with(self, status):
        check(self.status == status, f"status {self.status}, not {status}; stderr: {self.err}")
        return self


def run(*arguments, stdin=None, **options):
    if stdin is not None:
        options["stdin"] = subprocess.PIPE
    return Outcome(start(*arguments, **options), stdin)


def fails(status, text, *arguments, **options):
    """One line on stderr tells the reason."""
    outcome = run(*arguments, **options)
    check(outcome.status == status, f"{arguments}: status {outcome.status}, not {status}: {outcome.err}")
    check(text in outcome.err, f"{arguments}: no '{text}' in: {outcome.err}")
    equal(len(outcome.err.splitlines()), 1, f"{arguments}: lines on stderr: {outcome.err}")
    return outcome


def status_of(process, name):
    """A line of what the system knows of a process, by the number of the process."""
    with open(f"/proc/{process}/status", encoding="ascii") as file:
        return next(line.split()[1] for line in file if line.startswith(name + ":"))


def catches_interrupt(process):
    return int(status_of(process, "SigCgt"), 16) >> (signal.SIGINT - 1) & 1 == 1


# ---- ports

def is_open(port):
    for name in ("udp", "udp6"):
        with open(f"/proc/net/{name}", encoding="ascii") as table:
            for line in table.readlines()[1:]:
                if int(line.split()[1].rsplit(":", 1)[1], 16) == port:
                    return True
    return False


def wait_for(condition, text):
    end = time.monotonic() + LIMIT
    while not condition():
        check(time.monotonic() < end, f"timed out: {text}")
        time.sleep(0.005)


def free_ports():
    """The first of three ports in a row that nobody uses, below those that the system hands out."""
    for _ in range(1000):
        first = random.randrange(10000, 30000, 4)
        if not any(is_open(first + i) for i in range(3)):
            return first
    raise AssertionError("no free ports")


# ---- streams

def units_of(stream):
    """The NAL units of a byte stream (Annex B), without the zeros that may follow each."""
    units = []
    for piece in (b"\0" + stream).split(b"\0\0\1")[1:]:
        units.append(piece.rstrip(b"\0"))
    return units


def read(path):
    with open(path, "rb") as file:
        return file.read()


def write(path, data):
    with open(path, "wb") as file:
        file.write(data)
    return path


# ---- all cases

def passes(name):
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        try:
            measured = CASES[name]()
            print(f"passed: {name}" + (f": {measured}" if measured else ""))
            return True
        except (AssertionError, TimeoutError, subprocess.TimeoutExpired) as problem:
            print(f"FAILED: {name}: {str(problem)[:2000]}")
            return False
        finally:
            for process in RUNNING:
                if process.poll() is None:
                    process.kill()
                    process.wait()
            RUNNING.clear()
            os.chdir("/")


def main():
    if sys.argv[3:] == ["--list"]:
        print("\n".join(CASES))
        return
    results = [passes(name) for name in sys.argv[3:] or CASES]
    sys.exit(0 if all(results) else 1)
