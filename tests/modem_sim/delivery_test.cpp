/* From the service centre to the router: as +CNMI says, and when it can be. */
#include <gtest/gtest.h>

#include "bench.h"

namespace sim
{
namespace
{

std::string cmti(int index, const char *memory = "SM")
{
    return "\r\n+CMTI: \"" + std::string(memory) + "\"," + std::to_string(index) + "\r\n";
}

modem_config with_indications(int mode, int mt)
{
    modem_config config = daemon_config();
    config.power_up.indications = {mode, mt, 0, 0, 0};
    return config;
}

TEST(delivery, directly)
{
    bench b(daemon_config());
    b.device.offer(message());
    EXPECT_EQ(b.heard(), cmt);
    EXPECT_EQ(b.device.state.sim.used(), 0u);
    EXPECT_TRUE(b.device.waiting().empty());
}

TEST(delivery, stored_with_an_indication)
{
    bench b(with_indications(2, 1));
    b.device.offer(message());
    b.device.offer(message());
    EXPECT_EQ(b.heard(), cmti(1) + cmti(2));
    EXPECT_EQ(b.at("AT+CMGR=2"), "\r\n+CMGR: 0,,28\r\n" + std::string(hellohello) + "\r\n\r\nOK\r\n");
}

TEST(delivery, stored_without_a_word)
{
    bench b(with_indications(3, 0));
    b.device.offer(message());
    EXPECT_EQ(b.heard(), "");
    EXPECT_EQ(b.device.state.sim.used(), 1u);
}

TEST(delivery, into_the_storage_that_is_set)
{
    modem_config config = with_indications(2, 1);
    config.power_up.memories[memory_receive] = "ME";
    bench b(config);
    b.device.offer(message());
    EXPECT_EQ(b.heard(), cmti(1, "ME"));
    EXPECT_EQ(b.device.state.equipment.used(), 1u);
}

TEST(delivery, by_storage_when_asked_for)
{
    bench b(daemon_config());
    b.device.offer(message(hellohello, route::stored));
    EXPECT_EQ(b.heard(), cmti(1));
}

struct class_case {
    int mt;
    std::optional<unsigned> message_class;
    bool direct;
};

const class_case class_cases[] = {
    {2, std::nullopt, true}, {2, 0, true},  {2, 1, true},  {2, 2, false}, {2, 3, true},  {3, std::nullopt, false},
    {3, 0, false},           {3, 1, false}, {3, 2, false}, {3, 3, true},  {1, 3, false},
};

TEST(delivery, the_class_decides_too)
{
    for (const class_case &c : class_cases) {
        bench b(with_indications(2, c.mt));
        waiting_message m = message();
        m.message_class = c.message_class;
        b.device.offer(m);
        EXPECT_EQ(b.heard(), c.direct ? cmt : cmti(1)) << c.mt;
    }
}

TEST(delivery, direct_only_waits_for_the_setting)
{
    bench b(with_indications(0, 0));
    b.device.offer(message(hellohello, route::direct));
    EXPECT_EQ(b.device.waiting().size(), 1u);
    EXPECT_EQ(b.at("AT+CNMI=3,1"), ok);
    EXPECT_EQ(b.at("AT+CNMI=3,2"), ok + cmt);
    EXPECT_TRUE(b.device.waiting().empty());
}

TEST(delivery, directly_needs_pdu_mode)
{
    bench b(daemon_config());
    b.at("AT+CMGF=1");
    b.device.offer(message());
    EXPECT_EQ(b.heard(), "");
    EXPECT_EQ(b.at("AT+CMGF=0"), ok + cmt);
}

TEST(delivery, mode_0_keeps_indications)
{
    bench b(with_indications(0, 1));
    b.device.offer(message());
    EXPECT_EQ(b.heard(), "");
    EXPECT_EQ(b.device.state.sim.used(), 1u);
    EXPECT_EQ(b.at("AT+CNMI=2"), ok + cmti(1));

    bench dropped(with_indications(0, 1));
    dropped.device.offer(message());
    EXPECT_EQ(dropped.at("AT+CNMI=2,1,0,0,1"), ok) << "bfr 1 throws them away";
}

TEST(delivery, a_full_storage_keeps_them_waiting)
{
    bench b(with_indications(2, 1));
    for (int i = 0; i < 7; i++)
        b.device.offer(message());
    EXPECT_EQ(b.heard(), cmti(1) + cmti(2) + cmti(3) + cmti(4) + cmti(5));
    EXPECT_EQ(b.device.waiting().size(), 2u);
    EXPECT_EQ(b.at("AT+CPMS?"), "\r\n+CPMS: \"SM\",5,5,\"SM\",5,5,\"SM\",5,5\r\n" + ok);
    EXPECT_EQ(b.at("AT+CMGD=3"), ok + cmti(3));
    EXPECT_EQ(b.at("AT+CMGD=1,4"), ok + cmti(1));
    EXPECT_TRUE(b.device.waiting().empty());
}

TEST(delivery, a_full_storage_does_not_stop_direct_ones)
{
    bench b(daemon_config());
    for (int i = 0; i < 6; i++)
        b.device.offer(message(hellohello, route::stored));
    b.heard();
    b.device.offer(message());
    EXPECT_EQ(b.heard(), cmt);
    EXPECT_EQ(b.device.waiting().size(), 1u);
}

TEST(delivery, waits_for_the_network_and_the_sim)
{
    bench b(daemon_config());
    b.device.set_registered(false);
    b.device.offer(message());
    EXPECT_EQ(b.heard(), "");
    b.device.set_registered(true);
    EXPECT_EQ(b.heard(), cmt);
    b.device.set_sim(false);
    b.device.offer(message());
    EXPECT_EQ(b.heard(), "");
    b.device.set_sim(true);
    EXPECT_EQ(b.heard(), cmt);
}

TEST(delivery, waits_while_nobody_holds_the_port)
{
    bench b(daemon_config());
    b.device.set_port_open(false);
    b.device.offer(message());
    b.device.offer(message(hellohello, route::stored));
    EXPECT_EQ(b.device.waiting().size(), 1u);
    EXPECT_EQ(b.device.state.sim.used(), 1u);
    b.device.set_port_open(true);
    EXPECT_EQ(b.heard(), "") << "the new owner may still be throwing away old bytes";
    EXPECT_EQ(b.at("AT"), ok + cmti(1) + cmt);

    b.device.set_port_open(false);
    b.device.offer(message());
    b.device.set_port_open(true);
    b.pass(std::chrono::milliseconds(999));
    EXPECT_EQ(b.heard(), "");
    b.pass(std::chrono::milliseconds(1));
    EXPECT_EQ(b.heard(), cmt) << "an owner who only listens gets it as well";
}

TEST(delivery, nothing_comes_between_a_prompt_and_its_text)
{
    modem_config config = daemon_config();
    config.generic = true;
    bench b(config);
    EXPECT_EQ(b.at("AT+CMGS=13"), "\r\n> ");
    b.device.offer(message());
    EXPECT_EQ(b.heard(), "");
    b.device.receive("\x1B");
    EXPECT_EQ(b.heard(), ok + cmt);
}

TEST(delivery, keeps_the_order)
{
    bench b(daemon_config());
    b.device.set_registered(false);
    const std::string other = "07912143658709F1040B918100551512F200001110102143650002E834";
    b.device.offer(message());
    b.device.offer(message(other.c_str()));
    b.device.set_registered(true);
    EXPECT_EQ(b.heard(), cmt + "\r\n+CMT: ,21\r\n" + other + "\r\n");
}

TEST(delivery, restart_forgets_settings_but_no_message)
{
    bench b(daemon_config());
    b.device.state.config.power_up.format = 1;
    b.device.state.config.power_up.indications = {};
    b.device.offer(message(hellohello, route::stored));
    b.at("AT+CSCS=\"IRA\"");
    b.heard();
    b.device.restart();
    EXPECT_EQ(b.heard(), "\r\n^BOOT:0\r\n");
    EXPECT_EQ(b.at("AT+CMGF?;+CNMI?;+CSCS?"), "\r\n+CMGF: 1\r\n\r\n+CNMI: 0,0,0,0,0\r\n\r\n+CSCS: \"GSM\"\r\n" + ok);
    EXPECT_EQ(b.device.state.sim.used(), 1u);
}

} // namespace
} // namespace sim
