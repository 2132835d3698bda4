"""Texts on their way out: from a request through the modem to the handset, which reads them with code of its own."""

import re

import pytest

import bus
from bench import GENERIC, NETWORK, SEND, Bench

GSM = "".join("abcdefghij"[number % 10] if number % 10 else str(number // 10 % 10) for number in range(500))
CHINESE = "".join(chr(0x4E00 + number) for number in range(200))


@pytest.mark.parametrize("text, parts", [
    ("x", 1),
    (GSM[:160], 1),
    (GSM[:161], 2),
    (GSM[:306], 2),
    (GSM[:307], 3),
    ("[" * 80, 1),
    ("[" * 81, 2),
    (GSM[:152] + "{" + GSM[:40], 2),            # the escape moves to the second part
    ("@$_ \n\r!\"#%&'()*+,-./:;<=>?", 1),
    (CHINESE[:70], 1),
    (CHINESE[:71], 2),
    (CHINESE[:134], 2),
    (CHINESE[:135], 3),
    ("é", 1),
])
def test_the_handset_reads_what_was_written(text, parts):
    with Bench() as bench:
        bench.start()
        assert bench.send("+31687654321", text) == 0
        message, = bench.inbox(1)
        assert message["text"] == text
        assert message["to"] == "+31687654321"
        assert len(message["parts"]) == message["total"] == parts
        assert message["alphabet"] == ("gsm7" if text.isascii() else "ucs2")
        assert len(bench.commands(f"{SEND}=")) == parts
        bench.wait_records("send", 1)
        content = bench.store.content("send", 1).decode()
        assert re.fullmatch(r"1 1 \+31687654321 \d{4}-\d\d-\d\d \d\d:\d\d:\d\d " + re.escape(text), content)


def test_parts_of_a_message_belong_together():
    with Bench() as bench:
        bench.start("--smsc", "+31624000000")
        assert bench.send("0687654321", GSM[:161]) == 0
        assert bench.send("0687654321", CHINESE[:80]) == 0
        first, second = bench.inbox(2)
        for message, reference in ((first, 1), (second, 2)):
            assert [part["sequence"] for part in message["parts"]] == [1, 2]
            assert {part["reference"] for part in message["parts"]} == {reference}
            assert message["reference"] == reference
            assert {part["service_centre"] for part in message["parts"]} == {"+31624000000"}
            assert {part["pid"] for part in message["parts"]} == {0}
        assert [part["text"] for part in first["parts"]] == [GSM[:153], GSM[153:161]]
        assert [part["text"] for part in second["parts"]] == [CHINESE[:67], CHINESE[67:80]]


def set_registered(bench, state):
    """The owner of a generic modem's port tells the daemon, which then does not even ask the modem."""
    bench.modem("registered", state)
    if GENERIC:
        bench.wait(lambda: (bench.devinfo[NETWORK] == "Unkown") == (state == "off"), f"registered: {state}")


def test_a_refused_message_is_filed_as_failed():
    with Bench() as bench:
        bench.start()
        bench.modem("fail", SEND, "500")
        assert bench.send("+31687654321", "lost") == 500
        bench.wait_records("send", 1)
        bench.modem("fail", "--clear")
        set_registered(bench, "off")
        assert bench.send("+31687654321", "lost as well") == 500
        set_registered(bench, "on")
        assert bench.send("+31687654321", "arrives") == 0
        bench.wait_records("send", 3)
        assert [(record.state, record.text) for record in bench.store.records("send")] == [
            (0, "lost"), (0, "lost as well"), (1, "arrives")]
        assert [message["text"] for message in bench.inbox(1)] == ["arrives"]
        assert "[sms_mgr] send at error! code:500" in bench.trace()
        assert ("[sms_mgr] send at error! code:331" in bench.trace()) == (not GENERIC)


def test_a_second_part_that_fails_ends_the_message():
    with Bench() as bench:
        bench.start()
        assert bench.send("+31687654321", GSM[:350]) == 0
        first, second, third = bench.commands(f"{SEND}=")
        assert first.split(",")[0] == second.split(",")[0] != third.split(",")[0]
        bench.modem("fail", third.split(",")[0], "42")
        assert bench.send("+31687654321", GSM[:350]) == 500
        assert len(bench.commands(f"{SEND}=")) == 6
        assert bench.send("+31687654321", GSM[:306] + "x" * 100) == 0
        assert [(record.state, record.text) for record in bench.wait_records("send", 3)] == [
            (1, GSM[:350]), (0, GSM[:350]), (1, GSM[:306] + "x" * 100)]
        assert len(bench.inbox(2)) == 2         # two parts of the failed one wait for their third


def test_messages_cross():
    with Bench() as bench:
        bench.start()
        for number in range(6):
            bench.handset("send", f"in {number}")
            bench.request(bus.MSG_SEND, bus.pack_message("+31687654321", f"out {number}"), sender=0)
            assert bench.draft("1", f"draft {number}") == 0
        bench.wait_records("read", 6)
        bench.wait_records("send", 6)
        assert bench.store.texts("read") == [f"in {number}" for number in range(6)]
        assert bench.store.texts("send") == [f"out {number}" for number in range(6)]
        assert bench.store.texts("draft") == [f"draft {number}" for number in range(6)]
        assert [message["text"] for message in bench.inbox(6)] == [f"out {number}" for number in range(6)]
