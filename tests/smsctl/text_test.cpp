/* Any bytes, made fit to be shown. */
#include <gtest/gtest.h>
#include <random>

#include "text.h"

using namespace sms_client;

namespace
{

TEST(IsUtf8, Table)
{
    for (const char *good : {"", "abc", "ü€😀", "\x7F", "\xC2\x80", "\xED\x9F\xBF", "\xEE\x80\x80", "\xF4\x8F\xBF\xBF"})
        EXPECT_TRUE(is_utf8(good)) << good;
    for (const char *bad : {"\x80", "\xC3", "\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xE2\x82", "\xED\xA0\x80",
                            "\xF0\x80\x80\x80", "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80", "\xFF", "a\xE4z"})
        EXPECT_FALSE(is_utf8(bad)) << bad;
}

struct readable_case {
    const char *bytes, *text;
    bool complete;
};

TEST(MakeReadable, Table)
{
    constexpr readable_case cases[] = {
        {"plain ü€", "plain ü€", true},
        {"\xED\xA0\xBD\xED\xB8\x80!", "😀!", true},              /* halves of U+1F600 */
        {"\xED\xAF\xBF\xED\xBF\xBF", "\xF4\x8F\xBF\xBF", true}, /* the last pair */
        {"\xED\xA0\xBDx", "\xEF\xBF\xBDx", false},              /* a high half alone */
        {"\xED\xB8\x80x", "\xEF\xBF\xBDx", false},              /* a low half alone */
        {"\xED\xA0\xBD\xED\xA0\xBD\xED\xB8\x80", "\xEF\xBF\xBD😀", false},
        {"\xED\xA0\xBD", "\xEF\xBF\xBD", false},
        {"a\xFFz", "a\xEF\xBF\xBDz", false},
        {"\xE2\x82", "\xEF\xBF\xBD\xEF\xBF\xBD", false},
        {"", "", true},
    };
    for (const readable_case &c : cases) {
        const readable got = make_readable(c.bytes);
        EXPECT_EQ(got.text, c.text);
        EXPECT_EQ(got.complete, c.complete) << c.text;
    }
}

TEST(MakeReadable, AlwaysGivesUtf8)
{
    std::minstd_rand random(1);
    constexpr char bytes[] = "a\xED\xA0\xBD\xB8\x80\xF0\x9F\xFF\xC3\xE2";
    for (int round = 0; round < 20000; round++) {
        std::string text;
        for (size_t length = random() % 12; length > 0; length--)
            text += bytes[random() % (sizeof bytes - 1)];
        const readable got = make_readable(text);
        ASSERT_TRUE(is_utf8(got.text)) << to_hex(text);
        ASSERT_EQ(got.complete, got.text.find("\xEF\xBF\xBD") == std::string::npos) << to_hex(text);
        ASSERT_TRUE(!is_utf8(text) || got.text == text) << to_hex(text);
    }
}

TEST(MakePrintable, Table)
{
    EXPECT_EQ(make_printable("a\nb\r\nc\td\\", false), "a\\nb\\r\\nc\\td\\\\");
    EXPECT_EQ(make_printable("a\nb\r\nc\td\\\re", true), "a\nb\nc\td\\\\re");
    EXPECT_EQ(make_printable("\x1B[31mred\x07\x7F", true), "\\x1b[31mred\\x07\\x7f");
    EXPECT_EQ(make_printable("\xC2\x9B"
                             "31m",
                             false),
              "\\xc2\\x9b31m"); /* the one-character form of ESC [ */
    EXPECT_EQ(make_printable("ü€😀\xC2\xA0", false), "ü€😀\xC2\xA0");
    EXPECT_EQ(make_printable("\xFF", false), "\\xff");
}

} // namespace
