"""Real processes, everything at once: received, sent, drafted, marked, deleted. No update undoes another."""

import os
import re
import threading
import time

import common

common.in_memory()

import bus  # noqa: E402
from bench import BOX_FULL, UNREAD, Bench  # noqa: E402
from processes import Trouble  # noqa: E402

OK = "\r\nOK\r\n"
EACH = int(os.environ.get("DV_AT_ONCE", "50"))      # messages received directly, by storage, sent, drafted


class Together:
    """Threads that ask side by side; what fails in one fails the test."""

    def __init__(self):
        self.threads, self.errors, self.ending = [], [], threading.Event()

    def start(self, work, *arguments):
        def run():
            try:
                work(*arguments)
            except BaseException as error:      # pylint: disable=broad-except
                self.errors.append(error)
                self.ending.set()

        self.threads.append(threading.Thread(target=run, daemon=True))
        self.threads[-1].start()

    def join(self):
        for thread in self.threads:
            thread.join(120)
        if self.errors:
            raise self.errors[0]
        assert not any(thread.is_alive() for thread in self.threads)


def clear_flags(bench, ending):
    while not ending.wait(0.003):
        for name in ("DV_SMS_MGR_LAST_RECEIVED_MSG", "DV_SMS_MGR_LAST_ERR_CODE"):
            if bench.flag[name]:
                bench.flag[name] = ""


def entries(bench, box):
    """Each message of a box as number and content, whatever happens meanwhile."""
    for number in bench.store.numbers(box):
        try:
            yield number, bench.store.content(box, number)
        except FileNotFoundError:
            pass


def once_each(bench, box, message, chosen, ending):
    """Asks for each message that `chosen` takes (the number in its text, its state), once."""
    asked = {}
    while not ending.is_set():
        for number, content in entries(bench, box):
            text = common.Texts.number(content.decode().split(" ", 5)[-1])
            if chosen(text, content.split(b" ")[1]) and asked.get(number) != text:
                asked[number] = text
                bench.request(message, str(number).encode())
        time.sleep(0.005)


def agree(bench, box):
    listed = [int(entry) for entry in bench.store.index(box).split()]
    return sorted(listed) == bench.store.numbers(box)


def test_index_directory_and_counter_agree_in_the_end():
    with Bench() as bench:
        texts, pdus = common.Texts(), {}
        bench.cfg["SYS_SMS_MAX_SAVE_SIZE"] = "1000"
        fake = bench.start_fake_owner()

        class Answers(dict):
            def get(self, text, default=None):
                if text.startswith("AT+CMGD="):
                    pdus.pop(int(text[8:]), None)
                index = int(text[8:]) if text.startswith("AT+CMGR=") else None
                return f"\r\n+CMGR: 0,,22\r\n{pdus[index]}\r\n{OK}" if index in pdus else super().get(text, default)

        fake.answers = Answers(fake.answers)
        bench.start_daemon()
        bench.wait_service()
        together, wanted = Together(), {"in": 2 * EACH, "send": EACH, "draft": EACH}
        lock = threading.Lock()

        def count(text):
            return bench.trace().count(text)

        def filed():                            # each once: what is announced again may be filed again
            return set(re.findall(r"receive_data-->.* data\[(.*)\]", bench.trace()))

        def new_text():
            with lock:
                return texts.new(50)

        def receive():
            for index in range(1, EACH + 1):
                pdus[index] = common.deliver(new_text())
                fake.indicate(common.cmt(common.deliver(new_text())))
                fake.indicate(f'\r\n+CMTI: "SM",{index}\r\n')
                if index % 20 == 0:             # the rings hold fifty each
                    bench.wait(lambda index=index: count("receive_data-->") >= 2 * index - 40, "the rings are emptied")

        def send():
            for number in range(EACH):
                bench.request(bus.MSG_SEND, bus.pack_message("12345", new_text()))
                if number % 30 == 29:           # the queue holds sixty
                    bench.wait(lambda number=number: sum("DORVYSMS" in text for text in fake.texts()) >= number - 10,
                               "some have been sent", 120)

        def draft():
            for _ in range(EACH):
                bench.request(bus.MSG_DRAFT, bus.pack_message("12345", new_text()))

        clearing = threading.Event()
        clearer = threading.Thread(target=clear_flags, args=(bench, clearing), daemon=True)
        clearer.start()
        for work in (receive, send, draft):
            together.start(work)
        ending = together.ending
        for box, message, chosen in (           # by the message, so that none is marked that is being deleted
                ("read", bus.MSG_READ, lambda text, state: text % 2 and state == b"0"),
                ("read", bus.MSG_DELETE_RECEIVED, lambda text, state: text % 4 == 0),
                ("send", bus.MSG_DELETE_SENT, lambda text, state: text % 3 == 0),
                ("draft", bus.MSG_DELETE_DRAFT, lambda text, state: text % 3 == 1)):
            together.start(once_each, bench, box, message, chosen, ending)

        def all_filed():
            if not pdus or together.errors:
                return True
            for index in list(pdus)[:20]:       # not answered in time while much else was asked: it is still on the SIM
                fake.indicate(f'\r\n+CMTI: "SM",{index}\r\n')
            try:
                bench.wait(lambda: not pdus, "the SIM is empty", 5)
            except Trouble:
                pass
            return not pdus

        for thread in together.threads[:3]:
            thread.join(120)
        bench.wait(lambda: together.errors or count("receive_data-->") >= wanted["in"] - len(pdus), "the rings are empty", 120)
        while not all_filed():
            pass
        bench.wait(lambda: together.errors or (
            len(filed()) >= wanted["in"] and count("save msg --->") >= wanted["send"] + wanted["draft"]),
                   lambda: f"all is filed: {len(filed())} received, {count('save msg --->')} others", 120)
        ending.set()
        together.join()
        bench.wait_passed(0x7654)
        clearing.set()
        clearer.join()

        assert len(filed()) == wanted["in"] and all(common.Texts.number(text) for text in filed())
        assert count("DELETE_RECEIVE_SMS:") > 5 and count("READ_SMS:") > 5 and count("DELETE_SEND_SMS:") > 5
        for box in BOX_FULL:
            bench.wait(lambda box=box: agree(bench, box), lambda box=box: f"{box}: index {bench.store.index(box)!r}, "
                       f"directory {bench.store.numbers(box)}")
            for number, content in entries(bench, box):
                assert content.split(b" ")[0] == str(number).encode()
                assert common.Texts.number(content.decode().split(" ", 5)[5]) is not None
        unread = sum(record.state == 0 for record in bench.store.records("read"))
        assert int(bench.store.unread()) == unread
        assert bench.devinfo[UNREAD] == ("1" if unread else "0")
