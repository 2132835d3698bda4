/* The send pipeline: what is refused, what the modem gets, what is reported and filed. */
#include <string.h>

#include <string>
#include <vector>

#include "core_sending.h"
#include "dv_sms_mgr.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_send.h"

using fake::answer;

namespace
{

static const answer no_ok = {"\r\n+CMS ERROR: 38\r\n"}, refused = {.error = 38}, unanswered = {.how = answer::silent},
                    stray = {.how = answer::other_id};

/* --- one message --- */

TEST_F(sending, submits_exactly_these_octets_with_the_vendors_command)
{
    platform.set_flag("SMS_CSCA", "+123456");
    EXPECT_EQ(0, send("12345", "hi"));
    ASSERT_EQ(1u, modem.requests().size());
    EXPECT_STREQ("AT+DORVYSMS=13,0491214365"
                 "1101"
                 "05812143F5"
                 "000008"
                 "02E834"
                 "\x1A\r",
                 modem.requests()[0].text);
    EXPECT_EQ(15, modem.requests()[0].timeout);
}

TEST_F(sending, shows_the_command_between_dashes_while_tracing_and_then_sends_it)
{
    const std::string command = "AT+DORVYSMS=13,049121436511"
                                "0105812143F50000"
                                "0802E834"
                                "\x1A\r";
    const std::string shown = "dv_sms_mgr_send.cpp---dv_sms_mgr_send_pdu_sms---";

    platform.set_flag("SMS_CSCA", "+123456");
    EXPECT_EQ(0, send("12345", "hi"));
    const std::string all = output();
    const size_t start = all.find(shown), end = all.find("---at_buff:" + command + "\n");
    ASSERT_NE(std::string::npos, start);
    ASSERT_NE(std::string::npos, end);
    const std::string number = all.substr(start + shown.size(), end - start - shown.size());
    EXPECT_EQ(std::string::npos, number.find_first_not_of("0123456789")) << number;
    EXPECT_LT(end, all.find("=> send data :AT+DORVYSMS"));
    EXPECT_EQ(lines{}, saved()) << "a message that goes out well is not logged";

    start_over();
    debug_mode = 0;
    EXPECT_EQ(0, send("12345", "hi"));
    EXPECT_EQ(std::string::npos, output().find("at_buff"));
}

TEST_F(sending, checks_then_submits_then_reports_then_files)
{
    EXPECT_EQ(0, send("+31612345678", "hello"));
    const lines calls = calls_but({"savelog", "get_app_name_by_id", "util_shell", "get_CFG_int", "cmd_echo"});

    ASSERT_GE(calls.size(), 6u);
    EXPECT_EQ((lines{"flag_get_item SMS_CSCA 32", "get_devinfo_value_by_id 301002 16"}),
              lines(calls.begin(), calls.begin() + 2));
    EXPECT_EQ(0u, calls[2].find("bus 5 AT+DORVYSMS="));
    EXPECT_EQ((lines{"pthread_cond_timedwait 18", std::string("flag_get_item ") + last_code + " 8",
                     std::string("flag_set ") + last_code + " \"0\"", "statfs mnt/data/sms/sms_send",
                     "fopen mnt/data/sms/.new w", "fopen mnt/data/sms/send_index a", "sync",
                     "set_devinfo_value_by_id 306003 \"0\" 1"}),
              lines(calls.begin() + 3, calls.end()));
    EXPECT_EQ("1 1 +31612345678 2024-03-05 14:07:00 hello", filed());
}

struct origin_case {
    uint32_t sender, extra;
    bool reports;
};

TEST_F(sending, reports_to_whoever_asked_and_to_nobody_for_its_own_messages)
{
    for (const origin_case &each :
         {origin_case{0, 0, false}, origin_case{3, 0, true}, origin_case{0, 9, true}, origin_case{3, 9, true},
          origin_case{0x80000000, 0, true}, origin_case{0, 0x80000000, true}}) {
        for (const bool succeeds : {true, false}) {
            start_over();
            if (!succeeds)
                modem.script("AT+DORVYSMS*", {refused});
            EXPECT_EQ(0, send("123", "hi", each.sender, each.extra));
            EXPECT_EQ(!each.reports ? "" : succeeds ? "0" : "500", platform.flag(last_code));
            EXPECT_EQ(each.reports ? 1u : 0u, platform.calls({"flag_set"}).size());
            EXPECT_EQ(succeeds ? "1 1 123 2024-03-05 14:07:00 hi" : "1 0 123 2024-03-05 14:07:00 hi", filed());
        }
    }
}

TEST_F(sending, files_only_after_it_has_waited_for_the_code_to_be_cleared)
{
    for (const bool succeeds : {true, false}) {
        int slept = 0;

        start_over();
        if (!succeeds)
            modem.script("AT+DORVYSMS*", {refused});
        platform.set_flag(last_code, "7");
        seams::on_sleep([&slept](unsigned, int) {
            slept++;
            EXPECT_FALSE(exists("mnt/data/sms/sms_send/1"));
        });
        EXPECT_EQ(0, send("123", "hi"));
        EXPECT_EQ(3, slept);
        EXPECT_EQ(succeeds ? "0" : "500", platform.flag(last_code));
        EXPECT_TRUE(exists("mnt/data/sms/sms_send/1"));
    }
}

TEST_F(sending, returns_what_filing_returned)
{
    EXPECT_EQ(0, send("123", "hi"));
    start_over();
    seams::fail_statfs();
    EXPECT_EQ(-1, send("123", "hi"));
    EXPECT_EQ("0", platform.flag(last_code)) << "it was sent";
    EXPECT_EQ(1u, submitted().size());
    start_over();
    modem.script("AT+DORVYSMS*", {refused});
    seams::set_free_space(4096, 1 << 18);
    EXPECT_EQ(0, send("123", "hi")) << "not sent, but filed";
}

/* --- failures --- */

struct failure_case {
    const char *name;
    std::string phone, text;
    const char *centre;  /* the flag; null: unset */
    const char *network; /* null: unset */
    std::vector<std::pair<std::string, answer>> script;
    lines asked; /* up to the first comma */
    lines said;  /* in the log, and on standard output too */
    std::string file;
};

TEST_F(sending, says_where_it_failed_and_files_the_message_all_the_same)
{
    const std::string parse = "dv_sms_mgr_parse_send_data: ", check = "dv_sms_mgr_check_send_sms: ",
                      submission = "dv_sms_mgr_send_pdu_sms: ", whole = "dv_sms_mgr_send_sms: ";
    const std::string check_failed = parse + "check sim state and send data failed, return",
                      parse_failed = whole + "parse send data failed, return",
                      pack_failed = whole + "packing pdu data failed, return",
                      send_failed = whole + "send sms failed, return",
                      no_network = "dv_sms_mgr_check_network_state: network state is error, please check it!",
                      no_sim = check + "sim state is error, please check!";
    const std::string failed = "1 0 123 2024-03-05 14:07:00 hi";
    const std::string too_small = "dv_sms_mgr_write_sms_to_file: sms msg size is 0, can not write to file";
    const std::string digits_21(21, '7');
    const failure_case cases[] = {
        {"no phone",
         "",
         "hi",
         "+3",
         "LTE",
         {},
         {},
         {parse + "phone()  send_data(hi) is error, can not send!", parse_failed},
         "1 0  2024-03-05 14:07:00 hi"},
        {"no text",
         "123",
         "",
         "+3",
         "LTE",
         {},
         {},
         {parse + "phone(123)  send_data() is error, can not send!", parse_failed, too_small},
         "(none)"},
        {"neither",
         "",
         "",
         "+3",
         "LTE",
         {},
         {},
         {parse + "phone()  send_data() is error, can not send!", parse_failed, too_small},
         "(none)"},
        {"the service centre is asked for in vain",
         "123",
         "hi",
         "",
         "LTE",
         {{"AT+CSCA?\r", refused}},
         {"AT+CSCA?"},
         {check + "check smsc failed, return", check_failed, parse_failed},
         failed},
        {"the service centre is not answered",
         "123",
         "hi",
         nullptr,
         "LTE",
         {{"AT+CSCA?\r", unanswered}},
         {"AT+CSCA?"},
         {check + "check smsc failed, return", check_failed, parse_failed},
         failed},
        {"no network", "123", "hi", "+3", "Unkown", {}, {}, {no_network, no_sim, check_failed, parse_failed}, failed},
        {"an empty network", "123", "hi", "+3", "", {}, {}, {no_network, no_sim, check_failed, parse_failed}, failed},
        {"an unset network",
         "123",
         "hi",
         "+3",
         nullptr,
         {},
         {},
         {no_network, no_sim, check_failed, parse_failed},
         failed},
        {"the network is looked at behind the service centre",
         "123",
         "hi",
         "",
         "",
         {{"AT+CSCA?\r", refused}},
         {"AT+CSCA?"},
         {check + "check smsc failed, return", check_failed, parse_failed},
         failed},
        {"too many digits",
         digits_21,
         "hi",
         "+3",
         "LTE",
         {},
         {},
         {pack_failed},
         "1 0 " + digits_21 + " 2024-03-05 14:07:00 hi"},
        {"a line end in the number",
         "1\r2",
         "hi",
         "+3",
         "LTE",
         {},
         {},
         {pack_failed},
         "1 0 1\r2 2024-03-05 14:07:00 hi"},
        {"too long a service centre", "123", "hi", "12345678901234567890123", "LTE", {}, {}, {pack_failed}, failed},
        {"the modem refuses",
         "123",
         "hi",
         "+3",
         "LTE",
         {{"AT+DORVYSMS*", refused}},
         {"AT+DORVYSMS=12"},
         {submission + "send pdu at failed, return", send_failed},
         failed},
        {"the modem is deaf",
         "123",
         "hi",
         "+3",
         "LTE",
         {{"AT+DORVYSMS*", unanswered}},
         {"AT+DORVYSMS=12"},
         {submission + "send pdu at failed, return", send_failed},
         failed},
        {"the bus is away",
         "123",
         "hi",
         "+3",
         "LTE",
         {{"AT+DORVYSMS*", {.error = 2, .how = answer::not_sent}}},
         {"AT+DORVYSMS=12"},
         {"dv_sms_mgr_send_at: sockmsg_send_common_msg() failed:2", submission + "send pdu at failed, return",
          send_failed},
         failed},
        {"the answer is no OK",
         "123",
         "hi",
         "+3",
         "LTE",
         {{"AT+DORVYSMS*", no_ok}},
         {"AT+DORVYSMS=12"},
         {submission + "recv pdu at failed:\\r\\n+CMS ERROR: 38\\r\\n", send_failed},
         failed},
        {"the answer is another's",
         "123",
         "hi",
         "+3",
         "LTE",
         {{"AT+DORVYSMS*", stray}},
         {"AT+DORVYSMS=12"},
         {submission + "recv pdu at failed:", send_failed},
         failed},
    };

    for (const bool tracing : {true, false}) {
        for (const failure_case &each : cases) {
            lines begun;

            start_over();
            debug_mode = tracing;
            platform.unset_flag("SMS_CSCA");
            if (each.centre != nullptr)
                platform.set_flag("SMS_CSCA", each.centre);
            platform.unset_devinfo(301002);
            if (each.network != nullptr)
                platform.set_devinfo(301002, each.network);
            for (const auto &[command, given] : each.script)
                modem.script(command, {given});
            EXPECT_EQ(each.file == "(none)" ? -1 : 0, send(each.phone, each.text)) << each.name;
            for (const std::string &command : platform.commands())
                begun.push_back(command.substr(0, command.find_first_of(",\\")));
            EXPECT_EQ(each.asked, begun) << each.name;
            EXPECT_EQ(each.said, saved()) << each.name;
            for (const std::string &line : each.said) {
                const bool filing = line == too_small;                      /* that one is only logged */
                const std::string first = line.substr(0, line.find("\\n")); /* a trace line ends there */
                EXPECT_EQ(tracing && !filing ? 1u : 0u, times(traced(), first)) << each.name << ": " << line;
            }
            EXPECT_EQ("500", platform.flag(last_code)) << each.name;
            EXPECT_EQ(each.file, filed()) << each.name;
        }
    }
}

TEST_F(sending, a_number_that_cannot_be_packed_is_explained_in_the_trace_only)
{
    EXPECT_EQ(0, send(std::string(21, '7'), "hi"));
    EXPECT_ONLY_TRACED("dv_sms_mgr_pack_pdu_data", "dv_sms_mgr_pdu_gen_phone failed");
}

TEST_F(sending, no_record_is_no_message)
{
    EXPECT_EQ(-1, dv_sms_mgr_parse_send_data(nullptr));
    EXPECT_EQ(lines{}, saved());
    EXPECT_EQ(-1, dv_sms_mgr_send_sms(nullptr));
    EXPECT_EQ(lines{}, platform.calls({"bus", "flag_set", "fopen"}));
}

struct network_case {
    const char *state; /* null: unset */
    int result;
};

TEST_F(sending, any_network_will_do_but_an_empty_one_and_the_one_spelled_unkown)
{
    for (const bool emptied : {false, true}) {
        for (const network_case &each :
             {network_case{"LTE", 0}, network_case{"NR5G-SA", 0}, network_case{"0", 0}, network_case{"Unknown", 0},
              network_case{"unkown", 0}, network_case{"Unkown ", 0}, network_case{"Unkow", 0},
              network_case{"Unkown0123456789", 0}, network_case{"0123456789ABCDEF0", 0}, network_case{"Unkown", -1},
              network_case{"", -1}, network_case{nullptr, -1}}) {
            forget();
            platform.set_read_mode({.empties_unset = emptied, .scribbles = emptied});
            platform.unset_devinfo(301002);
            if (each.state != nullptr)
                platform.set_devinfo(301002, each.state);
            EXPECT_EQ(each.result, dv_sms_mgr_check_network_state()) << ::testing::PrintToString(each.state);
            EXPECT_EQ(1, platform.count("get_devinfo_value_by_id 301002 16"));
            const bool complains = each.result != 0;
            EXPECT_EQ(complains,
                      in_trace("dv_sms_mgr_check_network_state", "network state is error, please check it!"));
            EXPECT_EQ(complains, in_log("dv_sms_mgr_check_network_state", "network state is error, please check it!"));
        }
    }
}

/* --- the service centre --- */

TEST_F(sending, takes_the_service_centre_from_the_flag_before_every_message)
{
    EXPECT_EQ(0, send("123", "hi"));
    platform.set_flag("SMS_CSCA", "0612345678");
    EXPECT_EQ(0, send("123", "hi"));
    ASSERT_EQ(2u, submitted().size());
    EXPECT_EQ("07911356131313F3", submitted()[0].smsc);
    EXPECT_EQ("06816021436587", submitted()[1].smsc);
    EXPECT_EQ(2, platform.count("flag_get_item SMS_CSCA 32"));
    EXPECT_EQ(0, platform.count("bus 5 AT+CSCA?\\r"));
}

struct centre_case {
    const char *name;
    std::string reply;
    std::string number;
};

TEST_F(sending, asks_the_modem_when_the_flag_is_empty_and_does_not_write_it_back)
{
    const std::string long_number(40, '7');
    const centre_case cases[] = {
        {"usual", ok("+CSCA: \"+316540881003\",145"), "+316540881003"},
        {"no OK", "\r\n+CSCA: \"+316540881003\",145\r\n", ""},
        {"an error", "\r\nERROR\r\n", ""},
        {"only OK", plain_ok, ""},
        {"empty", ok("+CSCA: \"\",145"), ""},
        {"without quotes", ok("+CSCA: +316540881003,145"), ""},
        {"without a second quote", ok("+CSCA: \"+316540881003,145"), ""},
        {"another line in front", ok("+X: \"1\"\r\n\r\n+CSCA: \"+2\",145"), "+2"},
        {"no line end in front", "+CSCA: \"+3\",145\r\n\r\nOK\r\n", ""},
        {"too long", ok("+CSCA: \"" + long_number + "\",145"), long_number.substr(0, 31)},
        {"OK ends at the 255th character", "\r\n+CSCA: \"+4\"" + std::string(236, ' ') + "\r\nOK\r\n", "+4"},
        {"OK ends at the 256th character", "\r\n+CSCA: \"+4\"" + std::string(237, ' ') + "\r\nOK\r\n", ""},
    };

    for (const bool emptied : {false, true}) {
        platform.set_read_mode("flag_get_item", {.empties_unset = emptied});
        for (const centre_case &each : cases) {
            platform.set_flag("SMS_CSCA", "+99999");
            ASSERT_EQ(0, dv_sms_mgr_check_smsc()); /* what must not stay behind */
            EXPECT_STREQ("+99999", dv_sms_smsc);
            platform.unset_flag("SMS_CSCA");
            forget();
            modem.script("AT+CSCA?\r", {{each.reply}});
            EXPECT_EQ(0, dv_sms_mgr_check_smsc()) << each.name;
            EXPECT_EQ(each.number, dv_sms_smsc) << each.name;
            EXPECT_EQ(lines{"AT+CSCA?"}, asked());
            EXPECT_EQ(15, modem.requests().back().timeout);
            EXPECT_EQ(lines{}, platform.calls({"flag_set"})) << each.name;
            EXPECT_EQ(lines{}, saved()) << each.name;
        }
    }
}

TEST_F(sending, the_question_for_the_service_centre_may_fail)
{
    platform.set_flag("SMS_CSCA", "");
    for (const answer &how : {refused, unanswered}) {
        modem.script("AT+CSCA?\r", {how});
        EXPECT_EQ(-1, dv_sms_mgr_check_smsc());
        EXPECT_STREQ("", dv_sms_smsc);
    }
    modem.script("AT+CSCA?\r", {stray});
    EXPECT_EQ(0, dv_sms_mgr_check_smsc()) << "another's answer is none without OK";
    EXPECT_STREQ("", dv_sms_smsc);
}

TEST_F(sending, a_flag_of_thirty_two_characters_fills_its_buffer)
{
    platform.set_flag("SMS_CSCA", std::string(32, '7'));
    EXPECT_EQ(0, dv_sms_mgr_check_smsc());
    EXPECT_EQ(std::string(32, '7'), dv_sms_smsc);
    EXPECT_EQ(lines{}, asked());
}

TEST_F(sending, without_a_service_centre_it_sends_with_an_empty_one)
{
    platform.set_flag("SMS_CSCA", "");
    modem.script("AT+CSCA?\r", {{plain_ok}});
    EXPECT_EQ(0, send("123", "hi"));
    ASSERT_EQ(1u, submitted().size());
    EXPECT_EQ("0181", submitted()[0].smsc);
    EXPECT_TRUE(submitted()[0].well_formed);
}

/* --- several parts --- */

TEST_F(sending, the_first_part_that_fails_ends_the_message)
{
    for (const answer &how : {refused, no_ok, unanswered, stray}) {
        start_over();
        modem.script("AT+DORVYSMS*", {{plain_ok}, how, {plain_ok}});
        EXPECT_EQ(0, send("123", letters(400)));
        EXPECT_EQ(2u, submitted().size()) << "the third is not sent";
        EXPECT_EQ("500", platform.flag(last_code));
        EXPECT_EQ("1 0 123 2024-03-05 14:07:00 " + letters(400), filed());
        EXPECT_BOTH("dv_sms_mgr_send_sms", "send sms failed, return");
    }
}

TEST_F(sending, the_code_is_reported_once_and_behind_the_last_part)
{
    EXPECT_EQ(0, send("123", letters(400)));
    const lines calls = platform.calls({"bus", "flag_set"});
    ASSERT_EQ(4u, calls.size());
    for (size_t i = 0; i < 3; i++)
        EXPECT_EQ(0u, calls[i].find("bus 5 AT+DORVYSMS="));
    EXPECT_EQ(std::string("flag_set ") + last_code + " \"0\"", calls[3]);
    EXPECT_EQ(" 1 ", read_file("mnt/data/sms/send_index")) << "one message is filed";
}

TEST_F(sending, every_part_waits_fifteen_seconds_and_reads_255_characters)
{
    const std::string late_ok = std::string(249, ' ') + "\r\nOK\r\n"; /* 255 characters */

    modem.script("AT+DORVYSMS*", {{late_ok}, {late_ok}, {" " + late_ok}});
    EXPECT_EQ(0, send("123", letters(400)));
    EXPECT_EQ("500", platform.flag(last_code)) << "the third one's OK stands beyond";
    for (const at_request &request : modem.requests())
        EXPECT_EQ(15, request.timeout);
    EXPECT_EQ(3u, submitted().size());
}

TEST_F(sending, ascii_is_what_is_below_128)
{
    EXPECT_EQ(1, dv_sms_mgr_is_ascii("", 0));
    EXPECT_EQ(1, dv_sms_mgr_is_ascii("\x01\x7F", 2));
    EXPECT_EQ(0, dv_sms_mgr_is_ascii("\x80", 1));
    EXPECT_EQ(0, dv_sms_mgr_is_ascii("ab\xFF", 3));
    EXPECT_EQ(1, dv_sms_mgr_is_ascii("ab\xFF", 2)) << "only as far as asked";
    EXPECT_EQ(0, dv_sms_mgr_is_ascii("\xFF"
                                     "ab",
                                     3));
}

} // namespace
