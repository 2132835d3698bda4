/* The store while everything happens at once: the bus thread reads, deletes and files drafts, the daemon's own
 * workers receive and send. Afterwards index, directory and counter agree. */
#include <pthread.h>
#include <sched.h>
#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <random>
#include <sstream>
#include <thread>

#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_read.h"
#include "dv_sms_mgr_utils.h"
#include "store_bench.h"
#include "store_pdu.h"

/* A second passes for the workers when the test says so, and not at all for the bus thread. */
class seconds
{
public:
    void pass(int count)
    {
        std::lock_guard hold(lock_);
        passed_ += count;
        changed_.notify_all();
    }

    void wait_one()
    {
        std::unique_lock hold(lock_);
        const long now = passed_;
        changed_.wait(hold, [&] { return passed_ > now; });
    }

private:
    std::mutex lock_;
    std::condition_variable changed_;
    long passed_ = 0;
};

static thread_local bool on_bus;

static int take_on_bus(sockmsg_record *record)
{
    on_bus = true;
    return dv_sms_mgr_handler(record);
}

/* Ends with the thread: the daemon's main thread sleeps for ever. */
static void *run_create_thread(void *)
{
    dv_sms_mgr_create_thread();
}

class store_threads : public store_bench
{
protected:
    seconds clock;

    /* A text that tells whether it is whole. */
    static std::string text_of(int id)
    {
        return "<" + std::to_string(id) + std::string(static_cast<size_t>(1 + id % 90), '.') + ">";
    }

    static bool is_whole(const std::string &text) { return text.size() > 1 && text == text_of(atoi(text.c_str() + 1)); }

    static std::vector<int> numbers_in(const std::string &box_dir)
    {
        std::vector<int> numbers;

        for (const std::string &name : names(box_dir))
            numbers.push_back(atoi(name.c_str()));
        std::sort(numbers.begin(), numbers.end());
        return numbers;
    }

    static char state_of(const std::string &dir, int number)
    {
        const std::string content = read_file(dir + "/" + std::to_string(number));
        const size_t state = std::to_string(number).size() + 1;

        return content.size() > state ? content[state] : '?';
    }

    /* Each number once in the index, a file for each, and every file whole. */
    static void expect_agreement(const std::string &dir, const std::string &index)
    {
        std::istringstream entries(read_file(index));
        std::vector<int> listed;

        for (int number; entries >> number;)
            listed.push_back(number);
        EXPECT_TRUE(entries.eof()) << index;
        std::sort(listed.begin(), listed.end());
        EXPECT_EQ(listed, numbers_in(dir)) << index;
        for (const int number : numbers_in(dir)) {
            const std::string content = read_file(dir + "/" + std::to_string(number));

            EXPECT_EQ(0U, content.find(std::to_string(number) + " ")) << content;
            EXPECT_TRUE(is_whole(content.substr(std::min(content.find('<'), content.size())))) << content;
        }
    }

    void ask(uint32_t id, const std::string &payload)
    {
        modem.deliver(request_of(id, payload));
        platform.set_flag(DV_SMS_MGR_LAST_RECEIVED_MSG, "");
        platform.set_flag(DV_SMS_MGR_LAST_ERR_CODE, "");
    }

    void ask_with(uint32_t id, const message &what)
    {
        sockmsg_record record = record_of(what);

        record.msg_id = id;
        record.sender_module_id = 3;
        modem.deliver(record);
        platform.set_flag(DV_SMS_MGR_LAST_RECEIVED_MSG, "");
    }

    /* Time passes until it is so; false when it is not so after 60 seconds. */
    template <typename Condition> bool let_time_pass(Condition condition)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);

        while (!condition()) {
            if (std::chrono::steady_clock::now() > end)
                return false;
            clock.pass(1);
            sched_yield();
        }
        return true;
    }

    void start_workers()
    {
        pthread_t main_thread;

        platform.set_devinfo(301001, "1");
        platform.set_devinfo(301002, "LTE");
        platform.set_cfg("SYS_SMS_SW", "1");
        platform.set_flag("SMS_CSCA", "+31653131313");
        platform.set_handler(take_on_bus);
        platform.set_hook([](const std::string &) { sched_yield(); }); /* wherever the threads may meet */
        seams::on_sleep([this](unsigned time, int) {
            if (time == 10)
                pthread_exit(nullptr);
            if (!on_bus)
                clock.wait_one();
        });
        ASSERT_EQ(0, pthread_create(&main_thread, nullptr, run_create_thread, nullptr));
        pthread_join(main_thread, nullptr);
    }

    /* The send thread looks at its flag after one more request. */
    void stop_workers()
    {
        dv_sms_mgr_stop_threads();
        ask_with(DV_SMS_MGR_MSG_ID_SEND_SMS, {"123", text_of(9999)});
        EXPECT_TRUE(let_time_pass([this] {
            const lines all = saved();

            return std::count_if(all.begin(), all.end(), [](const std::string &line) {
                       return line.find("exit_from_process_") != std::string::npos;
                   }) == 3;
        }));
    }
};

TEST_F(store_threads, everything_at_once_leaves_the_store_in_order)
{
    std::mt19937 random(4711); /* the same every time */
    const auto chance = [&random](unsigned of) { return random() % of == 0; };
    const auto one_of = [&random](const std::vector<int> &numbers) {
        return std::to_string(numbers[random() % numbers.size()]);
    };
    int id = 0;

    debug_mode = 0;
    modem.script("AT+CMGR=*", {{"\r\n+CMGR: 0,,24\r\n" + pdu_of(text_of(7)) + "\r\n\r\nOK\r\n"}});
    start_workers();
    for (int round = 0; round < 250; round++) {
        modem.indicate("\r\n+CMT: ,24\r\n" + pdu_of(text_of(++id)) + "\r\n");
        if (chance(3))
            modem.indicate("\r\n+CMTI: \"SM\",3\r\n");
        if (chance(2))
            ask_with(DV_SMS_MGR_MSG_ID_SEND_SMS, {"123", text_of(++id)});
        if (chance(2))
            ask_with(DV_SMS_MGR_MSG_ID_SAVE_DRAFT_SMS, {"123", text_of(++id)});
        std::vector<int> new_ones = numbers_in(read_dir);
        new_ones.erase(std::remove_if(new_ones.begin(), new_ones.end(),
                                      [](int number) { return state_of(read_dir, number) != '0'; }),
                       new_ones.end());
        if (chance(2) && !new_ones.empty())
            ask(DV_SMS_MGR_MSG_ID_READ_SMS, one_of(new_ones));
        if (chance(20))
            ask(DV_SMS_MGR_MSG_ID_READ_SMS, "READ ALL");
        const std::vector<int> there = numbers_in(read_dir);
        if (chance(2) && !there.empty())
            ask(DV_SMS_MGR_MSG_ID_DELETE_RECEIVE_SMS, one_of(there));
        const std::vector<int> sent = numbers_in(send_dir);
        if (chance(3) && !sent.empty())
            ask(DV_SMS_MGR_MSG_ID_DELETE_SEND_SMS, one_of(sent) + "," + one_of(sent));
        if (chance(4))
            ask(DV_SMS_MGR_MSG_ID_DELETE_DRAFT_SMS, "1,3,5,7");
        if (chance(60))
            ask(DV_SMS_MGR_MSG_ID_DELETE_RECEIVE_SMS, "DELETE ALL");
        if (chance(60))
            ask(DV_SMS_MGR_MSG_ID_DELETE_SEND_SMS, "DELETE ALL");
        clock.pass(1 + static_cast<int>(random() % 4));
    }
    EXPECT_TRUE(let_time_pass([] {
        pthread_mutex_lock(&sms_pdu_queue.lock);
        const bool drained = sms_pdu_queue.count == 0;
        pthread_mutex_unlock(&sms_pdu_queue.lock);
        return drained;
    }));
    stop_workers();

    for (const dv_sms_box &box : dv_sms_boxes)
        expect_agreement(box.dir, box.index);
    int unread_files = 0;
    for (const int number : numbers_in(read_dir))
        unread_files += state_of(read_dir, number) == '0';
    EXPECT_EQ(unread_files, atoi(read_file(unread).c_str()));
    EXPECT_EQ(unread_files > 0 ? "1" : "0", platform.devinfo(306001));
    for (const int number : numbers_in(send_dir))
        EXPECT_EQ('1', state_of(send_dir, number));

    /* It did happen. */
    const lines all = platform.calls();
    const auto begins = [&all](const std::string &beginning) {
        return std::count_if(all.begin(), all.end(), [&](const std::string &line) {
            return line.compare(0, beginning.size(), beginning) == 0;
        });
    };
    EXPECT_GT(begins("set_devinfo_value_by_id 306001 \"1\""), 20) << "messages came in";
    EXPECT_GT(begins("set_devinfo_value_by_id 306003 "), 20) << "messages went out";
    EXPECT_GT(begins("cmd_rm "), 50) << "messages were deleted";
    EXPECT_GT(begins("bus 5 AT+CMGD="), 20) << "and taken from the storage";
}

/* Filing into one box from several threads: no number twice, nothing lost. */
TEST_F(store_threads, writers_of_one_box_take_different_numbers)
{
    constexpr int writers = 3, each = 40;
    std::atomic<int> filed{0};
    std::vector<std::thread> threads;

    debug_mode = 0;
    platform.set_hook([](const std::string &) { sched_yield(); });
    for (int writer = 0; writer < writers; writer++) {
        threads.emplace_back([&filed, writer] {
            for (int i = 0; i < each; i++) {
                const sockmsg_record record = record_of({"1", text_of(writer * each + i), "d"});

                filed += dv_sms_mgr_write_sms_to_file(BOX_RECEIVED, 0, &record) == 0;
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(writers * each, filed);
    EXPECT_EQ(writers * each, static_cast<int>(names(read_dir).size()));
    EXPECT_EQ(writers * each, numbers_in(read_dir).back());
    EXPECT_EQ(std::to_string(writers * each), read_file(unread));
    expect_agreement(read_dir, read_index);
}

/* Filing on one side, deleting on the other: what the index says and what is there stay the same. */
TEST_F(store_threads, writer_and_deleter_of_one_box)
{
    std::atomic<bool> done{false};

    debug_mode = 0;
    platform.set_hook([](const std::string &) { sched_yield(); });
    std::thread writer([&done] {
        for (int i = 0; i < 150; i++) {
            const sockmsg_record record = record_of({"1", text_of(i), "d"});

            EXPECT_EQ(0, dv_sms_mgr_write_sms_to_file(BOX_RECEIVED, 0, &record));
        }
        done = true;
    });
    for (size_t turn = 0; !done; turn++) {
        const std::vector<int> there = numbers_in(read_dir);

        if (!there.empty())
            dv_sms_mgr_delete_sms(std::to_string(there[turn % there.size()]).c_str(), dv_sms_boxes[BOX_RECEIVED].dir,
                                  dv_sms_boxes[BOX_RECEIVED].index);
        platform.set_flag(DV_SMS_MGR_LAST_ERR_CODE, "");
    }
    writer.join();
    expect_agreement(read_dir, read_index);
    EXPECT_EQ(numbers_in(read_dir).size(), static_cast<size_t>(atoi(read_file(unread).c_str())));
}
