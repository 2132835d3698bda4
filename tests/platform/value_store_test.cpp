/* The configuration, flag and device-information stores. */
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "cfg.h"
#include "devinfo.h"
#include "flag.h"
#include "sandbox.h"

class value_store : public sandbox
{
};

static std::string flag(const char *name)
{
    char value[64 + 1] = "(unset)";

    flag_get_item(name, value, 64);
    return value;
}

TEST_F(value_store, a_value_is_a_file_that_cat_shows)
{
    EXPECT_EQ(0, flag_set("SMS_CSCA", "+31612345678"));
    EXPECT_EQ("+31612345678", read_text(state + "/flag/SMS_CSCA"));
    EXPECT_EQ("+31612345678", flag("SMS_CSCA"));
    EXPECT_EQ(0, set_devinfo_value_by_id(306001, "1", 1));
    EXPECT_EQ("1", read_text(state + "/devinfo/306001"));
}

TEST_F(value_store, a_value_written_by_echo_is_read_without_its_line_feed)
{
    char value[16 + 1] = {};

    write_text(state + "/cfg/SMS_MODE", "1\n");
    EXPECT_EQ(0, cfg_get_item("SMS_MODE", value, 16));
    EXPECT_STREQ("1", value);
    write_text(state + "/devinfo/301002", "LTE\n");
    EXPECT_EQ(0, get_devinfo_value_by_id(301002, value, 16));
    EXPECT_STREQ("LTE", value);
    write_text(state + "/flag/LINES", "a\nb\n\n");
    EXPECT_EQ("a\nb\n", flag("LINES")) << "one line feed, not more";
}

TEST_F(value_store, any_value_comes_back_as_it_was_set)
{
    for (const char *value :
         {"x", "", "two words", "ends with a line feed\n", "\n", "\n\n", "\xE6\x97\xA5\xE6\x9C\xAC", "\xFF\x80"}) {
        EXPECT_EQ(0, flag_set("F", value));
        EXPECT_EQ(value, flag("F"));
    }
}

TEST_F(value_store, the_empty_text_clears_a_flag)
{
    char value[4] = {'o', 'l', 'd', 0};

    EXPECT_EQ(0, flag_set("F", "before"));
    EXPECT_EQ(0, flag_set("F", ""));
    EXPECT_EQ(0, flag_get_item("F", value, 3));
    EXPECT_STREQ("", value) << "what stood in the buffer is gone";
}

/* A program that primes its buffer to tell "unreadable" from "unset" would never set the flag otherwise. */
TEST_F(value_store, an_unset_value_empties_the_buffer_and_is_an_error)
{
    char of_cfg[8] = "primed", of_flag[8] = "primed", of_devinfo[8] = "primed";

    EXPECT_EQ(ENOENT, cfg_get_item("NOT_THERE", of_cfg, 7));
    EXPECT_EQ(ENOENT, flag_get_item("NOT_THERE", of_flag, 7));
    EXPECT_EQ(ENOENT, get_devinfo_value_by_id(301001, of_devinfo, 7));
    EXPECT_STREQ("", of_cfg);
    EXPECT_STREQ("", of_flag);
    EXPECT_STREQ("", of_devinfo);
}

/* Reads a value into buffers of every size, with a marker around them. */
static void read_at_every_size(const std::string &value)
{
    for (size_t size = 1; size <= value.size() + 3; size++) {
        std::string buffer(size + 2, '#');
        ASSERT_EQ(0, flag_get_item("F", buffer.data() + 1, static_cast<int>(size)));
        EXPECT_EQ('#', buffer.front()) << size;
        EXPECT_EQ('#', buffer.back()) << size;
        const size_t length = std::min(size, value.size());
        EXPECT_EQ(value.substr(0, length), buffer.substr(1, length)) << size;
        if (length < size) {
            EXPECT_EQ('\0', buffer[1 + length]) << "room for a terminator, none written: " << size;
        }
    }
}

TEST_F(value_store, reading_stays_within_the_size_and_terminates_where_there_is_room)
{
    const std::string value = "0123456789abcdef";

    ASSERT_EQ(0, flag_set("F", value.c_str()));
    read_at_every_size(value);
}

TEST_F(value_store, a_value_is_cut_between_characters)
{
    static constexpr size_t lengths[] = {0, 1, 1, 3, 3, 5, 5, 5, 8, 8, 8, 8, 12, 13, 13};

    ASSERT_EQ(0, flag_set("F", "a\xC3\xA9\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z"));
    for (size_t size = 1; size < std::size(lengths); size++) {
        std::string buffer(size + 1, '#');
        ASSERT_EQ(0, flag_get_item("F", buffer.data(), static_cast<int>(size)));
        EXPECT_EQ('#', buffer.back());
        EXPECT_EQ(lengths[size], strnlen(buffer.data(), size)) << size;
    }
}

TEST_F(value_store, bad_arguments_are_errors_and_write_nothing)
{
    char value[4] = {'#', '#', '#', 0};

    ASSERT_EQ(0, flag_set("F", "x"));
    for (const int size : {0, -1, -2147483647 - 1}) {
        EXPECT_EQ(EINVAL, flag_get_item("F", value, size));
        EXPECT_EQ(EINVAL, cfg_get_item("F", value, size));
        EXPECT_EQ(EINVAL, get_devinfo_value_by_id(1, value, size));
    }
    EXPECT_STREQ("###", value);
    EXPECT_EQ(EINVAL, flag_get_item(nullptr, value, 3));
    EXPECT_EQ(EINVAL, flag_get_item("F", nullptr, 3));
    EXPECT_EQ(EINVAL, cfg_get_item(nullptr, value, 3));
    EXPECT_EQ(EINVAL, cfg_get_item("F", nullptr, 3));
    EXPECT_EQ(EINVAL, get_devinfo_value_by_id(1, nullptr, 3));
    EXPECT_EQ(EINVAL, flag_set(nullptr, "x"));
    EXPECT_EQ(EINVAL, flag_set("F", nullptr));
    EXPECT_EQ(EINVAL, set_devinfo_value_by_id(1, nullptr, 1));
    EXPECT_EQ(EINVAL, set_devinfo_value_by_id(1, "x", -1));
    EXPECT_EQ(EINVAL, set_devinfo_value_by_id(-1, "x", 1));
    EXPECT_EQ(0, get_CFG_int(nullptr));
    EXPECT_EQ("x", flag("F"));
}

TEST_F(value_store, a_bad_key_is_an_error_and_never_leaves_the_directory)
{
    char value[4] = "###";
    const std::string longest(128, 'k'), too_long(129, 'k');

    write_text(directory + "/secret", "x");
    write_text(state + "/flag/.hidden", "x");
    write_text(state + "/cfg/a", "x");
    for (const char *key : {"", ".", "..", "../../secret", "a/b", "/etc/passwd", "../cfg/a", ".hidden", "a\nb", "a\x7F",
                            too_long.c_str()}) {
        EXPECT_EQ(EINVAL, flag_get_item(key, value, 3)) << key;
        EXPECT_EQ(EINVAL, cfg_get_item(key, value, 3)) << key;
        EXPECT_EQ(EINVAL, flag_set(key, "y")) << key;
        EXPECT_EQ(0, get_CFG_int(key)) << key;
    }
    EXPECT_STREQ("###", value);
    EXPECT_EQ("x", read_text(directory + "/secret"));
    EXPECT_EQ(0, flag_set(longest.c_str(), "ok"));
    EXPECT_EQ("ok", flag(longest.c_str()));
}

TEST_F(value_store, what_is_no_plain_value_file_is_an_error_and_never_a_hang)
{
    char value[4] = "###";

    std::filesystem::create_directories(state + "/flag/DIRECTORY");
    EXPECT_NE(0, flag_get_item("DIRECTORY", value, 3));
    EXPECT_STREQ("###", value);
    EXPECT_NE(0, flag_set("DIRECTORY", "x"));
    ASSERT_EQ(0, mkfifo((state + "/flag/PIPE").c_str(), 0600));
    flag_get_item("PIPE", value, 3);
    EXPECT_EQ((std::vector<std::string>{"DIRECTORY", "PIPE"}), entries_of(state + "/flag")) << "nothing is left over";
}

TEST_F(value_store, an_oversized_value_is_refused_and_the_old_one_stays)
{
    EXPECT_EQ(0, flag_set("F", "old"));
    EXPECT_EQ(EMSGSIZE, flag_set("F", std::string(65537, 'x').c_str()));
    EXPECT_EQ("old", flag("F"));
    EXPECT_EQ(0, flag_set("F", std::string(65536, 'x').c_str()));
}

TEST_F(value_store, an_integer_is_decimal_or_0)
{
    static constexpr struct {
        const char *text;
        int value;
    } cases[] = {
        {"0", 0},
        {"1", 1},
        {"2000\n", 2000},
        {"-5", -5},
        {"+7", 7},
        {" 42 \r\n", 42},
        {"007", 7},
        {"2147483647", 2147483647},
        {"-2147483648", -2147483647 - 1},
        {"2147483648", 0},
        {"99999999999999999999", 0},
        {"", 0},
        {"\n", 0},
        {"abc", 0},
        {"12abc", 0},
        {"1 2", 0},
        {"0x10", 0},
        {"1.5", 0},
        {"-", 0},
    };

    EXPECT_EQ(0, get_CFG_int("UNSET"));
    for (const auto &c : cases) {
        write_text(state + "/cfg/N", c.text);
        EXPECT_EQ(c.value, get_CFG_int("N")) << c.text;
    }
}

TEST_F(value_store, device_information_takes_the_given_number_of_characters)
{
    EXPECT_EQ(0, set_devinfo_value_by_id(1, "abcdef", 3));
    EXPECT_EQ("abc", read_text(state + "/devinfo/1"));
    EXPECT_EQ(0, set_devinfo_value_by_id(1, "ab", 60)) << "the text ends before";
    EXPECT_EQ("ab", read_text(state + "/devinfo/1"));
    EXPECT_EQ(0, set_devinfo_value_by_id(1, "ab", 0));
    EXPECT_EQ("", read_text(state + "/devinfo/1"));
}

TEST_F(value_store, a_reader_sees_the_old_value_or_the_new_one_and_nothing_else)
{
    const std::string a(4000, 'a'), b(3000, 'b');
    std::atomic<bool> done{false};
    std::atomic<unsigned> reads{0}, wrong{0};

    ASSERT_EQ(0, flag_set("F", a.c_str()));
    std::thread readers[2];
    for (std::thread &reader : readers) {
        reader = std::thread([&] {
            while (!done) {
                std::string value(4096, '\0');
                const int error = flag_get_item("F", value.data(), 4096);
                value.resize(strlen(value.c_str()));
                wrong += error != 0 || (value != a && value != b) ? 1 : 0;
                reads++;
            }
        });
    }
    while (reads < 2)
        std::this_thread::yield();
    for (int i = 0; i < 1000; i++)
        EXPECT_EQ(0, flag_set("F", i % 2 ? a.c_str() : b.c_str()));
    done = true;
    for (std::thread &reader : readers)
        reader.join();
    EXPECT_EQ(0u, wrong);
    EXPECT_EQ((std::vector<std::string>{"F"}), entries_of(state + "/flag")) << "nothing is left over";
}

TEST_F(value_store, writers_at_once_leave_one_whole_value)
{
    std::vector<std::thread> writers;
    std::atomic<unsigned> failures{0};

    for (char c = 'a'; c < 'e'; c++) {
        writers.emplace_back([&failures, value = std::string(2000, c)] {
            for (int i = 0; i < 200; i++)
                failures += flag_set("F", value.c_str()) != 0 ? 1 : 0;
        });
    }
    for (std::thread &writer : writers)
        writer.join();
    EXPECT_EQ(0u, failures);
    const std::string value = read_text(state + "/flag/F");
    EXPECT_EQ(std::string(2000, value[0]), value);
    EXPECT_EQ(1u, entries_of(state + "/flag").size());
}

TEST_F(value_store, directories_and_files_are_for_owner_and_group_whatever_the_umask)
{
    for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{077}}) {
        const mode_t before = umask(mask);
        EXPECT_EQ(0, flag_set("F", "x"));
        umask(before);
        EXPECT_EQ(0770u, mode_of(state)) << mask;
        EXPECT_EQ(0770u, mode_of(state + "/flag")) << mask;
        EXPECT_EQ(0660u, mode_of(state + "/flag/F")) << mask;
        std::filesystem::remove_all(state);
    }
}

TEST_F(value_store, directories_that_are_there_keep_their_mode)
{
    std::filesystem::create_directories(state);
    ASSERT_EQ(0, chmod(state.c_str(), 0750));
    EXPECT_EQ(0, flag_set("F", "x"));
    ASSERT_EQ(0, chmod((state + "/flag").c_str(), 0700));
    EXPECT_EQ(0, flag_set("F", "y"));
    EXPECT_EQ(0750u, mode_of(state));
    EXPECT_EQ(0700u, mode_of(state + "/flag"));
}

TEST_F(value_store, missing_directories_above_are_made)
{
    setenv("DV_PLATFORM_ROOT", path("some/where/deep").c_str(), 1);
    EXPECT_EQ(0, flag_set("F", "x"));
    EXPECT_EQ("x", read_text(path("some/where/deep/flag/F")));
    setenv("DV_PLATFORM_ROOT", path("some/where/deep/flag/F").c_str(), 1);
    EXPECT_EQ(ENOTDIR, flag_set("F", "x")) << "a file is in the way";
}

TEST_F(value_store, a_member_of_the_group_reads_and_sets_what_root_made)
{
    constexpr gid_t group = 54321;
    char value[8] = {};

    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    ASSERT_EQ(0, mkdir(state.c_str(), 0770));
    ASSERT_EQ(0, chmod(state.c_str(), 0770));
    ASSERT_EQ(0, chown(state.c_str(), 0, group));
    ASSERT_EQ(0, flag_set("F", "root"));
    EXPECT_EQ(0,
              run_as(nobody, group, [&value] { return flag_get_item("F", value, 7) || strcmp(value, "root") != 0; }));
    EXPECT_EQ(0, run_as(nobody, group, [] { return flag_set("F", "member"); }));
    EXPECT_EQ("member", flag("F"));
    EXPECT_EQ(EACCES, run_as(nobody, no_group, [&value] { return flag_get_item("F", value, 7); }));
    EXPECT_EQ(EACCES, run_as(nobody, no_group, [] { return flag_set("F", "stranger"); }));
    EXPECT_EQ("member", flag("F"));
}
