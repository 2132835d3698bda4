/* Received texts that go on to a handset. */
#include <string.h>

#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_utils.h"
#include "store_bench.h"
#include "store_pdu.h"

static const std::string redirect = "need_redirect_sms_to_handset";
static const char switch_key[] = "USR_SMS_REDIRECT_SW";
static const char phone_key[] = "USR_SMS_REDIRECT_PHONE";

class receive_redirect : public store_bench
{
protected:
    void switch_on(const std::string &phone = "+31687654321")
    {
        platform.set_cfg(switch_key, "1");
        platform.set_cfg(phone_key, phone);
    }
};

TEST_F(receive_redirect, switch_is_0_or_1_and_nothing_else)
{
    static const struct {
        const char *value; /* null: not set */
        const char *message;
    } rows[] = {
        {"0", "redirect_sw(0) no need for SMS redirection"}, {nullptr, "redirect_sw(0) no need for SMS redirection"},
        {"2", "redirect_sw(2) invalid parameter"},           {"-1", "redirect_sw(-1) invalid parameter"},
        {"10", "redirect_sw(10) invalid parameter"},
    };

    for (const auto &row : rows) {
        fresh();
        platform.set_cfg(phone_key, "+31687654321");
        if (row.value != nullptr)
            platform.set_cfg(switch_key, row.value);
        need_redirect_sms_to_handset("hi");
        EXPECT_EQ(lines{redirect + ": " + row.message}, traced());
        EXPECT_EQ(lines{}, saved());
        EXPECT_EQ(lines{"get_CFG_int USR_SMS_REDIRECT_SW"}, calls()) << "the number is not looked up";
        EXPECT_EQ(std::vector<message>{}, queued());
    }
}

TEST_F(receive_redirect, without_a_number_nothing_is_queued)
{
    platform.set_cfg(switch_key, "1");
    need_redirect_sms_to_handset("hi");
    platform.set_cfg(phone_key, "");
    need_redirect_sms_to_handset("hi");
    EXPECT_EQ((lines{redirect + ": redirect_phone size is 0!", redirect + ": redirect_phone size is 0!"}), traced());
    EXPECT_EQ(lines{}, saved());
    EXPECT_EQ(std::vector<message>{}, queued());
}

TEST_F(receive_redirect, without_a_text_nothing_is_looked_up)
{
    switch_on();
    need_redirect_sms_to_handset(nullptr);
    EXPECT_ONLY_TRACED(redirect, "invalid parameter");
    EXPECT_EQ(1U, traced().size());
    EXPECT_EQ(lines{}, calls());
}

TEST_F(receive_redirect, request_holds_the_number_and_the_text_and_zeros)
{
    switch_on();
    need_redirect_sms_to_handset("a text, ünchanged\n 100%s");
    EXPECT_EQ((lines{"get_CFG_int USR_SMS_REDIRECT_SW", "cfg_get_item USR_SMS_REDIRECT_PHONE 32"}), calls());
    EXPECT_ONLY_TRACED(redirect, "redirect sms msg to handset");
    EXPECT_EQ(lines{}, saved());

    sockmsg_record expected = {};
    memcpy(reinterpret_cast<char *>(&expected) + 44, "+31687654321", 12);
    memcpy(reinterpret_cast<char *>(&expected) + 76, "a text, ünchanged\n 100%s", 25);
    const std::vector<sockmsg_record> records = queued_records();
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ(0, memcmp(&expected, &records[0], sizeof expected));
}

TEST_F(receive_redirect, number_and_text_are_cut_to_their_fields)
{
    static const struct {
        std::string value, expected;
    } numbers[] =
        {
            {std::string(31, '1'), std::string(31, '1')},
            {std::string(32, '1'), std::string(31, '1')},
            {std::string(40, '1'), std::string(31, '1')},
            {std::string(30, '1') + "é", std::string(30, '1')},
        },
      texts[] = {
          {std::string(4031, 'x'), std::string(4031, 'x')},
          {std::string(4032, 'x'), std::string(4031, 'x')},
          {std::string(9000, 'x'), std::string(4031, 'x')},
          {std::string(4030, 'x') + "é", std::string(4030, 'x')},
          {std::string(4029, 'x') + "é", std::string(4029, 'x') + "é"},
          {std::string(4028, 'x') + "😀", std::string(4028, 'x')},
      };

    for (const auto &number : numbers) {
        switch_on(number.value);
        need_redirect_sms_to_handset("hi");
        EXPECT_EQ((std::vector<message>{{number.expected, "hi"}}), queued());
    }
    for (const auto &text : texts) {
        switch_on();
        need_redirect_sms_to_handset(text.value.c_str());
        EXPECT_EQ((std::vector<message>{{"+31687654321", text.expected}}), queued());
    }
}

TEST_F(receive_redirect, reads_that_end_otherwise_are_the_same)
{
    for (const fake::read_mode mode : {fake::read_mode{.fills_all = false, .empties_unset = true, .scribbles = true},
                                       fake::read_mode{.unset_result = 0}}) {
        fresh();
        platform.set_read_mode(mode);
        platform.set_cfg(switch_key, "1");
        need_redirect_sms_to_handset("hi");
        EXPECT_ONLY_TRACED(redirect, "redirect_phone size is 0!");
        platform.set_cfg(phone_key, "123");
        need_redirect_sms_to_handset("hi");
        EXPECT_EQ((std::vector<message>{{"123", "hi"}}), queued());
    }
}

TEST_F(receive_redirect, refused_request_is_reported)
{
    const sockmsg_record other = record_of({"1", "x"});

    switch_on();
    for (int i = 0; i < 60; i++)
        ASSERT_EQ(1, push_sms_into_queue(&other));
    forget();
    need_redirect_sms_to_handset("the 61st");
    EXPECT_ONLY_TRACED(redirect, "redirect sms msg to handset");
    forget();
    need_redirect_sms_to_handset("the 62nd");
    EXPECT_BOTH(redirect, "push redirect_sms to queue fail");
    EXPECT_FALSE(in_trace(redirect, "redirect sms msg to handset"));
    EXPECT_EQ("the 61st", queued().back().text);

    forget();
    seams::fail("malloc");
    seams::fail("calloc");
    need_redirect_sms_to_handset("no memory");
    EXPECT_BOTH(redirect, "push redirect_sms to queue fail");
    EXPECT_EQ(std::vector<message>{}, queued());
}

/* --- as part of receiving --- */

TEST_F(receive_redirect, configuration_is_read_for_every_message)
{
    dv_sms_mgr_receive_sms_by_cmt(pdu_hi);
    switch_on("111");
    dv_sms_mgr_receive_sms_by_cmt(pdu_hi);
    switch_on("222");
    dv_sms_mgr_receive_sms_by_cmt(pdu_hi);
    platform.set_cfg(switch_key, "0");
    dv_sms_mgr_receive_sms_by_cmt(pdu_hi);
    EXPECT_EQ((std::vector<message>{{"111", "hi"}, {"222", "hi"}}), queued());
    EXPECT_EQ((lines{"1", "2", "3", "4"}), names(read_dir));
}

TEST_F(receive_redirect, joined_message_goes_on_once_as_a_whole)
{
    switch_on("111");
    dv_sms_mgr_receive_sms_by_cmt(pdu_of("two", {42, 2, 2}).c_str());
    EXPECT_EQ(std::vector<message>{}, queued());
    dv_sms_mgr_receive_sms_by_cmt(pdu_of("one ", {42, 2, 1}).c_str());
    EXPECT_EQ((std::vector<message>{{"111", "one two"}}), queued());
}

TEST_F(receive_redirect, only_what_is_filed_as_received_goes_on)
{
    switch_on();
    for (const int box : {BOX_SENT, BOX_DRAFT}) {
        const sockmsg_record record = record_of({"1", "x"});
        EXPECT_EQ(0, dv_sms_mgr_write_sms_to_file(box, 1, &record));
    }
    dv_sms_mgr_receive_sms_by_cmt(pdu_of("").c_str());
    seams::fail_statfs();
    dv_sms_mgr_receive_sms_by_cmt(pdu_hi);
    EXPECT_EQ(std::vector<message>{}, queued());
    EXPECT_EQ(0, platform.count("get_CFG_int USR_SMS_REDIRECT_SW"));
}

TEST_F(receive_redirect, message_is_filed_whatever_becomes_of_the_redirect)
{
    switch_on();
    seams::fail("malloc");
    dv_sms_mgr_receive_sms_by_cmt(pdu_hi);
    seams::fail("malloc", 0);
    EXPECT_EQ(line_of(1, 0), read_file(read_dir + "/1"));
    platform.set_cfg(switch_key, "7");
    dv_sms_mgr_receive_sms_by_cmt(pdu_hi);
    EXPECT_EQ(line_of(2, 0), read_file(read_dir + "/2"));
    EXPECT_EQ(" 1 2 ", read_file(read_index));
}
