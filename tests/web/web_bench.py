"""The page's server on the bench, and a client for it that does what no browser would."""

import errno
import http.client
import json
import os
import re
import socket
import struct
import threading
import time

import bus
from bench import Bench
from processes import Process, environment, wait_for

SMS_WEB = 41
FLAG_TAKEN, FLAG_CODE = "DV_SMS_MGR_LAST_RECEIVED_MSG", "DV_SMS_MGR_LAST_ERR_CODE"


class FakeDaemon:
    """Stands in for the SMS manager: takes requests from the bus and sets the two flags as it is told.

    `behave` maps a message id to (taken, code): whether the request is taken, and its outcome, None for none.
    `hold` keeps it from answering until it is released.
    """

    def __init__(self, bench):
        self.bench = bench
        self.behave = {}
        self.requests = []                      # (message id, payload), in order
        self.hold = threading.Event()
        self.hold.set()
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(os.path.join(bench.bus, str(bus.SMS_MGR)))
        self.thread = threading.Thread(target=self._serve, daemon=True)
        self.thread.start()

    def of(self, message):
        return [payload for number, payload in list(self.requests) if number == message]

    def stop(self):
        self.hold.set()
        bus.send(self.bench.bus, bus.SMS_MGR, b"")
        self.thread.join()
        os.unlink(os.path.join(self.bench.bus, str(bus.SMS_MGR)))
        self.socket.close()

    def _serve(self):
        while data := self.socket.recv(bus.RECORD.size + 1):
            message, _, _, payload, sender, _ = bus.RECORD.unpack(data)
            taken, code = self.behave.get(message, (True, 0))
            self.requests.append((message, payload))
            if taken:
                self.bench.flag[FLAG_TAKEN] = f"{sender},{message}"
            self.hold.wait(60)
            if taken and code is not None:
                self.bench.flag[FLAG_CODE] = str(code)


def text_of(payload):
    return payload.split(b"\0", 1)[0].decode()


def phone_and_text(payload):
    _, phone, text = struct.unpack("<32s32s4032s", payload)
    return text_of(phone), text_of(text)


class WebBench(Bench):
    """A bench with the page's server; `self.web` asks it."""

    web_factor = None                           # of the server's time; None: the bench's

    def start_web(self, *options, port=0, name="sms_web"):
        self.web_process = Process(
            name, [self.build / "bin" / "sms_web", "--port", port, "--store", self.store.folder, *options], str(self.root),
            {**self.environment(), **({} if self.web_factor is None else self._pace(self.web_factor))}, cwd=self.root)
        self.processes.append(self.web_process)
        found = self.wait(lambda: re.search(r"listening on http://(.*):(\d+)/", self.web_process.out()),
                          "the server listens")
        self.web = Client(found.group(1).strip("[]"), int(found.group(2)))
        return self.web

    def _pace(self, factor):
        wanted = environment(factor, self.build / "lib" / "libfast_time.so")
        return {key: wanted.get(key, "") for key in ("LD_PRELOAD", "FAST_TIME", "FAST_SECONDS")}

    def start_fake_daemon(self):
        self.daemon_stand_in = FakeDaemon(self)
        return self.daemon_stand_in

    def stop(self):
        super().stop()
        if stand_in := self.__dict__.pop("daemon_stand_in", None):
            stand_in.stop()


class Answer:
    def __init__(self, status, headers, body):
        self.status, self.headers, self.body = status, headers, body

    @property
    def json(self):
        return json.loads(self.body)


class Client:
    def __init__(self, host, port):
        self.host, self.port = host, port
        self.url = f"http://{host}:{port}/"
        self.counter = 0

    def ask(self, method, path, body=None, headers=None, timeout=30):
        connection = http.client.HTTPConnection(self.host, self.port, timeout=timeout)
        headers = dict(headers or {})
        if body is not None and not isinstance(body, (bytes, str)):
            body = json.dumps(body)
            headers.setdefault("Content-Type", "application/json")
        connection.request(method, path, body, headers)
        answer = connection.getresponse()
        out = Answer(answer.status, answer.headers, answer.read())
        connection.close()
        return out

    def get(self, path, **headers):
        return self.ask("GET", path, headers={name.replace("_", "-"): value for name, value in headers.items()})

    def state(self):
        return self.get("/api/state").json

    def new_id(self):
        self.counter += 1
        return f"{self.state()['instance']}-{self.counter}"

    def post(self, path, body, id=None):
        """Asks for something under an id of its own, and gives the first answer."""
        return self.ask("POST", path, {"id": id or self.new_id(), **body})

    def finish(self, answer, seconds=30):
        """Awaits the end of what `answer` told of."""
        job = answer.json

        def ended():
            found = self.get(f"/api/requests/{job['id']}?wait=5").json
            return found if found["state"] == "finished" else None

        return wait_for(ended, f"{job} ends", seconds)

    def do(self, path, body, id=None):
        return self.finish(self.post(path, body, id))

    def messages(self, box):
        return self.get(f"/api/messages/{box}").json["messages"]

    def events(self, headers=None):
        return EventStream(self.host, self.port, headers)

    def raw(self, data, timeout=30, last=False):
        """Sends bytes as they are, and with `last` that no more follow; gives what comes back until the server closes."""
        with socket.create_connection((self.host, self.port), timeout) as connection:
            connection.sendall(data)
            if last:
                try:
                    connection.shutdown(socket.SHUT_WR)
                except OSError as error:        # the server has closed already
                    if error.errno != errno.ENOTCONN:
                        raise
            out = b""
            while piece := connection.recv(65536):
                out += piece
            return out


class EventStream:
    """Server-sent events, as they come."""

    def __init__(self, host, port, headers=None, timeout=30):
        self.connection = http.client.HTTPConnection(host, port, timeout=timeout)
        self.connection.request("GET", "/api/events", headers=headers or {})
        self.answer = self.connection.getresponse()

    def next(self, wanted=None, seconds=30):
        """The next event, or the next one of a name: (name, data)."""
        name = data = None
        deadline = time.monotonic() + seconds
        while True:
            line = self.answer.readline()
            if time.monotonic() > deadline:     # there may be nothing but comments
                raise TimeoutError(f"no event {wanted or ''} within {seconds} s")
            if not line:
                raise EOFError("the stream ended")
            line = line.decode().rstrip("\n")
            if line.startswith("event: "):
                name = line[7:]
            elif line.startswith("data: "):
                data = json.loads(line[6:])
            elif line == "" and name is not None:
                if wanted in (None, name):
                    return name, data
                name = data = None

    def close(self):
        self.connection.close()
