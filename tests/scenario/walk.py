"""What ./run shows: a simulated router is started, messages come in and go out, and each step is seen to happen.

    walk.py [--once]

Real time passes here. Everything lives in one directory under /tmp and ends with this program.
"""

import argparse
import json
import os
import re
import shlex
import shutil
import signal
import sys
import unicodedata
import urllib.request

from bench import SIM_READY, Bench
from processes import Process, Trouble, wait_for

HANDSET = "+31687654321"
PAGE_PORT = 8080                                # or any other when this one is taken
GREETING = "Hello router! Does it cost 5€? [yes/no]"
CHINESE = ("你好！我们下周六要去山里走一走，早上七点在火车站的大钟下面见面，请带上雨衣、热茶和一点吃的东西。"
           "如果天气不好，我们就改去看新开的博物馆，门票我已经买好了。你的姐姐说她也想来，那就请你告诉她时间和地点。"
           "路上大概要两个小时，所以晚饭以前一定可以回到家。有什么问题就给我发短信，期待见到你们！")
REPLY = ("Gladly! A single message has room for 160 characters of this alphabet, and as this reply is just one longer, "
         "it has to travel in two parts. See you on Saturday!!")

COLOURS = sys.stdout.isatty()


def paint(code, text):
    return f"\033[{code}m{text}\033[0m" if COLOURS else text


def width(text):
    return sum(2 if unicodedata.east_asian_width(character) in "WF" else 1 for character in text)


def wrap(line, columns=100):
    """Pieces of a line that fit; a Chinese character takes two columns."""
    piece = ""
    for character in line:
        if width(piece + character) > columns:
            end = piece.rfind(" ", max(0, len(piece) - 20)) + 1 or len(piece)   # in front of a word, if there is one
            yield piece[:end]
            piece = piece[end:]
        piece += character
    yield piece


def show(text, code="0"):
    """An indented block of text."""
    for line in text.split("\n"):
        for piece in wrap(line):
            print("      " + paint(code, piece))


class Walk:
    """The steps, in order; each gives a line or two of what it saw, or raises."""

    def __init__(self, bench):
        self.bench = bench

    def start_the_modem(self):
        """A simulated T750 on a pty, with a network and a handset behind it"""
        self.bench.start_modem()
        return f"its AT port is {self.bench.port} -> {os.readlink(self.bench.port)}"

    def start_the_owner(self):
        """The owner of the AT port joins the bus as module 5"""
        self.bench.start_owner("--trace", self.bench.root / "trace")
        return f"the bus is {self.bench.bus}"

    def start_the_daemon(self):
        """The SMS manager brings the modem's message service up and says that it is ready"""
        self.bench.start_daemon()
        self.bench.wait_service()
        asked = self.bench.commands()
        return f"it asked the modem: {'  '.join(asked[asked.index('AT+CMGF?'):])}"

    def start_the_page(self):
        """A page for the browser, with the router's messages, the handset and the traffic between them, answers"""
        page = start_page(self.bench)
        with urllib.request.build_opener(urllib.request.ProxyHandler({})).open(page + "healthz", timeout=20) as answer:
            health = json.load(answer)
        check(health == {"daemon": True, "service": True}, health)
        self.bench.page = page
        return f"the page: {page}"

    def receive_a_text(self):
        """The handset sends a text, which arrives and is filed"""
        self.bench.handset("send", "--from", HANDSET, GREETING)
        record, = self.bench.wait_records("read", 1)
        check(record.text == GREETING and record.phone == HANDSET and record.state == 0, record.content)
        return f"mnt/data/sms/sms_read/1: {record.content.decode()}"

    def receive_parts(self):
        """The handset sends a Chinese text, which takes three parts; the last one completes it"""
        said = self.bench.handset("send", "--from", "+8613800138000", CHINESE)
        check(said.startswith("3 parts, ucs2"), said)
        record = self.bench.wait_records("read", 2)[1]
        check(record.text == CHINESE, record.content)
        return f"mnt/data/sms/sms_read/2: {record.content.decode()}"

    def send_a_reply(self):
        """A reply of 161 characters goes out in two parts and is read on the handset"""
        self.bench.run("smsctl", "send", HANDSET, REPLY)
        message, = self.bench.inbox(1)
        check(message["text"] == REPLY and len(message["parts"]) == 2, message)
        record, = self.bench.wait_records("send", 1)
        check(record.text == REPLY and record.state == 1, record.content)
        parts = [f"part {part['sequence']} of 2, {len(part['text'])} characters: {part['text']}"
                 for part in message["parts"]]
        return "\n".join(parts)

    def mark_read(self):
        """The first message is marked read"""
        check(self.bench.store.unread() == "2", self.bench.store.unread())
        self.bench.run("smsctl", "read", "1")
        record = self.bench.store.records("read")[0]
        check(record.state == 1 and self.bench.store.unread().strip() == "1", record.content)
        return f"{record.content.decode()}\nunread messages left: {self.bench.store.unread().strip()}"

    def delete(self):
        """Another text arrives, and is deleted"""
        self.bench.handset("send", "--from", HANDSET, "Never mind.")
        self.bench.wait_records("read", 3)
        self.bench.run("smsctl", "delete", "inbox", "3")
        check(self.bench.store.numbers("read") == [1, 2], self.bench.store.numbers("read"))
        return f"the index of the received messages is {self.bench.store.index('read')!r} now"

    def print_the_store(self):
        """What the store holds"""
        lines = []
        for box, name in (("read", "received"), ("send", "sent"), ("draft", "drafts")):
            lines.append(f"{name}: {len(self.bench.store.numbers(box))}")
            for record in self.bench.store.records(box):
                lines.append("  " + record.content.decode())
        return "\n".join(lines)

    STEPS = (start_the_modem, start_the_owner, start_the_daemon, start_the_page, receive_a_text, receive_parts,
             send_a_reply, mark_read, delete, print_the_store)

    def go(self):
        for number, step in enumerate(self.STEPS, 1):
            print(f"{paint('1', f'{number}.')} {paint('1', step.__doc__)}", flush=True)
            seen = step(self)
            show(seen, "2")
            print(f"   {paint('32', 'seen')}", flush=True)


def check(good, what):
    if not good:
        raise Trouble(f"not as it should be: {what!r}")


def start_page(bench):
    """Starts the page's server and gives its address. Whoever gets the port has it, so that two runs do not meet."""
    for port in (PAGE_PORT, 0):
        server = Process("sms_web", [bench.build / "bin" / "sms_web", "--port", port, "--store", bench.store.folder,
                                     "--handset-control", bench.control, "--trace", bench.root / "trace"],
                         str(bench.root), bench.environment(), cwd=bench.root)
        found = wait_for(lambda: re.search(r"listening on (http://\S+)", server.out()) or server.popen.poll() is not None,
                         "the page's server listens")
        if found is not True:
            bench.processes.append(server)
            return found.group(1)
        if port == 0 or "cannot listen" not in server.err():
            break
    raise Trouble(server.complaint())


def write_environment(bench):
    """A file for the shells that want to play with it."""
    values = {"DV_PLATFORM_ROOT": bench.platform, "DV_PLATFORM_LOG": bench.log_path, "DV_PLATFORM_SYSLOG": "0",
              "DV_SMS_STORE": bench.store.folder, "T750_SIM_CONTROL": bench.control}
    path = bench.root / "env"
    with open(path, "w", encoding="utf-8") as file:
        for name, value in values.items():
            file.write(f"export {name}={shlex.quote(str(value))}\n")
        file.write(f"export PATH={shlex.quote(str(bench.build / 'bin'))}:\"$PATH\"\n")
        file.write(f"cd {shlex.quote(str(bench.root))}\n")
    return path


def how_to_play(bench):
    print(f"""
{paint('1', 'Now it is yours.')} In a browser on this machine, the page: {paint('1', bench.page)}
Or in another terminal:

  . {write_environment(bench)}

  handset send "Where are you?"           a text to the router   (handset send --help: parts, alphabets, senders)
  smsctl list inbox                       what arrived
  smsctl send {HANDSET} "At home"     a text from the router (smsctl --help: draft, read, delete, status)
  handset inbox                           what the handset got
  modem commands                          what the daemon asked of the modem
  modem commands AT+DORVYSMS | sms_pdu decode    what it sent, octet by octet (sms_pdu --help: why a PDU reads as it does)
  modem unplug; modem plug                the cable (modem --help: a deaf, slow, full or garbled modem)
  smsctl cfg set SYS_SMS_SW 0             the service's switch; 1 turns it on again
  smsctl devinfo set {SIM_READY} 0         takes the SIM out; 1 puts it back
  cat mnt/data/sms/sms_read/1             a message is a line in a file
  tail -f dv_sms_mgr.out                  the daemon's trace; its log is in the file "log"

It stays until Ctrl-C.""", flush=True)


def stay(bench):
    """Until a signal comes, or a process ends that should not have."""
    while True:
        for process in bench.processes:
            try:
                process.popen.wait(0.5)
            except Exception:                   # it still runs
                continue
            raise Trouble(process.complaint())


class Ended(BaseException):
    """A signal asked for the end."""


def end(number, _frame):
    raise Ended(number)


def main():
    options = argparse.ArgumentParser(prog="run", description=(
        "Builds, starts a simulated router, shows messages coming in and going out, and stays until Ctrl-C."))
    options.add_argument("--once", action="store_true", help="end after the walk: 0 only if every step was seen")
    once = options.parse_args().once
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, end)
    bench = Bench(factor=1)
    walked = failed = False
    try:
        print(f"A router of its own in {bench.root}", flush=True)
        Walk(bench).go()
        walked = True
        if not once:
            how_to_play(bench)
            stay(bench)
    except Ended as asked:
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, signal.SIG_IGN)
        print("\nEnding what was started.", flush=True)
        return 0 if walked else 128 + asked.args[0]
    except Exception as error:
        print(bench.report(1500), file=sys.stderr)
        print(paint("31", f"FAILED: {error}\nAll that was said is kept in {bench.root}"), file=sys.stderr)
        failed = True
        return 1
    finally:
        bench.stop()
        if not failed:
            shutil.rmtree(bench.root, ignore_errors=True)
    complaints = [complaint for complaint in (process.complaint() for process in bench.processes) if complaint]
    for complaint in complaints:
        print(paint("31", complaint), file=sys.stderr)
    if not complaints:
        print(paint("1;32", f"Every step was seen: {len(Walk.STEPS)} of {len(Walk.STEPS)}."))
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
