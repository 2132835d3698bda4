"""Requests of other programs, their answers, and what the modem says unasked."""

import queue
import subprocess
import threading

import pytest

from fake_modem import BUILD, OK, Bench, bus

PDU = "0791316200000000040B911316325476F80000"


def test_answers_come_as_the_modem_sent_them():
    with Bench({"AT+CMGF?": "\r\n+CMGF: 0\r\n" + OK}) as b:
        b.start()
        answer = b.daemon.ask("AT+CMGF?\r", at_id=59998)
        assert (answer.text, answer.code, answer.detail) == ("\r\n+CMGF: 0\r\n\r\nOK\r\n", 0, "OK")


@pytest.mark.parametrize("line, code", [
    ("ERROR", 1), ("+CMS ERROR: 321", 321), ("+CME ERROR: 10", 10), ("+CME ERROR: SIM not inserted", 10),
    ("+CMS ERROR: memory full", 322), ("NO CARRIER", 1), ("COMMAND NOT SUPPORT", 1)])
def test_errors(line, code):
    with Bench({"AT+X": f"\r\n{line}\r\n"}) as b:
        b.start()
        answer = b.daemon.ask("AT+X\r")
        assert (answer.text, answer.code, answer.detail) == (f"\r\n{line}\r\n", code, line)


def test_the_port_is_set_up_at_opening():
    with Bench() as b:
        b.start("--init", "AT+ONE", "--init", "AT+TWO")
        b.wait(lambda: b.modem.count("AT+TWO"), "the last command of the set-up")
        assert b.modem.commands == ["ATE0", "AT+CMEE?", "AT+CMEE=1", "AT+ONE", "AT+TWO"]


def test_errors_are_left_as_they_are():
    with Bench() as b:
        b.start("--no-cmee")
        b.daemon.ask("AT\r")
        assert b.modem.commands == ["ATE0", "AT+CMEE?", "AT"]


def test_an_echo_is_taken_out_also_when_it_stays_on():
    with Bench({"ATE0": "\r\nERROR\r\n", "AT+CMGF?": "\r\n+CMGF: 0\r\n" + OK}) as b:
        b.modem.echo = True
        b.start()
        assert b.daemon.ask("AT+CMGF?\r").text == "\r\n+CMGF: 0\r\n\r\nOK\r\n"
        assert b.modem.count("ATE0") == 3       # it tried


def test_half_a_line_of_an_earlier_owner():
    answers = iter(["\r\nERROR\r\n"])           # to "garbageATE0"
    with Bench({"ATE0": lambda _: next(answers, OK)}) as b:
        b.start()
        assert b.daemon.ask("AT\r").text == OK
        assert b.modem.count("ATE0") == 2


def test_one_at_a_time_in_order():
    release = threading.Event()

    def slow(_):
        release.wait(10)
        return OK

    with Bench({"AT+SLOW": slow}) as b:
        other = b.join(50)
        b.start()
        b.daemon.request("AT+SLOW\r", 1)
        b.wait(lambda: b.modem.count("AT+SLOW"), "the first command")
        b.daemon.request("AT+A\r", 2)
        other.request("AT+B\r", 3)
        b.daemon.request("AT+C\r", 4)
        with pytest.raises(queue.Empty):
            b.daemon.answer(0.1)
        assert b.modem.commands[-1] == "AT+SLOW"
        release.set()
        assert [b.daemon.answer().at_id for _ in range(3)] == [1, 2, 4]
        assert other.answer().at_id == 3
        assert b.modem.commands[-4:] == ["AT+SLOW", "AT+A", "AT+B", "AT+C"]


def test_unsolicited_lines_in_the_middle_of_an_answer():
    whole = (f'\r\n^RSSI: 21\r\n\r\n+CMGR: 0,,27\r\n\r\n+CMT: ,27\r\n{PDU}AA\r\n{PDU}BB\r\n'
             f'\r\n+CMTI: "SM",7\r\n\r\nOK\r\n')
    with Bench({"AT+CMGR=1": whole}) as b:
        b.start()
        answer = b.daemon.ask("AT+CMGR=1\r")
        assert answer.text == f"\r\n+CMGR: 0,,27\r\n{PDU}BB\r\n\r\nOK\r\n"
        assert [b.daemon.indications.get(timeout=30) for _ in range(3)] == [
            "\r\n^RSSI: 21\r\n", f"\r\n+CMT: ,27\r\n{PDU}AA\r\n", '\r\n+CMTI: "SM",7\r\n']


def test_unsolicited_lines_when_nothing_is_asked():
    with Bench() as b:
        second = b.join(51)
        b.start("--notify", "27", "--notify", "51")
        b.modem.say(f'\r\n+CMTI: "SM",3\r\n\r\n+CMT: ,27\r\n{PDU}\r\n')
        for module in (b.daemon, second):
            assert module.indications.get(timeout=30) == '\r\n+CMTI: "SM",3\r\n'
            assert module.indications.get(timeout=30) == f"\r\n+CMT: ,27\r\n{PDU}\r\n"


def test_a_module_that_is_not_there_is_no_trouble():
    with Bench() as b:
        b.start("--notify", "52")
        b.modem.say("\r\nRING\r\n")
        b.wait(lambda: "record 0x1010 does not reach module 52" in b.log(), "the log says so")
        assert b.daemon.ask("AT\r").text == OK
        assert b.daemon.indications.empty()


def test_noise_does_no_harm():
    noise = bytes(range(256)) * 40
    with Bench({"AT+CMGF?": "\r\n+CMGF: 0\r\n" + OK}) as b:
        b.start()
        b.modem.say(noise + b"\r\n")
        b.modem.say(b"x" * 5000 + b"\r\n")
        b.modem.say('\r\n+CMTI: "SM",3\r\n')
        b.wait(lambda: "more than 4096 bytes" in b.log(), "the long line is mentioned")
        assert b.daemon.ask("AT+CMGF?\r").text == "\r\n+CMGF: 0\r\n\r\nOK\r\n"
        lines = []
        while not b.daemon.indications.empty():
            lines.append(b.daemon.indications.get())
        assert lines[-1] == '\r\n+CMTI: "SM",3\r\n'


def test_a_long_answer_is_cut_and_its_result_kept():
    listing = "".join(f"\r\n+CMGL: {n},1,,160\r\n{'A' * 320}\r\n" for n in range(40))
    with Bench({"AT+CMGL=4": listing + OK, "AT+CMGL=3": listing + "\r\n+CMS ERROR: 320\r\n"}) as b:
        b.start()
        answer = b.daemon.ask("AT+CMGL=4\r")
        assert answer.text == listing[:3979] and (answer.code, answer.detail) == (0, "OK")
        answer = b.daemon.ask("AT+CMGL=3\r")
        assert answer.text == listing[:3979] and (answer.code, answer.detail) == (320, "+CMS ERROR: 320")


@pytest.mark.parametrize("text, why", [
    ("AT+CMGF?", "command without its end"), ("\r", "empty command"), ("", "empty command"),
    ("AT+CMGD=1\rAT+CMGD=2\r", "more than one line"), ("AT\nAT\r", "more than one line"),
    ("AT\r\r", "more than one line")])
def test_what_is_no_command_line_is_refused(text, why):
    with Bench() as b:
        b.start()
        before = list(b.modem.commands)
        answer = b.daemon.ask(text)
        assert (answer.code, answer.detail, answer.text) == (1, why, "")
        assert [c for c in b.modem.commands[len(before):] if c != "AT+CMEE=1"] == []


def test_a_length_that_lies():
    with Bench() as b:
        b.start()
        assert b.daemon.ask("AT+A\r", length=0xFFFFFFFF).text == OK
        assert b.daemon.ask("AT+B\r", length=0).text == OK
        assert b.modem.commands[-2:] == ["AT+A", "AT+B"]


def test_records_that_are_no_requests():
    with Bench() as b:
        b.start()
        b.daemon.request("AT+NEVER\r", magic=0x1234)
        bus.send(b.bus, bus.AT_OWNER, bus.pack_record(0x5500, b"AT+NEVER\r"))
        bus.send(b.bus, bus.AT_OWNER, b"short")
        assert b.daemon.ask("AT+A\r").text == OK
        assert "AT+NEVER" not in b.modem.commands
        assert "without its marker" in b.log()


def test_a_text_that_fills_its_field():
    command = "AT+X=" + "y" * (4079 - 6) + "\r"
    with Bench() as b:
        b.start()
        assert b.daemon.ask(command).text == OK
        assert b.modem.commands[-1] == command[:-1]


def test_too_many_requests_wait():
    release = threading.Event()

    def slow(_):
        release.wait(10)
        return OK

    with Bench({"AT+SLOW": slow}) as b:
        b.start()
        b.daemon.request("AT+SLOW\r", 0)
        b.wait(lambda: b.modem.count("AT+SLOW"), "the first command")
        for at_id in range(1, 66):
            b.daemon.request("AT\r", at_id)
        refused = b.daemon.answer()
        assert (refused.at_id, refused.code) == (65, 105)
        release.set()
        assert [b.daemon.answer().at_id for _ in range(65)] == list(range(65))


def test_the_traffic_is_traced():
    with Bench({"AT+CMGF?": "\r\n+CMGF: 0\r\n" + OK}) as b:
        b.start()
        b.daemon.ask("AT+CMGF?\r")
        b.modem.say('\r\n+CMTI: "SM",3\r\n\r\nOK\r\n')
        b.wait(lambda: "Z ? \\r\\nOK\\r\\n\n" in b.trace(), "the stray result is traced")
        items = [line.split(" ", 1)[1] for line in b.trace().splitlines()]
        assert items[-4:] == ["> AT+CMGF?\\r", "< \\r\\n+CMGF: 0\\r\\n\\r\\nOK\\r\\n",
                              '! \\r\\n+CMTI: "SM",3\\r\\n', "? \\r\\nOK\\r\\n"]


def test_a_second_owner_is_refused():
    with Bench() as b:
        b.start()
        done = subprocess.run([BUILD / "bin" / "at_owner", "--port", b.port], env=b.environment(),
                              capture_output=True, text=True, timeout=20)
        assert done.returncode == 1 and "another process is that module" in done.stderr and done.stdout == ""


@pytest.mark.parametrize("number", [15, 2])
def test_it_ends_at_once_when_told(number):
    with Bench({"AT+SLOW": None}) as b:
        process = b.start()
        b.daemon.request("AT+SLOW\r", 7)
        b.wait(lambda: b.modem.count("AT+SLOW"), "the command")
        assert process.stop(number) == 0
        answer = b.daemon.answer()
        assert (answer.at_id, answer.code) == (7, 19)


@pytest.mark.parametrize("arguments, code", [
    ([], 2), (["--port", "x", "--baud", "12345"], 2), (["--port", "x", "--flow", "up"], 2),
    (["--port", "x", "--direct", "--store-first"], 2), (["--port", "x", "--notify", "0"], 2),
    (["--port", "x", "--trace", "/nowhere/at/all"], 1), (["--help"], 0), (["--version"], 0)])
def test_command_line(arguments, code):
    with Bench(modem=False) as b:
        done = subprocess.run([BUILD / "bin" / "at_owner", *arguments], env=b.environment(), capture_output=True,
                              text=True, timeout=20)
        assert done.returncode == code
        assert bool(done.stdout) == (code == 0) and bool(done.stderr) == (code != 0)
