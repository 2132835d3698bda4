"""The one path to the modem: answers that are late, strange or missing, and whatever else arrives on the bus."""

import os
import random

import bus
from bench import Bench
from bus import FakeOwner

# "hi" from +31612345678, 2024/03/05 14:07:00
PDU = "0004" "0B91" "1316325476F8" "0000" "42305041700002" "02E834"
FROM_SERVICE_CENTRE = "0791" "1326040000F0" "04" + PDU[4:]
READ = {"AT+CMGR=3": f"\r\n+CMGR: 1,,22\r\n{FROM_SERVICE_CENTRE}\r\n\r\nOK\r\n"}


def test_fifteen_silences_are_reported_once():
    with Bench(factor=200) as bench:
        fake = bench.start_fake_owner({"AT+CMGF?": None})
        bench.cfg["SYS_REBOOT_WHEN_MODEM_UNORMAL"] = "0"
        bench.start_daemon()
        said = "<<<<< System not allow reboot when modem unormal. <<<<<"
        bench.wait_trace(said)
        assert len(fake.commands) == 15
        bench.wait(lambda: len(fake.commands) >= 18, "three more tries")
        assert bench.trace().count(said) == 1
        assert set(fake.texts()) == {"AT+CMGF?\r"}
        assert bench.log().count("send at+cmgf? error") == 4


def test_the_report_pauses_where_a_reboot_is_allowed():
    with Bench(factor=100) as bench:
        fake = bench.start_fake_owner({"AT+CMGF?": None})
        bench.cfg["SYS_REBOOT_WHEN_MODEM_UNORMAL"] = "1"
        bench.start_daemon()
        said = "<<<<< System allow reboot when modem unormal, do it soon. <<<<<"
        bench.wait_trace(said)
        assert len(fake.commands) == 15
        bench.wait(lambda: len(fake.commands) >= 17, "two more tries")
        gaps = [(b.when - a.when) * bench.factor for a, b in zip(fake.commands[13:], fake.commands[14:])]
        assert gaps[0] > 23                     # 18 s of waiting and ten of retrying, give or take a busy machine
        assert gaps[1] > 33                     # and ten more of pause
        assert bench.trace().count(said) == 1


def test_an_answer_ends_the_count():
    silences = [14]

    def answer(command):
        silences[0] -= 1
        return "\r\nERROR\r\n" if silences[0] == 0 else None

    with Bench(factor=200) as bench:
        fake = bench.start_fake_owner({"AT+CMGF?": answer})
        bench.start_daemon()
        bench.wait(lambda: len(fake.commands) >= 17, "more than fifteen tries")
        assert "reboot" not in bench.trace()


def test_a_late_answer_is_no_answer():
    with Bench() as bench:
        fake = bench.start_fake_owner({**FakeOwner.READY, "AT+CMGF?": None})
        bench.start_daemon()
        bench.wait_trace("send at+cmgf? error", count=4)            # ten seconds without a request follow
        fake.respond(fake.commands[-1].at_id, "\r\n+CMGF: 1\r\n\r\nOK\r\n")
        bench.wait_trace("recv msg(0x1017)")
        assert len(fake.commands) == 4
        fake.answers["AT+CMGF?"] = FakeOwner.READY["AT+CMGF?"]
        bench.wait_service()
        assert fake.texts()[:6] == ["AT+CMGF?\r"] * 5 + ["AT+CNMI?\r"]


def test_an_answer_with_another_number_ends_the_request_with_nothing():
    strays = [1]

    def stray(command):
        if strays[0] == 0:
            return FakeOwner.READY["AT+CMGF?"]
        strays[0] -= 1
        bench.fake.respond(command.at_id + 1, "\r\n+CMGF: 0\r\n\r\nOK\r\n")
        return None

    with Bench() as bench:
        fake = bench.start_with_fake({"AT+CMGF?": stray})
        assert "[sms_mgr] get at_respone at_id not same as request! , cmd: AT+CMGF?" in bench.trace()
        assert bench.log().count("inquire cmgf failed") == 1
        assert fake.texts()[:3] == ["AT+CMGF?\r"] * 2 + ["AT+CNMI?\r"]


def test_an_error_number_comes_back_as_it_is():
    with Bench() as bench:
        fake = bench.start_with_fake()
        fake.answers["AT+CMGR=3"] = ("\r\n+CMS ERROR: 321\r\n", 321, "invalid memory index")
        fake.indicate('\r\n+CMTI: "SM",3\r\n')
        bench.wait_trace("[sms_mgr] send at error! code:321, error detail:invalid memory index")


def test_answers_of_any_length_and_content():
    """Each is an answer to a read that names no message; none may leave anything behind."""
    random.seed(7)
    noise = "".join(chr(random.randrange(1, 256)) for _ in range(bus.AT_RESPONSE.size - 116))
    long = "\r\n+CMGR: 1,,22\r\n" + "0" * 3964
    answers = ["", "\r\n", "OK", noise, long, "\r\nOK\r\n", "\r\n+CMGR:\r\n\r\nOK\r\n", "\r\n+CMGR: 1,,22\r\nzz\r\n\r\nOK\r\n",
               "\r\n+CMGR: 1,,22\r\n" + FROM_SERVICE_CENTRE[:20] + "\r\n\r\nOK\r\n"]
    with Bench() as bench:
        fake = bench.start_with_fake()
        for number, answer in enumerate(answers):
            fake.answers[f"AT+CMGR={number + 100}"] = answer
            fake.indicate(f'\r\n+CMTI: "SM",{number + 100}\r\n')
        fake.answers.update(READ)
        fake.indicate('\r\n+CMTI: "SM",3\r\n')
        bench.wait(lambda: "hi" in bench.store.texts("read"), "the good message behind them")
        wanted = [f"AT+CMGR={number + 100}\r" for number in range(len(answers))] + ["AT+CMGR=3\r"]
        assert [text for text in fake.texts() if "CMGR" in text] == wanted


def test_indications_of_any_content():
    random.seed(11)
    noise = "".join(chr(random.randrange(256)) for _ in range(4084))
    digits = "0123456789ABCDEF"
    garbled = ["07" + "".join(random.choice(digits) for _ in range(random.randrange(600))) for _ in range(12)]
    with Bench() as bench:
        fake = bench.start_with_fake()
        fake.indicate('\r\n+CMTI: "SM",9\r\n', magic=0xABCE)
        fake.indicate("\r\n+CMTI: nothing\r\n")
        fake.indicate("\r\n+CMT: ,22\r\n" + "A" * 4070)
        fake.indicate("\r\n+CMT: ,300\r\n07" + "0" * 600 + "\r\n")
        fake.indicate("\r\n+CMT: ,22\r\nXX" + PDU + "\r\n")
        fake.indicate("\r\n+CREG: 1\r\n")
        fake.indicate(noise)
        fake.indicate("A" * 4084)
        fake.indicate("\r\n+CMT:")
        for pdu in garbled:
            fake.indicate(f"\r\n+CMT: ,{len(pdu) // 2}\r\n{pdu}\r\n")
        fake.indicate(f"\r\n+CMT: ,22\r\n{FROM_SERVICE_CENTRE}\r\n")
        bench.wait(lambda: "hi" in bench.store.texts("read"), "the good message behind them", 60)
        for text in ("recv atind magic num error!", "decode +CMTI, error!", "decode +CMT, error!", "not pdu data",
                     "Didn't match any Func, default ignore it:\\r\\n+CREG: 1\\r\\n"):
            assert text in bench.trace(), text
        assert "dv_sms_mgr_cmti_handler: decode +CMTI, error!" in bench.log()
        assert "dv_sms_mgr_t750_cmt_handler: decode +CMT, error!" in bench.log()
        assert "not pdu data: XX" in bench.log()
        assert not any("CMGR" in text for text in fake.texts())


def test_records_of_any_size_and_kind():
    with Bench() as bench:
        fake = bench.start_with_fake()
        for data in (b"x", os.urandom(4115), os.urandom(4117)):
            bus.send(bench.bus, bus.SMS_MGR, data)
        bench.wait_log("a datagram of ", count=3)
        random.seed(5)
        for message in (0, 0x5508, 0x1011, 0xFFFFFFFF):
            bench.request(message, random.randbytes(4096))
            bench.wait_trace(f"recv msg(0x{message:04X})")
        for message in (0x4000, 0x4001):
            bench.request(message)
        bench.wait_log("dv_sms_mgr_handler: at assert or at block", count=2)
        fake.answers.update(READ)
        fake.indicate('\r\n+CMTI: "SM",3\r\n')
        bench.wait_records("read", 1)
