#!/usr/bin/env python3
"""Weeks of a router's life in fast time: messages in and out, with everything going wrong now and then.

    soak.py [--messages N] [--days N] [--factor N] [--seed N] [--keep DIRECTORY]

Every message has a number of its own and ends in exactly one line of the tally. The exit code is 0 when none is left
unexplained and the daemon holds at the end what it held at the beginning.
"""

import argparse
import collections
import json
import os
import random
import re
import shutil
import socket
import sys
import threading
import time

import common

common.in_memory()

import bus  # noqa: E402
from bench import BOXES, Bench  # noqa: E402
from processes import Trouble  # noqa: E402
from recovery import Footprint, GROWTH_ALLOWED, SANITIZED, warm_up  # noqa: E402

PEER = "+31687654321"
DELETE = {"read": bus.MSG_DELETE_RECEIVED, "send": bus.MSG_DELETE_SENT}
CAPACITY = 400
KEPT = 150                      # messages a box before the older ones are deleted
INCOMPLETE = range(200, 256)    # references of messages of which a part never comes; each is used once
FULL = "can not continue save,please delete it"
RING_FULL, INDEX_RING_FULL = "util_enqueue_pdu: pdu queue is full", "util_enqueue: queue is full"
BUS_FULL = "record 0x1010 does not reach module 27"
QUEUE_FULL = "there are too much msgs, just stop push queue"


class Tail:
    """Counts texts in a file that grows, without reading it anew."""

    def __init__(self, path, texts):
        self.path, self.at, self.rest = path, 0, b""
        self.counts = {text: 0 for text in texts}

    def count(self, text):
        with open(self.path, "rb") as file:
            file.seek(self.at)
            data = self.rest + file.read()
            self.at = file.tell()
        lines, _, self.rest = data.rpartition(b"\n")
        for each in self.counts:
            self.counts[each] += lines.count(each.encode())
        return self.counts[text]


class Clearer(threading.Thread):
    """The asker: takes both flags away as soon as they are there."""

    def __init__(self, bench):
        super().__init__(daemon=True)
        self.bench, self.ending = bench, threading.Event()
        self.start()

    def run(self):
        while not self.ending.wait(0.002):
            for name in ("DV_SMS_MGR_LAST_RECEIVED_MSG", "DV_SMS_MGR_LAST_ERR_CODE"):
                if self.bench.flag[name]:
                    self.bench.flag[name] = ""


class Soak:
    def __init__(self, seed, factor, keep=None):
        self.random, self.keep = random.Random(seed), keep
        self.bench = Bench(factor=factor)
        self.factor = self.bench.factor
        self.bench.cfg["SYS_SMS_MAX_SAVE_SIZE"] = str(CAPACITY)
        self.bench.cfg["SYS_REBOOT_WHEN_MODEM_UNORMAL"] = "0"
        self.texts = common.Texts()
        self.issued = {"in": set(), "out": set()}
        self.filed = collections.Counter()      # text: times filed
        self.failed = set()                     # filed as not sent
        self.during = {}                        # text: what was wrong when it was asked for
        self.arrived = collections.Counter()
        self.damaged = 0                        # records whose text is not whole
        self.fates = {}                         # text: what became of it
        self.seen = {"read": {}, "send": {}}    # number: text
        self.deleting = {"read": {}, "send": {}}
        self.direct = set()                     # came by +CMT, which nobody can ask for again
        self.long = set()                       # came in parts
        self.reference, self.incomplete = 0, iter(INCOMPLETE)
        self.referenced, self.spent = {}, set()     # text: its reference; those of which parts may have stayed behind
        self.footprints = []

    # ---- the two sides ----

    def simulator(self, command, **fields):
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as connection:
            connection.settimeout(60)
            connection.connect(str(self.bench.control))
            connection.sendall(json.dumps({"command": command, **fields}).encode() + b"\n")
            answer = b""
            while piece := connection.recv(1 << 20):
                answer += piece
        answer = json.loads(answer)
        if not answer["ok"]:
            raise Trouble(f"{command} {fields}: {answer['error']}")
        return answer["out"]

    def arrive(self, via, length=None):
        """A message to the router; its number."""
        length = self.random.choice((0, 60, 150)) if length is None else length
        text = self.texts.new(length)
        number = common.Texts.number(text)
        self.issued["in"].add(number)
        if via == "cmt":
            self.direct.add(number)
        fields = {}
        if length > 160:
            self.long.add(number)
            self.referenced[number] = self.next_reference()
            fields = {"alphabet": "ucs2", "reference": self.referenced[number]}
        self.simulator("handset send", text=text, via=via, **fields)
        return number

    def next_reference(self):
        """Parts stay for ever and are matched by the reference alone: one that was lost in part is not used again."""
        free = [number for number in range(INCOMPLETE.start) if number not in self.spent]
        if not free:
            raise Trouble("every reference has parts that stayed behind")
        self.reference = next((number for number in free if number > self.reference), free[0])
        return self.reference

    def ask_to_send(self, length=None):
        text = self.texts.new(self.random.choice((0, 60, 150, 300)) if length is None else length)
        number = common.Texts.number(text)
        self.issued["out"].add(number)
        while True:
            try:
                self.bench.request(bus.MSG_SEND, bus.pack_message(PEER, text))
                return number
            except TimeoutError:
                pass

    # ---- looking ----

    def look(self):
        """Notes what has been filed; deletes what is old."""
        for box in ("read", "send"):
            self.look_into(box)

    @staticmethod
    def number(text):
        """The number of a text that begins whole: behind a 7-bit text's last character its filling may stand."""
        found = common.Texts.PATTERN.match(text)
        return common.Texts.number(found[0]) if found else None

    def look_into(self, box):
        folder, seen = self.bench.store.folder / BOXES[box], self.seen[box]
        try:
            names = [name for name in os.listdir(folder) if not name.startswith(".")]
        except FileNotFoundError:
            return
        for name in set(seen) - set(names):
            del seen[name]
            self.deleting[box].pop(name, None)
        for name in names:
            try:
                content = (folder / name).read_bytes()
            except FileNotFoundError:
                continue
            fields = content.decode("utf-8", "surrogateescape").split(" ", 5)
            if len(fields) != 6 or fields[0] != name:
                raise Trouble(f"{box} {name} is no record: {content!r}")
            if seen.get(name) != fields[5]:
                self.deleting[box].pop(name, None)
                seen[name] = fields[5]
                self.note(box, fields)
        left = sorted(set(seen) - set(self.deleting[box]), key=int)
        if len(left) > KEPT:
            chosen = left[:KEPT // 2]
            self.deleting[box].update(dict.fromkeys(chosen))
            if box == "read" and self.random.random() < 0.5:
                self.bench.request(bus.MSG_READ, ",".join(chosen[:20]).encode())
            self.bench.request(DELETE[box], ",".join(chosen).encode())

    def note(self, box, fields):
        number = self.number(fields[5])
        if number is None:
            self.damaged += 1
            return
        self.filed[number] += 1
        if box == "send" and fields[1] == "0":
            self.failed.add(number)

    # ---- between two faults ----

    def relieve(self):
        """Announces again what stayed on the SIM."""
        messages = json.loads(self.simulator("modem storage", json=True))["messages"]
        for message in messages[:20]:
            self.simulator("modem urc", text=f'+CMTI: "SM",{message["index"]}')
        return not messages

    def settle(self, seconds=120):
        """Until everything that is on its way has come to its end: a last message by each way shows it."""
        self.bench.wait(lambda: json.loads(self.simulator("modem status", json=True))["open"], "the port is open")
        deadline, last = time.monotonic() + seconds, {}
        while True:
            for way in [way for way in ("cmt", "cmti", "out") if last.get(way) not in self.filed]:
                if way in last:                 # it found a full ring, or no service yet
                    self.fates[last[way]] = "sent to see whether all had passed"
                last[way] = self.ask_to_send(0) if way == "out" else self.arrive(way, 0)
            until = time.monotonic() + 3
            while time.monotonic() < until:
                self.look()
                if all(number in self.filed for number in last.values()):
                    break
                time.sleep(0.02)
            emptied = self.relieve()            # a full SIM takes no new one until it is
            if emptied and all(number in self.filed for number in last.values()):
                break
            if time.monotonic() > deadline:
                raise Trouble(f"it does not come to rest: {last}, SIM: {self.simulator('modem storage')[:500]}")
        self.look()
        for message in json.loads(self.simulator("handset inbox", json=True)):
            self.arrived[self.number(message["text"])] += 1
        self.simulator("handset clear")

    def pass_time(self, seconds):
        """Lets so many seconds of the daemon's time pass."""
        until = time.monotonic() + seconds / self.factor
        self.bench.wait(lambda: time.monotonic() > until, "time passes", 600)

    def episode(self, fault, count):
        """Some messages each way while something is wrong, and the fates of those that were neither filed nor refused
        for a reason of their own."""
        name, begin, end, rule = fault
        known = set().union(*self.issued.values())
        before = {text: self.log.count(text) for text in (FULL, BUS_FULL, RING_FULL, QUEUE_FULL)}
        damaged = self.damaged
        begin(self)
        ways = {"cmt": 30, "cmti": 30, "out": 60} if name not in ONE_WAY else ONE_WAY[name]
        for _ in range(count):
            way = self.random.choices(list(ways), list(ways.values()))[0]
            if way == "out":
                self.ask_to_send()
            else:
                self.arrive(way, 400 if way == "cmt" and self.random.random() < 0.1 else None)
            if name not in AT_ONCE:
                self.pause(len(ways))
        end(self)
        self.settle()
        since = {text: self.log.count(text) - count for text, count in before.items()}
        fresh = {side: numbers - known for side, numbers in self.issued.items()}
        self.spent.update(self.referenced[number] for number in fresh["in"]
                          if number in self.referenced and number not in self.filed)
        self.during.update((number, name) for number in fresh["out"])
        self.explain(rule, fresh, since, self.damaged - damaged)
        self.tell_unexplained(name, set().union(*fresh.values()))

    def pause(self, ways):
        """As long as the daemon takes for what has just been asked: three seconds a message received."""
        time.sleep(3.2 / self.factor)
        if self.random.random() < 0.1:
            self.look()

    def explain(self, rule, fresh, since, damaged):
        missing = {side: sorted(number for number in numbers if number not in self.filed and number not in self.fates)
                   for side, numbers in fresh.items()}
        bus_full = ("direct", "came directly when the bus had no room for seconds", since[BUS_FULL])
        for side, fate, allowed in [*rule(since, damaged), bus_full]:
            chosen = [number for number in missing["out" if side == "out" else "in"]
                      if side != "direct" or number in self.direct][:allowed]
            self.fates.update(dict.fromkeys(chosen, fate))
            missing = {side: [number for number in numbers if number not in self.fates]
                       for side, numbers in missing.items()}

    def tell_unexplained(self, fault, numbers):
        """At once, while what the programs said of it is at hand."""
        lost = [number for number in sorted(numbers) if number not in self.filed and number not in self.fates]
        for number in lost:
            way = "out" if number in self.issued["out"] else "in, direct" if number in self.direct else "in, by storage"
            parts = f", in parts of reference {self.referenced[number]}" if number in self.long else ""
            print(f"  UNEXPLAINED: {number} ({way}{parts}), fault: {fault}", flush=True)
        if lost and self.keep:
            for each in ("log", "modem.trace"):
                shutil.copy(self.bench.root / each, os.path.join(self.keep, f"{each}.{lost[0]}"))

    # ---- the whole ----

    def run(self, messages, days):
        bench = self.bench
        bench.start()
        warm_up(bench)
        clearer = Clearer(bench)
        self.log = Tail(bench.log_path, (FULL, BUS_FULL, RING_FULL, INDEX_RING_FULL, QUEUE_FULL))
        started, told = time.monotonic(), 0
        self.episode(FLOODS[0], 70)             # rings and queue at their fullest, once
        self.episode(FLOODS[1], 70)
        self.footprints.append(Footprint(bench.daemon.popen.pid))
        owner = None
        while (done := self.texts.count) < messages:
            fault = CALM if self.random.random() < 0.4 else self.random.choice(FAULTS + FLOODS)
            self.episode(fault, min(70 if fault in FLOODS else self.random.randint(10, 60), messages - done))
            self.simulator("modem commands", clear=True)
            self.footprints.append(Footprint(bench.daemon.popen.pid))
            if owner is None and self.texts.count > messages / 4:
                owner = Footprint(bench.owner.popen.pid)        # it has seen the same faults by now
            if self.texts.count - told >= 500:
                told = self.texts.count
                print(f"  {told} messages, {self.days(started):.1f} days, {self.footprints[-1]}", flush=True)
            idle = days * min(1, self.texts.count / messages) - self.days(started)
            self.pass_time(max(0, idle) * 86400)        # nothing happens, which is what a router mostly sees
        self.settle()
        self.footprints.append(Footprint(bench.daemon.popen.pid))
        clearer.ending.set()
        clearer.join()
        result = self.report(started, owner, Footprint(bench.owner.popen.pid))
        bench.__exit__(None, None, None)
        return result

    def days(self, started):
        return (time.monotonic() - started) * self.factor / 86400

    def report(self, started, owner_first, owner_last):
        tally = collections.Counter()
        for number in self.issued["in"]:
            tally["in: " + (("filed" + (", more than once" if self.filed[number] > 1 else ""))
                            if number in self.filed else self.fates.get(number, "UNEXPLAINED"))] += 1
        for number in self.issued["out"]:
            arrived = ", arrived" if self.arrived[number] else ", never arrived"
            filed = f"filed as failed ({self.during.get(number)})" if number in self.failed else "filed as sent"
            tally["out: " + (filed + arrived if number in self.filed else
                             self.fates.get(number, "UNEXPLAINED"))] += 1
        for what, count in sorted(tally.items()):
            print(f"  {what}: {count}")
        first, last = self.footprints[0], self.footprints[-1]
        print(f"  the daemon held {first}, at most {max(each.memory for each in self.footprints) // 1024} KB, "
              f"holds {last}")
        print(f"  at_owner held {owner_first}, holds {owner_last}")
        flat = last.is_as(first, GROWTH_ALLOWED) and (SANITIZED or owner_last.is_as(owner_first, GROWTH_ALLOWED))
        unexplained = sum(count for what, count in tally.items() if "UNEXPLAINED" in what)
        print(f"soak: {sum(tally.values())} messages in {self.days(started):.2f} days, "
              f"{time.monotonic() - started:.0f} s; {unexplained} unexplained; "
              f"memory, files and threads {'flat' if flat else 'NOT FLAT'}")
        return 0 if flat and unexplained == 0 else 1


# ---- what goes wrong: a name, its beginning, its end, and what may be lost to it ----

def told(command, on, off):
    """A fault that the simulated modem is told of and told to leave."""
    return lambda soak: soak.simulator(command, **on), lambda soak: soak.simulator(command, **off)


def put(store, key, wrong, right):
    def write(value):
        def change(soak):
            getattr(soak.bench, store)[key] = value
            soak.pass_time(4)                   # looked at once a second
        return change
    return write(wrong), write(right)


def nothing_lost(since, damaged):
    yield "in", "answer to reading it was damaged: filed with the text that it had, or not at all", damaged
    yield "in", "its box was full", since[FULL]


def garbled(since, damaged):
    """Noise in the answer to AT+CMGR reaches the text; without a text that is left nothing is filed."""
    yield "in", "read with noise in it: filed so, or not filed, and deleted from the SIM", 10 ** 6


def service_off(since, damaged):
    yield "direct", "came directly while the service was off", 10 ** 6
    yield "out", "asked for while the service was off", 10 ** 6


def rings_full(since, damaged):
    yield "direct", "came directly when fifty were waiting", since[RING_FULL]


def queue_full(since, damaged):
    yield "out", "asked for when sixty-one were waiting", since[QUEUE_FULL]


def box_full(since, damaged):
    yield "in", "its box was full", since[FULL]


def nothing(soak):
    pass


def begin_full(soak):
    soak.bench.cfg["SYS_SMS_MAX_SAVE_SIZE"] = "1"


def end_full(soak):
    soak.bench.wait(soak.relieve, "the SIM is empty", 120)
    soak.pass_time(3 * 55)                      # what is still in the rings belongs to the fault
    soak.bench.cfg["SYS_SMS_MAX_SAVE_SIZE"] = str(CAPACITY)


def begin_parts(soak):
    reference = next(soak.incomplete, None)
    if reference is None:
        return
    text = soak.texts.new(300)
    soak.issued["in"].add(common.Texts.number(text))
    soak.fates[common.Texts.number(text)] = "a part of it never came"
    soak.simulator("handset send", text=text, via="cmt", alphabet="ucs2", reference=reference, without=2)


def unplugged(soak):
    soak.simulator("modem unplug")


def plugged(soak):
    soak.simulator("modem plug")


CALM = ("calm", nothing, nothing, nothing_lost)
FAULTS = [
    ("silent", *told("modem silent", {"on": True}, {"on": False}), nothing_lost),
    ("late", *told("modem delay", {"ms": 4000}, {"ms": 10}), nothing_lost),
    ("split", *told("modem split", {"on": True, "at": 3}, {"on": False}), nothing_lost),
    ("repeated", *told("modem repeat", {"on": True}, {"on": False}), nothing_lost),
    ("interleaved", *told("modem interleave", {"on": True}, {"on": False}), nothing_lost),
    ("garbled", *told("modem garble", {"bytes": 3}, {"bytes": 0}), garbled),
    ("refused", *told("modem fail", {"prefix": "AT+DORVYSMS", "error": 331}, {"clear": True}), nothing_lost),
    ("unreadable", *told("modem fail", {"prefix": "AT+CMGR", "error": 320}, {"clear": True}), nothing_lost),
    ("swallowed", lambda soak: soak.simulator("modem swallow", count=3),
     lambda soak: soak.simulator("modem swallow", count=0), nothing_lost),
    ("unplugged", unplugged, plugged, nothing_lost),
    ("no network", *put("devinfo", 301002, "Unkown", "LTE"), nothing_lost),
    ("switched off", *put("cfg", "SYS_SMS_SW", "0", "1"), service_off),
    ("SIM gone", *put("devinfo", 301001, "0", "1"), service_off),
    ("box full", begin_full, end_full, box_full),
    ("part missing", begin_parts, nothing, nothing_lost),
]
FLOODS = [("flood in", nothing, nothing, rings_full), ("flood out", nothing, nothing, queue_full)]
ONE_WAY = {"box full": {"cmt": 1, "cmti": 1}, "flood in": {"cmt": 1}, "flood out": {"out": 1}}
AT_ONCE = {"flood in", "flood out"}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--messages", type=int, default=200)
    parser.add_argument("--days", type=float, default=0, help="let at least so much of the daemon's time pass")
    parser.add_argument("--factor", type=int, default=100)
    parser.add_argument("--seed", type=int, default=20240305)
    parser.add_argument("--keep", metavar="DIRECTORY", help="copy log and trace there when a message is unexplained")
    options = parser.parse_args()
    print(f"soak: seed {options.seed}, {options.messages} messages, time {options.factor} times as fast", flush=True)
    return Soak(options.seed, options.factor, options.keep).run(options.messages, options.days)


if __name__ == "__main__":
    sys.exit(main())
