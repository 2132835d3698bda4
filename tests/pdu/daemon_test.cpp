/* What the SMS manager makes of a PDU, and where it differs from the standard on purpose. */
#include "bench.h"
#include "text.h"

namespace pdu
{
namespace
{

TEST(Daemon, ValuesComeFromItsDecoder)
{
    const inspection one = inspected(samples()[1]);
    ASSERT_TRUE(one.daemon.has_value());
    EXPECT_EQ("+31612345678", one.daemon->sender);
    EXPECT_EQ("2024/03/05 14:07:00", one.daemon->date);
    EXPECT_EQ("hel", one.daemon->text);
    EXPECT_TRUE(one.daemon->concatenated);
    EXPECT_EQ(42u, one.daemon->reference);
    EXPECT_EQ(2u, one.daemon->total);
    EXPECT_EQ(1u, one.daemon->sequence);
    ASSERT_TRUE(one.daemon->septets.has_value());
    EXPECT_EQ(10 * 7 - 48, one.daemon->septets->total_bit);
    EXPECT_EQ(3, one.daemon->septets->body_len);
    EXPECT_EQ(3, one.daemon->septets->sms7bit_len);
    EXPECT_EQ(1, one.daemon->septets->offset);
    EXPECT_EQ("[dv_sms_mgr] dv_sms_mgr_parse_pdu: sms_phone:+31612345678", one.daemon->log[1]);
}

TEST(Daemon, AMessageWithoutOdditiesHasNoDifference)
{
    EXPECT_TRUE(inspected("07 911326040000F0 04 0B 91 1346610089F6 00 00 20806291731408 0C C8F71D14969741F977FD07")
                    .differences.empty());
}

struct differing {
    const char *hex, *what, *standard, *daemon, *why;
};

constexpr const char *head = "04 91 214365 ";

const differing table[] = {
    {"44 05 81 2143F5 00 08 42305041700000 09 060804 1234 0201 0041", "concatenation",
     "part 1 of 2, reference 4660 (16 bits)", "a message of its own", "a 16-bit one makes no part"},
    {"44 05 81 2143F5 00 08 42305041700000 0C 09 04020101 00032A0201 0041", "concatenation",
     "part 1 of 2, reference 42", "a message of its own", "only the header's first element"},
    {"44 05 81 2143F5 00 00 42305041700000 0A 060804 1234 0201 E834", "text", "\"hi\"", "\"i",
     "the first character is lost"},
    {"04 14 D0 4937BD2C7797E9D3E614 00 00 42305041700000 02 E834", "sender", "\"InternetSMS\"", "\"InternetSM",
     "it loses its end"},
    {"04 05 D0 C1A00E 00 00 42305041700000 02 E834", "sender", "\"AA\"", "\"AA", "converted as the name has octets"},
    {"04 06 D0 412081 00 00 42305041700000 02 E834", "sender", "\"A¡è\"", "\"140218\"", "told by its digits"},
    {"04 05 81 21A3F5 00 00 42305041700000 02 E834", "sender", "\"123*5\"", "\"", "makes it a name"},
    {"04 07 D0 C1204808 00 00 42305041700000 02 E834", "sender", "\"AA B\"", "$", "a blank becomes"},
    {"04 05 91 2143F5 00 00 42305041700080 02 E834", "date", "2024-03-05 14:07:00 +02:00", "2024/03/05 14:07:00",
     "the time zone is not looked at"},
    {"04 05 81 2143F5 00 08 42305041700000 04 D83DDE00", "text", "\"😀\"", "stored as eda0bdedb880",
     "one by one, three bytes each"},
    {"04 05 81 2143F5 00 08 42305041700000 06 004100000042", "text", "\"A\\x00B\"", "\"A\"",
     "a character 0 ends the filed text"},
    {"04 05 81 2143F5 00 00 42305041700000 01 09", "text", "\"Ç\"", "\"ç\"", "small c-cedilla"},
    {"04 05 81 2143F5 00 00 42305041700000 02 9B20", "text", "", "stored as ff", "gives the byte FF"},
    {"04 05 81 2143F5 00 48 42305041700000 02 0041", "alphabet", "UCS-2", "GSM 7-bit default alphabet",
     "outside the coding groups 00 and 1111"},
    {"04 05 81 2143F5 00 04 42305041700000 02 4142", "text", "no text: 8-bit data", "\"AB\"", "filed as text as it is"},
    {"04 05 81 2143F5 40 00 42305041700000 02 E834", "Short Message Type 0", "neither shown nor kept",
     "filed as any other", "TP-PID is not looked at"},
    {"04 05 81 2143F5 00 F0 42305041700000 02 E834", "class 0", "shown at once", "filed as any other",
     "class is not looked at"},
    {"44 05 81 2143F5 00 00 42305041700000 06 03240101 0002", "text", "\"¡\"", "\"è\"", "have entries of their own"},
    {"04 05 81 2143F5 00 00 42305041700000 07 E8329BFD26931B", "text", "\"hellodd\"", "\"hellodd\\r\"",
     "stays behind it"},
    {"06 2A 05 81 2143F5 42305041700000 42305041700000 00", "kind of message", "SMS-STATUS-REPORT",
     "read as SMS-DELIVER", "TP-MTI is not looked at"},
};

TEST(Daemon, DifferencesAreShownWithTheirReason)
{
    for (const differing &each : table) {
        const inspection one = inspected(std::string(head) + each.hex);
        EXPECT_TRUE(one.good()) << each.hex << '\n' << problems_of(one.standard);
        const auto found = std::find_if(one.differences.begin(), one.differences.end(),
                                        [&](const difference &d) { return d.what == each.what; });
        ASSERT_NE(one.differences.end(), found) << each.hex << ": " << each.what;
        EXPECT_NE(std::string::npos, found->standard.find(each.standard)) << each.hex << ": " << found->standard;
        EXPECT_NE(std::string::npos, found->daemon.find(each.daemon)) << each.hex << ": " << found->daemon;
        EXPECT_NE(std::string::npos, found->why.find(each.why)) << each.hex << ": " << found->why;
    }
}

TEST(Daemon, ALineThatItRefusesIsDecodedAllTheSame)
{
    const inspection one = inspected("00 04 05 81 2143F5 00 00 42305041700000 02 E834");
    EXPECT_FALSE(one.daemon->taken);
    EXPECT_EQ("hi", one.daemon->text);
    EXPECT_EQ("PDU line", one.differences.at(0).what);
    EXPECT_TRUE(inspect("04 05 81 2143F5 00 00 42305041700000 02 E834", {reading::by_type, false})[0].daemon->taken);
    const std::string long_line =
        squeezed(std::string(head) + "04 05 81 2143F5 00 00 42305041700000 02 E834") + std::string(512, '0');
    EXPECT_FALSE(inspected(long_line).daemon->taken);
}

TEST(Daemon, ReadsNoSubmit)
{
    EXPECT_FALSE(inspected(samples()[6]).daemon.has_value());
    EXPECT_TRUE(to_json(inspected(samples()[6]))["daemon"].is_null());
}

TEST(Daemon, JoinsPartsThatAreGivenTogether)
{
    const std::string second = "00 44 0B 91 1316325476F8 00 00 42305041700002 09 050003 2A0202 D86F";
    const auto all = inspect(second + '\n' + samples()[0] + '\n' + samples()[1], {});
    ASSERT_EQ(3u, all.size());
    EXPECT_FALSE(all[0].daemon->joined.has_value());
    EXPECT_FALSE(all[1].daemon->joined.has_value());
    EXPECT_EQ("hello", all[2].daemon->joined.value_or("(nothing)"));
    EXPECT_FALSE(inspect(samples()[1], {})[0].daemon->joined.has_value()) << "no part stays from one to the next";
}

TEST(Daemon, JsonIsValidWhateverIsStored)
{
    for (const char *hex :
         {"04 05 81 2143F5 00 04 42305041700000 02 FFC0", "04 05 81 2143F5 00 08 42305041700000 02 D83D"}) {
        const auto out = to_json(inspected(std::string(head) + hex));
        EXPECT_TRUE(sms_client::is_utf8(out["daemon"]["text"].get<std::string>()));
        EXPECT_FALSE(out["daemon"]["text_hex"].get<std::string>().empty());
        EXPECT_NO_THROW(out.dump());
    }
}

} // namespace
} // namespace pdu
