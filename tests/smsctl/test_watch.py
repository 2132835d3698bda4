"""smsctl watch, and what it hands messages to."""

import json
import os
import signal
import subprocess
import sys
import threading
from http.server import BaseHTTPRequestHandler, HTTPServer

import pytest

from fake_manager import BUILD, CODE, Bench, wait_for

DAY = "2026/03/05 14:07:00"
PAIR = b"\xed\xa0\xbd\xed\xb8\x80"


@pytest.fixture
def bench():
    with Bench(manager=False) as b:
        yield b


class Watching:
    def __init__(self, b, *options):
        self.process = b.start("watch", "--interval", "0.05", *options)
        assert b"watching" in self.process.stderr.readline()

    def line(self):
        return self.process.stdout.readline().decode()

    def end(self):
        self.process.send_signal(signal.SIGINT)
        out, err = self.process.communicate(timeout=20)
        return self.process.returncode, out.decode(), err.decode()


def test_watch(bench):
    watching = Watching(bench)
    bench.put("inbox", 4, f"0 5 {DAY} new\none")
    assert watching.line() == f"inbox 4 new: unread, 5, {DAY}, new\\none\n"
    bench.put("inbox", 4, f"1 5 {DAY} new\none")
    assert watching.line() == f"inbox 4 now: read, 5, {DAY}, new\\none\n"
    bench.set_flag(CODE, "0")
    assert watching.line() == f"{CODE} = 0\n"
    bench.take_out("inbox", 4)
    assert watching.line() == f"inbox 4 gone: read, 5, {DAY}, new\\none\n"
    assert watching.end() == (0, "", "")


def test_watch_as_json(bench):
    watching = Watching(bench, "--json")
    bench.put("inbox", 4, b"0 5 2026/03/05 14:07:00 \xff" + PAIR)
    got = json.loads(watching.line())
    assert got["event"] == "added" and got["message"]["text"] == "\ufffd😀"
    bench.set_devinfo(306001, "1")
    assert json.loads(watching.line()) == {"event": "value", "name": "306001", "value": "1"}
    assert watching.end()[0] == 0


def hook(b, body):
    path = b.root / "hook"
    path.write_text(f"#!{sys.executable}\nimport json, os, sys, time\n{body}\n")
    path.chmod(0o755)
    return path


def test_watch_runs_a_program(bench):
    program = hook(bench, """
with open("got", "a") as file:
    file.write(json.dumps({"arguments": sys.argv[1:], "text": sys.stdin.buffer.read().decode(),
                           **{k: v for k, v in os.environ.items() if k.startswith("SMS_")}}) + "\\n")
""")
    os.environ["SMS_OLD"] = "x"
    try:
        watching = Watching(bench, "--exec", program, "--count", "2")
    finally:
        del os.environ["SMS_OLD"]
    bench.put("sent", 9, f"1 5 {DAY} not received")
    bench.put("inbox", 8, b"0 $(reboot) ; 2026/03/05 14:07:00 `reboot`\n\xc3\xbc" + PAIR + b"\xff")
    watching.line(), watching.line()
    bench.put("inbox", 9, f"0 5 {DAY} {'x' * 4000}")
    out, err = watching.process.communicate(timeout=30)
    assert (watching.process.returncode, err) == (0, b"")
    first, second = map(json.loads, (bench.root / "got").read_text().splitlines())
    assert first == {"arguments": [], "text": "`reboot`\nü😀\ufffd", "SMS_BOX": "inbox", "SMS_NUMBER": "8",
                     "SMS_STATE": "unread", "SMS_PHONE": "$(reboot) ;", "SMS_DATE": DAY}
    assert second["text"] == "x" * 4000


@pytest.mark.parametrize("body, why", [("sys.exit(3)", "exit code 3"), ("time.sleep(60)", "still running"),
                                       ("os.kill(os.getpid(), 9)", "signal 9"), (None, "cannot be run")])
def test_watch_goes_on_when_the_program_fails(bench, body, why):
    program = hook(bench, body) if body else bench.root / "not there"
    watching = Watching(bench, "--exec", program, "--hook-timeout", "1", "--count", "2")
    bench.put("inbox", 8, f"0 5 {DAY} one")
    watching.line()
    assert why in watching.process.stderr.readline().decode()
    bench.put("inbox", 9, f"0 5 {DAY} two")
    assert "inbox 9 new" in watching.line()
    assert why in watching.process.communicate(timeout=30)[1].decode() and watching.process.returncode == 0


def test_watch_ends_at_once_while_a_program_runs(bench):
    program = hook(bench, "open('started', 'w').close(); time.sleep(60)")
    watching = Watching(bench, "--exec", program)
    bench.put("inbox", 8, f"0 5 {DAY} one")
    wait_for((bench.root / "started").exists, "the program runs")
    assert watching.end()[0] == 0


class Server:
    """An HTTP server that answers with the codes it is given, one after the other, then 200."""

    def __init__(self, codes=()):
        self.codes, self.got = list(codes), []
        outer = self

        class Handler(BaseHTTPRequestHandler):
            def do_POST(self):
                body = self.rfile.read(int(self.headers["Content-Length"]))
                outer.got.append((self.path, self.headers["Content-Type"], body))
                self.send_response(outer.codes.pop(0) if outer.codes else 200)
                self.send_header("Content-Length", "0")
                self.end_headers()

            def log_message(self, *_):
                pass

        self.server = HTTPServer(("127.0.0.1", 0), Handler)
        self.url = f"http://127.0.0.1:{self.server.server_port}/sms"
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def close(self):
        self.server.shutdown()
        self.server.server_close()


def can_post():
    done = subprocess.run([BUILD / "bin" / "smsctl", "watch", "--post", "ftp://x"], capture_output=True, text=True)
    return "without libcurl" not in done.stderr


needs_curl = pytest.mark.skipif(not can_post(), reason="built without libcurl")


@needs_curl
@pytest.mark.parametrize("codes, tries, said", [([], 1, ""), ([503, 429], 3, ""), ([404], 1, "answer 404"),
                                                ([500] * 3, 3, "answer 500")])
def test_watch_posts(codes, tries, said):
    server = Server(codes)
    with Bench(manager=False) as b:
        process = b.start("watch", "--interval", "0.5", "--post", server.url, "--count", "1", factor=10)
        assert b"watching" in process.stderr.readline()
        b.put("inbox", 8, b"0 5 2026/03/05 14:07:00 a\xff\"" + PAIR)
        _, err = process.communicate(timeout=30)
        assert process.returncode == 0 and said in err.decode() and bool(said) == bool(err)
        assert len(server.got) == tries
        path, kind, body = server.got[0]
        assert (path, kind) == ("/sms", "application/json")
        assert json.loads(body) == {"box": "inbox", "number": 8, "state": "unread", "phone": "5", "date": DAY,
                                    "text": 'a\ufffd"😀', "text_hex": "61ff22eda0bdedb880"}
    server.close()


@needs_curl
def test_watch_goes_on_when_nobody_listens():
    server = Server()
    server.close()
    with Bench(manager=False) as b:
        process = b.start("watch", "--interval", "0.5", "--post", server.url, "--count", "1", factor=10)
        assert b"watching" in process.stderr.readline()
        b.put("inbox", 8, f"0 5 {DAY} one")
        _, err = process.communicate(timeout=30)
        assert process.returncode == 0 and server.url in err.decode()


@pytest.mark.parametrize("url", ["ftp://x/", "file:///etc/passwd", "x", ""])
def test_watch_posts_nowhere_else(bench, url):
    assert bench.run("watch", "--post", url).code == 2
