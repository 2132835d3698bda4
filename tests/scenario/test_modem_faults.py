"""A modem that goes away, dawdles, stutters or says nothing."""

import pytest

from bench import SEND, Bench
from recovery import relieve


def test_an_unplugged_modem_comes_back():
    with Bench() as bench:
        bench.start()
        bench.handset("send", "before")
        bench.wait_records("read", 1)
        bench.modem("unplug")
        assert bench.send("+31687654321", "nobody there", seconds=60) == 500
        bench.modem("plug")
        bench.wait(lambda: '"open":true' in bench.modem("status", "--json").replace(" ", ""), "the port is open again")
        assert bench.send("+31687654321", "back", seconds=60) == 0
        bench.handset("send", "after")
        bench.wait_records("read", 2)
        assert bench.store.texts("read") == ["before", "after"]
        assert [message["text"] for message in bench.inbox(1)] == ["back"]
        assert [(record.state, record.text) for record in bench.wait_records("send", 2)] == [
            (0, "nobody there"), (1, "back")]


def test_a_modem_that_is_plugged_in_late():
    with Bench() as bench:
        bench.start_modem()
        bench.modem("unplug")
        bench.start_owner()
        bench.start_daemon()
        bench.wait_log("init_at_cmgf: send at+cmgf? error", 2)
        bench.modem("plug")
        bench.wait_service(60)
        bench.handset("send", "hello")
        bench.wait_records("read", 1)


@pytest.mark.parametrize("fault", [("split", "on"), ("split", "on", "--at", "1"), ("interleave", "on"),
                                   ("delay", "2000"), ("interleave", "on", "--messages")])
def test_a_modem_that_stutters_is_understood(fault):
    with Bench() as bench:
        bench.start_modem()
        bench.modem(*fault)
        bench.start_owner()
        bench.start_daemon()
        bench.wait_service(60)
        bench.handset("send", "--via", "cmti", "stored")
        bench.handset("send", "--via", "cmt", "direct")
        assert bench.send("+31687654321", "out") == 0
        bench.wait_records("read", 2)
        assert sorted(bench.store.texts("read")) == ["direct", "stored"]
        bench.wait(lambda: bench.stored() == [], "the SIM is empty")
        assert [message["text"] for message in bench.inbox(1)] == ["out"]


@pytest.mark.parametrize("fault", [("garble", "on"), ("garble", "200", "--seed", "3"), ("repeat", "on")])
def test_a_modem_out_of_its_mind_is_outlived(fault):
    with Bench() as bench:
        bench.start()
        bench.modem(*fault)
        for number in range(3):
            bench.handset("send", "--via", "cmti", f"stored {number}")
            bench.send("+31687654321", f"out {number}", seconds=60)
        bench.modem(fault[0], "off")
        bench.wait(lambda: bench.send("+31687654321", "sane", seconds=60) == 0, "the modem is in step again", 60)
        bench.handset("send", "sane")
        bench.wait(lambda: "sane" in bench.store.texts("read"), "the text that comes afterwards", 60)
        assert "sane" in [message["text"] for message in bench.inbox(1)]


def test_a_silent_modem_is_waited_for_and_given_up():
    with Bench() as bench:
        bench.start()
        bench.modem("silent", "on")
        assert bench.send("+31687654321", "unheard", seconds=60) == 500
        bench.modem("silent", "off")
        bench.wait(lambda: bench.send("+31687654321", "heard", seconds=60) == 0, "the modem is heard again", 60)
        assert [record.state for record in bench.wait_records("send", 2)][0] == 0


def test_an_answer_behind_its_time_is_not_taken_for_the_next_one():
    with Bench() as bench:
        bench.start()
        bench.modem("delay", "16500")
        assert bench.send("+31687654321", "late", seconds=60) == 500
        bench.modem("delay", "10")
        bench.handset("send", "--via", "cmti", "stored")
        bench.wait(lambda: bench.send("+31687654321", "in time", seconds=60) == 0, "the modem is in step again", 60)
        bench.modem("fail", SEND, "500")
        assert bench.send("+31687654321", "refused", seconds=60) == 500
        bench.modem("fail", "--clear")
        relieve(bench)
        bench.wait(lambda: set(bench.store.texts("read")) == {"stored"}, "the stored text is filed")
        assert "refused" not in [message["text"] for message in bench.inbox(2)]


def test_a_modem_that_stays_silent_is_reported():
    with Bench(factor=100) as bench:
        bench.cfg["SYS_REBOOT_WHEN_MODEM_UNORMAL"] = "0"
        bench.start_modem()
        bench.start_owner("--silent-timeouts")
        bench.modem("silent", "on")
        bench.start_daemon()
        notice = "<<<<< System not allow reboot when modem unormal. <<<<<"
        bench.wait_trace(notice)
        assert bench.trace().partition(notice)[0].count("=> send data :AT+CMGF?") == 15
        bench.modem("silent", "off")
        bench.wait_service()


def test_an_answer_that_gets_lost():
    with Bench() as bench:
        bench.start()
        bench.modem("swallow", "--executed", "1")
        assert bench.send("+31687654321", "sent, but never confirmed", seconds=60) == 500
        bench.wait(lambda: bench.send("+31687654321", "next", seconds=60) == 0, "the modem is in step again", 60)
        assert [message["text"] for message in bench.inbox(2)][:2] == ["sent, but never confirmed", "next"]
        states = [record.state for record in bench.wait_records("send", 2)]
        assert (states[0], states[-1]) == (0, 1)


def test_a_restarted_owner_is_found_again():
    with Bench() as bench:
        bench.start()
        bench.owner.stop()
        assert bench.send("+31687654321", "nobody owns the port", seconds=60) == 500
        bench.wait_log("sockmsg_send_common_msg() failed:")
        bench.start_owner()
        bench.wait(lambda: bench.send("+31687654321", "again", seconds=60) == 0, "the new owner answers", 60)
        bench.handset("send", "in")
        bench.wait_records("read", 1)
        assert "again" in [message["text"] for message in bench.inbox(1)]
