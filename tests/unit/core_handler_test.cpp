/* Requests from the bus: what each message id does, in which order, and what it leaves alone. */
#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <string>
#include <vector>

#include "core_bench.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_utils.h"

namespace
{

static const char last_message[] = "DV_SMS_MGR_LAST_RECEIVED_MSG";
static const char last_code[] = "DV_SMS_MGR_LAST_ERR_CODE";

class handler : public core_bench
{
protected:
    void SetUp() override
    {
        core_bench::SetUp();
        platform.set_app_name(3, "web");
        platform.set_flag(last_message, "");
        platform.set_flag(last_code, "");
    }

    int handle(sockmsg_record record) { return dv_sms_mgr_handler(&record); }

    void fill_store()
    {
        for (const char *box : {"read", "send", "draft"}) {
            write_file(std::string("mnt/data/sms/sms_") + box + "/1", "1 0 +31 2024/03/05 14:07:00 one");
            write_file(std::string("mnt/data/sms/") + box + "_index", " 1 ");
        }
        write_file("mnt/data/sms/unread_sms", "1");
    }

    bool calls_in_order(const std::vector<std::string> &wanted)
    {
        const lines calls = platform.calls();
        auto from = calls.begin();

        for (const std::string &line : wanted) {
            from = std::find(from, calls.end(), line);
            if (from == calls.end())
                return false;
            ++from;
        }
        return true;
    }
};

TEST_F(handler, refuses_a_null_record)
{
    EXPECT_EQ(-1, dv_sms_mgr_handler(nullptr));
    EXPECT_BOTH("dv_sms_mgr_handler", "invaild input");
    EXPECT_EQ(lines{"dv_sms_mgr_handler: invaild input"}, traced());
    EXPECT_EQ(lines{"savelog 0 [dv_sms_mgr] dv_sms_mgr_handler: invaild input"}, platform.calls());
}

struct name_case {
    uint32_t msg_id;
    uint32_t sender;
    const char *trace;
};

TEST_F(handler, traces_every_record_with_its_id_and_the_senders_name)
{
    const name_case cases[] = {
        {0x54FF, 3, "recv msg(0x54FF) from web"},      {0x10, 3, "recv msg(0x0010) from web"},
        {0, 3, "recv msg(0x0000) from web"},           {0xABCDEF, 3, "recv msg(0xABCDEF) from web"},
        {0xFFFFFFFF, 7, "recv msg(0xFFFFFFFF) from "}, /* no name: an empty one */
    };

    platform.set_null_app_names(true);
    for (const name_case &each : cases) {
        forget();
        EXPECT_EQ(0, handle(make_request(each.msg_id, "", each.sender)));
        EXPECT_EQ(lines{std::string("dv_sms_mgr_handler: ") + each.trace}, traced());
        EXPECT_EQ("dv_sms_mgr.cpp", trace_lines().at(0).file);
        EXPECT_EQ(lines{"get_app_name_by_id " + std::to_string(each.sender)}, platform.calls());
    }
}

TEST_F(handler, says_nothing_on_standard_output_without_tracing)
{
    debug_mode = 0;
    sms_enabled = 1;
    EXPECT_EQ(0, handle(make_request(0x54FF)));
    EXPECT_EQ(0, handle(make_message(DV_SMS_MGR_MSG_ID_SEND_SMS, "123", "hi", 3)));
    EXPECT_EQ("", output());
    EXPECT_EQ((lines{"get_app_name_by_id 0", "get_app_name_by_id 3"}), platform.calls({"get_app_name_by_id"}));
    EXPECT_EQ(lines{"dv_sms_mgr_handler: DV_SMS_MGR_MSG_ID_SEND_SMS phone: 123 msg:hi"}, saved());
}

TEST_F(handler, ignores_unknown_ids)
{
    sms_enabled = 1;
    for (const uint32_t id : {0u, 1u, 0x54FFu, 0x5508u, 0x5510u, 0x8000u, 0x8001u, 0x8003u, 0x100Fu, 0x1011u, 0x1016u,
                              0x1018u, 0x3FFFu, 0x4002u, 0x15500u, 0x55000000u, 0xFFFFFFFFu}) {
        forget();
        EXPECT_EQ(0, handle(make_request(id, "1", 3))) << id;
        EXPECT_EQ(1u, traced().size()) << id;
        EXPECT_EQ(lines{"get_app_name_by_id 3"}, platform.calls()) << id;
    }
}

/* --- send --- */

TEST_F(handler, drops_a_send_request_without_a_word_while_the_service_is_off)
{
    EXPECT_EQ(0, handle(make_message(DV_SMS_MGR_MSG_ID_SEND_SMS, "123", "hi", 3)));
    EXPECT_EQ(lines{"dv_sms_mgr_handler: recv msg(0x5500) from web"}, traced());
    EXPECT_EQ(lines{"get_app_name_by_id 3"}, platform.calls()) << "no flag, no log, no reply";
    EXPECT_EQ(0, waiting());
}

TEST_F(handler, queues_a_send_request_after_the_flag_and_the_log)
{
    sockmsg_record queued;

    sms_enabled = 1;
    EXPECT_EQ(0, handle(make_message(DV_SMS_MGR_MSG_ID_SEND_SMS, "+31612345678", "hello", 3, 9)));
    EXPECT_EQ("3,21760", platform.flag(last_message));
    EXPECT_BOTH("dv_sms_mgr_handler", "DV_SMS_MGR_MSG_ID_SEND_SMS phone: +31612345678 msg:hello");
    EXPECT_EQ((lines{"get_app_name_by_id 3", std::string("flag_get_item ") + last_message + " 32",
                     std::string("flag_set ") + last_message + " \"3,21760\"",
                     "savelog 0 [dv_sms_mgr] dv_sms_mgr_handler: DV_SMS_MGR_MSG_ID_SEND_SMS phone: +31612345678 "
                     "msg:hello"}),
              platform.calls());
    EXPECT_EQ(lines{"push_sms_into_queue: join succ"}, lines(1, traced().back()));
    ASSERT_EQ(1, waiting());
    ASSERT_EQ(1, list_pop(g_sms_send_head, &queued));
    EXPECT_STREQ("hello", reinterpret_cast<const char *>(queued.payload) + 64);
    EXPECT_EQ(3u, queued.sender_module_id);
    EXPECT_EQ(9u, queued.sender_extra);
    EXPECT_EQ("", platform.flag(last_code)) << "sending reports, queuing does not";
}

TEST_F(handler, reads_no_further_than_a_field_without_terminator)
{
    const std::string phone(32, 'p'), text(4032, 't');

    sms_enabled = 1;
    /* What stands behind the text would show: the sender's number is "AAAA". */
    EXPECT_EQ(0, handle(make_message(DV_SMS_MGR_MSG_ID_SEND_SMS, phone, text, 0x41414141, 0x42424242)));
    EXPECT_BOTH("dv_sms_mgr_handler", "DV_SMS_MGR_MSG_ID_SEND_SMS phone: " + phone + " msg:" + text);
    forget();
    platform.set_flag(last_message, "");
    EXPECT_EQ(0, handle(make_message(DV_SMS_MGR_MSG_ID_SAVE_DRAFT_SMS, phone, text, 0x41414141, 0x42424242)));
    EXPECT_TRACED("dv_sms_mgr_handler", "DV_SMS_MGR_MSG_ID_SAVE_DRAFT_SMS phone: " + phone + " msg:" + text);
}

TEST_F(handler, a_refused_send_request_leaves_its_flag_and_no_code)
{
    const sockmsg_record request = make_message(DV_SMS_MGR_MSG_ID_SEND_SMS, "123", "hi", 3);

    sms_enabled = 1;
    for (int i = 0; i < 61; i++)
        ASSERT_EQ(1, push_sms_into_queue(&request));
    forget();
    EXPECT_EQ(0, handle(request));
    EXPECT_EQ("3,21760", platform.flag(last_message));
    EXPECT_BOTH("push_sms_into_queue", "there are too much msgs, just stop push queue");
    EXPECT_EQ(61, waiting());
    EXPECT_EQ(lines{}, platform.calls({"sleep"}));
    EXPECT_EQ("", platform.flag(last_code));
}

TEST_F(handler, a_flag_that_cannot_be_set_stops_nothing)
{
    sms_enabled = 1;
    platform.set_result("flag_set", -1);
    EXPECT_EQ(0, handle(make_message(DV_SMS_MGR_MSG_ID_SEND_SMS, "123", "hi", 3)));
    EXPECT_EQ(1, waiting());
    EXPECT_EQ(1u, platform.calls({"flag_set"}).size());
}

/* --- the last-message flag of each request --- */

struct flag_case {
    uint32_t msg_id;
    const char *value; /* null: this request leaves the flag alone */
};

TEST_F(handler, notes_which_request_came_last_but_for_notices)
{
    const flag_case cases[] = {
        {DV_SMS_MGR_MSG_ID_SEND_SMS, "7,21760"},
        {DV_SMS_MGR_MSG_ID_READ_SMS, "7,21761"},
        {DV_SMS_MGR_MSG_ID_DELETE_RECEIVE_SMS, "7,21762"},
        {DV_SMS_MGR_MSG_ID_DELETE_SEND_SMS, "7,21763"},
        {DV_SMS_MGR_MSG_ID_DELETE_DRAFT_SMS, "7,21764"},
        {DV_SMS_MGR_MSG_ID_GENERATE_SMS, "7,21765"},
        {DV_SMS_MGR_MSG_ID_FLOW_CONTROL_SMS, nullptr},
        {DV_SMS_MGR_MSG_ID_SAVE_DRAFT_SMS, "7,21767"},
        {FLOWCONTROL_MSG_ID_WARN_EVENT, nullptr},
        {AT_MSG_ID_COMMAND, nullptr},
        {AT_MSG_ID_INDICATION, nullptr},
        {AT_MSG_ID_ASSERT, nullptr},
        {AT_MSG_ID_BLOCK, nullptr},
    };

    sms_enabled = 1;
    for (const flag_case &each : cases) {
        forget();
        platform.set_flag(last_message, "");
        platform.set_flag(last_code, "");
        handle(make_request(each.msg_id, "", 7));
        EXPECT_EQ(each.value == nullptr ? "" : each.value, platform.flag(last_message));
        EXPECT_EQ(each.value == nullptr ? 0 : 1, platform.count(std::string("flag_get_item ") + last_message + " 32"));
    }
}

/* What is traced and done before the handler waits for the flag, and what only behind it. */
struct order_case {
    uint32_t msg_id;
    const char *payload;
    const char *trace;
    bool traced_first;
    const char *done_first; /* a call that comes before the flag is read, or null */
};

TEST_F(handler, traces_and_flags_in_the_order_of_each_request)
{
    const order_case cases[] = {
        {DV_SMS_MGR_MSG_ID_SEND_SMS, "", "DV_SMS_MGR_MSG_ID_SEND_SMS phone:  msg:", false, nullptr},
        {DV_SMS_MGR_MSG_ID_READ_SMS, "1", "DV_SMS_MGR_MSG_ID_READ_SMS:1", true, nullptr},
        {DV_SMS_MGR_MSG_ID_DELETE_RECEIVE_SMS, "1", "DV_SMS_MGR_MSG_ID_DELETE_RECEIVE_SMS:1", true,
         "set_devinfo_value_by_id 306002 \"0\" 1"},
        {DV_SMS_MGR_MSG_ID_DELETE_SEND_SMS, "1", "DV_SMS_MGR_MSG_ID_DELETE_SEND_SMS:1", true,
         "set_devinfo_value_by_id 306003 \"0\" 1"},
        {DV_SMS_MGR_MSG_ID_DELETE_DRAFT_SMS, "1", "DV_SMS_MGR_MSG_ID_DELETE_DRAFT_SMS:1", true,
         "set_devinfo_value_by_id 306004 \"0\" 1"},
        {DV_SMS_MGR_MSG_ID_GENERATE_SMS, "", "DV_SMS_MGR_MSG_ID_GENERATE_SMS", true, nullptr},
        {DV_SMS_MGR_MSG_ID_SAVE_DRAFT_SMS, "", "DV_SMS_MGR_MSG_ID_SAVE_DRAFT_SMS phone:  msg:", false, nullptr},
    };

    sms_enabled = 1;
    for (const order_case &each : cases) {
        bool traced_first = false, slept = false;
        lines calls_first;

        forget();
        fill_store();
        platform.set_flag(last_message, "5,1"); /* somebody else's, not cleared */
        platform.set_flag(last_code, "");
        seams::on_sleep([&](unsigned, int) {
            if (slept)
                return;
            slept = true;
            traced_first = in_trace("dv_sms_mgr_handler", each.trace);
            calls_first = platform.calls();
        });
        EXPECT_EQ(0, handle(make_request(each.msg_id, each.payload, 3)));
        EXPECT_EQ(each.traced_first, traced_first) << each.trace;
        EXPECT_TRACED("dv_sms_mgr_handler", each.trace);
        EXPECT_EQ(3, platform.count("sleep 1")) << each.trace;

        lines wanted = {"get_app_name_by_id 3"};
        if (each.done_first != nullptr)
            wanted.push_back(each.done_first);
        wanted.push_back(std::string("flag_get_item ") + last_message + " 32");
        wanted.push_back("sleep 1");
        EXPECT_EQ(wanted, calls_first) << each.trace << ": nothing else before the flag";
        EXPECT_EQ("3," + std::to_string(each.msg_id), platform.flag(last_message)) << "overwritten";
        EXPECT_EQ(each.msg_id == DV_SMS_MGR_MSG_ID_SEND_SMS, in_log("dv_sms_mgr_handler", each.trace))
            << "only a send request is logged";
    }
}

/* --- read, delete, generate --- */

TEST_F(handler, marks_the_listed_messages_read)
{
    fill_store();
    EXPECT_EQ(0, handle(make_request(DV_SMS_MGR_MSG_ID_READ_SMS, "1", 3)));
    EXPECT_EQ("1 1 +31 2024/03/05 14:07:00 one", read_file("mnt/data/sms/sms_read/1"));
    EXPECT_EQ("0", platform.flag(last_code));
}

TEST_F(handler, reads_a_payload_to_its_end_when_nothing_terminates_it)
{
    const std::string payload(4096, 'x');
    const uint32_t yyyy = 0x79797979;

    handle(make_request(DV_SMS_MGR_MSG_ID_READ_SMS, payload, yyyy));
    handle(make_request(DV_SMS_MGR_MSG_ID_DELETE_SEND_SMS, payload, yyyy));
    handle(make_request(FLOWCONTROL_MSG_ID_WARN_EVENT, payload, yyyy));
    EXPECT_ONLY_TRACED("dv_sms_mgr_handler", "DV_SMS_MGR_MSG_ID_READ_SMS:" + payload);
    EXPECT_ONLY_TRACED("dv_sms_mgr_handler", "DV_SMS_MGR_MSG_ID_DELETE_SEND_SMS:" + payload);
    EXPECT_ONLY_TRACED("dv_sms_mgr_handler", "FLOWCONTROL_MSG_ID_WARN_EVENT:" + payload);
}

struct delete_case {
    uint32_t msg_id;
    const char *name;
    const char *box; /* in the names of directory and index */
    int full_id;
};

TEST_F(handler, deletes_from_the_box_of_the_request_and_clears_its_full_flag_first)
{
    const delete_case cases[] = {
        {DV_SMS_MGR_MSG_ID_DELETE_RECEIVE_SMS, "DV_SMS_MGR_MSG_ID_DELETE_RECEIVE_SMS", "read", 306002},
        {DV_SMS_MGR_MSG_ID_DELETE_SEND_SMS, "DV_SMS_MGR_MSG_ID_DELETE_SEND_SMS", "send", 306003},
        {DV_SMS_MGR_MSG_ID_DELETE_DRAFT_SMS, "DV_SMS_MGR_MSG_ID_DELETE_DRAFT_SMS", "draft", 306004},
    };

    for (const delete_case &each : cases) {
        const std::string cleared = "set_devinfo_value_by_id " + std::to_string(each.full_id) + " \"0\" 1";
        const std::string file = std::string("mnt/data/sms/sms_") + each.box + "/1";

        forget();
        fill_store();
        platform.set_flag(last_message, "");
        platform.set_flag(last_code, "");
        for (int id = 306002; id <= 306004; id++)
            platform.set_devinfo(id, "1");
        platform.set_hook([&](const std::string &call) {
            if (call == cleared) {
                EXPECT_TRACED("dv_sms_mgr_handler", std::string(each.name) + ":1");
            }
        });
        EXPECT_EQ(0, handle(make_request(each.msg_id, "1", 3)));
        platform.set_hook(nullptr);
        EXPECT_ONLY_TRACED("dv_sms_mgr_handler", std::string(each.name) + ":1");
        EXPECT_TRUE(calls_in_order({cleared, std::string("flag_get_item ") + last_message + " 32", "cmd_rm " + file}));
        for (int id = 306002; id <= 306004; id++)
            EXPECT_EQ(id == each.full_id ? "0" : "1", platform.devinfo(id)) << each.name;
        for (const char *box : {"read", "send", "draft"}) {
            const bool other = strcmp(box, each.box) != 0;
            EXPECT_EQ(other, exists(std::string("mnt/data/sms/sms_") + box + "/1")) << each.name << " " << box;
            EXPECT_EQ(other ? " 1 " : " ", read_file(std::string("mnt/data/sms/") + box + "_index"));
        }
        EXPECT_EQ("0", platform.flag(last_code));
    }
}

TEST_F(handler, gives_0_for_a_deletion_that_fails)
{
    EXPECT_EQ(0, handle(make_request(DV_SMS_MGR_MSG_ID_DELETE_RECEIVE_SMS, "1", 3)));
    EXPECT_EQ("500", platform.flag(last_code));
    EXPECT_EQ("0", platform.devinfo(306002)) << "cleared before";
}

TEST_F(handler, generates_test_messages)
{
    platform.set_cfg("SYS_SMS_MAX_SAVE_SIZE", "2");
    EXPECT_EQ(0, handle(make_request(DV_SMS_MGR_MSG_ID_GENERATE_SMS, "", 3)));
    EXPECT_ONLY_TRACED("dv_sms_mgr_handler", "DV_SMS_MGR_MSG_ID_GENERATE_SMS");
    for (const char *box : {"read", "send", "draft"})
        EXPECT_TRUE(exists(std::string("mnt/data/sms/sms_") + box + "/2"));
    EXPECT_EQ("3,21765", platform.flag(last_message));
    EXPECT_EQ("0", platform.flag(last_code));
}

/* --- notices --- */

TEST_F(handler, queues_the_failover_notice)
{
    sockmsg_record queued;

    platform.set_cfg("USR_FLOW_SMS_NOTICE_SWITCH", "1");
    platform.set_cfg("USR_FLOW_SMS_NOTICE_PHONE_NUMBER", "10086");
    platform.set_cfg("USR_WAN_MODE", "7");
    EXPECT_EQ(0, handle(make_request(DV_SMS_MGR_MSG_ID_FLOW_CONTROL_SMS, "", 3)));
    EXPECT_ONLY_TRACED("dv_sms_mgr_handler", "DV_SMS_MGR_MSG_ID_FLOW_CONTROL_SMS");
    ASSERT_EQ(1, list_pop(g_sms_send_head, &queued));
    EXPECT_STREQ("10086", reinterpret_cast<const char *>(queued.payload) + 32);
    EXPECT_EQ(0u, queued.sender_module_id | queued.sender_extra) << "nobody waits for its outcome";
    EXPECT_EQ(lines{}, platform.calls({"flag_get_item", "flag_set", "sleep"}));
}

TEST_F(handler, queues_the_warning_that_the_payload_names)
{
    sockmsg_record queued;

    platform.set_cfg("USR_FLOW_SMS_NOTICE_SWITCH", "1");
    platform.set_cfg("USR_FLOW_SMS_NOTICE_PHONE_NUMBER", "10086");
    platform.set_cfg("USR_SMS_NOTICE_FLOW_OVER_PERCENT_50_TEXT_0", "half");
    platform.set_cfg("USR_SMS_NOTICE_FLOW_OVER_PERCENT_100_TEXT_0", "all");
    EXPECT_EQ(0, handle(make_request(FLOWCONTROL_MSG_ID_WARN_EVENT, "1", 3)));
    EXPECT_ONLY_TRACED("dv_sms_mgr_handler", "FLOWCONTROL_MSG_ID_WARN_EVENT:1");
    ASSERT_EQ(1, list_pop(g_sms_send_head, &queued));
    EXPECT_STREQ("all", reinterpret_cast<const char *>(queued.payload) + 64);
    EXPECT_EQ(lines{}, platform.calls({"flag_get_item", "flag_set", "sleep"}));
}

/* --- drafts --- */

TEST_F(handler, files_a_draft_between_the_two_flags)
{
    setenv("TZ", "UTC0", 1);
    tzset();
    seams::set_time(1709647620); /* 2024-03-05 14:07:00 */
    EXPECT_EQ(0, handle(make_message(DV_SMS_MGR_MSG_ID_SAVE_DRAFT_SMS, "+31612345678", "later", 3)));
    EXPECT_EQ("1 1 +31612345678 2024-03-05 14:07:00 later", read_file("mnt/data/sms/sms_draft/1"));
    EXPECT_EQ("0", platform.flag(last_code));
    EXPECT_ONLY_TRACED("dv_sms_mgr_handler", "DV_SMS_MGR_MSG_ID_SAVE_DRAFT_SMS phone: +31612345678 msg:later");
    EXPECT_TRUE(calls_in_order({std::string("flag_set ") + last_message + " \"3,21767\"", "fopen mnt/data/sms/.new w",
                                std::string("flag_get_item ") + last_code + " 8",
                                std::string("flag_set ") + last_code + " \"0\""}));
    EXPECT_EQ(0, waiting());
}

TEST_F(handler, reports_500_for_a_draft_that_cannot_be_filed)
{
    seams::fail_statfs();
    EXPECT_EQ(0, handle(make_message(DV_SMS_MGR_MSG_ID_SAVE_DRAFT_SMS, "+31612345678", "later", 3)));
    EXPECT_EQ("500", platform.flag(last_code));
    EXPECT_FALSE(exists("mnt/data/sms/sms_draft/1"));
}

TEST_F(handler, files_a_draft_although_the_service_is_off)
{
    sms_enabled = 0;
    EXPECT_EQ(0, handle(make_message(DV_SMS_MGR_MSG_ID_SAVE_DRAFT_SMS, "1", "x", 3)));
    EXPECT_TRUE(exists("mnt/data/sms/sms_draft/1"));
}

/* --- what the modem sends --- */

static sockmsg_record make_cmti()
{
    sockmsg_record record = make_request(AT_MSG_ID_INDICATION);
    const uint32_t magic = AT_MSG_MAGIC;

    memcpy(record.payload, &magic, sizeof magic);
    memcpy(record.payload + 12, "\r\n+CMTI: \"SM\",3\r\n", 17);
    return record;
}

TEST_F(handler, drops_indications_while_the_service_is_off)
{
    uint32_t index;

    EXPECT_EQ(0, handle(make_cmti()));
    EXPECT_EQ(-1, util_dequeue(&index));
    EXPECT_EQ(lines{"dv_sms_mgr_handler: recv msg(0x1010) from module0"}, output_lines().empty() ? lines{} : traced());
    EXPECT_EQ(1u, output_lines().size()) << "not even logged";
    sms_enabled = 1;
    EXPECT_EQ(0, handle(make_cmti()));
    ASSERT_EQ(0, util_dequeue(&index));
    EXPECT_EQ(3u, index);
}

TEST_F(handler, takes_answers_of_the_modem_whether_the_service_is_on_or_off)
{
    char reply[64] = {};

    modem.script("AT\r", {{"\r\nOK\r\n"}});
    for (const bool on : {false, true}) {
        sms_enabled = on;
        memset(reply, 0, sizeof reply);
        EXPECT_EQ(0, dv_sms_mgr_send_at(15, reply, sizeof reply, "AT\r"));
        EXPECT_STREQ("\r\nOK\r\n", reply);
        EXPECT_EQ(0, handle(make_request(0x1017))) << "whether it was asked for or not";
    }
}

TEST_F(handler, reports_a_crashed_or_blocked_modem_and_gives_minus_1)
{
    for (const uint32_t id : {0x4000u, 0x4001u}) {
        for (const bool on : {false, true}) {
            sms_enabled = on;
            forget();
            EXPECT_EQ(-1, handle(make_request(id)));
            EXPECT_BOTH("dv_sms_mgr_handler", "at assert or at block");
            EXPECT_EQ(1u, saved().size());
        }
    }
}

} // namespace
