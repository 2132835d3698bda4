"""How the daemon brings the modem's message service up: which commands, in which order, how often."""

import pytest

from bench import SIM_READY, Bench
from bus import FakeOwner

QUERIES = ["AT+CMGF?\r", "AT+CNMI?\r", "AT+CPMS?\r", "AT+CSCS?\r", "AT+CSCA?\r"]


def start(bench, answers=None):
    fake = bench.start_fake_owner(answers)
    bench.start_daemon()
    return fake


def test_a_modem_that_is_set_is_only_asked():
    with Bench() as bench:
        fake = start(bench)
        bench.wait_service()
        assert fake.texts() == QUERIES
        assert bench.flag["SMS_CSCA"] == "+8613800100500"
        for command in fake.commands:
            assert (command.magic, command.timeout, command.length) == (0xABCD, 15, 4100)
            assert command.terminated and 0 <= command.at_id <= 59998
            assert command.sender == 27


def test_what_differs_is_set():
    answers = dict(FakeOwner.READY)
    answers["AT+CMGF?"] = "\r\n+CMGF: 1\r\n\r\nOK\r\n"
    answers["AT+CNMI?"] = "\r\n+CNMI: 2,1,0,0,0\r\n\r\nOK\r\n"
    answers["AT+CSCS?"] = '\r\n+CSCS: "GSM"\r\n\r\nOK\r\n'
    storage = iter(['"ME",0,20', '"SM",0,20'])
    answers["AT+CPMS?"] = lambda command: f"\r\n+CPMS: {next(storage)}\r\n\r\nOK\r\n"
    with Bench() as bench:
        fake = start(bench, answers)
        bench.wait_service()
        assert fake.texts() == [
            "AT+CMGF?\r", "AT+CMGF=0\r",
            "AT+CNMI?\r", "AT+CNMI=3,2,0,0,0\r",
            "AT+CPMS?\r", 'AT+CPMS="SM"\r', "AT+CPMS?\r",
            "AT+CSCS?\r", 'AT+CSCS="IRA"\r',
            "AT+CSCA?\r",
        ]
        for text in ("init_at_cmgf succ!", "init_at_cnmi succ!", "init_sim_cpms succ!", "init_sim_csca succ!"):
            assert text in bench.trace() and text not in bench.log()


def test_a_known_service_centre_is_not_asked_for():
    with Bench() as bench:
        bench.flag["SMS_CSCA"] = "+31624000000"
        fake = start(bench)
        bench.wait_service()
        assert fake.texts() == QUERIES[:-1]
        assert bench.flag["SMS_CSCA"] == "+31624000000"


def test_no_command_before_the_sim_is_ready():
    with Bench() as bench:
        bench.devinfo[SIM_READY] = "0"
        fake = start(bench)
        bench.wait_sleeps(bench.daemon, 20)
        assert fake.texts() == []
        bench.devinfo[SIM_READY] = "1"
        bench.wait_service()
        assert fake.texts() == QUERIES


def test_a_failing_step_is_tried_four_times_and_then_every_ten_seconds():
    answers = dict(FakeOwner.READY)
    answers["AT+CMGF?"] = ("\r\n+CMS ERROR: 500\r\n", 500)
    with Bench(factor=5) as bench:
        fake = start(bench, answers)
        bench.wait(lambda: len(fake.commands) >= 7, "seven tries")
        answers_now = fake.answers
        answers_now["AT+CMGF?"] = FakeOwner.READY["AT+CMGF?"]
        first = fake.commands[0].when
        tries = [(command.when - first) * bench.factor for command in fake.commands[:7]]
        for seen, least in zip(tries, (0, 1, 2, 3, 14, 24, 34)):
            assert seen > least - 3, tries      # one may be seen late
        bench.wait_log("dv_sms_mgr init complete")
        assert fake.texts() == ["AT+CMGF?\r"] * 8 + QUERIES[1:]
        stop = "sms init_list[0] send at fail 4 times. From then on, send at command every 10 seconds"
        for place in (bench.log(), bench.trace()):
            assert place.count(stop) == 1
            assert place.count("send at+cmgf? error") == 4
        assert "[sms_mgr] send at error! code:500" in bench.trace()


def test_each_step_has_its_own_count():
    answers = dict(FakeOwner.READY)
    failures = {"AT+CMGF?": 2, "AT+CNMI?": 3, "AT+CSCS?": 3}

    def answer(command):
        name = command.text.rstrip("\r")
        if failures[name] == 0:
            return FakeOwner.READY[name]
        failures[name] -= 1
        return "\r\nERROR\r\n"                  # comes as a success, but says no OK

    answers.update(dict.fromkeys(failures, answer))
    with Bench() as bench:
        fake = start(bench, answers)
        bench.wait_service()
        assert fake.texts() == (["AT+CMGF?\r"] * 3 + ["AT+CNMI?\r"] * 4 + ["AT+CPMS?\r"] + ["AT+CSCS?\r"] * 4 +
                                ["AT+CSCA?\r"])
        assert "From then on" not in bench.log()
        assert bench.log().count("init_at_cmgf: inquire cmgf failed") == 2
        assert bench.log().count("init_at_cnmi: inquire cnmi failed") == 3
        assert bench.log().count("init_sim_csca: inquire cscs failed") == 3


def test_a_storage_that_cannot_be_chosen_is_given_up_and_tried_again():
    answers = dict(FakeOwner.READY)
    answers["AT+CPMS?"] = '\r\n+CPMS: "ME",0,20,"ME",0,20,"ME",0,20\r\n\r\nOK\r\n'
    with Bench() as bench:
        fake = start(bench, answers)
        bench.wait_log("init_sim_cpms failed 3 times, just give up", count=2)
        attempt = ["AT+CPMS?\r"] + ['AT+CPMS="SM"\r', "AT+CPMS?\r"] * 3
        assert fake.texts()[2:16] == attempt * 2


@pytest.mark.parametrize("answer, number", [
    ('\r\n+CSCA: "+8613800100500",145\r\n\r\nOK\r\n', "+8613800100500"),
    ("\r\n+CSCA: \r\n\r\nOK\r\n", ""),
    ('\r\n+CSCA: "+12345\r\n\r\nOK\r\n', ""),
    ('\r\n+CSCA: "",129\r\n\r\nOK\r\n', ""),
    ('\r\n+CSCA: "+12345678901234567890",145\r\n\r\nOK\r\n', "+12345678901234"),
])
def test_the_service_centre_is_kept(answer, number):
    with Bench() as bench:
        start(bench, {**FakeOwner.READY, "AT+CSCA?": answer})
        bench.wait_service()
        assert bench.flag["SMS_CSCA"] == number
