/* How much a box takes, which number a message gets, and the small helpers that tell. */
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>

#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_read.h"
#include "store_bench.h"
#include "store_seams.h"

namespace fs = std::filesystem;

class store_capacity : public store_bench
{
protected:
    void TearDown() override
    {
        store_seams::hide_types(false);
        store_seams::vanish(nullptr);
        store_seams::fail_opendir(false);
        store_bench::TearDown();
    }

    static int file(int box = BOX_RECEIVED)
    {
        const sockmsg_record record = record_of({"1", "x", "d"});

        return dv_sms_mgr_write_sms_to_file(box, 1, &record);
    }

    static std::string refusal(int files, int capacity, int available)
    {
        return "files_num(" + std::to_string(files) + ") cfg_max_save(" + std::to_string(capacity) +
               ") avaiable_size(" + std::to_string(available) + ") can not continue save,please delete it";
    }

    /* Entries are numbers, or numbers with a letter: "2d" a directory, "2l" a link, "2b" a link to nothing. */
    static void make_entries(const std::string &dir, const lines &entries)
    {
        write_file(dir + "/../elsewhere", "x");
        fs::create_directories(dir);
        for (const std::string &entry : entries) {
            const std::string path = dir + "/" + entry.substr(0, entry.size() - 1);

            if (entry.back() == 'd')
                fs::create_directories(path + "/inside");
            else if (entry.back() == 'l')
                fs::create_symlink("../elsewhere", path);
            else if (entry.back() == 'b')
                fs::create_symlink("../nowhere", path);
            else
                write_file(dir + "/" + entry, "x");
        }
    }
};

/* --- capacity --- */

TEST_F(store_capacity, configured_value_or_500)
{
    static const struct {
        const char *value; /* null: not set */
        int capacity;
    } rows[] = {{nullptr, 500}, {"0", 500},           {"1", 1},       {"2", 2},      {"500", 500},
                {"501", 501},   {"1999", 1999},       {"2000", 2000}, {"2001", 500}, {"9999", 500},
                {"-1", 500},    {"-2147483648", 500}, {"x", 500}};

    for (const auto &row : rows) {
        fresh();
        if (row.value != nullptr)
            platform.set_cfg("SYS_SMS_MAX_SAVE_SIZE", row.value);
        EXPECT_EQ(0, file());
        EXPECT_ONLY_TRACED(filer, "files_num: 0 cfg_max_save: " + std::to_string(row.capacity));
    }
}

TEST_F(store_capacity, box_takes_as_many_as_configured)
{
    static const struct {
        const char *value;
        int capacity;
    } rows[] = {{"1", 1}, {"3", 3}, {nullptr, 500}};

    for (const auto &row : rows) {
        for (const int box : {BOX_RECEIVED, BOX_SENT, BOX_DRAFT}) {
            fresh();
            if (row.value != nullptr)
                platform.set_cfg("SYS_SMS_MAX_SAVE_SIZE", row.value);
            put_files(dv_sms_boxes[box].dir, row.capacity - 1);
            EXPECT_EQ(0, file(box));
            EXPECT_EQ("1", platform.devinfo(306002 + box));
            forget();
            EXPECT_EQ(-1, file(box));
            EXPECT_BOTH(filer, refusal(row.capacity, row.capacity, 1048576));
            EXPECT_EQ(static_cast<size_t>(row.capacity), names(dv_sms_boxes[box].dir).size()) << "nothing is pruned";
            EXPECT_EQ((lines{"get_CFG_int SYS_SMS_MAX_SAVE_SIZE", std::string("statfs ") + dv_sms_boxes[box].dir}),
                      calls());
            EXPECT_EQ("1", platform.devinfo(306002 + box));
        }
    }
}

TEST_F(store_capacity, box_of_2000)
{
    platform.set_cfg("SYS_SMS_MAX_SAVE_SIZE", "2000");
    put_files(read_dir, 1999);
    EXPECT_EQ(0, file());
    EXPECT_TRUE(exists(read_dir + "/2000"));
    EXPECT_EQ("1", platform.devinfo(306002));
    EXPECT_EQ(-1, file());
    EXPECT_BOTH(filer, refusal(2000, 2000, 1048576));
}

TEST_F(store_capacity, box_over_its_capacity_takes_nothing)
{
    platform.set_cfg("SYS_SMS_MAX_SAVE_SIZE", "3");
    put_files(draft_dir, 5);
    EXPECT_EQ(-1, file(BOX_DRAFT));
    EXPECT_BOTH(filer, refusal(5, 3, 1048576));
    EXPECT_EQ("(unset)", platform.devinfo(306004));
}

TEST_F(store_capacity, configuration_is_read_for_every_message)
{
    platform.set_cfg("SYS_SMS_MAX_SAVE_SIZE", "1");
    EXPECT_EQ(0, file());
    EXPECT_EQ(-1, file());
    platform.set_cfg("SYS_SMS_MAX_SAVE_SIZE", "2");
    EXPECT_EQ(0, file());
    EXPECT_EQ(-1, file());
}

TEST_F(store_capacity, boxes_are_counted_one_by_one)
{
    platform.set_cfg("SYS_SMS_MAX_SAVE_SIZE", "2");
    put_files(send_dir, 2);
    EXPECT_EQ(-1, file(BOX_SENT));
    EXPECT_EQ(0, file(BOX_RECEIVED));
    EXPECT_EQ(0, file(BOX_DRAFT));
}

/* --- flash --- */

TEST_F(store_capacity, less_than_1024_kb_refuse_everything)
{
    static const struct {
        long block;
        unsigned long blocks;
        long kb;
    } rows[] = {{1024, 1024, 1024},         {1024, 1023, 1023}, {4096, 256, 1024}, {4096, 255, 1020},
                {1, 1048575, 1023},         {1, 1048576, 1024}, {512, 0, 0},       {65536, 1, 64},
                {4096, 1UL << 34, 1L << 36} /* more than 32 bits of KB, and of blocks times size */};

    for (const auto &row : rows) {
        for (const int box : {BOX_RECEIVED, BOX_SENT, BOX_DRAFT}) {
            fresh();
            make_boxes();
            seams::set_free_space(row.block, row.blocks);
            EXPECT_EQ(row.kb >= 1024 ? 0 : -1, file(box)) << row.kb;
            EXPECT_ONLY_TRACED("get_sys_flash_available", "availableDisk: " + std::to_string(row.kb) + " KB");
            EXPECT_EQ(row.kb < 1024, in_trace(filer, refusal(0, 500, static_cast<int>(row.kb))));
            EXPECT_EQ(row.kb < 1024, in_log(filer, refusal(0, 500, static_cast<int>(row.kb))));
            EXPECT_EQ(row.kb < 1024, names(dv_sms_boxes[box].dir).empty());
        }
    }
}

TEST_F(store_capacity, unknown_free_space_refuses_too)
{
    make_boxes();
    seams::fail_statfs();
    EXPECT_EQ(-1, file());
    EXPECT_BOTH("get_sys_flash_available", "get_sys_flash_available false");
    EXPECT_BOTH(filer, refusal(0, 500, -1));
    EXPECT_EQ(lines{}, names(read_dir));
    EXPECT_EQ((lines{"sms_draft", "sms_read", "sms_send"}), names(root));
}

TEST_F(store_capacity, free_space_is_that_of_the_path)
{
    seams::set_free_space(4096, 1000);
    EXPECT_EQ(4000, get_sys_flash_available("some/where"));
    EXPECT_EQ(lines{"statfs some/where"}, calls());
    seams::fail_statfs();
    EXPECT_EQ(-1, get_sys_flash_available("some/where"));
}

TEST_F(store_capacity, directory_that_cannot_be_read_takes_nothing)
{
    make_boxes();
    store_seams::fail_opendir(true);
    EXPECT_EQ(-1, file());
    EXPECT_BOTH(filer, refusal(-1, 500, 1048576));
    store_seams::fail_opendir(false);
    EXPECT_EQ(0, file());
}

/* --- the number --- */

TEST_F(store_capacity, lowest_free_number_is_taken)
{
    static const struct {
        const char *what;
        lines entries;
        int number; /* 0: refused */
        int files;
    } rows[] = {
        {"empty", {}, 1, 0},
        {"1, 2 and 4", {"1", "2", "4"}, 3, 3},
        {"a gap at the start", {"2", "3"}, 1, 2},
        {"without a gap", {"1", "2", "3", "4", "5", "6", "7", "8", "9"}, 10, 9},
        {"only a high one", {"2000"}, 1, 1},
        {"one more than fits", {"2001"}, 1, 1},
        {"names that are no numbers count as files", {"a", "1.bak", "-1", "01", "1 "}, 1, 5},
        {"and are no numbers", {"1", "x"}, 2, 2},
        {"a long row of digits is none", {"1", "100000000000000000001", "4294967298"}, 2, 3},
        {"zero is none", {"0"}, 1, 1},
        {"a directory takes its number and counts not", {"1d", "5"}, 2, 1},
        {"nor does a link", {"1l", "5"}, 2, 1},
        {"all candidates are there", {"1d"}, 0, 0},
        {"all of them, with a file", {"1d", "2"}, 0, 1},
    };

    for (const bool hidden : {false, true}) {
        store_seams::hide_types(hidden);
        for (const auto &row : rows) {
            SCOPED_TRACE(row.what);
            fresh();
            make_entries(read_dir, row.entries);
            EXPECT_EQ(row.number == 0 ? -1 : 0, file());
            EXPECT_TRACED(filer, "files_num: " + std::to_string(row.files) + " cfg_max_save: 500");
            EXPECT_EQ(row.number == 0 ? "(none)" : " " + std::to_string(row.number) + " ", read_file(read_index));
            if (row.number != 0) {
                EXPECT_EQ(std::to_string(row.number) + " 1 1 d x",
                          read_file(read_dir + "/" + std::to_string(row.number)));
            }
        }
    }
}

TEST_F(store_capacity, number_that_was_deleted_is_given_again)
{
    for (int i = 0; i < 4; i++)
        EXPECT_EQ(0, file(BOX_DRAFT));
    EXPECT_EQ(0, dv_sms_mgr_delete_sms("3,2", draft_dir.c_str(), draft_index.c_str()));
    EXPECT_EQ(" 1 4 ", read_file(draft_index));
    EXPECT_EQ(0, file(BOX_DRAFT));
    EXPECT_EQ(0, file(BOX_DRAFT));
    EXPECT_EQ(0, file(BOX_DRAFT));
    EXPECT_EQ(" 1 4 2 3 5 ", read_file(draft_index)) << "in the order of filing";
}

/* --- helpers --- */

TEST_F(store_capacity, only_regular_files_are_counted)
{
    EXPECT_EQ(-1, count_regular_files(nullptr));
    EXPECT_EQ(-1, count_regular_files("missing"));
    write_file("plain", "x");
    EXPECT_EQ(-1, count_regular_files("plain"));
    for (const bool hidden : {false, true}) {
        store_seams::hide_types(hidden);
        fs::remove_all("box");
        make_entries("box", {});
        EXPECT_EQ(0, count_regular_files("box"));
        make_entries("box", {"1", "2", ".3", "4d", "5l", "6b"});
        ASSERT_EQ(0, mkfifo("box/7", 0600));
        EXPECT_EQ(3, count_regular_files("box")) << hidden;
    }
    store_seams::fail_opendir(true);
    EXPECT_EQ(-1, count_regular_files("box"));
}

TEST_F(store_capacity, file_that_vanishes_before_its_type_is_looked_up_is_not_counted)
{
    make_entries("box", {"1", "2", "3"});
    store_seams::hide_types(true);
    store_seams::vanish("2");
    EXPECT_EQ(2, count_regular_files("box"));
}

TEST_F(store_capacity, formatted_text_replaces_or_appends)
{
    EXPECT_EQ(0, write_file_fmt("f", "w", "%d %s", 12, "twelve"));
    EXPECT_EQ("12 twelve", read_file("f"));
    EXPECT_EQ(0, write_file_fmt("f", "a", "%d ", 3));
    EXPECT_EQ("12 twelve3 ", read_file("f"));
    EXPECT_EQ(0, write_file_fmt("f", "w", "%d", 4));
    EXPECT_EQ("4", read_file("f"));
    EXPECT_EQ(0, write_file_fmt("f", "w", "%s", std::string(20000, 'x').c_str()));
    EXPECT_EQ(std::string(20000, 'x'), read_file("f"));
    EXPECT_EQ(-1, write_file_fmt("missing/f", "w", "%d", 4));
    EXPECT_EQ((lines{"fopen f w", "fopen f a", "fopen f w", "fopen f w", "fopen missing/f w"}), calls());
}

TEST_F(store_capacity, local_time_goes_into_32_bytes_and_not_into_31)
{
    char buffer[32];

    seams::set_time(0);
    memset(buffer, '?', sizeof buffer);
    get_local_time_text(nullptr, 32);
    for (const int size : {31, 0, -1})
        get_local_time_text(buffer, size);
    EXPECT_EQ(std::string(32, '?'), std::string(buffer, 32));
    get_local_time_text(buffer, 32);
    EXPECT_EQ("1970-01-01 00:00:00" + std::string(13, '?'), std::string(buffer, 32)) << "without a terminator";
    memset(buffer, '\0', sizeof buffer);
    seams::set_time(1709647507);
    get_local_time_text(buffer, 1000);
    EXPECT_STREQ("2024-03-05 14:05:07", buffer);
}

TEST_F(store_capacity, years_of_many_digits_stay_within_31_characters)
{
    marked_buffer buffer(32);

    seams::set_time(67767976233532799); /* the last year that an int holds */
    get_local_time_text(buffer.data(), 32);
    EXPECT_STREQ("2147483647-12-31 23:59:59", buffer.data());
    EXPECT_TRUE(buffer.intact());
}

TEST_F(store_capacity, path_is_there_or_not)
{
    make_entries("box", {"1", "2d", "3b", "4l"});
    EXPECT_TRUE(path_exists("box/1"));
    EXPECT_TRUE(path_exists("box/2"));
    EXPECT_TRUE(path_exists("box/4"));
    EXPECT_FALSE(path_exists("box/3")) << "a link to nothing";
    EXPECT_FALSE(path_exists("box/5"));
    EXPECT_FALSE(path_exists(std::string(5000, 'x').c_str()));
}
