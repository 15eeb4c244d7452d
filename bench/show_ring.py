#!/usr/bin/env python3
"""Prints a full ring with grep and with korx side by side, process start included, into a pipe; one
row a way: its name, its time, grep's, both in ns, and their ratio. Runs in scripts/sandbox.

Arguments: korx, libkorx_basic.
"""
import ctypes
import os
import pathlib
import subprocess
import sys
import time

KORX, LIBRARY = (str(pathlib.Path(argument).resolve()) for argument in sys.argv[1:3])
ROUNDS = 60
RING = "/opt/log/KORX_DIAG_LOG"


def fill_ring():
    os.mkdir("/opt/log")
    pathlib.Path("/etc/base.d/base.conf").write_text("[PATH]\nLOG_PATH=/opt/log\n")
    library = ctypes.CDLL(LIBRARY)
    library.LOG_FileInit()
    for i in range(6000):
        library.KORX_DLog(3, 0x1234, i % 5, 1, 2, b"%s", b"record %d of the usual length, more or less" % i)
    assert os.path.getsize(RING) == 262144


def elapsed(command):
    start = time.perf_counter()
    subprocess.run(command, stdout=subprocess.PIPE, check=True)
    return (time.perf_counter() - start) * 1e9


fill_ring()
COMMANDS = {"grep": ["grep", "-a", ".", RING], "ShowRing": [KORX, "log", "show", RING],
            "ShowRingAsJson": [KORX, "log", "show", "--json", RING]}
# The best of many rounds, taken in turn: what else the machine does meets all alike.
best = {name: min(times) for name, times in
        zip(COMMANDS, zip(*([elapsed(c) for c in COMMANDS.values()] for _ in range(ROUNDS))))}
floor = best.pop("grep")
for name, spent in best.items():
    print(name, spent, floor, spent / floor, sep="\t")
