"""Commands that only look, the values, and the command line itself."""

import json
import os
import re

import pytest

from fake_manager import CODE, TAKEN, Bench

DAY = "2026/03/05 14:07:00"
PAIR = b"\xed\xa0\xbd\xed\xb8\x80"
COMMANDS = ["send", "draft", "resend", "list", "show", "export", "read", "delete", "generate", "notice", "warn", "watch",
            "status", "doctor", "smsc", "smsc get", "smsc set", "cfg", "cfg get", "cfg set", "flag", "flag get",
            "flag set", "flag clear", "devinfo", "devinfo get", "devinfo set"]


@pytest.fixture
def bench():
    with Bench(manager=False) as b:
        yield b


@pytest.fixture
def filled(bench):
    bench.put("inbox", 1, f"0 +31612345678 {DAY} hello ü")
    bench.put("inbox", 2, b"1 My Bank 2026/03/05 14:07:01 two\r\nlines \x1b[31m\\ " + PAIR)
    bench.put("inbox", 3, b"0 5 2026/03/05 14:07:02 a\xffz")
    bench.put("sent", 1, "1 5 2026-03-05 15:00:00 went")
    bench.put("sent", 2, "0 6 2026-03-05 15:00:00 did not")
    bench.put("drafts", 1, "1 7 2026-03-05 15:00:00 later")
    return bench


# ---- list, show, export ----

def test_list(filled):
    done = filled.run("list", "inbox")
    assert done.code == 0 and done.err == ""
    lines = done.out.splitlines()
    assert len(lines) == 3
    assert re.fullmatch(r" +1  unread  2026/03/05 14:07:00  \+31612345678 +  hello ü", lines[0])
    assert re.fullmatch(r" +2  read    2026/03/05 14:07:01  My Bank +  two\\r\\nlines \\x1b\[31m\\\\ 😀", lines[1])
    assert lines[2].endswith("  a\ufffdz")
    whole = filled.run("list").out
    assert "inbox: 3\n" in whole and "sent: 2\n" in whole and "drafts: 1\n" in whole and "failed" in whole


def test_list_as_json(filled):
    got = json.loads(filled.run("list", "--json").out)
    assert [(m["box"], m["number"], m["state"]) for m in got] == [
        ("inbox", 1, "unread"), ("inbox", 2, "read"), ("inbox", 3, "unread"), ("sent", 1, "sent"),
        ("sent", 2, "failed"), ("drafts", 1, "draft")]
    assert got[0] == {"box": "inbox", "number": 1, "state": "unread", "phone": "+31612345678", "date": DAY,
                      "text": "hello ü"}
    assert got[1]["phone"] == "My Bank" and got[1]["text"] == "two\r\nlines \x1b[31m\\ 😀"
    assert got[2]["text"] == "a\ufffdz" and got[2]["text_hex"] == "61ff7a"
    assert json.loads(filled.run("export", "sent").out) == got[3:5]


def test_nothing_to_list(bench):
    assert (bench.run("list").code, bench.run("list", "sent").code) == (4, 4)
    done = bench.run("list", "--json")
    assert (done.code, json.loads(done.out)) == (4, [])
    done = bench.run("export", "inbox")
    assert (done.code, json.loads(done.out)) == (4, [])


def test_json_whatever_a_file_holds(bench):
    import random
    chance = random.Random(1)
    for number in range(1, 60):
        bench.put("inbox", number, bytes(chance.choice(b'0 1\xff\xed\xa0\xbd\xb8\x80"\\\n/:\xc3') for _ in range(60)))
    bench.put("inbox", 60, b"")
    got = json.loads(bench.run("list", "--json").out)
    assert len(got) == 60
    for number in range(1, 61):
        json.loads(bench.run("show", "inbox", number, "--json").out)


def test_damaged_records_are_told(bench):
    bench.put("inbox", 1, "0 5 yesterday x y")
    done = bench.run("list", "inbox")
    assert done.code == 0 and "inbox 1: no date" in done.err
    assert "Problem no date" in bench.run("show", "inbox", "1").out
    assert json.loads(bench.run("export", "inbox").out)[0]["problem"].startswith("no date")


def test_show(filled):
    done = filled.run("show", "inbox", "2")
    assert done.code == 0
    assert done.out == ("Message inbox 2\nState   read\nFrom    My Bank\nDate    2026/03/05 14:07:01\n\n"
                        "two\nlines \\x1b[31m\\ 😀\n")
    assert "To      6\n" in filled.run("show", "sent", "2").out
    assert json.loads(filled.run("show", "drafts", "1", "--json").out)["text"] == "later"
    assert filled.run("show", "inbox", "9").code == 4
    assert filled.run("show", "inbox", "../1").code == 2
    assert filled.run("show", "nowhere", "1").code == 2


def test_where_the_store_is(filled):
    os.rename(filled.store, filled.root / "elsewhere")
    assert filled.run("list").code == 4
    assert filled.run("--store", filled.root / "elsewhere", "list").code == 0
    assert filled.run("list", "--store", filled.root / "elsewhere").code == 0


# ---- status ----

def test_status(filled):
    filled.set_devinfo(301002, "LTE")
    filled.set_devinfo(306003, "1")
    filled.set_flag("SMS_CSCA", "+316")
    filled.set_flag(CODE, "500")
    (filled.store / "unread_sms").write_text("2 ")
    got = json.loads(filled.run("status", "--json").out)
    assert got == {
        "daemon_running": False, "service_on": False, "service_switch": "1", "sim_ready": True, "network": "LTE",
        "service_centre": "+316", "unread_mark": False, "last_request": None, "last_error_code": "500",
        "store": str(filled.store), "boxes": {
            "inbox": {"messages": 3, "capacity": 20, "full": False, "unread": 2},
            "sent": {"messages": 2, "capacity": 20, "full": True},
            "drafts": {"messages": 1, "capacity": 20, "full": False}}}
    text = filled.run("status").out
    assert "off: the SMS manager is not running" in text and "3 of 20, 2 unread" in text and "2 of 20, full" in text


def test_status_of_a_service_that_is_on():
    with Bench() as b:
        got = json.loads(b.run("status", "--json").out)
        assert got["daemon_running"] and got["service_on"] and got["boxes"]["inbox"]["unread"] is None
        b.set_cfg("SYS_SMS_SW", "0")
        b.set_devinfo(301002, "Unkown")
        got = json.loads(b.run("status", "--json").out)
        assert got["daemon_running"] and not got["service_on"]
        text = b.run("status").out
        assert "off: the message service is switched off" in text and "not registered" in text
        assert b.manager.records == []          # looking asks nothing of the daemon


# ---- values ----

@pytest.mark.parametrize("kind, name, bad", [("cfg", "SYS_X", "a/b"), ("flag", "F", "../f"), ("devinfo", "301001", "x"),
                                             ("devinfo", "network", "0")])
def test_values(bench, kind, name, bad):
    if kind == "devinfo" and name == "301001":
        assert bench.run(kind, "get", "sim").out == "1\n"
    else:
        done = bench.run(kind, "get", name)
        assert done.code == 4 and done.out == "" and "not set" in done.err
    assert bench.run(kind, "set", name, " some ü\nvalue ").code == 0
    assert bench.run(kind, "get", name).out == " some ü\nvalue \n"
    assert bench.run(kind, "get", bad).code == 4
    assert bench.run(kind, "set", bad, "1").code == 1
    assert bench.run(kind, "get").code == 2 and bench.run(kind, "set", name).code == 2 and bench.run(kind).code == 2


def test_flags_are_cleared(bench):
    bench.set_flag(TAKEN, "x")
    assert bench.run("flag", "clear", TAKEN).code == 0
    assert bench.flag(TAKEN) == "" and bench.run("flag", "get", TAKEN).code == 4


def test_values_for_a_terminal(bench):
    bench.set_flag("F", "a\x1b[31m")
    assert bench.run("flag", "get", "F").out == "a\\x1b[31m\n"


# ---- doctor ----

def test_doctor(filled):
    for box in (306002, 306003, 306004):
        filled.set_devinfo(box, "0")
    filled.set_devinfo(306001, "1")
    (filled.store / "unread_sms").write_text("2")
    before = sorted((path, path.read_bytes()) for path in filled.root.rglob("*") if path.is_file())
    done = filled.run("doctor")
    assert (done.code, done.out) == (0, "nothing is off\n")
    assert (filled.run("doctor", "--json").code, filled.run("doctor", "--json").out) == (0, "[]\n")
    assert before == sorted((path, path.read_bytes()) for path in filled.root.rglob("*") if path.is_file())
    (filled.store / "read_index").unlink()
    done = filled.run("doctor")
    assert done.code == 1 and "its index is missing\n    the next start rebuilds it" in done.out
    finding, = json.loads(filled.run("doctor", "--json").out)
    assert finding["about"] == "inbox"


# ---- the command line ----

@pytest.mark.parametrize("command", [""] + COMMANDS)
def test_help_and_version(bench, command):
    done = bench.run(*command.split(), "--help")
    assert done.code == 0 and "Usage:" in done.out and done.err == ""
    done = bench.run(*command.split(), "--version")
    assert done.code == 0 and re.fullmatch(r"smsctl \d+\.\d+\.\d+\n", done.out)


@pytest.mark.parametrize("arguments", [[], ["nothing"], ["list", "--nothing"], ["list", "nowhere"], ["send"],
                                       ["send", "1"], ["send", "1", "x", "y"], ["send", "1", "x", "--timeout", "0"],
                                       ["read"], ["delete", "inbox"], ["warn"], ["watch", "--count", "0"]])
def test_wrong_use(bench, arguments):
    done = bench.run(*arguments)
    assert done.code == 2 and done.out == "" and done.err != ""


@pytest.mark.parametrize("arguments", [["list"], ["list", "--json"], ["status"], ["show", "inbox", "1"]])
def test_a_result_that_cannot_be_written(filled, arguments):
    with open("/dev/full", "wb") as full:
        process = filled.start(*arguments, stdout=full)
        err = process.communicate(timeout=20)[1]
    assert process.returncode == 1 and b"cannot be written" in err
