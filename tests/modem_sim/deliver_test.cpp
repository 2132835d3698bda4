#include "deliver.h"

#include <gtest/gtest.h>

namespace sim
{
namespace
{

deliver_header header(const char *from, number_type type, const char *service_centre, const char *date, int zone)
{
    return {.service_centre = service_centre,
            .from = {from, type},
            .when = parse_timestamp(date, zone),
            .message_class = std::nullopt};
}

std::string pdu_of(const deliver_header &head, const std::string &text, alphabet wanted = alphabet::automatic)
{
    const split_text cut = split(text, wanted, false, false);
    EXPECT_EQ(cut.parts.size(), 1u);
    return to_hex(encode_deliver(head, cut.chosen, cut.parts.front(), std::nullopt));
}

TEST(deliver, single_messages_as_published)
{
    EXPECT_EQ(pdu_of(header("+18005551212", number_type::international, "+12345678901", "2011-01-01 12:34:56", 0),
                     "hellohello"),
              "07912143658709F1040B918100551512F20000111010214365000AE8329BFD4697D9EC37");
    EXPECT_EQ(
        pdu_of(header("InternetSMS", number_type::alphanumeric, "+79037011111", "2011-03-29 19:20:04", 16), "тест"),
        "07919730071111F10414D04937BD2C7797E9D3E614000811309291024061080442043504410442");
}

TEST(deliver, a_negative_zone_has_its_sign_bit)
{
    const std::string pdu =
        pdu_of(header("1234", number_type::unknown, "", "2024-03-05 14:07:09", -20), "hi", alphabet::gsm7);
    EXPECT_EQ(pdu, "00"
                   "04"
                   "0481"
                   "2143"
                   "00"
                   "00"
                   "4230504170900A"
                   "02"
                   "E834");
}

TEST(deliver, number_types)
{
    const auto address_of = [](const char *text, number_type type) { return to_hex(encode_address({text, type})); };
    EXPECT_EQ(address_of("+31612345678", number_type::international), "0B911316325476F8");
    EXPECT_EQ(address_of("0612345678", number_type::national), "0AA16021436587");
    EXPECT_EQ(address_of("*100#", number_type::unknown), "0581"
                                                         "1A00FB");
    EXPECT_EQ(address_of("12", number_type::abbreviated), "02E121");
    EXPECT_EQ(address_of("Design@Home", number_type::alphanumeric), "14D0C4F23C7D760390EF7619");
    EXPECT_EQ(address_of("A", number_type::alphanumeric), "02D041");
    EXPECT_EQ(address_of("ABCDEFGH", number_type::alphanumeric), "0ED041E19058341E91");
    EXPECT_EQ(type_of("+31"), number_type::international);
    EXPECT_EQ(type_of("31*#"), number_type::unknown);
    EXPECT_EQ(type_of("a31"), number_type::alphanumeric);
}

TEST(deliver, refuses_addresses_that_do_not_fit)
{
    EXPECT_NO_THROW(encode_address({std::string(20, '1'), number_type::unknown}));
    EXPECT_THROW(encode_address({std::string(21, '1'), number_type::unknown}), std::invalid_argument);
    EXPECT_THROW(encode_address({"", number_type::unknown}), std::invalid_argument);
    EXPECT_THROW(encode_address({"+", number_type::international}), std::invalid_argument);
    EXPECT_THROW(encode_address({"12x", number_type::unknown}), std::invalid_argument);
    EXPECT_NO_THROW(encode_address({std::string(11, 'A'), number_type::alphanumeric}));
    EXPECT_THROW(encode_address({std::string(12, 'A'), number_type::alphanumeric}), std::invalid_argument);
    EXPECT_THROW(encode_address({"你", number_type::alphanumeric}), std::invalid_argument);
    EXPECT_THROW(encode_address({"\xFF", number_type::alphanumeric}), std::invalid_argument);
}

TEST(deliver, dates_are_checked)
{
    EXPECT_EQ(format_timestamp(parse_timestamp("2024-03-05 14:07:09", 4)), "2024-03-05 14:07:09");
    for (const char *bad : {"", "2024-03-05", "2024-13-05 14:07:09", "2024-00-05 14:07:09", "2024-03-32 14:07:09",
                            "2024-03-05 24:07:09", "2024-03-05 14:60:09", "2024-03-05 14:07:60", "1999-03-05 14:07:09",
                            "2100-03-05 14:07:09", "2024-03-05 14:07:09x"})
        EXPECT_THROW(parse_timestamp(bad, 0), std::invalid_argument) << bad;
    EXPECT_THROW(parse_timestamp("2024-03-05 14:07:09", 80), std::invalid_argument);
    EXPECT_THROW(parse_timestamp("2024-03-05 14:07:09", -80), std::invalid_argument);
}

struct length_case {
    alphabet wanted;
    const char *character;
    size_t single, part, part_wide; /* characters that fit */
};

constexpr length_case lengths[] = {
    {alphabet::gsm7, "a", 160, 153, 152}, {alphabet::gsm7, "€", 80, 76, 76},  {alphabet::turkish, "a", 155, 149, 148},
    {alphabet::turkish, "ğ", 77, 74, 74}, {alphabet::ucs2, "你", 70, 67, 66}, {alphabet::ucs2, "😀", 35, 33, 33},
    {alphabet::data, "x", 140, 134, 133},
};

std::string repeat(const std::string &text, size_t count)
{
    std::string out;
    while (count-- > 0)
        out += text;
    return out;
}

TEST(deliver, cuts_at_the_lengths_of_the_standard)
{
    for (const length_case &c : lengths) {
        SCOPED_TRACE(c.character + std::string(" ") + std::to_string(c.single));
        const size_t unit = split(c.character, c.wanted, false, false).parts[0].size();
        for (const bool wide : {false, true}) {
            const size_t part = wide ? c.part_wide : c.part;
            EXPECT_EQ(split(repeat(c.character, c.single), c.wanted, wide, false).parts.size(), 1u);
            const split_text two = split(repeat(c.character, c.single + 1), c.wanted, wide, false);
            ASSERT_EQ(two.parts.size(), 2u);
            EXPECT_EQ(two.parts[0].size(), part * unit);
            EXPECT_EQ(two.parts[1].size(), (c.single + 1 - part) * unit);
            EXPECT_EQ(split(repeat(c.character, 2 * part), c.wanted, wide, false).parts.size(), 2u);
            EXPECT_EQ(split(repeat(c.character, 2 * part + 1), c.wanted, wide, false).parts.size(), 3u);
            EXPECT_EQ(split(repeat(c.character, 255 * part), c.wanted, wide, false).parts.size(), 255u);
            EXPECT_THROW(split(repeat(c.character, 255 * part + 1), c.wanted, wide, false), std::invalid_argument);
        }
    }
}

TEST(deliver, no_part_ends_inside_a_character)
{
    const split_text cut = split(std::string(152, 'a') + "€" + std::string(20, 'b'), alphabet::gsm7, false, false);
    ASSERT_EQ(cut.parts.size(), 2u);
    EXPECT_EQ(cut.parts[0].size(), 152u);
    EXPECT_EQ(cut.parts[1][0], 0x1B);
}

TEST(deliver, the_alphabet_is_found_by_itself)
{
    EXPECT_EQ(split("plain {}[]~|^\\ €", alphabet::automatic, false, false).chosen, alphabet::gsm7);
    EXPECT_EQ(split("ğ", alphabet::automatic, false, false).chosen, alphabet::ucs2);
    EXPECT_EQ(split("", alphabet::automatic, false, false).chosen, alphabet::gsm7);
    EXPECT_THROW(split("ğ", alphabet::gsm7, false, false), std::invalid_argument);
    EXPECT_THROW(split("你", alphabet::turkish, false, false), std::invalid_argument);
    EXPECT_THROW(split("\xFF", alphabet::automatic, false, false), std::invalid_argument);
    EXPECT_EQ(split("\xFF", alphabet::automatic, false, true).parts[0], octets{0xFF});
}

struct layout {
    alphabet coding;
    const char *text;
    std::optional<concatenation> place;
    std::optional<unsigned> message_class;
    const char *tail; /* from the first octet on, the sender left out */
};

const layout layouts[] = {
    {alphabet::gsm7, "hi", std::nullopt, std::nullopt, "04|0000|42305041700000|02E834"},
    {alphabet::gsm7, "hi", std::nullopt, 2u, "04|0012|42305041700000|02E834"},
    {alphabet::ucs2, "hi", std::nullopt, 0u, "04|0018|42305041700000|0400680069"},
    {alphabet::data, "hi", std::nullopt, std::nullopt, "04|0004|42305041700000|026869"},
    {alphabet::gsm7, "hi", concatenation{0x2A, false, 2, 1}, std::nullopt,
     "44|0000|42305041700000|09"
     "0500032A0201"
     "D069"},
    {alphabet::gsm7, "hi", concatenation{0x1234, true, 2, 1}, std::nullopt,
     "44|0000|42305041700000|0A"
     "06080412340201"
     "E834"},
    {alphabet::ucs2, "hi", concatenation{0x2A, false, 2, 1}, std::nullopt,
     "44|0008|42305041700000|0A"
     "0500032A0201"
     "00680069"},
    {alphabet::turkish, "ş", std::nullopt, std::nullopt,
     "44|0000|42305041700000|07"
     "03240101"
     "D8CC01"},
    {alphabet::turkish, "a", concatenation{0x2A, false, 2, 2}, std::nullopt,
     "44|0000|42305041700000|0C"
     "0800032A0202240101"
     "200C"},
};

TEST(deliver, every_kind_of_header)
{
    for (const layout &l : layouts) {
        SCOPED_TRACE(l.tail);
        deliver_header head = header("12", number_type::unknown, "", "2024-03-05 14:07:00", 0);
        head.message_class = l.message_class;
        const split_text cut = split(l.text, l.coding, false, false);
        std::string pdu = to_hex(encode_deliver(head, cut.chosen, cut.parts.front(), l.place));
        std::string tail = l.tail;
        tail.replace(tail.find('|'), 1, "028121"); /* the sender */
        std::erase(tail, '|');
        EXPECT_EQ(pdu, "00" + tail);
    }
}

TEST(deliver, a_part_that_is_too_long_is_refused)
{
    const deliver_header head = header("12", number_type::unknown, "", "2024-03-05 14:07:00", 0);
    const concatenation place{.total = 2};
    EXPECT_NO_THROW(encode_deliver(head, alphabet::gsm7, octets(153), place));
    EXPECT_THROW(encode_deliver(head, alphabet::gsm7, octets(154), place), std::invalid_argument);
    EXPECT_NO_THROW(encode_deliver(head, alphabet::gsm7, octets(160), std::nullopt));
    EXPECT_THROW(encode_deliver(head, alphabet::gsm7, octets(161), std::nullopt), std::invalid_argument);
    EXPECT_EQ(encode_deliver(head, alphabet::gsm7, octets(160), std::nullopt).size(), 1u + 14 + 140);
}

} // namespace
} // namespace sim
