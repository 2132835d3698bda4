#include "charset.h"

#include <gtest/gtest.h>

namespace sim
{
namespace
{

octets septets_of(std::u32string_view text, single_shift shift = single_shift::standard)
{
    octets out;
    for (const char32_t c : text) {
        const octets codes = to_septets(c, shift);
        out.insert(out.end(), codes.begin(), codes.end());
    }
    return out;
}

struct packing {
    const char32_t *text;
    const char *packed;
};

/* From the examples of TS 23.038 (USSD and CBS aside), of 27.005 and of common manuals. */
constexpr packing packings[] = {
    {U"hellohello", "E8329BFD4697D9EC37"},
    {U"hello", "E8329BFD06"},
    {U"How are you?", "C8F71D14969741F977FD07"},
    {U"hola", "E8373B0C"},
    {U"Test", "D4F29C0E"},
    {U"hi", "E834"},
    {U"12345678", "31D98C56B3DD70"},
    {U"@", "00"},
    {U"€", "9B32"},
    {U"", ""},
};

TEST(charset, packs_as_published)
{
    for (const packing &p : packings) {
        EXPECT_EQ(to_hex(pack_septets(septets_of(p.text), 0)), p.packed) << p.packed;
        const octets packed = *from_hex(p.packed);
        const octets septets = septets_of(p.text);
        EXPECT_EQ(unpack_septets(packed, septets.size(), 0), septets) << p.packed;
        EXPECT_EQ(from_septets(septets, single_shift::standard), p.text) << p.packed;
    }
}

TEST(charset, packing_starts_at_the_fill_bit)
{
    const octets septets = septets_of(U"hi");
    EXPECT_EQ(to_hex(pack_septets(septets, 1)), "D069");
    for (unsigned fill = 0; fill < 7; fill++)
        for (size_t count = 0; count <= 20; count++) {
            octets codes(count);
            for (size_t i = 0; i < count; i++)
                codes[i] = static_cast<uint8_t>((i * 37 + fill * 11 + 1) & 0x7F);
            const octets packed = pack_septets(codes, fill);
            EXPECT_EQ(packed.size(), (fill + count * 7 + 7) / 8);
            EXPECT_EQ(unpack_septets(packed, count, fill), codes) << fill << " " << count;
        }
}

TEST(charset, refuses_more_septets_than_there_are)
{
    const octets packed = *from_hex("E8329BFD06");
    EXPECT_TRUE(unpack_septets(packed, 5, 0));
    EXPECT_TRUE(unpack_septets(packed, 5, 5));
    EXPECT_FALSE(unpack_septets(packed, 5, 6));
    EXPECT_FALSE(unpack_septets(packed, 6, 0));
    EXPECT_FALSE(unpack_septets({}, 1, 0));
}

TEST(charset, each_code_of_each_alphabet_comes_back)
{
    for (const single_shift shift : {single_shift::standard, single_shift::turkish}) {
        for (unsigned code = 0; code < 0x80; code++) {
            if (code == 0x1B)
                continue;
            const octets one = {static_cast<uint8_t>(code)};
            const std::u32string text = from_septets(one, shift);
            ASSERT_EQ(text.size(), 1u);
            EXPECT_EQ(to_septets(text[0], shift), one) << code;
        }
    }
}

struct shifted_character {
    single_shift shift;
    uint8_t code;
    char32_t character;
};

constexpr shifted_character shifted_characters[] = {
    {single_shift::standard, 0x0A, U'\f'}, {single_shift::standard, 0x14, U'^'},  {single_shift::standard, 0x28, U'{'},
    {single_shift::standard, 0x29, U'}'},  {single_shift::standard, 0x2F, U'\\'}, {single_shift::standard, 0x3C, U'['},
    {single_shift::standard, 0x3D, U'~'},  {single_shift::standard, 0x3E, U']'},  {single_shift::standard, 0x40, U'|'},
    {single_shift::standard, 0x65, U'€'},  {single_shift::turkish, 0x47, U'Ğ'},   {single_shift::turkish, 0x49, U'İ'},
    {single_shift::turkish, 0x53, U'Ş'},   {single_shift::turkish, 0x63, U'ç'},   {single_shift::turkish, 0x65, U'€'},
    {single_shift::turkish, 0x67, U'ğ'},   {single_shift::turkish, 0x69, U'ı'},   {single_shift::turkish, 0x73, U'ş'},
    {single_shift::turkish, 0x3C, U'['},
};

TEST(charset, shifted_characters_take_an_escape)
{
    for (const shifted_character &s : shifted_characters) {
        const octets codes = {0x1B, s.code};
        EXPECT_EQ(to_septets(s.character, s.shift), codes) << s.code;
        EXPECT_EQ(from_septets(codes, s.shift), std::u32string(1, s.character)) << s.code;
    }
    EXPECT_TRUE(to_septets(U'ğ', single_shift::standard).empty());
    EXPECT_TRUE(to_septets(U'ç', single_shift::standard).empty());
    EXPECT_TRUE(to_septets(U'\x1B', single_shift::standard).empty());
}

TEST(charset, odd_escapes_are_read_as_the_standard_says)
{
    EXPECT_EQ(from_septets(octets{0x41, 0x1B}, single_shift::standard), U"A ");
    EXPECT_EQ(from_septets(octets{0x1B, 0x1B, 0x41}, single_shift::standard), U" A");
    EXPECT_EQ(from_septets(octets{0x1B, 0x41}, single_shift::standard), U"A");
    EXPECT_EQ(from_septets(octets{0x1B, 0x67}, single_shift::standard), U"g");
}

TEST(charset, utf8_is_taken_only_when_valid)
{
    EXPECT_EQ(from_utf8("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"), U"aé€😀");
    EXPECT_EQ(from_utf8(""), U"");
    for (const char *bad : {"\x80", "\xC3", "\xC3(", "\xC0\x80", "\xE2\x82", "\xE0\x80\x80", "\xED\xA0\x80",
                            "\xF4\x90\x80\x80", "\xF0\x80\x80\x80", "\xF8\x88\x80\x80\x80", "\xFF", "a\xFE"})
        EXPECT_FALSE(from_utf8(bad)) << bad;
}

TEST(charset, any_bytes_become_valid_utf8)
{
    EXPECT_EQ(repair_utf8("a\xC3\xA9z"), "aéz");
    EXPECT_EQ(repair_utf8("a\xFFz"), "a\uFFFDz");
    EXPECT_EQ(repair_utf8("\xE2\x82"), "\uFFFD\uFFFD");
    for (unsigned first = 0; first < 256; first++)
        for (unsigned second = 0; second < 256; second += 3) {
            const std::string bytes = {static_cast<char>(first), static_cast<char>(second), 'x'};
            EXPECT_TRUE(from_utf8(repair_utf8(bytes)));
        }
}

TEST(charset, surrogates_are_joined_and_lone_halves_shown)
{
    EXPECT_EQ(to_utf16(U"A😀"), std::u16string(u"A\xD83D\xDE00"));
    EXPECT_EQ(from_utf16(u"A\xD83D\xDE00"), U"A😀");
    EXPECT_EQ(to_utf8(from_utf16(std::u16string(u"\xD83DZ"))), "\uFFFDZ");
    EXPECT_EQ(to_utf8(from_utf16(std::u16string(u"\xDE00\xD83D"))), "\uFFFD\uFFFD");
    for (const char32_t c : {U'\U00010000', U'\U0010FFFF', U'\U0001F600', U'\uFFFF', U'A'})
        EXPECT_EQ(from_utf16(to_utf16(std::u32string(1, c))), std::u32string(1, c));
}

TEST(charset, hex_is_strict)
{
    EXPECT_EQ(from_hex("00fFA5"), (octets{0x00, 0xFF, 0xA5}));
    EXPECT_EQ(from_hex(""), octets{});
    EXPECT_FALSE(from_hex("0"));
    EXPECT_FALSE(from_hex("0G"));
    EXPECT_FALSE(from_hex("0 11"));
    EXPECT_EQ(to_hex(octets{0x00, 0xFF, 0xA5}), "00FFA5");
}

} // namespace
} // namespace sim
