/* Each thing that the modem can be told to do wrong, and that it stops when told so. */
#include <gtest/gtest.h>

#include "bench.h"

namespace sim
{
namespace
{

using std::chrono::milliseconds;

const std::string rssi = "\r\n^RSSI: 21\r\n";
const std::string cmgf = "\r\n+CMGF: 0\r\n";

TEST(faults, late_answers)
{
    modem_config config = daemon_config();
    config.delay = milliseconds(300);
    bench b(config);
    EXPECT_EQ(b.at("AT+CMGF?"), "");
    b.pass(milliseconds(299));
    EXPECT_EQ(b.heard(), "");
    b.pass(milliseconds(1));
    EXPECT_EQ(b.heard(), cmgf + ok);
}

TEST(faults, commands_queue_up_behind_a_late_answer)
{
    modem_config config = daemon_config();
    config.delay = milliseconds(300);
    bench b(config);
    b.at("AT+CMGF?");
    b.at("AT");
    b.pass(milliseconds(300));
    EXPECT_EQ(b.heard(), cmgf + ok);
    b.pass(milliseconds(300));
    EXPECT_EQ(b.heard(), ok);
}

TEST(faults, silence)
{
    bench b(daemon_config());
    b.device.fault.silent = true;
    EXPECT_EQ(b.at("AT+CMGF=1"), "");
    b.device.offer(message());
    EXPECT_EQ(b.heard(), "");
    EXPECT_FALSE(b.device.say("RING"));
    b.device.fault.silent = false;
    b.device.faults_changed();
    EXPECT_EQ(b.heard(), cmt);
    EXPECT_EQ(b.at("AT+CMGF?"), cmgf + ok) << "nothing was carried out";
    ASSERT_EQ(b.device.commands().size(), 2u);
    EXPECT_EQ(b.device.commands()[0].text, "AT+CMGF=1");
    EXPECT_EQ(b.device.commands()[0].result, "");
    EXPECT_EQ(b.device.commands()[1].result, "OK");
}

TEST(faults, swallowed_commands)
{
    bench b(daemon_config());
    b.device.fault.swallow = 2;
    EXPECT_EQ(b.at("AT+CMGF=1"), "");
    EXPECT_EQ(b.at("AT"), "");
    EXPECT_EQ(b.at("AT+CMGF?"), cmgf + ok);
}

TEST(faults, lost_answers)
{
    bench b(daemon_config());
    b.device.fault.lose = 1;
    EXPECT_EQ(b.at("AT+CMGF=1"), "");
    EXPECT_EQ(b.at("AT+CMGF?"), "\r\n+CMGF: 1\r\n" + ok) << "carried out all the same";
}

TEST(faults, failing_commands)
{
    bench b(daemon_config());
    b.device.fault.failing = {{"AT+CMGF?", "+CMS ERROR: 500", 2}, {"+CMGR", "ERROR", for_ever}};
    EXPECT_EQ(b.at("AT+CMGF?"), "\r\n+CMS ERROR: 500\r\n");
    EXPECT_EQ(b.at("AT+CMGF=1"), ok) << "another form of it does not fail";
    EXPECT_EQ(b.at("AT+CMGF?"), "\r\n+CMS ERROR: 500\r\n");
    EXPECT_EQ(b.at("AT+CMGF?"), "\r\n+CMGF: 1\r\n" + ok);
    for (int i = 0; i < 5; i++)
        EXPECT_EQ(b.at("AT+CMGR=1"), "\r\nERROR\r\n");
    EXPECT_EQ(b.device.commands().back().result, "ERROR");
}

TEST(faults, failing_a_send_keeps_it_from_the_handset)
{
    bench b(daemon_config());
    b.device.fault.failing = {{"AT+DORVYSMS", "+CMS ERROR: 500", 1}};
    const std::string send = "AT+DORVYSMS=13,0491214365110105812143F500000802E834\x1A";
    EXPECT_EQ(b.at(send), "\r\n+CMS ERROR: 500\r\n");
    EXPECT_TRUE(b.device.phone.complete().empty());
    EXPECT_EQ(b.at(send), "\r\n+DORVYSMS: 1\r\n" + ok);
}

TEST(faults, answers_in_two_pieces)
{
    bench b(daemon_config());
    b.device.fault.split = true;
    b.device.fault.split_delay = milliseconds(70);
    const std::string whole = cmgf + ok;
    EXPECT_EQ(b.at("AT+CMGF?"), whole.substr(0, whole.size() / 2));
    b.pass(milliseconds(69));
    EXPECT_EQ(b.heard(), "");
    b.device.offer(message());
    b.pass(milliseconds(1));
    EXPECT_EQ(b.heard(), whole.substr(whole.size() / 2) + cmt) << "an indication waits for the second piece";
    b.device.fault.split_at = 3;
    EXPECT_EQ(b.at("AT"), ok.substr(0, 3));
    b.pass(milliseconds(70));
    EXPECT_EQ(b.heard(), ok.substr(3));
    b.device.fault.split_at = 1000;
    EXPECT_EQ(b.at("AT"), ok);
}

TEST(faults, answers_twice)
{
    bench b(daemon_config());
    b.device.fault.repeat = true;
    EXPECT_EQ(b.at("AT+CMGF?"), cmgf + ok + cmgf + ok);
}

TEST(faults, noise)
{
    bench b(daemon_config());
    b.device.fault.garble = 5;
    const std::string heard = b.at("AT+CMGF?");
    EXPECT_EQ(heard.size(), (cmgf + ok).size() + 5);
    std::string without;
    for (const char c : heard)
        if (static_cast<unsigned char>(c) < 0x80)
            without += c;
    EXPECT_EQ(without, cmgf + ok);
    b.device.fault.garble = 0;
    EXPECT_EQ(b.at("AT+CMGF?"), cmgf + ok);
}

TEST(faults, lines_at_awkward_moments)
{
    modem_config config = daemon_config();
    config.generic = true;
    bench b(config);
    auto &planned = b.device.fault.planned;
    planned.push_back({moment::in_answer, "^RSSI: 21", for_ever});
    planned.push_back({moment::before_answer, "RING", 1});
    planned.push_back({moment::after_prompt, "^BOOT", 2});
    EXPECT_EQ(b.at("AT+CMGF?"), "\r\nRING\r\n" + cmgf + rssi + ok);
    EXPECT_EQ(b.at("AT"), rssi + ok);
    EXPECT_EQ(b.at("AT+CMGS=13"), "\r\n> \r\n^BOOT\r\n");
    b.device.receive("\x1B");
    EXPECT_EQ(b.heard(), rssi + ok);
    b.at("AT+CMGS=13");
    b.device.receive("\x1B");
    b.heard();
    EXPECT_EQ(b.at("AT+CMGS=13"), "\r\n> ") << "used up";
}

TEST(faults, messages_in_the_middle_of_an_answer)
{
    bench b(daemon_config());
    b.device.fault.hold_messages = true;
    b.device.offer(message());
    b.device.offer(message(hellohello, route::stored));
    EXPECT_EQ(b.heard(), "");
    EXPECT_EQ(b.at("AT+CMGF?"), cmgf + cmt + "\r\n+CMTI: \"SM\",1\r\n" + ok);
    b.device.offer(message());
    b.device.fault.hold_messages = false;
    b.device.faults_changed();
    EXPECT_EQ(b.heard(), cmt);
}

TEST(faults, unasked_for_lines)
{
    bench b(daemon_config());
    EXPECT_TRUE(b.device.say("RING"));
    EXPECT_EQ(b.heard(), "\r\nRING\r\n");
    b.device.set_port_open(false);
    EXPECT_FALSE(b.device.say("RING"));
}

TEST(faults, a_restart_drops_what_was_under_way)
{
    modem_config config = daemon_config();
    config.delay = milliseconds(300);
    bench b(config);
    b.at("AT+CMGF?");
    b.device.restart();
    EXPECT_EQ(b.heard(), "\r\n^BOOT:0\r\n");
    b.pass(milliseconds(1000));
    EXPECT_EQ(b.heard(), "");
    b.at("AT");
    b.pass(milliseconds(300));
    EXPECT_EQ(b.heard(), ok);
}

TEST(faults, commands_are_logged_with_their_time)
{
    bench b(daemon_config());
    const auto start = b.timers.elapsed();
    b.at("AT+CMGF?");
    b.pass(milliseconds(1500));
    b.at("AT+NOSUCH");
    ASSERT_EQ(b.device.commands().size(), 2u);
    EXPECT_EQ(b.device.commands()[0].at, start);
    EXPECT_EQ(b.device.commands()[1].at - b.device.commands()[0].at, milliseconds(1500));
    EXPECT_EQ(b.device.commands()[1].text, "AT+NOSUCH");
    EXPECT_EQ(b.device.commands()[1].result, "ERROR");
    b.device.clear_commands();
    EXPECT_TRUE(b.device.commands().empty());
}

TEST(timers, run_in_order_and_can_be_cancelled)
{
    timer_queue::clock::time_point now{};
    timer_queue timers([&now] { return now; });
    std::string order;
    timers.after(milliseconds(2), [&] { order += 'b'; });
    timers.after(milliseconds(1), [&] {
        order += 'a';
        timers.after(milliseconds(0), [&] { order += 'x'; });
    });
    const auto gone = timers.after(milliseconds(1), [&] { order += '!'; });
    timers.after(milliseconds(2), [&] { order += 'c'; });
    timers.cancel(gone);
    timers.run_due();
    EXPECT_EQ(order, "");
    now += milliseconds(1);
    timers.run_due();
    EXPECT_EQ(order, "ax");
    now += milliseconds(5);
    timers.run_due();
    EXPECT_EQ(order, "axbc");
    EXPECT_FALSE(timers.next());
}

} // namespace
} // namespace sim
