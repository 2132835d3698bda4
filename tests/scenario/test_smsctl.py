"""The client on a running router."""

import json

from bench import SEND, Bench

DONE, FAILED, WRONG_USE, NO_ANSWER, NOTHING = range(5)
HANDSET = "+31687654321"


def test_a_day_with_the_client():
    with Bench() as bench:
        bench.start()
        assert bench.call("smsctl", "list", "inbox")[0] == NOTHING
        bench.handset("send", "--date", "2024-03-05 14:07:00", "question")
        bench.wait_records("read", 1)
        listed = json.loads(bench.run("smsctl", "list", "inbox", "--json"))
        assert "question" in json.dumps(listed) and HANDSET in json.dumps(listed)
        assert bench.run("smsctl", "read", "1") == "1 message marked read\n"
        assert bench.store.records("read")[0].state == 1

        assert bench.run("smsctl", "send", HANDSET, "尊敬的用户" * 20) == "sent\n"
        assert bench.inbox(1)[0]["text"] == "尊敬的用户" * 20
        assert bench.run("smsctl", "draft", HANDSET, "later") == "saved\n"
        assert bench.store.texts("draft") == ["later"]
        bench.wait_records("send", 1)
        assert "later" in bench.run("smsctl", "list", "drafts")
        assert "尊敬的用户" in bench.run("smsctl", "list", "sent")

        bench.run("smsctl", "delete", "inbox", "1")
        assert bench.store.numbers("read") == []
        assert bench.call("smsctl", "delete", "inbox", "1")[0] == NOTHING
        bench.run("smsctl", "delete", "drafts", "all")
        assert bench.store.numbers("draft") == []
        json.loads(bench.run("smsctl", "status", "--json"))


def test_what_goes_wrong_is_told():
    with Bench() as bench:
        bench.start()
        bench.modem("fail", SEND, "500")
        code, out, err = bench.call("smsctl", "send", HANDSET, "refused")
        assert (code, out) == (FAILED, "") and err
        bench.modem("fail", "--clear")
        bench.run("smsctl", "cfg", "set", "SYS_SMS_SW", "0")
        bench.wait_log("sms function close or sim not exsit, please check it")
        code, out, err = bench.call("smsctl", "send", HANDSET, "off")
        assert (code, out) == (NO_ANSWER, "") and err
        bench.run("smsctl", "cfg", "set", "SYS_SMS_SW", "1")
        bench.wait_service()
        assert bench.run("smsctl", "send", HANDSET, "on") == "sent\n"
        for arguments in (["send", HANDSET], ["send", "1" * 40, "x"], ["send", HANDSET, ""], ["send", "12 34", "x"],
                          ["nonsense"], ["send", HANDSET, "x" * 5000]):
            code, out, err = bench.call("smsctl", *arguments)
            assert (code, out) == (WRONG_USE, "") and err, arguments
        assert [message["text"] for message in bench.inbox(1)] == ["on"]
