/* The AT channel: what is sent, how long an answer is awaited, what each answer or its absence does, and
 * where the modem's unsolicited lines go. */
#include <errno.h>
#include <limits.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>

#include <set>
#include <string>
#include <vector>

#include "MTKT750/mtkt750_sms.h"
#include "core_bench.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_utils.h"

using fake::answer;

namespace
{

static const char me[] = "dv_sms_mgr_send_at";

class at_channel : public core_bench
{
protected:
    void SetUp() override
    {
        core_bench::SetUp();
        succeed(); /* no time-outs of an earlier test are counted on */
        forget();
    }

    int send(const char *command = "AT\r", int timeout = 15)
    {
        char reply[128] = {};
        return dv_sms_mgr_send_at(timeout, reply, sizeof reply, "%s", command);
    }

    void succeed() { ASSERT_EQ(0, send("AT+GOOD\r")); }

    void time_out(int times)
    {
        modem.script("AT+DEAF\r", {{.how = answer::silent}});
        for (int i = 0; i < times; i++)
            ASSERT_EQ(ETIMEDOUT, send("AT+DEAF\r"));
    }

    int reports() { return platform.count("cfg_get_item SYS_REBOOT_WHEN_MODEM_UNORMAL 2"); }

    static bool lock_is_free()
    {
        if (pthread_mutex_trylock(&at_lock) != 0)
            return false;
        pthread_mutex_unlock(&at_lock);
        return true;
    }
};

/* --- the request --- */

static uint32_t word(const sockmsg_record &record, size_t offset)
{
    const auto *bytes = reinterpret_cast<const uint8_t *>(&record) + offset;

    return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
           static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

TEST_F(at_channel, sends_the_formatted_command_in_a_record_to_module_5)
{
    char reply[64] = {};

    seams::set_time(1234567);
    ASSERT_EQ(0, dv_sms_mgr_send_at(7, reply, sizeof reply, "AT+X=%d,\"%s\"\r", -12, "three"));
    ASSERT_EQ(1u, platform.sent().size());
    EXPECT_EQ(5, platform.sent()[0].first);
    const sockmsg_record record = platform.sent()[0].second;
    const std::string command = "AT+X=-12,\"three\"\r";

    EXPECT_EQ(0x1017u, word(record, 0));
    EXPECT_EQ(0u, word(record, 4));
    EXPECT_EQ(0x1004u, word(record, 8));
    EXPECT_EQ(0xABCDu, word(record, 12));
    EXPECT_LE(word(record, 16), 59998u);
    EXPECT_EQ(7u, word(record, 20));
    EXPECT_EQ(command.size(), word(record, 24));
    const auto *bytes = reinterpret_cast<const char *>(&record);
    EXPECT_EQ(command, std::string(bytes + 28, command.size()));
    EXPECT_EQ(std::string(sizeof record - 28 - command.size(), '\0'),
              std::string(bytes + 28 + command.size(), bytes + sizeof record))
        << "zero to the end of the record, the sender's words too";
}

TEST_F(at_channel, passes_the_time_out_on_as_it_was_given)
{
    for (const int timeout : {15, 1, 0, -7}) {
        send("AT\r", timeout);
        EXPECT_EQ(timeout, modem.requests().back().timeout);
    }
}

TEST_F(at_channel, draws_the_id_from_a_generator_seeded_with_the_seconds)
{
    std::set<int32_t> drawn;

    for (time_t now = 1700000000; now < 1700000200; now++) {
        seams::set_time(now);
        send();
        srand(static_cast<unsigned>(now));
        EXPECT_EQ(rand() % 59999, modem.requests().back().at_id);
        send(); /* in the same second: the same */
        EXPECT_EQ(modem.requests().end()[-2].at_id, modem.requests().back().at_id);
        drawn.insert(modem.requests().back().at_id);
    }
    EXPECT_GT(drawn.size(), 150u);
}

TEST_F(at_channel, a_command_that_is_too_long_is_cut_to_the_field)
{
    const std::string command(5000, 'A');

    modem.script("*", {{plain_ok}});
    EXPECT_EQ(0, send(command.c_str()));
    const at_request request = modem.requests().back();
    EXPECT_EQ(4079u, request.text_length);
    EXPECT_EQ('\0', request.text[4079]);
    EXPECT_EQ(0u, request.sender[0]);
}

TEST_F(at_channel, logs_the_command_once_it_is_sent_and_the_answer_once_it_is_there)
{
    debug_mode = 0;
    modem.script("AT\r", {{"\r\n1\r\n\r\nOK\r\n"}});
    EXPECT_EQ(0, send());
    EXPECT_EQ((lines{"bus 5 AT\\r", "savelog 3 [dv_sms_mgr] => send data :AT\\r", "pthread_cond_timedwait 18",
                     "savelog 3 [dv_sms_mgr] <= recv data :\\r\\n1\\r\\n\\r\\nOK\\r\\n"}),
              calls_but({"get_app_name_by_id"}));
    EXPECT_EQ("[dv_sms_mgr] => send data :AT\r[dv_sms_mgr] <= recv data :\r\n1\r\n\r\nOK\r\n", output());
}

TEST_F(at_channel, prints_command_and_answer_visibly_while_tracing)
{
    lines printed;

    EXPECT_EQ(0, send());
    for (const std::string &line : output_lines())
        if (line.find("recv msg(") == std::string::npos) /* the bus thread's, which may come first */
            printed.push_back(line);
    EXPECT_EQ((lines{"[dv_sms_mgr] => send data :AT\\r", "[dv_sms_mgr] <= recv data :\\r\\nOK\\r\\n"}), printed);
    EXPECT_EQ(lines{}, platform.saved());
}

/* --- a good answer --- */

struct copy_case {
    int size;
    size_t copied;
};

TEST_F(at_channel, copies_exactly_one_character_less_than_the_buffer_holds)
{
    const std::string text = "\r\n" + std::string(200, 'x') + "\r\n\r\nOK\r\n";
    std::string field = text;

    field.resize(3980); /* the answer's field is zero behind the text */
    modem.script("AT\r", {{text}});
    for (const copy_case &each :
         {copy_case{-1, 0}, copy_case{0, 0}, copy_case{1, 0}, copy_case{2, 1}, copy_case{6, 5}, copy_case{128, 127},
          copy_case{210, 209}, copy_case{211, 210}, copy_case{300, 299}, copy_case{3980, 3979}, copy_case{3981, 3980},
          copy_case{3982, 3980}, copy_case{5000, 3980}}) {
        marked_buffer buffer(5000, '#');

        EXPECT_EQ(0, dv_sms_mgr_send_at(15, buffer.data(), each.size, "AT\r"));
        EXPECT_EQ(field.substr(0, each.copied), std::string(buffer.data(), each.copied)) << each.size;
        EXPECT_EQ(std::string(5000 - each.copied, '#'), std::string(buffer.data() + each.copied, 5000 - each.copied))
            << each.size << ": the last character stays as it was";
        EXPECT_TRUE(buffer.intact());
    }
}

TEST_F(at_channel, an_answer_without_terminator_ends_with_its_field)
{
    const std::string text(3980, 'x');
    marked_buffer buffer(128);

    debug_mode = 0;
    modem.script("AT\r", {{text}});
    EXPECT_EQ(0, dv_sms_mgr_send_at(15, buffer.data(), 128, "AT\r"));
    EXPECT_EQ(std::string(127, 'x'), buffer.data());
    EXPECT_TRUE(buffer.intact());
    EXPECT_EQ("savelog 3 [dv_sms_mgr] <= recv data :" + text, platform.calls().back());
}

TEST_F(at_channel, without_a_buffer_it_complains_and_carries_on)
{
    EXPECT_EQ(0, dv_sms_mgr_send_at(15, nullptr, 128, "AT\r"));
    EXPECT_BOTH(me, "ret_error is error!");
    EXPECT_EQ("dv_sms_mgr.cpp", trace_lines().at(0).file);
    EXPECT_EQ(lines{"AT"}, asked());
    EXPECT_EQ("[dv_sms_mgr] <= recv data :\\r\\nOK\\r\\n", output_lines().back());
    EXPECT_TRUE(lock_is_free());
}

/* --- the modem's errors --- */

TEST_F(at_channel, gives_the_modems_error_code_as_it_came)
{
    for (const int code : {500, 1, 321, -1, INT_MAX, INT_MIN, 110}) {
        marked_buffer buffer(64, '#');

        forget();
        modem.script("AT\r", {{"\r\n+CMS ERROR\r\n", code, answer::normal, "no network"}});
        EXPECT_EQ(code, dv_sms_mgr_send_at(15, buffer.data(), 64, "AT\r"));
        EXPECT_ONLY_TRACED(me, "[sms_mgr] send at error! code:" + std::to_string(code) + ", error detail:no network");
        EXPECT_EQ(std::string(64, '#'), std::string(buffer.data(), 64)) << "nothing copied";
        EXPECT_EQ(std::string::npos, output().find("<= recv data"));
        EXPECT_EQ(0, reports());
        EXPECT_TRUE(lock_is_free());
    }
}

TEST_F(at_channel, an_error_detail_without_terminator_ends_with_its_field)
{
    const std::string detail(100, 'd');

    modem.script("AT\r", {{"", 3, answer::normal, detail}});
    EXPECT_EQ(3, send());
    EXPECT_TRACED(me, "[sms_mgr] send at error! code:3, error detail:" + detail);
}

/* --- an answer to something else --- */

TEST_F(at_channel, an_answer_with_another_id_is_a_success_that_brings_nothing)
{
    for (const int error : {0, 500}) {
        marked_buffer buffer(64, '#');

        forget();
        modem.script("AT+ONE\r", {{plain_ok, error, answer::other_id, ""}});
        EXPECT_EQ(0, dv_sms_mgr_send_at(15, buffer.data(), 64, "AT+ONE\r"));
        EXPECT_ONLY_TRACED(me, "[sms_mgr] get at_respone at_id not same as request! , cmd: AT+ONE\\r");
        EXPECT_EQ(std::string(64, '#'), std::string(buffer.data(), 64));
        EXPECT_EQ(lines{"pthread_cond_timedwait 18"}, platform.calls({"pthread_cond_timedwait"}))
            << "it does not wait again";
        EXPECT_EQ(std::string::npos, output().find("<= recv data"));
        EXPECT_EQ(1u, asked().size());
        EXPECT_TRUE(lock_is_free());
    }
}

/* --- no answer --- */

struct deadline_case {
    int timeout;
    double seconds;
};

TEST_F(at_channel, waits_three_seconds_longer_than_asked_or_eighteen)
{
    modem.script("AT\r", {{.how = answer::silent}});
    seams::set_monotonic({5000, 987654321});
    for (const deadline_case &each :
         {deadline_case{15, 18}, deadline_case{5, 8}, deadline_case{1, 4}, deadline_case{0, 18}, deadline_case{-1, 18},
          deadline_case{INT_MIN, 18}, deadline_case{18, 21}, deadline_case{3600, 3603}}) {
        char reply[128] = {};

        EXPECT_EQ(ETIMEDOUT, dv_sms_mgr_send_at(each.timeout, reply, sizeof reply, "AT\r"));
        EXPECT_NEAR(each.seconds, seams::last_wait(), 1e-6) << each.timeout << ": nanoseconds unchanged";
        succeed();
    }
}

TEST_F(at_channel, an_unanswered_command_gives_110_and_leaves_the_buffer)
{
    marked_buffer buffer(64, '#');

    modem.script("AT\r", {{.how = answer::silent}});
    EXPECT_EQ(110, dv_sms_mgr_send_at(15, buffer.data(), 64, "AT\r"));
    EXPECT_EQ(std::string(64, '#'), std::string(buffer.data(), 64));
    EXPECT_EQ(lines{}, traced()) << "nothing to say";
    EXPECT_TRUE(lock_is_free());
}

TEST_F(at_channel, a_wait_that_fails_otherwise_gives_minus_2)
{
    for (const int error : {EINVAL, EPERM}) {
        forget();
        modem.script("AT\r", {{.how = answer::silent}});
        seams::set_wait(seams::at_once, error);
        EXPECT_EQ(-2, send());
        EXPECT_ONLY_TRACED(me, "pthread_cond_timedwait failed: " + std::to_string(error));
        EXPECT_TRUE(lock_is_free());
    }
}

/* --- a bus that refuses --- */

TEST_F(at_channel, gives_what_the_bus_gave_when_the_command_is_not_sent)
{
    for (const int error : {-1, 1, 7, 110, -2}) {
        marked_buffer buffer(64, '#');

        forget();
        platform.set_bus_result(AT_MODULE_ID, error);
        EXPECT_EQ(error, dv_sms_mgr_send_at(15, buffer.data(), 64, "AT\r"));
        EXPECT_BOTH(me, "sockmsg_send_common_msg() failed:" + std::to_string(error));
        EXPECT_EQ(std::string(64, '#'), std::string(buffer.data(), 64));
        EXPECT_EQ(std::string::npos, output().find("=> send data"));
        EXPECT_EQ(lines{}, platform.calls({"pthread_cond_timedwait"}));
        EXPECT_TRUE(lock_is_free());
    }
    platform.set_bus_result(AT_MODULE_ID, 0);
    succeed();
}

/* --- many time-outs --- */

TEST_F(at_channel, the_fifteenth_time_out_in_a_row_is_reported_the_sixteenth_is_not)
{
    platform.set_cfg("SYS_REBOOT_WHEN_MODEM_UNORMAL", "0");
    time_out(14);
    EXPECT_EQ(0, reports());
    time_out(1);
    EXPECT_EQ(1, reports());
    EXPECT_ONLY_TRACED(me, "<<<<< System not allow reboot when modem unormal. <<<<<");
    forget();
    time_out(40);
    EXPECT_EQ(0, reports());
}

struct report_case {
    const char *value; /* null: unset */
    bool unset_is_emptied;
    bool failed, allowed;
};

TEST_F(at_channel, the_report_follows_the_configuration)
{
    for (const report_case &each : {report_case{"1", false, false, true}, report_case{"0", false, false, false},
                                    report_case{"2", false, false, false}, report_case{"11", false, false, false},
                                    report_case{"10", false, false, false}, report_case{"1x", false, false, false},
                                    report_case{" 1", false, false, false}, report_case{"y", false, false, false},
                                    report_case{"", false, true, true}, report_case{nullptr, true, true, true},
                                    report_case{nullptr, false, false, false}}) {
        const std::string name = each.value == nullptr ? "unset" : each.value;
        lines said;

        if (each.failed)
            said.push_back("cfg_get DC_SYS_REBOOT_WHEN_MODEM_UNORMAL failed!");
        said.push_back(each.allowed ? "<<<<< System allow reboot when modem unormal, do it soon. <<<<<"
                                    : "<<<<< System not allow reboot when modem unormal. <<<<<");
        for (std::string &line : said)
            line = std::string(me) + ": " + line;
        succeed();
        forget();
        platform.set_read_mode("cfg_get_item", {.empties_unset = each.unset_is_emptied});
        platform.unset_cfg("SYS_REBOOT_WHEN_MODEM_UNORMAL");
        if (each.value != nullptr)
            platform.set_cfg("SYS_REBOOT_WHEN_MODEM_UNORMAL", each.value);
        time_out(15);
        EXPECT_EQ(1, reports()) << name;
        EXPECT_EQ(said, traced()) << name;
        EXPECT_EQ(lines{}, saved()) << name;
        EXPECT_EQ(each.allowed ? lines{"sleep 10"} : lines{}, platform.calls({"sleep"})) << name;
        EXPECT_TRUE(lock_is_free());
    }
}

TEST_F(at_channel, keeps_the_lock_while_it_pauses)
{
    bool locked_then = false;

    platform.set_cfg("SYS_REBOOT_WHEN_MODEM_UNORMAL", "1");
    seams::on_sleep([&](unsigned seconds, int) { locked_then = seconds == 10 && !lock_is_free(); });
    time_out(15);
    EXPECT_TRUE(locked_then);
}

TEST_F(at_channel, any_answer_or_failed_wait_ends_the_row_but_a_refusing_bus_does_not)
{
    const std::pair<const char *, answer> events[] = {
        {"answer", {}},
        {"error", {.error = 500}},
        {"another id", {.how = answer::other_id}},
        {"failed wait", {.how = answer::silent}},
    };

    for (const auto &[name, event] : events) {
        succeed();
        forget();
        time_out(14);
        modem.script("AT+E\r", {event});
        if (event.how == answer::silent)
            seams::set_wait(seams::at_once, EINVAL);
        EXPECT_NE(ETIMEDOUT, send("AT+E\r"));
        seams::set_wait(seams::as_needed);
        time_out(14);
        EXPECT_EQ(0, reports()) << name;
        time_out(1);
        EXPECT_EQ(1, reports()) << name;
    }

    succeed();
    forget();
    time_out(14);
    platform.set_bus_result(AT_MODULE_ID, 9);
    EXPECT_EQ(9, send());
    platform.set_bus_result(AT_MODULE_ID, 0);
    EXPECT_EQ(0, reports());
    time_out(1);
    EXPECT_EQ(1, reports()) << "neither counted nor forgotten";
}

TEST_F(at_channel, an_answer_after_the_report_makes_the_next_row_count_from_0_again)
{
    platform.set_cfg("SYS_REBOOT_WHEN_MODEM_UNORMAL", "0");
    time_out(15);
    time_out(5);
    EXPECT_EQ(1, reports());
    succeed();
    time_out(14);
    EXPECT_EQ(1, reports());
    time_out(1);
    EXPECT_EQ(2, reports());
}

TEST_F(at_channel, without_an_answer_the_next_report_comes_at_the_60014th_time_out_after_the_first)
{
    debug_mode = 0;
    platform.set_cfg("SYS_REBOOT_WHEN_MODEM_UNORMAL", "0");
    time_out(15);
    ASSERT_EQ(1, reports());
    forget();
    for (int i = 0; i < 60; i++) {
        time_out(1000);
        ASSERT_EQ(0, reports());
        platform.forget(); /* what the bench keeps stays small */
        modem.reset();
    }
    time_out(13);
    EXPECT_EQ(0, reports());
    time_out(1);
    EXPECT_EQ(1, reports());
}

/* --- late and foreign answers --- */

TEST_F(at_channel, an_answer_that_nobody_waits_for_is_taken_quietly)
{
    sockmsg_record record = make_request(AT_MSG_ID_COMMAND);

    EXPECT_EQ(0, dv_sms_mgr_at_respone_event_handler(&record));
    EXPECT_EQ(lines{}, platform.calls());
    EXPECT_EQ("", output());
    EXPECT_TRUE(lock_is_free());
}

TEST_F(at_channel, no_record_is_no_answer)
{
    EXPECT_EQ(-1, dv_sms_mgr_at_respone_event_handler(nullptr));
    EXPECT_BOTH("dv_sms_mgr_at_respone_event_handler", "pEvt is NULL");
    EXPECT_TRUE(lock_is_free());
}

TEST_F(at_channel, a_late_answer_is_forgotten_by_the_next_request)
{
    char reply[64] = {};

    modem.script("AT+LATE\r", {{.how = answer::late}});
    EXPECT_EQ(ETIMEDOUT, send("AT+LATE\r"));
    EXPECT_EQ(1, modem.deliver_late());
    modem.script("AT\r", {{.how = answer::silent}});
    EXPECT_EQ(ETIMEDOUT, dv_sms_mgr_send_at(15, reply, sizeof reply, "AT\r"));
    EXPECT_STREQ("", reply);
    EXPECT_EQ(1, platform.count("pthread_cond_timedwait 18") - 1) << "the second request waited, too";
}

/* --- indications --- */

static const char pdu_line[] = "07911356131313F3040B911316325476F800004230504170000202E834";

struct indication_case {
    const char *name;
    std::string text;
    bool index_queued, pdu_queued, matched;
};

TEST_F(at_channel, routes_indications_by_their_prefix)
{
    const std::string cmt = std::string("\r\n+CMT: ,28\r\n") + pdu_line + "\r\n";
    const indication_case cases[] = {
        {"a stored message", "\r\n+CMTI: \"SM\",3\r\n", true, false, true},
        {"a message", cmt, false, true, true},
        {"the prefix alone", "\r\n+CMTI:", false, false, true},
        {"no colon", "\r\n+CMTI", false, false, false},
        {"another letter", "\r\n+CMTX:,3\r\n", false, false, false},
        {"no line end in front", "+CMTI: \"SM\",3\r\n", false, false, false},
        {"only a line feed in front", "\n+CMTI: \"SM\",3\r\n", false, false, false},
        {"not at the beginning", "\r\nX\r\n+CMTI: \"SM\",3\r\n", false, false, false},
        {"small letters", "\r\n+cmti: \"SM\",3\r\n", false, false, false},
        {"a registration report", "\r\n+CREG: 1\r\n", false, false, false},
        {"nothing", "", false, false, false},
    };

    for (const indication_case &each : cases) {
        sockmsg_record record = make_request(AT_MSG_ID_INDICATION, std::string("\xCD\xAB\0\0........", 12) + each.text);
        const std::string visible = fake::visible(each.text);
        uint32_t index;
        char pdu[512] = {};

        forget();
        debug_mode = 0;
        dv_sms_mgr_at_report_event_handler(&record);
        EXPECT_EQ(each.index_queued ? 0 : -1, util_dequeue(&index)) << each.name;
        EXPECT_EQ(each.pdu_queued ? 0 : -1, util_dequeue_pdu(pdu, sizeof pdu)) << each.name;
        EXPECT_EQ(each.pdu_queued ? pdu_line : "", std::string(pdu));
        const lines logged = platform.calls();
        ASSERT_FALSE(logged.empty());
        EXPECT_EQ("savelog 3 [dv_sms_mgr] <= recv atind data:" + visible, logged[0]) << each.name;
        EXPECT_EQ(each.matched ? 0 : 1,
                  platform.count("savelog 3 [dv_sms_mgr] Didn't match any Func, default ignore it:" + visible))
            << each.name;
        debug_mode = 1;
        forget();
        dv_sms_mgr_at_report_event_handler(&record);
        EXPECT_EQ("[dv_sms_mgr] <= recv atind data:" + visible, output_lines().at(0)) << each.name;
        if (!each.matched) {
            EXPECT_EQ((lines{"[dv_sms_mgr] <= recv atind data:" + visible,
                             "[dv_sms_mgr] Didn't match any Func, default ignore it:" + visible}),
                      output_lines());
        }
        while (util_dequeue(&index) == 0 || util_dequeue_pdu(pdu, sizeof pdu) == 0)
            ;
    }
}

TEST_F(at_channel, refuses_an_indication_without_its_marker)
{
    for (const std::string &marker : {std::string("\0\0\0\0", 4), std::string("\xCD\xAB\1\0", 4),
                                      std::string("\xAB\xCD\0\0", 4), std::string("\0\0\xCD\xAB", 4)}) {
        sockmsg_record record =
            make_request(AT_MSG_ID_INDICATION, marker + std::string(8, '\0') + "\r\n+CMTI: \"SM\",3\r\n");
        uint32_t index;

        forget();
        dv_sms_mgr_at_report_event_handler(&record);
        EXPECT_ONLY_TRACED("dv_sms_mgr_at_report_event_handler", "recv atind magic num error!");
        EXPECT_EQ(1u, output_lines().size());
        EXPECT_EQ(lines{}, platform.calls());
        EXPECT_EQ(-1, util_dequeue(&index));
    }
}

TEST_F(at_channel, no_record_is_no_indication)
{
    dv_sms_mgr_at_report_event_handler(nullptr);
    EXPECT_EQ(lines{}, platform.calls());
    EXPECT_EQ("", output());
}

TEST_F(at_channel, an_indication_without_terminator_ends_with_its_field)
{
    const std::string text = "\r\n+X:" + std::string(4084 - 5, 'x');
    sockmsg_record record =
        make_request(AT_MSG_ID_INDICATION, std::string("\xCD\xAB\0\0........", 12) + text, 0x59595959);

    record.sender_extra = 0x59595959;
    debug_mode = 0;
    dv_sms_mgr_at_report_event_handler(&record);
    EXPECT_EQ((lines{"savelog 3 [dv_sms_mgr] <= recv atind data:" + fake::visible(text),
                     "savelog 3 [dv_sms_mgr] Didn't match any Func, default ignore it:" + fake::visible(text)}),
              platform.calls());
}

} // namespace
