"""smsctl read, delete, generate, notice, warn, smsc."""

import os
import pty
import threading
import time

import pytest

from fake_manager import Bench, bus, wait_for

FAST = 50
DAY = "2026-11-21 10:00:00"


# ---- read and delete ----

BOXES = [("inbox", bus.MSG_DELETE_RECEIVED), ("sent", bus.MSG_DELETE_SENT), ("drafts", bus.MSG_DELETE_DRAFT)]


def fill(b, box, numbers):
    for number in numbers:
        b.put(box, number, f"0 1 {DAY} x")


def test_read():
    with Bench() as b:
        fill(b, "inbox", range(1, 6))
        done = b.run("read", "1", "3,5", "3", "004")
        assert (done.code, done.out) == (0, "4 messages marked read\n")
        record, = b.manager.records
        assert (record.message, record.text) == (bus.MSG_READ, "1,3,5,4")
        assert b.run("read", "all").out == "5 messages marked read\n"
        assert b.manager.records[1].text == "READ ALL"
        b.manager.act = lambda record: 500
        assert b.run("read", "1").code == 1


@pytest.mark.parametrize("box, message", BOXES)
def test_delete(box, message):
    with Bench() as b:
        fill(b, box, range(1, 4))
        done = b.run("delete", box, "2")
        assert (done.code, done.out) == (0, "1 message deleted\n")
        assert (b.manager.records[0].message, b.manager.records[0].text) == (message, "2")
        assert b.run("delete", box, "all").code == 0
        assert b.manager.records[1].text == "DELETE ALL"


def test_what_is_not_there_is_told_and_nothing_is_asked():
    with Bench() as b:
        fill(b, "inbox", [1])
        for command in (["read", "1,9"], ["delete", "inbox", "1", "9"]):
            done = b.run(*command)
            assert done.code == 4 and "inbox has no message 9" in done.err
        for command in (["delete", "sent", "all"], ["delete", "drafts", "1"]):
            assert b.run(*command).code == 4
        assert b.manager.records == []


@pytest.mark.parametrize("numbers", ["0", "-1", "x", "1,", ",1", "1,,2", "../1", "1/2", ".", "READ ALL", ""])
def test_what_is_no_number(numbers):
    with Bench() as b:
        fill(b, "inbox", [1, 2])
        assert b.run("read", "--", numbers).code == 2
        assert b.run("delete", "inbox", "--", numbers).code == 2
        assert b.manager.records == []


def test_a_long_list_takes_several_requests():
    with Bench() as b:
        numbers = list(range(1, 1501))
        fill(b, "sent", numbers)
        assert b.run("delete", "sent", ",".join(map(str, numbers))).code == 0
        assert len(b.manager.records) == 2
        assert all(len(record.text) <= 4000 for record in b.manager.records)
        assert [int(n) for record in b.manager.records for n in record.text.split(",")] == numbers


def on_terminal(b, *arguments, keys=b"", wait_for_text=None):
    """Runs smsctl with a terminal; gives its exit code and what the terminal showed."""
    master, slave = pty.openpty()
    process = b.start(*arguments, stdin=slave, stdout=slave, stderr=slave)
    os.close(slave)
    shown = b""
    while True:
        try:
            piece = os.read(master, 4096)
        except OSError:
            break
        if not piece:
            break
        shown += piece
        if keys and wait_for_text in shown:
            os.write(master, keys)
            keys = b""
    os.close(master)
    return process.wait(30), shown.decode()


@pytest.mark.parametrize("keys, code", [(b"y\n", 0), (b"Y\n", 0), (b"n\n", 1), (b"\n", 1), (b"\x04", 1)])
def test_deleting_everything_asks_on_a_terminal(keys, code):
    with Bench() as b:
        fill(b, "inbox", [1, 2])
        got, shown = on_terminal(b, "delete", "inbox", "all", keys=keys, wait_for_text=b"[y/N]")
        assert got == code and "Delete all 2 messages of inbox?" in shown
        assert len(b.manager.records) == (code == 0)


def test_deleting_does_not_always_ask():
    with Bench() as b:
        fill(b, "inbox", [1, 2])
        for arguments in (["all", "--yes"], ["1"]):
            code, shown = on_terminal(b, "delete", "inbox", *arguments)
            assert code == 0 and "[y/N]" not in shown
        assert len(b.manager.records) == 2


# ---- generate ----

def test_generate_shows_how_the_boxes_fill():
    with Bench() as b:
        b.set_cfg("SYS_SMS_MAX_SAVE_SIZE", "3")
        looked = threading.Event()

        def act(record):
            for number in range(1, 4):
                for box in ("inbox", "sent", "drafts"):
                    b.put(box, number, f"0 1 {DAY} x")
                looked.wait(0.1)                # so that a look falls in between
            return 0

        b.manager.act = act
        code, shown = on_terminal(b, "generate")
        assert code == 0 and "9 messages made" in shown
        assert "] 9 of 9" in shown and "[" + "#" * 40 + "]" in shown and "] 3 of 9" in shown
        assert b.manager.records[0].message == bus.MSG_GENERATE


def test_generate_without_a_terminal_shows_no_bar():
    with Bench() as b:
        done = b.run("generate")
        assert (done.code, done.out, done.err) == (0, "0 messages made\n", "")


def test_generate_waits_as_long_as_boxes_grow():
    with Bench() as b:
        def act(record):
            for number in range(1, 7):
                b.put("inbox", number, f"0 1 {DAY} x")
                time.sleep(0.7)                 # six times this is longer than the time-out
            return 0

        b.manager.act = act
        assert b.run("generate", "--timeout", "3").code == 0
        b.manager.act = lambda record: None
        assert b.run("generate", "--timeout", "0.3").code == 3


# ---- notices ----

def allow(b, *keys, value="1"):
    for key in keys:
        b.set_cfg(key, value)


def notices_are_on(b):
    allow(b, "USR_FLOW_SMS_NOTICE_SWITCH", "USR_NATIONAL_FLOW_SMS_NOTICE_SWITCH",
          "USR_INTERNATIONAL_FLOW_SMS_NOTICE_SWITCH")
    allow(b, "USR_FLOW_SMS_NOTICE_PHONE_NUMBER", "USR_NATIONAL_FLOW_SMS_NOTICE_PHONE_NUMBER",
          "USR_INTERNATIONAL_FLOW_SMS_NOTICE_PHONE_NUMBER", value="+4912")
    allow(b, "USR_NATIONAL_FLOW_SMS_NOTICE_TEXT_0", "USR_INTERNATIONAL_FLOW_SMS_NOTICE_TEXT_0", value="text")
    allow(b, "USR_WAN_MODE", value="7")


def filing(b, state):
    """Files what is asked for in the box "sent", under a number that was there before."""
    def act(record):
        b.put("sent", 1, f"{state} +4912 {DAY} notice")
    return act


@pytest.mark.parametrize("arguments, message, text", [
    (["notice"], bus.MSG_NOTICE, ""), (["warn", "50"], 0x8002, "0"), (["warn", "half"], 0x8002, "0"),
    (["warn", "0"], 0x8002, "0"), (["warn", "100"], 0x8002, "1"), (["warn", "full"], 0x8002, "1"),
    (["warn", "national"], 0x8002, "2"), (["warn", "international"], 0x8002, "3"), (["warn", "3"], 0x8002, "3")])
def test_notices(arguments, message, text):
    with Bench() as b:
        notices_are_on(b)
        b.put("sent", 1, f"1 +4912 {DAY} an older one")
        b.put("sent", 2, f"1 +4912 {DAY} and another")
        b.manager.act = filing(b, 1)
        done = b.run(*arguments)
        assert (done.code, done.out) == (0, "sent to +4912, filed as message 1\n")
        record, = b.manager.records
        assert (record.message, record.text) == (message, text)


def test_a_notice_that_fails():
    with Bench(factor=FAST) as b:
        notices_are_on(b)
        b.manager.act = filing(b, 0)
        done = b.run("notice")
        assert done.code == 1 and "failed" in done.err
        b.manager.act = lambda record: None
        assert b.run("notice").code == 3        # the same record as before is not news


@pytest.mark.parametrize("arguments, key, value", [
    (["notice"], "USR_FLOW_SMS_NOTICE_SWITCH", "0"), (["notice"], "USR_FLOW_SMS_NOTICE_PHONE_NUMBER", ""),
    (["notice"], "USR_WAN_MODE", "1"), (["warn", "50"], "USR_FLOW_SMS_NOTICE_SWITCH", "2"),
    (["warn", "national"], "USR_NATIONAL_FLOW_SMS_NOTICE_SWITCH", "0"),
    (["warn", "national"], "USR_NATIONAL_FLOW_SMS_NOTICE_TEXT_0", ""),
    (["warn", "international"], "USR_INTERNATIONAL_FLOW_SMS_NOTICE_PHONE_NUMBER", "")])
def test_a_notice_that_the_configuration_forbids(arguments, key, value):
    with Bench() as b:
        notices_are_on(b)
        b.set_cfg(key, value)
        done = b.run(*arguments)
        assert done.code == 1 and key in done.err and done.out == ""
        wait_for(lambda: len(b.manager.records) == 1, "the request reaches the manager")


def test_no_such_warning():
    with Bench() as b:
        for kind in ("4", "-1", "x", ""):
            assert b.run("warn", "--", kind).code == 2
        assert b.manager.records == []


# ---- the service centre ----

@pytest.fixture
def port_owner():
    with Bench() as b:
        owner = bus.FakeOwner(b.bus, {})
        respond = owner.respond

        def respond_to_asker(at_id, text, error=0, detail=""):
            bus.send(b.bus, 40, bus.pack_record(bus.MSG_AT, bus.pack_response(at_id, text, error, detail), 5))

        owner.respond = respond_to_asker
        yield b, owner
        owner.respond = respond
        owner.stop()


def test_service_centre(port_owner):
    b, owner = port_owner
    owner.answers["AT+CSCA?"] = '\r\n+CSCA: "+31624",145\r\n\r\nOK\r\n'
    assert b.run("smsc", "get").out == "+31624\n"
    b.set_flag("SMS_CSCA", "+49")
    assert b.run("smsc", "get").out == "+49\n"
    assert b.run("smsc", "get", "--modem").out == "+31624\n"
    assert b.run("smsc", "set", "+44123").code == 0
    assert owner.texts()[-1] == 'AT+CSCA="+44123",145\r' and b.flag("SMS_CSCA") == "+44123"
    assert b.run("smsc", "set", "0441").code == 0 and owner.texts()[-1] == 'AT+CSCA="0441",129\r'
    owner.answers['AT+CSCA="1",129'] = ("\r\n+CMS ERROR: 310\r\n", 310, "+CMS ERROR: 310")
    done = b.run("smsc", "set", "1")
    assert done.code == 1 and "+CMS ERROR: 310" in done.err and b.flag("SMS_CSCA") == "0441"
    assert b.run("smsc", "set", '1"').code == 2
    owner.answers["AT+CSCA?"] = '\r\nOK\r\n'
    assert b.run("smsc", "get", "--modem").code == 4
    owner.answers["AT+CSCA?"] = None
    done = b.run("smsc", "get", "--modem", factor=FAST)
    assert done.code == 1 and "does not answer" in done.err


def test_service_centre_without_an_owner():
    with Bench() as b:
        done = b.run("smsc", "get")
        assert done.code == 1 and "nobody owns" in done.err
