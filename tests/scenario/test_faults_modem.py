"""The modem fails in every way there is; when it stops doing so, the daemon works on as before."""

import threading

import pytest

from bench import Bench
from recovery import relieve, survived

PEER = "+31687654321"


@pytest.fixture(scope="module")
def router():
    """One router for all: what a fault leaves behind would show in the next test."""
    with Bench() as bench:
        bench.cfg["SYS_SMS_MAX_SAVE_SIZE"] = "1000"
        bench.start()
        yield bench


def traffic(bench, tag, outcomes=(0, 500)):
    """A message each way while the fault lasts; how it ends is the fault's business."""
    bench.handset("send", "--via", "cmti", f"during {tag}")
    bench.handset("send", "--via", "cmt", f"during {tag}, direct")
    assert bench.send(PEER, f"out during {tag}", seconds=90) in outcomes


@pytest.mark.parametrize("fault, end, outcomes", [
    (("silent", "on"), ("silent", "off"), (500,)),
    (("delay", "17000"), ("delay", "10"), (500,)),                  # later than the owner of the port waits
    (("delay", "3000"), ("delay", "10"), (0, 500)),
    (("repeat", "on"), ("repeat", "off"), (0, 500)),
    (("split", "on", "--at", "1"), ("split", "off"), (0,)),
    (("split", "on", "--at", "30", "--delay", "900"), ("split", "off"), (0,)),
    (("interleave", "on"), ("interleave", "off"), (0,)),
    (("interleave", "on", "--messages"), ("interleave", "off"), (0,)),
    (("garble", "on"), ("garble", "off"), (0, 500)),
    (("garble", "300", "--seed", "7"), ("garble", "off"), (0, 500)),
    (("fail", "AT+DORVYSMS", "331"), ("fail", "--clear"), (500,)),
    (("fail", "AT", "--cme", "14"), ("fail", "--clear"), (500,)),
    (("fail", "AT"), ("fail", "--clear"), (500,)),
    (("swallow", "3"), ("swallow", "0"), (0, 500)),
    (("swallow", "3", "--executed"), ("swallow", "0", "--executed"), (0, 500)),
    (("sim", "out"), ("sim", "in"), (0, 500)),
    (("registered", "off"), ("registered", "on"), (0, 500)),
], ids=lambda value: "_".join(value) if isinstance(value, tuple) and isinstance(value[0], str) else "")
def test_the_modem_errs_and_recovers(router, fault, end, outcomes):
    tag = " ".join(fault)
    with survived(router, tag):
        router.modem(*fault)
        traffic(router, tag, outcomes)
        router.modem(*end)
        relieve(router)


def test_the_modem_disappears_and_returns(router):
    with survived(router, "unplugged"):
        router.modem("unplug")
        traffic(router, "unplugged", (500,))
        router.modem("plug")
        relieve(router)


def test_the_modem_disappears_in_the_middle_of_a_command(router):
    with survived(router, "unplugged in an answer"):
        router.modem("silent", "on")
        asked = threading.Thread(target=lambda: router.send(PEER, "cut", seconds=90))
        asked.start()
        router.wait(lambda: "AT+DORVYSMS" in str(router.commands("AT+DORVYSMS")), "the command")
        router.modem("unplug")
        asked.join()
        router.modem("silent", "off")
        router.modem("plug")


def test_a_full_sim_is_worked_off(router):
    with survived(router, "a full SIM"):
        router.modem("fill")
        router.handset("send", "--via", "cmti", "has to wait")
        relieve(router, 120)
        router.wait(lambda: "has to wait" in router.store.texts("read"), "what had to wait", 60)


def test_another_number_answers():
    """An answer to nothing that was asked: the request ends with nothing, and the next one is answered for itself."""
    strays = [0]

    def stray(command):
        if strays[0] == 0:
            return "\r\nOK\r\n"
        strays[0] -= 1
        bench.fake.respond(command.at_id + 1, "\r\n+CMGS: 1\r\n\r\nOK\r\n")
        return None

    class Answers(dict):
        def get(self, text, default=None):
            return stray if text.startswith("AT+DORVYSMS=") else super().get(text, default)

    def sends(bench, tag):
        assert bench.send(PEER, tag) == 0

    with Bench() as bench:
        fake = bench.start_with_fake()
        fake.answers = Answers(fake.answers)
        with survived(bench, "another number", sends):
            strays[0] = 20
            assert [bench.send(PEER, "to a stray", 60) for _ in range(20)] == [500] * 20
            for at_id in range(200):            # and answers that nobody waits for
                fake.respond(at_id, "\r\nOK\r\n" * 300)
            bench.wait_trace("recv msg(0x1017) from", 220)
