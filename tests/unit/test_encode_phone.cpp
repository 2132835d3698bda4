/* Addresses and the first octet of SMS-SUBMIT (TS 23.040, 9.1.2.5 and 9.2.2.2). */
#include "vectors/encode_bench.h"

class encode_phone : public encode
{
};

TEST_F(encode_phone, numbers)
{
    static const struct {
        const char *number;
        int mode;
        unsigned length, type;
        const char *digits;
    } rows[] = {
        {"+123456", PHONE_SMSC, 4, 0x91, "214365"},
        {"+31624000000", PHONE_SMSC, 7, 0x91, "1326040000F0"},
        {"12345", PHONE_SMSC, 4, 0x81, "2143F5"},
        {"1", PHONE_SMSC, 2, 0x81, "F1"},
        {"", PHONE_SMSC, 1, 0x81, ""},
        {"+", PHONE_SMSC, 1, 0x91, ""},
        {"+31612345678", PHONE_DEST, 11, 0x91, "1316325476F8"},
        {"12345", PHONE_DEST, 5, 0x81, "2143F5"},
        {"1234", PHONE_DEST, 4, 0x81, "2143"},
        {"1", PHONE_DEST, 1, 0x81, "F1"},
        {"", PHONE_DEST, 0, 0x81, ""},
        {"+", PHONE_DEST, 0, 0x91, ""},
        {"*100#", PHONE_DEST, 5, 0x81, "1*00F#"}, /* unchecked */
        {"1+2", PHONE_DEST, 3, 0x81, "+1F2"},     /* only in front does it mean anything */
        {"++2", PHONE_DEST, 2, 0x91, "2+"},
        {"a b", PHONE_DEST, 3, 0x81, " aFb"},
        {"\xC3\xA9", PHONE_DEST, 2, 0x81, "\xA9\xC3"},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.number) + (row.mode == PHONE_SMSC ? " as service centre" : " as destination"));
        dv_sms_pdu record;
        memset(&record, 0xEE, sizeof record);
        ASSERT_EQ(0, dv_sms_mgr_pdu_gen_phone(row.number, &record, row.mode));
        const bool smsc = row.mode == PHONE_SMSC;
        EXPECT_EQ(row.length, smsc ? record.smsc_len : record.dest_len);
        EXPECT_EQ(row.type, smsc ? record.smsc_type : record.dest_type);
        EXPECT_STREQ(row.digits, smsc ? record.smsc_digits : record.dest_digits);
        /* The other address is left alone. */
        EXPECT_EQ(0xEE, smsc ? record.dest_len : record.smsc_len);
        EXPECT_EQ(0xEE, smsc ? record.dest_type : record.smsc_type);
        EXPECT_EQ('\xEE', smsc ? record.dest_digits[0] : record.smsc_digits[0]);
    }
}

TEST_F(encode_phone, the_longest_numbers_fill_their_fields_and_no_more)
{
    static const struct {
        int mode;
        size_t limit;
    } rows[] = {{PHONE_SMSC, SMSC_DIGITS_MAX}, {PHONE_DEST, DEST_DIGITS_MAX}};

    EXPECT_EQ(22, SMSC_DIGITS_MAX);
    EXPECT_EQ(20, DEST_DIGITS_MAX);
    for (const auto &row : rows) {
        for (const char *sign : {"", "+"}) {
            for (size_t digits = 0; digits <= 64; digits++) {
                dv_sms_pdu record;
                memset(&record, 0xEE, sizeof record);
                const std::string number = sign + std::string(digits, '7');
                const int expected = digits <= row.limit ? 0 : -1;
                EXPECT_EQ(expected, dv_sms_mgr_pdu_gen_phone(number.c_str(), &record, row.mode)) << number;
                EXPECT_EQ(0xEE, record.first_octet); /* behind the service centre's digits */
                EXPECT_EQ(0xEE, record.pid);         /* behind the destination's */
                EXPECT_EQ(0xEE, record.message_ref);
            }
        }
    }
}

TEST_F(encode_phone, control_characters_are_refused)
{
    for (int c = 1; c < 256; c++) {
        const std::string number = std::string("1") + static_cast<char>(c) + "2";
        const int expected = c < 0x20 || c == 0x7F ? -1 : 0;
        EXPECT_EQ(expected, dv_sms_mgr_pdu_gen_phone(number.c_str(), &dv_sms_send_pdu, PHONE_DEST)) << c;
        EXPECT_EQ(expected, dv_sms_mgr_pdu_gen_phone(number.c_str(), &dv_sms_send_pdu, PHONE_SMSC)) << c;
    }
    EXPECT_EQ(-1, dv_sms_mgr_pdu_gen_phone("12\r", &dv_sms_send_pdu, PHONE_DEST));
    EXPECT_EQ(-1, dv_sms_mgr_pdu_gen_phone("+\x1A", &dv_sms_send_pdu, PHONE_DEST));
}

TEST_F(encode_phone, null_arguments)
{
    for (const int mode : {PHONE_SMSC, PHONE_DEST}) {
        EXPECT_EQ(-1, dv_sms_mgr_pdu_gen_phone(nullptr, &dv_sms_send_pdu, mode));
        EXPECT_EQ(-1, dv_sms_mgr_pdu_gen_phone("123", nullptr, mode));
    }
    EXPECT_EQ(-1, dv_sms_mgr_pdu_gen_param(nullptr));
}

TEST_F(encode_phone, first_octet)
{
    for (int concatenated = 0; concatenated < 2; concatenated++) {
        dv_sms_send_state.concatenated = static_cast<uint8_t>(concatenated);
        for (unsigned before = 0; before < 256; before++) {
            auto octet = static_cast<uint8_t>(before);
            ASSERT_EQ(0, dv_sms_mgr_pdu_gen_param(&octet));
            /* SMS-SUBMIT, no rejection of duplicates, a relative validity; the rest is as it was. */
            EXPECT_EQ((before & 0xA0) | 0x11 | (concatenated ? 0x40U : 0U), octet) << before;
        }
    }
    uint8_t octet = 0;
    dv_sms_send_state.concatenated = 0;
    dv_sms_mgr_pdu_gen_param(&octet);
    EXPECT_EQ(0x11, octet);
    dv_sms_send_state.concatenated = 1;
    dv_sms_mgr_pdu_gen_param(&octet);
    EXPECT_EQ(0x51, octet);
    dv_sms_send_state.concatenated = 0; /* the record is used again for the next message */
    dv_sms_mgr_pdu_gen_param(&octet);
    EXPECT_EQ(0x11, octet);
}
