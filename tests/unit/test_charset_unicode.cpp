/* UTF-8, code values and UCS-2. */
#include <limits.h>

#include <random>

#include "vectors/codec_bench.h"

class charset_unicode : public codec
{
protected:
    static constexpr int plenty = 10000;

    /* The hex text of at most `max_chars` characters, and where the input was left. */
    struct converted {
        std::string hex;
        size_t consumed;
    };
    static converted to_hex(const std::string &text, int max_chars, size_t room)
    {
        const exact_text input(text);
        marked_buffer output(room, '~');
        const char *end = dv_sms_mgr_utf8_to_unicode_string(input.c_str(), output.data(), max_chars);

        EXPECT_TRUE(output.intact());
        return {output.data(), static_cast<size_t>(end - input.c_str())};
    }
    static std::string from_ucs2(const std::string &hex)
    {
        const reference::bytes octets = reference::unhex(hex);
        marked_buffer output((octets.size() + 1) / 2 * 3 + 1, '~');

        dv_sms_mgr_ucs2_to_utf8_string(octets.data(), output.data(), static_cast<int>(octets.size()));
        EXPECT_TRUE(output.intact());
        return output.data();
    }
};

TEST_F(charset_unicode, length_by_the_lead_byte)
{
    for (int lead = 0; lead < 256; lead++) {
        const int expected = lead < 0xC0   ? 1
                             : lead < 0xE0 ? 2
                             : lead < 0xF0 ? 3
                             : lead < 0xF8 ? 4
                             : lead < 0xFC ? 5
                             : lead < 0xFE ? 6
                                           : 1;
        EXPECT_EQ(expected, dv_sms_mgr_utf8_seq_len(static_cast<uint8_t>(lead))) << lead;
    }
}

TEST_F(charset_unicode, character_count)
{
    static const struct {
        const char *text;
        int count;
    } rows[] = {
        {"", 0},
        {"abc", 3},
        {"é", 1},
        {"a中b", 3},
        {"😀", 1},
        {"\x80\x80", 2}, /* continuation bytes count one each */
        {"\xFE\xFF", 2},
        {"\xC3", 1}, /* cut by the end: counted, and nothing behind the end is read */
        {"\xE4", 1},
        {"a\xE4\xB8", 2},
        {"a\xF0\x9F", 2},
        {"\xFC\x80", 1},
        {"\xC3"
         "A",
         1}, /* the length is the lead byte's, whatever follows */
        {"\xFC\x80\x80\x80\x80\x80x", 2},
    };

    for (const auto &row : rows)
        EXPECT_EQ(row.count, dv_sms_mgr_utf8_char_count(exact_text(row.text).c_str())) << row.text;
    EXPECT_EQ(0, dv_sms_mgr_utf8_char_count(nullptr));
}

TEST_F(charset_unicode, one_sequence)
{
    static const struct {
        const char *name, *sequence;
        int length, result;
        uint32_t value;
    } rows[] = {
        {"one byte", "A", 1, 1, 'A'},
        {"one byte above ASCII is taken as it is", "\xC3", 1, 1, 0xC3},
        {"two", "é", 2, 2, 0xE9},
        {"the last of two", "\xDF\xBF", 2, 2, 0x7FF},
        {"three", "€", 3, 3, 0x20AC},
        {"the last of three", "\xEF\xBF\xBF", 3, 3, 0xFFFF},
        {"four", "😀", 4, 4, 0x1F600},
        {"four, all bits", "\xF7\xBF\xBF\xBF", 4, 4, 0x1FFFFF},
        {"the lead byte is not checked", "A\xA9", 2, 2, 1U << 6 | 0x29},
        {"overlong", "\xC0\x80", 2, 2, 0},
        {"second byte bad",
         "\xC3"
         "A",
         2, 0, 0},
        {"second byte a lead byte", "\xE2\xC2\xAC", 3, 0, 0},
        {"third byte bad",
         "\xE2\x82"
         "A",
         3, 0, 0},
        {"fourth byte bad",
         "\xF0\x9F\x98"
         "A",
         4, 0, 0},
        {"fifth byte bad",
         "\xF8\x80\x80\x80"
         "A",
         5, 0, 0},
        {"sixth byte bad",
         "\xFC\x80\x80\x80\x80"
         "A",
         6, 0, 0},
        {"no length", "A", 0, 0, 0},
        {"a negative length", "A", -1, 0, 0},
        {"seven bytes", "\xFE\x80\x80\x80\x80\x80\x80", 7, 0, 0},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        uint32_t value = 0xDEADBEEF;
        EXPECT_EQ(row.result, dv_sms_mgr_utf8_to_unicode_one(row.sequence, &value, row.length));
        EXPECT_EQ(row.value, value);
    }
}

TEST_F(charset_unicode, long_sequences_are_accepted_and_their_low_bits_count)
{
    uint32_t value = 0;

    EXPECT_EQ(5, dv_sms_mgr_utf8_to_unicode_one("\xF8\x80\x84\xB8\xAD", &value, 5));
    EXPECT_EQ(0x4E2DU, value & 0xFFFF);
    EXPECT_EQ(6, dv_sms_mgr_utf8_to_unicode_one("\xFC\x80\x80\x84\xB8\xAD", &value, 6));
    EXPECT_EQ(0x4E2DU, value & 0xFFFF);
}

TEST_F(charset_unicode, text_to_hex)
{
    static const struct {
        const char *name, *text;
        int max_chars;
        const char *expected;
        size_t consumed;
    } rows[] = {
        {"below 0x10", "\x05", plenty, "0005", 1},
        {"below 0x100", "A", plenty, "0041", 1},
        {"two bytes", "é", plenty, "00E9", 2},
        {"below 0x1000", "Ж", plenty, "0416", 2},
        {"0x0FFF", "\xE0\xBF\xBF", plenty, "0FFF", 3},
        {"0x1000", "\xE1\x80\x80", plenty, "1000", 3},
        {"the euro sign", "€", plenty, "20AC", 3},
        {"the highest", "\xEF\xBF\xBF", plenty, "FFFF", 3},
        {"beyond U+FFFF the low 16 bits are kept", "😀", plenty, "F600", 4},
        {"a lone lead byte and a letter are one malformed sequence",
         "\xC3"
         "A",
         plenty, "0000", 2},
        {"a sequence cut by the end", "a\xE4\xB8", plenty, "00610000", 3},
        {"a sequence cut behind its lead byte", "a\xE4", plenty, "00610000", 2},
        {"a continuation byte stands for itself", "\xBF", plenty, "00BF", 1},
        {"several", "a中é", plenty, "00614E2D00E9", 6},
        {"the maximum ends it", "a中é", 2, "00614E2D", 4},
        {"a maximum of none", "abc", 0, "", 0},
        {"empty", "", plenty, "", 0},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const converted result = to_hex(row.text, row.max_chars, strlen(row.expected) + 1);
        EXPECT_EQ(row.expected, result.hex);
        EXPECT_EQ(row.consumed, result.consumed);
    }
}

/* Characters are converted several at a time where they are whole; here one after the other. */
static std::string hex_one_by_one(const std::string &text, int *count)
{
    std::string hex;

    *count = 0;
    for (size_t at = 0; at < text.size(); (*count)++) {
        const auto length = static_cast<size_t>(dv_sms_mgr_utf8_seq_len(static_cast<uint8_t>(text[at])));
        const std::string sequence = text.substr(at, length) + std::string(6, '\0');
        uint32_t value = 0;

        dv_sms_mgr_utf8_to_unicode_one(sequence.c_str(), &value, static_cast<int>(length));
        hex += reference::hex({static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)});
        at += length;
    }
    return hex;
}

TEST_F(charset_unicode, whole_and_malformed_characters_in_any_order)
{
    static const char *const pieces[] = {"\xE4\xB8\xAD", "\xE4\xB8\xAD", "\xC3\xA9", "\xC3\xA9", "A",    "\xE4",
                                         "\xB8",         "\xC3",         "\xF0\x9F", "\xE4\xB8", "\xFF", "\xC3\xC3"};
    constexpr size_t whole = 5; /* those in front */
    std::mt19937 random{23038};

    for (int round = 0; round < 20000; round++) {
        std::string text;
        int count = 0;

        /* In every other round most are whole, so that whole blocks of text are. */
        for (size_t n = random() % (round % 2 == 0 ? 12 : 40); n > 0; n--)
            text += pieces[random() % (round % 2 == 0 || random() % 16 == 0 ? std::size(pieces) : whole)];
        const std::string expected = hex_one_by_one(text, &count);
        ASSERT_EQ(count, dv_sms_mgr_utf8_char_count(text.c_str())) << round;
        ASSERT_EQ(expected, to_hex(text, plenty, 4 * text.size() + 1).hex) << round;
    }
}

TEST_F(charset_unicode, every_character_of_the_basic_plane_there_and_back)
{
    for (unsigned value = 1; value <= 0xFFFF; value++) {
        const std::string text = reference::utf8(value);
        char hex[4 + 1], back[8];
        const uint8_t octets[] = {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};

        ASSERT_NE(nullptr, dv_sms_mgr_utf8_to_unicode_string(text.c_str(), hex, 1));
        ASSERT_EQ(reference::hex({octets[0], octets[1]}), hex);
        dv_sms_mgr_ucs2_to_utf8_string(octets, back, 2);
        ASSERT_EQ(text, back) << value;
    }
}

TEST_F(charset_unicode, every_character_of_the_basic_plane_among_its_like)
{
    for (unsigned value = 1; value <= 0xFFFF; value++) {
        const std::string one = reference::utf8(value);
        const std::string hex = reference::hex({static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)});
        std::string text, expected;

        for (int i = 0; i < 7; i++) {
            text += one;
            expected += hex;
        }
        ASSERT_EQ(expected, to_hex(text, plenty, expected.size() + 1).hex) << value;
        ASSERT_EQ(7, dv_sms_mgr_utf8_char_count(text.c_str())) << value;
    }
}

TEST_F(charset_unicode, words_of_every_length)
{
    for (size_t letters = 0; letters < 12; letters++) {
        std::string text, expected;

        for (int word = 0; word < 6; word++) {
            for (size_t i = 0; i < letters; i++) {
                text += "ж";
                expected += "0436";
            }
            text += "\x7F";
            expected += "007F";
        }
        ASSERT_EQ(expected, to_hex(text, plenty, expected.size() + 1).hex) << letters;
    }
}

TEST_F(charset_unicode, character_count_of_a_long_text)
{
    for (const char *one : {"é", "中", "x"}) {
        std::string text;

        for (int i = 0; i < 10000; i++)
            text += one;
        EXPECT_EQ(10000, dv_sms_mgr_utf8_char_count(exact_text(text).c_str())) << one;
    }
}

TEST_F(charset_unicode, hex_keeps_to_every_maximum)
{
    std::string text;

    for (int i = 0; i < 70; i++)
        text += i % 2 == 0 ? "中" : "x";
    for (int max_chars = 0; max_chars <= 70; max_chars++) {
        const converted result = to_hex(text, max_chars, 4 * static_cast<size_t>(max_chars) + 1);
        EXPECT_EQ(4 * static_cast<size_t>(max_chars), result.hex.size());
        EXPECT_EQ(static_cast<size_t>(max_chars / 2 * 4 + max_chars % 2 * 3), result.consumed);
    }
}

TEST_F(charset_unicode, hex_without_an_output)
{
    EXPECT_EQ(nullptr, dv_sms_mgr_utf8_to_unicode_string("abc", nullptr, 3));
    EXPECT_BOTH("dv_sms_mgr_utf8_to_unicode_string", "output_str is NULL, return");
    EXPECT_EQ((lines{"0 [dv_sms_mgr] dv_sms_mgr_utf8_to_unicode_string: output_str is NULL, return"}),
              platform.saved());
    EXPECT_EQ("dv_sms_mgr_pdu.cpp", trace_lines().at(0).file);
}

TEST_F(charset_unicode, value_to_utf8)
{
    static const struct {
        uint32_t value;
        std::string expected;
    } rows[] = {
        {0, std::string(1, '\0')},
        {'A', "A"},
        {0x7F, "\x7F"},
        {0x80, "\xC2\x80"},
        {0x7FF, "\xDF\xBF"},
        {0x800, "\xE0\xA0\x80"},
        {0x4E2D, "\xE4\xB8\xAD"},
        {0xD83D, "\xED\xA0\xBD"},
        {0xFFFF, "\xEF\xBF\xBF"},
        {0x10000, "\xF0\x90\x80\x80"},
        {0x1FFFFF, "\xF7\xBF\xBF\xBF"},
        {0x200000, "\xF8\x88\x80\x80\x80"},
        {0x3FFFFFF, "\xFB\xBF\xBF\xBF\xBF"},
        {0x4000000, "\xFC\x84\x80\x80\x80\x80"},
        {0x7FFFFFFF, "\xFD\xBF\xBF\xBF\xBF\xBF"},
        {0x80000000, ""},
        {0xFFFFFFFF, ""},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.value);
        marked_buffer output(row.expected.size());
        const int length = dv_sms_mgr_unicode_to_utf8_one(row.value, output.data(), 7);
        ASSERT_EQ(row.expected.size(), static_cast<size_t>(length));
        EXPECT_EQ(row.expected, std::string(output.data(), static_cast<size_t>(length)));
        EXPECT_TRUE(output.intact());
    }
    EXPECT_EQ(lines{}, platform.saved());
}

TEST_F(charset_unicode, value_to_utf8_refuses_a_small_output)
{
    for (const int capacity : {6, 5, 1, 0, -1, INT_MIN}) {
        marked_buffer output(8, '~');
        forget();
        EXPECT_EQ(-1, dv_sms_mgr_unicode_to_utf8_one('A', output.data(), capacity)) << capacity;
        EXPECT_EQ("~~~~~~~~", std::string(output.data(), 8));
        EXPECT_BOTH("dv_sms_mgr_unicode_to_utf8_one", "output error");
    }
    forget();
    EXPECT_EQ(-1, dv_sms_mgr_unicode_to_utf8_one('A', nullptr, 16));
    EXPECT_BOTH("dv_sms_mgr_unicode_to_utf8_one", "output error");
}

TEST_F(charset_unicode, ucs2_to_text)
{
    static const struct {
        const char *name, *ucs2, *expected;
    } rows[] = {
        {"nothing", "", ""},
        {"one character", "4E2D", "\xE4\xB8\xAD"},
        {"several", "00610416 20AC", "aЖ€"},
        {"surrogates are written one by one", "D83DDE00", "\xED\xA0\xBD\xED\xB8\x80"},
        {"the highest", "FFFF", "\xEF\xBF\xBF"},
        {"the value 0 ends the text for its readers", "006100000062", "a"},
        {"an odd octet has a low octet 0", "006104", "a\xD0\x80"},
        {"an odd octet alone", "4E", "\xE4\xB8\x80"},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.expected, from_ucs2(reference::squeeze(row.ucs2)));
    }
}

TEST_F(charset_unicode, ucs2_value_0_is_a_byte_and_the_text_goes_on_behind_it)
{
    const uint8_t octets[] = {0x00, 0x61, 0x00, 0x00, 0x00, 0x62};
    char output[16];

    memset(output, '~', sizeof output);
    dv_sms_mgr_ucs2_to_utf8_string(octets, output, sizeof octets);
    EXPECT_EQ(std::string("a\0b\0~", 5), std::string(output, 5));
}
