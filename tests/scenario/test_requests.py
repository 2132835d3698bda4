"""Requests from other programs: the two flags, the service switch, the send queue's limit."""

import re

import bus
from bench import SIM_READY, Bench

LAST, CODE = "DV_SMS_MGR_LAST_RECEIVED_MSG", "DV_SMS_MGR_LAST_ERR_CODE"
WAIT_LAST = "flag already exist,wait for DV_SMS_MGR_LAST_RECEIVED_MSG flag clear.."
WAIT_CODE = "flag already exist (500),wait for DV_SMS_MGR_LAST_ERR_CODE flag clear.."
SWITCHED_OFF = "sms function close or sim not exsit, please check it"
TOO_MANY = "there are too much msgs, just stop push queue"


def sent(fake):
    return [text for text in fake.texts() if text.startswith("AT+DORVYSMS=")]


def test_the_command_that_sends():
    with Bench() as bench:
        bench.flag["SMS_CSCA"] = "+123456"
        fake = bench.start_with_fake()
        assert bench.send("12345", "hi") == 0
        assert sent(fake) == ["AT+DORVYSMS=13,0491214365110105812143F500000802E834\x1a\r"]
        record, = bench.wait_records("send", 1)
        assert (record.number, record.state, record.phone, record.text) == (1, 1, "12345", "hi")
        assert re.fullmatch(r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d", record.date)
        assert bench.store.index("send") == " 1 "
        assert bench.send("12345", "hi") == 0
        assert sent(fake)[1] == "AT+DORVYSMS=13,0491214365110205812143F500000802E834\x1a\r"


def test_a_refusal_by_the_modem_is_reported_and_filed():
    with Bench() as bench:
        fake = bench.start_with_fake()
        bench.fake.answers.clear()
        for number, (answer, said) in enumerate([
                (("\r\n+CMS ERROR: 331\r\n", 331), "send pdu at failed, return"),
                ("\r\nERROR\r\n", "recv pdu at failed:"),
                (None, "send pdu at failed, return")], 1):
            commands = len(sent(fake))
            fake.answers = Answer(answer)
            assert bench.send("12345", f"text {number}") == 500
            bench.wait_records("send", number)
            assert len(sent(fake)) == commands + 1
            assert said in bench.log()
        assert [(record.state, record.text) for record in bench.store.records("send")] == [
            (0, "text 1"), (0, "text 2"), (0, "text 3")]
        assert bench.log().count("dv_sms_mgr_send_sms: send sms failed, return") == 3


class Answer:
    """Answers every command alike."""

    def __init__(self, answer):
        self.answer = answer

    def get(self, text, default):
        return self.answer


def test_a_failing_second_part_fails_the_message():
    with Bench() as bench:
        fake = bench.start_with_fake()
        answers = iter(["\r\nOK\r\n", ("\r\n+CMS ERROR: 500\r\n", 500)])
        fake.answers = Answer(lambda command: next(answers))
        assert bench.send("12345", "a" * 400) == 500
        bench.wait_records("send", 1)
        assert len(sent(fake)) == 2
        assert bench.store.records("send")[0].state == 0


def test_what_cannot_be_sent_asks_the_modem_nothing():
    with Bench() as bench:
        fake = bench.start_with_fake()
        asked = len(fake.commands)
        assert bench.send("", "text") == 500
        bench.wait_log("phone()  send_data(text) is error, can not send!")
        assert bench.send("12345", "") == 500
        bench.wait_log("phone(12345)  send_data() is error, can not send!")
        bench.wait_log("sms msg size is 0, can not write to file")
        for state in ("", "Unkown"):
            bench.devinfo[301002] = state
            assert bench.send("12345", "text") == 500
        bench.wait_log("dv_sms_mgr_check_send_sms: sim state is error, please check!", count=2)
        assert len(fake.commands) == asked
        assert [(record.phone, record.text) for record in bench.store.records("send")[1:]] == [("12345", "text")] * 2
        assert [record.state for record in bench.store.records("send")] == [0] * 3


def test_an_unknown_service_centre_is_asked_for_each_time():
    with Bench() as bench:
        fake = bench.start_with_fake({"AT+CSCA?": '\r\n+CSCA: "",129\r\n\r\nOK\r\n'})
        fake.answers["AT+CSCA?"] = '\r\n+CSCA: "+123456",145\r\n\r\nOK\r\n'
        for _ in range(2):
            assert bench.send("12345", "hi") == 0
        assert [text[:8] for text in fake.texts()[5:]] == ["AT+CSCA?", "AT+DORVY"] * 2
        assert sent(fake)[0] == "AT+DORVYSMS=13,0491214365110105812143F500000802E834\x1a\r"
        assert bench.flag["SMS_CSCA"] == ""
        fake.answers["AT+CSCA?"] = "\r\nERROR\r\n"
        assert bench.send("12345", "hi") == 0
        assert sent(fake)[2].split(",")[1].startswith("0181110305")
        fake.answers["AT+CSCA?"] = ("\r\n+CME ERROR: 10\r\n", 10)
        assert bench.send("12345", "hi") == 500
        bench.wait_log("check smsc failed, return")
        assert len(sent(fake)) == 3


def test_an_internal_request_sets_no_code():
    with Bench() as bench:
        bench.start_with_fake()
        bench.request(bus.MSG_SEND, bus.pack_message("12345", "inside"), sender=0)
        bench.wait_records("send", 1)
        assert bench.flag[CODE] == ""
        bench.request(bus.MSG_SEND, bus.pack_message("12345", "outside"), sender=0, extra=1)
        bench.wait_records("send", 2)
        assert bench.flag[CODE] == "0"


def test_flags_that_nobody_clears_are_overwritten():
    with Bench() as bench:
        bench.start_with_fake()
        bench.flag[LAST] = "3,1"
        bench.flag[CODE] = "500"
        bench.request(bus.MSG_DRAFT, bus.pack_message("12345", "draft"))
        bench.wait_trace(WAIT_LAST)
        assert bench.flag[LAST] == "3,1"
        bench.wait(lambda: bench.flag[LAST] == f"50,{0x5507}", "the last message is overwritten")
        assert bench.trace().count(WAIT_LAST) == 3
        bench.wait(lambda: bench.flag[CODE] == "0", "the code is overwritten")
        assert bench.trace().count(WAIT_CODE) == 3


def test_flags_that_are_cleared_meanwhile_are_written():
    with Bench(factor=5) as bench:
        bench.start_with_fake()
        bench.flag[LAST] = "3,1"
        bench.request(bus.MSG_DRAFT, bus.pack_message("12345", "draft"))
        bench.wait_trace(WAIT_LAST)
        bench.flag[LAST] = ""
        bench.wait(lambda: bench.flag[LAST] == f"50,{0x5507}", "the last message is written")
        bench.wait(lambda: bench.flag[CODE] == "0", "the code is written")
        assert bench.trace().count(WAIT_LAST) == 1
        bench.flag[CODE] = ""
        bench.request(bus.MSG_DRAFT, bus.pack_message("12345", "draft"))
        bench.wait(lambda: bench.flag[CODE] == "0", "the code is written")
        assert bench.trace().count(WAIT_LAST) == 1          # the same value counts as taken


def test_notices_leave_the_flags_alone():
    with Bench() as bench:
        bench.start_with_fake()
        for message in (bus.MSG_NOTICE, 0x8002):
            bench.request(message, b"0")
        bench.wait_log("flow notice switch is closed, please check it!", count=2)
        assert bench.flag[LAST] == "" and bench.flag[CODE] == ""


def test_a_switched_off_service_takes_no_message():
    with Bench() as bench:
        fake = bench.start_with_fake()
        asked = len(fake.commands)
        bench.cfg["SYS_SMS_SW"] = "0"
        bench.wait_log(SWITCHED_OFF)
        bench.request(bus.MSG_SEND, bus.pack_message("12345", "lost"))
        fake.indicate('\r\n+CMTI: "SM",3\r\n')
        assert bench.draft("12345", "kept") == 0            # taken, and behind the other two
        assert bench.flag[LAST] == ""
        bench.wait_sleeps(bench.daemon, 1)
        assert bench.log().count(SWITCHED_OFF) == 1
        assert "lost" not in bench.log()
        bench.cfg["SYS_SMS_SW"] = ""
        assert not bench.service_is_on()
        bench.cfg["SYS_SMS_SW"] = "1"
        bench.wait_service()
        assert bench.send("12345", "after") == 0
        bench.wait_records("send", 1)
        assert bench.store.texts("send") == ["after"] and bench.store.texts("draft") == ["kept"]
        assert [text for text in fake.texts()[asked:] if "DORVY" not in text] == []


def test_the_sim_comes_and_goes():
    with Bench() as bench:
        bench.start_with_fake()
        for count in (1, 2):
            bench.devinfo[SIM_READY] = "0"
            bench.wait_log(SWITCHED_OFF, count)
            assert not bench.service_is_on()
            bench.devinfo[SIM_READY] = "1"
            bench.wait_service()
            bench.devinfo[SIM_READY] = ""                   # neither on nor off: as it was
            assert bench.service_is_on()
        assert bench.log().count(SWITCHED_OFF) == 2


def test_sixty_one_requests_wait():
    with Bench() as bench:
        fake = bench.start_with_fake()
        fake.answers = Answer(None)
        for number in range(62):                            # the first is being sent
            bench.request(bus.MSG_SEND, bus.pack_message("12345", f"text {number}"), sender=0)
            if number == 0:
                bench.wait(lambda: sent(fake), "the first is given to the modem")
            bench.wait_trace("join succ", number + 1)
        assert TOO_MANY not in bench.log()
        bench.request(bus.MSG_SEND, bus.pack_message("12345", "one too many"), sender=0)
        bench.wait_log(TOO_MANY)
        assert bench.trace().count("join succ") == 62
        fake.answers = Answer("\r\nOK\r\n")
        bench.wait_records("send", 62, seconds=60)
        assert bench.store.texts("send") == [f"text {number}" for number in range(62)]
