/* Deleting from the three boxes: by list and all of it, the index, the counter, the partial failure. */
#include <pthread.h>
#include <string.h>

#include <filesystem>

#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_read.h"
#include "store_bench.h"

namespace fs = std::filesystem;

class read_delete : public store_bench
{
protected:
    void set_up_box(int box, const std::vector<int> &numbers, const std::string &count = "")
    {
        std::string index = " ";

        fresh();
        make_boxes();
        for (const int number : numbers) {
            put(box, number, 0);
            index += std::to_string(number) + " ";
        }
        write_file(dv_sms_boxes[box].index, index);
        if (!count.empty())
            write_file(unread, count);
        platform.set_devinfo(306001, "1");
    }

    static int remove(int box, const char *request)
    {
        return dv_sms_mgr_delete_sms(request, dv_sms_boxes[box].dir, dv_sms_boxes[box].index);
    }

    static std::string index_of(int box) { return read_file(dv_sms_boxes[box].index); }
};

static const lines flag_500 = {"flag_get_item DV_SMS_MGR_LAST_ERR_CODE 8", "flag_set DV_SMS_MGR_LAST_ERR_CODE \"500\""};

/* --- refused --- */

TEST_F(read_delete, request_without_a_text_or_a_box_is_refused)
{
    for (int box = 0; box < 3; box++) {
        for (const char *text : {static_cast<const char *>(nullptr), ""}) {
            set_up_box(box, {1});
            EXPECT_EQ(-1, remove(box, text));
            EXPECT_EQ(flag_500, calls());
            EXPECT_EQ(" 1 ", index_of(box));
        }
        for (const char *text : {"1", "DELETE ALL"}) {
            set_up_box(box, {1});
            fs::remove(dv_sms_boxes[box].index);
            EXPECT_EQ(-1, remove(box, text)) << "no index";
            EXPECT_EQ(flag_500, calls());
            EXPECT_EQ(lines{"1"}, names(dv_sms_boxes[box].dir));
            EXPECT_FALSE(exists(dv_sms_boxes[box].index));

            set_up_box(box, {1});
            fs::remove_all(dv_sms_boxes[box].dir);
            EXPECT_EQ(-1, remove(box, text)) << "no directory";
            EXPECT_EQ(flag_500, calls());
            EXPECT_EQ(" 1 ", index_of(box));
        }
        EXPECT_TRUE(silent());
    }
}

/* --- all --- */

TEST_F(read_delete, all_of_a_box)
{
    for (int box = 0; box < 3; box++) {
        const std::string dir = dv_sms_boxes[box].dir, index = dv_sms_boxes[box].index;

        set_up_box(box, {1, 2, 17}, "2");
        write_file(dir + "/other", "x");
        put((box + 1) % 3, 1);
        EXPECT_EQ(0, remove(box, "DELETE ALL"));
        EXPECT_EQ(lines{}, names(dir));
        EXPECT_EQ(lines{"1"}, names(dv_sms_boxes[(box + 1) % 3].dir));
        EXPECT_EQ(" ", index_of(box));
        EXPECT_EQ(box == BOX_RECEIVED ? "0" : "2", read_file(unread));
        EXPECT_EQ(box == BOX_RECEIVED ? "0" : "1", platform.devinfo(306001));
        EXPECT_EQ("0", err_code());
        lines expected = {"util_get_cmd_result 32 rm " + dir + "/*", "cmd_echo \" \" " + index};
        if (box == BOX_RECEIVED)
            expected.insert(expected.end(), {"fopen " + unread + " w", "set_devinfo_value_by_id 306001 \"0\" 1"});
        expected.insert(expected.end(), {"sync", "flag_get_item DV_SMS_MGR_LAST_ERR_CODE 8",
                                         "flag_set DV_SMS_MGR_LAST_ERR_CODE \"0\""});
        EXPECT_EQ(expected, calls());
        EXPECT_TRUE(silent());
    }
}

TEST_F(read_delete, all_is_told_by_its_first_ten_characters)
{
    static const struct {
        const char *text;
        bool all;
    } rows[] = {{"DELETE ALL", true},  {"DELETE ALL,1", true}, {"DELETE ALLOTTED", true}, {"DELETE AL", false},
                {"delete all", false}, {" DELETE ALL", false}, {"READ ALL", false}};

    for (const auto &row : rows) {
        set_up_box(BOX_DRAFT, {1, 2});
        EXPECT_EQ(0, remove(BOX_DRAFT, row.text));
        EXPECT_EQ(row.all ? " " : " 1 2 ", index_of(BOX_DRAFT)) << row.text;
        EXPECT_EQ(row.all ? 0U : 2U, names(draft_dir).size()) << row.text;
    }
}

TEST_F(read_delete, all_of_an_empty_box)
{
    set_up_box(BOX_RECEIVED, {}, "3");
    EXPECT_EQ(0, remove(BOX_RECEIVED, "DELETE ALL")) << "the command's own result does not matter";
    EXPECT_EQ("0", read_file(unread));
    EXPECT_EQ("0", err_code());
}

/* --- by list --- */

TEST_F(read_delete, list_takes_files_and_index_entries)
{
    static const struct {
        std::vector<int> numbers;
        const char *list;
        const char *index;
        lines left;
    } rows[] = {
        {{1, 2, 3}, "2", " 1 3 ", {"1", "3"}},
        {{1, 2, 3}, "1", " 2 3 ", {"2", "3"}},
        {{1, 2, 3}, "3", " 1 2 ", {"1", "2"}},
        {{1, 2, 3}, "1,2", " 3 ", {"3"}},
        {{1, 2, 3}, "3,1", " 2 ", {"2"}},
        {{1, 2, 3}, "1,2,3", " ", {}},
        {{11, 1, 111}, "1", " 11 111 ", {"11", "111"}},
        {{3, 1, 4}, "4", " 3 1 ", {"1", "3"}},
        {{1, 2, 3}, ",2,,", " 1 3 ", {"1", "3"}},
        {{1, 2, 3}, ",,,", " 1 2 3 ", {"1", "2", "3"}},
        {{2000}, "2000", " ", {}},
    };

    for (const auto &row : rows) {
        for (int box = 0; box < 3; box++) {
            set_up_box(box, row.numbers, "9");
            EXPECT_EQ(0, remove(box, row.list)) << row.list;
            EXPECT_EQ(row.index, index_of(box)) << row.list;
            EXPECT_EQ(row.left, names(dv_sms_boxes[box].dir)) << row.list;
            EXPECT_EQ("0", err_code());
            EXPECT_TRUE(silent());
        }
    }
}

TEST_F(read_delete, steps_of_a_list)
{
    set_up_box(BOX_RECEIVED, {1, 2}, "2");
    EXPECT_EQ(0, remove(BOX_RECEIVED, "2,1"));
    EXPECT_EQ((lines{"cmd_cat " + read_index + " 4096", "fopen " + read_dir + "/2 r", "cmd_cat " + unread + " 12",
                     "fopen " + unread + " w", "sync", "cmd_rm " + read_dir + "/2", "fopen " + read_dir + "/1 r",
                     "cmd_cat " + unread + " 12", "set_devinfo_value_by_id 306001 \"0\" 1", "fopen " + unread + " w",
                     "sync", "cmd_rm " + read_dir + "/1", "cmd_echo \" \" " + read_index, "sync",
                     "flag_get_item DV_SMS_MGR_LAST_ERR_CODE 8", "flag_set DV_SMS_MGR_LAST_ERR_CODE \"0\""}),
              calls());

    set_up_box(BOX_SENT, {1, 2}, "2");
    EXPECT_EQ(0, remove(BOX_SENT, "2"));
    EXPECT_EQ((lines{"cmd_cat " + send_index + " 4096", "cmd_rm " + send_dir + "/2", "cmd_echo \" 1 \" " + send_index,
                     "sync", "flag_get_item DV_SMS_MGR_LAST_ERR_CODE 8", "flag_set DV_SMS_MGR_LAST_ERR_CODE \"0\""}),
              calls());
    EXPECT_EQ("2", read_file(unread)) << "only received messages are counted";
    EXPECT_EQ("1", platform.devinfo(306001));
}

TEST_F(read_delete, index_loses_the_first_entry_that_matches)
{
    static const struct {
        const char *before, *list, *after;
    } rows[] = {
        {" 1 2 1 ", "1", " 2 1 "}, {" 2 3 ", "1", " 2 3 "}, {"1 2 ", "1", "1 2 "}, {" 2 1", "1", " 2 1"},
        {" 1", "1", " 1"},         {"", "1", ""},           {" ", "1", " "},       {" 1 ", "1", " "},
        {" 1  1 ", "1", "  1 "},   {" 1 1 ", "1,1", " "},   {"\n1 ", "1", "\n1 "},
    };

    for (const auto &row : rows) {
        set_up_box(BOX_SENT, {1});
        write_file(send_index, row.before);
        EXPECT_EQ(0, remove(BOX_SENT, row.list));
        EXPECT_EQ(row.after, read_file(send_index)) << row.before;
        EXPECT_EQ(lines{}, names(send_dir));
    }
}

TEST_F(read_delete, own_message_that_is_not_there_only_leaves_the_index)
{
    for (const int box : {BOX_SENT, BOX_DRAFT}) {
        set_up_box(box, {1, 3});
        write_file(dv_sms_boxes[box].index, " 1 2 3 ");
        EXPECT_EQ(0, remove(box, "2,3,7"));
        EXPECT_EQ(" 1 ", index_of(box));
        EXPECT_EQ((lines{std::string("cmd_rm ") + dv_sms_boxes[box].dir + "/2",
                         std::string("cmd_rm ") + dv_sms_boxes[box].dir + "/3",
                         std::string("cmd_rm ") + dv_sms_boxes[box].dir + "/7"}),
                  platform.calls({"cmd_rm"}));
        EXPECT_EQ("0", err_code());
    }
}

/* --- the partial failure --- */

TEST_F(read_delete, received_message_that_is_not_there_ends_it)
{
    static const struct {
        const char *list;
        lines left;
        const char *count;
    } rows[] = {{"1,9", {"2", "3"}, "2"}, {"9", {"1", "2", "3"}, "3"}, {"9,1", {"1", "2", "3"}, "3"},
                {"2,1,9,3", {"3"}, "1"},  {"1,1", {"2", "3"}, "2"},    {"1 ,2", {"1", "2", "3"}, "3"}};

    for (const auto &row : rows) {
        set_up_box(BOX_RECEIVED, {1, 2, 3}, "3");
        EXPECT_EQ(-1, remove(BOX_RECEIVED, row.list)) << row.list;
        EXPECT_EQ(row.left, names(read_dir)) << row.list;
        EXPECT_EQ(" 1 2 3 ", read_file(read_index)) << row.list;
        EXPECT_EQ(row.count, read_file(unread)) << row.list;
        EXPECT_EQ("500", err_code());
        EXPECT_EQ(lines{}, platform.calls({"cmd_echo"}));
        EXPECT_EQ(static_cast<int>(3 - row.left.size()), platform.count("sync")) << "no sync of its own";
        EXPECT_TRUE(silent());
    }
}

TEST_F(read_delete, received_message_without_content_ends_it)
{
    set_up_box(BOX_RECEIVED, {1, 2}, "2");
    write_file(read_dir + "/1", "");
    EXPECT_EQ(-1, remove(BOX_RECEIVED, "1,2"));
    EXPECT_EQ((lines{"1", "2"}), names(read_dir));
    EXPECT_EQ("500", err_code());

    set_up_box(BOX_RECEIVED, {1}, "2");
    fs::create_directories(read_dir + "/4");
    EXPECT_EQ(-1, remove(BOX_RECEIVED, "4")) << "nor is a directory a message";
    EXPECT_TRUE(exists(read_dir + "/4"));

    set_up_box(BOX_RECEIVED, {1}, "2");
    seams::fail("fopen");
    EXPECT_EQ(-1, remove(BOX_RECEIVED, "1")) << "nor one that cannot be opened";
    EXPECT_TRUE(exists(read_dir + "/1"));
}

/* --- the counter --- */

TEST_F(read_delete, counter_goes_down_for_an_unread_message)
{
    static const struct {
        const char *content, *before, *after, *flag;
    } rows[] = {
        {"1 0 x", "3", "2", "1"},
        {"1 0 x", "2", "1", "1"},
        {"1 0 x", "1", "0", "0"},
        {"1 0 x", "0", "0", "0"},
        {"1 0 x", "3 ", "2", "1"},
        {"1 0 x", "-4", "0", "0"},
        {"1 0 x", "x", "0", "0"},
        {"1 1 x", "3", "3", "1"},
        {"1 1 x", "0", "0", "1"},
        {"1 7 x", "3", "3", "1"},
        {"1 0", "3", "2", "1"},
        {"1 ", "3", "3", "1"},
        {"1", "3", "3", "1"},
        {"123456 0", "3", "3", "1"},
        {"12345 0", "3", "3", "1"},
        {"1234 0", "3", "2", "1"},
        {" 0", "3", "2", "1"},
        {"1  0", "3", "3", "1"},
        {"1 0 x", "1000000000", "999999999", "1"},
        {"1 0 x", "000000000002", "1", "1"},
        {"1 0 x", "0000000000012", "0", "0"} /* twelve characters are read */,
    };

    for (const auto &row : rows) {
        set_up_box(BOX_RECEIVED, {}, row.before);
        write_file(read_dir + "/1", row.content);
        EXPECT_EQ(0, remove(BOX_RECEIVED, "1"));
        EXPECT_EQ(row.after, read_file(unread)) << row.content << ", " << row.before;
        EXPECT_EQ(row.flag, platform.devinfo(306001)) << row.content << ", " << row.before;
        EXPECT_FALSE(exists(read_dir + "/1"));
    }
}

TEST_F(read_delete, counter_that_is_not_there)
{
    for (const fake::read_mode mode : {fake::read_mode{}, fake::read_mode{.empties_unset = true, .scribbles = true}}) {
        set_up_box(BOX_RECEIVED, {1});
        platform.set_read_mode(mode);
        EXPECT_EQ(0, remove(BOX_RECEIVED, "1"));
        EXPECT_EQ("0", read_file(unread));
        EXPECT_EQ("0", platform.devinfo(306001));
    }
}

TEST_F(read_delete, unread_check_by_itself)
{
    set_up_box(BOX_RECEIVED, {1}, "3");
    for (const std::string &box :
         {send_dir, draft_dir, read_dir + "/", std::string("./") + read_dir, std::string("")}) {
        EXPECT_EQ(0, update_unread_on_delete(box.c_str(), (read_dir + "/1").c_str())) << box;
        EXPECT_EQ(0, update_unread_on_delete(box.c_str(), "missing")) << box;
        EXPECT_EQ(lines{}, calls()) << box;
    }
    EXPECT_EQ(-1, update_unread_on_delete(read_dir.c_str(), "missing"));
    EXPECT_EQ(lines{"fopen missing r"}, calls());
    EXPECT_EQ(0, update_unread_on_delete(read_dir.c_str(), (read_dir + "/1").c_str()));
    EXPECT_EQ("2", read_file(unread));
    EXPECT_EQ(1, platform.count("sync"));
    EXPECT_TRUE(exists(read_dir + "/1"));
    forget();
    put(BOX_RECEIVED, 1, 1);
    EXPECT_EQ(0, update_unread_on_delete(read_dir.c_str(), (read_dir + "/1").c_str()));
    EXPECT_EQ((lines{"fopen " + read_dir + "/1 r", "sync"}), calls());
}

/* --- tokens that name nothing in the box --- */

TEST_F(read_delete, nothing_outside_the_box_is_removed)
{
    const lines hostile = {"../sms_draft/5", "../read_index", "..", ".", "./1", "sub/1", "/1", "1/", "1/.", "//",
                           "../unread_sms"};

    for (int box = 0; box < 3; box++) {
        for (const std::string &token : hostile) {
            SCOPED_TRACE(token);
            set_up_box(box, {1}, "5");
            const std::string dir = dv_sms_boxes[box].dir;
            write_file(dir + "/sub/1", line_of(1, 0));
            put(BOX_DRAFT, 5);
            write_file(dv_sms_boxes[box].index, " 1 " + token + " 2 ");
            write_file(read_index, box == BOX_RECEIVED ? " 1 " + token + " 2 " : " 7 ");
            forget();
            EXPECT_EQ(box == BOX_RECEIVED ? -1 : 0, remove(box, token.c_str())) << "as a number without a file";
            EXPECT_EQ(box == BOX_RECEIVED ? "500" : "0", err_code());
            EXPECT_EQ(lines{}, platform.calls({"cmd_rm", "util_shell", "util_get_cmd_result"}));
            EXPECT_EQ(line_of(1, 0), read_file(dir + "/1"));
            EXPECT_EQ(line_of(1, 0), read_file(dir + "/sub/1"));
            EXPECT_EQ(line_of(5, 0), read_file(draft_dir + "/5"));
            EXPECT_EQ("5", read_file(unread));
            EXPECT_EQ(box == BOX_RECEIVED ? " 1 " + token + " 2 " : " 1 2 ", index_of(box));
            if (box != BOX_RECEIVED) {
                EXPECT_EQ(" 7 ", read_file(read_index));
            }
        }
    }
}

TEST_F(read_delete, long_tokens_name_nothing)
{
    for (const size_t length : {size_t{255}, size_t{256}, size_t{4095}}) {
        set_up_box(BOX_DRAFT, {1});
        EXPECT_EQ(0, remove(BOX_DRAFT, std::string(length, '1').c_str()));
        EXPECT_EQ(" 1 ", read_file(draft_index));
        EXPECT_EQ(lines{"1"}, names(draft_dir));
        set_up_box(BOX_RECEIVED, {1}, "1");
        EXPECT_EQ(-1, remove(BOX_RECEIVED, std::string(length, '1').c_str()));
    }
}

/* --- long indexes: a known limit --- */

TEST_F(read_delete, longer_index_is_cut_when_it_is_written_back)
{
    std::string index = " ";

    for (int number = 1000; number < 2000; number++)
        index += std::to_string(number) + " ";
    set_up_box(BOX_DRAFT, {});
    put(BOX_DRAFT, 1000);
    put(BOX_DRAFT, 1999);
    write_file(draft_index, index);
    EXPECT_EQ(0, remove(BOX_DRAFT, "1000,1999"));
    EXPECT_EQ(" " + index.substr(6, 4090), read_file(draft_index)) << "4096 characters were read";
    EXPECT_EQ(lines{}, names(draft_dir));

    /* Of 4096 characters nothing is lost. */
    set_up_box(BOX_DRAFT, {1});
    write_file(draft_index, " 1 " + std::string(4093, ' '));
    EXPECT_EQ(0, remove(BOX_DRAFT, "1"));
    EXPECT_EQ(std::string(4094, ' '), read_file(draft_index));
}

TEST_F(read_delete, cut_index_ends_with_a_whole_character)
{
    set_up_box(BOX_DRAFT, {1});
    write_file(draft_index, " 1 " + std::string(4091, ' ') + "中 2 ");
    EXPECT_EQ(0, remove(BOX_DRAFT, "1"));
    EXPECT_EQ(std::string(4092, ' '), read_file(draft_index));
}

TEST_F(read_delete, cut_index_without_a_whole_character_stays)
{
    const std::string continuations(4096, '\x80');

    set_up_box(BOX_DRAFT, {1});
    write_file(draft_index, continuations + "2 ");
    EXPECT_EQ(0, remove(BOX_DRAFT, "1"));
    EXPECT_EQ(continuations, read_file(draft_index));
}

/* --- replacing --- */

TEST_F(read_delete, first_occurrence_is_replaced)
{
    static const struct {
        const char *text, *pattern, *replacement;
        int result;
        const char *after;
    } rows[] = {
        {" 1 2 3 ", " 2 ", " ", 1, " 1 3 "},
        {" 2 2 ", " 2 ", " ", 1, " 2 "},
        {"abc", "abc", "", 1, ""},
        {"abcabc", "abc", "x", 1, "xabc"},
        {"abc", "b", "12345", 1, "a12345c"},
        {"abc", "c", "12345", 1, "ab12345"},
        {"abc", "b", "x", 1, "axc"},
        {"abc", "d", "x", 0, "abc"},
        {"abc", "abcd", "x", 0, "abc"},
        {"ab", "a", "x", 0, "ab"},
        {" 1", " 1", "", 0, " 1"},
        {"a", "a", "x", 0, "a"},
        {"", "a", "x", 0, ""},
    };

    for (const auto &row : rows) {
        marked_buffer text(std::max(strlen(row.text), strlen(row.after)) + 1);

        strcpy(text.data(), row.text);
        EXPECT_EQ(row.result, replace_first(text.data(), row.pattern, row.replacement)) << row.text;
        EXPECT_STREQ(row.after, text.data());
        EXPECT_TRUE(text.intact());
    }
    EXPECT_EQ(0, replace_first(nullptr, "a", "b"));
}

/* --- through the bus --- */

TEST_F(read_delete, each_request_has_its_box)
{
    static const struct {
        uint32_t id;
        const char *name;
        int box, full_id;
    } rows[] = {{0x5502, "DV_SMS_MGR_MSG_ID_DELETE_RECEIVE_SMS", BOX_RECEIVED, 306002},
                {0x5503, "DV_SMS_MGR_MSG_ID_DELETE_SEND_SMS", BOX_SENT, 306003},
                {0x5504, "DV_SMS_MGR_MSG_ID_DELETE_DRAFT_SMS", BOX_DRAFT, 306004}};

    for (const auto &row : rows) {
        for (const std::string text : {"2", "DELETE ALL", "../x", ""}) {
            fresh();
            for (int box = 0; box < 3; box++) {
                put(box, 1);
                put(box, 2);
                write_file(dv_sms_boxes[box].index, " 1 2 ");
            }
            platform.set_devinfo(row.full_id, "1");
            sockmsg_record record = request_of(row.id, text, 9);
            EXPECT_EQ(0, dv_sms_mgr_handler(&record)) << "whatever becomes of it";
            for (int box = 0; box < 3; box++) {
                const lines left = box != row.box || text == "" || text == "../x" ? lines{"1", "2"}
                                   : text == "2"                                  ? lines{"1"}
                                                                                  : lines{};
                EXPECT_EQ(left, names(dv_sms_boxes[box].dir)) << row.name << text << box;
            }
            EXPECT_EQ("0", platform.devinfo(row.full_id)) << "even when nothing is deleted";
            EXPECT_EQ("9," + std::to_string(row.id), platform.flag(DV_SMS_MGR_LAST_RECEIVED_MSG));
            EXPECT_EQ(text == "" || (text == "../x" && row.box == BOX_RECEIVED) ? "500" : "0", err_code());
            EXPECT_TRACED("dv_sms_mgr_handler", row.name + (":" + text));
        }
    }
}

TEST_F(read_delete, box_counts_as_not_full_before_it_is_looked_at)
{
    set_up_box(BOX_SENT, {1});
    sockmsg_record record = request_of(DV_SMS_MGR_MSG_ID_DELETE_SEND_SMS, "1");
    dv_sms_mgr_handler(&record);
    const lines all = calls();
    ASSERT_GE(all.size(), 4U);
    EXPECT_EQ(
        (lines{"get_app_name_by_id 3", "set_devinfo_value_by_id 306003 \"0\" 1",
               "flag_get_item DV_SMS_MGR_LAST_RECEIVED_MSG 32", "flag_set DV_SMS_MGR_LAST_RECEIVED_MSG \"3,21763\""}),
        lines(all.begin(), all.begin() + 4));
}

TEST_F(read_delete, request_of_4096_characters_without_a_terminator)
{
    std::string list(4093, ',');

    list.replace(0, 2, "7,");
    list += ",12";
    ASSERT_EQ(4096U, list.size());
    set_up_box(BOX_DRAFT, {7, 12, 123});
    sockmsg_record record = request_of(DV_SMS_MGR_MSG_ID_DELETE_DRAFT_SMS, list);
    memcpy(&record.sender_module_id, "3,7,", 4);
    EXPECT_EQ(0, dv_sms_mgr_handler(&record));
    EXPECT_EQ(" 123 ", read_file(draft_index));
    EXPECT_EQ(lines{"123"}, names(draft_dir));
    EXPECT_EQ("0", err_code());
}

TEST_F(read_delete, one_token_of_4096_characters)
{
    for (int box = 0; box < 3; box++) {
        set_up_box(box, {1}, "1");
        const std::string token(4096, '1');
        write_file(dv_sms_boxes[box].index, " " + token + " ");
        sockmsg_record record = request_of(DV_SMS_MGR_MSG_ID_DELETE_RECEIVE_SMS + static_cast<uint32_t>(box), token);
        record.sender_extra = 0x31313131;
        EXPECT_EQ(0, dv_sms_mgr_handler(&record));
        EXPECT_EQ(lines{"1"}, names(dv_sms_boxes[box].dir));
        EXPECT_EQ(box == BOX_RECEIVED ? "500" : "0", err_code());
    }
}

TEST_F(read_delete, flag_is_waited_for_without_the_lock)
{
    int free_then = 0;

    set_up_box(BOX_RECEIVED, {1}, "1");
    for (const char *request : {"1", "9", ""}) {
        platform.set_flag(DV_SMS_MGR_LAST_ERR_CODE, "0");
        seams::on_sleep([&](unsigned, int) {
            if (pthread_mutex_trylock(&sms_store_lock) == 0) {
                free_then++;
                pthread_mutex_unlock(&sms_store_lock);
            }
            platform.set_flag(DV_SMS_MGR_LAST_ERR_CODE, "");
        });
        remove(BOX_RECEIVED, request);
    }
    EXPECT_EQ(3, seams::sleeps());
    EXPECT_EQ(3, free_then);
}
