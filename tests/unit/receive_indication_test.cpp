/* Indications of new messages: the storage index or the PDU is queued, and nothing else is done. */
#include <string.h>

#include <memory>

#include "MTKT750/mtkt750_sms.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_report.h"
#include "dv_sms_mgr_utils.h"
#include "store_bench.h"

static const std::string some_pdu = "0791261304";

class receive_indication : public store_bench
{
protected:
    static lines pdus()
    {
        lines found;
        char pdu[512];

        while (util_dequeue_pdu(pdu, sizeof pdu) == 0)
            found.push_back(pdu);
        return found;
    }

    static std::vector<uint32_t> indexes()
    {
        std::vector<uint32_t> found;
        uint32_t index;

        while (util_dequeue(&index) == 0)
            found.push_back(index);
        return found;
    }

    /* In memory of its own exact size, so that a look behind its end is seen. */
    static int call(int (*handler)(const char *), const std::string &text)
    {
        const auto exact = std::make_unique<char[]>(text.size() + 1);

        memcpy(exact.get(), text.c_str(), text.size() + 1);
        return handler(exact.get());
    }
};

/* --- "+CMTI" --- */

TEST_F(receive_indication, cmti_queues_the_number_behind_the_first_comma)
{
    static const struct {
        const char *text;
        uint32_t index;
        const char *traced;
    } rows[] = {
        {"\r\n+CMTI: \"SM\",3\r\n", 3, "3"},
        {"\r\n+CMTI: \"ME\",0\r\n", 0, "0"},
        {"\r\n+CMTI: \"SM\",255\r\n", 255, "255"},
        {"\r\n+CMTI: \"SM\", 7\r\n", 7, "7"},
        {"\r\n+CMTI: \"SM\",12,99\r\n", 12, "12"},
        {"\r\n+CMTI: \"SM\",004x\r\n", 4, "4"},
        {"\r\n+CMTI: \"SM\",\r\n", 0, "0"},
        {"\r\n+CMTI: \"SM\",x\r\n", 0, "0"},
        {"\r\n+CMTI: \"SM\",-1\r\n", 0xFFFFFFFF, "-1"},
        {",5", 5, "5"},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        forget();
        EXPECT_EQ(0, call(dv_sms_mgr_cmti_handler, row.text));
        EXPECT_EQ(std::vector<uint32_t>{row.index}, indexes());
        EXPECT_EQ(
            lines{std::string("dv_sms_mgr_cmti_handler: recv new sms by cmti, not cmt, new_sms_index:") + row.traced},
            traced());
        EXPECT_EQ(lines{}, calls()); /* no AT command and no file: it runs on the bus thread */
        EXPECT_EQ(lines{}, saved());
    }
}

TEST_F(receive_indication, cmti_without_a_comma_is_reported)
{
    for (const char *text : {"\r\n+CMTI: \"SM\" 3\r\n", "\r\n+CMTI:", ""}) {
        forget();
        call(dv_sms_mgr_cmti_handler, text);
        EXPECT_BOTH("dv_sms_mgr_cmti_handler", "decode +CMTI, error!");
        EXPECT_EQ(1U, traced().size());
        EXPECT_EQ(std::vector<uint32_t>{}, indexes());
    }
}

TEST_F(receive_indication, cmti_gives_the_result_of_a_full_ring)
{
    for (int i = 0; i < 50; i++)
        ASSERT_EQ(0, dv_sms_mgr_cmti_handler("\r\n+CMTI: \"SM\",1\r\n"));
    forget();
    EXPECT_EQ(-1, dv_sms_mgr_cmti_handler("\r\n+CMTI: \"SM\",2\r\n"));
    EXPECT_BOTH("util_enqueue", "queue is full, can not enqueue");
    EXPECT_EQ(1U, traced().size()) << "not announced as received";
    EXPECT_EQ(std::vector<uint32_t>(50, 1), indexes());
}

/* --- "+CMT", generic --- */

TEST_F(receive_indication, cmt_takes_what_lies_between_the_line_ends)
{
    EXPECT_EQ(0, call(dv_sms_mgr_cmt_handler, "\r\n" + some_pdu + "\r\n"));
    EXPECT_EQ(lines{some_pdu}, pdus());
    EXPECT_EQ(lines{"dv_sms_mgr_cmt_handler: recv new sms, read by cmt, not cmti"}, traced());
    EXPECT_EQ("dv_sms_mgr_report.cpp", trace_lines().at(0).file);
    EXPECT_EQ(lines{}, saved());

    /* Two characters at either end, whatever they are. */
    EXPECT_EQ(0, call(dv_sms_mgr_cmt_handler, "ab0791cd"));
    EXPECT_EQ(lines{"0791"}, pdus());
}

TEST_F(receive_indication, cmt_without_a_text_is_reported)
{
    dv_sms_mgr_cmt_handler(nullptr);
    EXPECT_BOTH("dv_sms_mgr_cmt_handler", "pdu_data is NULL, return");
    dv_sms_mgr_t750_cmt_handler(nullptr);
    EXPECT_BOTH("dv_sms_mgr_t750_cmt_handler", "pdu_data is NULL, return");
    EXPECT_EQ(lines{}, pdus());
}

TEST_F(receive_indication, cmt_of_511_characters_is_taken_and_of_512_refused)
{
    const std::string longest = "07" + std::string(505, 'A');

    EXPECT_EQ(0, call(dv_sms_mgr_cmt_handler, "\r\n" + longest + "\r\n"));
    EXPECT_EQ(lines{longest}, pdus());
    forget();
    call(dv_sms_mgr_cmt_handler, "\r\n" + longest + "A\r\n");
    EXPECT_BOTH("dv_sms_mgr_cmt_handler", "decode +CMT, error!");
    EXPECT_EQ(1U, traced().size());
    EXPECT_EQ(lines{}, pdus());
}

TEST_F(receive_indication, cmt_too_short_for_a_pdu_is_none)
{
    for (const std::string text : {"", "\r", "\r\n", "\r\n\r", "\r\n\r\n", "\r\n0\r\n"}) {
        forget();
        call(dv_sms_mgr_cmt_handler, text);
        EXPECT_TRACED("dv_sms_mgr_cmt_handler", "not pdu data");
        EXPECT_SAVED("dv_sms_mgr_cmt_handler", "not pdu data: " + fake::visible(text));
        EXPECT_EQ(lines{}, pdus());
    }
}

/* The odd range of the second character, both handlers: "3" (51) to "C" (67), nothing around it. */
TEST_F(receive_indication, second_character_decides_whether_it_is_a_pdu)
{
    debug_mode = 0;
    for (int code = 1; code < 256; code++) {
        const std::string pdu = std::string("0") + static_cast<char>(code) + "91";
        const bool taken = code >= 51 && code <= 67;
        lines expected;

        SCOPED_TRACE(code);
        if (!taken)
            expected = {"dv_sms_mgr_cmt_handler: not pdu data: \\r\\n" + fake::visible(pdu) + "\\r\\n",
                        "dv_sms_mgr_t750_cmt_handler: not pdu data: " + fake::visible(pdu)};
        platform.forget();
        EXPECT_EQ(taken, call(dv_sms_mgr_cmt_handler, "\r\n" + pdu + "\r\n") == 0);
        EXPECT_EQ(taken ? lines{pdu} : lines{}, pdus());
        EXPECT_EQ(taken, call(dv_sms_mgr_t750_cmt_handler, "\r\n+CMT: ,2\r\n" + pdu + "\r\n") == 0);
        EXPECT_EQ(taken ? lines{pdu} : lines{}, pdus());
        EXPECT_EQ(expected, saved());
    }
}

/* The trace does not show the data, the log does. */
TEST_F(receive_indication, what_is_no_pdu_is_told_in_two_ways)
{
    call(dv_sms_mgr_cmt_handler, "\r\n0D91\r\n");
    EXPECT_EQ(lines{"dv_sms_mgr_cmt_handler: not pdu data"}, traced());
    EXPECT_EQ(lines{"dv_sms_mgr_cmt_handler: not pdu data: \\r\\n0D91\\r\\n"}, saved());
    EXPECT_EQ(lines{}, pdus());
}

TEST_F(receive_indication, first_character_does_not_matter)
{
    EXPECT_EQ(0, call(dv_sms_mgr_cmt_handler, "\r\nz7\r\n"));
    EXPECT_EQ(lines{"z7"}, pdus());
}

/* --- "+CMT" as the T750 has it --- */

TEST_F(receive_indication, t750_takes_the_line_behind_the_header)
{
    EXPECT_EQ(0, call(dv_sms_mgr_t750_cmt_handler, "\r\n+CMT: ,24\r\n" + some_pdu + "\r\n"));
    EXPECT_EQ(lines{some_pdu}, pdus());
    EXPECT_EQ((lines{"dv_sms_mgr_t750_cmt_handler: pdu: " + some_pdu, "dv_sms_mgr_t750_cmt_handler: pdu tmp[1]:7",
                     "dv_sms_mgr_t750_cmt_handler: recv new sms, read by cmt, not cmti"}),
              traced());
    EXPECT_EQ("MTKT750/mtkt750_sms.cpp", trace_lines().at(0).file);
    EXPECT_EQ(lines{}, saved());
    EXPECT_EQ(lines{}, calls());
}

TEST_F(receive_indication, t750_finds_the_line_by_its_ends)
{
    static const struct {
        const char *what;
        const char *text;
        const char *pdu;
    } rows[] = {
        {"a header with nothing in it", "\r\n+CMT:\r\n0791\r\n", "0791"},
        {"seven characters are passed over, whatever they are", "0\r\n456\r7890\r\n0791\r\n", "0791"},
        {"a line end that begins at the seventh is passed over", "012345\r\n8\r\n0791\r\n", "0791"},
        {"one that begins at the eighth is not", "0123456\r\n0791\r\n0891\r\n", "0791"},
        {"a single line feed ends nothing", "\r\n+CMT: \n,24\r\n07\n91\r\n", "07\n91"},
        {"nor does a single carriage return", "\r\n+CMT: \r,24\r\n07\r91\r\n", "07\r91"},
        {"what follows the line is not looked at", "\r\n+CMT: ,24\r\n0791\r\n0891\r\n", "0791"},
        {"without an end the rest is the line", "\r\n+CMT: ,24\r\n0791", "0791"},
    };

    for (const auto &row : rows) {
        EXPECT_EQ(0, call(dv_sms_mgr_t750_cmt_handler, row.text)) << row.what;
        EXPECT_EQ(lines{row.pdu}, pdus()) << row.what;
    }
}

TEST_F(receive_indication, t750_without_a_second_line_is_silent)
{
    for (const char *text : {"\r\n+CMT: ,24", "\r\n+CMT:", "\r\n+CMT", "\r\n", "", "\r\n+CMT: ,24\r", "012345\r\n"}) {
        EXPECT_NE(0, call(dv_sms_mgr_t750_cmt_handler, text)) << text;
        EXPECT_TRUE(silent()) << text << output();
        EXPECT_EQ(lines{}, pdus());
    }
}

TEST_F(receive_indication, t750_line_of_511_characters_is_taken_and_of_512_refused)
{
    const std::string longest = "07" + std::string(509, 'A');

    for (const std::string end : {"\r\n", ""}) {
        EXPECT_EQ(0, call(dv_sms_mgr_t750_cmt_handler, "\r\n+CMT: ,250\r\n" + longest + end));
        EXPECT_EQ(lines{longest}, pdus());
        forget();
        call(dv_sms_mgr_t750_cmt_handler, "\r\n+CMT: ,250\r\n" + longest + "A" + end);
        EXPECT_BOTH("dv_sms_mgr_t750_cmt_handler", "decode +CMT, error!");
        EXPECT_EQ(1U, traced().size());
        EXPECT_EQ(lines{}, pdus());
    }
}

TEST_F(receive_indication, t750_says_what_it_took_for_no_pdu)
{
    call(dv_sms_mgr_t750_cmt_handler, "\r\n+CMT: ,0\r\n0D91\r\n");
    EXPECT_EQ((lines{"dv_sms_mgr_t750_cmt_handler: pdu: 0D91", "dv_sms_mgr_t750_cmt_handler: pdu tmp[1]:D",
                     "dv_sms_mgr_t750_cmt_handler: not pdu data"}),
              traced());
    EXPECT_EQ(lines{"dv_sms_mgr_t750_cmt_handler: not pdu data: 0D91"}, saved());
    forget();
    call(dv_sms_mgr_t750_cmt_handler, "\r\n+CMT: ,0\r\n\r\n");
    EXPECT_TRACED("dv_sms_mgr_t750_cmt_handler", "not pdu data");
    EXPECT_EQ(lines{"dv_sms_mgr_t750_cmt_handler: not pdu data: "}, saved());
    EXPECT_EQ(lines{}, pdus());
}

/* --- both --- */

TEST_F(receive_indication, full_ring_or_no_memory_is_the_result)
{
    const struct {
        int (*handler)(const char *);
        std::string text;
        std::string name;
    } rows[] = {
        {dv_sms_mgr_cmt_handler, "\r\n" + some_pdu + "\r\n", "dv_sms_mgr_cmt_handler"},
        {dv_sms_mgr_t750_cmt_handler, "\r\n+CMT: ,24\r\n" + some_pdu + "\r\n", "dv_sms_mgr_t750_cmt_handler"},
    };

    for (const auto &row : rows) {
        fresh();
        seams::fail("malloc");
        EXPECT_EQ(-1, row.handler(row.text.c_str()));
        EXPECT_BOTH("util_enqueue_pdu", "malloc failed, can not enqueue");
        EXPECT_FALSE(in_trace(row.name, "recv new sms, read by cmt, not cmti"));
        for (int i = 0; i < 50; i++)
            ASSERT_EQ(0, row.handler(row.text.c_str()));
        forget();
        EXPECT_EQ(-1, row.handler(row.text.c_str()));
        EXPECT_BOTH("util_enqueue_pdu", "pdu queue is full, can not enqueue");
        EXPECT_FALSE(in_trace(row.name, "recv new sms, read by cmt, not cmti"));
        EXPECT_EQ(lines(50, some_pdu), pdus());
    }
}

TEST_F(receive_indication, without_debug_mode_only_the_log_speaks)
{
    debug_mode = 0;
    EXPECT_EQ(0, dv_sms_mgr_cmti_handler("\r\n+CMTI: \"SM\",3\r\n"));
    EXPECT_EQ(0, dv_sms_mgr_t750_cmt_handler("\r\n+CMT: ,24\r\n0791\r\n"));
    EXPECT_TRUE(silent());
    dv_sms_mgr_cmti_handler("\r\n+CMTI: 3");
    dv_sms_mgr_cmt_handler("\r\n0D\r\n");
    EXPECT_EQ("", output());
    EXPECT_EQ((lines{"dv_sms_mgr_cmti_handler: decode +CMTI, error!",
                     "dv_sms_mgr_cmt_handler: not pdu data: \\r\\n0D\\r\\n"}),
              saved());
}
