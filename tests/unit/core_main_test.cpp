/* Start-up: the steps of main in their order, what each failure says and leaves, the worker threads. */
#include <errno.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "core_bench.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_utils.h"

/* Led here by the linker: threads detached since the count was last cleared. */
static std::atomic<int> detached;

extern "C" {
int __real_pthread_detach(pthread_t thread);
int __wrap_pthread_detach(pthread_t thread);

int __wrap_pthread_detach(pthread_t thread)
{
    detached++;
    return thread == pthread_t{} ? ESRCH : __real_pthread_detach(thread);
}
}

namespace
{

#ifdef DV_EMULATED
constexpr bool can_start_anew = false; /* an emulator cannot start a program for another processor */
#else
constexpr bool can_start_anew = true;
#endif

/* Without the locks and queues of core_bench: main makes its own. */
class start_up : public bench
{
protected:
    void SetUp() override
    {
        bench::SetUp();
        debug_mode = 0;
    }

    int run(const std::vector<std::string> &arguments)
    {
        std::vector<std::string> kept = arguments;
        std::vector<char *> argv;

        for (std::string &argument : kept)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        return daemon_main(static_cast<int>(kept.size()), argv.data());
    }

    /* Runs main with "-D" to the sleeps behind the start of the threads; `sleeps` of them pass. */
    void run_through(int sleeps = 1)
    {
        int tens = 0;

        seams::on_sleep([&](unsigned seconds, int) {
            if (seconds == 10 && ++tens == sleeps)
                pthread_exit(nullptr);
        });
        run_to_exit([&] { run({"dv_sms_mgr", "-D"}); });
        EXPECT_EQ(sleeps, tens) << "main ended before";
        seams::on_sleep(nullptr);
    }

    void script_ready_modem()
    {
        platform.set_devinfo(301001, "1");
        platform.set_flag("SMS_CSCA", "+31653131313");
        modem.script("AT+CMGF?\r", {{cmgf_pdu}});
        modem.script("AT+CNMI?\r", {{cnmi_direct}});
        modem.script("AT+CPMS?\r", {{cpms_sim}});
        modem.script("AT+CSCS?\r", {{cscs_ira}});
    }

    size_t position(const std::string &call)
    {
        const lines calls = platform.calls();
        return static_cast<size_t>(std::find(calls.begin(), calls.end(), call) - calls.begin());
    }
};

TEST_F(start_up, makes_locks_then_names_itself_to_the_log_then_joins_the_bus_then_asks_for_the_sim)
{
    script_ready_modem();
    seams::start_no_threads(true);
    run_through();

    const lines first = {"pthread_mutex_init", "pthread_cond_init",
                         "pthread_mutex_init", "pthread_condattr_setclock " + std::to_string(CLOCK_MONOTONIC),
                         "pthread_cond_init",  "init_log_params DV_SMS_MGR",
                         "init_sockmsg 27 0",  "get_devinfo_value_by_id 301001 4"};
    const lines calls = platform.calls();

    ASSERT_GT(calls.size(), first.size());
    EXPECT_EQ(first, lines(calls.begin(), calls.begin() + static_cast<long>(first.size())));
    EXPECT_EQ(dv_sms_mgr_handler, platform.handler());
}

static constexpr int never_made = 0x5A; /* every byte of a lock or condition that was not made */

template <typename Object> static bool made(const Object &object)
{
    const auto *bytes = reinterpret_cast<const unsigned char *>(&object);

    return std::any_of(bytes, bytes + sizeof object, [](unsigned char byte) { return byte != never_made; });
}

TEST_F(start_up, makes_the_send_lock_and_its_condition_before_those_of_the_modem)
{
    memset(&sms_send_lock, never_made, sizeof sms_send_lock);
    memset(&sms_send_cond, never_made, sizeof sms_send_cond);
    memset(&at_lock, never_made, sizeof at_lock);
    memset(&at_available_cond, never_made, sizeof at_available_cond);
    seams::fail("pthread_mutex_init", 2, 11);
    EXPECT_EQ(-1, run({"dv_sms_mgr"}));
    EXPECT_TRUE(made(sms_send_lock) && made(sms_send_cond));
    EXPECT_FALSE(made(at_lock) || made(at_available_cond));
    seams::reset();
    platform.set_result("init_sockmsg", -1);
    EXPECT_EQ(-1, run({"dv_sms_mgr"}));
    EXPECT_TRUE(made(at_lock) && made(at_available_cond));
}

TEST_F(start_up, a_line_of_the_trace_is_out_at_once)
{
    seams::fail("pthread_mutex_init", 1, 11);
    const pid_t child = fork();
    if (child == 0) {
        run({"dv_sms_mgr", "-D"});
        _exit(0); /* nothing that was kept back is written here */
    }
    ASSERT_GT(child, 0);
    waitpid(child, nullptr, 0);
    EXPECT_TRUE(in_trace("main", "sms_send_lock init fail!"));
}

TEST_F(start_up, answers_are_awaited_on_the_monotonic_clock)
{
    timespec before, deadline, after;

    platform.set_result("init_sockmsg", -1); /* by then the conditions are made */
    EXPECT_EQ(-1, run({"dv_sms_mgr"}));
    free(g_sms_send_head);
    seams::set_wait(seams::really);
    clock_gettime(CLOCK_MONOTONIC, &before);
    deadline = before;
    deadline.tv_nsec += 20'000'000;
    deadline.tv_sec += deadline.tv_nsec / 1'000'000'000;
    deadline.tv_nsec %= 1'000'000'000;
    pthread_mutex_lock(&at_lock);
    int result = 0;
    while (result == 0)
        result = pthread_cond_timedwait(&at_available_cond, &at_lock, &deadline);
    pthread_mutex_unlock(&at_lock);
    clock_gettime(CLOCK_MONOTONIC, &after);
    EXPECT_EQ(ETIMEDOUT, result);
    const bool in_time =
        after.tv_sec > deadline.tv_sec || (after.tv_sec == deadline.tv_sec && after.tv_nsec >= deadline.tv_nsec);
    EXPECT_TRUE(in_time) << "on the clock of the day this deadline is long past";
}

struct argument_case {
    std::vector<std::string> arguments;
    bool traces;
};

TEST_F(start_up, traces_when_any_argument_is_exactly_minus_capital_d)
{
    const argument_case cases[] = {
        {{"dv_sms_mgr", "-D"}, true},
        {{"dv_sms_mgr", "-x", "more", "-D"}, true},
        {{"dv_sms_mgr", "-D", "-x"}, true},
        {{"dv_sms_mgr", "-D", "-D"}, true},
        {{"-D"}, true}, /* "all arguments from the first": the program's name is one */
        {{"dv_sms_mgr"}, false},
        {{}, false},
        {{"dv_sms_mgr", "-d"}, false},
        {{"dv_sms_mgr", "--D"}, false},
        {{"dv_sms_mgr", "-DD"}, false},
        {{"dv_sms_mgr", "-D "}, false},
        {{"dv_sms_mgr", "D"}, false},
        {{"dv_sms_mgr", "-"}, false},
        {{"dv_sms_mgr", ""}, false},
    };

    for (const argument_case &each : cases) {
        debug_mode = 0;
        forget();
        seams::fail("pthread_mutex_init");
        EXPECT_EQ(-1, run(each.arguments));
        EXPECT_EQ(each.traces ? 1 : 0, debug_mode) << ::testing::PrintToString(each.arguments);
        EXPECT_EQ(each.traces ? lines{"main: sms_send_lock init fail!"} : lines{}, traced())
            << ::testing::PrintToString(each.arguments);
        EXPECT_EQ(each.traces, !output().empty());
    }
}

struct failing_step {
    const char *function;
    int nth;
    const char *message;
};

static const failing_step before_the_log[] = {
    {"pthread_mutex_init", 1, "sms_send_lock init fail!"},
    {"pthread_cond_init", 1, "sms_send_cond init fail!"},
    {"pthread_mutex_init", 2, "at_lock init fail!"},
    {"pthread_condattr_setclock", 1, "at_available_cond_attr init fail!"},
    {"pthread_cond_init", 2, "at_available_cond init fail!"},
};

TEST_F(start_up, a_failed_lock_or_condition_is_only_traced_and_ends_it_at_once)
{
    size_t calls_made = 0;

    for (const failing_step &each : before_the_log) {
        debug_mode = 0;
        forget();
        seams::reset();
        seams::fail(each.function, each.nth, 11);
        EXPECT_EQ(-1, run({"dv_sms_mgr", "-D"})) << each.message;
        const std::vector<trace_line> traces = trace_lines();
        ASSERT_EQ(1u, traces.size()) << each.message;
        EXPECT_EQ("main.cpp", traces[0].file);
        EXPECT_EQ("main", traces[0].function);
        EXPECT_GT(traces[0].line, 0);
        EXPECT_EQ(each.message, traces[0].message);
        EXPECT_EQ(lines{}, platform.saved()) << "the log has no name yet";
        /* In the order of the table: each failure comes one call later, and nothing comes behind it. */
        EXPECT_EQ(++calls_made, platform.calls().size()) << each.message;
        EXPECT_EQ(0u, platform.calls().back().find(each.function));
    }
}

TEST_F(start_up, a_failed_lock_or_condition_says_nothing_without_tracing)
{
    for (const failing_step &each : before_the_log) {
        forget();
        seams::reset();
        seams::fail(each.function, each.nth, 11);
        EXPECT_EQ(-1, run({"dv_sms_mgr"})) << each.message;
        EXPECT_EQ("", output());
        EXPECT_EQ(lines{}, platform.saved());
    }
}

TEST_F(start_up, no_memory_for_the_queue_is_only_logged_and_the_bus_is_not_joined)
{
    seams::fail("calloc");
    seams::fail("malloc");
    EXPECT_EQ(-1, run({"dv_sms_mgr", "-D"}));
    EXPECT_EQ(lines{"main: g_sms_send_head queue init fail!"}, saved());
    EXPECT_EQ(lines{}, traced());
    EXPECT_EQ("init_log_params DV_SMS_MGR", platform.calls({"init_log_params", "init_sockmsg"}).back());
    EXPECT_EQ("savelog 0 [dv_sms_mgr] main: g_sms_send_head queue init fail!", platform.calls().back());
}

TEST_F(start_up, a_bus_that_cannot_be_joined_ends_it_before_the_modem_is_asked)
{
    for (const int result : {-1, 1, 98}) {
        forget();
        platform.set_result("init_sockmsg", result);
        EXPECT_EQ(-1, run({"dv_sms_mgr", "-D"}));
        EXPECT_BOTH("main", "init_sockmsg() error");
        EXPECT_EQ(lines{"main: init_sockmsg() error"}, traced());
        EXPECT_EQ(lines{"main: init_sockmsg() error"}, saved());
        EXPECT_EQ(lines{}, platform.calls({"get_devinfo_value_by_id", "pthread_create", "sleep"}));
        EXPECT_EQ("savelog 0 [dv_sms_mgr] main: init_sockmsg() error", platform.calls().back())
            << "nothing is taken back";
        free(g_sms_send_head);
    }
}

TEST_F(start_up, a_failed_initialisation_of_the_modem_ends_it_before_a_thread_starts)
{
    platform.set_devinfo(301001, "1");
    seams::fail("calloc", 2); /* the first is the queue's */
    EXPECT_EQ(-1, run({"dv_sms_mgr", "-D"}));
    EXPECT_BOTH("init_queue", "init_queue failed");
    EXPECT_BOTH("main", "at_init error");
    EXPECT_EQ("main: at_init error", saved().back());
    EXPECT_EQ(lines{}, platform.calls({"pthread_create", "atexit"}));
    EXPECT_EQ(lines{}, platform.commands());
}

TEST_F(start_up, a_failure_gives_the_process_the_status_255)
{
    if (!can_start_anew)
        GTEST_SKIP() << "the program cannot be started anew here";
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            seams::fail("pthread_mutex_init");
            exit(run({"dv_sms_mgr"}));
        },
        ::testing::ExitedWithCode(255), "");
}

TEST_F(start_up, starts_three_threads_each_followed_by_the_exit_hook_and_sleeps_ten_seconds_for_ever)
{
    script_ready_modem();
    seams::start_no_threads(true);
    run_through(5);

    const lines calls = platform.calls();
    const size_t first = position("pthread_create");
    const lines behind(calls.begin() + static_cast<long>(std::min(first, calls.size())), calls.end());

    EXPECT_EQ((lines{"pthread_create", "atexit", "pthread_create", "atexit", "pthread_create", "atexit",
                     "savelog 0 [dv_sms_mgr] dv_sms_mgr_create_thread: dv_sms_mgr init complete", "sleep 10",
                     "sleep 10", "sleep 10", "sleep 10", "sleep 10"}),
              behind);
    EXPECT_BOTH("dv_sms_mgr_create_thread", "dv_sms_mgr init complete");
    ASSERT_EQ(3u, seams::threads());
    ASSERT_EQ(3u, seams::exit_hooks());
    for (size_t i = 0; i < 3; i++) {
        EXPECT_EQ(nullptr, seams::thread(i).argument);
        EXPECT_EQ(&dv_sms_mgr_stop_threads, seams::exit_hook(i));
    }
    EXPECT_NE(seams::thread(0).body, seams::thread(1).body);
    EXPECT_NE(seams::thread(1).body, seams::thread(2).body);
    EXPECT_NE(seams::thread(0).body, seams::thread(2).body);
}

TEST_F(start_up, the_modem_is_initialised_before_the_first_thread_starts)
{
    script_ready_modem();
    seams::start_no_threads(true);
    run_through();
    EXPECT_LT(position("bus 5 AT+CSCS?\\r"), position("pthread_create"));
    EXPECT_LT(position("init_log_params DV_SMS_MGR"), position("init_sockmsg 27 0"));
}

TEST_F(start_up, what_needs_the_service_is_ignored_while_the_modem_is_initialised)
{
    int handled = -2, indicated = -2, waiting_then = -1;

    script_ready_modem();
    platform.set_devinfo(301001, "0"); /* the SIM is waited for, the bus is live */
    seams::start_no_threads(true);
    seams::on_sleep([&](unsigned seconds, int count) {
        sockmsg_record request = make_message(DV_SMS_MGR_MSG_ID_SEND_SMS, "123", "text", 3);
        sockmsg_record indication = make_request(AT_MSG_ID_INDICATION);

        if (count == 1) {
            handled = platform.handler()(&request);
            indicated = platform.handler()(&indication);
            waiting_then = g_sms_send_head->count;
            platform.set_devinfo(301001, "1");
        }
        if (seconds == 10)
            pthread_exit(nullptr);
    });
    run_to_exit([&] { run({"dv_sms_mgr", "-D"}); });
    EXPECT_EQ(0, handled);
    EXPECT_EQ(0, indicated);
    EXPECT_EQ(0, waiting_then);
    EXPECT_EQ("(unset)", platform.flag("DV_SMS_MGR_LAST_RECEIVED_MSG"));
}

/* What a dying process says on its way, for the parent to compare. */
static std::function<void()> last_words;

static void say_last_words()
{
    last_words();
}

struct thread_failure {
    int nth;
    const char *name;
};

static void PrintTo(const thread_failure &failure, std::ostream *out)
{
    *out << failure.name;
}

class start_up_with_a_failing_thread : public start_up, public ::testing::WithParamInterface<thread_failure>
{
};

TEST_P(start_up_with_a_failing_thread, ends_the_process_with_status_255_and_says_which)
{
    const std::string message = std::string("Create ") + GetParam().name + " error!";

    if (!can_start_anew)
        GTEST_SKIP() << "the program cannot be started anew here";
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            last_words = [&] {
                for (const std::string &line : traced())
                    if (line.find("Create") != std::string::npos)
                        fprintf(stderr, "trace <%s>\n", line.c_str());
                for (const std::string &line : saved())
                    if (line.find("Create") != std::string::npos || line.find("complete") != std::string::npos)
                        fprintf(stderr, "log <%s>\n", line.c_str());
                const lines made = platform.calls({"pthread_create", "atexit"});
                for (const std::string &line : made)
                    fprintf(stderr, "%s,", line.c_str());
                fprintf(stderr, ".\n");
            };
            atexit(say_last_words); /* the first registered runs last, behind the daemon's own */
            script_ready_modem();
            platform.forget();
            seams::fail("pthread_create", GetParam().nth, 11);
            seams::on_sleep([](unsigned, int) { std::this_thread::sleep_for(std::chrono::milliseconds(1)); });
            run({"dv_sms_mgr", "-D"});
        },
        ::testing::ExitedWithCode(255),
        "trace <dv_sms_mgr_create_thread: " + message + ">\nlog <dv_sms_mgr_create_thread: " + message + "\\\\n>\n" +
            [] {
                std::string made;
                for (int i = 1; i < GetParam().nth; i++)
                    made += "pthread_create,atexit,";
                return made + "pthread_create,\\.\n";
            }());
}

INSTANTIATE_TEST_SUITE_P(each, start_up_with_a_failing_thread,
                         ::testing::Values(thread_failure{1, "process_1s_thread"},
                                           thread_failure{2, "process_receive_sms_thread"},
                                           thread_failure{3, "process_send_sms_thread"}),
                         [](const auto &each) { return std::string(each.param.name); });

TEST_F(start_up, the_exit_hook_passes_over_threads_that_were_never_created)
{
    dv_sms_mgr_stop_threads(); /* an earlier test of the same process may have left some */
    forget();
    detached = 0;
    dv_sms_mgr_stop_threads();
    dv_sms_mgr_stop_threads();
    EXPECT_EQ(0, detached);
    EXPECT_EQ(lines{}, platform.calls());
    EXPECT_EQ("", output());
}

} // namespace
