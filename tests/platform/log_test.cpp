/* The log. Syslog's entry points are taken over here, so that what would go there can be looked at. */
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <regex>
#include <set>
#include <string>
#include <sys/stat.h>
#include <syslog.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include "commlog.h"
#include "sandbox.h"

static std::mutex g_system_lock;
static std::vector<std::pair<int, std::string>> g_system_lines;

static void keep_system_line(int priority, const char *format, va_list arguments)
{
    char text[16384];
    std::lock_guard<std::mutex> hold(g_system_lock);

    vsnprintf(text, sizeof text, format, arguments);
    g_system_lines.emplace_back(priority, text);
}

extern "C" {
void syslog(int priority, const char *format, ...)
{
    va_list arguments;

    va_start(arguments, format);
    keep_system_line(priority, format, arguments);
    va_end(arguments);
}

void __syslog_chk(int priority, int flag, const char *format, ...); /* what fortified code calls */
void __syslog_chk(int priority, int, const char *format, ...)
{
    va_list arguments;

    va_start(arguments, format);
    keep_system_line(priority, format, arguments);
    va_end(arguments);
}
}

class log_file : public sandbox
{
protected:
    log_file()
    {
        init_log_params("TEST");
        g_system_lines.clear();
    }

    void set_level(const char *level)
    {
        write_text(state + "/cfg/SYS_LOG_LEVEL", level);
        reset_libcommlog_level();
    }

    /* The text of the only line. */
    std::string logged()
    {
        const std::vector<std::string> lines = lines_of(log);
        const std::string head = " TEST[" + std::to_string(getpid()) + "] 0 ";

        EXPECT_EQ(1u, lines.size());
        if (lines.size() != 1 || lines[0].find(head) != 23)
            return "(no line of its own)";
        unlink(log.c_str());
        return lines[0].substr(23 + head.size());
    }
};

TEST_F(log_file, a_line_has_time_tag_process_level_and_text)
{
    savelog(2, "[dv_sms_mgr] %s: %d of %s", "main", 3, "four");
    const std::vector<std::string> lines = lines_of(log);
    const std::regex pattern(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} TEST\[)" + std::to_string(getpid()) +
                             R"(\] 2 \[dv_sms_mgr\] main: 3 of four)");
    ASSERT_EQ(1u, lines.size());
    EXPECT_TRUE(std::regex_match(lines[0], pattern)) << lines[0];
    EXPECT_EQ(0u, mode_of(log) & 0007) << "others cannot read it";
}

TEST_F(log_file, one_record_is_one_line)
{
    savelog(0, "one\ntwo\r\nthree");
    EXPECT_EQ("one\\ntwo\\r\\nthree", logged());
    savelog(0, "done\n");
    EXPECT_EQ("done", logged()) << "a line feed at the end adds no blank line";
    savelog(0, "%s", "\r\nOK\r\n");
    EXPECT_EQ("\\r\\nOK\\r", logged());
    savelog(0, "%s", "");
    EXPECT_EQ("", logged());
    savelog(0, "\n");
    EXPECT_EQ("", logged());
}

TEST_F(log_file, control_bytes_are_shown_and_other_text_stays)
{
    savelog(0, "%s", "a\tb\x1B[2J\x7F c");
    EXPECT_EQ("a\\x09b\\x1B[2J\\x7F c", logged());
    savelog(0, "%s", "caf\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80");
    EXPECT_EQ("caf\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80", logged());
    savelog(0, "%s", "\xC2\x85\xC2\x9B\xC2\xA0");
    EXPECT_EQ("\\xC2\\x85\\xC2\\x9B\xC2\xA0", logged()) << "the second set of controls";
    savelog(0, "%s", "x\xE6\x97z\xFF\xC0\x80\xED\xA0\x80");
    EXPECT_EQ("x\\xE6\\x97z\\xFF\\xC0\\x80\\xED\\xA0\\x80", logged()) << "what is no UTF-8";
}

TEST_F(log_file, a_long_line_is_kept_whole)
{
    const std::string text(5000, 'x');

    savelog(0, "%s", text.c_str());
    EXPECT_EQ(text, logged());
}

TEST_F(log_file, an_endless_line_is_cut_between_characters)
{
    for (size_t shift = 0; shift < 4; shift++) {
        std::string text(shift, 'x');
        while (text.size() < 20000)
            text += "\xF0\x9F\x98\x80";
        savelog(0, "%s", text.c_str());
        const std::string line = logged();
        EXPECT_GE(line.size(), 8000u);
        EXPECT_EQ(text.substr(0, line.size()), line);
        EXPECT_EQ(shift, line.size() % 4) << "a part of a character is left, or its escape";
    }
    savelog(0, "%s", std::string(20000, '\x01').c_str());
    const std::string line = logged();
    EXPECT_GE(line.size(), 8000u);
    EXPECT_EQ("\\x01", line.substr(line.size() - 4)) << "an escape is whole";
}

TEST_F(log_file, lines_above_the_configured_level_are_dropped)
{
    static constexpr struct {
        const char *level;
        size_t lines; /* of levels 0 to 5 */
    } cases[] = {{"0", 1}, {"1", 2}, {"3\n", 4}, {"5", 6}, {"99", 6}, {"-1", 1}, {"", 4}, {"nonsense", 4}};

    for (const auto &c : cases) {
        set_level(c.level);
        for (int level = 0; level <= 5; level++)
            savelog(level, "x");
        EXPECT_EQ(c.lines, lines_of(log).size()) << c.level;
        unlink(log.c_str());
    }
    unlink((state + "/cfg/SYS_LOG_LEVEL").c_str());
    reset_libcommlog_level();
    for (int level = 0; level <= 5; level++)
        savelog(level, "x");
    EXPECT_EQ(4u, lines_of(log).size()) << "unset is 3";
}

TEST_F(log_file, the_level_is_read_again_only_on_reset)
{
    set_level("0");
    write_text(state + "/cfg/SYS_LOG_LEVEL", "3");
    savelog(3, "before");
    EXPECT_EQ(0u, lines_of(log).size());
    reset_libcommlog_level();
    savelog(3, "after");
    EXPECT_EQ(1u, lines_of(log).size());
}

TEST_F(log_file, syslog_gets_the_same_text_unless_it_is_off)
{
    savelog(0, "off");
    EXPECT_EQ(0u, g_system_lines.size());
    unsetenv("DV_PLATFORM_SYSLOG");
    savelog(0, "100%% s\n%s", "%s%n");
    savelog(3, "talk");
    savelog(4, "too talkative");
    ASSERT_EQ(2u, g_system_lines.size());
    EXPECT_EQ(LOG_DAEMON | LOG_INFO, g_system_lines[0].first);
    EXPECT_EQ("100% s\\n%s%n", g_system_lines[0].second);
    EXPECT_EQ(LOG_DAEMON | LOG_DEBUG, g_system_lines[1].first);
}

TEST_F(log_file, a_log_that_cannot_be_written_is_no_reason_to_stop)
{
    setenv("DV_PLATFORM_LOG", "/nowhere/at/all/log", 1);
    savelog(0, "lost");
    ASSERT_EQ(0, mkfifo(path("pipe").c_str(), 0600));
    setenv("DV_PLATFORM_LOG", path("pipe").c_str(), 1);
    savelog(0, "nobody reads");
    unsetenv("DV_PLATFORM_LOG");
    savelog(0, "no file wanted");
    EXPECT_EQ("(none)", read_text(log));
}

TEST_F(log_file, bad_arguments_are_harmless)
{
    EXPECT_NE(0, init_log_params(nullptr));
    EXPECT_NE(0, init_log_params(""));
    void (*const unchecked)(int, const char *, ...) = savelog; /* the compiler refuses it otherwise */
    unchecked(0, nullptr);
    savelog(-5, "below");
    EXPECT_EQ("below", logged());
}

TEST_F(log_file, a_tag_is_bounded_and_cannot_break_a_line)
{
    init_log_params(("A B\nC" + std::string(100, 'x')).c_str());
    savelog(0, "text");
    init_log_params("TEST");
    const std::vector<std::string> lines = lines_of(log);
    ASSERT_EQ(1u, lines.size());
    EXPECT_NE(std::string::npos, lines[0].find(" A_B_C" + std::string(27, 'x') + "[")) << lines[0];
}

TEST_F(log_file, errno_is_not_touched)
{
    setenv("DV_PLATFORM_LOG", "/nowhere/at/all/log", 1);
    errno = 4711;
    savelog(0, "x");
    EXPECT_EQ(4711, errno);
    errno = 4711;
    savelog(9, "dropped");
    EXPECT_EQ(4711, errno);
}

TEST_F(log_file, lines_of_many_threads_do_not_mix)
{
    constexpr unsigned threads = 4, each = 300;
    std::vector<std::thread> writers;
    std::set<std::string> seen;

    for (unsigned t = 0; t < threads; t++) {
        writers.emplace_back([t] {
            for (unsigned i = 0; i < each; i++) {
                savelog(0, "<%u.%u%s>", t, i, std::string(500, static_cast<char>('a' + t)).c_str());
                if (i % 100 == 0)
                    reset_libcommlog_level();
            }
        });
    }
    for (std::thread &writer : writers)
        writer.join();
    for (const std::string &line : lines_of(log)) {
        EXPECT_LT(line.size(), 600u);
        EXPECT_TRUE(line.find(" TEST[") == 23 && line.back() == '>') << line;
        seen.insert(line.substr(line.find('<')));
    }
    EXPECT_EQ(threads * each, seen.size());
}
