/* PDUs out of what people paste. */
#include "bench.h"

namespace pdu
{
namespace
{

TEST(Pasted, DigitsMayHaveBlanksAndStandInLines)
{
    const auto found = find_pdus("07 91 44\n\n  0891  \r\n");
    ASSERT_EQ(2u, found.size());
    EXPECT_EQ("079144", found[0].hex);
    EXPECT_EQ("0891", found[1].hex);
    EXPECT_FALSE(found[0].stated.has_value());
}

TEST(Pasted, AnAnswerIsTakenWithItsHeader)
{
    const auto found = find_pdus("AT+CMGR=3\r\r\n+CMGR: 0,\"Bob\",24\r\n0791446\r\n\r\nOK\r\n");
    ASSERT_EQ(1u, found.size());
    EXPECT_EQ("0791446", found[0].hex);
    EXPECT_EQ("+CMGR: 0,\"Bob\",24", found[0].header);
    EXPECT_EQ(24u, found[0].stated.value_or(0));
}

TEST(Pasted, AListHasSeveral)
{
    const auto found = find_pdus("+CMGL: 1,1,,24\n0791\n+CMGL: 2,0,,25\n0891\nOK");
    ASSERT_EQ(2u, found.size());
    EXPECT_EQ(24u, found[0].stated.value_or(0));
    EXPECT_EQ(25u, found[1].stated.value_or(0));
    EXPECT_EQ("0891", found[1].hex);
}

TEST(Pasted, AnIndicationAndAReportAreTaken)
{
    EXPECT_EQ(24u, find_pdus("\r\n+CMT: ,24\r\n0791\r\n")[0].stated.value_or(0));
    EXPECT_EQ(24u, find_pdus("+CMT:24\n0791")[0].stated.value_or(0));
    EXPECT_EQ(25u, find_pdus("+CDS: 25\n0791")[0].stated.value_or(0));
}

TEST(Pasted, LineEndsMayBeWrittenOut)
{
    const auto found = find_pdus("12:00:01.5 ! \\r\\n+CMT: ,24\\r\\n0791\\r\\n");
    ASSERT_EQ(2u, found.size()) << "the time in front is on a line of its own";
    EXPECT_EQ("0791", found[1].hex);
    EXPECT_EQ(24u, found[1].stated.value_or(0));
}

TEST(Pasted, ACommandIsTakenWithItsLength)
{
    const auto found = find_pdus("17 AT+CMGF=0\n18 AT+DORVYSMS=13,049121\x1A\nAT+CMGS=13\n> 0491\x1A\n");
    ASSERT_EQ(2u, found.size());
    EXPECT_EQ("049121", found[0].hex);
    EXPECT_EQ(13u, found[0].stated.value_or(0));
    EXPECT_EQ("0491", found[1].hex);
    EXPECT_EQ(13u, found[1].stated.value_or(0));
}

TEST(Pasted, AHeaderWithNothingBehindItIsMalformed)
{
    const auto found = find_pdus("+CMGR: 0,,24\nOK\n");
    ASSERT_EQ(1u, found.size());
    EXPECT_EQ("", found[0].hex);
    EXPECT_FALSE(inspected("+CMGR: 0,,24\nOK\n").good());
}

TEST(Pasted, OtherLinesOfAModemHoldNone)
{
    EXPECT_TRUE(find_pdus("OK\nERROR\n+CMS ERROR: 321\n+CMTI: \"SM\",3\nAT\n\n").empty());
}

} // namespace
} // namespace pdu
