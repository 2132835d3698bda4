"""The message store on disk: what is filed, read, deleted, refused, and found again at start."""

import os
import re

import pytest

import bus
from bench import BOX_FULL, UNREAD, Bench

REFUSED = "can not continue save,please delete it"

# From +31612345678, 2024/03/05 14:07:00: "hi" and "ho"
PDUS = {3: "0791" "1326040000F0" "04" "0B91" "1316325476F8" "0000" "42305041700002" "02E834",
        4: "0791" "1326040000F0" "04" "0B91" "1316325476F8" "0000" "42305041700002" "02E837"}
OK = "\r\nOK\r\n"
READS = {f"AT+CMGR={index}": f"\r\n+CMGR: 0,,22\r\n{pdu}\r\n{OK}" for index, pdu in PDUS.items()}


def test_received_messages_are_filed_byte_for_byte():
    with Bench() as bench:
        fake = bench.start_with_fake(READS)
        fake.indicate('\r\n+CMTI: "SM",3\r\n')
        bench.wait_records("read", 1)
        fake.indicate(f"\r\n+CMT: ,22\r\n{PDUS[4]}\r\n")
        bench.wait_records("read", 2)
        assert bench.store.content("read", 1) == b"1 0 +31612345678 2024/03/05 14:07:00 hi"
        assert bench.store.content("read", 2) == b"2 0 +31612345678 2024/03/05 14:07:00 ho"
        assert bench.store.index("read") == " 1 2 "
        assert bench.store.unread() == "2"
        assert bench.devinfo[UNREAD] == "1"
        bench.wait(lambda: "AT+CMGD=3\r" in fake.texts(), "the stored one is deleted from the SIM")
        assert [text for text in fake.texts() if text.startswith("AT+CMG") and "?" not in text] == [
            "AT+CMGR=3\r", "AT+CMGD=3\r"]


def test_drafts():
    with Bench() as bench:
        bench.start_with_fake()
        texts = ["first", "尊敬的用户\nsecond line", "x" * 4031, ""]
        assert [bench.draft("+31612345678", text) for text in texts] == [0, 0, 0, 500]
        assert bench.store.texts("draft") == texts[:3]
        assert re.fullmatch(rb"1 1 \+31612345678 \d{4}-\d\d-\d\d \d\d:\d\d:\d\d first", bench.store.content("draft", 1))
        assert bench.store.index("draft") == " 1 2 3 "
        assert "sms msg size is 0, can not write to file" in bench.log()


def test_a_full_box_refuses_and_says_so():
    with Bench() as bench:
        bench.cfg["SYS_SMS_MAX_SAVE_SIZE"] = "2"
        fake = bench.start_with_fake(READS)
        for box in BOX_FULL:
            assert bench.devinfo[BOX_FULL[box]] == "0"
        assert bench.draft("1", "one") == 0
        assert bench.devinfo[BOX_FULL["draft"]] == "0"
        assert bench.draft("1", "two") == 0
        assert bench.devinfo[BOX_FULL["draft"]] == "1"
        assert bench.draft("1", "three") == 500
        bench.wait_log(REFUSED)
        assert re.search(r"files_num\(2\) cfg_max_save\(2\) avaiable_size\(\d+\) " + REFUSED, bench.log())

        for number, index in enumerate((3, 4, 3), 1):       # received ones leave the SIM all the same
            fake.indicate(f'\r\n+CMTI: "SM",{index}\r\n')
            bench.wait(lambda: len([t for t in fake.texts() if "CMGD" in t]) == number, f"delete {number}")
        assert bench.store.texts("read") == ["hi", "ho"]
        assert bench.log().count(REFUSED) == 2
        assert bench.devinfo[BOX_FULL["read"]] == "1"

        assert [bench.send("1", text) for text in ("one", "two", "three")] == [0, 0, 0]
        bench.wait_log(REFUSED, 3)
        assert bench.store.texts("send") == ["one", "two"]

        assert bench.ask(bus.MSG_DELETE_DRAFT, b"1") == 0
        assert bench.devinfo[BOX_FULL["draft"]] == "0"
        assert bench.draft("1", "again") == 0               # the lowest free number
        assert bench.store.texts("draft") == ["again", "two"]
        assert bench.store.index("draft") == " 2 1 "


@pytest.mark.parametrize("limit", ["", "0", "2001", "nonsense"])
def test_a_limit_out_of_range_is_five_hundred(limit):
    with Bench() as bench:
        bench.cfg["SYS_SMS_MAX_SAVE_SIZE"] = limit
        for number in range(1, 500):
            bench.store.put("draft", number, f"{number} 1 1 2024-03-05 14:07:00 x")
        bench.start_with_fake()
        assert bench.draft("1", "the last") == 0
        bench.wait_trace("files_num: 499 cfg_max_save: 500")
        assert bench.draft("1", "one too many") == 500
        assert bench.store.content("draft", 500).endswith(b" the last")


def test_messages_are_marked_read_and_deleted():
    with Bench() as bench:
        for number in (1, 2, 3):
            bench.store.put("read", number, f"{number} 0 +316 2024/03/05 14:07:00 text {number}")
        bench.start_with_fake()
        assert bench.store.unread() == "3"
        assert bench.ask(bus.MSG_READ, b"2") == 0
        assert [record.state for record in bench.store.records("read")] == [0, 1, 0]
        assert bench.store.unread() == "2 "
        assert bench.ask(bus.MSG_DELETE_RECEIVED, b"1") == 0
        assert bench.store.numbers("read") == [2, 3]
        assert bench.store.index("read").split() == ["2", "3"]
        assert bench.store.unread() == "1"
        assert bench.devinfo[UNREAD] == "1"
        assert bench.ask(bus.MSG_READ, b"READ ALL") == 0
        assert [record.state for record in bench.store.records("read")] == [1, 1]
        assert bench.store.unread() == "0"
        assert bench.devinfo[UNREAD] == "0"
        assert bench.ask(bus.MSG_DELETE_RECEIVED, b"3,9") == 500
        assert bench.store.numbers("read") == [2]
        assert bench.ask(bus.MSG_DELETE_RECEIVED, b"DELETE ALL") == 0
        assert bench.store.numbers("read") == [] and bench.store.index("read") == " "


def test_a_deleted_index_is_rebuilt_oldest_first():
    with Bench() as bench:
        for box in ("read", "send", "draft"):
            for number, age in ((1, 20), (2, 10), (3, 30)):
                bench.store.put(box, number, f"{number} 1 1 2024-03-05 14:07:00 x")
                os.utime(bench.store.folder / {"read": "sms_read", "send": "sms_send", "draft": "sms_draft"}[box]
                         / str(number), (1_700_000_000 - age,) * 2)
        (bench.store.folder / "send_index").write_text(" 2 ")
        bench.start_with_fake()
        assert bench.store.index("draft") == " 3 1 2 "
        assert bench.store.index("read") == " 3 1 2 "
        assert bench.store.index("send") == " 2 "


def test_what_is_full_and_unread_is_counted_at_start():
    with Bench() as bench:
        bench.cfg["SYS_SMS_MAX_SAVE_SIZE"] = "3"
        for number, state in ((1, 0), (3, 0), (2, 1)):
            bench.store.put("read", number, f"{number} {state} 1 2024/03/05 14:07:00 x")
        bench.store.put("draft", 1, "1 1 1 2024-03-05 14:07:00 x")
        for item in (UNREAD, *BOX_FULL.values()):
            bench.devinfo[item] = "7"
        bench.start_with_fake()
        assert bench.store.unread() == "2"
        assert bench.devinfo[UNREAD] == "1"
        assert {box: bench.devinfo[item] for box, item in BOX_FULL.items()} == {"read": "1", "send": "0", "draft": "0"}


def test_what_was_filed_is_there_after_a_restart():
    with Bench() as bench:
        fake = bench.start_with_fake(READS)
        fake.indicate('\r\n+CMTI: "SM",3\r\n')
        bench.wait_records("read", 1)
        assert bench.draft("1", "draft") == 0
        bench.restart_daemon()
        assert bench.store.texts("read") == ["hi"] and bench.store.texts("draft") == ["draft"]
        assert bench.store.unread() == "1"
        fake.indicate('\r\n+CMTI: "SM",4\r\n')
        bench.wait_records("read", 2)
        assert bench.store.texts("read") == ["hi", "ho"]
        assert bench.store.index("read") == " 1 2 "
