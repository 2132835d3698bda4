/* The parts that the SMS manager would send. */
#include "bench.h"

namespace pdu
{
namespace
{

std::string all_text(const outgoing &o)
{
    std::string out;
    for (const message &part : o.parts)
        out += part.text;
    return out;
}

bool notes(const outgoing &o, const std::string &word)
{
    return std::any_of(o.notes.begin(), o.notes.end(),
                       [&](const std::string &note) { return note.find(word) != std::string::npos; });
}

TEST(Encode, OnePartIsWhatTheDaemonSends)
{
    const outgoing o = plan("12345", "hi", "+123456", 1);
    ASSERT_EQ(1u, o.parts.size());
    EXPECT_EQ("049121436511010581"
              "2143F500000802E834",
              o.sent.parts[0].pdu);
    EXPECT_EQ(13, o.sent.parts[0].tpdu_octets);
    EXPECT_EQ("", problems_of(o.parts[0]));
    EXPECT_TRUE(o.notes.empty());
    EXPECT_EQ("every character is ASCII", o.why_alphabet);
}

TEST(Encode, Text161GoesInTwoParts)
{
    const std::string text(161, 'x');
    const outgoing o = plan("+31612345678", text, "", 200);
    ASSERT_EQ(2u, o.parts.size());
    EXPECT_EQ(161u, o.sent.units);
    EXPECT_EQ(153u, o.sent.per_part);
    EXPECT_EQ(153u, o.sent.parts[0].taken);
    EXPECT_EQ(8u, o.sent.parts[1].taken);
    EXPECT_EQ(160u, o.parts[0].udl);
    EXPECT_EQ(15u, o.parts[1].udl);
    EXPECT_EQ(200u, o.parts[1].part->reference);
    EXPECT_EQ(text, all_text(o));
    EXPECT_EQ("0181", o.sent.parts[0].pdu.substr(0, 4)) << "an unknown service centre";
}

TEST(Encode, OneOtherCharacterMakesItUcs2)
{
    const outgoing o = plan("12345", "caf\xC3\xA9", "", 1);
    EXPECT_TRUE(o.sent.ucs2);
    EXPECT_EQ(4u, o.sent.units);
    EXPECT_EQ(70u, o.sent.per_part);
    EXPECT_NE(std::string::npos, o.why_alphabet.find("\"é\" (U+00E9)"));
    EXPECT_EQ("café", all_text(o));
}

TEST(Encode, SaysWhatIsLost)
{
    EXPECT_TRUE(notes(plan("12345", "😀", "", 1), "beyond U+FFFF"));
    EXPECT_TRUE(notes(plan("12345", "a`b", "", 1), "apostrophe"));
    EXPECT_TRUE(notes(plan("12345", "a\tb", "", 1), "blank"));
    EXPECT_TRUE(notes(plan("12345", std::string(4001, 'x'), "", 1), "the first 4000"));
    EXPECT_TRUE(notes(plan("12345", "\xC3(", "", 1), "not UTF-8"));
    EXPECT_FALSE(notes(plan("12345", std::string(4000, 'x'), "", 1), "the first"));
}

/* 306 septets with an escape at the 153rd: it moves to the second part, and the last septet has no part left. */
TEST(Encode, SaysThatASeptetIsNeverSent)
{
    const outgoing o = plan("12345", std::string(152, 'x') + "{" + std::string(152, 'x'), "", 1);
    EXPECT_EQ(306u, o.sent.units);
    EXPECT_EQ(2u, o.sent.total);
    EXPECT_EQ(1u, o.sent.unsent);
    EXPECT_TRUE(notes(o, "1 septet at the end is never sent"));
    EXPECT_EQ(0u, plan("12345", std::string(306, 'x'), "", 1).sent.unsent);
}

TEST(Encode, RefusesAsTheDaemonDoes)
{
    EXPECT_EQ("a destination has at most 20 digits", plan("123456789012345678901", "x", "", 1).sent.why);
    EXPECT_FALSE(plan("+12345678901234567890", "x", "", 1).sent.refused);
    EXPECT_EQ("a number holds no control characters", plan("12\r34", "x", "", 1).sent.why);
    EXPECT_EQ("neither number nor text may be empty", plan("", "x", "", 1).sent.why);
}

TEST(Encode, EveryPartIsWellFormed)
{
    for (const std::string &text :
         {std::string(4000, 'x'), std::string(2000, '{'), std::string("ä") + std::string(3000, 'y')})
        for (const message &part : plan("+31612345678", text, "+31624000000", 7).parts) {
            EXPECT_EQ("", problems_of(part));
            expect_whole(part, text.substr(0, 10));
        }
}

TEST(Encode, ReferenceRunsFrom0To255)
{
    for (const unsigned reference : {0u, 1u, 255u})
        EXPECT_EQ("reference " + std::to_string(reference),
                  meaning(plan("12345", "hi", "", reference).parts.at(0), "TP-MR"));
}

TEST(Encode, JsonHasCommandsAndFields)
{
    const auto out = to_json(plan("12345", "hi", "+123456", 1));
    EXPECT_EQ("AT+DORVYSMS=13,049121436511010581"
              "2143F500000802E834",
              out["parts"][0]["command"]);
    EXPECT_EQ("SMSC length", out["parts"][0]["fields"][0]["name"]);
    EXPECT_TRUE(out["refused"].is_null());
    EXPECT_EQ("a destination has at most 20 digits", to_json(plan(std::string(21, '1'), "x", "", 1))["refused"]);
}

} // namespace
} // namespace pdu
