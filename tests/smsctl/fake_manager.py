"""An SMS manager on the bus that does as the test tells it, and smsctl beside it."""

import os
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

SCENARIO = Path(__file__).resolve().parents[1] / "scenario"
sys.path.insert(0, str(SCENARIO))

import bus                                                           # noqa: E402
from processes import SANITIZER_WORDS, environment, paced, read_text, wait_for    # noqa: E402, F401

BUILD = Path(os.environ.get("DV_BUILD", SCENARIO.parents[1] / "build" / "release"))
BOXES = {"inbox": ("sms_read", "read_index"), "sent": ("sms_send", "send_index"), "drafts": ("sms_draft", "draft_index")}
TAKEN, CODE = "DV_SMS_MGR_LAST_RECEIVED_MSG", "DV_SMS_MGR_LAST_ERR_CODE"
NO_FLAGS = {bus.MSG_NOTICE, 0x8002}


class Record:
    def __init__(self, data):
        self.message, _, _, self.payload, self.sender, self.extra = bus.RECORD.unpack(data)

    @property
    def text(self):
        return self.payload.split(b"\0", 1)[0].decode()

    @property
    def phone(self):
        return self.payload[32:64].split(b"\0", 1)[0].decode()

    @property
    def body(self):
        return self.payload[64:].split(b"\0", 1)[0].decode()


class FakeManager:
    """Takes records as module 27. `act` is called with each, between the two flags, and gives the code; None: no code
    at all. `takes` False: the request is dropped without a word."""

    def __init__(self, bench):
        self.bench = bench
        self.records = []
        self.takes = True
        self.act = lambda record: 0
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(os.path.join(bench.bus, "27"))
        self.thread = threading.Thread(target=self._serve, daemon=True)
        self.thread.start()

    def _wait_cleared(self, name):
        for _ in range(300):                    # three seconds, as the daemon does, in a hundredth of the time
            if not self.bench.flag(name):
                return
            time.sleep(0.0001)

    def _serve(self):
        while True:
            data = self.socket.recv(bus.RECORD.size + 1)
            if not data:
                return
            record = Record(data)
            self.records.append(record)
            if not self.takes:
                continue
            if record.message not in NO_FLAGS:
                self._wait_cleared(TAKEN)
                self.bench.set_flag(TAKEN, f"{record.sender},{record.message}")
            code = self.act(record)
            if code is not None and record.message not in NO_FLAGS:
                self._wait_cleared(CODE)
                self.bench.set_flag(CODE, str(code))

    def stop(self):
        bus.send(self.bench.bus, 27, b"")
        self.thread.join()
        self.socket.close()
        os.unlink(os.path.join(self.bench.bus, "27"))


class Done:
    def __init__(self, code, out, err):
        self.code, self.out, self.err = code, out, err

    def __repr__(self):
        return f"Done({self.code}, {self.out!r}, {self.err!r})"


class Bench:
    def __init__(self, manager=True, factor=1):
        self.root = Path(tempfile.mkdtemp(prefix="smsctl_"))
        self.platform = self.root / "platform"
        self.bus = str(self.platform / "bus")
        self.store = self.root / "sms"
        self.factor = paced(factor)
        for folder in ("bus", "cfg", "flag", "devinfo"):
            os.makedirs(self.platform / folder)
        self.set_cfg("SYS_SMS_SW", "1")
        self.set_cfg("SYS_SMS_MAX_SAVE_SIZE", "20")
        self.set_devinfo(301001, "1")
        self.manager = FakeManager(self) if manager else None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.manager:
            self.manager.stop()
        shutil.rmtree(self.root, ignore_errors=True)

    # ---- the platform's values ----

    def _set(self, folder, name, value):
        path = self.platform / folder / str(name)
        fresh = path.with_name(f".{name}.{threading.get_ident()}")
        fresh.write_text(value, encoding="utf-8")
        os.rename(fresh, path)

    def set_cfg(self, key, value):
        self._set("cfg", key, value)

    def set_flag(self, name, value):
        self._set("flag", name, value)

    def set_devinfo(self, item, value):
        self._set("devinfo", item, value)

    def flag(self, name):
        return read_text(self.platform / "flag" / name)

    # ---- the store ----

    def put(self, box, number, rest, index=True):
        """Files "number rest", with rest in bytes or text: state phone date text."""
        folder, index_name = BOXES[box]
        rest = rest.encode() if isinstance(rest, str) else rest
        (self.store / folder).mkdir(parents=True, exist_ok=True)
        fresh = self.store / "fresh"
        fresh.write_bytes(str(number).encode() + b" " + rest)
        os.rename(fresh, self.store / folder / str(number))
        if index:
            path = self.store / index_name
            if not path.exists():
                path.write_text(" ")
            if f" {number} " not in path.read_text():
                with open(path, "a") as file:
                    file.write(f"{number} ")

    def take_out(self, box, number):
        folder, index_name = BOXES[box]
        (self.store / folder / str(number)).unlink()
        path = self.store / index_name
        path.write_text(path.read_text().replace(f" {number} ", " ", 1))

    # ---- the program ----

    def environment(self, factor=None, **more):
        return environment(factor or self.factor, BUILD / "lib" / "libfast_time.so", DV_PLATFORM_ROOT=str(self.platform),
                           DV_PLATFORM_LOG=str(self.root / "log"), DV_PLATFORM_SYSLOG="0",
                           DV_SMS_STORE=str(self.store), **more)

    def start(self, *arguments, factor=None, **options):
        command = [str(BUILD / "bin" / "smsctl"), *map(str, arguments)]
        options = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **options}
        return subprocess.Popen(command, env=self.environment(factor), cwd=self.root, **options)

    def run(self, *arguments, stdin=b"", factor=None):
        process = self.start(*arguments, factor=factor, stdin=subprocess.PIPE)
        out, err = process.communicate(stdin, timeout=60)
        err = err.decode("utf-8", "backslashreplace")
        assert not any(word in err for word in SANITIZER_WORDS), err
        return Done(process.returncode, out.decode(), err)     # standard output is always UTF-8
