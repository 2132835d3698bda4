"""Received texts that are forwarded to a telephone."""

from bench import Bench

HANDSET = "+31611111111"


def test_received_texts_are_forwarded_whole():
    text = "尊敬的用户" * 30
    with Bench() as bench:
        bench.cfg["USR_SMS_REDIRECT_SW"] = "1"
        bench.cfg["USR_SMS_REDIRECT_PHONE"] = HANDSET
        bench.start()
        bench.handset("send", "short")
        bench.handset("send", text)
        assert [(message["to"], message["text"], message["total"]) for message in bench.inbox(2)] == [
            (HANDSET, "short", 1), (HANDSET, text, 3)]
        records = bench.wait_records("send", 2)
        assert [(record.state, record.phone, record.text) for record in records] == [
            (1, HANDSET, "short"), (1, HANDSET, text)]
        assert bench.store.texts("read") == ["short", text]
        assert bench.flag["DV_SMS_MGR_LAST_ERR_CODE"] == ""
        assert bench.trace().count("redirect sms msg to handset") == 2


def test_the_switch_is_read_for_each_message():
    steps = [("", HANDSET, "redirect_sw(0) no need for SMS redirection"),
             ("0", HANDSET, "redirect_sw(0) no need for SMS redirection"),
             ("2", HANDSET, "redirect_sw(2) invalid parameter"),
             ("-1", HANDSET, "redirect_sw(-1) invalid parameter"),
             ("1", "", "redirect_phone size is 0!"),
             ("1", HANDSET, "redirect sms msg to handset")]
    with Bench() as bench:
        bench.start()
        for number, (switch, phone, said) in enumerate(steps, 1):
            before = bench.trace().count(said)
            bench.cfg["USR_SMS_REDIRECT_SW"] = switch
            bench.cfg["USR_SMS_REDIRECT_PHONE"] = phone
            bench.handset("send", f"message {number}")
            bench.wait_records("read", number)
            bench.wait_trace(said, before + 1)
        assert [message["text"] for message in bench.inbox(1)] == ["message 6"]
        assert bench.wait_records("send", 1)[0].text == "message 6"
