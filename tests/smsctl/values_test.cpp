/* The platform's values as a client sees them. */
#include <gtest/gtest.h>

#include "sandbox.h"
#include "values.h"

using namespace sms_client;

namespace
{

TEST(Values, UnsetAndEmptyAreNone)
{
    const sandbox s;
    EXPECT_FALSE(get_cfg("A"));
    EXPECT_FALSE(get_flag("A"));
    EXPECT_FALSE(get_devinfo(7));
    EXPECT_EQ(set_flag("A", ""), 0);
    EXPECT_FALSE(get_flag("A"));
    EXPECT_FALSE(get_devinfo(-1));
    EXPECT_FALSE(get_cfg("a/b"));
}

TEST(Values, SetAndGet)
{
    const sandbox s;
    for (const std::string &value : {std::string("x"), std::string(" a b "), std::string("line\n"), std::string("\n"),
                                     std::string(5000, 'y'), std::string("ü")}) {
        EXPECT_EQ(set_cfg("K", value), 0);
        EXPECT_EQ(get_cfg("K"), value);
        EXPECT_EQ(set_flag("F", value), 0);
        EXPECT_EQ(get_flag("F"), value);
        EXPECT_EQ(set_devinfo(42, value), 0);
        EXPECT_EQ(get_devinfo(42), value);
    }
}

TEST(Values, BadKeys)
{
    const sandbox s;
    for (const std::string &key : {std::string(), std::string("a/b"), std::string(".a"), std::string("../x"),
                                   std::string("a\nb"), std::string(200, 'k')})
        EXPECT_NE(set_cfg(key, "x"), 0) << key;
}

TEST(Values, NoPlatform)
{
    const sandbox s;
    setenv("DV_PLATFORM_ROOT", (s.root() + "/none").c_str(), 1);
    EXPECT_NE(set_cfg("A", "x"), 0);
}

TEST(Capacity, WhatFilingTakes)
{
    const sandbox s;
    EXPECT_EQ(box_capacity(), 500);
    for (const auto &[value, capacity] : {std::pair{"3", 3}, {"2000", 2000}, {"2001", 500}, {"0", 500}, {"x", 500}}) {
        s.cfg("SYS_SMS_MAX_SAVE_SIZE", value);
        EXPECT_EQ(box_capacity(), capacity) << value;
    }
}

} // namespace
