/* The worker threads: one pass of each, the pace of many, and how they end. */
#include <pthread.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "MTKT750/mtkt750_sms.h"
#include "core_bench.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_utils.h"

using fake::answer;

namespace
{

/* From +31612345678: "hi", and nothing at all, which is not filed. */
static const char some_pdu[] = "07911356131313F3"
                               "04"
                               "0B911316325476F8"
                               "0000"
                               "42305041700002"
                               "02E834";
static const char empty_pdu[] = "07911356131313F3"
                                "04"
                                "0B911316325476F8"
                                "0000"
                                "42305041700002"
                                "00";

class workers : public core_bench
{
protected:
    /* The bodies of the three threads, taken without running one. */
    void take_bodies()
    {
        seams::start_no_threads(true);
        seams::on_sleep([](unsigned, int) { pthread_exit(nullptr); });
        run_to_exit([] { dv_sms_mgr_create_thread(); });
        ASSERT_EQ(3u, seams::threads());
        for (size_t i = 0; i < 3; i++)
            body[i] = seams::thread(i).body;
        seams::reset();
        forget();
    }

    /* Runs a body until it has slept so often. */
    void run_body(size_t which, int sleeps)
    {
        seams::reset();
        seams::on_sleep([sleeps](unsigned, int count) {
            if (count == sleeps)
                pthread_exit(nullptr);
        });
        run_to_exit([this, which] { body[which](nullptr); });
        seams::on_sleep(nullptr);
    }

    void *(*body[3])(void *) = {};
};

/* --- the housekeeping --- */

TEST_F(workers, a_pass_of_housekeeping_reads_sim_and_switch_and_sleeps_a_second)
{
    process_1s_signal();
    EXPECT_EQ((lines{"get_devinfo_value_by_id 301001 4", "cfg_get_item SYS_SMS_SW 2", "sleep 1"}),
              calls_but({"reset_libcommlog_level"}));
}

struct switch_case {
    int before;
    const char *service, *sim; /* null: unset */
    int after;
};

static const switch_case switch_cases[] = {
    /* on only with both */
    {0, "1", "1", 1},
    {0, "1", "0", 0},
    {0, "0", "1", 0},
    {0, "0", "0", 0},
    {0, nullptr, "1", 0},
    {0, "1", nullptr, 0},
    {0, "", "1", 0},
    {0, "1", "", 0},
    {0, "2", "1", 0},
    {0, "1", "x", 0},
    /* off with either */
    {1, "1", "1", 1},
    {1, "0", "1", 0},
    {1, "1", "0", 0},
    {1, "0", "0", 0},
    {1, "0", nullptr, 0},
    {1, nullptr, "0", 0},
    /* what is neither changes nothing, either way */
    {1, nullptr, nullptr, 1},
    {0, nullptr, nullptr, 0},
    {1, "", "", 1},
    {1, "", "1", 1},
    {1, "1", "", 1},
    {1, "2", "x", 1},
    {0, "2", "x", 0},
    /* the first character decides */
    {0, "1x", "1xyz", 1},
    {0, "1xx", "1xyzzy", 1},
    {1, "01", "1", 0},
    {1, "1", "0111", 0},
    {1, "1", "00001", 0},
    {0, " 1", "1", 0},
};

TEST_F(workers, the_service_follows_the_switch_and_the_sim)
{
    static const std::string said = "process_1s_signal: sms function close or sim not exsit, please check it";

    for (const bool emptied : {false, true}) {
        for (const bool scribbles : {false, true}) {
            for (const switch_case &each : switch_cases) {
                const std::string name = ::testing::PrintToString(each.service) + ::testing::PrintToString(each.sim);
                const bool closed = each.before == 1 && each.after == 0;

                forget();
                platform.set_read_mode({.empties_unset = emptied, .scribbles = scribbles});
                platform.unset_cfg("SYS_SMS_SW");
                platform.unset_devinfo(301001);
                if (each.service != nullptr)
                    platform.set_cfg("SYS_SMS_SW", each.service);
                if (each.sim != nullptr)
                    platform.set_devinfo(301001, each.sim);
                sms_enabled = static_cast<uint8_t>(each.before);
                process_1s_signal();
                EXPECT_EQ(each.after, sms_enabled) << name;
                EXPECT_EQ(closed ? lines{said} : lines{}, traced()) << name;
                EXPECT_EQ(closed ? lines{said} : lines{}, saved()) << name;
            }
        }
    }
}

TEST_F(workers, a_pulled_sim_is_reported_once_not_every_second)
{
    platform.set_cfg("SYS_SMS_SW", "1");
    platform.set_devinfo(301001, "1");
    process_1s_signal();
    EXPECT_EQ(1, sms_enabled);
    platform.set_devinfo(301001, "0");
    for (int i = 0; i < 5; i++)
        process_1s_signal();
    EXPECT_BOTH("process_1s_signal", "sms function close or sim not exsit, please check it");
    platform.set_devinfo(301001, "1");
    process_1s_signal();
    EXPECT_EQ(1, sms_enabled) << "back again";
}

TEST_F(workers, the_log_level_is_read_again_every_tenth_pass_before_its_sleep)
{
    int passes = 0;

    while (platform.count("reset_libcommlog_level") == 0) { /* wherever the counter stands */
        process_1s_signal();
        ASSERT_LE(++passes, 10);
    }
    EXPECT_EQ("sleep 1", platform.calls().back());
    EXPECT_EQ("reset_libcommlog_level", platform.calls().end()[-2]);
    forget();
    for (int i = 1; i <= 600; i++) { /* the counter is a byte: far enough to overflow it */
        process_1s_signal();
        ASSERT_EQ(i / 10, platform.count("reset_libcommlog_level")) << i;
    }
}

TEST_F(workers, the_first_reread_of_the_log_level_comes_ten_seconds_after_the_start)
{
    take_bodies();
    run_body(0, 9);
    EXPECT_EQ(0, platform.count("reset_libcommlog_level"));
    run_body(0, 1);
    EXPECT_EQ(1, platform.count("reset_libcommlog_level"));
}

TEST_F(workers, housekeeping_goes_on_every_second)
{
    take_bodies();
    run_body(0, 25);
    const lines calls = calls_but({"reset_libcommlog_level"});

    ASSERT_EQ(75u, calls.size());
    for (size_t i = 0; i < calls.size(); i += 3)
        EXPECT_EQ((lines{"get_devinfo_value_by_id 301001 4", "cfg_get_item SYS_SMS_SW 2", "sleep 1"}),
                  lines(calls.begin() + static_cast<long>(i), calls.begin() + static_cast<long>(i) + 3));
}

/* --- receiving --- */

/* Filing measures the flash, retrieval asks the modem. */
static const std::initializer_list<std::string_view> receive_calls = {"statfs", "bus", "sleep"};

TEST_F(workers, a_receive_pass_takes_one_pdu_then_one_index_with_a_second_behind_each)
{
    modem.script("AT+CMGR=*", {{"\r\nOK\r\n"}});
    for (uint32_t i = 1; i <= 2; i++) {
        ASSERT_EQ(0, util_enqueue_pdu(empty_pdu));
        ASSERT_EQ(0, util_enqueue(i));
    }
    dv_sms_mgr_receive_poll();
    EXPECT_EQ((lines{"statfs mnt/data/sms/sms_read", "sleep 1", "bus 5 AT+CMGR=1\\r", "sleep 1"}),
              platform.calls(receive_calls));
    EXPECT_EQ(1, sms_pdu_queue.count);
    EXPECT_EQ(1, sms_index_queue.count);
}

TEST_F(workers, a_receive_pass_without_work_only_sleeps)
{
    dv_sms_mgr_receive_poll();
    EXPECT_EQ((lines{"sleep 1", "sleep 1"}), platform.calls());
}

TEST_F(workers, what_a_receive_pass_takes_is_read_and_filed)
{
    ASSERT_EQ(0, util_enqueue_pdu(some_pdu));
    dv_sms_mgr_receive_poll();
    EXPECT_EQ("1 0 +31612345678 2024/03/05 14:07:00 hi", read_file("mnt/data/sms/sms_read/1"));
    modem.script("AT+CMGR=7\r", {{std::string("\r\n+CMGR: 0,,20\r\n") + some_pdu + "\r\n\r\nOK\r\n"}});
    ASSERT_EQ(0, util_enqueue(7));
    dv_sms_mgr_receive_poll();
    EXPECT_TRUE(exists("mnt/data/sms/sms_read/2"));
    EXPECT_EQ((lines{"AT+CMGR=7", "AT+CMGD=7"}), asked());
}

TEST_F(workers, three_pdus_and_three_indexes_take_nine_seconds)
{
    take_bodies();
    modem.script("AT+CMGR=*", {{"\r\nOK\r\n"}});
    for (uint32_t i = 1; i <= 3; i++) {
        ASSERT_EQ(0, util_enqueue_pdu(empty_pdu));
        ASSERT_EQ(0, util_enqueue(i));
    }
    run_body(1, 9);

    lines wanted;
    for (int i = 1; i <= 3; i++)
        for (const std::string &line : lines{"statfs mnt/data/sms/sms_read", "sleep 1",
                                             "bus 5 AT+CMGR=" + std::to_string(i) + "\\r", "sleep 1", "sleep 1"})
            wanted.push_back(line);
    EXPECT_EQ(wanted, platform.calls(receive_calls));
    EXPECT_EQ(0, sms_pdu_queue.count + sms_index_queue.count);
}

/* --- all three, running; they end with the process, or as here when they are told to --- */

class running_workers : public core_bench
{
protected:
    void SetUp() override
    {
        core_bench::SetUp();
        platform.set_flag("SMS_CSCA", "+31653131313");
        platform.set_devinfo(301002, "LTE");
        platform.set_flag("DV_SMS_MGR_LAST_ERR_CODE", "");
    }

    void start()
    {
        seams::on_sleep([](unsigned seconds, int) {
            if (seconds == 10)
                pthread_exit(nullptr);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        });
        run_to_exit([] { dv_sms_mgr_create_thread(); });
    }

    bool has_ended(const std::string &line)
    {
        const lines log = saved();
        return std::find(log.begin(), log.end(), line) != log.end();
    }

    void stop()
    {
        dv_sms_mgr_stop_threads();
        const sockmsg_record last = make_message(0, "", "");
        push_sms_into_queue(&last); /* the send thread wakes for nothing else */
        EXPECT_TRUE(becomes_true(
            [this] { return has_ended("process_send_sms_thread: exit_from_process_send_sms_thread!\\n"); }));
        EXPECT_TRUE(becomes_true([this] { return has_ended("process_1s_thread: exit_from_process_1s_thread!\\n"); }));
        EXPECT_TRUE(becomes_true(
            [this] { return has_ended("process_receive_sms_thread: exit_from_process_cmt_read_sms_thread!\\n"); }));
    }
};

TEST_F(running_workers, say_so_when_they_end)
{
    start();
    stop();
    EXPECT_EQ(1u, times(traced(), "process_1s_thread: exit_from_process_1s_thread!"));
    EXPECT_EQ(1u, times(traced(), "process_receive_sms_thread: exit_from_process_cmt_read_sms_thread!"));
    EXPECT_EQ(1u, times(traced(), "process_send_sms_thread: exit_from_process_send_sms_thread!"));
    for (const char *line : {"process_1s_thread: exit_from_process_1s_thread!\\n",
                             "process_receive_sms_thread: exit_from_process_cmt_read_sms_thread!\\n",
                             "process_send_sms_thread: exit_from_process_send_sms_thread!\\n"})
        EXPECT_EQ(1u, times(saved(), line));
    for (const char *line : {"process_1s_thread: exit_from_process_1s_thread!",
                             "process_receive_sms_thread: exit_from_process_cmt_read_sms_thread!",
                             "process_send_sms_thread: exit_from_process_send_sms_thread!"})
        EXPECT_EQ(0u, times(saved(), line)) << "the log has it with a line end only";
    /* The exit hook is registered three times, so it runs three times. */
    dv_sms_mgr_stop_threads();
    dv_sms_mgr_stop_threads();
}

TEST_F(running_workers, the_service_turns_on_and_a_request_from_the_bus_is_sent)
{
    sockmsg_record request = make_message(DV_SMS_MGR_MSG_ID_SEND_SMS, "+31612345678", "hello", 3);

    start();
    EXPECT_EQ(0, sms_enabled);
    platform.set_cfg("SYS_SMS_SW", "1");
    platform.set_devinfo(301001, "1");
    ASSERT_TRUE(becomes_true([] { return sms_enabled == 1; }));
    platform.set_flag("DV_SMS_MGR_LAST_RECEIVED_MSG", "");
    EXPECT_EQ(0, dv_sms_mgr_handler(&request));
    EXPECT_TRUE(becomes_true([this] { return platform.flag("DV_SMS_MGR_LAST_ERR_CODE") == "0"; }));
    EXPECT_TRUE(becomes_true([] { return exists("mnt/data/sms/sms_send/1"); }));
    EXPECT_EQ(1u, modem.requests().size());
    stop();
}

TEST_F(running_workers, an_indication_is_fetched_filed_and_deleted)
{
    start();
    platform.set_cfg("SYS_SMS_SW", "1");
    platform.set_devinfo(301001, "1");
    ASSERT_TRUE(becomes_true([] { return sms_enabled == 1; }));
    modem.script("AT+CMGR=4\r", {{std::string("\r\n+CMGR: 0,,20\r\n") + some_pdu + "\r\n\r\nOK\r\n"}});
    modem.indicate("\r\n+CMTI: \"SM\",4\r\n");
    modem.indicate(std::string("\r\n+CMT: ,20\r\n") + some_pdu + "\r\n");
    EXPECT_TRUE(becomes_true([this] { return platform.count("bus 5 AT+CMGD=4\\r") == 1; }));
    EXPECT_TRUE(becomes_true([] { return exists("mnt/data/sms/sms_read/2"); }));
    stop();
}

TEST_F(running_workers, requests_that_nobody_signals_are_sent_one_after_the_other)
{
    int unlocked = 0;

    /* Two wait before the thread is there; a third comes in the middle of the first one's sending,
     * put into the list without a signal. */
    for (int i = 0; i < 2; i++) {
        const sockmsg_record request = make_message(0, "+31612345678", "queued");
        ASSERT_EQ(1, list_join(list_node_create(&request), g_sms_send_head));
    }
    modem.set_hook([&, done = std::make_shared<bool>(false)](const std::string &) {
        if (pthread_mutex_trylock(&sms_send_lock) != 0)
            return;
        unlocked++; /* the queue's lock is not held while sending */
        if (!*done) {
            const sockmsg_record request = make_message(0, "+31612345678", "in between");
            list_join(list_node_create(&request), g_sms_send_head);
        }
        *done = true;
        pthread_mutex_unlock(&sms_send_lock);
    });
    start();
    EXPECT_TRUE(
        becomes_true([] { return read_file("mnt/data/sms/sms_send/3").find(" in between") != std::string::npos; }));
    stop();
    EXPECT_EQ(3, unlocked);
}

} // namespace
