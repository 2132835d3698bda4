/* The control commands, each run as the control socket runs it. */
#include <gtest/gtest.h>

#include "bench.h"
#include "control_commands.h"

namespace sim
{
namespace
{

/* A whole simulator without a terminal: what goes to the port is kept. */
struct stage {
    explicit stage(const modem_config &config = daemon_config()) : sim(loop, config, "/nonexistent/port")
    {
        sim.device.write = [this](std::string_view bytes) { out += bytes; };
        sim.device.set_port_open(true);
        sim.device.receive("AT\r");
        out.clear();
        sim.device.clear_commands();
    }

    std::string ask(json request)
    {
        const control_command *command = find_control(request.at("command").get<std::string>());
        EXPECT_NE(command, nullptr) << request.dump();
        return command->run(sim, request);
    }

    json ask_json(json request)
    {
        request["json"] = true;
        return json::parse(ask(std::move(request)));
    }

    /* What makes the command fail. */
    std::string refusal(const json &request)
    {
        try {
            return "accepted: " + ask(request);
        } catch (const std::exception &reason) {
            return reason.what();
        }
    }

    bool ready(const json &request)
    {
        return find_control(request.at("command").get<std::string>())->ready(sim, request);
    }

    std::string heard() { return std::exchange(out, std::string()); }

    event_loop loop;
    simulator sim;
    std::string out;
};

const std::string four_hundred = std::string(400, 'a');

TEST(handset_control, sends_a_text)
{
    stage s;
    EXPECT_EQ(s.ask({{"command", "handset send"}, {"text", "hi"}, {"date", "2024-03-05 14:07:00"}}),
              "1 part, gsm7, delivered\n");
    EXPECT_EQ(s.heard(), "\r\n+CMT: ,21\r\n"
                         "07911326040000F0"
                         "04"
                         "0B911386674523F1"
                         "0000"
                         "42305041700000"
                         "02"
                         "E834"
                         "\r\n");
}

TEST(handset_control, says_what_waits)
{
    stage s;
    s.sim.device.set_registered(false);
    EXPECT_EQ(s.ask({{"command", "handset send"}, {"text", "hi"}}), "1 part, gsm7, waiting: 1\n");
    EXPECT_EQ(s.ask({{"command", "handset send"}, {"text", four_hundred}}), "3 parts, gsm7, waiting: 4\n");
    s.ask({{"command", "modem forget"}});
    EXPECT_TRUE(s.sim.device.waiting().empty());
}

/* The part numbers of the PDUs, out of the header in front of the text. */
std::vector<int> sequence_of(const json &answer)
{
    std::vector<int> out;
    for (const json &pdu : answer["pdus"]) {
        const std::string hex = pdu;
        const size_t header = hex.find("050003");
        out.push_back(std::stoi(hex.substr(header + 10, 2), nullptr, 16));
    }
    return out;
}

TEST(handset_control, parts_in_any_order_twice_or_left_out)
{
    stage s;
    const json base{{"command", "handset send"}, {"text", four_hundred}};
    const auto with = [&](const char *key, const json &value) {
        json request = base;
        request[key] = value;
        return request;
    };
    EXPECT_EQ(sequence_of(s.ask_json(base)), (std::vector{1, 2, 3}));
    EXPECT_EQ(sequence_of(s.ask_json(with("order", {3, 1, 2}))), (std::vector{3, 1, 2}));
    EXPECT_EQ(sequence_of(s.ask_json(with("order", {2}))), (std::vector{2}));
    EXPECT_EQ(sequence_of(s.ask_json(with("twice", 2))), (std::vector{1, 2, 2, 3}));
    EXPECT_EQ(sequence_of(s.ask_json(with("without", 1))), (std::vector{2, 3}));
    EXPECT_EQ(s.refusal(with("without", 4)), "there are parts 1 to 3 only");
    EXPECT_EQ(s.refusal(with("twice", 4)), "there are parts 1 to 3 only");
    EXPECT_EQ(s.refusal(with("order", {0})), "there are parts 1 to 3 only");
    EXPECT_EQ(s.refusal(with("order", {"x"})), "there are parts 1 to 3 only");
}

TEST(handset_control, references_are_counted_or_given)
{
    stage s;
    json request{{"command", "handset send"}, {"text", four_hundred}};
    EXPECT_EQ(s.ask_json(request)["reference"], 1);
    EXPECT_EQ(s.ask_json(request)["reference"], 2);
    request["reference"] = 200;
    EXPECT_EQ(s.ask_json(request)["reference"], 200);
    request["reference"] = 256;
    EXPECT_EQ(s.refusal(request), "reference is a number from 0 to 255");
    request["ref16"] = true;
    const json wide = s.ask_json(request);
    EXPECT_NE(wide["pdus"][0].get<std::string>().find("06080401000301"), std::string::npos);
    EXPECT_TRUE(s.ask_json({{"command", "handset send"}, {"text", "short"}})["reference"].is_null());
}

TEST(handset_control, one_part_and_a_raw_pdu)
{
    stage s;
    const json part = s.ask_json({{"command", "handset part"},
                                  {"reference", 42},
                                  {"total", 2},
                                  {"sequence", 1},
                                  {"text", "hi"},
                                  {"from", "12"},
                                  {"date", "2024-03-05 14:07:00"}});
    EXPECT_EQ(part["pdus"][0], "07911326040000F0"
                               "44"
                               "028121"
                               "0000"
                               "42305041700000"
                               "09"
                               "0500032A0201"
                               "D069");
    s.heard();
    EXPECT_EQ(s.ask({{"command", "handset raw"}, {"pdu", "0011"}}), "delivered\n");
    EXPECT_EQ(s.heard(), "\r\n+CMT: ,1\r\n0011\r\n");
    EXPECT_EQ(s.refusal({{"command", "handset raw"}, {"pdu", "001"}}), "a PDU is an even number of hex digits");
    EXPECT_EQ(s.refusal({{"command", "handset raw"}}), "a PDU is an even number of hex digits");
    EXPECT_EQ(s.refusal({{"command", "handset part"}, {"total", 300}}), "total is a number from 0 to 255");
    EXPECT_EQ(s.refusal({{"command", "handset part"}, {"text", four_hundred}}), "the text is too long for one part");
}

TEST(handset_control, refuses_what_cannot_be)
{
    stage s;
    const auto refusal = [&s](const char *key, const json &value) {
        json request{{"command", "handset send"}, {"text", "ğ"}};
        request[key] = value;
        return s.refusal(request);
    };
    EXPECT_EQ(refusal("alphabet", "morse"), "alphabet is auto, gsm7, turkish, ucs2 or 8bit: morse");
    EXPECT_EQ(refusal("alphabet", "gsm7"), "the text has a character that is not in this alphabet");
    EXPECT_EQ(refusal("via", "pigeon"), "via is auto, cmt or cmti: pigeon");
    EXPECT_EQ(refusal("class", 4), "class is a number from 0 to 3");
    EXPECT_EQ(refusal("class", "1"), "class is a number from 0 to 3");
    EXPECT_EQ(refusal("zone", 80), "zone is a number from -79 to 79");
    EXPECT_EQ(refusal("type", "secret"), "no such type of number: secret");
    EXPECT_EQ(refusal("from", 3), "from is a text");
    EXPECT_EQ(refusal("from", "a name too long"), "a name has 1 to 11 characters: a name too long");
    EXPECT_EQ(refusal("octets", "0"), "octets are an even number of hex digits");
    EXPECT_EQ(refusal("json", 1), "json is true or false");
    EXPECT_EQ(s.heard(), "") << "nothing of all that was sent";
}

std::string submit_line(const std::string &tpdu_hex)
{
    return "AT+DORVYSMS=" + std::to_string(tpdu_hex.size() / 2) + ",00" + tpdu_hex + "\x1A\r";
}

TEST(handset_control, shows_what_the_router_sent)
{
    stage s;
    s.sim.device.receive(submit_line("1107"
                                     "05812143F5"
                                     "000008"
                                     "02"
                                     "E834"));
    s.sim.device.receive(submit_line("5108"
                                     "04812143"
                                     "000808"
                                     "08"
                                     "0500032A0201"
                                     "D83D"));
    const json list = s.ask_json({{"command", "handset inbox"}});
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0]["from"], "+31612345678");
    EXPECT_EQ(list[0]["to"], "12345");
    EXPECT_EQ(list[0]["text"], "hi");
    EXPECT_EQ(list[0]["dcs"], 0);
    EXPECT_EQ(list[0]["parts"].size(), 1u);
    EXPECT_EQ(list[0]["parts"][0]["reference"], 7);
    EXPECT_EQ(list[0]["parts"][0]["validity"], "45 minutes");
    EXPECT_NE(s.ask({{"command", "handset inbox"}}).find("+31612345678 -> 12345  1/1 gsm7  hi\n"), std::string::npos);

    const json all = s.ask_json({{"command", "handset inbox"}, {"partial", true}});
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[1]["complete"], false);
    EXPECT_EQ(all[1]["text"], "\uFFFD");
    EXPECT_EQ(all[1]["codes"], "D83D");
    EXPECT_EQ(all[1]["reference"], 42);

    EXPECT_TRUE(s.ready({{"command", "handset inbox"}, {"wait", 1}}));
    EXPECT_FALSE(s.ready({{"command", "handset inbox"}, {"wait", 2}}));
    s.sim.device.receive(submit_line("5109"
                                     "04812143"
                                     "000808"
                                     "08"
                                     "0500032A0202"
                                     "DE00"));
    EXPECT_TRUE(s.ready({{"command", "handset inbox"}, {"wait", 2}}));
    EXPECT_EQ(s.ask_json({{"command", "handset inbox"}})[1]["text"], "😀");
    s.ask({{"command", "handset clear"}});
    EXPECT_EQ(s.ask_json({{"command", "handset inbox"}}), json::array());
}

TEST(modem_control, switches_reach_the_modem)
{
    stage s;
    const modem &device = s.sim.device;
    s.ask({{"command", "modem registered"}, {"on", false}});
    s.ask({{"command", "modem sim"}, {"in", false}});
    s.ask({{"command", "modem silent"}, {"on", true}});
    s.ask({{"command", "modem delay"}, {"ms", 1234}});
    s.ask({{"command", "modem garble"}});
    s.ask({{"command", "modem split"}, {"on", true}, {"at", 7}, {"ms", 9}});
    s.ask({{"command", "modem repeat"}, {"on", true}});
    s.ask({{"command", "modem interleave"}, {"on", true}, {"text", "RING"}});
    s.ask({{"command", "modem swallow"}, {"count", 3}});
    s.ask({{"command", "modem swallow"}, {"count", 4}, {"executed", true}});
    s.ask({{"command", "modem fail"}, {"prefix", "+CMGR"}, {"error", 500}, {"times", 2}});
    EXPECT_FALSE(device.state.registered);
    EXPECT_FALSE(device.state.sim_inserted);
    EXPECT_TRUE(device.fault.silent);
    EXPECT_EQ(device.state.config.delay.count(), 1234);
    EXPECT_EQ(device.fault.garble, 4);
    EXPECT_TRUE(device.fault.split);
    EXPECT_EQ(device.fault.split_at, 7u);
    EXPECT_EQ(device.fault.split_delay.count(), 9);
    EXPECT_TRUE(device.fault.repeat);
    ASSERT_EQ(device.fault.planned.size(), 1u);
    EXPECT_EQ(device.fault.planned[0].text, "RING");
    EXPECT_EQ(device.fault.planned[0].times, for_ever);
    EXPECT_EQ(device.fault.swallow, 3);
    EXPECT_EQ(device.fault.lose, 4);
    ASSERT_EQ(device.fault.failing.size(), 1u);
    EXPECT_EQ(device.fault.failing[0].result, "+CMS ERROR: 500");
    EXPECT_EQ(device.fault.failing[0].times, 2);

    s.ask({{"command", "modem interleave"}, {"on", false}});
    s.ask({{"command", "modem split"}, {"on", false}});
    s.ask({{"command", "modem garble"}, {"bytes", 0}});
    s.ask({{"command", "modem fail"}, {"clear", true}});
    EXPECT_TRUE(device.fault.planned.empty());
    EXPECT_FALSE(device.fault.split);
    EXPECT_EQ(device.fault.garble, 0);
    EXPECT_TRUE(device.fault.failing.empty());
}

TEST(modem_control, kinds_of_failure)
{
    stage s;
    s.ask({{"command", "modem fail"}, {"prefix", "A"}});
    s.ask({{"command", "modem fail"}, {"prefix", "B"}, {"error", 10}, {"cme", true}});
    s.ask({{"command", "modem fail"}, {"prefix", "C"}, {"times", 0}});
    const auto &failing = s.sim.device.fault.failing;
    ASSERT_EQ(failing.size(), 2u);
    EXPECT_EQ(failing[0].result, "ERROR");
    EXPECT_EQ(failing[1].result, "+CME ERROR: 10");
    EXPECT_EQ(s.refusal({{"command", "modem fail"}}), "the beginning of a command is needed");
    s.ask({{"command", "modem fail"}, {"prefix", "A"}, {"clear", true}});
    ASSERT_EQ(failing.size(), 1u);
    EXPECT_EQ(failing[0].prefix, "B");
}

TEST(modem_control, unasked_for_lines)
{
    stage s;
    s.ask({{"command", "modem urc"}, {"text", "RING"}, {"times", 2}});
    EXPECT_EQ(s.heard(), "\r\nRING\r\n\r\nRING\r\n");
    s.ask({{"command", "modem urc"}, {"text", "^BOOT"}, {"moment", "before"}});
    s.ask({{"command", "modem urc"}, {"text", "RING"}, {"moment", "answer"}});
    s.sim.device.receive("AT\r");
    EXPECT_EQ(s.heard(), "\r\n^BOOT\r\n\r\nRING\r\n\r\nOK\r\n");
    EXPECT_EQ(s.refusal({{"command", "modem urc"}, {"text", "x"}, {"moment", "never"}}),
              "moment is now, before, answer or prompt: never");
    s.sim.device.set_port_open(false);
    EXPECT_EQ(s.refusal({{"command", "modem urc"}, {"text", "x"}}),
              "nobody holds the port, or the modem is silent or in the middle of a prompt");
}

TEST(modem_control, fills_the_sim)
{
    stage s;
    EXPECT_EQ(s.ask({{"command", "modem fill"}, {"count", 2}, {"with", "hi"}}), "2 of 5\n");
    EXPECT_EQ(s.refusal({{"command", "modem fill"}, {"count", 4}}), "there is room for 3 only");
    EXPECT_EQ(s.refusal({{"command", "modem fill"}, {"with", four_hundred}}), "the text is too long for one message");
    EXPECT_EQ(s.ask({{"command", "modem fill"}}), "5 of 5\n");
    EXPECT_EQ(s.heard(), "") << "nothing is said about it";
    const json shown = s.ask_json({{"command", "modem storage"}});
    EXPECT_EQ(shown["used"], 5);
    EXPECT_EQ(shown["capacity"], 5);
    EXPECT_EQ(shown["messages"][0]["index"], 1);
    EXPECT_EQ(shown["messages"][0]["state"], "unread");
    EXPECT_EQ(shown["messages"][0]["note"], "+31687654321: hi");
    EXPECT_TRUE(shown["messages"][0]["pdu"].get<std::string>().ends_with("02E834"));
    EXPECT_TRUE(s.ready({{"command", "modem storage"}, {"wait", 5}}));
    EXPECT_FALSE(s.ready({{"command", "modem storage"}, {"wait", 4}}));
    EXPECT_EQ(s.ask({{"command", "modem storage"}, {"memory", "ME"}}), "0 of 50\n");
    EXPECT_EQ(s.refusal({{"command", "modem storage"}, {"memory", "XX"}}), "memory is SM or ME");
}

TEST(modem_control, lists_the_commands)
{
    stage s;
    s.sim.device.receive("AT+CMGF?\rAT+NOSUCH\rAT+\xFF\x1A\r");
    const json list = s.ask_json({{"command", "modem commands"}});
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(list[0]["command"], "AT+CMGF?");
    EXPECT_EQ(list[0]["result"], "OK");
    EXPECT_EQ(list[1]["result"], "ERROR");
    EXPECT_EQ(list[2]["command"], "AT+\uFFFD\x1A");
    const std::string text = s.ask({{"command", "modem commands"}, {"prefix", "AT+\xFF"}});
    EXPECT_EQ(text.substr(text.find(' ')), " AT+\\xFF\\x1A\n");
    EXPECT_TRUE(s.ready({{"command", "modem commands"}, {"prefix", "AT+NO"}, {"wait", 1}}));
    EXPECT_FALSE(s.ready({{"command", "modem commands"}, {"prefix", "AT+NO"}, {"wait", 2}}));
    s.ask({{"command", "modem commands"}, {"clear", true}});
    EXPECT_EQ(s.ask({{"command", "modem commands"}}), "");
}

TEST(modem_control, shows_its_status)
{
    stage s;
    const json status = s.ask_json({{"command", "modem status"}});
    EXPECT_EQ(status["cmgf"], 0);
    EXPECT_EQ(status["cnmi"], "3,2,0,0,0");
    EXPECT_EQ(status["open"], true);
    EXPECT_EQ(status["plugged"], false);
    EXPECT_EQ(status["storage"]["SM"]["capacity"], 5);
    EXPECT_NE(s.ask({{"command", "modem status"}}).find("cnmi: 3,2,0,0,0\n"), std::string::npos);
    EXPECT_TRUE(s.ready({{"command", "modem status"}, {"wait", {{"open", true}, {"cmgf", 0}}}}));
    EXPECT_FALSE(s.ready({{"command", "modem status"}, {"wait", {{"open", false}}}}));
    EXPECT_THROW(s.ready({{"command", "modem status"}, {"wait", {{"colour", 1}}}}), control_error);
    EXPECT_THROW(s.ready({{"command", "modem status"}, {"wait", 3}}), control_error);
    s.ask({{"command", "modem restart"}});
    EXPECT_EQ(s.heard(), "\r\n^BOOT:0\r\n");
}

TEST(control, names)
{
    EXPECT_EQ(find_control("modem explode"), nullptr);
    EXPECT_EQ(find_control(""), nullptr);
}

} // namespace
} // namespace sim
