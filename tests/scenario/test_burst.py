"""Everything at once: as much as the rings and the send queue hold, and nothing is lost or changes places."""

import threading

import bus
from bench import SEND, Bench

RING, QUEUE = 50, 61                            # announcements each way; requests that wait while one is sent


def deliver(text):
    """A message for the router as hex text, its characters two octets each."""
    body = text.encode("utf-16-be")
    return f"07911326040000F0040B911386674523F1000842305041700000{len(body):02X}{body.hex().upper()}"


def started(bench, answers):
    bench.cfg["SYS_SMS_MAX_SAVE_SIZE"] = "200"
    return bench.start_with_fake(answers)


def test_a_full_ring_of_each_kind_is_filed_in_order():
    def retrieve(command):
        number = command.text.rstrip("\r").removeprefix("AT+CMGR=")
        return f"\r\n+CMGR: 0,,25\r\n{deliver(f'stored {number}')}\r\n\r\nOK\r\n"

    with Bench() as bench:
        fake = started(bench, {f"AT+CMGR={number}": retrieve for number in range(1, RING + 1)})
        for number in range(1, RING + 1):
            fake.indicate(f"\r\n+CMT: ,25\r\n{deliver(f'direct {number}')}\r\n")
            fake.indicate(f'\r\n+CMTI: "SM",{number}\r\n')
        bench.wait_records("read", 2 * RING, 120)
        texts = [bench.store.texts("read")[int(number) - 1] for number in bench.store.index("read").split()]
        for kind in ("direct", "stored"):
            assert [text for text in texts if text.startswith(kind)] == [
                f"{kind} {number}" for number in range(1, RING + 1)]
        bench.wait(lambda: f"AT+CMGD={RING}\r" in fake.texts(), "the last one is deleted from the SIM")
        stored = [text for text in fake.texts() if text.startswith(("AT+CMGR", "AT+CMGD"))]
        assert stored == [f"{command}={number}\r" for number in range(1, RING + 1) for command in ("AT+CMGR", "AT+CMGD")]
        assert bench.store.unread() == str(2 * RING)


class HeldBack(dict):
    """Answers of which those to submissions wait until all requests are queued."""

    def __init__(self, answers, queued):
        super().__init__(answers)
        self.queued = queued

    def get(self, command, default=None):
        if command.startswith(SEND):
            self.queued.wait(120)
        return super().get(command, default)


def test_a_full_queue_is_sent_in_order():
    queued = threading.Event()

    with Bench(factor=1) as bench:              # the first answer is awaited in real time
        fake = started(bench, {})
        fake.answers = HeldBack(fake.answers, queued)
        for number in range(QUEUE + 2):         # one is under way, and one is too many
            bench.request(bus.MSG_SEND, bus.pack_message("+31687654321", f"№ {number:02}"), sender=0)
            if number == 0:
                bench.wait(lambda: fake.texts()[-1].startswith(SEND), "the first is under way")
        bench.wait_log("there are too much msgs, just stop push queue")
        queued.set()
        bench.wait_records("send", QUEUE + 1, 120)
        wanted = [f"№ {number:02}" for number in range(QUEUE + 1)]
        submitted = [text.rstrip("\r\x1a") for text in fake.texts() if text.startswith(SEND)]
        assert [bytes.fromhex(text[-16:]).decode("utf-16-be") for text in submitted] == wanted
        assert bench.store.texts("send") == wanted
