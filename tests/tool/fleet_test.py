#!/usr/bin/env python3
"""Ships records through both rsyslog configurations of examples/fleet on loopback, kills the
collector in the middle and looks for every record at it. Runs in scripts/sandbox.

Arguments: korx, libkorx_basic, examples/fleet.
"""
import contextlib
import ctypes
import json
import os
import pathlib
import shutil
import socket
import subprocess
import sys
import tempfile
import time

KORX, LIBRARY, FLEET = (pathlib.Path(argument).resolve() for argument in sys.argv[1:4])
SPARED = 77  # what ctest takes for "skipped"
ROUND = 250


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_for(what, seconds, condition):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            sys.exit(f"gave up waiting for {what}")
        time.sleep(0.05)


def write_records(first, count):
    """In a process of its own, as a component would, through the library's own writers."""
    child = os.fork()
    if child == 0:
        library = ctypes.CDLL(str(LIBRARY))
        library.LOG_FileInit()
        for i in range(first, first + count):
            library.KORX_DLog(1, 2, 1, 3, 4, b"%s", b"fleet %d" % i)
            library.KORX_SecurityEventLog(1, 2, 1, 3, 4, b"%s", b"fleet %d" % i)
        os._exit(0)
    assert os.waitpid(child, 0)[1] == 0


def arrived(records):
    found = {"diag": set(), "security": set()}
    for line in records.read_bytes().splitlines() if records.exists() else []:
        with contextlib.suppress(ValueError):  # the line that the kill cut short comes again
            record = json.loads(line)
            if record.get("message", "").startswith("fleet "):
                found[record["kind"]].add(int(record["message"].split()[1]))
    return found


def main():
    rsyslogd = pathlib.Path("/usr/sbin/rsyslogd")
    if not rsyslogd.exists() or not list(pathlib.Path("/usr/lib").glob("*/rsyslog/omrelp.so")):
        print("rsyslog or rsyslog-relp is not installed")
        return SPARED
    root = pathlib.Path(tempfile.mkdtemp(prefix="korx-fleet-"))
    for name in ("log", "board", "far"):
        (root / name).mkdir()
    pathlib.Path("/etc/base.d/base.conf").write_text(f"[PATH]\nLOG_PATH={root}/log\n")
    spool, records = root / "records.json", root / "collected.json"
    environment = dict(os.environ, KORX_SPOOL=str(spool), KORX_RECORDS=str(records),
                       KORX_COLLECTOR="127.0.0.1", KORX_COLLECTOR_PORT=str(free_port()))
    running = []

    def start(command, **options):
        running.append(subprocess.Popen(command, **options))
        return running[-1]

    def kill(process):
        process.kill()
        process.wait()

    def daemon(configuration, work):
        return start([rsyslogd, "-n", "-f", FLEET / configuration, "-i", root / work / "pid"],
                     env=dict(environment, KORX_WORK=str(root / work)))

    def ship():
        return start([KORX, "log", "take", "all", "--follow", "--json"], stdout=spool.open("ab"))

    def count():
        return min(len(kind) for kind in arrived(records).values())

    try:
        write_records(0, ROUND)
        collector, shipper = daemon("collector.conf", "far"), ship()
        daemon("forwarder.conf", "board")
        wait_for("the first records", 20, lambda: count() > 0)
        kill(collector)
        write_records(ROUND, ROUND)
        # The shipper is killed too: what it had not acknowledged is taken again.
        kill(shipper)
        shipper = ship()
        daemon("collector.conf", "far")
        write_records(2 * ROUND, ROUND)
        wait_for("all records", 30, lambda: count() == 3 * ROUND)
        shipper.terminate()
        assert shipper.wait(5) == 0, "the shipper did not end cleanly"
    finally:
        for process in running:
            kill(process)
        missing = {kind: sorted(set(range(3 * ROUND)) - got)[:10]
                   for kind, got in arrived(records).items()}
        print(f"missing: {missing}")
        shutil.rmtree(root)
    return 0


sys.exit(main())
