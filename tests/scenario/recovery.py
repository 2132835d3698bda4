"""What a fault must leave behind: nothing. The daemon works on, and holds no more than before."""

import contextlib
import json
import os

import bus
from processes import Trouble, wait_for

SANITIZED = bool(os.environ.get("DV_SANITIZED"))    # memory then says nothing: what is freed is kept for a while
GROWTH_ALLOWED = 192 * 1024                         # bytes; an allocator's way to round, not a leak of what passed


class Footprint:
    """What a process holds: memory of its own, open files, threads."""

    def __init__(self, pid):
        with open(f"/proc/{pid}/status", encoding="utf-8") as file:
            status = dict(line.split(":", 1) for line in file if ":" in line)
        self.memory = int(status["RssAnon"].split()[0]) * 1024
        self.files = len(os.listdir(f"/proc/{pid}/fd"))
        self.threads = int(status["Threads"])

    def __repr__(self):
        return f"{self.memory // 1024} KB of its own, {self.files} open files, {self.threads} threads"

    def is_as(self, before, growth):
        return (SANITIZED or self.memory <= before.memory + growth) and \
            self.files <= before.files and self.threads <= before.threads


def lasting(pid):
    """What a process holds all the time: a value or a flag that is being read is one file more, for a moment."""
    samples = [Footprint(pid) for _ in range(10)]
    return min(samples, key=lambda sample: (sample.files, sample.threads, sample.memory))


def warm_up(bench):
    """The bus keeps room for 256 records, a megabyte, which takes up memory as far as it was ever filled. So it is filled
    once, while requests whose flags nobody clears keep the daemon waiting."""
    if getattr(bench, "warm", False):
        return
    for name in ("DV_SMS_MGR_LAST_RECEIVED_MSG", "DV_SMS_MGR_LAST_ERR_CODE"):
        bench.flag[name] = "0"
    for _ in range(2 + bench.factor // 10):
        bench.request(bus.MSG_DELETE_DRAFT, b"99")
    for _ in range(300):
        bench.request(0x50000000)
    bench.wait_passed(0x50000001, 60)
    for name in ("DV_SMS_MGR_LAST_RECEIVED_MSG", "DV_SMS_MGR_LAST_ERR_CODE"):
        bench.flag[name] = ""
    bench.warm = True


def relieve(bench, seconds=60):
    """Empties the SIM. What could not be read or deleted when it came stays there unless it is announced again."""
    bench.wait(lambda: json.loads(bench.modem("status", "--json"))["open"], "the port is open")

    def emptied():
        try:
            bench.wait(lambda: bench.stored() == [], "", 3)
            return True
        except Trouble:
            for index in bench.stored()[:40]:   # a ring's worth
                bench.modem("urc", f'+CMTI: "SM",{index}')
            return False

    bench.wait(emptied, "the SIM is empty", seconds)


def works(bench, tag, seconds=60):
    """Receives both ways and sends, each seen on the other side."""
    pid = bench.daemon.popen.pid
    for via in ("cmt", "cmti"):
        bench.handset("send", "--via", via, f"{tag} {via}")
    bench.wait(lambda: {f"{tag} cmt", f"{tag} cmti"} <= set(bench.store.texts("read")), "messages come in", seconds)
    bench.wait(lambda: bench.send("+31687654321", f"{tag} out", seconds) == 0, "a message goes out", seconds)
    bench.wait(lambda: f"{tag} out" in [message["text"] for message in bench.inbox()], "it arrives", seconds)
    relieve(bench)
    assert bench.daemon.popen.poll() is None and bench.daemon.popen.pid == pid


@contextlib.contextmanager
def survived(bench, tag, check=works, growth=GROWTH_ALLOWED):
    """Around a fault and its end: `check` must succeed before and afterwards, and the daemon hold what it held."""
    warm_up(bench)
    check(bench, f"before {tag}")
    pid = bench.daemon.popen.pid
    before = lasting(pid)
    yield
    check(bench, f"after {tag}")
    last = [before]

    def as_before():
        last[0] = Footprint(pid)
        return last[0].is_as(before, growth)

    try:
        wait_for(as_before, "", 20, 0.1)
    except Trouble:
        raise Trouble(f"{tag}: the daemon held {before}, holds {last[0]}") from None
