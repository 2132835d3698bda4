/* Which commands are put into other words, and which are not. */
#include <gtest/gtest.h>

#include "translate.h"

using namespace at_owner;

namespace
{

constexpr const char *vendor = "AT+DORVYSMS=13,0491214365\x1A\r";

TEST(Translate, NothingUnlessAsked)
{
    for (const char *command : {vendor, "AT+CNMI=3,2,0,0,0\r", "AT+CMGF?\r"}) {
        const auto ways = translate({}, command);
        ASSERT_EQ(ways.size(), 1u);
        EXPECT_EQ(ways[0].command, command);
        EXPECT_EQ(ways[0].data, "");
    }
}

TEST(Translate, Send)
{
    const auto ways = translate({.send = true}, vendor);
    ASSERT_EQ(ways.size(), 1u);
    EXPECT_EQ(ways[0].command, "AT+CMGS=13\r");
    EXPECT_EQ(ways[0].data, "0491214365\x1A");
}

TEST(Translate, WhatIsNoSendStaysAsItIs)
{
    for (const char *command :
         {"AT+DORVYSMS=13,0491\r", "AT+DORVYSMS=,0491\x1A\r", "AT+DORVYSMS=1x,0491\x1A\r", "AT+DORVYSMS=13\x1A\r",
          "AT+DORVYSMS=13,04\x1A"
          "91\x1A\r",
          "AT+DORVYSMS=?\r", "AT+CMGF?\r"}) {
        const auto ways = translate({.send = true}, command);
        ASSERT_EQ(ways.size(), 1u) << command;
        EXPECT_EQ(ways[0].command, command);
        EXPECT_EQ(ways[0].data, "");
    }
}

TEST(Translate, Routing)
{
    const auto stored = translate({.messages = routing::store_first}, "AT+CNMI=3,2,0,0,0\r");
    ASSERT_GE(stored.size(), 2u);
    for (const exchange &way : stored)
        EXPECT_EQ(way.command.substr(9, 2), ",1") << way.command;
    const auto direct = translate({.messages = routing::direct}, "AT+CNMI=3,2,0,0,0\r");
    ASSERT_GE(direct.size(), 2u);
    EXPECT_EQ(direct[0].command, "AT+CNMI=3,2,0,0,0\r");
    for (const exchange &way : direct)
        EXPECT_EQ(way.command.substr(9, 2), ",2") << way.command;
    EXPECT_EQ(translate({.messages = routing::direct}, "AT+CNMI?\r").size(), 1u);
}

} // namespace
