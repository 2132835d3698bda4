/* What answers about SIM and network mean. */
#include <gtest/gtest.h>

#include "device_watch.h"

using namespace at_owner;

namespace
{

TEST(RegisteredNetwork, Answers)
{
    struct {
        const char *answer, *network;
    } cases[] = {
        {"\r\n+CREG: 0,1\r\n\r\nOK\r\n", "registered"},
        {"\r\n+CREG: 0,5\r\n\r\nOK\r\n", "registered"},
        {"\r\n+CREG: 2,1,\"1A2B\",\"01C3\",7\r\n\r\nOK\r\n", "LTE"},
        {"\r\n+CREG: 2,1,\"1A2B\",\"01C3\",0\r\n\r\nOK\r\n", "GSM"},
        {"\r\n+CREG: 2, 1, \"1A2B\", \"01C3\", 11\r\n\r\nOK\r\n", "NR"},
        {"\r\n+CREG: 2,1,\"1A2B\",\"01C3\",99\r\n\r\nOK\r\n", "registered"},
        {"\r\n+CEREG: 0,1\r\n\r\nOK\r\n", "LTE"},
        {"\r\n+CEREG: 0,0\r\n\r\nOK\r\n", ""},
        {"\r\n+CREG: 0,2\r\n\r\nOK\r\n", ""},
        {"\r\n+CREG: 0,3\r\n\r\nOK\r\n", ""},
        {"\r\n+CREG: 0,15\r\n\r\nOK\r\n", ""},
        {"\r\n+CREG: 1\r\n\r\nOK\r\n", ""},
        {"\r\nERROR\r\n", ""},
        {"", ""},
    };
    for (const auto &c : cases)
        EXPECT_EQ(registered_network(c.answer), c.network) << c.answer;
}

TEST(SimReady, Answers)
{
    EXPECT_TRUE(is_sim_ready("\r\n+CPIN: READY\r\n\r\nOK\r\n"));
    EXPECT_FALSE(is_sim_ready("\r\n+CPIN: SIM PIN\r\n\r\nOK\r\n"));
    EXPECT_FALSE(is_sim_ready("\r\n+CPIN: NOT READY\r\n\r\nOK\r\n"));
    EXPECT_FALSE(is_sim_ready(""));
}

TEST(Concerns, Reports)
{
    EXPECT_TRUE(device_watch::concerns("\r\n+CREG: 1\r\n"));
    EXPECT_TRUE(device_watch::concerns("\r\n+CPIN: NOT READY\r\n"));
    EXPECT_FALSE(device_watch::concerns("\r\n+CMTI: \"SM\",1\r\n"));
    EXPECT_FALSE(device_watch::concerns(""));
}

} // namespace
