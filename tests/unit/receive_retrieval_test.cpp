/* Taking a message in: read from the storage, decoded, filed, deleted from the storage; or delivered directly. */
#include <errno.h>

#include "MTKT750/mtkt750_sms.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_utils.h"
#include "store_bench.h"
#include "store_pdu.h"

static const std::string by_cmti = "dv_sms_mgr_receive_sms_by_cmti";
static const std::string by_cmt = "dv_sms_mgr_receive_sms_by_cmt";
static const std::string hi_line = "1 0 +31612345678 2024/03/05 14:07:00 hi";

class receive_retrieval : public store_bench
{
protected:
    static std::string stored(const std::string &pdu) { return "\r\n+CMGR: 0,,24\r\n" + pdu + "\r\n\r\nOK\r\n"; }

    /* What the function of this name traced itself. */
    lines traced_by(const std::string &function)
    {
        lines found;

        for (const trace_line &line : trace_lines())
            if (line.function == function)
                found.push_back(line.message);
        return found;
    }

    /* The next allocation after this command was sent fails. */
    void fail_allocation_behind(const std::string &command)
    {
        modem.set_hook([command](const std::string &sent) {
            if (sent == command) {
                seams::fail("calloc");
                seams::fail("malloc");
            }
        });
    }
};

/* --- from the storage --- */

TEST_F(receive_retrieval, stored_message_is_read_filed_and_deleted)
{
    modem.script("AT+CMGR=7\r", {{stored(pdu_hi)}});
    EXPECT_EQ(2, dv_sms_mgr_receive_sms_by_cmti(7));
    EXPECT_EQ((lines{"AT+CMGR=7\\r", "AT+CMGD=7\\r"}), platform.commands());
    for (const at_request &request : modem.requests())
        EXPECT_EQ(15, request.timeout);
    EXPECT_EQ(hi_line, read_file(read_dir + "/1"));
    EXPECT_EQ(" 1 ", read_file(read_index));
    EXPECT_EQ("1", read_file(unread));
    EXPECT_EQ((lines{"start parse pdu data", "start write data to file"}), traced_by(by_cmti));
    EXPECT_EQ(nullptr, current_sms_msg);
}

TEST_F(receive_retrieval, message_is_on_flash_before_it_leaves_the_storage)
{
    bool filed = false;

    modem.script("AT+CMGR=7\r", {{stored(pdu_hi)}});
    modem.set_hook([&](const std::string &command) {
        if (command == "AT+CMGR=7\r") {
            EXPECT_FALSE(exists(read_dir + "/1"));
        }
        if (command == "AT+CMGD=7\r")
            filed = read_file(read_dir + "/1") == hi_line && platform.count("sync") == 1;
    });
    EXPECT_EQ(2, dv_sms_mgr_receive_sms_by_cmti(7));
    EXPECT_TRUE(filed);
}

TEST_F(receive_retrieval, index_goes_out_in_decimal)
{
    static const struct {
        uint32_t index;
        const char *text;
    } rows[] = {{0, "0"}, {1, "1"}, {255, "255"}, {2147483647, "2147483647"}, {4294967295, "-1"}};

    for (const auto &row : rows) {
        fresh();
        modem.script("AT+CMGR=*", {{stored(pdu_hi)}});
        EXPECT_EQ(2, dv_sms_mgr_receive_sms_by_cmti(row.index));
        EXPECT_EQ((lines{std::string("AT+CMGR=") + row.text + "\\r", std::string("AT+CMGD=") + row.text + "\\r"}),
                  platform.commands());
    }
}

TEST_F(receive_retrieval, question_that_fails_is_not_reported)
{
    const std::vector<fake::answer> failures = {{.how = fake::answer::silent},
                                                {.text = stored(pdu_hi), .error = 321},
                                                {.error = 4, .how = fake::answer::not_sent}};

    for (const fake::answer &failure : failures) {
        fresh();
        modem.script("AT+CMGR=7\r", {failure});
        EXPECT_EQ(0, dv_sms_mgr_receive_sms_by_cmti(7));
        EXPECT_EQ(lines{}, traced_by(by_cmti));
        EXPECT_EQ(lines{"AT+CMGR=7\\r"}, platform.commands());
        EXPECT_FALSE(exists(root));
        for (const std::string &line : saved())
            EXPECT_EQ(std::string::npos, line.find(by_cmti)) << line;
    }
}

TEST_F(receive_retrieval, answer_without_ok_is_reported)
{
    const std::string too_long =
        "\r\n+CMGR: 0,,24\r\n" + std::string(pdu_hi) + std::string(480, '0') + "\r\n\r\nOK\r\n";
    const std::vector<fake::answer> answers = {{""},
                                               {"\r\nERROR\r\n"},
                                               {"\r\n+CMGR: 0,,24\r\n" + std::string(pdu_hi) + "\r\n\r\nOK\r"},
                                               {"OK\r\n"},
                                               {.text = stored(pdu_hi), .how = fake::answer::other_id},
                                               {too_long}};

    for (const fake::answer &answer : answers) {
        fresh();
        modem.script("AT+CMGR=7\r", {answer});
        EXPECT_EQ(0, dv_sms_mgr_receive_sms_by_cmti(7)) << answer.text;
        EXPECT_BOTH(by_cmti, "recv_data is error");
        EXPECT_EQ(1U, traced_by(by_cmti).size());
        EXPECT_EQ(lines{"AT+CMGR=7\\r"}, platform.commands());
        EXPECT_FALSE(exists(root));
    }
}

TEST_F(receive_retrieval, answer_without_a_pdu_line_is_dropped_silently)
{
    static const char *const answers[] = {
        "\r\nOK\r\n",                              /* nothing at that index */
        "\r\nOK\r\n+CMGR: 0,,24",                  /* the header line has no end */
        "\r\nOK\r\n+CMGR: 0,,24\r\n0791261304",    /* nor has the next one */
        "\r\nOK\r\n+CMGS: 0,,24\r\n0791261304\r\n" /* another answer */
    };

    for (const char *answer : answers) {
        fresh();
        modem.script("AT+CMGR=7\r", {{answer}});
        EXPECT_EQ(0, dv_sms_mgr_receive_sms_by_cmti(7));
        EXPECT_EQ(lines{}, traced_by(by_cmti)) << answer;
        EXPECT_EQ(lines{}, saved()) << answer;
        EXPECT_EQ(lines{"AT+CMGR=7\\r"}, platform.commands()) << "nothing is deleted";
        EXPECT_FALSE(exists(root));
    }
}

TEST_F(receive_retrieval, header_line_ends_behind_the_sixth_character)
{
    /* The OK in front of the header, no blank behind the colon, and more lines behind the PDU do no harm. */
    modem.script("AT+CMGR=1\r", {{"\r\nOK\r\n\r\n+CMGR:\r\n" + std::string(pdu_hi) + "\r\nmore\r\n"}});
    EXPECT_EQ(2, dv_sms_mgr_receive_sms_by_cmti(1));
    EXPECT_EQ(hi_line, read_file(read_dir + "/1"));
}

TEST_F(receive_retrieval, longest_answer_that_fits_is_whole)
{
    /* 511 characters: 22 of frame, the PDU, and 7 that end it. */
    const std::string text(140, 'x');
    std::string pdu = pdu_of(text);
    pdu += std::string(511 - stored("").size() - pdu.size(), '0');

    modem.script("AT+CMGR=1\r", {{stored(pdu)}});
    ASSERT_EQ(511U, stored(pdu).size());
    EXPECT_EQ(2, dv_sms_mgr_receive_sms_by_cmti(1));
    modem.script("AT+CMGR=1\r", {{stored(pdu + "0")}});
    EXPECT_EQ(0, dv_sms_mgr_receive_sms_by_cmti(1)) << "one more and the end of OK is cut off";
}

TEST_F(receive_retrieval, without_memory_the_message_is_refused)
{
    modem.script("AT+CMGR=7\r", {{stored(pdu_hi)}});
    fail_allocation_behind("AT+CMGR=7\r");
    EXPECT_EQ(0, dv_sms_mgr_receive_sms_by_cmti(7));
    EXPECT_EQ(1U, traced_by(by_cmti).size());
    EXPECT_EQ(lines{"AT+CMGR=7\\r"}, platform.commands()) << "it stays in the storage";
    EXPECT_FALSE(exists(root));
    EXPECT_EQ(nullptr, current_sms_msg);
}

TEST_F(receive_retrieval, delete_that_fails_gives_0_though_it_is_filed)
{
    const struct {
        const char *what;
        fake::answer answer;
        bool traced;
    } rows[] = {
        {"no answer", {.how = fake::answer::silent}, false},
        {"an error code", {.text = "\r\nOK\r\n", .error = 321}, false},
        {"no bus", {.error = 4, .how = fake::answer::not_sent}, false},
        {"an answer without OK", {"\r\nERROR\r\n"}, true},
        {"an empty answer", {""}, true},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        fresh();
        modem.script("AT+CMGR=7\r", {{stored(pdu_hi)}});
        modem.script("AT+CMGD=7\r", {row.answer});
        EXPECT_EQ(0, dv_sms_mgr_receive_sms_by_cmti(7));
        EXPECT_EQ(hi_line, read_file(read_dir + "/1"));
        const std::string complaint = "at_buff：AT+CMGD=7\\r, del sms failed!";
        EXPECT_EQ(row.traced, in_trace(by_cmti, complaint)) << ::testing::PrintToString(traced());
        EXPECT_FALSE(in_log(by_cmti, complaint));
        EXPECT_EQ(row.traced ? 3U : 2U, traced_by(by_cmti).size());
    }
}

TEST_F(receive_retrieval, what_cannot_be_filed_is_deleted_all_the_same)
{
    modem.script("AT+CMGR=7\r", {{stored(pdu_hi)}});
    seams::set_free_space(1024, 1023);
    EXPECT_EQ(2, dv_sms_mgr_receive_sms_by_cmti(7));
    EXPECT_EQ((lines{"AT+CMGR=7\\r", "AT+CMGD=7\\r"}), platform.commands());
    EXPECT_EQ(lines{}, names(read_dir));

    fresh();
    modem.script("AT+CMGR=7\r", {{stored(pdu_of(""))}});
    EXPECT_EQ(2, dv_sms_mgr_receive_sms_by_cmti(7));
    EXPECT_EQ((lines{"AT+CMGR=7\\r", "AT+CMGD=7\\r"}), platform.commands());
    EXPECT_TRACED("dv_sms_mgr_write_sms_to_file", "receive sms no data !");
}

/* --- in parts, from the storage --- */

TEST_F(receive_retrieval, parts_stay_in_the_storage_until_the_last_one_came)
{
    modem.script("AT+CMGR=1\r", {{stored(pdu_of("two ", {42, 3, 2}))}});
    modem.script("AT+CMGR=2\r", {{stored(pdu_of("one ", {42, 3, 1}))}});
    modem.script("AT+CMGR=5\r", {{stored(pdu_of("three", {42, 3, 3}))}});

    EXPECT_EQ(1, dv_sms_mgr_receive_sms_by_cmti(1));
    EXPECT_EQ((lines{"start parse pdu data", "cascade seq 42 sms not receive finish, has 2 message not receive"}),
              traced_by(by_cmti));
    EXPECT_FALSE(in_log(by_cmti, "cascade seq 42 sms not receive finish, has 2 message not receive"));
    EXPECT_EQ(nullptr, current_sms_msg);
    forget();
    EXPECT_EQ(1, dv_sms_mgr_receive_sms_by_cmti(2));
    EXPECT_ONLY_TRACED(by_cmti, "cascade seq 42 sms not receive finish, has 1 message not receive");
    EXPECT_FALSE(exists(root));
    EXPECT_EQ(lines{"AT+CMGR=2\\r"}, platform.commands());

    forget();
    EXPECT_EQ(2, dv_sms_mgr_receive_sms_by_cmti(5));
    EXPECT_EQ((lines{"AT+CMGR=5\\r", "AT+CMGD=1,4\\r"}), platform.commands()) << "all that the storage holds";
    EXPECT_EQ((lines{"start parse pdu data", "start write data to file"}), traced_by(by_cmti));
    EXPECT_EQ("1 0 +31612345678 2024/03/05 14:07:00 one two three", read_file(read_dir + "/1"));
    EXPECT_EQ(" 1 ", read_file(read_index));
    EXPECT_EQ("1", read_file(unread));
}

TEST_F(receive_retrieval, delete_behind_the_last_part_may_fail_too)
{
    modem.script("AT+CMGR=1\r", {{stored(pdu_of("one", {1, 1, 1}))}});
    modem.script("AT+CMGD=1,4\r", {{"\r\nERROR\r\n"}, {.how = fake::answer::silent}});
    EXPECT_EQ(0, dv_sms_mgr_receive_sms_by_cmti(1));
    EXPECT_ONLY_TRACED(by_cmti, "at_buff：AT+CMGD=1,4\\r, del sms failed!");
    forget();
    EXPECT_EQ(0, dv_sms_mgr_receive_sms_by_cmti(1));
    EXPECT_FALSE(in_trace(by_cmti, "at_buff：AT+CMGD=1,4\\r, del sms failed!"));
    EXPECT_EQ((lines{"1", "2"}), names(read_dir));
}

TEST_F(receive_retrieval, parts_that_cannot_be_joined_are_deleted_too)
{
    modem.script("AT+CMGR=1\r", {{stored(pdu_of("one", {1, 1, 1}))}});
    modem.set_hook([](const std::string &command) {
        if (command == "AT+CMGR=1\r")
            seams::fail("calloc", 4); /* the message, the head, the node, the slots */
    });
    EXPECT_EQ(2, dv_sms_mgr_receive_sms_by_cmti(1));
    EXPECT_BOTH("dv_sms_mgr_save_receive_msg", "packing casc error, return");
    EXPECT_EQ(nullptr, current_sms_msg);
    EXPECT_EQ((lines{"AT+CMGR=1\\r", "AT+CMGD=1,4\\r"}), platform.commands());
    EXPECT_FALSE(exists(root));
}

TEST_F(receive_retrieval, reference_of_two_octets_is_told_whole)
{
    modem.script("AT+CMGR=1\r", {{stored(pdu_of("one ", {0x1234, 2, 1}))}});
    modem.script("AT+CMGR=2\r", {{stored(pdu_of("second", {0x1234, 2, 2}))}});
    EXPECT_EQ(1, dv_sms_mgr_receive_sms_by_cmti(1));
    EXPECT_TRACED(by_cmti, "cascade seq 4660 sms not receive finish, has 1 message not receive");
    EXPECT_EQ(2, dv_sms_mgr_receive_sms_by_cmti(2));
    EXPECT_EQ(line_of(1, 0, "one second"), read_file(read_dir + "/1"));
}

/* --- delivered directly --- */

TEST_F(receive_retrieval, delivered_message_is_filed_and_nothing_is_asked)
{
    dv_sms_mgr_receive_sms_by_cmt(pdu_hi);
    EXPECT_EQ(hi_line, read_file(read_dir + "/1"));
    EXPECT_EQ((lines{"start parse pdu data", "start write data to file"}), traced_by(by_cmt));
    EXPECT_EQ(lines{}, platform.commands());
    EXPECT_EQ(nullptr, current_sms_msg);
}

TEST_F(receive_retrieval, delivered_parts_are_joined_and_nothing_is_asked)
{
    dv_sms_mgr_receive_sms_by_cmt(pdu_of("three", {42, 3, 3}).c_str());
    EXPECT_EQ((lines{"start parse pdu data", "cascade seq 42 sms not receive finish, has 2 message not receive"}),
              traced_by(by_cmt));
    EXPECT_EQ(nullptr, current_sms_msg);
    dv_sms_mgr_receive_sms_by_cmt(pdu_of("one ", {42, 3, 1}).c_str());
    EXPECT_FALSE(exists(root));
    dv_sms_mgr_receive_sms_by_cmt(pdu_of("two ", {42, 3, 2}).c_str());
    EXPECT_EQ(line_of(1, 0, "one two three"), read_file(read_dir + "/1"));
    EXPECT_EQ(lines{}, platform.commands());
}

TEST_F(receive_retrieval, delivered_without_memory_it_is_refused)
{
    seams::fail("calloc");
    seams::fail("malloc");
    dv_sms_mgr_receive_sms_by_cmt(pdu_hi);
    EXPECT_EQ(1U, traced_by(by_cmt).size());
    EXPECT_FALSE(exists(root));
    EXPECT_EQ(nullptr, current_sms_msg);
}

TEST_F(receive_retrieval, part_from_the_storage_completes_what_was_delivered)
{
    dv_sms_mgr_receive_sms_by_cmt(pdu_of("one ", {7, 2, 1}).c_str());
    modem.script("AT+CMGR=3\r", {{stored(pdu_of("two", {7, 2, 2}))}});
    EXPECT_EQ(2, dv_sms_mgr_receive_sms_by_cmti(3));
    EXPECT_EQ(line_of(1, 0, "one two"), read_file(read_dir + "/1"));
    EXPECT_EQ("AT+CMGD=1,4\\r", platform.commands().back());
}

/* --- the whole way --- */

TEST_F(receive_retrieval, indications_end_up_in_the_store)
{
    modem.script("AT+CMGR=3\r", {{stored(pdu_of("stored"))}});
    modem.indicate("\r\n+CMTI: \"SM\",3\r\n");
    modem.indicate("\r\n+CMT: ,24\r\n" + std::string(pdu_hi) + "\r\n");
    EXPECT_FALSE(exists(root)) << "the bus thread only queues";
    EXPECT_EQ(lines{}, platform.commands());
    dv_sms_mgr_receive_poll();
    EXPECT_EQ(hi_line, read_file(read_dir + "/1"));
    EXPECT_EQ(line_of(2, 0, "stored"), read_file(read_dir + "/2"));
    EXPECT_EQ((lines{"AT+CMGR=3\\r", "AT+CMGD=3\\r"}), platform.commands());
    EXPECT_EQ(" 1 2 ", read_file(read_index));
    EXPECT_EQ("2", read_file(unread));
}

TEST_F(receive_retrieval, without_debug_mode_nothing_of_it_is_printed)
{
    debug_mode = 0;
    dv_sms_mgr_receive_sms_by_cmt(pdu_of("one", {42, 3, 3}).c_str());
    dv_sms_mgr_receive_sms_by_cmt(pdu_hi);
    EXPECT_EQ("", output());
}
