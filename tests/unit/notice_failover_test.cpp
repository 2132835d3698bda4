/* The notice that the wired link failed over, and the joining of texts from chunks. */
#include <string.h>

#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_utils.h"
#include "notice_bench.h"

static const std::string notice = "dv_sms_mgr_send_flow_control_notice";

static const char failover_default[] =
    "尊敬的用户，由于您的有线宽带岀现故障，为不影响您使用网络，不间断网关已自动切换为无线宽带，您可正常使用宽带网络，"
    "同时请您尽快拨打运营商客服电话申报有线宽带故障，谢谢！";

class notice_failover : public notice_bench
{
protected:
    void SetUp() override
    {
        notice_bench::SetUp();
        allow();
    }

    /* Everything that the notice asks for but a text. */
    void allow()
    {
        fresh();
        platform.set_cfg(flow_switch, "1");
        platform.set_cfg(flow_phone, "13800000000");
        platform.set_cfg("USR_WAN_MODE", "7");
    }
};

/* --- whether it is sent --- */

TEST_F(notice_failover, switch_is_on_when_it_begins_with_1)
{
    static const struct {
        const char *value; /* null: not set */
        bool on;
    } rows[] = {{"1", true},   {"1x", true},  {"10", true}, {"0", false},     {"2", false},
                {"01", false}, {" 1", false}, {"", false},  {nullptr, false}, {"on", false}};

    for (const auto &row : rows) {
        allow();
        platform.unset_cfg(flow_switch);
        if (row.value != nullptr)
            platform.set_cfg(flow_switch, row.value);
        EXPECT_EQ(row.on ? 0 : -1, dv_sms_mgr_send_flow_control_notice()) << (row.value == nullptr ? "" : row.value);
        EXPECT_EQ(row.on ? 1U : 0U, queued().size());
        if (!row.on) {
            EXPECT_BOTH(notice, "flow notice switch is closed, please check it!");
            EXPECT_EQ(1U, traced().size());
            EXPECT_EQ(lines{"cfg_get_item USR_FLOW_SMS_NOTICE_SWITCH 2"}, calls());
        }
    }
}

TEST_F(notice_failover, without_a_number_it_is_not_sent)
{
    for (const bool set : {false, true}) {
        allow();
        if (set)
            platform.set_cfg(flow_phone, "");
        else
            platform.unset_cfg(flow_phone);
        EXPECT_EQ(-1, dv_sms_mgr_send_flow_control_notice());
        EXPECT_BOTH(notice, "flow notice phone number is null, please check it!");
        EXPECT_EQ(1U, traced().size());
        EXPECT_EQ(
            (lines{"cfg_get_item USR_FLOW_SMS_NOTICE_SWITCH 2", "cfg_get_item USR_FLOW_SMS_NOTICE_PHONE_NUMBER 16"}),
            calls());
        EXPECT_EQ(std::vector<message>{}, queued());
    }
}

TEST_F(notice_failover, mode_begins_with_5_or_7)
{
    static const struct {
        const char *value; /* null: not set */
        bool fixed;
    } rows[] = {{"7", true},  {"5", true},   {"70", true},  {"5x", true}, {"6", false},    {"1", false},
                {"0", false}, {"17", false}, {" 7", false}, {"", false},  {nullptr, false}};

    for (const auto &row : rows) {
        allow();
        platform.unset_cfg("USR_WAN_MODE");
        if (row.value != nullptr)
            platform.set_cfg("USR_WAN_MODE", row.value);
        EXPECT_EQ(row.fixed ? 0 : -1, dv_sms_mgr_send_flow_control_notice()) << (row.value == nullptr ? "" : row.value);
        EXPECT_EQ(row.fixed ? 1U : 0U, queued().size());
        if (!row.fixed) {
            EXPECT_ONLY_TRACED(notice, "recently mode is not fix mode, do not send sms!");
            EXPECT_EQ(1U, traced().size());
            EXPECT_EQ((lines{"cfg_get_item USR_FLOW_SMS_NOTICE_SWITCH 2",
                             "cfg_get_item USR_FLOW_SMS_NOTICE_PHONE_NUMBER 16", "cfg_get_item USR_WAN_MODE 2"}),
                      calls());
        }
    }
}

/* --- what is sent --- */

TEST_F(notice_failover, default_text_byte_for_byte)
{
    EXPECT_EQ(249U, strlen(failover_default));
    EXPECT_EQ(0, dv_sms_mgr_send_flow_control_notice());
    EXPECT_EQ((std::vector<message>{{"13800000000", failover_default}}), queued());
    EXPECT_EQ((lines{notice + ": " + default_traced, "push_sms_into_queue: join succ"}), traced());
    EXPECT_EQ(lines{}, saved());
    EXPECT_EQ("dv_sms_mgr_generate.cpp", trace_lines().at(0).file);
    EXPECT_EQ((lines{"cfg_get_item USR_FLOW_SMS_NOTICE_SWITCH 2", "cfg_get_item USR_FLOW_SMS_NOTICE_PHONE_NUMBER 16",
                     "cfg_get_item USR_WAN_MODE 2", "cfg_get_item USR_FLOW_SMS_NOTICE_TEXT_0 128"}),
              calls());
}

TEST_F(notice_failover, configured_text_without_a_word)
{
    set_chunks(failover_key, {"ab", "cd"});
    EXPECT_EQ(0, dv_sms_mgr_send_flow_control_notice());
    EXPECT_EQ((std::vector<message>{{"13800000000", "abcd"}}), queued());
    EXPECT_EQ(lines{"push_sms_into_queue: join succ"}, traced());
    EXPECT_EQ(lines{}, saved());
}

TEST_F(notice_failover, request_holds_the_number_and_the_text_and_zeros)
{
    sockmsg_record expected = {};

    set_chunks(failover_key, {"100%s, ünchanged"});
    EXPECT_EQ(0, dv_sms_mgr_send_flow_control_notice());
    memcpy(reinterpret_cast<char *>(&expected) + 44, "13800000000", 11);
    memcpy(reinterpret_cast<char *>(&expected) + 76, "100%s, ünchanged", 17);
    const std::vector<sockmsg_record> records = queued_records();
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ(0, memcmp(&expected, &records[0], sizeof expected));
}

TEST_F(notice_failover, number_of_16_characters_is_whole)
{
    for (const std::string number : {"1234567890123456", "12345678901234567890"}) {
        allow();
        platform.set_cfg(flow_phone, number);
        EXPECT_EQ(0, dv_sms_mgr_send_flow_control_notice());
        EXPECT_EQ("1234567890123456", queued().at(0).phone);
    }
}

TEST_F(notice_failover, full_queue_does_not_matter)
{
    const sockmsg_record other = record_of({"1", "x"});

    for (int i = 0; i < 61; i++)
        ASSERT_EQ(1, push_sms_into_queue(&other));
    EXPECT_EQ(0, dv_sms_mgr_send_flow_control_notice());
    EXPECT_BOTH("push_sms_into_queue", "there are too much msgs, just stop push queue");
    EXPECT_EQ(61U, queued().size());
    seams::fail("malloc");
    EXPECT_EQ(0, dv_sms_mgr_send_flow_control_notice());
    EXPECT_EQ(0U, queued().size());
}

/* --- chunks --- */

TEST_F(notice_failover, chunks_are_joined_up_to_the_first_empty_one)
{
    static const struct {
        lines chunks;
        const char *text;
        int asked;
    } rows[] = {
        {{"ab", "cd"}, "abcd", 2}, {{"ab", "", "ef"}, "ab", 1},       {{"a", "b", "c", "d"}, "abcd", 4},
        {{" ", " "}, "  ", 2},     {{"", "cd"}, failover_default, 0}, {{}, failover_default, 0},
    };

    for (const auto &row : rows) {
        allow();
        set_chunks(failover_key, row.chunks);
        EXPECT_EQ(0, dv_sms_mgr_send_flow_control_notice());
        EXPECT_EQ(row.text, queued().at(0).text);
        const lines all = calls();
        EXPECT_EQ(chunk_reads(failover_key, row.asked), lines(all.begin() + 3, all.end()));
    }
}

TEST_F(notice_failover, chunks_are_32_at_most)
{
    std::string expected;
    lines chunks;

    for (int n = 0; n < 40; n++) {
        chunks.push_back("<" + std::to_string(n) + ">");
        if (n < 32)
            expected += chunks.back();
    }
    set_chunks(failover_key, chunks);
    EXPECT_EQ(0, dv_sms_mgr_send_flow_control_notice());
    EXPECT_EQ(expected, queued().at(0).text);
    const lines all = calls();
    EXPECT_EQ(chunk_reads(failover_key, 32), lines(all.begin() + 3, all.end()));
}

/* A chunk is what the platform gives: 128 bytes without a terminator, or 127 with one. */
TEST_F(notice_failover, chunk_of_128_bytes_is_whole)
{
    const std::string chunk(127, 'a');

    set_chunks(failover_key, {chunk + "b", "c" + chunk + "not read", "d"});
    EXPECT_EQ(0, dv_sms_mgr_send_flow_control_notice());
    EXPECT_EQ(chunk + "bc" + chunk + "d", queued().at(0).text);
    platform.set_read_mode({.fills_all = false, .empties_unset = true, .scribbles = true});
    EXPECT_EQ(0, dv_sms_mgr_send_flow_control_notice());
    EXPECT_EQ(chunk + "c" + chunk.substr(1) + "d", queued().at(0).text);
}

TEST_F(notice_failover, character_may_be_split_between_chunks)
{
    const std::string text = std::string(127, 'a') + "中文";

    set_chunks(failover_key, {text.substr(0, 128), text.substr(128)});
    EXPECT_EQ(0, dv_sms_mgr_send_flow_control_notice());
    EXPECT_EQ(text, queued().at(0).text);
}

TEST_F(notice_failover, joined_text_is_cut_at_4000)
{
    static const struct {
        const char *character;
        size_t before; /* bytes in front of the characters */
        size_t length;
    } rows[] = {{"x", 0, 4000},  {"é", 0, 4000},  {"é", 1, 3999}, {"中", 0, 3999},
                {"中", 1, 4000}, {"中", 2, 3998}, {"😀", 0, 4000}, {"😀", 1, 3997}};

    for (const auto &row : rows) {
        std::string text(row.before, '.');
        lines chunks;

        while (text.size() < 32 * 128)
            text += row.character;
        for (size_t at = 0; at < text.size(); at += 128)
            chunks.push_back(text.substr(at, 128));
        allow();
        set_chunks(failover_key, chunks);
        EXPECT_EQ(0, dv_sms_mgr_send_flow_control_notice());
        EXPECT_EQ(text.substr(0, row.length), queued().at(0).text) << row.character << row.before;
    }
}

TEST_F(notice_failover, text_of_4000_is_whole)
{
    lines chunks(31, std::string(128, 'x'));

    chunks.push_back(std::string(32, 'y'));
    set_chunks(failover_key, chunks);
    EXPECT_EQ(0, dv_sms_mgr_send_flow_control_notice());
    EXPECT_EQ(std::string(3968, 'x') + std::string(32, 'y'), queued().at(0).text);
}

/* --- through the bus --- */

TEST_F(notice_failover, request_from_the_bus)
{
    sockmsg_record record = request_of(0x5506, "ignored");

    EXPECT_EQ(0, dv_sms_mgr_handler(&record));
    EXPECT_EQ((std::vector<message>{{"13800000000", failover_default}}), queued());
    EXPECT_TRACED("dv_sms_mgr_handler", "DV_SMS_MGR_MSG_ID_FLOW_CONTROL_SMS");
    EXPECT_EQ(lines{}, platform.calls({"flag_get_item", "flag_set"})) << "no flag is touched";
}

TEST_F(notice_failover, without_debug_mode_only_the_log_speaks)
{
    debug_mode = 0;
    EXPECT_EQ(0, dv_sms_mgr_send_flow_control_notice());
    EXPECT_TRUE(silent());
    platform.set_cfg("USR_WAN_MODE", "1");
    EXPECT_EQ(-1, dv_sms_mgr_send_flow_control_notice());
    EXPECT_TRUE(silent());
    platform.set_cfg(flow_switch, "0");
    EXPECT_EQ(-1, dv_sms_mgr_send_flow_control_notice());
    EXPECT_EQ("", output());
    EXPECT_EQ(lines{notice + ": flow notice switch is closed, please check it!"}, saved());
}
