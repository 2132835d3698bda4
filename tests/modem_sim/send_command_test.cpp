/* The two ways of sending: the vendor's command, and 27.005's with its prompt. */
#include <gtest/gtest.h>

#include "bench.h"

namespace sim
{
namespace
{

const std::string pdu = "0491214365"
                        "1107"
                        "05812143F5"
                        "000008"
                        "02"
                        "E834";

std::string send(const std::string &length, const std::string &hex)
{
    return "AT+DORVYSMS=" + length + "," + hex + "\x1A";
}

TEST(vendor_send, a_message_reaches_the_handset)
{
    bench b(daemon_config());
    EXPECT_EQ(b.at(send("13", pdu)), line("+DORVYSMS: 7") + ok);
    ASSERT_EQ(b.device.phone.complete().size(), 1u);
    const received_message &got = b.device.phone.complete()[0];
    EXPECT_EQ(text_of(got), "hi");
    EXPECT_EQ(got.to, "12345");
    EXPECT_EQ(got.first().service_centre, "+123456");
    EXPECT_EQ(got.parts[0].pdu, pdu);
}

TEST(vendor_send, a_pdu_without_service_centre_takes_the_modems)
{
    bench b(daemon_config());
    EXPECT_EQ(b.at(send("13", "00" + pdu.substr(10))), line("+DORVYSMS: 7") + ok);
    EXPECT_EQ(b.at(send("13", "0181" + pdu.substr(10))), line("+DORVYSMS: 7") + ok);
    for (const received_message &got : b.device.phone.complete())
        EXPECT_EQ(got.first().service_centre, "+31624000000");
    b.device.state.service_centre.clear();
    EXPECT_EQ(b.at(send("13", "00" + pdu.substr(10))), line("+CMS ERROR: 330"));
    EXPECT_EQ(b.at(send("13", pdu)), line("+DORVYSMS: 7") + ok);
}

TEST(vendor_send, refusals_are_told)
{
    const std::string malformed = line("+CMS ERROR: 304");
    bench b(daemon_config());
    EXPECT_EQ(b.at(send("12", pdu)), malformed);
    EXPECT_EQ(b.device.last_refusal(), "the command says 12 octets, but 13 are there");
    EXPECT_EQ(b.at(send("14", pdu)), malformed);
    EXPECT_EQ(b.at(send("13", pdu + "0")), malformed);
    EXPECT_EQ(b.device.last_refusal(), "not an even number of hex digits");
    EXPECT_EQ(b.at(send("13", pdu.substr(0, 20) + "x" + pdu.substr(21))), malformed);
    EXPECT_EQ(b.at(send("0", "")), malformed);
    EXPECT_EQ(b.at(send("", pdu)), malformed);
    EXPECT_EQ(b.at(send("-13", pdu)), malformed);
    EXPECT_EQ(b.at("AT+DORVYSMS=13," + pdu), malformed) << "no Ctrl-Z";
    EXPECT_EQ(b.at("AT+DORVYSMS=13," + pdu +
                   "\x1A"
                   "0"),
              malformed)
        << "something behind Ctrl-Z";
    EXPECT_EQ(b.at("AT+DORVYSMS=13\x1A"), malformed);
    EXPECT_EQ(b.at("AT+DORVYSMS="), malformed);
    EXPECT_TRUE(b.device.phone.complete().empty());
    b.device.set_registered(false);
    EXPECT_EQ(b.at(send("13", pdu)), line("+CMS ERROR: 331"));
    b.device.set_registered(true);
    b.device.set_sim(false);
    EXPECT_EQ(b.at(send("13", pdu)), line("+CMS ERROR: 310"));
    b.device.set_sim(true);
    b.at("AT+CMGF=1");
    EXPECT_EQ(b.at(send("13", pdu)), line("+CMS ERROR: 305"));
    EXPECT_TRUE(b.device.phone.complete().empty());
}

TEST(vendor_send, the_longest_message_fits_the_line)
{
    bench b(daemon_config());
    const std::string longest = "0791130426000000"
                                "5101"
                                "14"
                                "91"
                                "21436587092143658709"
                                "000008"
                                "A0"
                                "0500032A0201";
    const std::string whole = longest + std::string((140 - 6) * 2, '0');
    EXPECT_EQ(b.at(send("158", whole)), line("+DORVYSMS: 1") + ok);
    EXPECT_EQ(b.device.phone.partial().size(), 1u);
}

modem_config generic_config()
{
    modem_config config = daemon_config();
    config.generic = true;
    return config;
}

TEST(generic_send, the_prompt_asks_for_the_pdu)
{
    bench b(generic_config());
    EXPECT_EQ(b.at("AT+CMGS=13"), "\r\n> ");
    b.device.receive(pdu);
    EXPECT_EQ(b.heard(), "");
    b.device.receive("\x1A");
    EXPECT_EQ(b.heard(), line("+CMGS: 7") + ok);
    ASSERT_EQ(b.device.phone.complete().size(), 1u);
    EXPECT_EQ(text_of(b.device.phone.complete()[0]), "hi");
    EXPECT_EQ(b.at("AT"), ok);
}

TEST(generic_send, the_vendors_command_is_unknown)
{
    bench b(generic_config());
    EXPECT_EQ(b.at(send("13", pdu)), line("ERROR"));
}

TEST(generic_send, escape_gives_up)
{
    bench b(generic_config());
    EXPECT_EQ(b.at("AT+CMGS=13"), "\r\n> ");
    b.device.receive(pdu + "\x1B");
    EXPECT_EQ(b.heard(), ok);
    EXPECT_TRUE(b.device.phone.complete().empty());
    EXPECT_EQ(b.at("AT"), ok);
}

TEST(generic_send, line_ends_within_the_pdu_do_not_count)
{
    bench b(generic_config());
    b.at("AT+CMGS=13");
    b.device.receive(pdu.substr(0, 10) + "\r\n" + pdu.substr(10) + "\r\x1A");
    EXPECT_EQ(b.heard(), line("+CMGS: 7") + ok);
}

TEST(generic_send, what_comes_before_the_prompt_is_the_pdu_all_the_same)
{
    bench b(generic_config());
    b.device.receive("AT+CMGS=13\r" + pdu +
                     "\x1A"
                     "AT\r");
    EXPECT_EQ(b.heard(), "\r\n> " + line("+CMGS: 7") + ok + ok);
}

TEST(generic_send, refusals_are_told)
{
    bench b(generic_config());
    EXPECT_EQ(b.at("AT+CMGS"), line("ERROR"));
    EXPECT_EQ(b.at("AT+CMGS=\"+31612345678\""), line("+CMS ERROR: 304"));
    b.at("AT+CMGS=12");
    b.device.receive(pdu + "\x1A");
    EXPECT_EQ(b.heard(), line("+CMS ERROR: 304"));
    b.at("AT+CMGS=13");
    b.device.receive(std::string(10000, '0') + "\x1A");
    EXPECT_EQ(b.heard(), line("ERROR"));
    b.at("AT+CMGF=1");
    EXPECT_EQ(b.at("AT+CMGS=13"), line("+CMS ERROR: 303"));
}

TEST(generic_send, the_pdu_is_echoed_while_echo_is_on)
{
    modem_config config = generic_config();
    config.power_up.echo = true;
    bench b(config);
    EXPECT_EQ(b.at("AT+CMGS=13"), "AT+CMGS=13\r\r\n> ");
    b.device.receive(pdu + "\x1A");
    EXPECT_EQ(b.heard(), pdu + "\x1A" + line("+CMGS: 7") + ok);
}

} // namespace
} // namespace sim
