/* The parts of a message as hex text: golden outputs, user data by alphabet, failures. */
#include "vectors/encode_bench.h"

class encode_pdu : public encode
{
protected:
    static reference::bytes ud() { return {dv_sms_send_pdu.ud, dv_sms_send_pdu.ud + dv_sms_send_pdu.ud_count}; }
    static reference::bytes septets(const std::string &text) { return {text.begin(), text.end()}; }
};

TEST_F(encode_pdu, golden_single_parts)
{
    static const struct {
        const char *name;
        uint8_t dcs;
        std::string text;
        unsigned seg_size;
        const char *dest, *smsc;
        unsigned ref;
        const char *pdu;
        int length;
    } rows[] = {
        {"7-bit", DCS_GSM7, "hi", 160, "12345", "+123456", 1, "0491214365 11 01 05 81 2143F5 00 00 08 02 E834", 13},
        {"international, even", DCS_GSM7, "hi", 160, "+31612345678", "+31624000000", 0x2A,
         "0791 1326040000F0 11 2A 0B 91 1316325476F8 00 00 08 02 E834", 16},
        {"national service centre, odd", DCS_GSM7, "hi", 160, "1234", "12345", 255,
         "0481 2143F5 11 FF 04 81 2143 00 00 08 02 E834", 12},
        {"no service centre", DCS_GSM7, "hi", 160, "12345", "", 1, "0181 11 01 05 81 2143F5 00 00 08 02 E834", 13},
        {"no destination", DCS_GSM7, "hi", 160, "", "", 1, "0181 11 01 00 81 00 00 08 02 E834", 10},
        {"seven septets", DCS_GSM7, "1234567", 160, "1", "", 1, "0181 11 01 01 81 F1 00 00 08 07 31D98C56B3DD00", 16},
        {"eight septets", DCS_GSM7, "12345678", 160, "1", "", 1, "0181 11 01 01 81 F1 00 00 08 08 31D98C56B3DD70", 16},
        {"an extension", DCS_GSM7, "\x1B\x28", 160, "1", "", 1, "0181 11 01 01 81 F1 00 00 08 02 1B14", 11},
        {"a septet of 0", DCS_GSM7, std::string("a\0b", 3), 160, "1", "", 1, "0181 11 01 01 81 F1 00 00 08 03 618018",
         12},
        {"UCS-2", DCS_UCS2, "中A€", 3, "12345", "+123456", 1, "0491214365 11 01 05 81 2143F5 00 08 08 06 4E2D004120AC",
         17},
        {"8-bit", DCS_8BIT, "A\xFFz", 140, "12345", "+123456", 1, "0491214365 11 01 05 81 2143F5 00 04 08 03 41FF7A",
         14},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        prepare(row.dcs, row.text, row.seg_size, 1, row.dest, row.smsc, row.ref);
        EXPECT_EQ(reference::squeeze(row.pdu), pack());
        EXPECT_EQ(row.length, command_length());
        EXPECT_EQ(2, dv_sms_send_state.seq);
    }
    EXPECT_EQ(lines{}, traced());
    EXPECT_EQ(lines{}, saved());
}

TEST_F(encode_pdu, a_text_of_161_septets)
{
    prepare(DCS_GSM7, std::string(161, 'a'), 153, 2, "12345", "+123456", 0x2A);

    const std::string first = pack();
    const std::string head = "049121436551"
                             "2A"
                             "05812143F5"
                             "000008";
    /* The first septet stands one bit higher than it would, behind the fill bit. */
    EXPECT_EQ(head +
                  "A0"
                  "0500032A0201" +
                  "C2" + reference::hex(reference::pack(septets(std::string(152, 'a')))),
              first);
    EXPECT_EQ(153U, taken());
    EXPECT_EQ(2, dv_sms_send_state.seq);
    EXPECT_EQ(first, head +
                         "A0"
                         "0500032A0201" +
                         reference::hex(reference::pack(septets(std::string(153, 'a')), 1)));

    const std::string second = pack();
    EXPECT_EQ(head +
                  "0F"
                  "0500032A0202" +
                  reference::hex(reference::pack(septets(std::string(8, 'a')), 1)),
              second);
    EXPECT_EQ(161U, taken());
    EXPECT_EQ(3, dv_sms_send_state.seq);
}

TEST_F(encode_pdu, one_fill_bit_for_every_length_of_a_part)
{
    for (size_t length = 1; length <= 153; length++) {
        std::string text;
        for (size_t i = 0; i < length; i++)
            text += static_cast<char>('A' + (i * 7 + length) % 26);
        prepare(DCS_GSM7, text, 153, 2);
        ASSERT_EQ(7 + length, dv_sms_mgr_pdu_gen_ud(&dv_sms_send_pdu));
        EXPECT_EQ(reference::pack(septets(text), 1), ud()) << length;
        EXPECT_EQ(length, taken());
    }
}

TEST_F(encode_pdu, every_length_without_a_header)
{
    for (size_t length = 1; length <= 160; length++) {
        const std::string text(length, '\x55');
        prepare(DCS_GSM7, text, 160, 1);
        ASSERT_EQ(length, dv_sms_mgr_pdu_gen_ud(&dv_sms_send_pdu));
        EXPECT_EQ(reference::pack(septets(text)), ud()) << length;
    }
}

TEST_F(encode_pdu, an_escape_is_not_parted_from_its_code)
{
    const std::string text = std::string(152, 'a') + "\x1B\x28" + std::string(10, 'b');

    prepare(DCS_GSM7, text, 153, 2);
    EXPECT_EQ(7U + 152U, dv_sms_mgr_pdu_gen_ud(&dv_sms_send_pdu));
    EXPECT_EQ(reference::pack(septets(std::string(152, 'a')), 1), ud());
    EXPECT_EQ(152U, taken());
    EXPECT_EQ(7U + 12U, dv_sms_mgr_pdu_gen_ud(&dv_sms_send_pdu));
    EXPECT_EQ(reference::pack(septets("\x1B\x28" + std::string(10, 'b')), 1), ud());

    /* An escape that is not the last stays. */
    prepare(DCS_GSM7, std::string(151, 'a') + "\x1B\x28" + std::string(10, 'b'), 153, 2);
    EXPECT_EQ(7U + 153U, dv_sms_mgr_pdu_gen_ud(&dv_sms_send_pdu));
    EXPECT_EQ(153U, taken());

    /* Nor is anything held back where there is one part only. */
    prepare(DCS_GSM7, std::string(159, 'a') + "\x1B", 160, 1);
    EXPECT_EQ(160U, dv_sms_mgr_pdu_gen_ud(&dv_sms_send_pdu));
}

TEST_F(encode_pdu, a_last_part_that_is_a_lone_escape)
{
    prepare(DCS_GSM7, std::string(153, 'a') + "\x1B", 153, 2);
    EXPECT_EQ(160U, dv_sms_mgr_pdu_gen_ud(&dv_sms_send_pdu));
    EXPECT_EQ(8U, dv_sms_mgr_pdu_gen_ud(&dv_sms_send_pdu));
    EXPECT_EQ((reference::bytes{0x36}), ud());
    EXPECT_EQ(154U, taken());
}

TEST_F(encode_pdu, ucs2_parts)
{
    std::string text;
    for (int i = 0; i < 68; i++)
        text += "中";

    prepare(DCS_UCS2, text, 67, 2, "12345", "+123456", 7);
    const std::string head = "049121436551"
                             "07"
                             "05812143F5"
                             "000808";
    std::string body;
    for (int i = 0; i < 67; i++)
        body += "4E2D";
    EXPECT_EQ(head +
                  "8C"
                  "050003070201" +
                  body,
              pack()); /* 140: 6 and 134 */
    EXPECT_EQ(201U, taken());
    EXPECT_EQ(head + "08"
                     "050003070202"
                     "4E2D",
              pack());
    EXPECT_EQ(204U, taken());
}

TEST_F(encode_pdu, ucs2_of_70_characters)
{
    std::string text, body;
    for (int i = 0; i < 70; i++) {
        text += i % 2 == 0 ? "é" : "x";
        body += i % 2 == 0 ? "00E9" : "0078";
    }
    prepare(DCS_UCS2, text, 70, 1);
    EXPECT_EQ("049121436511"
              "01"
              "05812143F5"
              "0008088C" +
                  body,
              pack());
    EXPECT_EQ(text.size(), taken());
}

TEST_F(encode_pdu, octet_parts)
{
    std::string text;
    for (int i = 0; i < 140; i++)
        text += static_cast<char>(i);

    prepare(DCS_8BIT, text, 140, 1);
    EXPECT_EQ("049121436511"
              "01"
              "05812143F5"
              "0004088C" +
                  reference::hex(septets(text)),
              pack());

    text += "end";
    prepare(DCS_8BIT, text, 133, 2);
    const std::string head = "049121436551"
                             "01"
                             "05812143F5"
                             "000408";
    EXPECT_EQ(head +
                  "8B"
                  "050003010201" +
                  reference::hex(septets(text.substr(0, 133))),
              pack());
    EXPECT_EQ(133U, taken());
    EXPECT_EQ(head +
                  "10"
                  "050003010202" +
                  reference::hex(septets(text.substr(133))),
              pack());
    EXPECT_EQ(266U, taken()); /* by whole segments */

    /* Exactly at the end of a segment. */
    prepare(DCS_8BIT, std::string(266, 'z'), 133, 2);
    EXPECT_EQ(6U + 133U, dv_sms_mgr_pdu_gen_ud(&dv_sms_send_pdu));
    EXPECT_EQ(6U + 133U, dv_sms_mgr_pdu_gen_ud(&dv_sms_send_pdu));
    EXPECT_EQ(133, dv_sms_send_pdu.ud_count);
}

TEST_F(encode_pdu, the_header_carries_reference_total_and_sequence)
{
    for (const unsigned ref : {0U, 1U, 0x7FU, 0x80U, 0xFFU}) {
        prepare(DCS_GSM7, std::string(27 * 153, 'a').substr(0, 4001), 153, 27, "1", "", ref);
        for (unsigned seq = 1; seq <= 27; seq++) {
            const auto parsed = reference::parse_submit(pack());
            ASSERT_TRUE(parsed);
            EXPECT_EQ((reference::bytes{5, 0, 3, static_cast<uint8_t>(ref), 27, static_cast<uint8_t>(seq)}),
                      parsed->header);
            EXPECT_EQ(ref, parsed->message_reference);
            EXPECT_TRUE(parsed->whole);
        }
        EXPECT_EQ(28, dv_sms_send_state.seq);
    }
}

TEST_F(encode_pdu, the_record_is_used_again)
{
    prepare(DCS_GSM7, std::string(161, 'a'), 153, 2);
    pack();
    pack();
    prepare(DCS_GSM7, "hi", 160, 1);
    EXPECT_EQ("049121436511010581"
              "2143F5"
              "00000802E834",
              pack());
    EXPECT_EQ(0, dv_sms_send_pdu.udh_len);
    for (size_t i = 2; i < sizeof dv_sms_send_pdu.ud; i++)
        EXPECT_EQ(0, dv_sms_send_pdu.ud[i]) << i; /* nothing of the message before */
    EXPECT_EQ(strlen(dv_sms_pdu_text), std::string(dv_sms_pdu_text, sizeof dv_sms_pdu_text).find_last_not_of('\0') + 1);
}

TEST_F(encode_pdu, fields_of_the_record)
{
    memset(&dv_sms_send_pdu, 0xEE, sizeof dv_sms_send_pdu);
    dv_sms_send_pdu.first_octet = 0;
    prepare(DCS_GSM7, std::string(161, 'a'), 153, 2, "12345", "+123456", 9);
    pack();
    const dv_sms_pdu &record = dv_sms_send_pdu;
    EXPECT_EQ(0x51, record.first_octet);
    EXPECT_EQ(9, record.message_ref);
    EXPECT_EQ(0, record.pid);
    EXPECT_EQ(8, record.validity);
    EXPECT_EQ(160, record.udl);
    EXPECT_EQ(5, record.udh_len);
    EXPECT_EQ(0, record.udh_iei);
    EXPECT_EQ(3, record.udh_iedl);
    EXPECT_EQ(9, record.udh_ref);
    EXPECT_EQ(2, record.udh_total);
    EXPECT_EQ(1, record.udh_seq);
    EXPECT_EQ(134, record.ud_count);
}

TEST_F(encode_pdu, the_longest_part)
{
    const std::string number(DEST_DIGITS_MAX, '7'), smsc(SMSC_DIGITS_MAX, '8');
    marked_buffer output(PDU_TEXT_SIZE);

    for (const uint8_t dcs : {DCS_GSM7, DCS_8BIT, DCS_UCS2}) {
        prepare(dcs, std::string(500, 'x'),
                dcs == DCS_GSM7   ? 153
                : dcs == DCS_8BIT ? 133
                                  : 67,
                4, number.c_str(), smsc.c_str());
        const std::string pdu = pack();
        const auto parsed = reference::parse_submit(pdu);
        ASSERT_TRUE(parsed);
        EXPECT_EQ(number, parsed->destination);
        EXPECT_EQ(smsc, parsed->smsc);
        EXPECT_TRUE(parsed->whole);
        ASSERT_EQ(0, dv_sms_mgr_pdu_to_str(&dv_sms_send_pdu, output.data()));
        EXPECT_TRUE(output.intact());
        EXPECT_EQ(pdu + "\x1A", output.data());
    }
}

TEST_F(encode_pdu, hex_text_writes_no_more_than_it_has_to)
{
    for (size_t length = 1; length <= 160; length++) {
        prepare(DCS_GSM7, std::string(length, 'x'), 160, 1);
        const std::string pdu = pack();
        marked_buffer output(pdu.size() + 2, '~'); /* Ctrl-Z and the terminator */
        ASSERT_EQ(0, dv_sms_mgr_pdu_to_str(&dv_sms_send_pdu, output.data()));
        EXPECT_TRUE(output.intact());
        EXPECT_EQ(pdu + "\x1A", output.data());
    }
    char output[PDU_TEXT_SIZE];
    EXPECT_EQ(-1, dv_sms_mgr_pdu_to_str(nullptr, output));
    EXPECT_EQ(-1, dv_sms_mgr_pdu_to_str(&dv_sms_send_pdu, nullptr));
}

/* --- failures: seen in the trace only --- */

TEST_F(encode_pdu, failures)
{
    static const struct {
        const char *name;
        uint8_t dcs;
        std::string text;
        std::string dest, smsc;
        const char *message;
    } rows[] = {
        {"a service centre of 23 digits", DCS_GSM7, "hi", "123", std::string(23, '1'),
         "dv_sms_mgr_pdu_gen_phone failed"},
        {"with a plus sign", DCS_GSM7, "hi", "123", "+" + std::string(23, '1'), "dv_sms_mgr_pdu_gen_phone failed"},
        {"a line end in the service centre", DCS_GSM7, "hi", "123", "12\r", "dv_sms_mgr_pdu_gen_phone failed"},
        {"a destination of 21 digits", DCS_GSM7, "hi", std::string(21, '1'), "123", "dv_sms_mgr_pdu_gen_phone failed"},
        {"a Ctrl-Z in the destination", DCS_GSM7, "hi", "1\x1A", "123", "dv_sms_mgr_pdu_gen_phone failed"},
        {"no septets", DCS_GSM7, "", "123", "123", "dv_sms_mgr_pdu_gen_ud failed"},
        {"no octets", DCS_8BIT, "", "123", "123", "dv_sms_mgr_pdu_gen_ud failed"},
        {"no characters", DCS_UCS2, "", "123", "123", "dv_sms_mgr_pdu_gen_ud failed"},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        forget();
        prepare(row.dcs, row.text, 70, 1, row.dest.c_str(), row.smsc.substr(0, SMSC_SIZE).c_str());
        EXPECT_EQ(-1, dv_sms_mgr_pack_pdu_data());
        EXPECT_EQ((lines{std::string("dv_sms_mgr_pack_pdu_data: ") + row.message}), traced());
        EXPECT_EQ("dv_sms_mgr_send.cpp", trace_lines().at(0).file);
        EXPECT_EQ(lines{}, platform.saved());
    }
    dv_sms_send_state.dest = nullptr;
    forget();
    EXPECT_EQ(-1, dv_sms_mgr_pack_pdu_data());
    EXPECT_ONLY_TRACED("dv_sms_mgr_pack_pdu_data", "dv_sms_mgr_pdu_gen_phone failed");
}
