"""A modem on a pseudo terminal that answers as the test tells it, and the bus around at_owner."""

import os
import queue
import re
import select
import shutil
import socket
import sys
import tempfile
import threading
import time
import tty
from pathlib import Path

SCENARIO = Path(__file__).resolve().parents[1] / "scenario"
sys.path.insert(0, str(SCENARIO))

import bus                                                           # noqa: E402
from processes import Process, Trouble, environment, paced, read_text, wait_for    # noqa: E402

BUILD = Path(os.environ.get("DV_BUILD", SCENARIO.parents[1] / "build" / "release"))
MSG_BLOCK = 0x4001
OK = "\r\nOK\r\n"


class FakeModem:
    """`answers` maps a command without its "\\r" to the bytes that come back, to None for silence, or to a
    function of the command that gives one of these. A command that is not there is answered with OK."""

    def __init__(self, link, answers=None):
        self.link = str(link)
        self.answers = {"AT+CMEE?": "\r\n+CMEE: 1\r\n" + OK, "AT+CMEE=?": "\r\n+CMEE: (0-2)\r\n" + OK,
                        "AT+CMGF=?": "\r\n+CMGF: (0,1)\r\n" + OK, "AT+CNMI=?": "\r\n+CNMI: (0-3),(0-3)\r\n" + OK,
                        "AT+CSCS=?": '\r\n+CSCS: ("IRA")\r\n' + OK, "AT+CPMS=?": '\r\n+CPMS: ("SM"),("SM")\r\n' + OK,
                        **(answers or {})}
        self.echo = False
        self.deaf = False
        self.prompted = False                   # the next thing is a text that ends with Ctrl-Z or ESC
        self.commands = []                      # every line and text, in order
        self.master = self.slave = None
        self.stop = os.pipe()
        self.plug()

    def plug(self):
        self.master, self.slave = os.openpty()
        tty.setraw(self.slave)                  # kept open: the master then never hangs up between owners
        os.symlink(os.ttyname(self.slave), self.link + ".new")
        os.rename(self.link + ".new", self.link)
        self.thread = threading.Thread(target=self._serve, daemon=True)
        self.thread.start()

    def unplug(self):
        os.unlink(self.link)
        os.write(self.stop[1], b"x")
        self.thread.join()
        os.read(self.stop[0], 1)
        os.close(self.slave)
        os.close(self.master)
        self.master = None

    def close(self):
        if self.master is not None:
            self.unplug()

    def say(self, text):
        data = text if isinstance(text, bytes) else text.encode("latin-1")
        while data:
            data = data[os.write(self.master, data):]

    def count(self, command):
        return self.commands.count(command)

    def _serve(self):
        pending = b""
        while True:
            ready, _, _ = select.select([self.master, self.stop[0]], [], [])
            if self.stop[0] in ready:
                return
            data = os.read(self.master, 4096)
            if self.echo and not self.deaf:
                self.say(data)
            pending += data
            while True:
                end = re.search(rb"[\x1a\x1b]" if self.prompted else rb"\r", pending)
                if not end:
                    break
                self.prompted = False
                command, pending = pending[:end.end()].removesuffix(b"\r").decode("latin-1"), pending[end.end():]
                self.commands.append(command)
                answer = self.answers.get(command[max(0, command.find("AT")):], OK)
                if callable(answer):
                    answer = answer(command)
                if answer is not None and not self.deaf:
                    self.say(answer)


class Answer:
    def __init__(self, payload):
        self.magic, self.at_id, _, text, self.code, detail = bus.AT_RESPONSE.unpack(payload)
        self.text = text.split(b"\0", 1)[0].decode("latin-1")
        self.detail = detail.split(b"\0", 1)[0].decode("latin-1")

    def __repr__(self):
        return f"Answer({self.at_id}, {self.text!r}, {self.code}, {self.detail!r})"


class Module:
    """A program on the bus: what it gets, sorted."""

    def __init__(self, folder, number):
        self.folder, self.number = folder, number
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(os.path.join(folder, str(number)))
        self.answers, self.indications, self.notices = queue.Queue(), queue.Queue(), queue.Queue()
        self.awake = threading.Event()          # cleared, it takes nothing any more
        self.awake.set()
        threading.Thread(target=self._serve, daemon=True).start()

    def _serve(self):
        while self.awake.wait():
            data = self.socket.recv(bus.RECORD.size + 1)
            if not data:
                return
            message, _, length, payload, sender, _ = bus.RECORD.unpack(data)
            assert (length, sender) == (4100, bus.AT_OWNER)
            if message == bus.MSG_AT:
                self.answers.put(Answer(payload))
            elif message == bus.MSG_INDICATION:
                assert int.from_bytes(payload[:4], "little") == bus.AT_MAGIC
                self.indications.put(payload[12:].split(b"\0", 1)[0].decode("latin-1"))
            else:
                self.notices.put(message)

    def request(self, text, at_id=1, timeout=60, magic=bus.AT_MAGIC, length=None):
        text = text.encode("latin-1")
        payload = bus.AT_REQUEST.pack(magic, at_id, timeout, len(text) if length is None else length, text)
        bus.send(self.folder, bus.AT_OWNER, bus.pack_record(bus.MSG_AT, payload, self.number, length=4100))

    def answer(self, seconds=60):
        return self.answers.get(timeout=seconds)

    def ask(self, text, at_id=1, **options):
        self.request(text, at_id, **options)
        answer = self.answer()
        assert answer.at_id == at_id and answer.magic == bus.AT_MAGIC
        return answer

    def close(self):
        bus.send(self.folder, self.number, b"")


class Bench:
    """Everything in a directory of its own."""

    def __init__(self, answers=None, modem=True, factor=1):
        self.root = Path(tempfile.mkdtemp(prefix="at_owner_"))
        self.platform = self.root / "platform"
        self.bus = str(self.platform / "bus")
        os.makedirs(self.bus)
        self.factor = paced(factor)
        self.log_path = self.root / "log"
        self.trace_path = self.root / "trace"
        self.port = self.root / "port"
        self.modem = FakeModem(self.port, answers) if modem else None
        self.daemon = Module(self.bus, bus.SMS_MGR)
        self.modules = [self.daemon]
        self.process = None

    def __enter__(self):
        return self

    def __exit__(self, kind, error, traceback):
        complaint = None
        if self.process:
            self.process.stop()
            complaint = self.process.complaint()
        for module in self.modules:
            module.close()
        if self.modem:
            self.modem.close()
        if kind:
            print(self.log(), self.trace(), sep="\n", file=sys.stderr)
        shutil.rmtree(self.root, ignore_errors=True)
        if complaint and not kind:
            raise Trouble(complaint)

    def join(self, number):
        self.modules.append(Module(self.bus, number))
        return self.modules[-1]

    def environment(self, **more):
        return environment(self.factor, BUILD / "lib" / "libfast_time.so", DV_PLATFORM_ROOT=str(self.platform),
                           DV_PLATFORM_LOG=str(self.log_path), DV_PLATFORM_SYSLOG="0", **more)

    def start(self, *options, port=None, ready=True):
        self.process = Process("at_owner", [BUILD / "bin" / "at_owner", "--port", port or self.port,
                                            "--trace", self.trace_path, *options], self.root, self.environment())
        self.wait(lambda: self.process.out() == "ready\n", "at_owner is ready")
        if ready:
            self.wait(lambda: "AT+CMEE?" in self.modem.commands and "in step again" in self.trace(), "it is in step")
        return self.process

    def wait(self, condition, what, seconds=10):
        def check():
            if self.process.ended() is not None:
                raise Trouble(self.process.complaint())
            return condition()

        return wait_for(check, what, seconds)

    def log(self):
        return read_text(self.log_path)

    def trace(self):
        return read_text(self.trace_path)

    def devinfo(self, item):
        return read_text(self.platform / "devinfo" / str(item)).removesuffix("\n")
