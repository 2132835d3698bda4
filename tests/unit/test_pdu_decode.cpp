/* Decoding of SMS-DELIVER (TS 23.040, 9.2.2.1): each field, each rule, each report. */
#include "vectors/codec_bench.h"

class pdu_decode : public codec
{
protected:
    /* A message with everything in front of TP-DCS settled. */
    static std::string from_31612345678(const std::string &first_octet, const std::string &behind_pid)
    {
        return "00" + first_octet + "0B911316325476F8 00" + behind_pid;
    }
    static constexpr char stamp[] = "42305041700002";

    /* The reports of the decoder, trace and log being the same. */
    lines reports()
    {
        static const std::string own = "dv_sms_mgr_parse_pdu: ";
        lines found;

        EXPECT_EQ(saved(), traced());
        for (const std::string &line : saved()) {
            EXPECT_EQ(own, line.substr(0, own.size()));
            found.push_back(line.substr(own.size()));
        }
        return found;
    }
};

/* --- whole messages --- */

TEST_F(pdu_decode, messages)
{
    static const struct {
        const char *name, *pdu, *phone, *date, *text;
    } rows[] = {
        {"7-bit, international sender", "00 04 0B91 1316325476F8 00 00 42305041700002 02 E834", "+31612345678",
         "2024/03/05 14:07:00", "hi"},
        {"a service centre in front", "07911326040000F0 04 0B91 1316325476F8 00 00 42305041700002 02 E834",
         "+31612345678", "2024/03/05 14:07:00", "hi"},
        {"the longest service centre that is one",
         "0C91 1326040000000000000000 04 0B91 1316325476F8 00 00 "
         "42305041700002 02 E834",
         "+31612345678", "2024/03/05 14:07:00", "hi"},
        {"small letters", "07911326040000f0 04 0b91 1316325476f8 00 00 42305041700002 02 e834", "+31612345678",
         "2024/03/05 14:07:00", "hi"},
        {"an even count of digits, national", "00 04 0481 2143 00 00 42305041700002 02 E834", "1234",
         "2024/03/05 14:07:00", "hi"},
        {"an odd count, national", "00 04 0581 2143F5 00 00 42305041700002 02 E834", "12345", "2024/03/05 14:07:00",
         "hi"},
        {"an even count that ends in a fill all the same", "00 04 0681 2143F5 00 00 42305041700002 02 E834", "12345",
         "2024/03/05 14:07:00", "hi"},
        {"only 0x91 is international: 0xA1", "00 04 04A1 2143 00 00 42305041700002 02 E834", "1234",
         "2024/03/05 14:07:00", "hi"},
        {"0x90", "00 04 0490 2143 00 00 42305041700002 02 E834", "1234", "2024/03/05 14:07:00", "hi"},
        {"no sender, international", "00 04 0091 00 00 42305041700002 02 E834", "+", "2024/03/05 14:07:00", "hi"},
        {"no sender", "00 04 0081 00 00 42305041700002 02 E834", "", "2024/03/05 14:07:00", "hi"},
        {"TP-PID is skipped", "00 04 0481 2143 7F 00 42305041700002 02 E834", "1234", "2024/03/05 14:07:00", "hi"},
        {"the zone does not count", "00 04 0481 2143 00 00 42305041700069 02 E834", "1234", "2024/03/05 14:07:00",
         "hi"},
        {"a zone with a sign bit", "00 04 0481 2143 00 00 4230504170008A 02 E834", "1234", "2024/03/05 14:07:00", "hi"},
        {"a stamp is not checked", "00 04 0481 2143 00 00 00000000000000 02 E834", "1234", "2000/00/00 00:00:00", "hi"},
        {"every digit of the stamp in its place", "00 04 0481 2143 00 00 42305041709002 02 E834", "1234",
         "2024/03/05 14:07:09", "hi"},
        {"letters in the stamp stay", "00 04 0481 2143 00 00 AB305041700002 02 E834", "1234", "20BA/03/05 14:07:00",
         "hi"},
        {"UCS-2", "00 04 0481 2143 00 08 42305041700002 06 4E2D004120AC", "1234", "2024/03/05 14:07:00", "中A€"},
        {"UCS-2 ends where its length says", "00 04 0481 2143 00 08 42305041700002 04 4E2D004120AC", "1234",
         "2024/03/05 14:07:00", "中A"},
        {"UCS-2 with an odd length takes the whole character", "00 04 0481 2143 00 08 42305041700002 03 4E2D004120AC",
         "1234", "2024/03/05 14:07:00", "中A"},
        {"UCS-2 that ends early", "00 04 0481 2143 00 08 42305041700002 06 4E2D", "1234", "2024/03/05 14:07:00", "中"},
        {"UCS-2 that ends within a character", "00 04 0481 2143 00 08 42305041700002 06 4E2D41", "1234",
         "2024/03/05 14:07:00", "中\xE4\x84\x80"},
        {"UCS-2 that ends within an octet", "00 04 0481 2143 00 08 42305041700002 06 4E2D4", "1234",
         "2024/03/05 14:07:00", "中"},
        {"a UCS-2 value 0 ends the text", "00 04 0481 2143 00 08 42305041700002 06 004100000042", "1234",
         "2024/03/05 14:07:00", "A"},
        {"surrogates one by one", "00 04 0481 2143 00 08 42305041700002 04 D83DDE00", "1234", "2024/03/05 14:07:00",
         "\xED\xA0\xBD\xED\xB8\x80"},
        {"8-bit data", "00 04 0481 2143 00 04 42305041700002 04 41C3A942", "1234", "2024/03/05 14:07:00",
         "A\xC3\xA9"
         "B"},
        {"8-bit data go on to twice their length", "00 04 0481 2143 00 04 42305041700002 02 4142434445", "1234",
         "2024/03/05 14:07:00", "ABCD"},
        {"8-bit data that end early", "00 04 0481 2143 00 04 42305041700002 08 4142", "1234", "2024/03/05 14:07:00",
         "AB"},
        {"8-bit data with a zero", "00 04 0481 2143 00 04 42305041700002 04 41004243", "1234", "2024/03/05 14:07:00",
         "A"},
        {"no text", "00 04 0481 2143 00 00 42305041700002 00", "1234", "2024/03/05 14:07:00", ""},
        {"extensions, and the small c-cedilla", "00 04 0481 2143 00 00 42305041700002 06 9B726C834A00", "1234",
         "2024/03/05 14:07:00", "€1{ç"},
        {"missing septets are commercial ats", "00 04 0481 2143 00 00 42305041700002 05 E834", "1234",
         "2024/03/05 14:07:00", "hi@@@"},
        {"nothing of the text there", "00 04 0481 2143 00 00 42305041700002 03", "1234", "2024/03/05 14:07:00", "@@@"},
        {"seven septets, the eighth place filled with zeros",
         "00 04 0481 2143 00 00 42305041700002 07 "
         "F3B2BDECA6E701",
         "1234", "2024/03/05 14:07:00", "seventy"},
        {"what fills the eighth place stays behind the text",
         "00 04 0481 2143 00 00 42305041700002 07 "
         "F3B2BDECA6E71B",
         "1234", "2024/03/05 14:07:00", "seventy\r"},
        {"digits that are none count as 0", "00 04 0481 2143 00 00 42305041700002 02 E8?4", "1234",
         "2024/03/05 14:07:00", "hç"},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const dv_sms_msg &msg = decode(row.pdu);
        EXPECT_STREQ(row.phone, msg.phone);
        EXPECT_STREQ(row.date, msg.date);
        EXPECT_STREQ(row.text, msg.text);
        EXPECT_EQ(0U, msg.concatenated);
        EXPECT_EQ(reference::decode(reference::squeeze(row.pdu)).text, msg.text); /* the two agree here, too */
    }
}

/* --- reports --- */

TEST_F(pdu_decode, reports_of_a_number)
{
    decode("00 04 0B91 1316325476F8 00 00 42305041700002 02 E834");
    EXPECT_EQ((lines{
                  "util_replace_with_new_string_ext data:31612345678",
                  "sms_phone:+31612345678",
                  "sms_date:2024/03/05 14:07:00",
                  "total_bit:14, body_len:2, sms7bit_len:2, offset:0",
              }),
              reports());
    EXPECT_EQ((lines{"util_replace_with_new_string_ext 31 \"31612345678\" \" \" \"$\""}),
              platform.calls({"util_replace_with_new_string_ext"}));
    for (const trace_line &line : trace_lines())
        EXPECT_EQ("dv_sms_mgr_pdu.cpp", line.file);
}

TEST_F(pdu_decode, reports_of_a_name)
{
    decode("00 04 0ED0 D637396C7EBBCB 00 00 42305041700002 02 E834");
    EXPECT_EQ((lines{
                  "sms_phone is english, phone is:Vodafone",
                  "util_replace_with_new_string_ext data:Vodafone",
                  "sms_phone:Vodafone",
                  "sms_date:2024/03/05 14:07:00",
                  "total_bit:14, body_len:2, sms7bit_len:2, offset:0",
              }),
              reports());
}

TEST_F(pdu_decode, reports_of_a_name_with_a_blank)
{
    decode("00 04 08D0 4190780C 00 00 42305041700002 02 E834");
    EXPECT_EQ((lines{
                  "sms_phone is english, phone is:A bc",
                  "util_replace_with_new_string_ext data:A$bc",
                  "sms_phone:A$bc",
                  "sms_date:2024/03/05 14:07:00",
                  "total_bit:14, body_len:2, sms7bit_len:2, offset:0",
              }),
              reports());
}

TEST_F(pdu_decode, the_log_is_written_without_a_trace_too)
{
    debug_mode = 0;
    decode("00 04 0B91 1316325476F8 00 00 42305041700002 02 E834");
    EXPECT_EQ("", output());
    EXPECT_EQ(4U, saved().size());
}

TEST_F(pdu_decode, lengths)
{
    static const struct {
        const char *name, *first_octet, *udl_and_header, *report;
    } rows[] = {
        {"160 characters", "04", "A0", "total_bit:1120, body_len:160, sms7bit_len:140, offset:0"},
        {"none", "04", "00", "total_bit:0, body_len:0, sms7bit_len:0, offset:0"},
        {"one", "04", "01", "total_bit:7, body_len:1, sms7bit_len:1, offset:0"},
        {"eight", "04", "08", "total_bit:56, body_len:8, sms7bit_len:7, offset:0"},
        {"255", "04", "FF", "total_bit:1785, body_len:255, sms7bit_len:224, offset:0"},
        {"a part of 153", "44", "A0 0500032A0201", "total_bit:1072, body_len:153, sms7bit_len:134, offset:1"},
        {"a part of 8", "44", "0F 0500032A0201", "total_bit:57, body_len:8, sms7bit_len:8, offset:1"},
        {"a part of none", "44", "07 0500032A0201", "total_bit:1, body_len:0, sms7bit_len:1, offset:1"},
        {"a header that fills whole septets", "44", "A0 06080412340201",
         "total_bit:1064, body_len:151, sms7bit_len:133, offset:7"},
        {"a header of no octets", "44", "02 00", "total_bit:14, body_len:1, sms7bit_len:2, offset:6"},
        {"a header of three octets", "44", "0A 03240101", "total_bit:38, body_len:5, sms7bit_len:5, offset:3"},
        /* More header than TP-UDL has room for: the arithmetic goes below zero and its results are
         * kept in eight bits. */
        {"shorter than its header", "44", "01 0500032A0201", "total_bit:-41, body_len:250, sms7bit_len:252, offset:1"},
        {"no length behind a header", "44", "00 0500032A0201",
         "total_bit:-48, body_len:249, sms7bit_len:250, offset:1"},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        forget();
        decode(from_31612345678(row.first_octet, std::string("00") + stamp + row.udl_and_header));
        EXPECT_EQ(row.report, reports().back());
    }
}

/* --- the sender --- */

TEST_F(pdu_decode, senders)
{
    static const struct {
        const char *name, *address, *phone;
    } rows[] = {
        {"a name of five letters", "09D0 41767A5C06", "Alice"},
        {"of seven", "0DD0 41E19058341E01", "ABCDEFG"},
        {"of eight: the last was never converted", "0ED0 41E19058341E91", "ABCDEFGH"},
        {"of eight, the last beyond ASCII: its code stands there", "0ED0 41E19058341E0B", "ABCDEFG\x05"},
        {"of eight, the last a commercial at: nothing", "0ED0 41E19058341E01", "ABCDEFG"},
        {"of nine: the octets behind the seventh are not read", "10D0 C8E7945A94BAA455", "HOSTER.R"},
        {"of eleven: so too", "14D0 4937BD2C7797E9D3E614", "InternetSM\x03"},
        {"with a blank", "0ED0 4F79D87D2E83D2", "Orange$i"},
        {"with blanks at both ends", "06D0 A02788", "$O$"},
        {"whose octets show no letter: taken for a number", "06D0 419010", "140901"},
        {"no letter but F", "06D0 F19F10", "1FF901"},
        {"F at the end is a fill", "06D0 4190F1", "14091"},
        {"small letters", "09d0 41767a5c06", "Alice"},
        {"small f is none", "04D0 f1f2", "1f2"},
        {"whatever the type says: 0x91 and a letter", "0491 41BA", "+At"},
        {"0x81 and a letter", "0481 41BA", "At"},
        {"an odd count of semi-octets", "0381 41BA", "At"},
        {"0xD0 with an even number", "04D0 2143", "1234"},
        {"a name beyond ASCII", "07D0 C1821004", "AéB$"},
        {"an escape in a name", "07D0 C10D4A08", "A{B"},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const std::string pdu = std::string("00 04") + row.address + "00 00" + stamp + "02 E834";
        const dv_sms_msg &msg = decode(pdu);
        const reference::delivered expected = reference::decode(reference::squeeze(pdu));
        EXPECT_EQ(expected.phone, msg.phone);
        EXPECT_STREQ(row.phone, msg.phone);
        EXPECT_STREQ("2024/03/05 14:07:00", msg.date); /* the position went on behind the address */
        EXPECT_STREQ("hi", msg.text);
    }
}

TEST_F(pdu_decode, a_sender_that_does_not_fit_is_cut)
{
    std::string digits;

    for (unsigned count = 0; count <= 60; count++, digits += static_cast<char>('0' + count % 10)) {
        char swapped[80] = {};
        phone_to_semi_octets(digits.c_str(), swapped, static_cast<int>(count));
        for (const char *type : {"91", "81"}) {
            const std::string whole = (strcmp(type, "91") == 0 ? "+" : "") + digits;
            const dv_sms_msg &msg = decode("00 04" + reference::hex({static_cast<uint8_t>(count)}) + type + swapped +
                                           "00 00" + stamp + "02 E834");
            EXPECT_EQ(whole.substr(0, 31), msg.phone);
            EXPECT_STREQ("2024/03/05 14:07:00", msg.date);
            EXPECT_STREQ("hi", msg.text);
        }
    }
}

TEST_F(pdu_decode, a_name_is_cut_in_front_of_a_character)
{
    for (size_t letters = 1; letters <= 40; letters++) {
        for (const uint8_t first : {uint8_t{0x41}, uint8_t{0x1C}}) {
            reference::bytes septets(letters, 0x7F); /* two bytes each */
            septets[0] = first;
            const reference::bytes packed = reference::pack(septets);
            const std::string pdu = "00 04" + reference::hex({static_cast<uint8_t>(packed.size() * 2)}) + "D0" +
                                    reference::hex(packed) + "00 00" + stamp + "02 E834";
            const dv_sms_msg &msg = decode(pdu);
            const std::string phone(msg.phone, strnlen(msg.phone, sizeof msg.phone));

            ASSERT_LE(phone.size(), 31U);
            EXPECT_EQ(reference::decode(reference::squeeze(pdu)).phone, phone) << letters;
            if (letters > 24 && first == 0x41) {
                EXPECT_EQ("Aààààààààààààààà", phone.substr(0, 33)) << letters; /* 1 + 15 * 2 bytes */
            }
            if (letters > 24 && first == 0x1C) {
                EXPECT_EQ(30U, phone.size()) << letters;
            }
        }
    }
}

/* --- the alphabet --- */

TEST_F(pdu_decode, alphabet_of_every_data_coding_scheme)
{
    static const struct {
        unsigned from, to, mask, bits;
        const char *text;
    } rules[] = {
        /* The first rule that fits; the same octets read as 7-bit, 8-bit and UCS-2. */
        {0x00, 0x3F, 0x0C, 0x04, "ABCD"},
        {0x00, 0x3F, 0x0C, 0x08, "\xE4\x85\x82\xE4\x8D\x84"},
        {0xF0, 0xFF, 0x04, 0x04, "ABCD"},
        {0x00, 0xFF, 0x00, 0x00, "Aè\r\""},
    };

    for (unsigned dcs = 0; dcs < 256; dcs++) {
        const char *expected = nullptr;
        for (const auto &rule : rules)
            if (expected == nullptr && dcs >= rule.from && dcs <= rule.to && (dcs & rule.mask) == rule.bits)
                expected = rule.text;
        const dv_sms_msg &msg =
            decode(from_31612345678("04", reference::hex({static_cast<uint8_t>(dcs)}) + stamp + "04 41424344"));
        EXPECT_STREQ(expected, msg.text) << dcs;
    }
}

TEST_F(pdu_decode, data_coding_schemes_that_are_often_met)
{
    const auto text = [](const char *dcs) {
        return std::string(decode(from_31612345678("04", std::string(dcs) + stamp + "04 41424344")).text);
    };

    EXPECT_EQ("ABCD", text("F4"));                     /* 8-bit */
    EXPECT_EQ("\xE4\x85\x82\xE4\x8D\x84", text("18")); /* UCS-2, class 0 */
    EXPECT_EQ("Aè\r\"", text("0C"));                   /* reserved: 7-bit */
    EXPECT_EQ("Aè\r\"", text("48"));
    EXPECT_EQ("Aè\r\"", text("E0")); /* message waiting, UCS-2 by the standard */
}

/* --- the user-data header --- */

TEST_F(pdu_decode, headers)
{
    static const struct {
        const char *name, *header_and_text;
        unsigned concatenated, reference, total, sequence;
        const char *text;
    } rows[] = {
        {"8-bit reference", "0C 0500032A0201 D06536FB0D", 1, 0x2A, 2, 1, "hello"},
        {"the second part", "0C 0500032A0202 EE6F399B0C", 1, 0x2A, 2, 2, "world"},
        {"16-bit reference: no parts, and the first letter is lost", "0D 06080412340201 E8329BFD06", 0, 0, 0, 0,
         "ello"},
        {"an 8-bit reference behind another element", "11 0A2401010003 2A0201 0000 00", 0, 0, 0, 0, nullptr},
        {"four octets of element", "0D 06000412340201 E8329BFD06", 1, 0x1234, 2, 1, "ello"},
        {"another element behind it", "0F 0800032A02017001 00 41", 1, 0x2A, 2, 1, nullptr},
        {"ports first", "13 0B05040B8423F000032A0201 00", 0, 0, 0, 0, nullptr},
        {"no octets: the identifier reads as 0", "02 00 40", 1, 0, 0, 0, nullptr},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const std::string pdu = from_31612345678("44", std::string("00") + stamp + row.header_and_text);
        const dv_sms_msg &msg = decode(pdu);
        EXPECT_EQ(row.concatenated, msg.concatenated);
        EXPECT_EQ(row.reference, msg.reference);
        EXPECT_EQ(row.total, msg.total);
        EXPECT_EQ(row.sequence, msg.sequence);
        EXPECT_EQ(reference::decode(reference::squeeze(pdu)).text, msg.text);
        if (row.text != nullptr) {
            EXPECT_STREQ(row.text, msg.text);
        }
    }
}

TEST_F(pdu_decode, the_offset_of_every_header)
{
    for (unsigned length = 0; length <= 139; length++) {
        const std::string header = reference::hex({static_cast<uint8_t>(length)}) + std::string(2 * length, '7');
        const std::string pdu = from_31612345678("44", std::string("00") + stamp + "A0" + header + "55AA55AA");
        forget();
        decode(pdu);
        const unsigned fill = 7 - (length + 1) * 8 % 7;
        const std::string report = reports().back();
        EXPECT_EQ("offset:" + std::to_string(fill), report.substr(report.find("offset")));
        EXPECT_EQ(reference::decode(reference::squeeze(pdu)).text, current_sms_msg->text) << length;
    }
}

TEST_F(pdu_decode, no_header_without_its_bit)
{
    for (unsigned first_octet = 0; first_octet < 256; first_octet++) {
        decode(from_31612345678(reference::hex({static_cast<uint8_t>(first_octet)}),
                                std::string("04") + stamp + "0E 0500032A0201 41"));
        EXPECT_EQ((first_octet & 0x40) != 0 ? 1U : 0U, current_sms_msg->concatenated) << first_octet;
    }
}

TEST_F(pdu_decode, udh_elements)
{
    static const struct {
        const char *name, *header;
        unsigned concatenated, reference, total, sequence;
    } rows[] = {
        {"8-bit reference", "0500032A0201", 1, 0x2A, 2, 1},
        {"element of four octets", "06000412340201", 1, 0x1234, 2, 1},
        {"element of two: the reference stays", "0400022A02", 1, 7777, 0x2A, 2},
        {"element of none: total is its length octet's neighbour", "020000", 1, 7777, 0, 0},
        {"element of five", "070005010203 0405", 1, 7777, 4, 5},
        {"element of 255, far behind the header's end", "0500FF2A0201", 1, 7777, 0, 0},
        {"16-bit reference", "06080412340201", 0, 7777, 88, 99},
        {"national shift", "03240101", 0, 7777, 88, 99},
        {"no header", "00", 1, 7777, 0, 0},
        {"a header that ends behind its identifier", "0100", 1, 7777, 0, 0},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const reference::bytes octets = reference::unhex(reference::squeeze(row.header));
        uint8_t header[PDU_UDH_SIZE] = {};
        memcpy(header, octets.data(), octets.size());
        current_sms_msg->reference = 7777;
        current_sms_msg->total = 88;
        current_sms_msg->sequence = 99;
        current_sms_msg->concatenated = 1 - row.concatenated;
        dv_sms_mgr_parse_udh(header);
        EXPECT_EQ(row.concatenated, current_sms_msg->concatenated);
        EXPECT_EQ(row.reference, current_sms_msg->reference);
        EXPECT_EQ(row.total, current_sms_msg->total);
        EXPECT_EQ(row.sequence, current_sms_msg->sequence);
    }
}

TEST_F(pdu_decode, concatenated_is_cleared_where_there_is_no_header)
{
    current_sms_msg->concatenated = 1;
    dv_sms_mgr_parse_pdu("00040B911316325476F800004230504170000202E834");
    EXPECT_EQ(0U, current_sms_msg->concatenated);
}

/* --- the national path --- */

TEST_F(pdu_decode, national_language)
{
    /* Septets 1B 53 "i" 40 0B 1B 65 from the fill of three bits on. */
    const std::string septets = reference::hex(reference::pack({0x1B, 0x53, 'i', 0x40, 0x0B, 0x1B, 0x65}, 3));
    static const struct {
        const char *name, *dcs, *header;
        bool national;
    } rows[] = {
        {"Turkish single shift", "00", "03240101", true},
        {"with a class in the upper bits", "10", "03240101", true},
        {"another language", "00", "03240102", false},
        {"a locking shift", "00", "03250101", false},
        {"the element and another", "00", "07240101250101", false},
        {"a longer header", "00", "0424010100", false},
        {"reserved alphabet", "0C", "03240101", false},
        {"a group that is kept whole", "48", "03240101", false},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const std::string pdu = from_31612345678("44", std::string(row.dcs) + stamp + "0C" + row.header + septets);
        decode(pdu);
        if (row.national) {
            EXPECT_STREQ("ŞièĞ€", current_sms_msg->text);
        }
        EXPECT_EQ(row.national, std::string(current_sms_msg->text) == "ŞièĞ€");
        EXPECT_EQ(reference::decode(reference::squeeze(pdu)).text, current_sms_msg->text);
        EXPECT_EQ(0U, current_sms_msg->concatenated);
    }
}

TEST_F(pdu_decode, national_language_header_that_says_less)
{
    /* As many digits as the header has are compared, so its beginnings agree as well. */
    for (const char *header : {"0124", "022401"}) {
        const size_t octets = strlen(header) / 2;
        const int fill = 7 - static_cast<int>(octets * 8 % 7);
        const std::string septets = reference::hex(reference::pack({0x04, 0x07, 0x04}, fill));
        const size_t udl = (octets * 8 + static_cast<size_t>(fill)) / 7 + 3;
        decode(from_31612345678("44", std::string("00") + stamp + reference::hex({static_cast<uint8_t>(udl)}) + header +
                                          septets));
        EXPECT_STREQ("€ı€", current_sms_msg->text) << header;
    }
}

TEST_F(pdu_decode, national_language_is_for_7_bit_only)
{
    EXPECT_STREQ("A", decode(from_31612345678("44", std::string("08") + stamp + "06 03240101 0041")).text);
    EXPECT_STREQ("AB", decode(from_31612345678("44", std::string("04") + stamp + "06 03240101 4142")).text);
}

TEST_F(pdu_decode, missing_septets_on_the_national_path)
{
    EXPECT_STREQ("@@@@@@", decode(from_31612345678("44", std::string("00") + stamp + "0B 03240101")).text);
}

/* --- what is not decoded --- */

/* The header leaves a body of eight bits, which count as one character. */
TEST_F(pdu_decode, a_lone_euro_sign_in_the_last_part)
{
    EXPECT_STREQ("", decode(from_31612345678("44", std::string("08") + stamp + "08 050003010202 20AC")).text);
    EXPECT_EQ("has some reason, don`t decode", reports().back());
    EXPECT_STREQ("\xE4\xBF\xA1",
                 decode(from_31612345678("44", std::string("08") + stamp + "08 050003010202 4FE1")).text);
    EXPECT_STREQ("\xE2\x82\xAC!",
                 decode(from_31612345678("44", std::string("08") + stamp + "0A 050003010202 20AC 0021")).text);
}

TEST_F(pdu_decode, one_ucs2_octet_that_begins_with_20)
{
    strcpy(current_sms_msg->text, "as it was");
    const std::string pdu = from_31612345678("04", std::string("08") + stamp + "01 20");
    dv_sms_mgr_parse_pdu(reference::squeeze(pdu).c_str());
    EXPECT_STREQ("as it was", current_sms_msg->text);
    EXPECT_STREQ("+31612345678", current_sms_msg->phone);
    EXPECT_EQ("has some reason, don`t decode", reports().back());

    static const struct {
        const char *body, *text;
    } others[] = {
        {"02 2041", "\xE2\x81\x81"}, /* two octets */
        {"01 2141", "\xE2\x85\x81"}, /* another beginning */
        {"01 02", "\xC8\x80"},
        {"00 20", ""},
    };
    for (const auto &row : others) {
        forget();
        EXPECT_STREQ(row.text, decode(from_31612345678("04", std::string("08") + stamp + row.body)).text) << row.body;
        EXPECT_EQ(lines{"total_bit"}[0], reports().back().substr(0, 9)) << row.body;
    }
    EXPECT_STREQ(" ", decode(from_31612345678("04", std::string("00") + stamp + "01 20")).text); /* 7-bit */
}

/* --- the record --- */

TEST_F(pdu_decode, fields_are_cleared_behind_their_text)
{
    memset(current_sms_msg, 0xEE, sizeof *current_sms_msg);
    dv_sms_mgr_parse_pdu("00040B911316325476F800004230504170000202E834");

    const auto clean = [](const char *field, size_t size, const char *text) {
        std::string expected(text);
        expected.resize(size, '\0');
        EXPECT_EQ(expected, std::string(field, size));
    };
    clean(current_sms_msg->phone, SMS_MSG_PHONE_SIZE, "+31612345678");
    clean(current_sms_msg->date, SMS_MSG_DATE_SIZE, "2024/03/05 14:07:00");
    clean(current_sms_msg->text, SMS_MSG_TEXT_SIZE, "hi");
}

TEST_F(pdu_decode, the_pdu_is_only_read)
{
    const std::string pdu = "07911326040000F0040B911316325476F800004230504170000202E834";
    std::string copy = pdu;

    dv_sms_mgr_parse_pdu(copy.c_str());
    EXPECT_EQ(pdu, copy);
}
