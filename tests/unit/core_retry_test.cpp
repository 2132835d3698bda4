/* The modem's initialisation: how often a step that fails is tried, and how much is said about it. */
#include <pthread.h>

#include <string>
#include <vector>

#include "MTKT750/mtkt750_sms_init.h"
#include "core_bench.h"
#include "dv_sms_mgr_log.h"

using fake::answer;

namespace
{

static const answer no_ok = {"\r\nERROR\r\n"}, refused = {.error = 100}, unanswered = {.how = answer::silent},
                    stray = {.how = answer::other_id};

struct list_entry {
    int index;
    const char *function, *query, *error;
};

static const list_entry init_list[] = {
    {0, "init_at_cmgf", "AT+CMGF?\r", "send at+cmgf? error"},
    {1, "init_at_cnmi", "AT+CNMI?\r", "send at+cnmi? error"},
    {2, "init_sim_cpms", "AT+CPMS?\r", "send at+cpms? error"},
    {3, "init_sim_csca", "AT+CSCS?\r", "send at+cscs? error"},
};

class retries : public core_bench
{
protected:
    void SetUp() override
    {
        core_bench::SetUp();
        free_rings();
        script_ready_modem();
    }

    struct attempt {
        std::string command;
        unsigned second; /* slept away since the first command */
        bool operator==(const attempt &) const = default;
    };

    /* Notes each command with its second. */
    void watch()
    {
        modem.set_hook([this](const std::string &command) {
            if (attempts.empty())
                start_ = seams::slept();
            attempts.push_back({command, seams::slept() - start_});
        });
    }

    static answer good_answer(const std::string &query)
    {
        return {query == "AT+CMGF?\r"   ? cmgf_pdu
                : query == "AT+CNMI?\r" ? cnmi_direct
                : query == "AT+CPMS?\r" ? cpms_sim
                                        : cscs_ira};
    }

    /* The step fails so often, then succeeds. */
    void fail(const char *query, size_t times, const answer &how = refused)
    {
        std::vector<answer> answers(times, how);

        answers.push_back(good_answer(query));
        modem.script(query, answers);
    }

    static std::string from_then_on(int index)
    {
        return "dv_sms_mgr_init: sms init_list[" + std::to_string(index) +
               "] send at fail 4 times. From then on, send at command every 10 seconds";
    }

    std::vector<attempt> attempts;

private:
    unsigned start_ = 0;
};

TEST_F(retries, a_step_is_tried_at_0_1_2_3_and_14_24_34_seconds_and_so_on)
{
    static const unsigned seconds[] = {0, 1, 2, 3, 14, 24, 34, 44, 54, 64, 74, 84};

    for (const list_entry &step : init_list) {
        for (size_t failures = 0; failures < std::size(seconds); failures++) {
            std::vector<attempt> wanted;

            attempts.clear();
            forget();
            modem.reset();
            script_ready_modem();
            fail(step.query, failures);
            watch();
            EXPECT_EQ(0, dv_sms_mgr_init());
            for (int i = 0; i < step.index; i++)
                wanted.push_back({init_list[i].query, 0});
            for (size_t i = 0; i <= failures; i++)
                wanted.push_back({step.query, seconds[i]});
            for (int i = step.index + 1; i < 4; i++)
                wanted.push_back({init_list[i].query, seconds[failures]}); /* at once, without a sleep */
            EXPECT_EQ(wanted.size(), attempts.size()) << step.function << failures;
            EXPECT_TRUE(wanted == attempts) << step.function << " after " << failures << " failures";
            EXPECT_EQ(1, at_err_log_enable);
            free_rings();
        }
    }
}

TEST_F(retries, what_goes_wrong_makes_no_difference_to_the_pace)
{
    for (const answer &how : {refused, no_ok, unanswered, stray}) {
        attempts.clear();
        modem.reset();
        script_ready_modem();
        fail("AT+CMGF?\r", 6, how);
        watch();
        EXPECT_EQ(0, dv_sms_mgr_init());
        ASSERT_LT(6u, attempts.size());
        EXPECT_TRUE((attempts[6] == attempt{"AT+CMGF?\r", 34}));
        free_rings();
    }
}

TEST_F(retries, a_failing_step_is_reported_four_times_then_once_more_and_then_never)
{
    for (const bool tracing : {false, true}) {
        for (const list_entry &step : init_list) {
            const std::string error = std::string(step.function) + ": " + step.error;

            forget();
            debug_mode = tracing;
            modem.reset();
            script_ready_modem();
            fail(step.query, 9);
            EXPECT_EQ(0, dv_sms_mgr_init());
            EXPECT_EQ((lines{error, error, error, error, from_then_on(step.index)}), saved());
            EXPECT_EQ(4u, times(traced(), error)) << "on standard output whether tracing or not";
            EXPECT_EQ(1u, times(traced(), from_then_on(step.index)));
            free_rings();
        }
    }
}

TEST_F(retries, four_failures_are_not_yet_silence)
{
    fail("AT+CMGF?\r", 3);
    EXPECT_EQ(0, dv_sms_mgr_init());
    EXPECT_EQ(lines(3, "init_at_cmgf: send at+cmgf? error"), saved());
}

TEST_F(retries, each_step_has_its_own_count_and_its_own_reports)
{
    static const unsigned cmgf[] = {0, 1, 2, 3, 14, 24};
    std::vector<attempt> wanted;

    fail("AT+CMGF?\r", 5);
    fail("AT+CNMI?\r", 5, no_ok);
    fail("AT+CSCS?\r", 2);
    watch();
    EXPECT_EQ(0, dv_sms_mgr_init());
    for (const unsigned second : cmgf)
        wanted.push_back({"AT+CMGF?\r", second});
    for (const unsigned second : cmgf)
        wanted.push_back({"AT+CNMI?\r", 24 + second});
    wanted.push_back({"AT+CPMS?\r", 48});
    for (const unsigned second : {0u, 1u, 2u})
        wanted.push_back({"AT+CSCS?\r", 48 + second});
    EXPECT_TRUE(wanted == attempts);

    lines said(4, "init_at_cmgf: send at+cmgf? error");
    said.push_back(from_then_on(0));
    said.insert(said.end(), 4, "init_at_cnmi: inquire cnmi failed");
    said.push_back(from_then_on(1));
    said.insert(said.end(), 2, "init_sim_csca: send at+cscs? error");
    EXPECT_EQ(said, saved());
}

TEST_F(retries, a_step_that_keeps_failing_is_tried_for_ever)
{
    modem.script("AT+CMGF?\r", {unanswered});
    platform.set_cfg("SYS_REBOOT_WHEN_MODEM_UNORMAL", "0");
    watch();
    seams::on_sleep([](unsigned, int) {
        if (seams::slept() >= 36'000) /* ten hours */
            pthread_exit(nullptr);
    });
    run_to_exit([] { dv_sms_mgr_init(); });
    ASSERT_GT(attempts.size(), 3500u);
    for (size_t i = 4; i < attempts.size(); i++)
        ASSERT_EQ(14 + 10 * (i - 4), attempts[i].second);
    EXPECT_EQ(5u, saved().size());
}

} // namespace
