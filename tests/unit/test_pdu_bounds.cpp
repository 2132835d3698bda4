/* What hostile or damaged PDUs can do: nothing. Every length that a message states is tried with more
 * and with less behind it than it says, and the outcome is compared with the reference. */
#include <random>

#include "vectors/codec_bench.h"

class pdu_bounds : public codec
{
protected:
    void SetUp() override
    {
        codec::SetUp();
        be_quiet();
    }

    bool check(const std::string &spaced)
    {
        platform.forget();
        return agrees_with_reference(reference::squeeze(spaced));
    }

    static std::string two_digits(size_t value) { return reference::hex({static_cast<uint8_t>(value)}); }

    static std::string repeated(const std::string &unit, size_t count)
    {
        std::string text;

        while (count-- > 0)
            text += unit;
        return text;
    }

    static constexpr char front[] = "00040B911316325476F8 00";
    static constexpr char front_udhi[] = "00440B911316325476F8 00";
    static constexpr char stamp[] = "42305041700002";
};

/* One of every kind that the decoder tells apart. */
static const char *const kinds[] = {
    "07911326040000F0 04 0B91 1316325476F8 00 00 42305041700002 0A E8329BFD4697D9EC37",
    "00 04 0ED0 D637396C7EBBCB 00 00 42305041700002 07 F3B2BDECA6E71B",
    "00 04 14D0 4937BD2C7797E9D3E614 00 08 11309291024061 08 0442043504410442",
    "00 04 0481 2143 00 04 42305041700002 04 41C3A942",
    "00 44 0B91 1316325476F8 00 00 42305041700002 0C 0500032A0201 D06536FB0D",
    "00 44 0B91 1316325476F8 00 00 42305041700002 0D 06080412340201 E8329BFD06",
    "00 44 0B91 1316325476F8 00 08 42305041700002 0A 0500032A0202 4E2D0041",
    "00 44 0B91 1316325476F8 00 00 42305041700002 0C 03240101 D84CD3C005280D",
    "00 44 0B91 1316325476F8 00 04 42305041700002 13 0B05040B8423F000032A0201 41424344454647",
    "00 04 0B91 1316325476F8 00 08 42305041700002 01 20",
};

TEST_F(pdu_bounds, every_kind_cut_short_at_every_length)
{
    for (const char *kind : kinds) {
        const std::string pdu = reference::squeeze(kind);
        for (size_t length = 0; length <= pdu.size(); length++)
            ASSERT_TRUE(check(pdu.substr(0, length)));
    }
}

TEST_F(pdu_bounds, fields_behind_an_early_end_are_empty)
{
    const dv_sms_msg &msg = decode("00040B911316325476F80000");

    EXPECT_STREQ("+31612345678", msg.phone);
    EXPECT_STREQ("20// ::", msg.date); /* no digits to go between the marks */
    EXPECT_STREQ("", msg.text);
    decode("");
    EXPECT_STREQ("", msg.phone);
    EXPECT_STREQ("", msg.text);
}

TEST_F(pdu_bounds, every_kind_with_more_behind_it)
{
    for (const char *kind : kinds)
        for (const char *more : {"0", "41", "1B", "FFFF", "C3A9C3A9"})
            for (const size_t count : {1U, 2U, 100U, 1000U, 3000U})
                ASSERT_TRUE(check(kind + repeated(more, count)));
}

TEST_F(pdu_bounds, every_octet_of_every_kind_replaced)
{
    for (const char *kind : kinds) {
        const std::string pdu = reference::squeeze(kind);
        for (size_t at = 0; at + 2 <= pdu.size(); at += 2)
            for (const unsigned octet : {0x00U, 0x01U, 0x1BU, 0x40U, 0x7FU, 0x80U, 0xC3U, 0xFFU})
                ASSERT_TRUE(check(pdu.substr(0, at) + two_digits(octet) + pdu.substr(at + 2)));
    }
}

TEST_F(pdu_bounds, every_length_of_the_service_centre)
{
    for (size_t length = 0; length < 256; length++) {
        ASSERT_TRUE(check(two_digits(length) + repeated("91", length) + "040481214300 00" + stamp + "02E834"));
        EXPECT_STREQ("hi", current_sms_msg->text);
        ASSERT_TRUE(check(two_digits(length) + "91131604"));
    }
}

TEST_F(pdu_bounds, every_length_of_the_sender)
{
    for (size_t length = 0; length < 256; length++) {
        const size_t octets = (length + 1) / 2;
        for (const char *digit : {"21", "C1", "1B", "FF", "05", "A0", "00"}) {
            for (const char *type : {"91", "D0"}) {
                const std::string head = "0004" + two_digits(length) + type;
                ASSERT_TRUE(check(head + repeated(digit, octets) + "00 00" + stamp + "02E834"));
                EXPECT_STREQ("2024/03/05 14:07:00", current_sms_msg->date);
                EXPECT_STREQ("hi", current_sms_msg->text);
                ASSERT_TRUE(check(head + repeated(digit, octets / 2)));
            }
        }
    }
}

TEST_F(pdu_bounds, every_length_of_the_text_in_every_alphabet)
{
    const std::string bodies[] = {"",
                                  "41",
                                  "20",
                                  repeated("C3A9", 300),
                                  repeated("4E2D", 300),
                                  repeated("36DB6DB6DB6D1B", 60),
                                  repeated("80", 600)};

    for (size_t udl = 0; udl < 256; udl++)
        for (const char *dcs : {"00", "04", "08"})
            for (const std::string &body : bodies)
                ASSERT_TRUE(check(std::string(front) + dcs + stamp + two_digits(udl) + body));
}

TEST_F(pdu_bounds, every_length_of_the_header)
{
    for (size_t length = 0; length < 256; length++) {
        for (const char *element : {"00", "24"}) {
            for (const size_t udl : {size_t{0}, length, size_t{160}}) {
                const std::string head = std::string(front_udhi) + "00" + stamp + two_digits(udl) + two_digits(length);
                ASSERT_TRUE(check(head + repeated(element, length) + repeated("F1E2D3", 100)));
                ASSERT_TRUE(check(head + repeated(element, length / 2)));
            }
        }
    }
}

TEST_F(pdu_bounds, a_record_between_markers)
{
    struct between {
        char in_front[64];
        dv_sms_msg msg;
        char behind[64];
    };
    const auto block = std::make_unique<between>();
    dv_sms_msg *before = current_sms_msg;
    const std::string bodies[] = {repeated("4E2D", 200), repeated("FF", 400), repeated("C3A9", 200)};

    memset(block->in_front, marked_buffer::marker, sizeof block->in_front);
    memset(block->behind, marked_buffer::marker, sizeof block->behind);
    current_sms_msg = &block->msg;
    for (const std::string &body : bodies)
        for (const char *dcs : {"00", "04", "08"})
            check("0004FF91" + repeated("79", 128) + "00" + dcs + stamp + "FF" + body);
    current_sms_msg = before;
    EXPECT_EQ(std::string(64, marked_buffer::marker), std::string(block->in_front, 64));
    EXPECT_EQ(std::string(64, marked_buffer::marker), std::string(block->behind, 64));
}

/* --- the text's 255 bytes --- */

TEST_F(pdu_bounds, the_text_is_cut_in_front_of_a_character)
{
    static const struct {
        const char *name, *dcs;
        size_t udl;
        std::string body;
        std::string character;
        size_t bytes; /* kept */
    } rows[] = {
        {"160 of two bytes", "00", 160, reference::hex(reference::pack(reference::bytes(160, 0x05))), "é", 254},
        {"127 of two bytes fit", "00", 127, reference::hex(reference::pack(reference::bytes(127, 0x05))), "é", 254},
        {"128 do not", "00", 128, reference::hex(reference::pack(reference::bytes(128, 0x05))), "é", 254},
        {"85 of three bytes are exactly 255", "08", 170, repeated("4E2D", 85), "中", 255},
        {"86 do not fit", "08", 172, repeated("4E2D", 86), "中", 255},
        {"127 of three bytes", "08", 254, repeated("4E2D", 127), "中", 255},
        {"255 octets fit", "04", 255, repeated("78", 255), "x", 255},
        {"256 octets do not", "04", 255, repeated("78", 256), "x", 255},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        ASSERT_TRUE(check(std::string(front) + row.dcs + stamp + two_digits(row.udl) + row.body));
        EXPECT_EQ(repeated(row.character, row.bytes / row.character.size()), current_sms_msg->text);
        EXPECT_EQ(row.bytes, strlen(current_sms_msg->text));
    }
}

TEST_F(pdu_bounds, the_cut_at_every_position_in_a_character)
{
    /* Three-byte characters behind 0 to 5 letters: the 255th byte is the first, second or third of one. */
    for (size_t letters = 0; letters <= 5; letters++) {
        const std::string body = repeated("0078", letters) + repeated("4E2D", 100);
        ASSERT_TRUE(check(std::string(front) + "08" + stamp + two_digits(254) + body));
        EXPECT_EQ(letters + (255 - letters) / 3 * 3, strlen(current_sms_msg->text)) << letters;
    }
    /* And two-byte ones from septets, behind letters. */
    for (size_t letters = 0; letters <= 3; letters++) {
        reference::bytes septets(letters, 'x');
        septets.resize(160, 0x05);
        ASSERT_TRUE(check(std::string(front) + "00" + stamp + "A0" + reference::hex(reference::pack(septets))));
        EXPECT_EQ(letters + (255 - letters) / 2 * 2, strlen(current_sms_msg->text)) << letters;
    }
}

TEST_F(pdu_bounds, octets_that_only_continue_leave_nothing_to_keep)
{
    ASSERT_TRUE(check(std::string(front) + "04" + stamp + "FF" + repeated("80", 300)));
    EXPECT_STREQ("", current_sms_msg->text);
    ASSERT_TRUE(check(std::string(front) + "04" + stamp + "FF" + repeated("80", 255)));
    EXPECT_EQ(255U, strlen(current_sms_msg->text)); /* nothing is cut, so nothing is looked for */
    ASSERT_TRUE(check(std::string(front) + "04" + stamp + "FF41" + repeated("80", 300)));
    EXPECT_STREQ("", current_sms_msg->text); /* a character of 301 bytes: it does not fit */
}

/* --- at random --- */

TEST_F(pdu_bounds, messages_at_random)
{
    std::mt19937 random{23040};
    const auto draw = [&](size_t below) { return random() % static_cast<unsigned>(below); };
    static const char digits[] = "0123456789ABCDEFabcdef";

    for (int round = 0; round < 4000; round++) {
        std::string pdu = reference::squeeze(kinds[draw(std::size(kinds))]);
        const size_t changes = draw(6);
        for (size_t i = 0; i < changes; i++)
            pdu[draw(pdu.size())] = digits[draw(sizeof digits - 1)];
        if (draw(3) == 0)
            pdu.resize(draw(pdu.size() + 1));
        if (draw(3) == 0)
            for (size_t more = draw(500); more > 0; more--)
                pdu += digits[draw(16)];
        ASSERT_TRUE(check(pdu));
    }
}

TEST_F(pdu_bounds, characters_that_are_no_digits)
{
    std::mt19937 random{27005};

    for (int round = 0; round < 2000; round++) {
        std::string pdu;
        for (size_t length = random() % 300; length > 0; length--)
            pdu += static_cast<char>(1 + random() % 255);
        platform.forget();
        decode(pdu); /* under the sanitizers: it only has to come back */
        EXPECT_EQ(0, current_sms_msg->phone[SMS_MSG_PHONE_SIZE - 1]);
        EXPECT_EQ(0, current_sms_msg->date[SMS_MSG_DATE_SIZE - 1]);
        EXPECT_EQ(0, current_sms_msg->text[SMS_MSG_TEXT_SIZE - 1]);
    }
}
