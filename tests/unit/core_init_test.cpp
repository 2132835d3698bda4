/* The modem's initialisation: the wait for the SIM, the rings, and each step of the list. */
#include <pthread.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "MTKT750/mtkt750_sms_init.h"
#include "core_bench.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_utils.h"

using fake::answer;

namespace
{

static const answer no_ok = {"\r\nERROR\r\n"}, refused = {.error = 100}, unanswered = {.how = answer::silent},
                    stray = {.how = answer::other_id};

class initialisation : public core_bench
{
protected:
    void SetUp() override
    {
        core_bench::SetUp();
        free_rings();
        script_ready_modem();
    }

    static answer says(const std::string &line) { return {ok(line)}; }
};

/* --- before the list --- */

TEST_F(initialisation, waits_for_the_sim_looking_once_a_second_and_asks_the_modem_nothing)
{
    const char *const values[] = {nullptr, "0", "", "2", "10", "11", "1 ", "1111", " 1", "01"};

    for (const char *value : values) {
        forget();
        platform.unset_devinfo(301001);
        if (value != nullptr)
            platform.set_devinfo(301001, value);
        seams::reset();
        seams::on_sleep([](unsigned, int count) {
            if (count == 100)
                pthread_exit(nullptr);
        });
        run_to_exit([] { dv_sms_mgr_init(); });
        const lines calls = platform.calls();
        ASSERT_EQ(200u, calls.size()) << ::testing::PrintToString(value);
        for (size_t i = 0; i < calls.size(); i += 2) {
            EXPECT_EQ("get_devinfo_value_by_id 301001 4", calls[i]);
            EXPECT_EQ("sleep 1", calls[i + 1]);
        }
        EXPECT_EQ("", output());
    }
}

TEST_F(initialisation, sleeps_a_second_behind_each_look_at_the_sim_even_the_good_one)
{
    platform.set_devinfo(301001, "0");
    seams::on_sleep([this](unsigned, int count) {
        if (count == 3)
            platform.set_devinfo(301001, "1");
    });
    EXPECT_EQ(0, dv_sms_mgr_init());
    lines wanted;
    for (int i = 0; i < 4; i++) {
        wanted.push_back("get_devinfo_value_by_id 301001 4");
        wanted.push_back("sleep 1");
    }
    EXPECT_EQ(wanted, platform.calls({"get_devinfo_value_by_id", "sleep"}));
}

TEST_F(initialisation, rebuilds_the_store_between_the_sim_and_the_first_command)
{
    platform.set_cfg("SYS_SMS_MAX_SAVE_SIZE", "500");
    write_file("mnt/data/sms/sms_draft/1", "1 1 1 2024-03-05 14:07:00 x");
    EXPECT_EQ(0, dv_sms_mgr_init());
    const lines calls = platform.calls();
    const auto at = [&calls](const std::string &prefix) {
        return std::find_if(calls.begin(), calls.end(),
                            [&](const std::string &line) { return line.compare(0, prefix.size(), prefix) == 0; });
    };

    ASSERT_NE(calls.end(), at("cmd_echo")) << "the index is made again";
    ASSERT_NE(calls.end(), at("set_devinfo_value_by_id 306001 \"0\" 1"));
    EXPECT_LT(at("sleep 1"), at("cmd_echo"));
    EXPECT_LT(at("cmd_echo"), at("set_devinfo_value_by_id 306001 \"0\" 1"));
    EXPECT_LT(at("set_devinfo_value_by_id 306001 \"0\" 1"), at("bus 5"));
    EXPECT_EQ(" 1 ", read_file("mnt/data/sms/draft_index"));
}

TEST_F(initialisation, makes_both_rings_empty)
{
    free_rings();
    sms_index_queue.read = sms_index_queue.write = sms_index_queue.count = 7;
    sms_pdu_queue.read = sms_pdu_queue.write = sms_pdu_queue.count = 7;
    EXPECT_EQ(0, init_queue());
    EXPECT_EQ(0, init_pdu_queue());
    EXPECT_EQ(0, sms_index_queue.read | sms_index_queue.write | sms_index_queue.count);
    EXPECT_EQ(0, sms_pdu_queue.read | sms_pdu_queue.write | sms_pdu_queue.count);
    for (uint32_t i = 0; i < 50; i++) { /* the storage holds 50; the sanitizer counts */
        EXPECT_EQ(0, util_enqueue(i));
        EXPECT_EQ(0, util_enqueue_pdu("x"));
    }
    EXPECT_EQ("", output());
}

TEST_F(initialisation, without_memory_for_a_ring_it_gives_up_at_once)
{
    const std::pair<int, const char *> rings[] = {{1, "init_queue"}, {2, "init_pdu_queue"}};

    write_file("mnt/data/sms/sms_read/1", "1 0 +31 2024/03/05 14:07:00 one"); /* a store to be looked at */
    for (const auto &[nth, name] : rings) {
        forget();
        seams::reset();
        seams::fail("calloc", nth);
        free_rings();
        EXPECT_EQ(-1, dv_sms_mgr_init());
        EXPECT_EQ(lines{std::string(name) + ": " + name + " failed"}, traced());
        EXPECT_EQ(lines{std::string(name) + ": " + name + " failed"}, saved());
        EXPECT_EQ(nth == 1, sms_index_queue.slots == nullptr);
        EXPECT_EQ(nullptr, sms_pdu_queue.slots) << "the second is not attempted, or failed itself";
        EXPECT_EQ((lines{"get_devinfo_value_by_id 301001 4", "sleep 1"}), calls_but({"savelog"}));
    }
}

/* --- the list --- */

TEST_F(initialisation, asks_four_things_in_order_when_all_is_well)
{
    EXPECT_EQ(0, dv_sms_mgr_init());
    EXPECT_EQ((lines{"AT+CMGF?", "AT+CNMI?", "AT+CPMS?", "AT+CSCS?"}), asked());
    EXPECT_EQ(lines{"sleep 1"}, platform.calls({"sleep"})) << "only behind the look at the SIM";
    EXPECT_EQ(lines{}, saved());
    for (const at_request &request : modem.requests())
        EXPECT_EQ(15, request.timeout);
    for (const char *step : {"init_at_cmgf", "init_at_cnmi", "init_sim_cpms", "init_sim_csca"})
        EXPECT_TRACED(step, std::string(step) + " succ!");
    EXPECT_TRACED("sim_sms_is_full", "used : 2 , total : 30");
}

TEST_F(initialisation, settles_what_a_modem_fresh_from_the_factory_has_otherwise)
{
    modem.script("AT+CMGF?\r", {says("+CMGF: 1")});
    modem.script("AT+CNMI?\r", {says("+CNMI: 2,1,0,0,0")});
    modem.script("AT+CPMS?\r", {says("+CPMS: \"ME\",0,100,\"ME\",0,100,\"ME\",0,100"), {cpms_sim}});
    modem.script("AT+CSCS?\r", {says("+CSCS: \"GSM\"")});
    modem.script("AT+CSCA?\r", {says("+CSCA: \"+316540881003\",145")});
    platform.unset_flag("SMS_CSCA");
    EXPECT_EQ(0, dv_sms_mgr_init());
    EXPECT_EQ((lines{"AT+CMGF?", "AT+CMGF=0", "AT+CNMI?", "AT+CNMI=3,2,0,0,0", "AT+CPMS?", "AT+CPMS=\"SM\"", "AT+CPMS?",
                     "AT+CSCS?", "AT+CSCS=\"IRA\"", "AT+CSCA?"}),
              asked());
    EXPECT_EQ("+316540881003", platform.flag("SMS_CSCA"));
    for (const at_request &request : modem.requests())
        EXPECT_EQ(15, request.timeout);
}

struct step_case {
    const char *name;
    std::vector<std::pair<std::string, std::vector<answer>>> script;
    lines asked;
    const char *error; /* null: the step succeeds */
};

class init_step : public initialisation
{
protected:
    /* Runs the step in each case: with tracing, without, and while its errors are known. */
    void run(const char *function, int (*step)(), const std::vector<step_case> &cases)
    {
        for (const step_case &each : cases) {
            for (const char *how : {"tracing", "quiet", "known"}) {
                const bool tracing = how != std::string("quiet"), known = how == std::string("known");
                const std::string name = std::string(each.name) + ", " + how;
                const std::string success = std::string(function) + ": " + function + " succ!";

                modem.reset();
                for (const auto &[command, answers] : each.script)
                    modem.script(command, answers);
                forget();
                debug_mode = tracing ? 1 : 0;
                at_err_log_enable = known ? 0 : 1;
                EXPECT_EQ(each.error == nullptr ? 0 : -1, step()) << name;
                EXPECT_EQ(each.asked, asked()) << name;
                EXPECT_EQ(each.error == nullptr && tracing ? 1u : 0u, times(traced(), success)) << name;

                const std::string error = std::string(function) + ": " + (each.error == nullptr ? "" : each.error);
                EXPECT_EQ(each.error == nullptr || known ? lines{} : lines{error}, saved()) << name;
                EXPECT_EQ(each.error == nullptr || known ? 0u : 1u, times(traced(), error)) << name;
                EXPECT_EQ(lines{}, platform.calls({"sleep"})) << name;
                for (const trace_line &line : trace_lines())
                    if (line.function == function) {
                        EXPECT_TRUE(
                            line.file.ends_with("MTKT750/mtkt750_sms_init.cpp")) /* raw data may stand in front */
                            << line.file;
                    }
            }
        }
    }
};

/* A reply of so many characters with the OK at its end. */
static answer long_reply(const std::string &line, size_t length)
{
    std::string text = "\r\n" + line + "\r\n\r\nOK\r\n";

    text.insert(2 + line.size(), length - text.size(), ' ');
    return {text};
}

TEST_F(init_step, message_format)
{
    const std::string query = "AT+CMGF?\r", set = "AT+CMGF=0\r";

    run("init_at_cmgf", init_at_cmgf,
        {
            {"is PDU already", {{query, {says("+CMGF: 0")}}}, {"AT+CMGF?"}, nullptr},
            {"is text", {{query, {says("+CMGF: 1")}}}, {"AT+CMGF?", "AT+CMGF=0"}, nullptr},
            {"is written without a blank", {{query, {says("+CMGF:0")}}}, {"AT+CMGF?", "AT+CMGF=0"}, nullptr},
            {"the question is refused", {{query, {refused}}}, {"AT+CMGF?"}, "send at+cmgf? error"},
            {"the question is not answered", {{query, {unanswered}}}, {"AT+CMGF?"}, "send at+cmgf? error"},
            {"the answer is no OK", {{query, {no_ok}}}, {"AT+CMGF?"}, "inquire cmgf failed"},
            {"the format without OK", {{query, {{"\r\n+CMGF: 0\r\n"}}}}, {"AT+CMGF?"}, "inquire cmgf failed"},
            {"OK without its line ends", {{query, {{"+CMGF: 0 OK"}}}}, {"AT+CMGF?"}, "inquire cmgf failed"},
            {"the answer is another's", {{query, {stray}}}, {"AT+CMGF?"}, "inquire cmgf failed"},
            {"127 characters are read", {{query, {long_reply("+CMGF: 0", 127)}}}, {"AT+CMGF?"}, nullptr},
            {"and no more", {{query, {long_reply("+CMGF: 0", 128)}}}, {"AT+CMGF?"}, "inquire cmgf failed"},
            {"setting is refused",
             {{query, {says("+CMGF: 1")}}, {set, {refused}}},
             {"AT+CMGF?", "AT+CMGF=0"},
             "send at+cmgf=0 error"},
            {"setting is not answered",
             {{query, {says("+CMGF: 1")}}, {set, {unanswered}}},
             {"AT+CMGF?", "AT+CMGF=0"},
             "send at+cmgf=0 error"},
            {"setting is no OK",
             {{query, {says("+CMGF: 1")}}, {set, {no_ok}}},
             {"AT+CMGF?", "AT+CMGF=0"},
             "set at+cmgf=0 failed"},
            {"the answer to setting is another's, and the buffer was cleared",
             {{query, {says("+CMGF: 1")}}, {set, {stray}}},
             {"AT+CMGF?", "AT+CMGF=0"},
             "set at+cmgf=0 failed"},
        });
}

TEST_F(init_step, routing_of_new_messages)
{
    const std::string query = "AT+CNMI?\r", set = "AT+CNMI=3,2,0,0,0\r";
    const lines both = {"AT+CNMI?", "AT+CNMI=3,2,0,0,0"};

    run("init_at_cnmi", init_at_cnmi,
        {
            {"is direct already", {{query, {says("+CNMI: 3,2,0,0,0")}}}, {"AT+CNMI?"}, nullptr},
            {"is by storage", {{query, {says("+CNMI: 3,1,0,0,0")}}}, both, nullptr},
            {"differs in the last", {{query, {says("+CNMI: 3,2,0,0,1")}}}, both, nullptr},
            {"the question is refused", {{query, {refused}}}, {"AT+CNMI?"}, "send at+cnmi? error"},
            {"the question is not answered", {{query, {unanswered}}}, {"AT+CNMI?"}, "send at+cnmi? error"},
            {"the answer is no OK", {{query, {no_ok}}}, {"AT+CNMI?"}, "inquire cnmi failed"},
            {"127 characters are read", {{query, {long_reply("+CNMI: 3,2,0,0,0", 127)}}}, {"AT+CNMI?"}, nullptr},
            {"and no more", {{query, {long_reply("+CNMI: 3,2,0,0,0", 128)}}}, {"AT+CNMI?"}, "inquire cnmi failed"},
            {"setting is refused",
             {{query, {says("+CNMI: 0")}}, {set, {refused}}},
             both,
             "send at+cnmi=3,2,0,0,0 error"},
            {"setting is no OK", {{query, {says("+CNMI: 0")}}, {set, {no_ok}}}, both, "set at+cnmi=3,2,0,0,0 failed"},
            {"the answer to setting is another's, and the buffer was cleared",
             {{query, {says("+CNMI: 0")}}, {set, {stray}}},
             both,
             "set at+cnmi=3,2,0,0,0 failed"},
        });
}

TEST_F(init_step, the_routing_is_shown_as_long_as_errors_are)
{
    for (const bool tracing : {false, true}) {
        for (const bool errors : {false, true}) {
            forget();
            debug_mode = tracing;
            at_err_log_enable = errors;
            EXPECT_EQ(0, init_at_cnmi());
            EXPECT_EQ(errors, output().find(": AT+CNMI? : " + std::string(cnmi_direct) + "\n") != std::string::npos);
            EXPECT_EQ(errors ? 1u : 0u, times(traced(), "init_at_cnmi: AT+CNMI? : \\r"));
            EXPECT_EQ(lines{}, saved());
        }
    }
}

TEST_F(init_step, storage)
{
    const std::string query = "AT+CPMS?\r", set = "AT+CPMS=\"SM\"\r";
    const answer other = says("+CPMS: \"ME\",0,100,\"ME\",0,100,\"ME\",0,100"), sim = {cpms_sim};
    const lines once = {"AT+CPMS?", "AT+CPMS=\"SM\"", "AT+CPMS?"};
    const lines twice = {"AT+CPMS?", "AT+CPMS=\"SM\"", "AT+CPMS?", "AT+CPMS=\"SM\"", "AT+CPMS?"};
    lines thrice = twice;
    thrice.insert(thrice.end(), {"AT+CPMS=\"SM\"", "AT+CPMS?"});

    run("init_sim_cpms", init_sim_cpms,
        {
            {"is the SIM already", {{query, {sim}}}, {"AT+CPMS?"}, nullptr},
            {"becomes the SIM", {{query, {other, sim}}}, once, nullptr},
            {"becomes the SIM the second time", {{query, {other, other, sim}}}, twice, nullptr},
            {"becomes the SIM only the third time: given up all the same",
             {{query, {other, other, other, sim}}},
             thrice,
             "init_sim_cpms failed 3 times, just give up"},
            {"never becomes the SIM", {{query, {other}}}, thrice, "init_sim_cpms failed 3 times, just give up"},
            {"the question is refused", {{query, {refused}}}, {"AT+CPMS?"}, "send at+cpms? error"},
            {"the question is not answered", {{query, {unanswered}}}, {"AT+CPMS?"}, "send at+cpms? error"},
            {"the answer is no OK", {{query, {no_ok}}}, {"AT+CPMS?"}, "inquire cpms failed"},
            {"setting is refused",
             {{query, {other}}, {set, {refused}}},
             {"AT+CPMS?", "AT+CPMS=\"SM\""},
             "send at+cpms=\"SM\" error"},
            {"setting is no OK",
             {{query, {other}}, {set, {no_ok}}},
             {"AT+CPMS?", "AT+CPMS=\"SM\""},
             "set at+cpms=\"SM\" failed"},
            {"the answer to setting is another's, and the buffer was cleared",
             {{query, {other}}, {set, {stray}}},
             {"AT+CPMS?", "AT+CPMS=\"SM\""},
             "set at+cpms=\"SM\" failed"},
            {"the second question is refused", {{query, {other, refused}}}, once, "second send at+cpms? error"},
            {"the second answer is no OK", {{query, {other, no_ok}}}, once, "second inquire cpms failed"},
            {"the second answer is another's, and the buffer was cleared",
             {{query, {other, stray}}},
             once,
             "second inquire cpms failed"},
            {"the third question is refused", {{query, {other, other, refused}}}, twice, "second send at+cpms? error"},
            {"the second setting is no OK",
             {{query, {other}}, {set, {{plain_ok}, no_ok}}},
             {"AT+CPMS?", "AT+CPMS=\"SM\"", "AT+CPMS?", "AT+CPMS=\"SM\""},
             "set at+cpms=\"SM\" failed"},
        });
}

TEST_F(init_step, character_set_with_a_known_service_centre)
{
    const std::string query = "AT+CSCS?\r", set = "AT+CSCS=\"IRA\"\r";
    const lines both = {"AT+CSCS?", "AT+CSCS=\"IRA\""};

    run("init_sim_csca", init_sim_csca,
        {
            {"is IRA already", {{query, {{cscs_ira}}}}, {"AT+CSCS?"}, nullptr},
            {"is GSM", {{query, {says("+CSCS: \"GSM\"")}}}, both, nullptr},
            {"the question is refused", {{query, {refused}}}, {"AT+CSCS?"}, "send at+cscs? error"},
            {"the question is not answered", {{query, {unanswered}}}, {"AT+CSCS?"}, "send at+cscs? error"},
            {"the answer is no OK", {{query, {no_ok}}}, {"AT+CSCS?"}, "inquire cscs failed"},
            {"setting is refused",
             {{query, {says("+CSCS: \"GSM\"")}}, {set, {refused}}},
             both,
             "send at+cscs=\"IRA\" error"},
            {"setting is no OK", {{query, {says("+CSCS: \"GSM\"")}}, {set, {no_ok}}}, both, "set cscs=\"IRA\" failed"},
            {"the answer to setting is another's: the first answer's OK still stands in the buffer",
             {{query, {says("+CSCS: \"GSM\"")}}, {set, {stray}}},
             both,
             nullptr},
        });
}

TEST_F(init_step, service_centre_that_is_not_known)
{
    const std::string query = "AT+CSCA?\r";
    const lines both = {"AT+CSCS?", "AT+CSCA?"};
    const std::pair<std::string, std::vector<answer>> ira = {"AT+CSCS?\r", {{cscs_ira}}};

    platform.set_result("flag_set", 0); /* it stays unknown */
    for (const bool emptied : {false, true}) {
        platform.set_read_mode("flag_get_item", {.empties_unset = emptied});
        platform.unset_flag("SMS_CSCA");
        run("init_sim_csca", init_sim_csca,
            {
                {"is told", {ira, {query, {says("+CSCA: \"+316540881003\",145")}}}, both, nullptr},
                {"is told without quotes", {ira, {query, {says("+CSCA: ,145")}}}, both, nullptr},
                {"is refused", {ira, {query, {refused}}}, both, "send at+csca? error"},
                {"is not answered", {ira, {query, {unanswered}}}, both, "send at+csca? error"},
                {"the answer is no OK", {ira, {query, {no_ok}}}, both, "inquire csca failed"},
                {"the answer is another's, and the buffer was cleared",
                 {ira, {query, {stray}}},
                 both,
                 "inquire csca failed"},
            });
    }
}

struct centre_case {
    const char *name;
    std::string reply;
    const char *stored; /* null: nothing */
};

TEST_F(init_step, the_service_centre_is_what_stands_between_the_first_two_quotes)
{
    const centre_case cases[] = {
        {"usual", ok("+CSCA: \"+316540881003\",145"), "+316540881003"},
        {"fifteen characters", ok("+CSCA: \"+12345678901234\",145"), "+12345678901234"},
        {"sixteen are cut", ok("+CSCA: \"+123456789012345\",145"), "+12345678901234"},
        {"thirty are cut", ok("+CSCA: \"" + std::string(30, '7') + "\",145"), "777777777777777"},
        {"no second quote among thirty-one", ok("+CSCA: \"" + std::string(31, '7') + "\",145"), nullptr},
        {"no second quote", ok("+CSCA: \"+316540881003,145"), nullptr},
        {"no quote", ok("+CSCA: +316540881003,145"), nullptr},
        {"nothing between", ok("+CSCA: \"\",145"), ""},
        {"only the first pair", ok("+CSCA: \"1\",\"2\""), "1"},
        {"whatever the line is called", ok("\"x\""), "x"},
    };

    for (const centre_case &each : cases) {
        forget();
        platform.unset_flag("SMS_CSCA");
        modem.script("AT+CSCA?\r", {{each.reply}});
        EXPECT_EQ(0, init_sim_csca()) << each.name;
        EXPECT_EQ(each.stored == nullptr ? lines{} : lines{std::string("flag_set SMS_CSCA \"") + each.stored + "\""},
                  platform.calls({"flag_set"}))
            << each.name;
        EXPECT_EQ(1, platform.count("flag_get_item SMS_CSCA 16")) << each.name;
    }
}

TEST_F(init_step, a_known_service_centre_is_neither_asked_for_nor_changed)
{
    for (const std::string &known :
         {std::string("+1"), std::string(15, '1'), std::string(16, '1'), std::string(100, '1')}) {
        for (const bool errors : {false, true}) {
            forget();
            debug_mode = 0;
            at_err_log_enable = errors;
            platform.set_flag("SMS_CSCA", known);
            EXPECT_EQ(0, init_sim_csca());
            EXPECT_EQ(lines{"AT+CSCS?"}, asked());
            EXPECT_EQ(lines{}, platform.calls({"flag_set"}));
            EXPECT_EQ(errors ? lines{"init_sim_csca: cfg_csca : " + known.substr(0, 16)} : lines{}, traced());
            EXPECT_EQ(lines{}, saved());
        }
    }
    debug_mode = 0;
    at_err_log_enable = 1;
    platform.set_flag("SMS_CSCA", "");
    forget();
    EXPECT_EQ(0, init_sim_csca());
    EXPECT_EQ(lines{"init_sim_csca: cfg_csca : "}, traced());
}

/* --- a full SIM --- */

struct full_case {
    const char *name, *reply;
    int full, total;
    const char *said; /* null: nothing */
};

TEST_F(initialisation, the_sim_is_full_when_used_and_total_are_the_same_text)
{
    const full_case cases[] = {
        {"room", "\r\n+CPMS: \"SM\",2,30,\"SM\",2,30\r\n\r\nOK\r\n", 0, -5, "used : 2 , total : 30"},
        {"full", "\r\n+CPMS: \"SM\",30,30,\"SM\",30,30\r\n\r\nOK\r\n", 1, 30, "used : 30 , total : 30"},
        {"full, blanks behind the commas", "+CPMS: \"SM\", 30, 30, \"SM\"", 1, 30, "used : 30 , total : 30"},
        {"the used count stands behind its first blank", "+CPMS: \"SM\",a 3,3,x", 1, 3, "used : 3 , total : 3"},
        {"and may hold more blanks", "+CPMS: \"SM\",a 3 3, 3 3,x", 1, 3, "used : 3 3 , total : 3 3"},
        {"the total only loses its first character", "+CPMS: \"SM\",0,3 0,x", 0, -5, "used : 0 , total :  0"},
        {"nothing of nothing", "+CPMS: \"SM\",0,0,x", 1, 0, "used : 0 , total : 0"},
        {"texts, not numbers", "+CPMS: \"SM\",030,30,x", 0, -5, "used : 030 , total : 30"},
        {"no numbers at all", "+CPMS: \"SM\",x,x,x", 1, 0, "used : x , total : x"},
        {"no further comma behind the total", "+CPMS: \"SM\",30,30\r\n\r\nOK\r\n", 0, -5, "used : 30 , total : 30\\r"},
        {"no total", "+CPMS: \"SM\",30", 0, -5, nullptr},
        {"no comma", "+CPMS: \"SM\"", 0, -5, nullptr},
        {"nothing", "", 0, -5, nullptr},
    };

    for (const full_case &each : cases) {
        int total = -5;

        forget();
        EXPECT_EQ(each.full, sim_sms_is_full(each.reply, &total)) << each.name;
        EXPECT_EQ(each.total, total) << each.name;
        lines wanted;
        if (each.said != nullptr)
            wanted.push_back(std::string("sim_sms_is_full: ") + each.said);
        if (each.full == 1)
            wanted.push_back("sim_sms_is_full: sim sms is full");
        EXPECT_EQ(wanted, traced()) << each.name;
        EXPECT_EQ(lines{}, saved()) << each.name;
    }
    forget();
    debug_mode = 0;
    int total = -5;
    EXPECT_EQ(1, sim_sms_is_full(cases[1].reply, &total));
    EXPECT_EQ("", output()) << "seen while tracing only, whatever is done about errors";
}

TEST_F(initialisation, no_reply_is_no_full_sim)
{
    int total = -5;

    EXPECT_EQ(0, sim_sms_is_full(nullptr, &total));
    EXPECT_EQ(-5, total);
    EXPECT_ONLY_TRACED("sim_sms_is_full", "cpms_recv_data is NULL");
}

static const std::string deliver = "0B911316325476F80000423050417000"
                                   "02"; /* from whom and when */
static const std::string whole = "07911356131313F304" + deliver + "02E834";

/* The first part of two with this reference: incomplete as long as it is the only one. */
static std::string part(const std::string &reference)
{
    return "07911356131313F344" + deliver + "0A050003" + reference + "0201D06900";
}

static std::string stored(const std::string &pdu)
{
    return "\r\n+CMGR: 0,,24\r\n" + pdu + "\r\n\r\nOK\r\n";
}

static const char sim_full_of_3[] = "\r\n+CPMS: \"SM\",3,3,\"SM\",3,3,\"SM\",3,3\r\n\r\nOK\r\n";

struct manner {
    const char *name;
    bool traces, errors_shown;
    std::string reference; /* of the part that stays alone */
};

static const manner manners[] = {
    {"tracing", true, true, "A1"}, {"quiet", false, true, "A2"}, {"errors known", true, false, "A3"}};

TEST_F(initialisation, a_full_sim_is_read_from_the_first_place_on_until_one_message_has_made_room)
{
    static const char full[] = "sms already full, please delete sim sms, otherwise can not recvive sms";

    for (const manner &each : manners) {
        modem.script("AT+CPMS?\r", {{sim_full_of_3}});
        modem.script("AT+CMGR=1\r", {no_ok});                          /* a failure */
        modem.script("AT+CMGR=2\r", {{stored(part(each.reference))}}); /* incomplete */
        modem.script("AT+CMGR=3\r", {{stored(whole)}});
        forget();
        debug_mode = each.traces;
        at_err_log_enable = each.errors_shown;
        EXPECT_EQ(0, init_sim_cpms());
        EXPECT_EQ((lines{"AT+CPMS?", "AT+CMGR=1", "AT+CMGR=2", "AT+CMGR=3", "AT+CMGD=3"}), asked()) << each.name;
        EXPECT_EQ(each.errors_shown, in_trace("init_sim_cpms", full)) << each.name;
        EXPECT_EQ(each.errors_shown, in_log("init_sim_cpms", full)) << each.name;
        EXPECT_EQ(each.traces, in_trace("init_sim_cpms", "init_sim_cpms succ!")) << each.name;
    }
    EXPECT_NE(std::string::npos, read_file("mnt/data/sms/sms_read/1").find(" hi"));
}

TEST_F(initialisation, a_full_sim_is_read_no_further_than_needed)
{
    modem.script("AT+CPMS?\r", {{sim_full_of_3}});
    modem.script("AT+CMGR=1\r", {{stored(whole)}});
    EXPECT_EQ(0, init_sim_cpms());
    EXPECT_EQ((lines{"AT+CPMS?", "AT+CMGR=1", "AT+CMGD=1"}), asked());
}

TEST_F(initialisation, a_full_sim_that_gives_nothing_away_fails_the_step)
{
    for (const bool incomplete : {false, true}) { /* what the last place holds */
        for (const manner &each : manners) {
            const std::string said = std::string("can't take sms by cmti ret: ") + (incomplete ? "1" : "0");

            forget();
            debug_mode = each.traces;
            at_err_log_enable = each.errors_shown;
            modem.script("AT+CPMS?\r", {{sim_full_of_3}});
            modem.script("AT+CMGR=*", {no_ok});
            modem.script("AT+CMGR=3\r", {incomplete ? answer{stored(part("B" + each.reference.substr(1)))} : no_ok});
            EXPECT_EQ(-1, init_sim_cpms()) << each.name;
            EXPECT_EQ((lines{"AT+CPMS?", "AT+CMGR=1", "AT+CMGR=2", "AT+CMGR=3"}), asked()) << each.name;
            EXPECT_EQ(each.traces, in_trace("init_sim_cpms", said)) << each.name << ": seen while tracing only";
            EXPECT_FALSE(in_log("init_sim_cpms", said));
            EXPECT_FALSE(in_trace("init_sim_cpms", "init_sim_cpms succ!"));
        }
    }
}

TEST_F(initialisation, a_sim_with_room_for_nothing_fails_the_step)
{
    modem.script("AT+CPMS?\r", {says("+CPMS: \"SM\",0,0,\"SM\",0,0")});
    EXPECT_EQ(-1, init_sim_cpms());
    EXPECT_EQ(lines{"AT+CPMS?"}, asked());
    EXPECT_ONLY_TRACED("init_sim_cpms", "can't take sms by cmti ret: 0");
}

TEST_F(initialisation, a_message_that_cannot_be_deleted_makes_no_room)
{
    modem.script("AT+CPMS?\r", {{sim_full_of_3}});
    modem.script("AT+CMGR=*", {no_ok});
    modem.script("AT+CMGR=1\r", {{stored(whole)}});
    modem.script("AT+CMGD=1\r", {no_ok});
    EXPECT_EQ(-1, init_sim_cpms());
    EXPECT_EQ((lines{"AT+CPMS?", "AT+CMGR=1", "AT+CMGD=1", "AT+CMGR=2", "AT+CMGR=3"}), asked());
}

} // namespace
