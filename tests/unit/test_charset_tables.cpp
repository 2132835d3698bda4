/* The alphabets, code by code, and the conversions that go through them. */
#include <set>

#include "dv_sms_mgr_send.h"
#include "vectors/codec_bench.h"

class charset_tables : public codec
{
protected:
    /* A buffer of PDU_WORK_SIZE with these septets in it, converted; what it holds up to the first zero. */
    static std::string to_utf8(const std::string &septets, int count)
    {
        marked_buffer buffer(PDU_WORK_SIZE);

        memcpy(buffer.data(), septets.data(), septets.size());
        dv_sms_mgr_gsm7_to_utf8(buffer.data(), count);
        EXPECT_TRUE(buffer.intact());
        return buffer.data();
    }
    static std::string to_utf8(const std::string &septets)
    {
        return to_utf8(septets, static_cast<int>(septets.size()));
    }

    static std::string to_ucs2(const std::string &septets)
    {
        marked_buffer buffer(PDU_WORK_SIZE);

        memcpy(buffer.data(), septets.data(), septets.size());
        const int octets = dv_sms_mgr_gsm7_to_ucs2(buffer.data(), static_cast<int>(septets.size()));
        EXPECT_TRUE(buffer.intact());
        return reference::hex({buffer.octets(), buffer.octets() + octets});
    }

    /* The send text converted from ASCII, as its new length says. */
    static std::string to_septets(const std::string &text)
    {
        memset(dv_sms_send_text, 0, sizeof dv_sms_send_text);
        memcpy(dv_sms_send_text, text.data(), text.size());
        const int length = dv_sms_mgr_ascii_to_gsm7(static_cast<int>(text.size()));
        EXPECT_GE(length, static_cast<int>(text.size()));
        EXPECT_LE(length, SEND_TEXT_MAX + 1);
        return {dv_sms_send_text, static_cast<size_t>(length)};
    }
};

/* --- from septets --- */

TEST_F(charset_tables, default_alphabet)
{
    /* The chart of TS 23.038 row by row, with the small c-cedilla where it has the capital. */
    static const char chart[] = "@£$¥èéùìòç\nØø\rÅåΔ_ΦΓΛΩΠΨΣΘΞ?ÆæßÉ !\"#¤%&'()*+,-./0123456789:;<=>?"
                                "¡ABCDEFGHIJKLMNOPQRSTUVWXYZÄÖÑÜ§¿abcdefghijklmnopqrstuvwxyzäöñüà";
    const std::u32string expected = reference::characters(chart);

    ASSERT_EQ(128U, expected.size());
    for (unsigned code = 0; code < 128; code++) {
        if (code == 0x1B)
            continue;
        EXPECT_EQ(reference::utf8(expected[code]), to_utf8(std::string(1, static_cast<char>(code)))) << code;
        /* The reference holds the standard's chart in another form. */
        EXPECT_EQ(code == 0x09 ? U'Ç' : expected[code], reference::default_character(code)) << code;
    }
    EXPECT_EQ("\xC3\xA7", to_utf8("\x09"));
}

TEST_F(charset_tables, extension)
{
    for (unsigned code = 0; code < 128; code++) {
        const char32_t value = reference::extension_character(code);
        const std::string septets = {'\x1B', static_cast<char>(code)};
        /* What no table knows, 0x50 and above included, becomes the byte 0xFF. */
        EXPECT_EQ(value == 0 ? "\xFF" : reference::utf8(value), to_utf8(septets)) << code;
    }
    EXPECT_EQ("\xE2\x82\xAC", to_utf8("\x1B\x65"));
    EXPECT_EQ("\f", to_utf8("\x1B\x0A"));
    EXPECT_EQ("^{}\\[~]|", to_utf8("\x1B\x14\x1B\x28\x1B\x29\x1B\x2F\x1B\x3C\x1B\x3D\x1B\x3E\x1B\x40"));
}

TEST_F(charset_tables, septets_to_utf8)
{
    static const struct {
        const char *name;
        std::string septets;
        int count;
        const char *expected;
    } rows[] = {
        {"nothing", "", 0, ""},
        {"a code of two bytes grows", "\x01\x01x", 3, "££x"},
        {"an escape shrinks", "a\x1B\x28z", 4, "a{z"},
        {"the escape's code counts against the input", "\x1B\x65q", 3, "€q"},
        {"an escape escaped", "\x1B\x1B\x28", 3, "\xFF("},
        {"a trailing escape takes the code 0", "ab\x1B", 3, "ab\xFF"},
        {"what lies behind the count stays", "abc", 2, "abc"},
        {"what lies behind stays, unless the text grows over it", "\x01\x01wxyz", 2, "££yz"},
        {"nor is an escape's code behind the count taken", "\x1B\x28", 1, "\xFF("},
        {"a shorter text is followed by zeros", "\x1B\x28\x1B\x28z", 4, "{{"},
        {"eight of one byte, then some of two", "abcdefgh\x01\x02", 10, "abcdefgh£$"},
        {"an escape across eight", "abcdefg\x1B\x28z", 10, "abcdefg{z"},
        {"two bytes within eight",
         "abc\x7F"
         "efghijk",
         11, "abcàefghijk"},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.expected, to_utf8(row.septets, row.count));
    }
}

TEST_F(charset_tables, a_full_buffer_of_septets)
{
    for (const size_t count : {1023U, 512U, 1024U}) {
        EXPECT_EQ(std::string(count, 'x'), to_utf8(std::string(count, 'x')).substr(0, count));
        if (count <= PDU_WORK_SIZE / 2) {
            std::string pounds;
            for (size_t i = 0; i < count - 1; i++)
                pounds += "£";
            EXPECT_EQ(pounds, to_utf8(std::string(count - 1, '\x01')));
        }
    }
}

TEST_F(charset_tables, national_alphabet)
{
    static const struct {
        unsigned code, value;
    } listed[] = {
        {0x00, 0x0040}, {0x01, 0x00A3}, {0x02, 0x0024}, {0x03, 0x00A5}, {0x04, 0x20AC}, {0x05, 0x00E9},
        {0x07, 0x0131}, {0x09, 0x00C7}, {0x0B, 0x011E}, {0x0C, 0x011F}, {0x11, 0x03A2}, {0x1C, 0x015E},
        {0x1D, 0x015F}, {0x24, 0x0024}, {0x40, 0x00E8}, {0x60, 0x00E7}, {0x7F, 0x00E0},
    };

    for (const auto &row : listed)
        EXPECT_EQ(row.value, reference::national_character(row.code)) << row.code;
    for (unsigned code = 0; code < 128; code++) {
        if (code == 0x1B)
            continue;
        const unsigned value = reference::national_character(code);
        EXPECT_EQ(reference::hex({static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)}),
                  to_ucs2(std::string(1, static_cast<char>(code))))
            << code;
    }
}

TEST_F(charset_tables, national_extension)
{
    static const std::set<unsigned> mapped = {0x0F, 0x14, 0x28, 0x29, 0x2F, 0x3C, 0x3D, 0x3E, 0x40,
                                              0x47, 0x49, 0x53, 0x63, 0x65, 0x67, 0x69, 0x73};

    for (unsigned code = 0; code < 128; code++) {
        const unsigned value = reference::national_extension(code);
        EXPECT_EQ(mapped.count(code) == 1, value != 0xFFFF) << code;
        EXPECT_EQ(reference::hex({static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)}),
                  to_ucs2({'\x1B', static_cast<char>(code)}))
            << code;
    }
    EXPECT_EQ("FFFF", to_ucs2("\x1B\x0A")); /* the form feed is not mapped */
    EXPECT_EQ("005C", to_ucs2("\x1B\x0F"));
    EXPECT_EQ("011E01300131", to_ucs2("\x1B\x47\x1B\x49\x1B\x69"));
}

TEST_F(charset_tables, septets_to_ucs2)
{
    EXPECT_EQ("", to_ucs2(""));
    EXPECT_EQ("0061007B007A", to_ucs2("a\x1B\x28z"));
    EXPECT_EQ("0061FFFF", to_ucs2("a\x1B")); /* a trailing escape takes the code 0 */
    EXPECT_EQ("FFFF0028", to_ucs2("\x1B\x1B\x28"));
    std::string twice;
    for (size_t i = 0; i < PDU_WORK_SIZE / 2; i++)
        twice += "0078";
    EXPECT_EQ(twice, to_ucs2(std::string(PDU_WORK_SIZE / 2, 'x')));
}

/* --- to septets --- */

TEST_F(charset_tables, ascii_to_septets_for_every_character)
{
    static const struct {
        char ascii;
        std::string septets;
    } changed[] = {
        {'@', std::string(1, '\0')},
        {'_', "\x11"},
        {'$', "\x02"},
        {'`', "'"},
        {'\t', " "},
        {'\x1A', "\x05"},
        {'\x1E', "\x7D"},
        {'^', "\x1B\x14"},
        {'{', "\x1B\x28"},
        {'}', "\x1B\x29"},
        {'\\', "\x1B\x2F"},
        {'[', "\x1B\x3C"},
        {'~', "\x1B\x3D"},
        {']', "\x1B\x3E"},
        {'|', "\x1B\x40"},
    };

    for (int c = 0; c < 128; c++) {
        std::string expected(1, static_cast<char>(c));
        for (const auto &row : changed)
            if (row.ascii == c)
                expected = row.septets;
        EXPECT_EQ(expected, to_septets(std::string(1, static_cast<char>(c)))) << c;
        EXPECT_EQ("x" + expected + "y", to_septets({'x', static_cast<char>(c), 'y'})) << c;
    }
}

/* Text is converted a block at a time where its characters are the same in both alphabets. */
TEST_F(charset_tables, every_character_at_every_place_among_letters)
{
    for (int c = 1; c < 256; c++) {
        const std::string alone = to_septets(std::string(1, static_cast<char>(c)));

        if (c >= 0x80) { /* none of ASCII's: it stays */
            EXPECT_EQ(std::string(1, static_cast<char>(c)), alone) << c;
        }
        for (size_t place = 0; place < 35; place++) {
            std::string text = "abcdefghIJKLMNOPqrstuvwxYZabcdefGHI", expected = text;

            text[place] = static_cast<char>(c);
            expected.replace(place, 1, alone);
            ASSERT_EQ(expected, to_septets(text)) << c << " at " << place;
        }
    }
}

TEST_F(charset_tables, bytes_above_ascii_change_nothing_of_their_neighbours)
{
    for (int high = 0x80; high < 256; high++) {
        for (int c = 1; c < 128; c++) {
            const std::string byte(1, static_cast<char>(high)),
                alone = to_septets(std::string(1, static_cast<char>(c)));
            const std::string text = "ab" + byte + static_cast<char>(c) + "efghijk";

            ASSERT_EQ("ab" + byte + alone + "efghijk", to_septets(text)) << high << " " << c;
        }
    }
}

TEST_F(charset_tables, every_code_at_every_place_among_letters)
{
    for (int code = 0; code < 256; code++) { /* of which seven bits are looked at */
        const std::string alone = to_utf8(std::string(1, static_cast<char>(code & 0x7F)));

        for (size_t place = 0; place < 35 && (code & 0x7F) != 0x1B; place++) {
            std::string septets = "abcdefghIJKLMNOPqrstuvwxYZabcdefGHI", expected = septets;

            septets[place] = static_cast<char>(code);
            expected.replace(place, 1, alone);
            ASSERT_EQ(expected, to_utf8(septets)) << code << " at " << place;
        }
    }
}

TEST_F(charset_tables, printable_ascii_survives_the_way_there_and_back)
{
    for (char c = ' '; c < 0x7F; c++) {
        const std::string expected = c == '`' ? "'" : std::string(1, c);
        EXPECT_EQ(expected, to_utf8(to_septets(std::string(1, c)))) << c;
    }
}

TEST_F(charset_tables, a_brace_between_two_letters)
{
    EXPECT_EQ("\x61\x1B\x28\x62", to_septets("a{b"));
    EXPECT_EQ("\x1B\x3C\x1B\x3C", to_septets("[["));
    EXPECT_EQ("", to_septets(""));
}

TEST_F(charset_tables, the_length_counts_not_the_terminator)
{
    strcpy(dv_sms_send_text, "ab{d");
    EXPECT_EQ(2, dv_sms_mgr_ascii_to_gsm7(2));
    EXPECT_STREQ("ab{d", dv_sms_send_text);
}

TEST_F(charset_tables, the_last_characters_of_a_full_buffer)
{
    /* What needs an escape moves the rest to where no whole block is left at the end. */
    const std::string front(15, 'a'), codes(PDU_WORK_SIZE - 17, 'x'), letters(SEND_TEXT_MAX - 17, 'x');

    EXPECT_EQ(front + "{" + codes, to_utf8(front + "\x1B\x28" + codes).substr(0, PDU_WORK_SIZE - 1));
    EXPECT_EQ(front + "\x1B\x3C" + letters, to_septets(front + "[" + letters));
}

TEST_F(charset_tables, a_text_that_grows_past_its_end_is_left_as_it_is_from_there)
{
    std::string text = "[" + std::string(SEND_TEXT_MAX - 1, '@');

    std::string septets = to_septets(text);
    ASSERT_EQ(4001U, septets.size());
    EXPECT_EQ("\x1B\x3C", septets.substr(0, 2));
    EXPECT_EQ(std::string(SEND_TEXT_MAX - 1, '@'), septets.substr(2)); /* not one of them converted */
    EXPECT_EQ(0, dv_sms_send_text[4001]);

    /* One below the limit: the second escape is what ends it. */
    text = "[[" + std::string(SEND_TEXT_MAX - 3, '@');
    septets = to_septets(text);
    ASSERT_EQ(4001U, septets.size());
    EXPECT_EQ("\x1B\x3C\x1B\x3C@", septets.substr(0, 5));

    /* Exactly at the limit nothing ends early. */
    text = "[" + std::string(SEND_TEXT_MAX - 2, '@');
    septets = to_septets(text);
    ASSERT_EQ(4000U, septets.size());
    EXPECT_EQ(std::string(SEND_TEXT_MAX - 2, '\0'), septets.substr(2));

    /* An escape for the very last character. */
    septets = to_septets(std::string(SEND_TEXT_MAX - 1, 'x') + "]");
    ASSERT_EQ(4001U, septets.size());
    EXPECT_EQ("x\x1B\x3E", septets.substr(3998));
    EXPECT_EQ(0, dv_sms_send_text[4001]);
}

TEST_F(charset_tables, inserting_an_escape)
{
    memset(dv_sms_send_text, 0, sizeof dv_sms_send_text);
    strcpy(dv_sms_send_text, "abcd");
    dv_sms_mgr_insert_escape(1, 4, 0x28);
    EXPECT_STREQ("a\x1B\x28"
                 "cd",
                 dv_sms_send_text);
    dv_sms_mgr_insert_escape(4, 5, 0x40);
    EXPECT_STREQ("a\x1B\x28"
                 "c\x1B\x40",
                 dv_sms_send_text);

    /* What stands behind index 3999 is not moved. */
    memset(dv_sms_send_text, 'x', SEND_TEXT_MAX);
    dv_sms_send_text[SEND_TEXT_MAX - 1] = 'y';
    dv_sms_send_text[SEND_TEXT_MAX] = 'z';
    dv_sms_send_text[SEND_TEXT_MAX + 1] = '\0';
    dv_sms_mgr_insert_escape(0, SEND_TEXT_MAX + 1, 0x14);
    EXPECT_EQ("\x1B\x14x", std::string(dv_sms_send_text, 3));
    EXPECT_EQ("xy", std::string(dv_sms_send_text + SEND_TEXT_MAX - 1));
    dv_sms_send_text[SEND_TEXT_MAX] = '\0';
}
