/* Warnings of the data traffic, four types. */
#include <string.h>

#include "dv_sms_mgr_log.h"
#include "notice_bench.h"

static const std::string warn = "dv_sms_mgr_send_flow_control_warn";

static const char half_default[] = "尊敬的用户，您的流量已使用50%，请注意！";
static const char all_default[] = "尊敬的用户，您的流量已使用100%，设备已经断网，请注意！";

class notice_warning : public notice_bench
{
protected:
    void SetUp() override
    {
        notice_bench::SetUp();
        allow();
    }

    /* Everything that any type asks for. */
    void allow()
    {
        fresh();
        platform.set_cfg(flow_switch, "1");
        platform.set_cfg(flow_phone, "100");
        for (const char *region : {"NATIONAL", "INTERNATIONAL"}) {
            const std::string prefix = std::string("USR_") + region + "_FLOW_SMS_NOTICE_";

            platform.set_cfg(prefix + "SWITCH", "1");
            platform.set_cfg(prefix + "PHONE_NUMBER", region[0] == 'N' ? "200" : "300");
            platform.set_cfg(prefix + "TEXT_0", region[0] == 'N' ? "national" : "international");
        }
    }
};

/* --- the type --- */

TEST_F(notice_warning, type_is_the_payload_s_decimal_value)
{
    const message half = {"100", half_default}, all = {"100", all_default}, national = {"200", "national"},
                  international = {"300", "international"}, none = {};
    const struct {
        const char *payload;
        const message *sent;
    } rows[] = {{"0", &half},          {"1", &all},
                {"2", &national},      {"3", &international},
                {"4", &none},          {"-1", &none},
                {"5", &none},          {"10", &none},
                {"100", &none},        {"", &half},
                {"x", &half},          {"x2", &half},
                {"2x", &national},     {" 3", &international},
                {"+1", &all},          {"003", &international},
                {"1.9", &all},         {"0x2", &half},
                {"2,3", &national},    {"-0", &half},
                {"2147483647", &none}, {"-2147483648", &none},
                {"\n1", &all}};

    for (const auto &row : rows) {
        allow();
        EXPECT_EQ(row.sent == &none ? -1 : 0, dv_sms_mgr_send_flow_control_warn(row.payload)) << row.payload;
        EXPECT_EQ(row.sent == &none ? std::vector<message>{} : std::vector<message>{*row.sent}, queued())
            << row.payload;
        if (row.sent == &none) {
            EXPECT_TRUE(silent()) << row.payload;
            EXPECT_EQ(lines{}, calls()) << row.payload;
        }
    }
}

TEST_F(notice_warning, without_a_payload_it_is_reported)
{
    EXPECT_EQ(-1, dv_sms_mgr_send_flow_control_warn(nullptr));
    EXPECT_BOTH(warn, "sockmsg data is null, please check it!");
    EXPECT_EQ(lines{}, calls());
}

/* --- half and all of the allowance --- */

struct allowance {
    const char *payload;
    const char *key;
    const char *text;
};

static const allowance allowances[] = {{"0", half_key, half_default}, {"1", all_key, all_default}};

TEST_F(notice_warning, allowance_default_texts_byte_for_byte)
{
    EXPECT_EQ(57U, strlen(half_default));
    EXPECT_EQ(79U, strlen(all_default));
    for (const allowance &each : allowances) {
        allow();
        EXPECT_EQ(0, dv_sms_mgr_send_flow_control_warn(each.payload));
        EXPECT_EQ((std::vector<message>{{"100", each.text}}), queued());
        EXPECT_EQ((lines{warn + ": " + default_traced, "push_sms_into_queue: join succ"}), traced());
        EXPECT_EQ(lines{}, saved());
        EXPECT_EQ(
            (lines{"cfg_get_item USR_FLOW_SMS_NOTICE_SWITCH 2", "cfg_get_item USR_FLOW_SMS_NOTICE_PHONE_NUMBER 16",
                   std::string("cfg_get_item ") + each.key + "0 128"}),
            calls())
            << "the mode of the WAN is not looked at";
    }
}

TEST_F(notice_warning, allowance_texts_from_their_own_chunks)
{
    set_chunks(half_key, {"half", " used"});
    set_chunks(all_key, {"all", " used"});
    set_chunks(failover_key, {"failover"});
    EXPECT_EQ(0, dv_sms_mgr_send_flow_control_warn("0"));
    EXPECT_EQ(0, dv_sms_mgr_send_flow_control_warn("1"));
    EXPECT_EQ((std::vector<message>{{"100", "half used"}, {"100", "all used"}}), queued());
    EXPECT_FALSE(in_trace(warn, default_traced));
    EXPECT_EQ(lines{}, saved());
}

TEST_F(notice_warning, allowance_switch_and_number)
{
    for (const allowance &each : allowances) {
        for (const char *value : {"0", "", "2", "01"}) {
            allow();
            platform.set_cfg(flow_switch, value);
            EXPECT_EQ(-1, dv_sms_mgr_send_flow_control_warn(each.payload));
            EXPECT_BOTH(warn, "flow notice switch is closed, please check it!");
            EXPECT_EQ(1U, traced().size());
            EXPECT_EQ(1U, calls().size());
        }
        allow();
        platform.set_cfg(flow_phone, "");
        EXPECT_EQ(-1, dv_sms_mgr_send_flow_control_warn(each.payload));
        EXPECT_BOTH(warn, "flow notice phone number is null, please check it!");
        EXPECT_EQ(1U, traced().size());
        EXPECT_EQ(2U, calls().size());
        EXPECT_EQ(std::vector<message>{}, queued());
    }
}

/* --- national and international --- */

struct region {
    const char *payload;
    const char *prefix;
    const char *closed;
    const char *no_phone_traced, *no_phone_saved; /* they differ on purpose */
    const char *no_text;
    message sent;
};

static const region regions[] = {
    {"2",
     "USR_NATIONAL_FLOW_SMS_NOTICE_",
     "national_notice_sw is closed, please check it!",
     "notional flow notice phone number is null, please check it!",
     "notional notice phone number is null, please check it!",
     "empty USR_NATIONAL_FLOW_SMS_NOTICE_TEXT, break",
     {"200", "national"}},
    {"3",
     "USR_INTERNATIONAL_FLOW_SMS_NOTICE_",
     "international_notice_sw is closed, please check it!",
     "international notice phone number is null, please check it!",
     "international notice phone number is null, please check it!",
     "empty USR_INTERNATIONAL_FLOW_SMS_NOTICE_TEXT, break",
     {"300", "international"}},
};

TEST_F(notice_warning, region_switch_is_a_number)
{
    static const struct {
        const char *value; /* null: not set */
        bool on;
    } rows[] = {{"1", true},  {"2", true},      {"-1", true}, {"10", true}, {"01", true},
                {"0", false}, {nullptr, false}, {"x", false}, {"", false}};

    for (const region &each : regions) {
        for (const auto &row : rows) {
            allow();
            platform.unset_cfg(each.prefix + std::string("SWITCH"));
            if (row.value != nullptr)
                platform.set_cfg(each.prefix + std::string("SWITCH"), row.value);
            platform.set_cfg(flow_switch, "0"); /* not this one's */
            EXPECT_EQ(row.on ? 0 : -1, dv_sms_mgr_send_flow_control_warn(each.payload));
            EXPECT_EQ(row.on ? std::vector<message>{each.sent} : std::vector<message>{}, queued());
            EXPECT_EQ(row.on ? lines{"push_sms_into_queue: join succ"} : lines{warn + ": " + each.closed}, traced());
            EXPECT_EQ(lines{}, saved());
            if (!row.on) {
                EXPECT_EQ(lines{std::string("get_CFG_int ") + each.prefix + "SWITCH"}, calls());
            }
        }
    }
}

TEST_F(notice_warning, region_number_that_is_missing_is_told_in_two_ways)
{
    for (const region &each : regions) {
        for (const bool set : {false, true}) {
            allow();
            if (set)
                platform.set_cfg(each.prefix + std::string("PHONE_NUMBER"), "");
            else
                platform.unset_cfg(each.prefix + std::string("PHONE_NUMBER"));
            EXPECT_EQ(-1, dv_sms_mgr_send_flow_control_warn(each.payload));
            EXPECT_EQ(lines{warn + ": " + each.no_phone_traced}, traced());
            EXPECT_EQ(lines{warn + ": " + each.no_phone_saved}, saved());
            EXPECT_EQ((lines{std::string("get_CFG_int ") + each.prefix + "SWITCH",
                             std::string("cfg_get_item ") + each.prefix + "PHONE_NUMBER 16"}),
                      calls());
            EXPECT_EQ(std::vector<message>{}, queued());
        }
    }
}

TEST_F(notice_warning, region_has_no_default_text)
{
    for (const region &each : regions) {
        allow();
        platform.set_cfg(each.prefix + std::string("TEXT_0"), "");
        platform.set_cfg(each.prefix + std::string("TEXT_1"), "never seen");
        EXPECT_EQ(-1, dv_sms_mgr_send_flow_control_warn(each.payload));
        EXPECT_EQ(lines{warn + ": " + each.no_text}, traced());
        EXPECT_EQ(lines{}, saved());
        EXPECT_EQ((lines{std::string("get_CFG_int ") + each.prefix + "SWITCH",
                         std::string("cfg_get_item ") + each.prefix + "PHONE_NUMBER 16",
                         std::string("cfg_get_item ") + each.prefix + "TEXT_0 128"}),
                  calls());
        EXPECT_EQ(std::vector<message>{}, queued());
    }
}

TEST_F(notice_warning, region_request_holds_the_number_and_the_text_and_zeros)
{
    const std::string phone = "1234567890123456";

    for (const region &each : regions) {
        sockmsg_record expected = {};

        allow();
        platform.set_cfg(each.prefix + std::string("PHONE_NUMBER"), phone + "7");
        set_chunks(each.prefix + std::string("TEXT_"), {"one ", "two ", "three"});
        EXPECT_EQ(0, dv_sms_mgr_send_flow_control_warn(each.payload));
        memcpy(reinterpret_cast<char *>(&expected) + 44, phone.data(), 16);
        memcpy(reinterpret_cast<char *>(&expected) + 76, "one two three", 13);
        const std::vector<sockmsg_record> records = queued_records();
        ASSERT_EQ(1U, records.size());
        EXPECT_EQ(0, memcmp(&expected, &records[0], sizeof expected));
    }
}

/* --- all --- */

TEST_F(notice_warning, result_is_0_whether_the_queue_took_it_or_not)
{
    for (const char *payload : {"0", "1", "2", "3"}) {
        allow();
        seams::fail("malloc");
        EXPECT_EQ(0, dv_sms_mgr_send_flow_control_warn(payload));
        EXPECT_EQ(std::vector<message>{}, queued());
    }
}

TEST_F(notice_warning, text_of_any_type_is_cut_at_4000)
{
    for (const std::string key :
         {half_key, all_key, "USR_NATIONAL_FLOW_SMS_NOTICE_TEXT_", "USR_INTERNATIONAL_FLOW_SMS_NOTICE_TEXT_"}) {
        allow();
        set_chunks(key, lines(40, std::string(128, 'x')));
        const char *payload = key == half_key ? "0" : key == all_key ? "1" : key[4] == 'N' ? "2" : "3";
        EXPECT_EQ(0, dv_sms_mgr_send_flow_control_warn(payload));
        EXPECT_EQ(std::string(4000, 'x'), queued().at(0).text);
        const lines all = calls();
        EXPECT_EQ(chunk_reads(key, 32), lines(all.begin() + 2, all.end()));
    }
}

TEST_F(notice_warning, reads_that_end_otherwise_are_the_same)
{
    for (const char *payload : {"0", "2", "3"}) {
        allow();
        platform.set_read_mode({.fills_all = false, .empties_unset = true, .scribbles = true});
        EXPECT_EQ(0, dv_sms_mgr_send_flow_control_warn(payload));
        ASSERT_EQ(1U, queued_records().size());
    }
}

TEST_F(notice_warning, request_from_the_bus)
{
    sockmsg_record record = request_of(0x8002, "1");

    EXPECT_EQ(0, dv_sms_mgr_handler(&record));
    EXPECT_EQ((std::vector<message>{{"100", all_default}}), queued());
    EXPECT_TRACED("dv_sms_mgr_handler", "FLOWCONTROL_MSG_ID_WARN_EVENT:1");
    EXPECT_EQ(lines{}, platform.calls({"flag_get_item", "flag_set"})) << "no flag is touched";

    /* The payload fills all its bytes; the digit behind it is not the payload's. */
    record = request_of(0x8002, std::string(4095, '0') + "3", 0x30303030);
    EXPECT_EQ(0, dv_sms_mgr_handler(&record));
    EXPECT_EQ((std::vector<message>{{"300", "international"}}), queued());
}

TEST_F(notice_warning, without_debug_mode_only_the_log_speaks)
{
    debug_mode = 0;
    EXPECT_EQ(0, dv_sms_mgr_send_flow_control_warn("0"));
    platform.unset_cfg("USR_NATIONAL_FLOW_SMS_NOTICE_SWITCH");
    EXPECT_EQ(-1, dv_sms_mgr_send_flow_control_warn("2"));
    platform.unset_cfg("USR_INTERNATIONAL_FLOW_SMS_NOTICE_TEXT_0");
    EXPECT_EQ(-1, dv_sms_mgr_send_flow_control_warn("3"));
    EXPECT_TRUE(silent());
}
