/* What is wrong is told by its octet, and what stands in front of it is read. */
#include "bench.h"

namespace pdu
{
namespace
{

struct broken {
    const char *what;
    const char *hex;
    size_t offset;
    const char *said;
};

TEST(Malformed, IsToldByItsOctet)
{
    const broken table[] = {
        {"nothing at all", "", 0, "SMSC length is missing"},
        {"the service centre is cut", "07 9144", 3, "SMSC number needs 6 octets, 1 are there"},
        {"no type of address", "00 04 05", 3, "type of address is missing"},
        {"the address is cut", "00 04 05 81 21", 5, "address value needs 3 octets, 1 are there"},
        {"the time is cut", "00 04 05 81 2143F5 00 00 4230", 11, "TP-SCTS needs 7 octets, 2 are there"},
        {"half an octet", "00 04 05 81 2143F5 0", 7, "half an octet: an odd number of hex digits"},
        {"no hex digit", "00 04 05 8x 2143F5", 3, "no hex digits: \"8x\""},
        {"an address too long", "00 04 15 81 1122334455667788990011 00 00 42305041700002 00", 2,
         "an address has at most 20 semi-octets"},
        {"a fill within a number", "00 04 05 81 2F43F5 00 00 42305041700002 00", 4,
         "a fill in front of the number's end"},
        {"a digit for the fill", "00 04 05 81 214325 00 00 42305041700002 00", 6,
         "the fill behind an odd number of digits should be F"},
        {"month 13", "00 04 00 81 00 00 42315041700002 00", 7, "TP-SCTS holds no time here"},
        {"an hour of letters", "00 04 00 81 00 00 423050A1700002 00", 9, "TP-SCTS holds no time here"},
        {"TP-UDL above 160", "00 04 00 81 00 00 42305041700002 A1 00", 13, "TP-UDL is above 160"},
        {"TP-UDL above 140", "00 04 00 81 00 04 42305041700002 8D 00", 13, "TP-UDL is above 140"},
        {"user data too short", "00 04 00 81 00 00 42305041700002 05 E832", 16,
         "the user data ends after 2 of 5 octets"},
        {"octets behind the end", "00 04 00 81 00 00 42305041700002 02 E834 01 02", 16,
         "2 octets too many behind the user data"},
        {"a header beyond the user data", "00 44 00 81 00 04 42305041700002 03 05 0003", 14,
         "the header (UDHL 5) reaches beyond the user data, of which 2 octets are left"},
        {"an element beyond the header", "00 44 00 81 00 04 42305041700002 05 04 00040102", 16,
         "the element (IEDL 4) reaches beyond the header, of which 2 octets are left"},
        {"an element without a length", "00 44 00 81 00 04 42305041700002 02 01 00", 15,
         "an element ends after its identifier"},
        {"an element of a wrong length", "00 44 00 81 00 04 42305041700002 05 04 00020102", 16,
         "Concatenated short messages, 8-bit reference number: should have 3 octets; to be passed over"},
        {"half a character", "00 04 00 81 00 08 42305041700002 03 004142", 16, "half a UCS-2 character"},
        {"a submit's period is cut", "00 11 01 05 81 2143F5 00 00", 10, "TP-VP is missing"},
        {"a report without a status", "00 06 2A 00 81 42305041700002 42305041800002", 19, "TP-ST is missing"},
    };
    for (const broken &each : table) {
        const message m = read(each.hex);
        ASSERT_FALSE(m.problems.empty()) << each.what;
        EXPECT_EQ(each.offset, m.problems[0].offset) << each.what;
        EXPECT_EQ(each.said, m.problems[0].what) << each.what;
        expect_whole(m, each.what);
    }
}

TEST(Malformed, TheHeadersLengthIsCompared)
{
    const auto first = [](const std::string &text) { return inspected(text).standard.problems; };
    const std::string pdu = squeezed(samples()[6]); /* 5 octets of service centre, 13 behind */
    EXPECT_TRUE(first("+CMGR: 2,,13\n" + pdu).empty());
    ASSERT_EQ(1u, first("+CMGR: 2,,14\n" + pdu).size());
    EXPECT_EQ(18u, first("+CMGR: 2,,14\n" + pdu)[0].offset);
    EXPECT_NE(std::string::npos, first("+CMGR: 2,,12\n" + pdu)[0].what.find("says 12 octets"));
    EXPECT_EQ(17u, first("+CMGR: 2,,12\n" + pdu)[0].offset);
    EXPECT_NE(std::string::npos, first("+CMGR: 2,,18\n" + pdu)[0].what.find("--no-smsc"));
}

/* Everything in front of the cut stays as it was, and the cut is where it goes wrong. */
TEST(Malformed, IsReadUpToACutAtEveryDigit)
{
    for (const std::string &sample : samples()) {
        const std::string hex = squeezed(sample);
        for (size_t digits = 0; digits < hex.size(); digits++) {
            const std::string cut = hex.substr(0, digits);
            const message m = read(cut);
            const bool complete_report = m.kind == layout::status_report && cut.size() / 2 >= 26 && m.problems.empty();
            if (!complete_report) { /* its last fields may be missing */
                ASSERT_FALSE(m.problems.empty()) << cut;
                EXPECT_EQ(digits / 2, m.problems.back().offset) << cut;
            }
            EXPECT_EQ(digits / 2, m.bytes.size()) << cut;
            expect_whole(m, cut);
            const inspection whole = inspected("+CMGR: 0,,1\n" + cut);
            EXPECT_FALSE(whole.good());
            EXPECT_FALSE(to_json(whole).dump().empty());
        }
    }
}

/* Whatever stands in an octet, nothing is read twice, left out or read past the end (the sanitizers look on). */
TEST(Malformed, SurvivesAnyValueInEveryOctet)
{
    for (const std::string &sample : samples()) {
        const std::string hex = squeezed(sample);
        for (size_t at = 0; at < hex.size(); at += 2) {
            for (unsigned value = 0; value < 256; value += 17) {
                char octet[3];
                std::snprintf(octet, sizeof octet, "%02X", value);
                const std::string changed = hex.substr(0, at) + octet + hex.substr(at + 2);
                const inspection whole = inspected(changed);
                expect_whole(whole.standard, changed);
                EXPECT_FALSE(to_json(whole).dump().empty());
            }
        }
    }
}

} // namespace
} // namespace pdu
