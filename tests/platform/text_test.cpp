/* Text replaced in place. */
#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "util.h"

struct replacement {
    const char *text, *old_text, *new_text;
    int capacity;
    int result;
    const char *expected;
};

static const replacement replacements[] = {
    {"a,b,c", ",", " ", 16, 2, "a b c"},
    {"a,b,c", ",", "", 16, 2, "abc"},
    {"1 2 3 ", "2 ", "", 16, 1, "1 3 "},
    {"abc", "abc", "", 16, 1, ""},
    {"aaaa", "aa", "b", 16, 2, "bb"},
    {"aaa", "a", "aa", 16, 3, "aaaaaa"}, /* what was put in is not looked at again */
    {"abc", "x", "y", 16, 0, "abc"},
    {"abc", "", "y", 16, 0, "abc"}, /* empty text is nowhere */
    {"", "a", "b", 16, 0, ""},
    {"abc", "abcd", "x", 16, 0, "abc"},
    {"a.b", ".", "--", 5, 1, "a--b"},   /* just fits, with its terminator */
    {"a.b", ".", "---", 5, 1, "a---"},  /* the tail does not */
    {"a.b", ".", "----", 5, 0, "a---"}, /* nor all of the replacement */
    {"....", ".", "ab", 5, 2, "abab"},
    {"a.b", ".", "\xE2\x82\xAC", 5, 1, "a\xE2\x82\xAC"},
    {"a.b", ".", "\xE2\x82\xAC\xE2\x82\xAC", 7, 0, "a\xE2\x82\xAC"}, /* no half of a character */
    {"a.\xC3\xA9", ".", "..", 5, 1, "a.."},
    {"abc", "b", "x", 4, 1, "axc"},
    {"x", "x", "yy", 1, 0, ""}, /* not terminated within its capacity */
    {"abcdef", "a", "xy", 3, 1, "xy"},
};

TEST(text, is_replaced_everywhere_and_never_beyond_the_capacity)
{
    for (const replacement &r : replacements) {
        std::string buffer(64, '#');
        buffer.replace(0, std::min(strlen(r.text) + 1, static_cast<size_t>(r.capacity)), r.text,
                       std::min(strlen(r.text) + 1, static_cast<size_t>(r.capacity)));
        EXPECT_EQ(r.result, util_replace_with_new_string_ext(buffer.data(), r.capacity, r.old_text, r.new_text))
            << r.text << " / " << r.old_text << " / " << r.new_text;
        EXPECT_STREQ(r.expected, buffer.c_str()) << r.text << " / " << r.old_text << " / " << r.new_text;
        EXPECT_EQ(std::string(buffer.size() - static_cast<size_t>(r.capacity), '#'),
                  buffer.substr(static_cast<size_t>(r.capacity)));
    }
}

TEST(text, replacing_fits_every_capacity)
{
    const std::string wanted = "a\xE2\x82\xAC\xE2\x82\xAC"
                               "b\xE2\x82\xAC";

    for (int capacity = 6; capacity < 16; capacity++) {
        std::string buffer = "a..b.";
        buffer.resize(32, '#');
        buffer[5] = '\0';
        util_replace_with_new_string_ext(buffer.data(), capacity, ".", "\xE2\x82\xAC");
        const std::string result = buffer.substr(0, buffer.find('\0'));
        EXPECT_EQ(wanted.substr(0, result.size()), result) << capacity;
        EXPECT_NE(0x80, static_cast<unsigned char>(wanted[result.size()]) & 0xC0) << capacity;
        EXPECT_LE(result.size(), static_cast<size_t>(capacity) - 1);
        EXPECT_GE(result.size() + 3, std::min(wanted.size() + 1, static_cast<size_t>(capacity)));
        EXPECT_EQ('#', buffer[static_cast<size_t>(capacity)]) << capacity;
    }
}

TEST(text, the_replacement_may_lie_in_the_text_itself)
{
    char text[32] = "a.b";

    EXPECT_EQ(1, util_replace_with_new_string_ext(text, sizeof text, ".", text));
    EXPECT_STREQ("aa.bb", text);
}

TEST(text, that_does_not_grow_is_not_cut)
{
    char full[] = {'a', ' ', 'b', ' ', '#'};

    EXPECT_EQ(0, util_replace_with_new_string_ext(full, 4, "x", "yy"));
    EXPECT_EQ("a b #", std::string(full, sizeof full));
    EXPECT_EQ(2, util_replace_with_new_string_ext(full, 4, " ", "$"));
    EXPECT_EQ("a$b$#", std::string(full, sizeof full));
}

TEST(text, bad_arguments_change_nothing)
{
    char text[8] = "a.b";

    EXPECT_EQ(-1, util_replace_with_new_string_ext(nullptr, 8, ".", "x"));
    EXPECT_EQ(-1, util_replace_with_new_string_ext(text, 8, nullptr, "x"));
    EXPECT_EQ(-1, util_replace_with_new_string_ext(text, 8, ".", nullptr));
    EXPECT_EQ(-1, util_replace_with_new_string_ext(text, 0, ".", "x"));
    EXPECT_EQ(-1, util_replace_with_new_string_ext(text, -1, ".", "x"));
    EXPECT_STREQ("a.b", text);
}
