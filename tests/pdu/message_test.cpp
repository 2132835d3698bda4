/* What the standard reads in a PDU. */
#include "bench.h"

namespace pdu
{
namespace
{

TEST(Message, NamesEveryFieldOfADeliverInOrder)
{
    const message m = read(samples()[0]);
    std::vector<std::string> names;
    for (const field &each : m.fields)
        names.push_back(each.name);
    EXPECT_EQ((std::vector<std::string>{"SMSC length", "SMSC type", "SMSC number", "first octet", "TP-OA", "TP-PID",
                                        "TP-DCS", "TP-SCTS", "TP-UDL", "TP-UD"}),
              names);
    EXPECT_EQ("+31624000000", meaning(m, "SMSC number"));
    EXPECT_EQ("SMS-DELIVER", meaning(m, "TP-MTI"));
    EXPECT_EQ("no more messages wait", meaning(m, "TP-MMS"));
    EXPECT_EQ("no status report", meaning(m, "TP-SRI"));
    EXPECT_EQ("no header", meaning(m, "TP-UDHI"));
    EXPECT_EQ("+31641600986", meaning(m, "TP-OA"));
    EXPECT_EQ("international number, telephone plan (E.164)", meaning(m, "type of address"));
    EXPECT_EQ("2002-08-26 19:37:41 +00:00", meaning(m, "TP-SCTS"));
    EXPECT_EQ("12 septets, 11 octets", meaning(m, "TP-UDL"));
    EXPECT_EQ("\"How are you?\"", meaning(m, "SM"));
    EXPECT_EQ("12: 48 6F 77 20 61 72 65 20 79 6F 75 3F", meaning(m, "septets"));
    EXPECT_EQ("", problems_of(m));
}

TEST(Message, NamesEveryFieldOfASubmitInOrder)
{
    const message m = read(samples()[6]);
    std::vector<std::string> names;
    for (const field &each : m.fields)
        names.push_back(each.name);
    EXPECT_EQ((std::vector<std::string>{"SMSC length", "SMSC type", "SMSC number", "first octet", "TP-MR", "TP-DA",
                                        "TP-PID", "TP-DCS", "TP-VP", "TP-UDL", "TP-UD"}),
              names);
    EXPECT_EQ("TP-VP relative", meaning(m, "TP-VPF"));
    EXPECT_EQ("45 minutes", meaning(m, "TP-VP"));
    EXPECT_EQ("\"hi\"", meaning(m, "SM"));
    EXPECT_EQ("", problems_of(m));
}

TEST(Message, EverySampleIsWellFormedAndShownWhole)
{
    for (const std::string &hex : samples()) {
        const message m = read(hex);
        EXPECT_EQ("", problems_of(m)) << hex;
        expect_whole(m, hex);
    }
}

TEST(Message, ReadsAValidityPeriodOfEachForm)
{
    EXPECT_EQ("(no such field)", meaning(read(samples()[7]), "TP-VP"));
    EXPECT_EQ("2024-03-05 14:07:00 +00:00", meaning(read(samples()[8]), "TP-VP"));
    EXPECT_EQ("enhanced format", meaning(read("00 09 01 05 81 2143F5 00 00 01000000000000 02 E834"), "TP-VP"));
}

struct coded {
    const char *octet, *meaning;
};

TEST(Message, NamesTheRelativeValidityPeriods)
{
    for (const coded &each : {coded{"00", "5 minutes"},
                              {"8F", "720 minutes"},
                              {"90", "12 hours and 30 minutes"},
                              {"A8", "2 days"},
                              {"C4", "30 days"},
                              {"C5", "5 weeks"},
                              {"FF", "63 weeks"}})
        EXPECT_EQ(each.meaning,
                  meaning(read(std::string("00 11 01 05 81 2143F5 00 00") + each.octet + "02 E834"), "TP-VP"))
            << each.octet;
}

TEST(Message, NamesAlphabetsAndClasses)
{
    for (const coded &each :
         {coded{"00", "GSM 7-bit default alphabet, no class"},
          {"04", "8-bit data, no class"},
          {"08", "UCS-2, no class"},
          {"0C", "reserved alphabet, read as GSM 7-bit, no class"},
          {"10", "GSM 7-bit default alphabet, class 0: shown at once, not kept"},
          {"19", "UCS-2, class 1: kept by the equipment"},
          {"20", "GSM 7-bit default alphabet, no class, compressed"},
          {"48", "UCS-2, no class, marked for automatic deletion"},
          {"80", "reserved coding group, read as GSM 7-bit default alphabet"},
          {"C8", "GSM 7-bit default alphabet, message waiting, the text may be discarded, voicemail on"},
          {"D1", "GSM 7-bit default alphabet, message waiting, the text is kept, fax off"},
          {"EA", "UCS-2, message waiting, the text is kept, electronic mail on"},
          {"F2", "GSM 7-bit default alphabet, class 2: kept on the SIM"},
          {"F7", "8-bit data, class 3: for the terminal equipment"}})
        EXPECT_EQ(each.meaning,
                  meaning(read(std::string("00 04 05 81 2143F5 00") + each.octet + "42305041700002 02 0041"), "TP-DCS"))
            << each.octet;
}

TEST(Message, NamesProtocols)
{
    for (const coded &each : {coded{"00", "from one subscriber to another, no interworking"},
                              {"24", "telematic interworking: voice telephone"},
                              {"32", "telematic interworking: Internet electronic mail"},
                              {"40", "Short Message Type 0: acknowledged, and neither shown nor kept"},
                              {"43", "Replace Short Message Type 3"},
                              {"7F", "(U)SIM Data download"},
                              {"90", "reserved"},
                              {"C1", "for the service centre's own use"}})
        EXPECT_EQ(each.meaning,
                  meaning(read(std::string("00 04 05 81 2143F5") + each.octet + "00 42305041700002 02 E834"), "TP-PID"))
            << each.octet;
}

TEST(Message, NamesEachElementOfAHeader)
{
    const message m = read("00 44 05 81 2143F5 00 04 42305041700002 1C 1B 0003010201 08041234 0202 0402F523 "
                           "05040B8423F0 240101 A10155");
    EXPECT_EQ("", problems_of(m));
    EXPECT_EQ("reference 1, part 1 of 2", meaning(m, "Concatenated short messages, 8-bit reference number"));
    EXPECT_EQ("reference 4660, part 2 of 2", meaning(m, "Concatenated short message, 16-bit reference number"));
    EXPECT_EQ("to port 245, from port 35", meaning(m, "Application port addressing scheme, 8 bit address"));
    EXPECT_EQ("to port 2948, from port 9200", meaning(m, "Application port addressing scheme, 16 bit address"));
    EXPECT_EQ("Turkish", meaning(m, "National Language Single Shift"));
    EXPECT_EQ("", meaning(m, "Reserved for future use"));
    ASSERT_TRUE(m.part.has_value());
    EXPECT_EQ(1u, m.part->reference);
    EXPECT_FALSE(m.part->wide);
}

TEST(Message, SaysThatAPartCannotBe)
{
    const message m = read("00 44 05 81 2143F5 00 04 42305041700002 06 050003010203");
    EXPECT_EQ("reference 1, part 3 of 2; there is no such part, the element is to be passed over",
              meaning(m, "Concatenated short messages, 8-bit reference number"));
}

TEST(Message, ShowsTheFillBitsBehindAHeader)
{
    const message m = read(samples()[1]);
    const field *fill = find_field(m.fields, "fill bits");
    ASSERT_NE(nullptr, fill);
    EXPECT_EQ(".......0", fill->bits);
    EXPECT_EQ("1 bit up to the next septet", fill->meaning);
    EXPECT_EQ("\"hel\"", meaning(m, "SM"));
    EXPECT_EQ("6 octets of header, 3 septets of message", meaning(m, "TP-UD"));
}

TEST(Message, ReadsNationalTables)
{
    EXPECT_EQ("\"Hello\"", meaning(read("00 44 05 81 2143F5 00 00 42305041700002 0A 03240101 4096D9EC37"), "SM"))
        << "plain septets stay";
    const message shift = read("00 44 05 81 2143F5 00 00 42305041700002 07 03240101 D89C01");
    EXPECT_EQ("\"ğ\"", meaning(shift, "SM"));
    const message locking = read("00 44 05 81 2143F5 00 00 42305041700002 06 03250101 6000");
    EXPECT_EQ("\"ğ\"", meaning(locking, "SM"));
    const message hindi = read("00 44 05 81 2143F5 00 00 42305041700002 06 03240106 0802");
    EXPECT_NE(std::string::npos, meaning(hindi, "SM").find("read without the single shift table for Hindi"));
}

TEST(Message, JoinsSurrogatePairs)
{
    EXPECT_EQ("\"😀\"", meaning(read("00 04 05 81 2143F5 00 08 42305041700002 04 D83DDE00"), "SM"));
}

TEST(Message, ReadsNamesAndOddNumbers)
{
    EXPECT_EQ("InternetSMS", meaning(read("00 04 14 D0 4937BD2C7797E9D3E614 00 08 11309291024061 02 0041"), "TP-OA"));
    EXPECT_EQ("12*#a", meaning(read("00 04 05 81 21BAFC 00 00 11309291024061 00"), "TP-OA"));
    EXPECT_EQ("", meaning(read("00 04 00 81 00 00 11309291024061 00"), "TP-OA"));
}

TEST(Message, SaysHowLateOrEarlyAZoneIs)
{
    EXPECT_EQ("2011-03-29 19:20:04 +04:00", meaning(read("00 04 00 81 00 00 11309291024061 00"), "TP-SCTS"));
    EXPECT_EQ("2011-03-29 19:20:04 -05:45", meaning(read("00 04 00 81 00 00 1130929102403A 00"), "TP-SCTS"));
}

TEST(Message, ReadsStatusReports)
{
    const message m = read(samples()[10]);
    EXPECT_EQ(layout::status_report, m.kind);
    EXPECT_EQ("received by the recipient", meaning(m, "TP-ST"));
    EXPECT_EQ("2024-03-05 14:08:00 +05:00", meaning(m, "TP-DT"));
    EXPECT_EQ("still trying: congestion", meaning(read(samples()[11]), "TP-ST"));
    EXPECT_EQ("follows: TP-PID TP-DCS TP-UDL", meaning(read(samples()[11]), "TP-PI"));
}

TEST(Message, TheKindCanBeTold)
{
    const std::string submit = samples()[6];
    EXPECT_EQ(layout::submit, read(submit).kind);
    EXPECT_EQ(layout::deliver, read(submit, reading::deliver).kind);
    EXPECT_EQ(layout::submit, read(samples()[0], reading::submit).kind);
    EXPECT_EQ("SMS-SUBMIT; read as SMS-DELIVER, as asked", meaning(read(submit, reading::deliver), "TP-MTI"));
}

TEST(Message, ReadsATpduWithoutAServiceCentre)
{
    const message m = read("04 05 81 2143F5 00 00 42305041700002 02 E834", reading::by_type, false);
    EXPECT_EQ("", problems_of(m));
    EXPECT_EQ("first octet", m.fields[0].name);
    EXPECT_EQ("12345", m.address);
}

} // namespace
} // namespace pdu
