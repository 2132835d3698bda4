/* Whole messages: from a request's text through all its parts to what a handset reads, by a decoder
 * that knows the standard only. */
#include "devinfo.h"
#include "sms_msg.h"
#include "vectors/encode_bench.h"

class encode_parts : public encode
{
protected:
    void SetUp() override
    {
        encode::SetUp();
        platform.set_flag(SMS_CSCA_FLAG, "+31624000000");
        platform.set_devinfo(DEVINFO_NETWORK_STATE, "LTE");
        be_quiet();
    }

    struct sent {
        std::vector<reference::submitted> parts;
        std::string text; /* joined */
    };

    /* Everything that goes out for this text. */
    static sent send(const std::string &text, const std::string &number = "+31612345678")
    {
        sockmsg_record record = {};
        auto *payload = reinterpret_cast<sms_payload *>(record.payload);
        sent out;

        memcpy(payload->phone, number.data(), std::min(number.size(), sizeof payload->phone));
        memcpy(payload->text, text.data(), std::min(text.size(), sizeof payload->text));
        fake::the_platform().forget();
        EXPECT_EQ(0, dv_sms_mgr_parse_send_data(&record));
        while (dv_sms_send_state.seq <= dv_sms_send_state.total) {
            const std::string pdu = pack();
            const auto part = reference::parse_submit(pdu);
            EXPECT_TRUE(part) << pdu;
            if (!part)
                break;
            EXPECT_TRUE(part->whole) << pdu;
            EXPECT_EQ("+31624000000", part->smsc);
            EXPECT_EQ(number, part->destination);
            EXPECT_EQ("08", part->validity);
            EXPECT_EQ(0U, part->pid);
            EXPECT_EQ(pdu.size() / 2 - 8, static_cast<size_t>(command_length()));
            out.parts.push_back(*part);
            out.text += part->text;
        }
        return out;
    }

    /* The headers of a message in parts, or none for a single one; each part as full as it may be. */
    static void expect_numbered(const sent &message)
    {
        const size_t total = message.parts.size();
        const unsigned ref = message.parts.at(0).message_reference;

        for (size_t i = 0; i < total; i++) {
            const reference::submitted &part = message.parts[i];
            const auto octet = [](size_t value) { return static_cast<uint8_t>(value); };
            EXPECT_EQ(ref, part.message_reference);
            EXPECT_EQ(total == 1 ? 0x11U : 0x51U, part.first_octet);
            const reference::bytes header = {5, 0, 3, octet(ref), octet(total), octet(i + 1)};
            EXPECT_EQ(total == 1 ? reference::bytes() : header, part.header);
            EXPECT_LE(part.ud.size(), 140U);
        }
    }
};

TEST_F(encode_parts, texts)
{
    static const struct {
        const char *name;
        std::string text;
        unsigned dcs;
        size_t parts;
    } rows[] = {
        {"one letter", "a", DCS_GSM7, 1},
        {"160 letters", std::string(160, 'x'), DCS_GSM7, 1},
        {"161 letters", std::string(161, 'x'), DCS_GSM7, 2},
        {"306 letters", std::string(306, 'x'), DCS_GSM7, 2},
        {"307 letters", std::string(307, 'x'), DCS_GSM7, 3},
        {"4000 letters", std::string(4000, 'x'), DCS_GSM7, 27},
        {"80 braces are 160 septets", std::string(80, '{'), DCS_GSM7, 1},
        {"81 braces", std::string(81, '{'), DCS_GSM7, 2},
        {"one character beyond ASCII", "é", DCS_UCS2, 1},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const sent message = send(row.text);
        EXPECT_EQ(row.text, message.text);
        EXPECT_EQ(row.parts, message.parts.size());
        EXPECT_EQ(row.dcs, message.parts.at(0).dcs);
        expect_numbered(message);
    }
}

TEST_F(encode_parts, every_length_of_letters)
{
    std::string text;

    for (size_t length = 1; length <= 500; length++) {
        text += static_cast<char>('!' + length * 31 % 58); /* "!" to "Z" */
        if (text.back() == '@' || text.back() == '$')
            text.back() = 'q';
        const sent message = send(text);
        ASSERT_EQ(text, message.text) << length;
        ASSERT_EQ(length <= 160 ? 1 : (length + 152) / 153, message.parts.size()) << length;
        expect_numbered(message);
    }
}

TEST_F(encode_parts, every_length_of_characters_beyond_ascii)
{
    static const char *const alphabet[] = {"中", "é", "x", "€", "Ж"};
    std::string text;

    for (size_t length = 1; length <= 300; length++) {
        text += alphabet[length % 5];
        const sent message = send(text);
        ASSERT_EQ(text, message.text) << length;
        ASSERT_EQ(length <= 70 ? 1 : (length + 66) / 67, message.parts.size()) << length;
        for (const reference::submitted &part : message.parts)
            EXPECT_EQ(0x08U, part.dcs);
        expect_numbered(message);
    }
}

TEST_F(encode_parts, every_printable_ascii_character)
{
    std::string text;

    for (char c = ' '; c < 0x7F; c++)
        text += c;
    std::string expected = text;
    expected[expected.find('`')] = '\''; /* the default alphabet has no grave accent */
    EXPECT_EQ(expected, send(text).text);
    EXPECT_EQ("a b\r\nc", send("a\tb\r\nc").text);
    EXPECT_EQ("éñ", send("\x1A\x1E").text); /* kept on purpose */
}

TEST_F(encode_parts, an_escape_at_every_place_around_the_end_of_a_part)
{
    for (size_t in_front = 140; in_front <= 160; in_front++) {
        const std::string text = std::string(in_front, 'a') + "{[|]}" + std::string(60, 'b');
        const sent message = send(text);
        EXPECT_EQ(text, message.text) << in_front;
        ASSERT_EQ(2U, message.parts.size());
        for (const reference::submitted &part : message.parts) {
            const reference::bytes septets = reference::unpack(part.ud, 0);
            EXPECT_NE(0x1B, septets.at(part.udl - 1)) << in_front; /* no part ends with an escape */
        }
    }
}

/* The number of parts is settled before escapes move: 306 septets with one at the 153rd place are two
 * parts, of 152 and 153 septets. A known limit. */
TEST_F(encode_parts, the_septet_that_is_never_sent)
{
    const std::string text = std::string(152, 'a') + "{" + std::string(152, 'b');
    const sent message = send(text);

    ASSERT_EQ(2U, message.parts.size());
    EXPECT_EQ(159U, message.parts[0].udl);
    EXPECT_EQ(160U, message.parts[1].udl);
    EXPECT_EQ(text.substr(0, text.size() - 1), message.text);
}

TEST_F(encode_parts, characters_beyond_the_basic_plane_lose_their_upper_bits)
{
    EXPECT_EQ("A\xEF\x98\x80"
              "B",
              send("A😀B").text); /* U+1F600 to U+F600 */
    EXPECT_EQ(1U, send("A😀B").parts.size());
}

TEST_F(encode_parts, malformed_utf8_becomes_zeros)
{
    const sent message = send("A\xC3"
                              "Bé");

    ASSERT_EQ(1U, message.parts.size());
    EXPECT_EQ("0041000000E9", reference::hex(message.parts[0].ud));
    EXPECT_EQ("004100BF", reference::hex(send("A\xBF").parts.at(0).ud));
    EXPECT_EQ("00410000", reference::hex(send("A\xE4\xB8").parts.at(0).ud));
}

TEST_F(encode_parts, the_reference_is_raised_for_each_message_and_wraps)
{
    dv_sms_send_state.ref = 0;
    EXPECT_EQ(1U, send("a").parts.at(0).message_reference);
    EXPECT_EQ(2U, send(std::string(400, 'a')).parts.at(2).message_reference);
    EXPECT_EQ(3U, send("a").parts.at(0).message_reference);
    dv_sms_send_state.ref = 255;
    EXPECT_EQ(0U, send("a").parts.at(0).message_reference);
}

TEST_F(encode_parts, numbers_go_out_as_they_came)
{
    for (const char *number :
         {"1", "12", "10086", "+1", "+31612345678", "12345678901234567890", "+12345678901234567890"})
        EXPECT_EQ("hi", send("hi", number).text) << number;
}

/* What goes out, turned into what would come in: the daemon reads its own parts. */
TEST_F(encode_parts, the_daemon_reads_what_it_wrote)
{
    std::string chinese;
    for (int i = 0; i < 150; i++)
        chinese += i % 3 == 0 ? "中" : "文";

    for (const std::string &text : {std::string("Hello [world] {~}"), std::string(400, 'x'), chinese}) {
        const sent message = send(text);
        std::string read;
        for (const reference::submitted &part : message.parts) {
            const std::string udhi = part.header.empty() ? "04" : "44";
            const auto two = [](unsigned value) { return reference::hex({static_cast<uint8_t>(value)}); };
            const dv_sms_msg &msg = decode("00" + udhi + "0B911316325476F800" + two(part.dcs) + "42305041700002" +
                                           two(part.udl) + reference::hex(part.ud));
            EXPECT_EQ(part.header.empty() ? 0U : 1U, msg.concatenated);
            EXPECT_EQ(part.header.empty() ? 0U : message.parts.size(), msg.total);
            EXPECT_EQ(part.header.empty() ? 0U : part.message_reference, msg.reference);
            read += msg.text;
        }
        EXPECT_EQ(text, read);
    }
}
