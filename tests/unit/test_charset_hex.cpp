/* Hexadecimal text and semi-octets. */
#include "vectors/codec_bench.h"

class charset_hex : public codec
{
};

TEST_F(charset_hex, value_of_every_character)
{
    for (int c = 0; c < 256; c++) {
        const int expected = c >= '0' && c <= '9'   ? c - '0'
                             : c >= 'A' && c <= 'F' ? c - 'A' + 10
                             : c >= 'a' && c <= 'f' ? c - 'a' + 10
                                                    : 0;
        EXPECT_EQ(expected, hex_char_to_value(static_cast<char>(c))) << c;
    }
}

TEST_F(charset_hex, bytes_to_hex_is_upper_case_without_a_terminator)
{
    reference::bytes octets;

    for (int i = 0; i < 256; i++)
        octets.push_back(static_cast<uint8_t>(i));
    for (size_t count = 0; count <= octets.size(); count++) {
        marked_buffer text(2 * count);
        ASSERT_EQ(static_cast<int>(2 * count), bytes_to_hex(octets.data(), text.data(), static_cast<int>(count)));
        EXPECT_TRUE(text.intact()) << count;
        EXPECT_EQ(reference::hex({octets.begin(), octets.begin() + static_cast<long>(count)}),
                  std::string(text.data(), 2 * count));
    }
}

TEST_F(charset_hex, hex_to_bytes)
{
    static const struct {
        const char *name, *text;
        int max;
        const char *expected;
    } rows[] = {
        {"both cases", "0a0A9FfF", 10, "0A0A9FFF"},
        {"the maximum ends it", "01020304", 2, "0102"},
        {"a maximum of none", "01020304", 0, ""},
        {"an empty text", "", 4, ""},
        {"a pair cut by the end", "01020", 4, "0102"},
        {"one digit", "1", 4, ""},
        {"what is no digit counts as 0", "G1x9 2", 4, "010902"},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        marked_buffer bytes(reference::unhex(row.expected).size());
        const exact_text text(row.text);
        const int count = hex_to_bytes(text.c_str(), bytes.octets(), row.max);
        ASSERT_EQ(bytes.size(), static_cast<size_t>(count));
        EXPECT_TRUE(bytes.intact());
        EXPECT_EQ(row.expected, reference::hex({bytes.octets(), bytes.octets() + count}));
    }
}

TEST_F(charset_hex, hex_to_bytes_keeps_to_every_maximum)
{
    const std::string text(64, '7');

    for (int max = 0; max <= 32; max++) {
        marked_buffer bytes(static_cast<size_t>(max));
        EXPECT_EQ(max, hex_to_bytes(text.c_str(), bytes.octets(), max));
        EXPECT_TRUE(bytes.intact()) << max;
    }
}

TEST_F(charset_hex, phone_to_semi_octets)
{
    static const struct {
        const char *digits;
        int count, result;
        const char *expected;
    } rows[] = {
        {"12", 2, 2, "21"},
        {"12345", 5, 6, "2143F5"},
        {"123456", 6, 6, "214365"},
        {"1", 1, 2, "F1"},
        {"", 0, 0, ""},
        {"12345", 3, 4, "21F3"}, /* the count, not the terminator, ends it */
        {"*#a?", 4, 4, "#*?a"},  /* unchecked */
        {"31612345678", 11, 12, "1316325476F8"},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.digits);
        marked_buffer text(static_cast<size_t>(row.count) + 2, '~');
        EXPECT_EQ(row.result, phone_to_semi_octets(row.digits, text.data(), row.count));
        EXPECT_TRUE(text.intact());
        EXPECT_STREQ(row.expected, text.data());
    }
}

TEST_F(charset_hex, semi_octets_to_text)
{
    static const struct {
        const char *semi_octets;
        int count, result;
        const char *expected;
    } rows[] = {
        {"21", 2, 2, "12"},
        {"1316325476F8", 11, 10, "31612345678"}, /* the count less one, as the fill was dropped */
        {"1316325476F8", 12, 11, "31612345678"},
        {"1316325476f8", 12, 11, "31612345678"},
        {"214365", 6, 6, "123456"},
        {"214365", 5, 5, "123456"}, /* the count is rounded up to pairs */
        {"21FF", 4, 3, "12F"},      /* one fill, no more */
        {"F121", 4, 4, "1F12"},     /* only at the end */
        {"", 0, 0, ""},
        {"42305041700002", 14, 14, "24030514070020"},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.semi_octets);
        marked_buffer text(static_cast<size_t>(row.count + row.count % 2) + 2, '~');
        EXPECT_EQ(row.result, semi_octets_to_text(row.semi_octets, text.data(), row.count));
        EXPECT_TRUE(text.intact());
        EXPECT_STREQ(row.expected, text.data());
    }
}

TEST_F(charset_hex, semi_octets_there_and_back)
{
    std::string digits;

    for (int count = 0; count <= 60; count++, digits += static_cast<char>('0' + count % 10)) {
        char swapped[64] = {}, back[64] = {};
        const int even = phone_to_semi_octets(digits.c_str(), swapped, count);
        ASSERT_EQ((count + 1) / 2 * 2, even);
        const int result = semi_octets_to_text(swapped, back, even);
        EXPECT_EQ(count, result);
        EXPECT_EQ(digits, back);
    }
}

TEST_F(charset_hex, letters_that_no_number_has)
{
    for (int c = 1; c < 256; c++) {
        const bool upper = c >= 'A' && c <= 'Z' && c != 'F', lower = c >= 'a' && c <= 'z' && c != 'f';
        const char text[] = {'1', static_cast<char>(c), '2', '\0'};
        EXPECT_EQ(upper || lower ? 1 : 0, has_non_hex_letter(text, 3)) << c;
    }
    EXPECT_EQ(0, has_non_hex_letter("12A", 2)); /* the length ends it */
    EXPECT_EQ(1, has_non_hex_letter("12A", 3));
    EXPECT_EQ(0, has_non_hex_letter("A", 0));
    EXPECT_EQ(0, has_non_hex_letter("1316325476F8", 12));
    EXPECT_EQ(1, has_non_hex_letter("D0E7", 4));
}
