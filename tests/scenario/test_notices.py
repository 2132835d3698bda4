"""What the daemon writes by itself: notices to the user, and messages to fill the store with."""

import bus
from bench import BOX_FULL, Bench

HANDSET = "+31687654321"
WARN_EVENT = 0x8002


def test_warnings_and_the_failover_notice_reach_the_handset():
    with Bench() as bench:
        bench.cfg["USR_FLOW_SMS_NOTICE_SWITCH"] = "1"
        bench.cfg["USR_FLOW_SMS_NOTICE_PHONE_NUMBER"] = HANDSET
        bench.cfg["USR_SMS_NOTICE_FLOW_OVER_PERCENT_50_TEXT_0"] = "half of it "
        bench.cfg["USR_SMS_NOTICE_FLOW_OVER_PERCENT_50_TEXT_1"] = "is used"
        bench.cfg["USR_WAN_MODE"] = "7"
        bench.start()
        bench.request(WARN_EVENT, b"0")
        bench.request(WARN_EVENT, b"1")
        bench.request(bus.MSG_NOTICE)
        half, all_of_it, failover = bench.inbox(3)
        assert half["text"] == "half of it is used"
        assert all_of_it["text"] == "尊敬的用户，您的流量已使用100%，设备已经断网，请注意！"
        assert failover["text"].startswith("尊敬的用户，由于您的有线宽带岀现故障，") and failover["total"] == 2
        assert {message["to"] for message in (half, all_of_it, failover)} == {HANDSET}
        assert [record.state for record in bench.wait_records("send", 3)] == [1, 1, 1]
        assert bench.flag["DV_SMS_MGR_LAST_ERR_CODE"] == "" == bench.flag["DV_SMS_MGR_LAST_RECEIVED_MSG"]


def test_a_notice_out_of_place_is_not_sent():
    with Bench() as bench:
        bench.cfg["USR_FLOW_SMS_NOTICE_SWITCH"] = "1"
        bench.cfg["USR_FLOW_SMS_NOTICE_PHONE_NUMBER"] = HANDSET
        bench.cfg["USR_WAN_MODE"] = "1"
        bench.start()
        bench.request(bus.MSG_NOTICE)
        bench.wait_trace("recently mode is not fix mode, do not send sms!")
        bench.request(WARN_EVENT, b"2")
        bench.wait_trace("national_notice_sw is closed, please check it!")
        assert bench.send(HANDSET, "the only one") == 0
        assert [message["text"] for message in bench.inbox(1)] == ["the only one"]


def test_generated_messages_fill_every_box():
    with Bench() as bench:
        bench.cfg["SYS_SMS_MAX_SAVE_SIZE"] = "3"
        bench.start_with_fake()
        for _ in range(2):                      # the second time there is nothing left to do
            assert bench.ask(bus.MSG_GENERATE) == 0
            for box, text in (("read", "接收"), ("send", "发送"), ("draft", "草稿")):
                assert bench.store.index(box) == " 1 2 3 "
                assert bench.store.content(box, 2).decode() == f"2 0 1300000000 12:21:12 2021-12-21 测试{text}短信_2"
                assert bench.devinfo[BOX_FULL[box]] == "1"
            assert bench.store.unread() == "3"
