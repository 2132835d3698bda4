"""The daemon comes up on a modem of any kind, and takes room from a full SIM."""

from bench import SIM_READY, Bench

FULL = "sms already full, please delete sim sms, otherwise can not recvive sms"


def test_what_a_fresh_modem_is_told():
    with Bench() as bench:
        bench.start("--cmgf", "1", "--cnmi", "0,0,0,0,0", "--storage", "ME", "--cscs", "GSM", "--smsc", "+31624000000")
        at = [command for command in bench.commands() if not command.startswith("ATE")]
        start = at.index("AT+CMGF?")
        assert at[start:] == ["AT+CMGF?", "AT+CMGF=0", "AT+CNMI?", "AT+CNMI=3,2,0,0,0",
                              "AT+CPMS?", 'AT+CPMS="SM"', "AT+CPMS?", "AT+CSCS?", 'AT+CSCS="IRA"', "AT+CSCA?"]
        assert bench.flag["SMS_CSCA"] == "+31624000000"


def test_a_restarted_daemon_only_asks():
    with Bench() as bench:
        bench.start()
        bench.modem("commands", "--clear")
        bench.restart_daemon()
        assert bench.commands() == ["AT+CMGF?", "AT+CNMI?", "AT+CPMS?", "AT+CSCS?"]


def test_the_modem_fails_for_a_while():
    with Bench() as bench:
        bench.start_modem()
        bench.modem("fail", "AT+CMGF?", "500", "--times", "5")
        bench.start_owner()
        bench.start_daemon()
        bench.wait_service()
        times = [entry["ms"] / 1000 for entry in bench.command_log("AT+CMGF?")]
        assert len(times) == 6
        gaps = [later - earlier for earlier, later in zip(times, times[1:])]
        assert all(gap > least - 0.5 for gap, least in zip(gaps, (1, 1, 1, 10, 10))), times


def test_a_full_sim_gives_one_place_up():
    with Bench() as bench:
        bench.start_modem("--capacity", "5")
        bench.modem("fill")
        bench.start_owner()
        bench.start_daemon()
        bench.wait_service()
        assert bench.store.texts("read") == ["message 1"]
        assert bench.stored() == [2, 3, 4, 5]
        assert bench.commands("AT+CMGR") == ["AT+CMGR=1"] and bench.commands("AT+CMGD") == ["AT+CMGD=1"]
        assert bench.log().count(FULL) == 1
        bench.handset("send", "--via", "cmti", "there is room")
        bench.wait_records("read", 2)
        assert bench.store.texts("read") == ["message 1", "there is room"]


def test_a_sim_full_of_parts_is_looked_through_again_and_again():
    with Bench() as bench:
        bench.start()
        for sequence in (1, 2):
            bench.handset("part", "--via", "cmti", "7", "9", sequence, f"part {sequence}")
        bench.wait(lambda: bench.stored() == [1, 2], "two parts on the SIM")
        bench.wait_trace("message not receive", 2)
        bench.modem("fill", "--with", "whole")
        bench.daemon.stop()
        bench.modem("commands", "--clear")
        bench.restart_daemon()
        assert bench.commands("AT+CMGR") == ["AT+CMGR=1", "AT+CMGR=2", "AT+CMGR=3"]
        assert bench.store.texts("read") == ["whole"]
        assert 3 not in bench.stored() and bench.stored()[:2] == [1, 2]


def test_a_sim_that_nothing_can_be_taken_from_keeps_the_daemon_trying():
    with Bench() as bench:
        bench.start_modem("--capacity", "2")
        bench.modem("fill")
        bench.modem("fail", "AT+CMGD", "500")
        bench.start_owner()
        bench.start_daemon()
        bench.wait_trace("can't take sms by cmti ret: 0", 2)
        assert bench.stored() == [1, 2]
        bench.modem("fail", "--clear")
        bench.wait_service()
        assert len(bench.stored()) == 1


def test_an_absent_sim_is_waited_for():
    with Bench() as bench:
        bench.devinfo[SIM_READY] = "0"
        bench.start_modem()
        bench.start_owner()
        bench.start_daemon()
        bench.wait_sleeps(bench.daemon, 10)
        assert [command for command in bench.commands() if "CMGF" in command] == []
        bench.devinfo[SIM_READY] = "1"
        bench.wait_service()
