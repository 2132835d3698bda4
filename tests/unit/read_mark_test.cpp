/* Marking received messages read: by list and all of them, the counter with its exact bytes. */
#include "dv_sms_mgr_read.h"

#include <pthread.h>
#include <string.h>

#include <filesystem>

#include "dv_sms_mgr_log.h"
#include "store_bench.h"

class read_mark : public store_bench
{
protected:
    /* Received messages 1, 2, ... with these states, an index that lists them, and the counter. */
    void set_up_box(const std::vector<int> &states, const std::string &count)
    {
        std::string index = " ";
        int number = 0;

        fresh();
        make_boxes();
        for (const int state : states) {
            put(BOX_RECEIVED, ++number, state);
            index += std::to_string(number) + " ";
        }
        write_file(read_index, index);
        write_file(unread, count);
        platform.set_devinfo(306001, "1");
    }

    static std::string states(int count)
    {
        std::string found;

        for (int number = 1; number <= count; number++) {
            const std::string content = read_file(read_dir + "/" + std::to_string(number));

            for (const int state : {0, 1})
                if (content == line_of(number, state))
                    found += static_cast<char>('0' + state);
        }
        return found;
    }

    void request(const std::string &text)
    {
        sockmsg_record record = request_of(DV_SMS_MGR_MSG_ID_READ_SMS, text);

        EXPECT_EQ(0, dv_sms_mgr_handler(&record));
    }
};

/* --- refused --- */

TEST_F(read_mark, request_without_a_text_is_refused)
{
    for (const char *text : {static_cast<const char *>(nullptr), ""}) {
        set_up_box({0}, "1");
        dv_sms_mgr_read_recvive_sms(text);
        EXPECT_BOTH("dv_sms_mgr_read_recvive_sms", "read already receive sms failed");
        EXPECT_EQ("500", err_code());
        EXPECT_EQ("0", states(1));
        EXPECT_EQ("1", read_file(unread));
        EXPECT_EQ((lines{"flag_get_item DV_SMS_MGR_LAST_ERR_CODE 8", "flag_set DV_SMS_MGR_LAST_ERR_CODE \"500\""}),
                  calls())
            << "no file is touched, nothing is synced";
    }
}

/* --- all --- */

TEST_F(read_mark, all_marks_what_the_index_lists)
{
    set_up_box({1, 0}, "1");
    dv_sms_mgr_read_recvive_sms("READ ALL");
    EXPECT_EQ("11", states(2));
    EXPECT_EQ("0", read_file(unread));
    EXPECT_EQ("0", platform.devinfo(306001));
    EXPECT_EQ("0", err_code());
    EXPECT_EQ(" 1 2 ", read_file(read_index));
    EXPECT_EQ((lines{"cmd_cat " + read_index + " 4096", "cmd_cat " + read_dir + "/1 4096",
                     "cmd_cat " + read_dir + "/2 4096", "cmd_echo \"" + line_of(2, 1) + "\" " + read_dir + "/2",
                     "fopen " + unread + " w", "set_devinfo_value_by_id 306001 \"0\" 1", "sync",
                     "flag_get_item DV_SMS_MGR_LAST_ERR_CODE 8", "flag_set DV_SMS_MGR_LAST_ERR_CODE \"0\""}),
              calls())
        << "only what was unread is written";
    EXPECT_TRUE(silent());
}

TEST_F(read_mark, all_is_told_by_its_first_eight_characters)
{
    static const struct {
        const char *text;
        bool all;
    } rows[] = {{"READ ALL", true},  {"READ ALL,1", true}, {"READ ALLEGED", true}, {"READ AL", false},
                {"read all", false}, {" READ ALL", false}, {"READ  ALL", false},   {"DELETE ALL", false}};

    for (const auto &row : rows) {
        set_up_box({0, 0}, "2");
        dv_sms_mgr_read_recvive_sms(row.text);
        EXPECT_EQ(row.all ? "11" : "00", states(2)) << row.text;
        EXPECT_EQ(row.all ? "0" : "2", read_file(unread)) << row.text;
        EXPECT_EQ("0", err_code()) << "a list of what is not there succeeds, too";
    }
}

TEST_F(read_mark, all_changes_the_state_0_and_no_other)
{
    set_up_box({}, "9");
    write_file(read_index, " 1 2 3 4 12 ");
    write_file(read_dir + "/1", "1 2 3 d text");
    write_file(read_dir + "/2", "2 ");
    write_file(read_dir + "/3", "");
    write_file(read_dir + "/4", "40 0");
    write_file(read_dir + "/12", "12 0 0 0 0");
    dv_sms_mgr_read_recvive_sms("READ ALL");
    EXPECT_EQ("1 2 3 d text", read_file(read_dir + "/1"));
    EXPECT_EQ("2 ", read_file(read_dir + "/2"));
    EXPECT_EQ("", read_file(read_dir + "/3"));
    EXPECT_EQ("40 0", read_file(read_dir + "/4")) << "the state stands behind the length of the file's name";
    EXPECT_EQ("12 1 0 0 0", read_file(read_dir + "/12"));
    EXPECT_EQ(1U, platform.calls({"cmd_echo"}).size());
}

TEST_F(read_mark, all_passes_over_what_is_not_there)
{
    set_up_box({0, 0}, "2");
    write_file(read_index, "  7  2 8   ");
    dv_sms_mgr_read_recvive_sms("READ ALL");
    EXPECT_EQ("01", states(2)) << "1 is not listed";
    EXPECT_EQ("0", read_file(unread)) << "and counts no more";

    set_up_box({0}, "1");
    std::filesystem::remove(read_index);
    dv_sms_mgr_read_recvive_sms("READ ALL");
    EXPECT_EQ("0", states(1));
    EXPECT_EQ("0", read_file(unread));
    EXPECT_EQ("0", err_code());
    EXPECT_FALSE(exists(read_index));
}

/* A known limit: 4096 characters of the index are read. */
TEST_F(read_mark, all_reads_4096_characters_of_the_index)
{
    set_up_box({0, 0}, "2");
    const std::string filling(4092, ' ');
    write_file(read_index, filling + " 1 2 ");
    ASSERT_EQ(4097U, read_file(read_index).size());
    dv_sms_mgr_read_recvive_sms("READ ALL");
    EXPECT_EQ("11", states(2));

    set_up_box({0, 0}, "2");
    write_file(read_index, filling + "  1 2 ");
    dv_sms_mgr_read_recvive_sms("READ ALL");
    EXPECT_EQ("10", states(2)) << "the second lies behind the end";
    EXPECT_EQ("0", read_file(unread));
}

/* --- by list --- */

TEST_F(read_mark, list_marks_and_counts_down)
{
    set_up_box({0, 0, 0}, "3");
    dv_sms_mgr_read_recvive_sms("3,1");
    EXPECT_EQ("101", states(3));
    EXPECT_EQ("1 ", read_file(unread)) << "with a blank";
    EXPECT_EQ("1", platform.devinfo(306001)) << "there are more";
    EXPECT_EQ("0", err_code());
    EXPECT_EQ((lines{"cmd_cat " + read_dir + "/3 4096", "cmd_echo \"" + line_of(3, 1) + "\" " + read_dir + "/3",
                     "cmd_cat " + unread + " 8", "fopen " + unread + " w", "cmd_cat " + read_dir + "/1 4096",
                     "cmd_echo \"" + line_of(1, 1) + "\" " + read_dir + "/1", "cmd_cat " + unread + " 8",
                     "fopen " + unread + " w", "sync", "flag_get_item DV_SMS_MGR_LAST_ERR_CODE 8",
                     "flag_set DV_SMS_MGR_LAST_ERR_CODE \"0\""}),
              calls());
    EXPECT_TRUE(silent());
}

TEST_F(read_mark, list_counts_down_what_was_read_already)
{
    set_up_box({1, 1, 1}, "1");
    dv_sms_mgr_read_recvive_sms("3");
    EXPECT_EQ("0 ", read_file(unread));
    EXPECT_EQ("0", platform.devinfo(306001));
    EXPECT_EQ(1, platform.count("cmd_echo \"" + line_of(3, 1) + "\" " + read_dir + "/3")) << "it is written back, too";
}

TEST_F(read_mark, counter_behind_a_list)
{
    static const struct {
        const char *before; /* null: no file */
        const char *list;
        const char *after;
        const char *flag;
    } rows[] = {
        {"5", "1", "4 ", "1"},
        {"5 ", "1", "4 ", "1"},
        {"2", "1", "1 ", "1"},
        {"1", "1", "0 ", "0"},
        {"0", "1", "0 ", "0"},
        {"-7", "1", "0 ", "0"},
        {nullptr, "1", "0 ", "0"},
        {"", "1", "0 ", "0"},
        {"x", "1", "0 ", "0"},
        {"3", "1,2", "1 ", "1"},
        {"3", "1,1,1", "0 ", "0"},
        {"3", "1,9,2", "1 ", "1"},
        {"12345678", "1", "12345677 ", "1"},
        {"123456789", "1", "12345677 ", "1"},
        {"5", "9", "5", "0"},
        {nullptr, "9", "(none)", "0"},
        {"5", "9,8", "5", "0"},
        {"3", "2,9", "2 ", "1"},
    };

    for (const auto &row : rows) {
        set_up_box({0, 0}, "");
        if (row.before == nullptr)
            std::filesystem::remove(unread);
        else
            write_file(unread, row.before);
        dv_sms_mgr_read_recvive_sms(row.list);
        EXPECT_EQ(row.after, read_file(unread)) << (row.before == nullptr ? "(none)" : row.before) << ", " << row.list;
        EXPECT_EQ(row.flag, platform.devinfo(306001))
            << (row.before == nullptr ? "(none)" : row.before) << ", " << row.list;
        EXPECT_EQ("0", err_code());
        EXPECT_EQ(1, platform.count("sync"));
    }
}

TEST_F(read_mark, list_is_split_at_commas_alone)
{
    static const struct {
        const char *list;
        const char *states;
    } rows[] = {
        {"1", "100"},  {"1,2", "110"},  {",1", "100"},   {"1,", "100"},    {"1,,,3", "101"}, {",,,", "000"},
        {",", "000"},  {"1, 2", "100"}, {"1 ,2", "010"}, {"1;2", "000"},   {"1 2", "000"},   {"01", "000"},
        {"+1", "000"}, {"1\n", "000"},  {"2,2", "010"},  {"3,2,1", "111"}, {"1,9,3", "101"}, {"1,\t,2", "110"},
    };

    for (const auto &row : rows) {
        set_up_box({0, 0, 0}, "3");
        dv_sms_mgr_read_recvive_sms(row.list);
        EXPECT_EQ(row.states, states(3)) << row.list;
        EXPECT_EQ("0", err_code());
    }
}

TEST_F(read_mark, list_sets_the_state_whatever_it_was)
{
    set_up_box({}, "9");
    write_file(read_dir + "/1", "1 2 3 d text");
    write_file(read_dir + "/2", "2 ");
    write_file(read_dir + "/3", "3 0");
    write_file(read_dir + "/1234", "1234 0 x");
    dv_sms_mgr_read_recvive_sms("1,2,3,1234");
    EXPECT_EQ("1 1 3 d text", read_file(read_dir + "/1"));
    EXPECT_EQ("2 ", read_file(read_dir + "/2")) << "it has none";
    EXPECT_EQ("3 1", read_file(read_dir + "/3"));
    EXPECT_EQ("1234 1 x", read_file(read_dir + "/1234"));
}

TEST_F(read_mark, file_is_written_back_whole)
{
    const std::string longest = std::string(31, 'p') + " 2024/03/05 14:07:00 " + std::string(4031, 't');

    for (const std::string &text : {std::string("a\nb  100%s\r\n"), std::string("中文 ğ"), longest}) {
        set_up_box({0}, "1");
        write_file(read_dir + "/1", "1 0 " + text);
        dv_sms_mgr_read_recvive_sms("1");
        EXPECT_EQ(("1 1 " + text).substr(0, 4096), read_file(read_dir + "/1"));
    }
}

/* A known limit: 4096 characters of a message are read. What is written back ends with a whole character. */
TEST_F(read_mark, longer_file_is_cut_at_a_character)
{
    static const struct {
        const char *character;
        size_t before; /* bytes in front of the character that the limit meets */
        size_t length;
    } rows[] = {{"x", 4095, 4096},  {"é", 4094, 4096},  {"é", 4095, 4095}, {"中", 4093, 4096},
                {"中", 4094, 4094}, {"中", 4095, 4095}, {"😀", 4092, 4096}, {"😀", 4093, 4093}};

    for (const auto &row : rows) {
        for (const char *request : {"1", "READ ALL"}) {
            set_up_box({0}, "1");
            const std::string content = "1 0 " + std::string(row.before - 4, 'x') + row.character + "behind it";
            write_file(read_dir + "/1", content);
            dv_sms_mgr_read_recvive_sms(request);
            EXPECT_EQ("1 1" + content.substr(3, row.length - 3), read_file(read_dir + "/1")) << row.before;
        }
    }
    set_up_box({1}, "1");
    write_file(read_dir + "/1", "1 1 " + std::string(5000, 'x'));
    dv_sms_mgr_read_recvive_sms("READ ALL");
    EXPECT_EQ(5004U, read_file(read_dir + "/1").size()) << "what is not written back is not cut";
}

TEST_F(read_mark, reads_that_end_otherwise_are_the_same)
{
    for (const char *request : {"1,2", "READ ALL"}) {
        set_up_box({0, 0}, "3");
        platform.set_read_mode({.fills_all = false, .empties_unset = true, .scribbles = true});
        dv_sms_mgr_read_recvive_sms(request);
        EXPECT_EQ("11", states(2));
        EXPECT_EQ(strcmp(request, "1,2") == 0 ? "1 " : "0", read_file(unread));
    }
}

/* --- tokens that name nothing in the box --- */

TEST_F(read_mark, nothing_outside_the_box_is_read_or_changed)
{
    const lines hostile = {"../sms_send/1",
                           "../read_index",
                           "../unread_sms",
                           "..",
                           ".",
                           "./1",
                           "sub/1",
                           "/1",
                           "1/",
                           "1/.",
                           "//",
                           "../sms_read/1",
                           std::string(3000, '9'),
                           std::string(300, 'x')};

    for (const bool by_index : {false, true}) {
        for (const std::string &token : hostile) {
            set_up_box({0}, "5");
            write_file(read_dir + "/sub/1", line_of(1, 0));
            put(BOX_SENT, 1, 0);
            write_file(read_index, by_index ? " " + token + " " : " 1 ");
            forget();
            dv_sms_mgr_read_recvive_sms(by_index ? "READ ALL" : token.c_str());
            EXPECT_EQ("0", states(1)) << token;
            EXPECT_EQ(line_of(1, 0), read_file(read_dir + "/sub/1")) << token;
            EXPECT_EQ(line_of(1, 0), read_file(send_dir + "/1")) << token;
            EXPECT_EQ(by_index ? "0" : "5", read_file(unread)) << token;
            EXPECT_EQ(lines{}, platform.calls({"cmd_echo"})) << token;
            EXPECT_EQ(by_index ? lines{"cmd_cat " + read_index + " 4096"} : lines{}, platform.calls({"cmd_cat"}));
            EXPECT_EQ("0", err_code()) << "as a number without a file";
            EXPECT_EQ("0", platform.devinfo(306001));
        }
    }
}

TEST_F(read_mark, hostile_tokens_do_not_stop_the_others)
{
    set_up_box({0, 0, 0}, "5");
    dv_sms_mgr_read_recvive_sms("../sms_read/3,1,..,2,/");
    EXPECT_EQ("110", states(3));
    EXPECT_EQ("3 ", read_file(unread));
}

/* --- through the bus --- */

TEST_F(read_mark, request_from_the_bus)
{
    set_up_box({0, 0}, "2");
    request("2");
    EXPECT_EQ("01", states(2));
    EXPECT_EQ("3,21761", platform.flag(DV_SMS_MGR_LAST_RECEIVED_MSG));
    EXPECT_EQ("0", err_code());
    EXPECT_TRACED("dv_sms_mgr_handler", "DV_SMS_MGR_MSG_ID_READ_SMS:2");
    request("");
    EXPECT_BOTH("dv_sms_mgr_read_recvive_sms", "read already receive sms failed");
}

/* The payload fills all its 4096 bytes; what stands behind it in the record are more digits. */
TEST_F(read_mark, request_of_4096_characters_without_a_terminator)
{
    std::string list(4093, ',');

    list.replace(0, 2, "1,");
    list += ",12";
    ASSERT_EQ(4096U, list.size());
    set_up_box({0}, "5000");
    put(BOX_RECEIVED, 12);
    put(BOX_RECEIVED, 123);
    sockmsg_record record = request_of(DV_SMS_MGR_MSG_ID_READ_SMS, list, 0x2C33332C);
    memcpy(&record.sender_module_id, "3,12", 4);
    EXPECT_EQ(0, dv_sms_mgr_handler(&record));
    EXPECT_EQ("1", states(1));
    EXPECT_EQ(line_of(12, 1), read_file(read_dir + "/12"));
    EXPECT_EQ(line_of(123, 0), read_file(read_dir + "/123"));
    EXPECT_EQ("4998 ", read_file(unread));
}

TEST_F(read_mark, flag_is_waited_for_without_the_lock)
{
    bool free_then = false;

    set_up_box({0}, "1");
    platform.set_flag(DV_SMS_MGR_LAST_ERR_CODE, "0");
    seams::on_sleep([&](unsigned, int) {
        free_then = pthread_mutex_trylock(&sms_store_lock) == 0;
        if (free_then)
            pthread_mutex_unlock(&sms_store_lock);
        platform.set_flag(DV_SMS_MGR_LAST_ERR_CODE, "");
    });
    dv_sms_mgr_read_recvive_sms("1");
    EXPECT_EQ(1, seams::sleeps());
    EXPECT_TRUE(free_then);
    EXPECT_EQ("0", err_code());
}
