#!/usr/bin/env python3
"""The operator's command beside the tools at hand, process start included; runs in scripts/sandbox.

Prints what the other contests print. Arguments: korx, libkorx_basic, rounds.
"""
import ctypes
import json
import os
import pathlib
import resource
import subprocess
import sys
import time

KORX, LIBRARY = (str(pathlib.Path(argument).resolve()) for argument in sys.argv[1:3])
ROUNDS = int(sys.argv[3])
LOGS = pathlib.Path("/opt/log")
RING = LOGS / "KORX_DIAG_LOG"
TAKEN = LOGS / "taken"
ORDINARY = "record %d of the usual length, more or less"

library = ctypes.CDLL(LIBRARY)


def say(contest, contestant, role, turn, nanos):
    print(json.dumps({"contest": contest, "size": 0, "processes": 1, "contestant": contestant,
                      "role": role, "round": turn, "ns": nanos}), flush=True)


def fill_ring(records):
    for i in range(records):
        library.KORX_DLog(3, 0x1234, i % 5, 1, 2, b"%s", (ORDINARY % i).encode())


def elapsed(command, lines):
    start = time.perf_counter_ns()
    output = subprocess.run(command, stdout=subprocess.PIPE, check=True).stdout
    spent = time.perf_counter_ns() - start
    assert output.count(b"\n") >= lines, command
    return spent


def hold(contest, contestants, before=lambda: None):
    """contestants: name, role, command, least lines of output. The first round warms up."""
    for turn in range(ROUNDS + 1):
        for i in range(len(contestants)):
            name, role, command, lines = contestants[(i + turn) % len(contestants)]
            before()
            spent = elapsed(command, lines)
            if turn > 0:
                say(contest, name, role, turn, spent)


def show():
    grep = ("grep -a .", "floor", ["grep", "-a", ".", RING], 1900)
    fields = '{ gsub(/[][]+/, " "); print $1, $2, $3, $NF }'
    hold("korx log show, full ring", [
        ("korx", "ours", [KORX, "log", "show", RING], 1900), grep,
        ("awk, fields taken apart", "peer", ["awk", fields, RING], 1900)])
    hold("korx log show --json, full ring", [
        ("korx", "ours", [KORX, "log", "show", "--json", RING], 1900), grep])


def take():
    """Everything is unread again before each turn."""
    def lay_out():
        TAKEN.unlink(missing_ok=True)
        RING.with_name(RING.name + ".cursor").unlink(missing_ok=True)
        with RING.open("r+b") as ring:
            ring.seek(4)
            ring.write(bytes(4))
    hold("korx log take --output, full ring", [
        ("korx", "ours", [KORX, "log", "take", "--output", TAKEN, RING], 0),
        ("grep -a . and sync", "floor",
         ["sh", "-c", f"grep -a . {RING} >> {TAKEN} && sync {TAKEN} {LOGS}"], 0)], lay_out)


def cpu_of_following(command, write):
    """Processor time that a follower spends on a second's records, a thousand of them."""
    with open(os.devnull, "wb") as nowhere:
        follower = subprocess.Popen(command, stdout=nowhere)
    time.sleep(0.3)
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    for i in range(1000):
        write(i)
        time.sleep(0.001)
    follower.terminate()
    follower.wait()
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return int(1e9 * (after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime))


def follow():
    """Start-up is paid, too, by both."""
    plain = LOGS / "plain"
    plain.write_bytes(RING.read_bytes())

    def append(i):
        with plain.open("ab") as file:
            file.write((ORDINARY % i).encode() + b"\n")
    for turn in range(1, max(ROUNDS // 5, 1) + 1):
        say("korx log show -f, 1000 records", "korx", "ours", turn,
            cpu_of_following([KORX, "log", "show", "-f", RING], lambda i: fill_ring(1)))
        say("korx log show -f, 1000 records", "tail -f", "floor", turn,
            cpu_of_following(["tail", "-f", plain], append))


LOGS.mkdir()
pathlib.Path("/etc/base.d/base.conf").write_text(f"[PATH]\nLOG_PATH={LOGS}\n")
library.LOG_FileInit()
fill_ring(6000)
assert RING.stat().st_size == 262144
show()
take()
follow()
true = subprocess.check_output(["which", "true"], text=True).strip()
hold("korx --version", [("korx", "ours", [KORX, "--version"], 1), ("true", "floor", [true], 0)])
