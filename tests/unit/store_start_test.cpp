/* The store at start: indexes made anew from the directories, flags and counter from the files. */
#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>

#include "MTKT750/mtkt750_sms_init.h"
#include "dv_sms_mgr_log.h"
#include "store_bench.h"

namespace fs = std::filesystem;

class store_start : public store_bench
{
protected:
    /* Files in the order of their age, the oldest first. */
    static void put_by_age(const std::string &dir, const lines &oldest_first)
    {
        time_t time = 1700000000;

        for (const std::string &name : oldest_first) {
            write_file(dir + "/" + name, "x");
            const timespec times[] = {{time, 0}, {time, 0}};
            ASSERT_EQ(0, utimensat(AT_FDCWD, (dir + "/" + name).c_str(), times, 0));
            time += 60;
        }
    }

    void set_capacity(const std::string &value) { platform.set_cfg("SYS_SMS_MAX_SAVE_SIZE", value); }
};

/* --- the indexes --- */

TEST_F(store_start, without_a_store_nothing_is_done)
{
    rebuild_sms_index();
    EXPECT_EQ(lines{}, calls());
    EXPECT_TRUE(silent());
    EXPECT_FALSE(exists("mnt"));
}

TEST_F(store_start, missing_indexes_are_made_in_order)
{
    make_boxes();
    set_capacity("500");
    rebuild_sms_index();
    EXPECT_EQ(
        (lines{"cfg_get_item SYS_SMS_MAX_SAVE_SIZE 6", "util_get_cmd_result 4096 ls -tr " + read_dir + " |head -n 500",
               "cmd_echo \" \" " + read_index, "sync", "util_get_cmd_result 4096 ls -tr " + send_dir + " |head -n 500",
               "cmd_echo \" \" " + send_index, "sync", "util_get_cmd_result 4096 ls -tr " + draft_dir + " |head -n 500",
               "cmd_echo \" \" " + draft_index, "sync"}),
        calls());
    EXPECT_TRUE(silent());
}

TEST_F(store_start, only_what_has_a_directory_and_no_index_is_rebuilt)
{
    for (unsigned directories = 0; directories < 8; directories++) {
        for (unsigned indexes = 0; indexes < 8; indexes++) {
            fresh();
            fs::create_directories(root);
            set_capacity("500");
            for (unsigned box = 0; box < 3; box++) {
                if (directories >> box & 1)
                    put(static_cast<int>(box), 7);
                if (indexes >> box & 1)
                    write_file(dv_sms_boxes[box].index, " old ");
            }
            rebuild_sms_index();
            for (unsigned box = 0; box < 3; box++) {
                const std::string expected = indexes >> box & 1 ? " old " : directories >> box & 1 ? " 7 " : "(none)";
                EXPECT_EQ(expected, read_file(dv_sms_boxes[box].index)) << directories << indexes << box;
            }
        }
    }
}

TEST_F(store_start, index_lists_the_oldest_first)
{
    put_by_age(draft_dir, {"3", "1", "2"});
    set_capacity("500");
    rebuild_sms_index();
    EXPECT_EQ(" 3 1 2 ", read_file(draft_index));
    EXPECT_EQ(1, platform.count("cmd_echo \" 3 1 2 \" " + draft_index));
}

TEST_F(store_start, index_lists_as_many_as_configured)
{
    static const struct {
        const char *value; /* null: not set */
        const char *index;
    } rows[] = {{"2", " 5 4 "}, {"3", " 5 4 3 "}, {"4", " 5 4 3 "}, {"0", " "},          {"2001", " 5 4 3 "},
                {nullptr, " "}, {"", " "},        {"x", " "},       {"0000021", " 5 4 "} /* six characters are read */};

    for (const auto &row : rows) {
        fresh();
        put_by_age(read_dir, {"5", "4", "3"});
        if (row.value != nullptr)
            set_capacity(row.value);
        rebuild_sms_index();
        EXPECT_EQ(row.index, read_file(read_index)) << (row.value == nullptr ? "(unset)" : row.value);
    }
}

TEST_F(store_start, six_characters_of_the_capacity_are_read)
{
    for (const fake::read_mode mode : {fake::read_mode{}, fake::read_mode{.fills_all = false, .scribbles = true}}) {
        fresh();
        platform.set_read_mode("cfg_get_item", mode);
        make_boxes();
        set_capacity("1234567");
        rebuild_sms_index();
        EXPECT_EQ(1, platform.count("util_get_cmd_result 4096 ls -tr " + read_dir + " |head -n " +
                                    (mode.fills_all ? "123456" : "12345")));
    }
}

TEST_F(store_start, every_line_end_becomes_a_blank)
{
    put_by_age(read_dir, {"1\r", "2\n3", "4"});
    set_capacity("9");
    rebuild_sms_index();
    EXPECT_EQ(" 1  2 3 4 ", read_file(read_index));
}

TEST_F(store_start, listing_that_fails_gives_an_empty_index)
{
    for (const fake::read_mode mode : {fake::read_mode{}, fake::read_mode{.empties_unset = true}}) {
        fresh();
        platform.set_read_mode(mode);
        put(BOX_RECEIVED, 1);
        set_capacity("9");
        platform.set_result("util_get_cmd_result", -1);
        rebuild_sms_index();
        EXPECT_EQ(" ", read_file(read_index));
    }
}

/* A known limit: 4096 characters of the listing are taken. */
TEST_F(store_start, long_listing_is_cut)
{
    lines names;
    std::string expected = " ";

    for (int number = 1000; number < 1900; number++) {
        names.push_back(std::to_string(number));
        expected += names.back() + " ";
    }
    put_by_age(send_dir, names);
    set_capacity("2000");
    rebuild_sms_index();
    EXPECT_EQ(expected.substr(0, 4097), read_file(send_index));
}

/* --- flags and counter --- */

TEST_F(store_start, state_is_cleared_first)
{
    fs::create_directories(root);
    set_capacity("500");
    init_sms_box_state();
    EXPECT_EQ((lines{"set_devinfo_value_by_id 306001 \"0\" 1", "set_devinfo_value_by_id 306003 \"0\" 1",
                     "set_devinfo_value_by_id 306004 \"0\" 1", "set_devinfo_value_by_id 306002 \"0\" 1",
                     "fopen " + unread + " w", "cfg_get_item SYS_SMS_MAX_SAVE_SIZE 6"}),
              calls());
    EXPECT_EQ("0", read_file(unread));
    EXPECT_TRUE(silent());
}

TEST_F(store_start, without_a_store_the_flags_are_cleared_all_the_same)
{
    init_sms_box_state();
    for (const int id : {306001, 306002, 306003, 306004})
        EXPECT_EQ("0", platform.devinfo(id));
    EXPECT_FALSE(exists("mnt"));
}

TEST_F(store_start, boxes_are_counted_in_order)
{
    const std::string tail = " | grep \"^-\" | wc -l";

    make_boxes();
    set_capacity("500");
    init_sms_box_state();
    EXPECT_EQ(
        (lines{"util_get_cmd_result 6 ls -lR " + send_dir + tail, "util_get_cmd_result 6 ls -lR " + draft_dir + tail,
               "util_get_cmd_result 6 ls -lR " + read_dir + tail}),
        platform.calls({"util_get_cmd_result"}));
    fs::remove_all(draft_dir);
    forget();
    init_sms_box_state();
    EXPECT_EQ(2U, platform.calls({"util_get_cmd_result"}).size());
}

/* The count begins with the configured text: a comparison of texts, not of numbers. */
TEST_F(store_start, box_is_full_when_its_count_begins_with_the_capacity)
{
    static const struct {
        const char *capacity; /* null: not set */
        int files;
        bool full;
    } rows[] = {
        {"5", 5, true},   {"5", 4, false},    {"5", 50, true},  {"5", 55, true},  {"5", 6, false},  {"50", 5, false},
        {"50", 50, true}, {"0", 0, true},     {"0", 10, false}, {"10", 1, false}, {"1", 10, true},  {"", 0, true},
        {"", 7, true},    {nullptr, 3, true}, {"05", 5, false}, {" 5", 5, false}, {"5x", 5, false},
    };

    for (size_t i = 0; i < std::size(rows); i++) {
        const int box = static_cast<int>(i % 3);

        fresh();
        if (rows[i].capacity != nullptr)
            set_capacity(rows[i].capacity);
        put_files(dv_sms_boxes[box].dir, rows[i].files);
        init_sms_box_state();
        for (int other = 0; other < 3; other++)
            EXPECT_EQ(other == box && rows[i].full ? "1" : "0", platform.devinfo(306002 + other))
                << (rows[i].capacity == nullptr ? "(unset)" : rows[i].capacity) << " " << rows[i].files << " " << box;
    }
}

TEST_F(store_start, count_of_500_is_full_for_50)
{
    set_capacity("50");
    put_files(send_dir, 500);
    init_sms_box_state();
    EXPECT_EQ("1", platform.devinfo(306003));
}

/* --- unread messages --- */

TEST_F(store_start, unread_messages_are_counted)
{
    set_capacity("500");
    put(BOX_RECEIVED, 1, 0);
    put(BOX_RECEIVED, 2, 1);
    put(BOX_RECEIVED, 3, 0);
    write_file(unread, "77");
    init_sms_box_state();
    EXPECT_EQ("2", read_file(unread));
    EXPECT_EQ("1", platform.devinfo(306001));
    EXPECT_EQ(2, platform.count("cmd_cat " + unread + " 6"));
}

TEST_F(store_start, numbers_up_to_one_more_than_there_are_files_are_looked_at)
{
    static const struct {
        const char *what;
        std::vector<int> numbers;
        const char *count, *flag;
        int syncs;
    } rows[] = {
        {"1 and 3, 2 deleted", {1, 3}, "2", "1", 3},
        {"only 5", {5}, "0", "0", 2},
        {"none", {}, "0", "0", 1},
        {"only 2", {2}, "1", "1", 2},
        {"1, 2 and 5", {1, 2, 5}, "2", "1", 4},
        {"4 and 5", {4, 5}, "0", "0", 3},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        fresh();
        set_capacity("500");
        make_boxes();
        for (const int number : row.numbers)
            put(BOX_RECEIVED, number, 0);
        init_sms_box_state();
        EXPECT_EQ(row.count, read_file(unread));
        EXPECT_EQ(row.flag, platform.devinfo(306001));
        EXPECT_EQ(row.syncs, platform.count("sync")) << "one a number, whether there is a file or not";
        lines opened;
        for (size_t n = 1; n <= row.numbers.size() + 1; n++)
            opened.push_back("fopen " + read_dir + "/" + std::to_string(n) + " r");
        lines seen;
        for (const std::string &call : platform.calls({"fopen"}))
            if (call.find(read_dir) != std::string::npos)
                seen.push_back(call);
        EXPECT_EQ(opened, seen);
    }
}

TEST_F(store_start, first_six_characters_of_a_record_tell_its_state)
{
    static const struct {
        const char *content;
        bool unread;
        bool skipped; /* and then there is no sync */
    } rows[] = {
        {"1 0 x", true, false},    {"1 1 x", false, false},   {"1 0", true, false},       {"1 02", true, false},
        {"1 7 0", false, false},   {"", false, true},         {"1", false, true},         {"1 ", false, true},
        {"123456 0", false, true}, {"1234 0 x", true, false}, {"12345 0 x", false, true}, {" 0", true, false},
        {"1  0", false, false},    {"10", false, true},       {"1\n0", false, true},
    };

    for (const auto &row : rows) {
        fresh();
        set_capacity("500");
        write_file(read_dir + "/1", row.content);
        init_sms_box_state();
        EXPECT_EQ(row.unread ? "1" : "0", read_file(unread)) << row.content;
        EXPECT_EQ(row.unread ? "1" : "0", platform.devinfo(306001)) << row.content;
        EXPECT_EQ(row.skipped ? 1 : 2, platform.count("sync")) << row.content;
    }
}

TEST_F(store_start, flag_is_set_after_the_counting)
{
    set_capacity("500");
    put(BOX_RECEIVED, 1, 0);
    init_sms_box_state();
    lines last = calls();
    ASSERT_GT(last.size(), 8U);
    last.erase(last.begin(), last.end() - 8);
    EXPECT_EQ((lines{"util_get_cmd_result 6 ls -lR " + read_dir + " | grep \"^-\" | wc -l",
                     "fopen " + read_dir + "/1 r", "cmd_cat " + unread + " 6", "fopen " + unread + " w", "sync",
                     "fopen " + read_dir + "/2 r", "sync", "set_devinfo_value_by_id 306001 \"1\" 1"}),
              last);
}

TEST_F(store_start, files_in_directories_below_count_too)
{
    set_capacity("500");
    put(BOX_RECEIVED, 4, 0);
    write_file(read_dir + "/below/a", "x");
    write_file(read_dir + "/below/b", "x");
    init_sms_box_state();
    EXPECT_EQ("1", read_file(unread)) << "three files are counted, so number 4 is looked at";
}

TEST_F(store_start, sent_and_draft_boxes_have_no_unread_messages)
{
    set_capacity("500");
    put(BOX_SENT, 1, 0);
    put(BOX_DRAFT, 1, 0);
    init_sms_box_state();
    EXPECT_EQ("0", read_file(unread));
    EXPECT_EQ("0", platform.devinfo(306001));
}

TEST_F(store_start, reads_that_end_otherwise_are_the_same)
{
    platform.set_read_mode({.fills_all = false, .empties_unset = true, .scribbles = true});
    set_capacity("1");
    put(BOX_RECEIVED, 1, 0);
    init_sms_box_state();
    EXPECT_EQ("1", read_file(unread));
    EXPECT_EQ("1", platform.devinfo(306002));
    rebuild_sms_index();
    EXPECT_EQ(" 1 ", read_file(read_index));
}

TEST_F(store_start, counter_that_cannot_be_written_changes_nothing_else)
{
    set_capacity("1");
    put(BOX_RECEIVED, 1, 0);
    seams::fail("fopen", 1);
    init_sms_box_state();
    EXPECT_EQ("1", platform.devinfo(306001));
    EXPECT_EQ("1", platform.devinfo(306002));
    EXPECT_EQ("1", read_file(unread));
}
