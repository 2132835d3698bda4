/* Reading command lines, final results and headers. */
#include <gtest/gtest.h>

#include "at_command.h"

using namespace at_owner;

namespace
{

TEST(ParseCommand, NamesAndForms)
{
    const asked read = parse_command("AT+CMGF?\r");
    ASSERT_EQ(read.items.size(), 1u);
    EXPECT_EQ(read.items[0].name, "+CMGF");
    EXPECT_FALSE(read.items[0].sets);
    EXPECT_FALSE(read.basic);

    EXPECT_TRUE(parse_command("AT+CREG=1\r").items[0].sets);
    EXPECT_FALSE(parse_command("AT+CREG=?\r").items[0].sets);
    EXPECT_TRUE(parse_command("ATE0\r").basic);
    EXPECT_TRUE(parse_command("ATE0\r").items.empty());
    EXPECT_TRUE(parse_command("").items.empty());
    EXPECT_FALSE(parse_command("AT\r").basic);

    const asked both = parse_command("at+cpin?;+CSCA=\"+31;6\";^RSSI\r");
    ASSERT_EQ(both.items.size(), 3u);
    EXPECT_EQ(both.items[1].name, "+CSCA");
    EXPECT_EQ(both.items[2].name, "^RSSI");

    const asked mixed = parse_command("ATE0+CMEE=1\r");
    EXPECT_TRUE(mixed.basic);
    ASSERT_EQ(mixed.items.size(), 1u);
    EXPECT_EQ(mixed.items[0].name, "+CMEE");
}

struct final_case {
    const char *line;
    bool is_final;
    int code;
    bool only_answers;
};

TEST(ParseFinal, Codes)
{
    constexpr final_case cases[] = {
        {"OK", true, 0, true},
        {"OK ", true, 0, true},
        {"OKAY", false, 0, false},
        {"ERROR", true, 1, true},
        {"ERROR: 3", false, 0, false},
        {"+CMS ERROR: 321", true, 321, true},
        {"+CMS ERROR:500", true, 500, true},
        {"+CMS ERROR: invalid memory index", true, 321, true},
        {"+CMS ERROR: Operation not allowed", true, 302, true},
        {"+CMS ERROR: what is this", true, 1, true},
        {"+CMS ERROR: ", true, 1, true},
        {"+CMS ERROR: 99999999999999", true, 1, true},
        {"+CMS ERROR: -5", true, 1, true},
        {"+CMS ERRORS: 5", false, 0, false},
        {"+CME ERROR: 10", true, 10, true},
        {"+CME ERROR: SIM not inserted", true, 10, true},
        {"+CME ERROR: 0", true, 1, true}, /* 0 would read as success */
        {"+CME ERROR: phone failure", true, 1, true},
        {"NO CARRIER", true, 1, false},
        {"BUSY", true, 1, false},
        {"ABORTED", true, 1, true},
        {"COMMAND NOT SUPPORT", true, 1, true},
        {"COMMAND NOT SUPPORT(41)", true, 1, true},
        {"+CMGF: 0", false, 0, false},
        {"", false, 0, false},
    };
    for (const final_case &c : cases) {
        const final_result got = parse_final(c.line);
        EXPECT_EQ(got.is_final, c.is_final) << c.line;
        EXPECT_EQ(got.error_code, c.code) << c.line;
        EXPECT_EQ(got.only_answers, c.only_answers) << c.line;
    }
}

struct belonging_case {
    const char *command, *line;
    bool belongs;
};

TEST(BelongsToAnswer, TellsAnswersFromReports)
{
    constexpr belonging_case cases[] = {
        {"AT+CMGR=1\r", "+CMGR: 0,,23", true},
        {"AT+CMGR=1\r", "0791", true},
        {"AT+CMGR=1\r", "+CMTI: \"SM\",3", false},
        {"AT+CMGR=1\r", "RING", false},
        {"AT+CMGR=1\r", "RINGS", true},
        {"AT+CMGR=1\r", "^RSSI: 21", false},
        {"AT+CMGR=1\r", "+XYZ: 1", false},
        {"AT+CREG?\r", "+CREG: 0,1", true},
        {"AT+CREG?\r", "+CREG: 2,5,\"1A2B\",\"01C3\",7", true},
        {"AT+CREG?\r", "+CREG: 1", false},
        {"AT+CREG?\r", "+CREG: 1,\"1A2B\",\"01C3\",7", false},
        {"AT+CREG?\r", "+CREG: 1,1A2B,01C3", false},
        {"AT+CREG=1\r", "+CREG: 1", false},
        {"AT+CEREG?\r", "+CREG: 0,1", false},
        {"AT+CPIN?\r", "+CPIN: READY", true},
        {"AT+CPIN=\"1234\"\r", "+CPIN: READY", false},
        {"AT+CPMS?\r", "+CPMS: \"SM\",0,20", true},
        {"AT+DORVYSMS=1,00\x1A\r", "+DORVYSMS: 3", true},
        {"AT+DORVYSMS=1,00\x1A\r", "+CMGS: 3", true},
        {"AT+CMGD=1\r", "+CMGS: 3", false},
        {"ATI\r", "+GCAP: +CGSM", true}, /* a basic command's answer may be anything */
        {"ATI\r", "+CMTI: \"SM\",3", false},
        {"AT+CGMM\r", "Model", true},
        {"AT^RSSI?\r", "^RSSI: 21", true},
    };
    for (const belonging_case &c : cases)
        EXPECT_EQ(belongs_to_answer(parse_command(c.command), c.line, false), c.belongs) << c.command << c.line;
    EXPECT_TRUE(belongs_to_answer(parse_command("AT+CMEE?\r"), "+CMGR: 1,,23", true));
    EXPECT_FALSE(belongs_to_answer(parse_command("AT+CMEE?\r"), "+CMTI: \"SM\",3", true));
}

TEST(DataHeader, WhatFollows)
{
    EXPECT_EQ(data_header("+CMT: ,23"), header::pdu);
    EXPECT_EQ(data_header("+CMT: \"Ann\",23"), header::pdu);
    EXPECT_EQ(data_header("+CMT:23"), header::pdu);
    EXPECT_EQ(data_header("+CMT: \"+316\",\"\",\"24/01/01,10:00:00+00\""), header::text);
    EXPECT_EQ(data_header("+CDS: 25"), header::pdu);
    EXPECT_EQ(data_header("+CDS: 6,1,\"+316\",145"), header::none);
    EXPECT_EQ(data_header("+CBM: 88"), header::pdu);
    EXPECT_EQ(data_header("+CBM: 12,50,1,1,2"), header::text);
    EXPECT_EQ(data_header("+CMTI: \"SM\",3"), header::none);
    EXPECT_EQ(data_header("+CDSI: \"SM\",3"), header::none);
}

} // namespace
