"""A modem that is late, deaf, gone, or somewhere else; other modems; SIM and network."""

import os
import threading
import time

import pytest

from fake_modem import MSG_BLOCK, OK, Bench, FakeModem, bus

FAST = 20
SEND = "AT+DORVYSMS=13,0491214365\x1a\r"


def silent_once(answer=OK):
    """Silence the first time."""
    told = iter([None])
    return lambda _: next(told, answer)


def test_a_time_out_is_reported():
    with Bench({"AT+SLOW": None}, factor=FAST) as b:
        b.start()
        answer = b.daemon.ask("AT+SLOW\r", at_id=5, timeout=4)
        assert (answer.code, answer.text, answer.detail) == (110, "", "no answer from the modem")


@pytest.mark.parametrize("stated, seconds", [(4, 4), (0, 15), (-3, 15)])
def test_the_time_that_a_request_states(stated, seconds):
    with Bench({"AT+SLOW": None}, factor=FAST) as b:
        b.start()
        started = time.monotonic()
        b.daemon.request("AT+SLOW\r", timeout=stated)
        assert b.daemon.answer().code == 110
        assert time.monotonic() - started > seconds / b.factor * 0.7


def test_silent_time_outs():
    with Bench({"AT+SLOW": None}, factor=FAST) as b:
        b.start("--silent-timeouts")
        b.daemon.request("AT+SLOW\r", 1, timeout=1)
        b.wait(lambda: "no answer to AT+SLOW" in b.log(), "the time-out")
        assert b.daemon.ask("AT+A\r", 2).at_id == 2


def test_a_late_answer_is_not_taken_for_the_next_one():
    late = threading.Event()
    with Bench(factor=FAST) as b:
        b.start()

        def probe(_):                           # the answer to the command before comes first
            late.wait(10)
            return '\r\n+CMGR: 0,,20\r\nAABB\r\n' + OK + "\r\n+CMEE: 1\r\n" + OK

        b.modem.answers.update({"AT+CMGR=1": None, "AT+CMEE?": probe, "AT+CMGD=1": "\r\n+CMS ERROR: 321\r\n"})
        assert b.daemon.ask("AT+CMGR=1\r", 1, timeout=1).code == 110
        b.daemon.request("AT+CMGD=1\r", 2)
        b.wait(lambda: b.modem.count("AT+CMEE?") == 2, "it looks for its step")
        assert b.modem.count("AT+CMGD=1") == 0
        late.set()
        answer = b.daemon.answer()
        assert (answer.at_id, answer.code) == (2, 321)
        assert b.daemon.indications.empty()


def test_a_daemon_that_stands_still_for_a_moment_gets_every_line():
    lines = [f'\r\n+CMTI: "SM",{index}\r\n' for index in range(60)]
    with Bench() as b:
        b.start()
        b.daemon.awake.clear()
        threading.Timer(0.6, b.daemon.awake.set).start()
        b.modem.say("".join(lines))
        assert [b.daemon.indications.get(timeout=30) for _ in lines] == lines


@pytest.mark.parametrize("seconds", [3.05, 4.5])
def test_a_modem_that_is_slow_with_everything(seconds):
    pace = 5                                    # the owner waits five seconds: what is left must outlast a busy machine

    def slowly(answer):
        def answer_late(_):
            time.sleep(seconds / pace)
            return answer
        return answer_late

    answers = {f"AT+{n}?": slowly(f"\r\n+{n}: 0\r\n" + OK) for n in "ABC"}
    answers |= {"ATE0": slowly(OK), "AT+CMEE?": slowly("\r\n+CMEE: 0\r\n" + OK), "AT+CMEE=1": slowly(OK),
                "AT+CMEE=?": slowly("\r\n+CMEE: (0-2)\r\n" + OK), "AT+CMGF=?": slowly("\r\n+CMGF: (0,1)\r\n" + OK)}
    with Bench(answers, factor=pace) as b:
        b.start(ready=False)
        for at_id, name in enumerate("AB"):
            assert b.daemon.ask(f"AT+{name}?\r", at_id, timeout=60).text == f"\r\n+{name}: 0\r\n" + OK
        assert b.daemon.ask("AT+C?\r", 7, timeout=1).code == 110
        for at_id, name in enumerate("AB"):
            assert b.daemon.ask(f"AT+{name}?\r", at_id, timeout=60).text == f"\r\n+{name}: 0\r\n" + OK


def test_answers_that_come_after_a_round_of_questions_are_no_answers_to_the_next_one():
    pace = 5

    def late(answer, seconds):
        def answer_late(_):
            time.sleep(seconds / pace)
            return answer
        return answer_late

    with Bench(factor=pace) as b:
        b.start()
        b.modem.answers.update({command: late(answer, 0.5) for command, answer in b.modem.answers.items()})
        b.modem.answers["AT+SLOW"] = late(OK, 17)
        assert b.daemon.ask("AT+SLOW\r", 1, timeout=1).code == 110
        for at_id, name in ((2, "CMGF"), (3, "CSCA")):
            b.modem.answers[f"AT+{name}?"] = f"\r\n+{name}: 0\r\n" + OK
            assert b.daemon.ask(f"AT+{name}?\r", at_id, timeout=60).text == f"\r\n+{name}: 0\r\n" + OK


@pytest.mark.parametrize("unknown", [["AT+CMEE?"], ["AT+CMEE?", "AT+CMEE=?"], ["AT+CMEE?", "AT+CMEE=?", "AT+CMGF=?"]])
def test_a_modem_that_does_not_know_the_probe(unknown):
    with Bench({command: "\r\nERROR\r\n" for command in unknown}, factor=FAST) as b:
        b.start(ready=False)
        b.modem.answers["AT+SLOW"] = None
        assert b.daemon.ask("AT+SLOW\r", 1, timeout=15).code == 110
        assert b.daemon.ask("AT+A\r", 2).code == 0


def test_unsolicited_lines_arrive_while_it_finds_its_step():
    with Bench({"AT+SLOW": None}, factor=FAST) as b:
        b.start()
        b.modem.answers["AT+CMEE?"] = '\r\n+CMTI: "SM",1\r\n\r\n+CMEE: 1\r\n' + OK
        b.daemon.ask("AT+SLOW\r", timeout=1)
        assert b.daemon.indications.get(timeout=30) == '\r\n+CMTI: "SM",1\r\n'


def test_a_deaf_modem_is_reported_once_and_found_again():
    with Bench(factor=FAST) as b:
        b.start("--block-after", "3")
        for _ in range(2):
            b.modem.deaf = True
            for at_id in range(5):
                assert b.daemon.ask("AT+A\r", at_id, timeout=1).code == 110
            assert b.daemon.notices.get(timeout=30) == MSG_BLOCK
            assert b.daemon.notices.empty()
            b.modem.deaf = False
            assert b.daemon.ask("AT+A\r", 9).code == 0


def test_block_reports_can_be_switched_off():
    with Bench(factor=FAST) as b:
        b.start("--block-after", "0")
        b.modem.deaf = True
        for at_id in range(8):
            assert b.daemon.ask("AT+A\r", at_id, timeout=1).code == 110
        assert b.daemon.notices.empty()


def test_a_modem_that_is_deaf_at_the_start():
    with Bench(factor=FAST) as b:
        b.modem.deaf = True
        b.start(ready=False)
        assert b.daemon.ask("AT+A\r", 1, timeout=1).code == 110
        b.modem.deaf = False
        assert b.daemon.ask("AT+A\r", 2, timeout=60).code == 0
        assert b.modem.commands[-1] == "AT+A" and b.modem.count("AT+CMEE=1") == 1


def test_a_modem_that_goes_away_and_comes_back_elsewhere():
    with Bench({"AT+SLOW": None}, factor=FAST) as b:
        b.start()
        first = os.readlink(b.port)
        b.daemon.request("AT+SLOW\r", 1)
        b.wait(lambda: b.modem.count("AT+SLOW"), "the command")
        b.modem.unplug()
        answer = b.daemon.answer()
        keep = os.openpty()                     # takes the name that has become free
        assert (answer.at_id, answer.code, answer.detail) == (1, 19, "the modem is gone")
        assert b.daemon.notices.get(timeout=30) == bus.MSG_ASSERT
        answer = b.daemon.ask("AT+A\r", 2)
        assert (answer.code, answer.detail) == (19, "no modem")
        b.modem.commands.clear()
        b.modem.plug()
        assert os.readlink(b.port) != first
        b.wait(lambda: b.trace().count("in step again") == 2, "it is in step")
        assert b.daemon.ask("AT+A\r", 3).code == 0
        assert b.modem.commands == ["ATE0", "AT+CMEE?", "AT+CMEE=1", "AT+A"]
        assert b.daemon.notices.empty()
        for fd in keep:
            os.close(fd)


def test_a_modem_that_comes_later():
    with Bench(modem=False, factor=FAST) as b:
        b.start(ready=False)
        assert b.daemon.ask("AT+A\r").code == 19
        b.modem = FakeModem(b.port)
        b.wait(lambda: "in step again" in b.trace(), "it is in step")
        assert b.daemon.ask("AT+A\r").code == 0
        assert b.log().count("waiting for the port") == 1
        assert b.daemon.notices.empty()


def test_a_pattern_finds_the_port():
    with Bench(modem=False, factor=FAST) as b:
        (b.root / "ttyA").write_text("no terminal")
        b.modem = FakeModem(b.root / "ttyB")
        b.start(port=b.root / "tty*")
        assert b.daemon.ask("AT+A\r").code == 0


@pytest.mark.parametrize("make, why", [
    (lambda path: path.write_text(""), "not a terminal"), (lambda path: path.mkdir(), "s a directory"),
    (lambda path: None, "no such device")])
def test_what_cannot_be_opened_is_told(make, why):
    with Bench(modem=False, factor=FAST) as b:
        make(b.port)
        b.start(ready=False)
        b.wait(lambda: why in b.log(), "the reason is logged")


def test_a_modem_that_starts_anew_is_set_up_anew():
    with Bench() as b:
        b.start()
        b.wait(lambda: b.modem.count("AT+CMEE=1") == 1, "the set-up")
        b.modem.say("\r\n^BOOT:0\r\n")
        b.wait(lambda: b.modem.count("AT+CMEE=1") == 2, "the second set-up")
        assert b.modem.count("ATE0") == 2
        assert b.daemon.indications.get(timeout=30) == "\r\n^BOOT:0\r\n"


# ---- other modems ----

def prompting(b, result="\r\n+CMGS: 5\r\n" + OK, prompt="\r\n> "):
    def ask(_):
        b.modem.prompted = True
        return prompt

    b.modem.answers.update({"AT+CMGS=13": ask, "0491214365\x1a": result})


@pytest.mark.parametrize("echo", [False, True])
@pytest.mark.parametrize("prompt", ["\r\n> ", "\r\n>", "\r\nRING\r\n\r\n> ", "\r\n> \r\n^BOOT\r\n"])
def test_the_send_command_is_translated(echo, prompt):
    with Bench() as b:
        b.start("--translate-send")
        b.modem.echo = echo
        prompting(b, prompt=prompt)
        answer = b.daemon.ask(SEND)
        assert (answer.text, answer.code) == ("\r\n+CMGS: 5\r\n\r\nOK\r\n", 0)


def test_the_send_command_goes_as_it_is_otherwise():
    with Bench() as b:
        b.start()
        assert b.daemon.ask(SEND).code == 0
        assert b.modem.commands[-1] == SEND[:-1]


def test_a_refusal_in_place_of_the_prompt():
    with Bench({"AT+CMGS=13": "\r\n+CMS ERROR: 304\r\n"}) as b:
        b.start("--translate-send")
        assert b.daemon.ask(SEND).code == 304
        b.modem.answers["AT+CMGS=13"] = OK      # takes no PDU, so sends none
        answer = b.daemon.ask(SEND)
        assert (answer.code, answer.detail) == (1, "no prompt")
        assert not any("0491" in command for command in b.modem.commands)


def test_a_prompt_that_leads_nowhere_is_given_up():
    with Bench(factor=FAST) as b:
        b.start("--translate-send")
        prompting(b, result=None)
        b.modem.answers["0491214365\x1a"] = None
        assert b.daemon.ask(SEND, 1, timeout=1).code == 110
        assert b.daemon.ask("AT+A\r", 2).code == 0
        assert any(command.startswith("\x1b") for command in b.modem.commands)


def test_a_prompt_that_nobody_expects_is_given_up():
    with Bench(factor=FAST) as b:
        b.start()
        prompting(b)
        assert b.daemon.ask("AT+CMGS=13\r", 1, timeout=1).code == 110
        assert b.daemon.ask("AT+A\r", 2).code == 0
        assert "\x1b" in b.modem.commands


@pytest.mark.parametrize("option, accepted, tried", [
    ("--store-first", "2,1,0,0,0", ["3,1,0,0,0", "2,1,0,0,0"]),
    ("--direct", "2,2,0,0,0", ["3,2,0,0,0", "2,2,0,0,0"]),
    ("--direct", "3,2,0,0,0", ["3,2,0,0,0"]),
    ("--store-first", None, ["3,1,0,0,0", "2,1,0,0,0", "1,1,0,0,0", "2,1"])])
def test_the_routing_that_a_modem_takes(option, accepted, tried):
    with Bench() as b:
        b.start(option)
        for setting in tried:
            b.modem.answers[f"AT+CNMI={setting}"] = OK if setting == accepted else "\r\n+CMS ERROR: 303\r\n"
        assert b.daemon.ask("AT+CNMI=3,2,0,0,0\r").code == (0 if accepted else 303)
        assert [c for c in b.modem.commands if "CNMI" in c] == [f"AT+CNMI={setting}" for setting in tried]


# ---- SIM and network ----

WATCHED = {"AT+CPIN?": "\r\n+CPIN: READY\r\n" + OK, "AT+CREG?": "\r\n+CREG: 1,1\r\n" + OK,
           "AT+CEREG?": "\r\n+CEREG: 1,1\r\n" + OK}


def test_items_are_left_alone_unless_asked():
    with Bench(WATCHED) as b:
        b.start()
        b.daemon.ask("AT\r")
        assert b.devinfo(301001) == "" and b.modem.count("AT+CPIN?") == 0


def test_items_follow_the_modem():
    with Bench(WATCHED, factor=FAST) as b:
        b.start("--set-devinfo")
        b.wait(lambda: (b.devinfo(301001), b.devinfo(301002)) == ("1", "LTE"), "ready and registered")
        b.modem.answers.update({"AT+CREG?": "\r\n+CREG: 1,2\r\n" + OK, "AT+CEREG?": "\r\n+CEREG: 1,2\r\n" + OK})
        b.wait(lambda: b.devinfo(301002) == "Unkown", "not registered")
        b.modem.answers["AT+CREG?"] = "\r\n+CREG: 1,5\r\n" + OK
        b.modem.answers["AT+CEREG?"] = "\r\nERROR\r\n"
        b.wait(lambda: b.devinfo(301002) == "registered", "registered elsewhere")
        b.modem.answers["AT+CPIN?"] = "\r\n+CME ERROR: 10\r\n"
        b.wait(lambda: (b.devinfo(301001), b.devinfo(301002)) == ("0", "Unkown"), "no SIM")
        b.modem.answers["AT+CPIN?"] = WATCHED["AT+CPIN?"]
        b.wait(lambda: b.devinfo(301001) == "1", "SIM again")
        b.modem.unplug()
        b.wait(lambda: (b.devinfo(301001), b.devinfo(301002)) == ("0", "Unkown"), "no modem")


def test_a_report_makes_it_look_at_once():
    with Bench(WATCHED) as b:                   # in real time, five seconds lie between two looks
        b.start("--set-devinfo")
        b.wait(lambda: b.devinfo(301002) == "LTE", "registered")
        b.modem.answers.update({"AT+CREG?": "\r\n+CREG: 1,0\r\n" + OK, "AT+CEREG?": "\r\n+CEREG: 1,0\r\n" + OK})
        b.modem.say("\r\n+CEREG: 0\r\n")
        b.wait(lambda: b.devinfo(301002) == "Unkown", "not registered", seconds=3)
        assert b.daemon.indications.get(timeout=30) == "\r\n+CEREG: 0\r\n"


def test_without_a_modem_there_is_no_sim():
    with Bench(modem=False) as b:
        os.makedirs(b.platform / "devinfo")
        (b.platform / "devinfo" / "301001").write_text("1")     # of an earlier life
        b.start("--set-devinfo", ready=False)
        assert (b.devinfo(301001), b.devinfo(301002)) == ("0", "Unkown")


def test_requests_come_before_questions():
    with Bench(WATCHED) as b:
        b.start("--set-devinfo")
        for at_id in range(20):
            assert b.daemon.ask("AT+A\r", at_id).at_id == at_id
        assert b.modem.count("AT+A") == 20
