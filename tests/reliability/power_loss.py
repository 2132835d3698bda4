#!/usr/bin/env python3
"""Takes the power away from the daemon while it works, and looks at what it finds when it starts again.

    power_loss.py [--kills N] [--seed N]       kills it N times with SIGKILL at random instants
    power_loss.py --windows [--rounds N]       measures for how long the files of the store differ

The last line says what was counted; the exit code is 0 when every invariant held.
"""

import argparse
import collections
import ctypes
import os
import random
import re
import select
import signal
import statistics
import struct
import sys
import threading
import time

import common

common.in_memory()

import bus  # noqa: E402
from bench import BOX_FULL, BOXES, UNREAD, Bench  # noqa: E402
from processes import SANITIZER_WORDS, Trouble, read_text, wait_for  # noqa: E402

GENERATED = {"read": "测试接收短信_", "send": "测试发送短信_", "draft": "测试草稿短信_"}
DELETE = {"read": bus.MSG_DELETE_RECEIVED, "send": bus.MSG_DELETE_SENT, "draft": bus.MSG_DELETE_DRAFT}
LONG = 4000                                     # more than is written in one go together with the other fields
CAPACITY = 30
OK = "\r\nOK\r\n"


# ---- what lies on flash ----

class Box:
    def __init__(self, folder, index):
        self.exists = folder.is_dir()
        self.records, self.hidden, self.ages = {}, [], {}
        for entry in os.scandir(folder) if self.exists else ():
            if entry.name.startswith("."):
                self.hidden.append(entry.name)
            else:
                with open(entry.path, "rb") as file:
                    self.records[entry.name] = file.read()
                self.ages[entry.name] = entry.stat().st_mtime_ns
        self.index = read_text(index) if index.exists() else None
        listed = collections.Counter((self.index or "").split())
        self.unlisted = {name for name in self.records if name not in listed} if self.index is not None else set()
        self.dangling = {name for name in listed if name not in self.records}
        self.doubled = {name for name, times in listed.items() if times > 1}


def look(store):
    return {box: Box(store.folder / BOXES[box], store.folder / f"{box}_index") for box in BOXES}


def state_of(name, content):
    """What a record begins with: its state, "0" or "1"; None where there is no record."""
    start = content[:6].decode("latin-1")
    blank = start.find(" ")
    return start[blank + 1] if 0 <= blank < len(start) - 1 else None


def expected_start(boxes, capacity):
    """Counter and flags as a start makes them of what lies there. What begins with a dot is seen by nobody."""
    values = {}
    for box, item in BOX_FULL.items():
        count = f"{len(boxes[box].records)}\n"
        values[item] = "1" if boxes[box].exists and count.startswith(capacity) else "0"
    received = boxes["read"].records
    unread = sum(state_of(str(number), received.get(str(number), b"")) == "0"
                 for number in range(1, len(received) + 2))
    values[UNREAD] = "1" if unread else "0"
    return str(unread), values


# ---- the other side ----

class Owner(bus.FakeOwner):
    """The same for a daemon that may be gone by the time that its answer is ready."""

    def respond(self, *answer):
        try:
            super().respond(*answer)
        except OSError:
            pass

    def catch_up(self):
        """Returns when every command that has been sent so far is dealt with."""
        done = len([text for text in self.texts() if text == "catch up"])
        bus.send(self.folder, bus.AT_OWNER, bus.pack_record(bus.MSG_AT, bus.AT_REQUEST.pack(
            bus.AT_MAGIC, 0, 0, len("catch up"), b"catch up")))
        wait_for(lambda: len([text for text in self.texts() if text == "catch up"]) > done, "the owner catches up")
        self.commands.clear()


class Modem:
    """Answers for the owner of the port: a modem that sends what it is given and keeps messages until they are deleted."""

    def __init__(self):
        self.stored = {}                        # index: PDU
        self.texts = {}                         # index: the number of its text
        self.begin = threading.Event()          # the first command after a start is not answered before
        self.asked = threading.Event()
        self.sent = 0

    def get(self, command, default):
        return self.answer

    def answer(self, command):
        text = command.text.rstrip("\r")
        if text == "AT+CMGF?":                  # the store has been looked at by now
            self.asked.set()
            self.begin.wait(30)
        if text.startswith("AT+CMGR="):
            pdu = self.stored.get(int(text[8:]))
            return f"\r\n+CMGR: 0,,{len(pdu) // 2 - 8}\r\n{pdu}\r\n{OK}" if pdu else ("\r\n+CMS ERROR: 321\r\n", 321)
        if text.startswith("AT+CMGD="):
            self.stored.pop(int(text[8:].split(",")[0]), None)
        if text.startswith("AT+DORVYSMS="):
            self.sent += 1
        return bus.FakeOwner.READY.get(text, OK)


class FlagReader(threading.Thread):
    """The asker of every request: takes both flags away as soon as they are there."""

    def __init__(self, bench):
        super().__init__(daemon=True)
        self.bench, self.ending = bench, threading.Event()
        self.start()

    def run(self):
        while not self.ending.wait(0.001):
            for name in ("DV_SMS_MGR_LAST_RECEIVED_MSG", "DV_SMS_MGR_LAST_ERR_CODE"):
                if self.bench.flag[name]:
                    self.bench.flag[name] = ""


class Watch:
    """Tells of changes in the store's directories as they happen (inotify)."""

    CREATE, MODIFY, MOVED_TO, DELETED, CLOSE_WRITE = 0x100, 0x2, 0x80, 0x200, 0x8

    def __init__(self, folders):
        libc = ctypes.CDLL(None, use_errno=True)
        self.fd = libc.inotify_init1(os.O_NONBLOCK | os.O_CLOEXEC)
        self.names = {}
        for folder in folders:
            mask = self.CREATE | self.MODIFY | self.MOVED_TO | self.DELETED | self.CLOSE_WRITE
            self.names[libc.inotify_add_watch(self.fd, os.fsencode(folder), mask)] = folder

    def events(self, seconds):
        """The next ones, each a folder, a mask and a name; nothing when none comes in time."""
        if not select.select([self.fd], [], [], seconds)[0]:
            return []
        data, events, at = os.read(self.fd, 65536), [], 0
        while at < len(data):
            watch, mask, _, length = struct.unpack_from("iIII", data, at)
            name = data[at + 16:at + 16 + length].rstrip(b"\0").decode()
            events.append((self.names.get(watch), mask, name))
            at += 16 + length
        return events

    def close(self):
        os.close(self.fd)


def descendants(pid):
    found = []
    try:
        for task in os.listdir(f"/proc/{pid}/task"):
            with open(f"/proc/{pid}/task/{task}/children", encoding="ascii") as children:
                for child in children.read().split():
                    found += [int(child), *descendants(int(child))]
    except (FileNotFoundError, ProcessLookupError):
        pass
    return found


def power_off(pid):
    """Ends the daemon and the commands that it runs as a power failure would: all at once, in the middle of anything."""
    os.kill(pid, signal.SIGSTOP)
    children = descendants(pid)
    for each in (*children, pid):
        try:
            os.kill(each, signal.SIGKILL)
        except ProcessLookupError:
            pass
    wait_for(lambda: not any(alive(each) for each in (*children, pid)), "all of it is gone", interval=0.001)


def alive(pid):
    try:
        with open(f"/proc/{pid}/stat", encoding="latin-1") as stat:
            return stat.read().rsplit(")", 1)[1].split()[0] not in "ZX"
    except (FileNotFoundError, ProcessLookupError):
        return False


# ---- one life of the daemon ----

class Life:
    """What was asked of the daemon between a start and the kill, and what was seen to be filed."""

    def __init__(self, driver, before):
        self.driver, self.bench, self.random = driver, driver.bench, driver.random
        self.before = before
        self.deleted = {box: set() for box in BOXES}
        self.all_deleted = set()                # boxes
        self.generated = False
        self.issued = {box: set() for box in BOXES}
        self.seen = {box: {} for box in BOXES}
        self.reference = driver.random.randrange(256)

    def text(self, box, longest):
        text = self.driver.texts.new(self.random.choice((0, 40, longest)))
        self.issued[box].add(Texts.number(text))
        return text

    def receive(self):
        if self.random.random() < 0.25:
            for pdu in common.deliver_parts(self.text("read", 600), self.reference):
                self.driver.fake.indicate(common.cmt(pdu))
            self.reference += 1
        else:
            self.driver.fake.indicate(common.cmt(common.deliver(self.text("read", 70))))

    def receive_stored(self):
        index = 1 + max(self.driver.modem.stored, default=0)
        text = self.text("read", 70)
        self.driver.modem.stored[index] = common.deliver(text)
        self.driver.modem.texts[index] = Texts.number(text)
        self.driver.fake.indicate(f'\r\n+CMTI: "SM",{index}\r\n')

    def send(self):
        self.bench.request(bus.MSG_SEND, bus.pack_message("12345", self.text("send", 300)))

    def draft(self):
        self.bench.request(bus.MSG_DRAFT, bus.pack_message("12345", self.text("draft", LONG)))

    def mark(self):
        names = [name for name, content in self.before["read"].records.items() if state_of(name, content) == "0"]
        if names:
            self.bench.request(bus.MSG_READ, self.random.choice((b"READ ALL", self.random.choice(names).encode())))

    def delete(self):
        box = self.random.choice(list(BOXES))
        names = sorted(set(self.before[box].records) - self.deleted[box])
        if self.random.random() < 0.04:
            self.all_deleted.add(box)
            self.bench.request(DELETE[box], b"DELETE ALL")
        elif names and box not in self.all_deleted:     # one that is not there would be refused with what is behind it
            chosen = self.random.sample(names, min(len(names), self.random.randint(1, 3)))
            self.deleted[box].update(chosen)
            self.bench.request(DELETE[box], ",".join(chosen).encode())

    def generate(self):
        self.generated = True
        self.bench.request(bus.MSG_GENERATE)

    def act(self):
        weights = ((self.receive, 30), (self.receive_stored, 20), (self.send, 25), (self.draft, 25), (self.mark, 15),
                   (self.delete, 35), (self.generate, 1))
        self.random.choices([each for each, _ in weights], [weight for _, weight in weights])[0]()

    def observe(self):
        """Notes what has been filed so far: it must be there ever after."""
        for box, name in BOXES.items():
            for number in map(str, self.bench.store.numbers(box)):
                if number not in self.before[box].records and number not in self.seen[box]:
                    try:
                        content = (self.bench.store.folder / name / number).read_bytes()
                    except FileNotFoundError:
                        continue
                    self.seen[box][number] = content

    # -- afterwards --

    def problems(self, after):
        for box in BOXES:
            yield from self.lost(box, after[box].records)
            for name, content in after[box].records.items():
                if content != self.before[box].records.get(name):
                    yield from self.not_whole(box, name, content)

    def lost(self, box, records):
        if box in self.all_deleted:
            return
        for name, content in {**self.before[box].records, **self.seen[box]}.items():
            if name in self.deleted[box]:
                continue
            if name not in records:
                yield f"{box} {name} is gone: {content[:60]!r}"
            elif records[name] not in (content, as_read(name, content)):
                yield f"{box} {name} was {content[:60]!r}, is {records[name][:60]!r}"

    def not_whole(self, box, name, content):
        if content in (as_read(name, self.before[box].records.get(name, b"")),):
            return
        fields = content.decode("utf-8", "surrogateescape").split(" ", 5)
        if len(fields) != 6 or fields[0] != name or fields[1] not in "01":
            yield f"{box} {name} is no record: {content[:80]!r}"
        elif self.generated and fields[5] == GENERATED[box] + name:
            return
        elif Texts.number(fields[5]) not in self.issued[box]:
            yield f"{box} {name} is not whole: {content[:60]!r} ... {content[-20:]!r}"


Texts = common.Texts


def number_in(content):
    return Texts.number(content.decode("utf-8", "surrogateescape").split(" ", 5)[-1])


def as_read(name, content):
    state = len(name) + 1
    return content[:state] + b"1" + content[state + 1:] if len(content) > state else content


# ---- the driver ----

class Driver:
    def __init__(self, seed, factor):
        self.seed, self.random = seed, random.Random(seed)
        self.bench = Bench(factor=factor)
        self.bench.cfg["SYS_SMS_MAX_SAVE_SIZE"] = str(CAPACITY)
        self.texts, self.modem = Texts(), Modem()
        self.fake = self.bench.fake = Owner(self.bench.bus)
        self.fake.answers = self.modem
        self.flags = FlagReader(self.bench)
        self.counts = collections.Counter()
        self.problems = []

    def start(self):
        self.modem.begin.set()
        self.fake.catch_up()
        self.modem.begin.clear()
        self.modem.asked.clear()
        self.bench._probes = 0                  # they are counted in what one daemon says
        self.bench.flag["SMS_CSCA"] = "+31653131313"
        for item in (UNREAD, *BOX_FULL.values()):
            self.bench.devinfo[item] = "7"
        return self.bench.start_daemon()

    def checked_start(self, before):
        """Starts the daemon and compares what it makes of the store, before anything comes in, with what it should."""
        capacity = self.bench.cfg["SYS_SMS_MAX_SAVE_SIZE"]
        self.start()
        self.bench.wait(self.modem.asked.is_set, "the daemon has looked at its store", 60)
        after = look(self.bench.store)
        unread, values = expected_start(before, capacity)
        for box in BOXES:
            if after[box].records != before[box].records:
                self.problems.append(f"the start changed the records of {box}")
            if before[box].index is not None:
                if after[box].index != before[box].index:
                    self.problems.append(f"the start changed the index of {box}: {after[box].index!r}")
            elif before[box].exists:
                self.check_rebuilt(box, before[box], after[box].index, int(capacity))
        if self.bench.store.folder.is_dir() and self.bench.store.unread() != unread:
            self.problems.append(f"counter {self.bench.store.unread()!r} instead of {unread!r}")
        for item, value in values.items():
            if self.bench.devinfo[item] != value:
                self.problems.append(f"{item} is {self.bench.devinfo[item]!r} instead of {value!r}")
        self.modem.begin.set()
        return after

    def check_rebuilt(self, box, before, index, capacity):
        self.counts["indexes rebuilt"] += 1
        listed = index.split() if index is not None else []
        if index != "".join(f" {name}" for name in listed) + " " or len(set(listed)) != len(listed):
            self.problems.append(f"rebuilt index of {box}: {index!r}")
        ages = [before.ages.get(name, -1) for name in listed]
        if len(listed) != min(capacity, len(before.records)) or -1 in ages or ages != sorted(ages):
            self.problems.append(f"rebuilt index of {box}: {index!r} of {sorted(before.records)}")

    def kill_while_starting(self):
        process = self.start()
        time.sleep(self.random.uniform(0, 0.08))
        self.modem.begin.set()
        time.sleep(self.random.uniform(0, 0.02))
        power_off(process.popen.pid)
        if process.popen.wait() != -signal.SIGKILL:
            raise Trouble(process.complaint())
        process.stopped = True
        self.counts["while it started"] += 1

    def kill_at_random(self, process, life):
        """Any instant for a third of the kills; for the others one shortly behind a change, where the windows are."""
        way = self.random.choice((self.at_any_instant, self.behind_a_change, self.behind_a_record))
        plan = self.random.uniform(0.005, 0.3), self.random.randint(1, 60), self.random.uniform(0, 0.0005)
        killer = os.fork()                      # a process of its own: it must not wait for a thread of this one
        if killer == 0:
            try:
                way(*plan)
                power_off(process.popen.pid)
            finally:
                os._exit(0)
        while os.waitpid(killer, os.WNOHANG) == (0, 0):
            try:
                life.act()
            except OSError:                     # it is gone, or too busy to take more
                time.sleep(0.001)
            life.observe()
            time.sleep(self.random.choice((0, 0.001, 0.01)))
        if process.popen.wait() != -signal.SIGKILL:
            raise Trouble(process.complaint())
        process.stopped = True
        self.counts[way.__name__.replace("_", " ")] += 1

    def at_any_instant(self, delay, *_):
        time.sleep(delay)

    def behind_a_change(self, _, count, behind):
        self.await_events(count, behind, lambda *_: True)

    def behind_a_record(self, _, count, behind):
        """Behind the moment at which a message is there, or is there no longer, and its index does not say so yet."""
        self.await_events(1 + count // 8, behind, lambda folder, mask, name: folder != self.bench.store.folder and
                          not name.startswith(".") and mask & (Watch.MOVED_TO | Watch.DELETED))

    def await_events(self, count, behind, wanted):
        folders = [self.bench.store.folder, *(self.bench.store.folder / name for name in BOXES.values())]
        watch = Watch([folder for folder in folders if folder.is_dir()])
        deadline = time.monotonic() + 0.6
        while count > 0 and time.monotonic() < deadline:
            count -= sum(bool(wanted(*event)) for event in watch.events(0.05))
        watch.close()
        until = time.perf_counter() + behind
        while time.perf_counter() < until:
            pass

    def clean_up(self, before):
        """Now and then an index is taken away, as someone would who wants it rebuilt; and a busy box is thinned out."""
        changed = False
        for box in BOXES:
            if before[box].index is not None and self.random.random() < 0.08:
                (self.bench.store.folder / f"{box}_index").unlink()
                changed = True
        return look(self.bench.store) if changed else before

    def forget_process(self):
        """What a killed daemon said is looked through and thrown away."""
        process = self.bench.daemon
        said = process.err() + process.out()
        for word in SANITIZER_WORDS:
            if word in said:
                raise Trouble(said[-6000:])
        self.bench.processes.remove(process)
        for path in (process.out_path, process.err_path, self.bench.log_path):
            if os.path.exists(path):
                os.unlink(path)

    def run_one(self):
        before = self.clean_up(look(self.bench.store))
        if self.random.random() < 0.12:
            life = Life(self, before)
            self.kill_while_starting()
        else:
            started = self.checked_start(before)
            self.bench.wait_service(60)
            life = Life(self, started)
            before = started
            self.kill_at_random(self.bench.daemon, life)
        self.counts["kills"] += 1
        self.forget_process()
        after = look(self.bench.store)
        self.problems += life.problems(after)
        self.count_windows(life, before, after)

    def count_windows(self, life, before, after):
        found = set()
        for box in BOXES:
            if before[box].index is None:
                continue                        # is rebuilt at the next start, or was at this one
            if after[box].unlisted - before[box].unlisted:
                found.add("a record that its index does not list")
            gone = after[box].dangling - before[box].dangling
            if gone:
                found.add("an index that lists all of an emptied box" if box in life.all_deleted
                          else "an index that lists a deleted message")
            if set(after[box].hidden) - set(before[box].hidden):
                found.add("a hidden directory of a change that was under way")
            if after[box].doubled - before[box].doubled:
                found.add("(later) an index that lists a number twice")
        filed = {number_in(content) for box in BOXES
                 for content in (*after[box].records.values(), *life.seen[box].values())}
        for index, text in list(self.modem.texts.items()):
            if index in self.modem.stored and text in filed:
                found.add("a filed message that is still on the SIM")
                del self.modem.texts[index]
        issued = set().union(*life.issued.values())
        self.counts["texts asked for"] += len(issued)
        self.counts["texts seen to be filed"] += len(issued & filed)
        if (self.bench.store.folder / ".new").exists():
            (self.bench.store.folder / ".new").unlink()
            found.add("a record that was not yet moved into its box")
        for each in found:
            self.counts[f"left: {each}"] += 1
        if not any(not each.startswith("(") for each in found):
            self.counts["left: nothing"] += 1

    def close(self):
        self.flags.ending.set()
        self.modem.begin.set()
        self.flags.join()
        self.bench.__exit__(None, None, None)


def run(kills, seed, factor):
    print(f"power_loss: seed {seed}, {kills} kills, time {factor} times as fast", flush=True)
    started = time.monotonic()
    driver = Driver(seed, factor)
    try:
        while driver.counts["kills"] < kills and not driver.problems:
            driver.run_one()
            if driver.counts["kills"] % 50 == 0:
                print(f"  {driver.counts['kills']} kills, {time.monotonic() - started:.0f} s", flush=True)
        if not driver.problems:                 # and after the last one it works on
            driver.checked_start(look(driver.bench.store))
            driver.bench.wait_service(60)
            assert driver.bench.store.folder.is_dir()
    finally:
        for problem in driver.problems:
            print("PROBLEM:", problem)
        driver.close()
    for what, count in sorted(driver.counts.items()):
        print(f"  {what}: {count}")
    print(f"  parts sent: {driver.modem.sent}")
    print(f"power_loss: {driver.counts['kills']} kills, {len(driver.problems)} problem(s), "
          f"{time.monotonic() - started:.0f} s")
    return 1 if driver.problems else 0


# ---- how long the windows are ----

WINDOWS = {                                     # what opens them and what closes them
    "filing a received message": (("rename", "/sms_read/"), ("fclose", "/read_index")),
    "filing a draft": (("rename", "/sms_draft/"), ("fclose", "/draft_index")),
    "deleting a message": (("unlink", "/sms_draft/"), ("rename", "/draft_index")),
    "emptying a box": (("unlink", "/sms_read/"), ("rename", "/read_index")),
}


def spans_in(path, wanted):
    """Microseconds from the first change in a box to that of its index, each time, as the preloaded library noted them."""
    spans, opened = {name: [] for name in wanted}, {}
    with open(path, encoding="utf-8", errors="replace") as file:
        for line in file:
            when, call, name = line.rstrip("\n").split(" ", 2)
            for what in wanted:
                (open_call, open_name), (close_call, close_name) = WINDOWS[what]
                if call == open_call and open_name in name and "/." not in name:
                    opened.setdefault(what, int(when))
                elif call == close_call and name.endswith(close_name) and what in opened:
                    spans[what].append((int(when) - opened.pop(what)) / 1000)
    return spans


def measure(rounds, seed):
    """How long a box and its index differ, in an undisturbed daemon."""
    driver = Driver(seed, 100)
    bench, noted = driver.bench, driver.bench.root / "file_times"
    bench.preloaded.insert(0, "file_times")
    os.environ["FILE_TIMES"] = str(noted)
    try:
        driver.checked_start(look(bench.store))
        bench.wait_service()
        pieces = ((["filing a received message", "filing a draft"], lambda: (
                      driver.fake.indicate(common.cmt(common.deliver(driver.texts.new()))),
                      bench.request(bus.MSG_DRAFT, bus.pack_message("1", driver.texts.new())))),
                  (["deleting a message"], lambda: bench.request(bus.MSG_DELETE_DRAFT, b"1")),
                  (["emptying a box"], lambda: bench.request(bus.MSG_DELETE_RECEIVED, b"DELETE ALL")))
        spans = collections.defaultdict(list)
        for _ in range(rounds):
            for wanted, begin in pieces:
                noted.write_bytes(b"")
                begin()
                bench.wait(lambda wanted=wanted: all(spans_in(noted, wanted).values()), str(wanted))
                for what, values in spans_in(noted, wanted).items():
                    spans[what] += values
    finally:
        driver.close()
    for what, values in spans.items():
        values.sort()
        print(f"{what}: {len(values)} times, median {statistics.median(values):.0f} us, "
              f"95 % below {values[int(len(values) * 0.95)]:.0f} us")
    return 0


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--kills", type=int, default=25)
    parser.add_argument("--seed", type=int, default=20240305)
    parser.add_argument("--factor", type=int, default=50)
    parser.add_argument("--windows", action="store_true")
    parser.add_argument("--rounds", type=int, default=200)
    options = parser.parse_args()
    if options.windows:
        return measure(options.rounds, options.seed)
    return run(options.kills, options.seed, options.factor)


if __name__ == "__main__":
    sys.exit(main())
