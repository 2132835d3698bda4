/* Several threads at once: who waits for whom, and that ThreadSanitizer finds nothing. */
#include <errno.h>
#include <pthread.h>
#include <string.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "core_bench.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_utils.h"

using fake::answer;

namespace
{

class concurrency : public core_bench
{
protected:
    int waits() { return platform.count("pthread_cond_timedwait 18"); }

    /* Waits until the asker has begun its `nth` wait and given up the lock in it. */
    bool asker_waits(int nth)
    {
        if (!becomes_true([this, nth] { return waits() >= nth; }))
            return false;
        pthread_mutex_lock(&at_lock);
        pthread_mutex_unlock(&at_lock);
        return true;
    }

    /* The answer to the last request, from outside the modem's script. */
    sockmsg_record make_answer(const char *text, int error = 0, int other = 0)
    {
        const at_request request = modem.requests().back();
        at_response response = {};
        sockmsg_record record;

        response.msg_id = AT_MSG_ID_COMMAND;
        response.at_id = request.at_id + other;
        response.error_code = error;
        strcpy(response.text, text);
        memcpy(&record, &response, sizeof record);
        return record;
    }
};

TEST_F(concurrency, a_wake_up_without_an_answer_is_waited_through_to_the_same_deadline)
{
    char reply[64] = {};
    int result = -1;

    modem.script("AT\r", {{.how = answer::silent}});
    seams::set_wait(seams::really);
    std::thread asker([&] { result = dv_sms_mgr_send_at(15, reply, sizeof reply, "AT\r"); });
    for (int i = 1; i <= 3; i++) {
        ASSERT_TRUE(asker_waits(i));
        pthread_mutex_lock(&at_lock);
        pthread_cond_broadcast(&at_available_cond);
        pthread_mutex_unlock(&at_lock);
    }
    ASSERT_TRUE(asker_waits(4));
    EXPECT_LE(seams::last_wait(), 18.0) << "no new deadline";
    modem.deliver(make_answer("\r\nOK\r\n"));
    asker.join();
    EXPECT_EQ(0, result);
    EXPECT_STREQ("\r\nOK\r\n", reply);
    EXPECT_EQ(4, waits());
}

TEST_F(concurrency, wake_ups_without_an_answer_do_not_move_the_deadline)
{
    int result = -1;

    modem.script("AT\r", {{.how = answer::silent}});
    seams::set_wait(seams::really);
    std::thread asker([&] {
        char reply[64] = {};
        result = dv_sms_mgr_send_at(15, reply, sizeof reply, "AT\r");
    });
    ASSERT_TRUE(asker_waits(1));
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    now.tv_sec += 17; /* so that the second wait finds one second left */
    seams::set_monotonic(now);
    pthread_mutex_lock(&at_lock);
    pthread_cond_broadcast(&at_available_cond);
    pthread_mutex_unlock(&at_lock);
    ASSERT_TRUE(becomes_true([this] { return platform.calls({"pthread_cond_timedwait"}).size() == 2; }));
    EXPECT_NEAR(1.0, seams::last_wait(), 0.5);
    seams::set_wait(seams::at_once, ETIMEDOUT); /* and what it would be told then */
    pthread_mutex_lock(&at_lock);
    pthread_cond_broadcast(&at_available_cond);
    pthread_mutex_unlock(&at_lock);
    asker.join();
    EXPECT_EQ(ETIMEDOUT, result);
}

TEST_F(concurrency, neither_marker_nor_id_keeps_a_record_from_ending_the_wait)
{
    char reply[64] = "####";

    seams::set_wait(seams::really);
    for (const int other : {0, 1}) {
        forget();
        int result = -1;
        modem.script("AT\r", {{.how = answer::silent}});
        std::thread asker([&] { result = dv_sms_mgr_send_at(15, reply, sizeof reply, "AT\r"); });
        ASSERT_TRUE(asker_waits(1));
        EXPECT_EQ(0u, *reinterpret_cast<const uint32_t *>(make_answer("").payload)) << "no marker";
        modem.deliver(make_answer("\r\nx\r\n", other == 0 ? 0 : 99, other));
        asker.join();
        EXPECT_EQ(0, result);
        EXPECT_STREQ("\r\nx\r\n", reply) << "the stray one copies nothing";
        EXPECT_EQ(1, waits());
    }
}

TEST_F(concurrency, a_late_answer_ends_the_next_request_as_a_stray_one)
{
    char reply[64] = {};
    int result = -1;

    modem.script("AT+ONE\r", {{.how = answer::late}});
    modem.script("AT+TWO\r", {{.how = answer::silent}});
    seams::set_time(1000);
    EXPECT_EQ(ETIMEDOUT, dv_sms_mgr_send_at(15, reply, sizeof reply, "AT+ONE\r"));
    seams::set_time(2000); /* another second, another id */
    forget();
    seams::set_wait(seams::really);
    std::thread asker([&] { result = dv_sms_mgr_send_at(15, reply, sizeof reply, "AT+TWO\r"); });
    ASSERT_TRUE(asker_waits(1));
    EXPECT_EQ(1, modem.deliver_late());
    asker.join();
    EXPECT_EQ(0, result);
    EXPECT_STREQ("", reply);
    EXPECT_TRACED("dv_sms_mgr_send_at", "[sms_mgr] get at_respone at_id not same as request! , cmd: AT+TWO\\r");
}

TEST_F(concurrency, two_threads_ask_one_after_the_other)
{
    static constexpr int rounds = 150;
    std::atomic<int> wrong{0};

    debug_mode = 0; /* so that command and answer are in the record of calls */
    modem.script("AT+A\r", {{"\r\nA\r\n"}});
    modem.script("AT+B\r", {{"\r\nB\r\n"}});
    const auto ask = [&wrong](const char *command, const char *wanted) {
        for (int i = 0; i < rounds; i++) {
            char reply[16] = {};

            if (dv_sms_mgr_send_at(15, reply, sizeof reply, "%s", command) != 0 || strcmp(reply, wanted) != 0)
                wrong++;
        }
    };
    std::thread one(ask, "AT+A\r", "\r\nA\r\n"), two(ask, "AT+B\r", "\r\nB\r\n");
    one.join();
    two.join();
    EXPECT_EQ(0, wrong);

    /* Never a second command before the first one's answer was taken. */
    std::string order;
    for (const std::string &line : platform.calls({"bus", "savelog"})) {
        if (line.find("bus 5 AT+") == 0)
            order += line[9];
        else if (line.find("<= recv data :\\r\\n") != std::string::npos)
            order += static_cast<char>(tolower(line[line.find("\\n") + 2]));
    }
    ASSERT_EQ(4u * rounds, order.size());
    for (size_t i = 0; i < order.size(); i += 2)
        ASSERT_EQ(tolower(order[i]), order[i + 1]) << order;
}

TEST_F(concurrency, whoever_asks_during_a_wait_sends_only_behind_it)
{
    std::atomic<bool> second_began{false};

    modem.script("AT+ONE\r", {{.how = answer::silent}});
    modem.script("AT+TWO\r", {{plain_ok}});
    seams::set_wait(seams::really);
    std::thread one([] {
        char reply[16] = {};
        EXPECT_EQ(0, dv_sms_mgr_send_at(15, reply, sizeof reply, "AT+ONE\r"));
    });
    ASSERT_TRUE(asker_waits(1));
    const sockmsg_record answer_to_one = make_answer("\r\nOK\r\n");
    std::thread two([&] {
        char reply[16] = {};
        second_began = true;
        EXPECT_EQ(0, dv_sms_mgr_send_at(15, reply, sizeof reply, "AT+TWO\r"));
    });
    ASSERT_TRUE(becomes_true([&] { return second_began.load(); }));
    for (int i = 0; i < 50; i++) { /* time enough to go wrong in */
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ASSERT_EQ(lines{"AT+ONE"}, asked());
    }
    modem.deliver(answer_to_one);
    one.join();
    two.join();
    EXPECT_EQ((lines{"AT+ONE", "AT+TWO"}), asked());
}

TEST_F(concurrency, nobody_asks_during_the_pause_that_follows_fifteen_time_outs)
{
    lines asked_then;
    std::thread two;

    platform.set_cfg("SYS_REBOOT_WHEN_MODEM_UNORMAL", "1");
    modem.script("AT+ONE\r", {{.how = answer::silent}});
    char reply[16] = {};
    ASSERT_EQ(0, dv_sms_mgr_send_at(15, reply, sizeof reply, "AT\r"));
    for (int i = 0; i < 14; i++)
        ASSERT_EQ(ETIMEDOUT, dv_sms_mgr_send_at(15, reply, sizeof reply, "AT+ONE\r"));
    forget();
    seams::on_sleep([&](unsigned seconds, int) {
        if (seconds != 10)
            return;
        two = std::thread([] {
            char text[16] = {};
            EXPECT_EQ(0, dv_sms_mgr_send_at(15, text, sizeof text, "AT+TWO\r"));
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        asked_then = asked();
    });
    EXPECT_EQ(ETIMEDOUT, dv_sms_mgr_send_at(15, reply, sizeof reply, "AT+ONE\r"));
    two.join();
    EXPECT_EQ(lines{"AT+ONE"}, asked_then);
    EXPECT_EQ((lines{"AT+ONE", "AT+TWO"}), asked());
}

TEST_F(concurrency, two_threads_push_while_a_third_takes)
{
    static constexpr uint32_t each = 400;
    std::atomic<int> refused{0};
    uint32_t next[2] = {};

    debug_mode = 0;
    const auto push = [&refused](uint32_t producer) {
        for (uint32_t i = 0; i < each;) {
            const sockmsg_record request = make_request(i, "", producer);

            if (push_sms_into_queue(&request) == 1) {
                i++;
            } else {
                refused++;
                std::this_thread::yield();
            }
        }
    };
    std::thread one(push, 0), two(push, 1);
    for (uint32_t taken = 0; taken < 2 * each;) {
        sockmsg_record record;
        pthread_mutex_lock(&sms_send_lock);
        while (g_sms_send_head->count <= 0)
            pthread_cond_wait(&sms_send_cond, &sms_send_lock); /* every push wakes */
        EXPECT_LE(g_sms_send_head->count, 62) << "61, and one more when both looked at the same moment";
        const int got = list_pop(g_sms_send_head, &record);
        pthread_mutex_unlock(&sms_send_lock);
        ASSERT_EQ(1, got);
        ASSERT_LT(record.sender_module_id, 2u);
        EXPECT_EQ(next[record.sender_module_id]++, record.msg_id) << "each producer's in its order";
        taken++;
    }
    one.join();
    two.join();
    EXPECT_EQ(0, waiting());
}

TEST_F(concurrency, the_rings_are_filled_and_drained_at_once)
{
    static constexpr uint32_t count = 2000;

    debug_mode = 0;
    std::thread producer([] {
        for (uint32_t i = 0; i < count; i++) {
            while (util_enqueue(i) != 0)
                std::this_thread::yield();
            while (util_enqueue_pdu(std::to_string(i).c_str()) != 0)
                std::this_thread::yield();
        }
    });
    for (uint32_t i = 0; i < count; i++) {
        uint32_t index;
        char pdu[512] = {};

        while (util_dequeue(&index) != 0)
            std::this_thread::yield();
        while (util_dequeue_pdu(pdu, sizeof pdu) != 0)
            std::this_thread::yield();
        ASSERT_EQ(i, index);
        ASSERT_EQ(std::to_string(i), pdu);
    }
    producer.join();
    EXPECT_EQ(0, sms_index_queue.count + sms_pdu_queue.count);
}

TEST_F(concurrency, the_bus_delivers_while_the_service_goes_on_and_off)
{
    std::atomic<bool> stop{false};

    debug_mode = 0;
    std::thread housekeeping([this, &stop] {
        for (int i = 0; i < 300; i++) {
            platform.set_cfg("SYS_SMS_SW", i % 2 == 0 ? "1" : "0");
            platform.set_devinfo(301001, "1");
            process_1s_signal();
        }
        stop = true;
    });
    while (!stop) {
        uint32_t index;
        modem.indicate("\r\n+CMTI: \"SM\",1\r\n");
        while (util_dequeue(&index) == 0)
            EXPECT_EQ(1u, index);
    }
    housekeeping.join();
}

} // namespace
