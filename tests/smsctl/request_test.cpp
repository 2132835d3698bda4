/* What is refused before anything is sent, and what a record holds. */
#include <cstring>
#include <gtest/gtest.h>

#include "request.h"
#include "sandbox.h"
#include "values.h"

using namespace sms_client;

namespace
{

TEST(Number, Fits)
{
    for (const char *good : {"1", "+1", "+31612345678", "12345678901234567890", "+12345678901234567890"})
        EXPECT_EQ(complaint_about_number(good), "") << good;
    for (const char *bad : {"", "+", "123456789012345678901", "+123456789012345678901", "12 34", "12-34", "abc", "1\r",
                            "++1", "1+", "*100#", "\xEF\xBC\x91"})
        EXPECT_NE(complaint_about_number(bad), "") << bad;
}

TEST(Text, Fits)
{
    for (const std::string &good : {std::string("x"), std::string(4000, 'x'), std::string("ü€😀\n\t")})
        EXPECT_EQ(complaint_about_text(good), "");
    for (const std::string &bad : {std::string(), std::string(4001, 'x'), std::string("a\xFF"), std::string("a\0b", 3),
                                   std::string("\xED\xA0\xBD\xED\xB8\x80")})
        EXPECT_NE(complaint_about_text(bad), "");
}

TEST(Payload, HoldsTheLongest)
{
    const std::string number = "+12345678901234567890", text(4000, 'x');
    const sms_payload p = make_payload(number, text);
    EXPECT_EQ(p.phone, number);
    EXPECT_EQ(p.text, text);
    EXPECT_EQ(p.text[4000], '\0');
    for (const char c : p.date)
        EXPECT_EQ(c, '\0');
}

TEST(WhyServiceIsOff, FollowsSwitchAndSim)
{
    const sandbox s;
    EXPECT_NE(why_service_is_off().find("SYS_SMS_SW"), std::string::npos);
    s.cfg("SYS_SMS_SW", "1");
    EXPECT_NE(why_service_is_off().find("301001"), std::string::npos);
    s.item(301001, "1");
    EXPECT_EQ(why_service_is_off(), "");
    s.cfg("SYS_SMS_SW", "0");
    EXPECT_NE(why_service_is_off(), "");
}

TEST(Turn, OneAfterTheOther)
{
    const sandbox s;
    {
        const turn first(std::chrono::milliseconds(10));
        EXPECT_TRUE(first.taken());
        const turn second(std::chrono::milliseconds(50));
        EXPECT_FALSE(second.taken());
    }
    const turn third(std::chrono::milliseconds(10));
    EXPECT_TRUE(third.taken());
}

TEST(Turn, NobodyWaitsWhereNothingCanBeLocked)
{
    const sandbox s;
    setenv("DV_PLATFORM_ROOT", (s.root() + "/none").c_str(), 1);
    const turn one(std::chrono::milliseconds(10)), two(std::chrono::milliseconds(10));
    EXPECT_TRUE(one.taken() && two.taken());
}

} // namespace
