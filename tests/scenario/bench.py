"""A router on the bench: simulated modem, owner of the AT port and SMS manager, in a directory of their own.

    with Bench() as bench:
        bench.start()
        bench.handset("send", "hello")
        bench.wait_records("read", 1)

Everything is awaited by a sign that the programs give, within a deadline; nothing is slept through. All
that was started ends with the bench, and a process that crashed, or a sanitizer's report, fails it.
"""

import json
import os
import shutil
import subprocess
import tempfile
from pathlib import Path

import bus
from processes import Process, Trouble, environment, paced, read_text, wait_for

REPOSITORY = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("DV_BUILD", REPOSITORY / "build" / "release"))
FACTOR = int(os.environ.get("DV_FACTOR", "20"))
EMULATOR = os.environ.get("DV_EMULATOR", "").split()     # what runs programs that were built for another processor
GENERIC = os.environ.get("DV_MODEM") == "generic"       # any modem that speaks 3GPP TS 27.005, instead of a T750
SEND = "AT+CMGS" if GENERIC else "AT+DORVYSMS"          # what the modem gets when a message is sent
KEEP = bool(os.environ.get("DV_KEEP"))          # leave the directory of a bench that failed

BOXES = {"read": "sms_read", "send": "sms_send", "draft": "sms_draft"}
SIM_READY, NETWORK, UNREAD = 301001, 301002, 306001
BOX_FULL = {"read": 306002, "send": 306003, "draft": 306004}


class Values:
    """One of the platform's stores: a value a file, replaced at once."""

    def __init__(self, folder):
        self.folder = folder
        os.makedirs(folder, exist_ok=True)

    def __getitem__(self, key):
        return read_text(os.path.join(self.folder, str(key))).removesuffix("\n")

    def __setitem__(self, key, value):
        path = os.path.join(self.folder, str(key))
        with open(path + ".new", "w", encoding="utf-8") as file:
            file.write(str(value))
        os.rename(path + ".new", path)

    def __delitem__(self, key):
        os.unlink(os.path.join(self.folder, str(key)))


class Record:
    """A message file: "number state phone date text". A date of a sent or received message holds a blank."""

    def __init__(self, content):
        self.content = content
        number, state, self.phone, day, hour, self.text = content.decode("utf-8", "surrogateescape").split(" ", 5)
        self.number, self.state, self.date = int(number), int(state), f"{day} {hour}"


class Store:
    """The message store as its readers see it."""

    def __init__(self, folder):
        self.folder = Path(folder)

    def numbers(self, box):
        try:
            names = os.listdir(self.folder / BOXES[box])
            return sorted(int(name) for name in names if not name.startswith("."))  # a dot: a change under way
        except FileNotFoundError:
            return []

    def content(self, box, number):
        return (self.folder / BOXES[box] / str(number)).read_bytes()

    def records(self, box):
        return [Record(self.content(box, number)) for number in self.numbers(box)]

    def texts(self, box):
        return [record.text for record in self.records(box)]

    def index(self, box):
        return read_text(self.folder / f"{box}_index")

    def unread(self):
        return read_text(self.folder / "unread_sms")

    def put(self, box, number, content):
        """Files a message as an earlier life of the daemon would have."""
        folder = self.folder / BOXES[box]
        folder.mkdir(parents=True, exist_ok=True)
        (folder / str(number)).write_bytes(content if isinstance(content, bytes) else content.encode())


class Bench:
    def __init__(self, factor=None, build=BUILD, root=None):
        """`root`: a directory to live in, made when it is missing; otherwise a new one."""
        self.build = Path(build)
        self.factor = paced(FACTOR if factor is None else factor)
        if root:
            os.makedirs(root, exist_ok=True)
        self.root = Path(root or tempfile.mkdtemp(prefix="dv_sms_"))
        self.platform = self.root / "platform"
        self.bus = str(self.platform / "bus")
        self.cfg = Values(self.platform / "cfg")
        self.flag = Values(self.platform / "flag")
        self.devinfo = Values(self.platform / "devinfo")
        self.store = Store(self.root / "mnt" / "data" / "sms")
        self.log_path = self.root / "log"
        self.port = self.root / "modem"         # where the simulated modem answers
        self.control = self.root / "control"
        self.processes = []
        self.modem_process = self.owner = self.daemon = None
        self.fake = None
        self.preloaded = ["fast_time"]          # into the programs that are started from now on
        self._probes = 0
        os.makedirs(self.bus, exist_ok=True)
        self.cfg["SYS_SMS_SW"] = "1"
        self.cfg["SYS_SMS_MAX_SAVE_SIZE"] = "100"
        self.devinfo[SIM_READY] = "1"
        self.devinfo[NETWORK] = "LTE"

    # ---- life ----

    def __enter__(self):
        return self

    def __exit__(self, kind, error, traceback):
        self.stop()
        complaints = [complaint for complaint in (each.complaint() for each in self.processes) if complaint]
        report = self.report()
        if not (KEEP and kind):
            shutil.rmtree(self.root, ignore_errors=True)
        if kind is None and complaints:
            raise Trouble("\n".join(complaints))
        if isinstance(error, Exception):
            raise error.with_traceback(traceback) from Trouble("\n".join([*complaints, report]))

    def stop(self):
        for process in reversed(self.processes):
            process.stop()
        if self.fake:
            self.fake.stop()
            self.fake = None

    def report(self, limit=6000):
        """All that was said, for whoever has to find out what went wrong."""
        parts = [f"what happened on the bench ({self.root}):"]
        for name in sorted(os.listdir(self.root)):
            if name.endswith((".out", ".err")) or name in ("log", "modem.trace"):
                text = read_text(self.root / name)
                parts.append(f"---- {name}\n{text[-limit:]}")
        return "\n".join(parts)

    def environment(self):
        libraries = ":".join(str(self.build / "lib" / f"lib{name}.so") for name in self.preloaded)
        return environment(self.factor, libraries, BAD_FLASH=str(self.root / "bad_flash"),
                           DV_PLATFORM_ROOT=str(self.platform), DV_PLATFORM_LOG=str(self.log_path),
                           DV_PLATFORM_SYSLOG="0", DV_SMS_STORE=str(self.store.folder),
                           T750_SIM_CONTROL=str(self.control))

    def launch(self, name, *arguments):
        process = Process(name, [*EMULATOR, self.build / "bin" / arguments[0], *arguments[1:]], str(self.root),
                          self.environment(), cwd=self.root)
        self.processes.append(process)
        return process

    def start(self, *modem_options):
        """Everything, until the service is on."""
        self.start_modem(*modem_options)
        self.start_owner()
        self.start_daemon()
        self.wait_service()

    def start_modem(self, *options):
        self.modem_process = self.launch("t750_sim", "t750_sim", "--pty-link", self.port, "--control", self.control,
                                         "--trace", self.root / "modem.trace", *(["--generic"] if GENERIC else []),
                                         *options)
        self.wait(lambda: "ready" in self.modem_process.out(), "the simulated modem is ready")
        if GENERIC:
            for line, moment in (("RING", "answer"), ("^BOOT:0", "prompt"), ("RING", "before")):
                self.modem("urc", line, "--moment", moment, "--times", "100")

    def start_owner(self, *options):
        self.owner = self.launch("at_owner", "at_owner", self.port, *(["--generic"] if GENERIC else []), *options)
        self.wait(lambda: "ready" in self.owner.out(), "the owner of the port is ready")

    def start_fake_owner(self, answers=None):
        """A stand-in for the owner of the port and for the modem, which answers as the test tells it."""
        self.fake = bus.FakeOwner(self.bus, answers)
        return self.fake

    def start_with_fake(self, answers=None):
        """The daemon alone with a stand-in that is as FakeOwner.READY but for `answers`; until the service is on."""
        self.start_fake_owner({**bus.FakeOwner.READY, **(answers or {})})
        self.start_daemon()
        self.wait_service()
        return self.fake

    def start_daemon(self, *options):
        self.daemon = self.launch("dv_sms_mgr", "dv_sms_mgr_workbench", "-D", *options)
        return self.daemon

    def restart_daemon(self):
        self.daemon.stop()
        os.rename(self.log_path, self.root / "log.before")
        os.rename(self.daemon.out_path, self.daemon.out_path + ".before")
        self._probes = 0                        # counted against what the new one says
        self.start_daemon()
        self.wait_service()

    # ---- signs ----

    def wait(self, condition, what, seconds=30):
        """Awaits `condition`, for at most `seconds` of real time; a process that ends meanwhile ends the wait."""

        def check():
            for process in self.processes:
                if process.ended() is not None:
                    raise Trouble(process.complaint())
            return condition()

        return wait_for(check, what, seconds)

    def log(self):
        return read_text(self.log_path)

    def trace(self):
        return self.daemon.out()

    def wait_log(self, text, count=1, seconds=30):
        self.wait(lambda: self.log().count(text) >= count, f"{text!r} in the log, {count} time(s)", seconds)

    def wait_trace(self, text, count=1, seconds=30):
        self.wait(lambda: self.trace().count(text) >= count, f"{text!r} in the trace, {count} time(s)", seconds)

    def wait_sleeps(self, process, count, seconds=30):
        """Awaits that the process's main thread has gone to sleep and woken `count` more times."""

        def sleeps():
            with open(f"/proc/{process.popen.pid}/status", encoding="utf-8") as status:
                return next(int(line.split()[1]) for line in status if line.startswith("voluntary"))

        before = sleeps()
        self.wait(lambda: sleeps() >= before + count, f"{process.name} goes round {count} times", seconds)

    def service_is_on(self):
        """Asks with an indication that means nothing to the daemon, which it mentions only while the service is on."""
        self._probes += 1
        said = f"Didn't match any Func, default ignore it:\\r\\n+BENCH: {self._probes}\\r\\n"
        bus.send(self.bus, bus.SMS_MGR, bus.pack_record(
            bus.MSG_INDICATION, bus.pack_indication(f"\r\n+BENCH: {self._probes}\r\n"), bus.AT_OWNER))
        self.wait_passed(0x60000000 + self._probes)
        return said in self.trace()

    def wait_passed(self, message, seconds=30):
        """Sends a record that means nothing; when it is taken, so is all that was sent before."""
        seen = f"recv msg(0x{message:04X}) from "
        count = self.trace().count(seen)
        self.request(message)
        self.wait(lambda: self.trace().count(seen) > count, "the daemon takes a record", seconds)

    def wait_service(self, seconds=30):
        self.wait_log("dv_sms_mgr init complete", seconds=seconds)
        self.wait(self.service_is_on, "the service is switched on", seconds)

    def wait_records(self, box, count, seconds=30):
        """Awaits the box's index naming `count` messages, which is the last thing written; gives its records."""
        self.wait(lambda: len(self.store.index(box).split()) >= count,
                  lambda: f"{count} message(s) in {box!r}; its index is {self.store.index(box)!r}", seconds)
        return self.store.records(box)

    # ---- requests to the daemon ----

    def request(self, message, payload=b"", sender=bus.CLIENT, extra=0):
        """Sends a record and waits for nothing."""
        bus.send(self.bus, bus.SMS_MGR, bus.pack_record(message, payload, sender, extra))

    def ask(self, message, payload=b"", seconds=30):
        """Asks as the flags want it: clear, ask, await, clear. Gives the outcome, 0 or 500."""
        self.flag["DV_SMS_MGR_LAST_RECEIVED_MSG"] = ""
        self.flag["DV_SMS_MGR_LAST_ERR_CODE"] = ""
        self.request(message, payload)
        self.wait(lambda: self.flag["DV_SMS_MGR_LAST_RECEIVED_MSG"] == f"{bus.CLIENT},{message}",
                  f"request {message:#x} is taken", seconds)
        code = self.wait(lambda: self.flag["DV_SMS_MGR_LAST_ERR_CODE"], f"the outcome of {message:#x}", seconds)
        self.flag["DV_SMS_MGR_LAST_RECEIVED_MSG"] = ""
        self.flag["DV_SMS_MGR_LAST_ERR_CODE"] = ""
        return int(code)

    def send(self, phone, text, seconds=30):
        return self.ask(bus.MSG_SEND, bus.pack_message(phone, text), seconds)

    def draft(self, phone, text):
        return self.ask(bus.MSG_DRAFT, bus.pack_message(phone, text))

    # ---- the other side of the air ----

    def call(self, *arguments):
        """Runs one of the build's commands to its end; gives its exit code, output and complaints."""
        done = subprocess.run([*EMULATOR, str(self.build / "bin" / arguments[0]), *map(str, arguments[1:])],
                              stdin=subprocess.DEVNULL, capture_output=True, timeout=120,
                              env=self.environment(), cwd=self.root)
        return (done.returncode, done.stdout.decode("utf-8", "surrogateescape"),
                done.stderr.decode("utf-8", "surrogateescape"))

    def run(self, *arguments):
        """The same for one that must succeed; gives its output."""
        code, out, err = self.call(*arguments)
        if code != 0:
            raise Trouble(f"{' '.join(map(str, arguments))}: {code}\n{out}{err}")
        return out

    def handset(self, *arguments):
        return self.run("handset", *arguments)

    def modem(self, *arguments):
        return self.run("modem", *arguments)

    def commands(self, prefix=""):
        """The commands that the modem got, in order, without their "\\r"."""
        return [entry["command"] for entry in self.command_log(prefix)]

    def command_log(self, prefix=""):
        """The same with the time (milliseconds of the modem's clock) and the final result code of each."""
        return json.loads(self.modem("commands", prefix, "--json") if prefix else self.modem("commands", "--json"))

    def inbox(self, count=0, seconds=30):
        """What the handset got, each as a dictionary; awaits `count` whole messages."""

        def messages():
            got = json.loads(self.handset("inbox", "--json"))
            return got if len(got) >= count else None

        return self.wait(lambda: messages() is not None, f"{count} message(s) on the handset", seconds) and messages()

    def stored(self):
        """Indexes of the messages on the SIM."""
        return [message["index"] for message in self._storage()]

    def stored_texts(self):
        return [message["note"].split(": ", 1)[1] for message in self._storage()]

    def _storage(self):
        return json.loads(self.modem("storage", "--json"))["messages"]
