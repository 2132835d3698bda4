"""The bus is flooded, and records of any size come."""

import os
import random
import socket

import pytest

import bus
from bench import Bench
from recovery import SANITIZED, relieve, survived, works

RECORDS = 20_000 if SANITIZED else 100_000


class Flood:
    """Sends as fast as the receiver takes."""

    def __init__(self, bench):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.settimeout(30)
        self.socket.connect(os.path.join(bench.bus, str(bus.SMS_MGR)))

    def send(self, record):
        self.socket.send(record)


def flood(bench, count, records):
    flooding = Flood(bench)
    for number in range(count):
        flooding.send(records[number % len(records)])
    flooding.socket.close()
    bench.wait_passed(0x7777, 120)              # what comes behind them has seen all of them pass


@pytest.fixture(scope="module")
def router():
    with Bench() as bench:
        bench.cfg["SYS_SMS_MAX_SAVE_SIZE"] = "500"
        bench.start()
        yield bench


def test_a_flood_of_anything(router):
    draw = random.Random(100_000)
    records = [bus.pack_record(0x1234, draw.randbytes(4096), draw.randrange(2 ** 32), draw.randrange(2 ** 32))
               for _ in range(50)]
    with survived(router, "a flood"):
        flood(router, RECORDS, records)
        assert router.trace().count("recv msg(0x1234)") == RECORDS     # nothing that was taken is lost


def test_a_flood_of_indications(router):
    """Most find the rings full; what is refused leaves nothing behind."""
    texts = ["\r\n+CMT: ,22\r\n" + "0791" + "0" * 300 + "\r\n", "\r\n+CMTI: \"SM\",9999\r\n", "\r\n+CREG: 1\r\n",
             "\r\n+CMT: ,22\r\nXX\r\n", "\r\n+CMTI:\r\n"]
    records = [bus.pack_record(bus.MSG_INDICATION, bus.pack_indication(text), bus.AT_OWNER) for text in texts]
    with survived(router, "a flood of indications"):
        flood(router, RECORDS // 5, records)
        assert "pdu queue is full, can not enqueue" in router.log()
        assert "util_enqueue: queue is full, can not enqueue" in router.log()
        router.handset("send", "--via", "cmti", "behind all of them")
        relieve(router)                         # the rings have been worked off when this has found a place


def test_a_flood_of_requests_to_send(router):
    """At most sixty-one wait; the others are refused with a word."""
    request = bus.pack_record(bus.MSG_SEND, bus.pack_message("12345", "one of many"), sender=0)
    said = "there are too much msgs, just stop push queue"
    flood(router, 200, [request])               # the queue at its longest, once
    with survived(router, "a flood of requests"):
        before = router.log().count(said)
        flood(router, 2000, [request])
        assert router.log().count(said) > before


def test_records_of_wrong_size(router):
    draw = random.Random(4116)
    with survived(router, "wrong sizes"):
        flooding = Flood(router)
        before = router.log().count("a datagram of ")
        for size in (1, 2, 4115, 4117, 8192, 60000, *(draw.randrange(1, 20000) for _ in range(500))):
            flooding.send(os.urandom(size if size != 4116 else 1))
        flooding.socket.close()
        router.wait_log("a datagram of ", before + 506)


def test_a_flood_while_messages_come_and_go(router):
    with survived(router, "a flood beside it"):
        flooding = Flood(router)
        unknown = bus.pack_record(0x4321, b"x" * 4096)
        for number in range(20):
            for _ in range(RECORDS // 200):
                flooding.send(unknown)
            if number % 5 == 0:
                works(router, f"beside {number}")
        flooding.socket.close()
