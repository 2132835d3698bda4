/* The bench itself: a stand-in that does not do what it says would make every other test worthless. */
#include "fake/bench.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "cfg.h"
#include "commlog.h"
#include "devinfo.h"
#include "dv_sms_mgr.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_paths.h"
#include "flag.h"
#include "util.h"

extern "C" int daemon_main(int argc, char **argv);

using lines = std::vector<std::string>;

class bench_itself : public bench
{
};

TEST_F(bench_itself, reads_leave_open_what_the_interface_leaves_open)
{
    char buffer[8];

    platform.set_cfg("K", "abcdef");
    memset(buffer, '.', sizeof buffer);
    EXPECT_EQ(0, cfg_get_item("K", buffer, 4));
    EXPECT_EQ("abcd....", std::string(buffer, 8));
    EXPECT_NE(0, cfg_get_item("UNSET", buffer, 4));
    EXPECT_EQ("abcd....", std::string(buffer, 8));

    platform.set_read_mode({.fills_all = false, .empties_unset = true, .scribbles = true, .unset_result = 3});
    EXPECT_EQ(0, cfg_get_item("K", buffer, 4));
    EXPECT_STREQ("abc", buffer);
    EXPECT_EQ(3, cfg_get_item("UNSET", buffer, 4));
    EXPECT_STREQ("", buffer);
    platform.set_cfg("K", "x");
    EXPECT_EQ(0, cfg_get_item("K", buffer, 4));
    EXPECT_EQ(std::string("x\0\xA5\xA5....", 8), std::string(buffer, 8));
    EXPECT_EQ((lines{"cfg_get_item K 4", "cfg_get_item UNSET 4", "cfg_get_item K 4", "cfg_get_item UNSET 4",
                     "cfg_get_item K 4"}),
              platform.calls());
}

TEST_F(bench_itself, stores_and_overrides)
{
    EXPECT_EQ(0, flag_set("F", "1\r"));
    EXPECT_EQ("1\r", platform.flag("F"));
    platform.set_result("flag_set", -7);
    EXPECT_EQ(-7, flag_set("F", "2"));
    EXPECT_EQ("1\r", platform.flag("F"));
    EXPECT_EQ(0, set_devinfo_value_by_id(306001, "123", 2));
    EXPECT_EQ("12", platform.devinfo(306001));
    platform.set_cfg("N", "250");
    EXPECT_EQ(250, get_CFG_int("N"));
    EXPECT_EQ(0, get_CFG_int("UNSET"));
    EXPECT_EQ((lines{"flag_set F \"1\\r\"", "flag_set F \"2\"", "set_devinfo_value_by_id 306001 \"123\" 2"}),
              platform.calls({"flag_set", "set_devinfo_value_by_id"}));
    EXPECT_STREQ("module5", get_app_name_by_id(5));
    platform.set_null_app_names(true);
    EXPECT_EQ(nullptr, get_app_name_by_id(5));
}

TEST_F(bench_itself, the_world_may_change_at_a_call)
{
    char buffer[8] = {};

    platform.set_cfg("K", "old");
    platform.set_hook([&](const std::string &line) {
        if (line == "cfg_get_item K 7")
            platform.set_cfg("K", "new");
    });
    EXPECT_EQ(0, cfg_get_item("K", buffer, 7));
    EXPECT_STREQ("new", buffer);
    platform.reset();
    platform.set_cfg("K", "old");
    EXPECT_EQ(0, cfg_get_item("K", buffer, 7));
    EXPECT_STREQ("old", buffer);
}

TEST_F(bench_itself, files_and_commands_of_the_scratch_directory)
{
    char buffer[16] = "untouched";

    EXPECT_NE(0, cmd_cat("f", buffer, 15));
    EXPECT_STREQ("untouched", buffer);
    EXPECT_EQ(0, cmd_echo(" 1 ", "f"));
    EXPECT_EQ(" 1 ", read_file(scratch + "/f"));
    EXPECT_EQ(0, cmd_cat("f", buffer, 15));
    EXPECT_STREQ(" 1 ", buffer);
    EXPECT_EQ(0, util_shell("mkdir -p a/b"));
    EXPECT_TRUE(exists("a/b"));
    EXPECT_EQ(0, util_get_cmd_result("ls", buffer, 15));
    EXPECT_STREQ("a\nf\n", buffer);
    EXPECT_EQ(0, cmd_rm("f"));
    EXPECT_FALSE(exists("f"));

    char text[32] = "06 12 34";
    util_replace_with_new_string_ext(text, 31, " ", "");
    EXPECT_STREQ("061234", text);
    EXPECT_EQ(1, platform.count("util_replace_with_new_string_ext 31 \"06 12 34\" \" \" \"\""));
    EXPECT_STREQ("mnt/data/sms", dv_sms_root);
}

TEST_F(bench_itself, log_and_trace)
{
    savelog(3, "[dv_sms_mgr] %s%d", "x", 1);
    DV_EVENT("seen %d\n", 5);
    DV_SAVE("kept");
    printf("[dv_sms_mgr] plain--%s\r\n", "line");
    EXPECT_EQ((lines{"x1"}), saved(3));
    EXPECT_EQ((lines{"TestBody: seen 5\\n", "TestBody: kept"}), saved());
    EXPECT_EQ((lines{"TestBody: seen 5"}), traced());
    EXPECT_EQ("[dv_sms_mgr] plain--line\\r", output_lines().back());
    EXPECT_TRUE(in_trace("TestBody", "seen 5"));
    EXPECT_FALSE(in_log("TestBody", "seen 5"));
    EXPECT_FALSE(in_trace("TestBody", "kept"));
    forget();
    EXPECT_EQ("", output());
    debug_mode = 0;
    DV_TRACE("hidden");
    EXPECT_EQ(lines{}, traced());
}

TEST_F(bench_itself, sleep_and_clocks)
{
    int seen = 0;

    seams::set_time(1000);
    seams::set_monotonic({50, 7});
    seams::on_sleep([&](unsigned seconds, int count) { seen += static_cast<int>(seconds) * 10 + count; });
    sleep(3);
    sync();
    EXPECT_EQ(31, seen);
    EXPECT_EQ(1003, time(nullptr));
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    EXPECT_EQ(53, now.tv_sec);
    EXPECT_EQ((lines{"sleep 3", "sync"}), platform.calls());
    EXPECT_EQ(1, seams::sleeps());
    EXPECT_EQ(3U, seams::slept());
}

TEST_F(bench_itself, failures_on_demand)
{
    seams::fail("malloc", 2);
    void *volatile first = malloc(8);
    void *volatile second = malloc(8);
    void *volatile third = malloc(8);
    EXPECT_NE(nullptr, first);
    EXPECT_EQ(nullptr, second);
    EXPECT_NE(nullptr, third);
    free(first);
    free(third);

    seams::fail("calloc");
    void *volatile block = calloc(2, 8);
    EXPECT_EQ(nullptr, block);

    seams::fail("fopen", 1, 0, true);
    EXPECT_EQ(nullptr, fopen("f", "w"));
    EXPECT_EQ(nullptr, fopen("f", "w"));
    EXPECT_EQ(2, platform.count("fopen f w"));

    struct statfs info;
    EXPECT_EQ(0, statfs(".", &info));
    EXPECT_EQ(4096, info.f_bsize);
    seams::set_free_space(512, 9);
    EXPECT_EQ(0, statfs(".", &info));
    EXPECT_EQ(9U, info.f_bavail);
    seams::fail_statfs();
    EXPECT_EQ(-1, statfs(".", &info));

    pthread_mutex_t mutex;
    pthread_t thread;
    seams::fail("pthread_mutex_init", 1, EAGAIN);
    EXPECT_EQ(EAGAIN, pthread_mutex_init(&mutex, nullptr));
    seams::fail("pthread_create", 2, EAGAIN);
    seams::start_no_threads(true);
    EXPECT_EQ(0, pthread_create(
                     &thread, nullptr, [](void *) -> void * { abort(); }, &mutex));
    EXPECT_EQ(EAGAIN, pthread_create(
                          &thread, nullptr, [](void *) -> void * { abort(); }, nullptr));
    ASSERT_EQ(1U, seams::threads());
    EXPECT_EQ(&mutex, seams::thread(0).argument);
    EXPECT_EQ(0, atexit([] {}));
    EXPECT_EQ(1U, seams::exit_hooks());
}

TEST_F(bench_itself, the_daemon_starts_under_another_name)
{
    char name[] = "dv_sms_mgr";
    char *arguments[] = {name, nullptr};

    seams::fail("pthread_mutex_init");
    EXPECT_EQ(-1, daemon_main(1, arguments));
    EXPECT_TRACED("main", "sms_send_lock init fail!");
}

class bench_modem : public bench
{
protected:
    void SetUp() override
    {
        bench::SetUp();
        platform.set_handler(dv_sms_mgr_handler);
        sms_enabled = 1;
    }
    void TearDown() override
    {
        sms_enabled = 0;
        bench::TearDown();
    }

    char buffer[32] = {};
};

TEST_F(bench_modem, answers_by_the_script)
{
    modem.script("AT+X?\r", {{.text = "\r\n+X: 1\r\n"}, {.text = "", .error = 304}});
    modem.script("AT+Y*", {{.text = "y"}});
    EXPECT_EQ(0, dv_sms_mgr_send_at(15, buffer, sizeof buffer, "AT+X?\r"));
    EXPECT_STREQ("\r\n+X: 1\r\n", buffer);
    EXPECT_EQ(304, dv_sms_mgr_send_at(15, buffer, sizeof buffer, "AT+X?\r"));
    EXPECT_EQ(304, dv_sms_mgr_send_at(15, buffer, sizeof buffer, "AT+X?\r"));
    EXPECT_EQ(0, dv_sms_mgr_send_at(15, buffer, sizeof buffer, "AT+Y=%d\r", 3));
    EXPECT_EQ('y', buffer[0]);
    EXPECT_EQ((lines{"AT+X?\\r", "AT+X?\\r", "AT+X?\\r", "AT+Y=3\\r"}), platform.commands());
    EXPECT_EQ(4, platform.count("pthread_cond_timedwait 18"));
    ASSERT_EQ(4U, modem.requests().size());
    EXPECT_STREQ("AT+Y=3\r", modem.requests().back().text);
}

TEST_F(bench_modem, strays_silence_and_a_deaf_bus)
{
    modem.script("AT\r", {{.how = fake::answer::silent},
                          {.text = "stray", .how = fake::answer::other_id},
                          {.error = 9, .how = fake::answer::not_sent},
                          {.text = "late", .how = fake::answer::late},
                          {}});
    EXPECT_EQ(ETIMEDOUT, dv_sms_mgr_send_at(5, buffer, sizeof buffer, "AT\r"));
    EXPECT_NEAR(8.0, seams::last_wait(), 0.5);
    EXPECT_EQ(0, dv_sms_mgr_send_at(5, buffer, sizeof buffer, "AT\r"));
    EXPECT_STREQ("", buffer);
    EXPECT_EQ(9, dv_sms_mgr_send_at(5, buffer, sizeof buffer, "AT\r"));
    EXPECT_EQ(ETIMEDOUT, dv_sms_mgr_send_at(5, buffer, sizeof buffer, "AT\r"));
    EXPECT_EQ(1, modem.deliver_late());
    EXPECT_EQ(0, dv_sms_mgr_send_at(5, buffer, sizeof buffer, "AT\r"));
    EXPECT_STREQ("\r\nOK\r\n", buffer);
    seams::set_wait(seams::at_once, EINVAL);
    EXPECT_EQ(-2, dv_sms_mgr_send_at(5, buffer, sizeof buffer, "AT\r"));
}

TEST_F(bench_modem, indications_come_on_a_thread_of_their_own)
{
    modem.indicate("\r\n+CREG: 1\r\n");
    EXPECT_NE(std::string::npos, output().find("recv atind data:\\r\\n+CREG: 1")) << output();
    modem.indicate("\r\n+CREG: 1\r\n", 1);
    EXPECT_TRACED("dv_sms_mgr_at_report_event_handler", "recv atind magic num error!");
}
