#include "submit.h"

#include <gtest/gtest.h>

#include "storage.h"

namespace sim
{
namespace
{

submit parse(const std::string &hex)
{
    const auto pdu = from_hex(hex);
    EXPECT_TRUE(pdu) << hex;
    return parse_submit(*pdu, tpdu_length(*pdu));
}

std::string text_in(const submit &content)
{
    return text_of(content.coding, std::span(&content.codes, 1));
}

struct accepted {
    const char *pdu, *service_centre, *to, *text;
    alphabet coding;
};

/* A line a PDU, cut at its fields. */
/* clang-format off */
const accepted accepted_pdus[] = {
    {"0491214365" "1101" "05812143F5" "000008" "02" "E834", "+123456", "12345", "hi", alphabet::gsm7},
    {"00" "0100" "0B914316565811F9" "0000" "04" "E8373B0C", "", "+34616585119", "hola", alphabet::gsm7},
    {"07914346466554F6" "0100" "0B914316565811F9" "0000" "04" "E8373B0C", "+34646456456", "+34616585119", "hola", alphabet::gsm7},
    {"00" "1100" "0B916407281553F8" "0000AA" "0A" "E8329BFD4697D9EC37", "", "+46708251358", "hellohello", alphabet::gsm7},
    {"0181" "1100" "0C915348870420140000A7" "11" "54747A0E4ACF41F4F29C9E769F4121", "", "+358478400241", "This is testing !", alphabet::gsm7},
    {"07914346466554F6" "0100" "0B914316565811F9" "0008" "06" "304253F68449", "+34646456456", "+34616585119", "あ叶葉", alphabet::ucs2},
    {"07914400000000F0" "0100" "0B811000000000F0" "0004" "0B" "48692074686572652E2E2E", "+44000000000", "01000000000", "Hi there...", alphabet::data},
    {"00" "0100" "0481" "2143" "0000" "02" "9B32", "", "1234", "€", alphabet::gsm7},
    {"00" "0100" "0481" "2143" "0008" "04" "D83DDE00", "", "1234", "😀", alphabet::ucs2},
    {"00" "0100" "0481" "2143" "0008" "02" "D83D", "", "1234", "\uFFFD", alphabet::ucs2},
    {"00" "0100" "05A1" "2A43FB" "00F4" "01" "FF", "", "*234#", "\uFFFD", alphabet::data},
    {"00" "0100" "0481" "2143" "0000" "00", "", "1234", "", alphabet::gsm7},
    {"00" "4100" "0481" "2143" "0000" "07" "03240101" "D8CC01", "", "1234", "ş", alphabet::turkish},
};
/* clang-format on */

TEST(submit, reads_what_is_well_formed)
{
    for (const accepted &a : accepted_pdus) {
        SCOPED_TRACE(a.pdu);
        const submit content = parse(a.pdu);
        EXPECT_EQ(content.service_centre, a.service_centre);
        EXPECT_EQ(content.to, a.to);
        EXPECT_EQ(content.coding, a.coding);
        EXPECT_EQ(text_in(content), a.text);
        EXPECT_FALSE(content.place);
    }
}

struct validity_case {
    const char *pdu, *validity;
};

/* clang-format off */
const validity_case validity_cases[] = {
    {"00" "0100" "0481" "2143" "0000" "02" "E834", ""},
    {"00" "1100" "0481" "2143" "0000" "08" "02" "E834", "45 minutes"},
    {"00" "1100" "0481" "2143" "0000" "8F" "02" "E834", "720 minutes"},
    {"00" "1100" "0481" "2143" "0000" "90" "02" "E834", "750 minutes"},
    {"00" "1100" "0481" "2143" "0000" "A7" "02" "E834", "1440 minutes"},
    {"00" "1100" "0481" "2143" "0000" "A8" "02" "E834", "2880 minutes"},
    {"00" "1100" "0481" "2143" "0000" "AA" "02" "E834", "5760 minutes"},
    {"00" "1100" "0481" "2143" "0000" "C4" "02" "E834", "43200 minutes"},
    {"00" "1100" "0481" "2143" "0000" "C5" "02" "E834", "50400 minutes"},
    {"00" "1100" "0481" "2143" "0000" "FF" "02" "E834", "635040 minutes"},
    {"00" "1900" "0481" "2143" "0000" "01705202519300" "02" "E834", "until 2010-07-25 20:15:39"},
    {"00" "0900" "0481" "2143" "0000" "01050000000000" "02" "E834", "enhanced 01050000000000"},
};
/* clang-format on */

TEST(submit, every_validity_format)
{
    for (const validity_case &v : validity_cases)
        EXPECT_EQ(parse(v.pdu).validity, v.validity) << v.pdu;
}

struct part_case {
    const char *pdu;
    bool wide;
    unsigned reference, total, sequence;
    const char *text;
};

/* A line a PDU, cut at its fields. */
/* clang-format off */
const part_case part_cases[] = {
    {"00" "5101" "0481" "2143" "000008" "09" "0500032A0201" "D069", false, 0x2A, 2, 1, "hi"},
    {"00" "5101" "0481" "2143" "000008" "0A" "06080412340302" "E834", true, 0x1234, 3, 2, "hi"},
    {"00" "5101" "0481" "2143" "000808" "0A" "0500032A0202" "00680069", false, 0x2A, 2, 2, "hi"},
    {"00" "5101" "0481" "2143" "000408" "08" "0500032A0202" "6869", false, 0x2A, 2, 2, "hi"},
    {"00" "5101" "0481" "2143" "000008" "0C" "0824010100032A0202" "200C", false, 0x2A, 2, 2, "a"},
};
/* clang-format on */

TEST(submit, parts_of_a_message)
{
    for (const part_case &p : part_cases) {
        SCOPED_TRACE(p.pdu);
        const submit content = parse(p.pdu);
        ASSERT_TRUE(content.place);
        EXPECT_EQ(content.place->wide, p.wide);
        EXPECT_EQ(content.place->reference, p.reference);
        EXPECT_EQ(content.place->total, p.total);
        EXPECT_EQ(content.place->sequence, p.sequence);
        EXPECT_EQ(text_in(content), p.text);
    }
}

struct refused {
    const char *pdu, *reason;
};

/* A line a PDU, cut at its fields. */
/* clang-format off */
const refused refused_pdus[] = {
    {"0C91" "2143658709214365870921" "0100" "0481" "2143" "0000" "02" "E834",
     "the service centre's address is too long"},
    {"0411214365" "0100" "0481" "2143" "0000" "02" "E834",
     "reserved type of number in the service centre's address"},
    {"04D0214365" "0100" "0481" "2143" "0000" "02" "E834",
     "a name where a number belongs, in the service centre's address"},
    {"0491214365" "01",
     "cut short in the message reference"},
    {"0491F12143" "0100" "0481" "2143" "0000" "02" "E834",
     "digit or fill out of place in the service centre's address"},
    {"00", "cut short in the first octet"},
    {"00" "0000" "0481" "2143" "0000" "02" "E834",
     "the message type is not SMS-SUBMIT"},
    {"00" "0200" "0481" "2143" "0000" "02" "E834",
     "the message type is not SMS-SUBMIT"},
    {"00" "0100" "0081" "0000" "02" "E834",
     "a destination of 0 digits"},
    {"00" "0100" "1581" "2143658709214365870921" "0000" "02" "E834",
     "a destination of 21 digits"},
    {"00" "0100" "0401" "2143" "0000" "02" "E834",
     "reserved type of number in the destination"},
    {"00" "0100" "04F1" "2143" "0000" "02" "E834",
     "reserved type of number in the destination"},
    {"00" "0100" "04D0" "2143" "0000" "02" "E834",
     "a name where a number belongs, in the destination"},
    {"00" "0100" "0381" "2143" "0000" "02" "E834",
     "digit or fill out of place in the destination"},
    {"00" "0100" "0481" "21F3" "0000" "02" "E834",
     "digit or fill out of place in the destination"},
    {"00" "0100" "0481" "2143" "0020" "02" "E834",
     "compressed text"},
    {"00" "0100" "0481" "2143" "000C" "02" "E834",
     "reserved alphabet in the data coding scheme"},
    {"00" "0100" "0481" "2143" "0080" "02" "E834",
     "reserved data coding scheme"},
    {"00" "0100" "0481" "2143" "00F8" "02" "E834",
     "reserved bit set in the data coding scheme"},
    {"00" "1900" "0481" "2143" "0000" "01D05202519300" "02" "E834",
     "the absolute validity period is no date"},
    {"00" "1900" "0481" "2143" "0000" "01715202519300" "02" "E834",
     "the absolute validity period is no date"},
    {"00" "1900" "0481" "2143" "0000" "017052025193A0" "02" "E834",
     "the absolute validity period's zone is no number"},
    {"00" "0100" "0481" "2143" "0000" "03" "E834",
     "the length says 3 septets, which are 3 octets, but 2 are there"},
    {"00" "0100" "0481" "2143" "0000" "02" "E83400",
     "the length says 2 septets, which are 2 octets, but 3 are there"},
    {"00" "0100" "0481" "2143" "0000" "02" "E8F4",
     "fill bits that are not 0"},
    {"00" "0100" "0481" "2143" "0004" "02" "68",
     "the length says 2 octets, but 1 are there"},
    {"00" "0100" "0481" "2143" "0008" "03" "006800",
     "half a UCS-2 character"},
    {"00" "4100" "0481" "2143" "0000" "09" "0500032A0201" "D169",
     "fill bits that are not 0"},
    {"00" "4100" "0481" "2143" "0000" "09" "0500032A0001" "D069",
     "part 1 of 0"},
    {"00" "4100" "0481" "2143" "0000" "09" "0500032A0200" "D069",
     "part 0 of 2"},
    {"00" "4100" "0481" "2143" "0000" "09" "0500032A0203" "D069",
     "part 3 of 2"},
    {"00" "4100" "0481" "2143" "0000" "09" "0500042A0201" "D069",
     "cut short in an element of the user-data header"},
    {"00" "4100" "0481" "2143" "0000" "09" "0500022A0201" "D069",
     "a concatenation element of a wrong length"},
    {"00" "4100" "0481" "2143" "0008" "02" "0500",
     "cut short in the user-data header"},
    {"00" "4100" "0481" "2143" "0000" "00",
     "cut short in the user-data header"},
    {"00" "4100" "0481" "2143" "0000" "02" "0100",
     "cut short in the user-data header"},
    {"00" "4100" "0481" "2143" "0000" "01" "00",
     "the user-data header is longer than the user data"},
};
/* clang-format on */

TEST(submit, refuses_what_is_malformed_and_says_why)
{
    for (const refused &r : refused_pdus) {
        SCOPED_TRACE(r.pdu);
        try {
            parse(r.pdu);
            ADD_FAILURE() << "accepted";
        } catch (const malformed_pdu &reason) {
            EXPECT_STREQ(reason.what(), r.reason);
        }
    }
}

TEST(submit, refuses_user_data_beyond_the_limits)
{
    const std::string head = "00"
                             "0100"
                             "0481"
                             "2143"
                             "00";
    const auto zeroes = [](size_t count) { return std::string(count * 2, '0'); };
    EXPECT_EQ(parse(head +
                    "00"
                    "A0" +
                    zeroes(140))
                  .codes.size(),
              160u);
    EXPECT_THROW(parse(head +
                       "00"
                       "A1" +
                       zeroes(141)),
                 malformed_pdu);
    EXPECT_EQ(parse(head +
                    "04"
                    "8C" +
                    zeroes(140))
                  .codes.size(),
              140u);
    EXPECT_THROW(parse(head +
                       "04"
                       "8D" +
                       zeroes(141)),
                 malformed_pdu);
}

TEST(submit, refuses_another_length_than_stated)
{
    const octets pdu = *from_hex("0491214365"
                                 "1101"
                                 "05812143F5"
                                 "000008"
                                 "02"
                                 "E834");
    EXPECT_EQ(parse_submit(pdu, 13).to, "12345");
    EXPECT_THROW(parse_submit(pdu, 12), malformed_pdu);
    EXPECT_THROW(parse_submit(pdu, 14), malformed_pdu);
}

/* Cut short at each length, and each octet replaced by each value: refused or read, and never outside the buffer. */
TEST(submit, survives_every_cut_and_every_octet)
{
    for (const char *hex : {"0491214365"
                            "5101"
                            "05812143F5"
                            "000008"
                            "09"
                            "0500032A0201"
                            "D069",
                            "00"
                            "5101"
                            "0481"
                            "2143"
                            "000808"
                            "0A"
                            "0500032A0202"
                            "00680069",
                            "00"
                            "1900"
                            "0481"
                            "2143"
                            "0000"
                            "01705202519300"
                            "02"
                            "E834"}) {
        const octets whole = *from_hex(hex);
        for (size_t length = 0; length < whole.size(); length++) {
            const octets cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
            EXPECT_THROW(parse_submit(cut, tpdu_length(cut)), malformed_pdu) << length;
        }
        for (size_t place = 0; place < whole.size(); place++) {
            for (unsigned value = 0; value < 256; value++) {
                octets changed = whole;
                changed[place] = static_cast<uint8_t>(value);
                try {
                    const submit content = parse_submit(changed, tpdu_length(changed));
                    EXPECT_TRUE(from_utf8(text_in(content)));
                } catch (const malformed_pdu &reason) {
                    EXPECT_STRNE(reason.what(), "");
                }
            }
        }
    }
}

TEST(submit, parts_read_together_join_surrogates)
{
    const octets halves[] = {{0x00, 0x41, 0xD8, 0x3D}, {0xDE, 0x00, 0x00, 0x42}};
    EXPECT_EQ(text_of(alphabet::ucs2, halves), "A😀B");
    const octets escapes[] = {{0x41, 0x1B}, {0x65, 0x42}};
    EXPECT_EQ(text_of(alphabet::gsm7, escapes), "A eB") << "an escape sequence may not be cut in two";
}

} // namespace
} // namespace sim
