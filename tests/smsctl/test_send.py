"""smsctl send, draft, resend, and the turns that clients take."""

import os
import subprocess
import threading
import time

import pytest

from fake_manager import BUILD, CODE, TAKEN, Bench, bus, wait_for

FAST = 50
DAY = "2026-11-21 10:00:00"


# ---- send and draft ----

def test_send():
    with Bench() as b:
        seen = []

        def act(record):
            wait_for(lambda: b.flag(TAKEN) == "", "the first flag is cleared by its reader")
            seen.append(b.flag(CODE))
            return 0

        b.manager.act = act
        done = b.run("send", "+31612345678", "Hello ü €")
        assert (done.code, done.out, done.err) == (0, "sent\n", "")
        record, = b.manager.records
        assert (record.message, record.sender, record.extra) == (bus.MSG_SEND, 40, 0)
        assert (record.phone, record.body) == ("+31612345678", "Hello ü €")
        assert record.payload[:32] == bytes(32) and not any(record.payload[64 + len("Hello ü €".encode()):])
        assert seen == [""] and b.flag(TAKEN) == "" and b.flag(CODE) == ""


def test_draft():
    with Bench() as b:
        done = b.run("draft", "123", "later")
        assert (done.code, done.out) == (0, "saved\n")
        assert b.manager.records[0].message == bus.MSG_DRAFT


def test_flags_of_an_earlier_request_are_cleared_first():
    with Bench() as b:
        b.set_flag(TAKEN, "40,21760")           # would look like ours
        b.set_flag(CODE, "0")
        b.manager.act = lambda record: 500
        done = b.run("send", "1", "x")
        assert done.code == 1 and done.out == "" and "500" in done.err


def test_another_request_in_the_flag_is_not_ours():
    with Bench(factor=FAST) as b:
        b.manager.takes = False
        process = b.start("send", "1", "x", factor=5)
        wait_for(lambda: b.manager.records, "the request")
        b.set_flag(TAKEN, "41,21760")
        b.set_flag(CODE, "0")
        out, err = process.communicate(timeout=30)
        assert process.returncode == 3 and out == b""


def test_a_request_that_is_dropped():
    with Bench(factor=FAST) as b:
        b.manager.takes = False
        done = b.run("send", "1", "x")
        assert done.code == 3 and done.out == "" and "did not take the request" in done.err
        b.set_devinfo(301001, "0")
        assert "SIM is not ready" in b.run("send", "1", "x").err
        b.set_cfg("SYS_SMS_SW", "0")
        done = b.run("send", "1", "x")
        assert done.code == 3 and "switched off" in done.err


def test_a_request_that_is_taken_and_never_ends():
    with Bench(factor=FAST) as b:
        b.manager.act = lambda record: None
        started = time.monotonic()
        done = b.run("send", "1", "x", "--timeout", "20")
        assert done.code == 3 and "no outcome in time" in done.err and "62nd" in done.err
        assert time.monotonic() - started > 20 / b.factor


def test_nobody_there():
    with Bench(manager=False) as b:
        for command in (["send", "1", "x"], ["draft", "1", "x"], ["generate"]):
            done = b.run(*command)
            assert done.code == 1 and done.out == "" and "the SMS manager is not running" in done.err


def test_flags_that_cannot_be_cleared():
    with Bench() as b:
        os.rmdir(b.platform / "flag")
        (b.platform / "flag").write_text("in the way")
        done = b.run("send", "1", "x")
        assert done.code == 1 and "flags cannot be cleared" in done.err and b.manager.records == []


@pytest.mark.parametrize("number, text, why", [
    ("", "x", "no digits"), ("+", "x", "no digits"), ("12a", "x", "digits"), ("1 2", "x", "digits"),
    ("1" * 21, "x", "at most 20"), ("+" + "1" * 21, "x", "at most 20"), ("1\rAT", "x", "digits"),
    ("1", "", "empty"), ("1", "x" * 4001, "4000"), ("1", "ü" * 2001, "4000"), ("1", b"a\xff", "not UTF-8"),
    ("1", b"\xed\xa0\xbd\xed\xb8\x80", "not UTF-8")])
@pytest.mark.parametrize("command", ["send", "draft"])
def test_what_does_not_fit_is_refused_before_anything_is_sent(command, number, text, why):
    with Bench() as b:
        process = subprocess.run([os.fsencode(BUILD / "bin" / "smsctl"), command.encode(), b"--", number.encode(),
                                  text if isinstance(text, bytes) else text.encode()], env=b.environment(),
                                 capture_output=True, timeout=30)
        assert process.returncode == 2 and process.stdout == b"" and why in process.stderr.decode()
        assert b.manager.records == [] and not os.path.exists(b.platform / "flag" / TAKEN)


def test_the_longest_that_fits():
    with Bench() as b:
        assert b.run("send", "+" + "9" * 20, "x" * 4000).code == 0
        assert b.run("send", "9" * 20, "€" * 1333).code == 0
        first, second = b.manager.records
        assert (first.phone, first.body) == ("+" + "9" * 20, "x" * 4000)
        assert (second.phone, second.body) == ("9" * 20, "€" * 1333)


def test_the_text_from_standard_input():
    with Bench() as b:
        assert b.run("send", "1", "-", stdin="line one\nline €".encode()).code == 0
        assert b.manager.records[0].body == "line one\nline €"
        assert b.run("send", "1", "-", stdin=b"a\0b").code == 2
        assert b.run("send", "1", "-", stdin=b"x" * 100000).code == 2
        assert b.run("send", "1", "-", stdin=b"").code == 2
        assert b.run("send", "1", "--", "-x").code == 0
        assert b.manager.records[-1].body == "-x"


def test_two_at_the_same_time_wait_in_turn():
    release = threading.Event()
    with Bench() as b:
        def act(record):
            if record.body == "first":
                release.wait(20)
            return 0

        b.manager.act = act
        first = b.start("send", "1", "first")
        wait_for(lambda: b.manager.records, "the first request")
        others = [b.start("send", "1", f"other {n}") for n in range(5)]
        time.sleep(0.2)                         # they must not get through; more time would only prove more
        assert len(b.manager.records) == 1
        release.set()
        for process in (first, *others):
            out, err = process.communicate(timeout=30)
            assert (process.returncode, out, err) == (0, b"sent\n", b"")
        assert len(b.manager.records) == 6


def test_a_turn_that_never_comes():
    with Bench(factor=FAST) as b:
        b.manager.act = lambda record: None
        first = b.start("send", "1", "first", factor=1)
        wait_for(lambda: b.manager.records, "the first request")
        done = b.run("send", "1", "second")
        assert done.code == 3 and "another client" in done.err and len(b.manager.records) == 1
        first.kill()
        first.communicate()
        b.manager.act = lambda record: 0
        assert b.run("send", "1", "third").code == 0        # a turn ends with its process


def test_resend():
    with Bench() as b:
        b.put("sent", 3, f"0 +491 {DAY} again 😀")
        b.put("sent", 4, b"0 +491 2026-11-21 10:00:00 a\xffb")
        b.put("sent", 5, f"0 Bank {DAY} x")
        b.put("sent", 6, b"0 +491 2026-11-21 10:00:00 \xed\xa0\xbd\xed\xb8\x80")
        assert b.run("resend", "3").out == "sent\n"
        assert (b.manager.records[0].phone, b.manager.records[0].body) == ("+491", "again 😀")
        assert b.run("resend", "4").code == 1
        assert b.run("resend", "5").code == 2
        assert b.run("resend", "6").code == 0 and b.manager.records[1].body == "😀"
        done = b.run("resend", "7")
        assert done.code == 4 and "no message 7" in done.err
        assert b.run("resend", "x").code == 2 and len(b.manager.records) == 2
