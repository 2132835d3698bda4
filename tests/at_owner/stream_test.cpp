/* Bytes in, events out: whole, byte by byte, and damaged. */
#include <gtest/gtest.h>
#include <random>

#include "at_stream.h"

using namespace at_owner;

namespace
{

std::string show(const std::vector<event> &events)
{
    constexpr const char *names[] = {"answer", "prompt", "indication", "stray", "dropped"};
    std::string out;
    for (const event &e : events) {
        out += std::string(names[static_cast<int>(e.kind)]) + "[";
        for (const char c : e.text)
            out += c == '\r' ? "\\r" : c == '\n' ? "\\n" : std::string(1, c);
        out += "]";
        if (e.kind == event_kind::answer)
            out += std::to_string(e.error_code) + "(" + e.detail + ")";
        out += " ";
    }
    return out;
}

struct stream_case {
    const char *name;
    const char *command; /* null: idle */
    std::string bytes, events;
};

#define PDU "0791316200000000040B91"

const stream_case cases[] = {
    {"plain answer", "AT+CMGF?\r", "\r\n+CMGF: 0\r\n\r\nOK\r\n", "answer[\\r\\n+CMGF: 0\\r\\n\\r\\nOK\\r\\n]0(OK) "},
    {"only a result", "AT+CMGF=0\r", "\r\nOK\r\n", "answer[\\r\\nOK\\r\\n]0(OK) "},
    {"error", "AT+X\r", "\r\nERROR\r\n", "answer[\\r\\nERROR\\r\\n]1(ERROR) "},
    {"numbered error", "AT+CMGR=9\r", "\r\n+CMS ERROR: 321\r\n",
     "answer[\\r\\n+CMS ERROR: 321\\r\\n]321(+CMS ERROR: 321) "},
    {"lines without empty ones between", "AT+CMGF?\r", "\r\n+CMGF: 0\r\nOK\r\n",
     "answer[\\r\\n+CMGF: 0\\r\\nOK\\r\\n]0(OK) "},
    {"no leading line end", "AT+CMGF?\r", "+CMGF: 0\r\nOK\r\n", "answer[\\r\\n+CMGF: 0\\r\\nOK\\r\\n]0(OK) "},
    {"echo", "AT+CMGF?\r", "AT+CMGF?\r\r\n+CMGF: 0\r\n\r\nOK\r\n", "answer[\\r\\n+CMGF: 0\\r\\n\\r\\nOK\\r\\n]0(OK) "},
    {"echo with a line feed", "AT\r", "AT\r\n\r\nOK\r\n", "answer[\\r\\n\\n\\r\\nOK\\r\\n]0(OK) "},
    {"echo behind noise", "AT+CMGF?\r",
     "\xFF\xFE"
     "AT+CMGF?\r\r\n+CMGF: 0\r\n\r\nOK\r\n",
     "answer[\\r\\n+CMGF: 0\\r\\n\\r\\nOK\\r\\n]0(OK) "},
    {"a name that ends like the command", "AT\r", "\r\nFIAT\r\n\r\nOK\r\n",
     "answer[\\r\\nFIAT\\r\\n\\r\\nOK\\r\\n]0(OK) "},
    {"unsolicited in front", "AT+CMGF?\r", "\r\nRING\r\n\r\n+CMGF: 0\r\n\r\nOK\r\n",
     "indication[\\r\\nRING\\r\\n] answer[\\r\\n+CMGF: 0\\r\\n\\r\\nOK\\r\\n]0(OK) "},
    {"unsolicited in the middle", "AT+CMGR=1\r", "\r\n+CMGR: 0,,23\r\n\r\n+CMTI: \"SM\",4\r\n" PDU "\r\n\r\nOK\r\n",
     "indication[\\r\\n+CMTI: \"SM\",4\\r\\n] answer[\\r\\n+CMGR: 0,,23\\r\\n" PDU "\\r\\n\\r\\nOK\\r\\n]0(OK) "},
    {"message in the middle", "AT+CMGR=1\r", "\r\n+CMGR: 0,,23\r\n\r\n+CMT: ,11\r\nAABB\r\n" PDU "\r\n\r\nOK\r\n",
     "indication[\\r\\n+CMT: ,11\\r\\nAABB\\r\\n] answer[\\r\\n+CMGR: 0,,23\\r\\n" PDU "\\r\\n\\r\\nOK\\r\\n]0(OK) "},
    {"unsolicited before the result", "AT+CMGD=1\r", "\r\n^RSSI: 21\r\n\r\nOK\r\n",
     "indication[\\r\\n^RSSI: 21\\r\\n] answer[\\r\\nOK\\r\\n]0(OK) "},
    {"report and answer of one name", "AT+CREG?\r", "\r\n+CREG: 5\r\n\r\n+CREG: 1,5\r\n\r\nOK\r\n",
     "indication[\\r\\n+CREG: 5\\r\\n] answer[\\r\\n+CREG: 1,5\\r\\n\\r\\nOK\\r\\n]0(OK) "},
    {"message", nullptr, "\r\n+CMT: ,23\r\n" PDU "\r\n", "indication[\\r\\n+CMT: ,23\\r\\n" PDU "\\r\\n] "},
    {"report", nullptr, "\r\n+CDS: 25\r\n" PDU "\r\n", "indication[\\r\\n+CDS: 25\\r\\n" PDU "\\r\\n] "},
    {"message in text form that reads like a result", nullptr, "\r\n+CMT: \"+316\",,\"24/01/01,10:00:00+00\"\r\nOK\r\n",
     "indication[\\r\\n+CMT: \"+316\",,\"24/01/01,10:00:00+00\"\\r\\nOK\\r\\n] "},
    {"message that lost its PDU", "AT\r", "\r\n+CMT: ,23\r\n\r\nOK\r\n",
     "indication[\\r\\n+CMT: ,23\\r\\n] answer[\\r\\nOK\\r\\n]0(OK) "},
    {"two headers", nullptr, "\r\n+CMT: ,23\r\n\r\n+CMT: ,24\r\nAB\r\n",
     "indication[\\r\\n+CMT: ,23\\r\\n] indication[\\r\\n+CMT: ,24\\r\\nAB\\r\\n] "},
    {"header and PDU with an empty line between", nullptr, "\r\n+CMT: ,23\r\n\r\nAB\r\n",
     "indication[\\r\\n+CMT: ,23\\r\\nAB\\r\\n] "},
    {"line feeds alone", nullptr, "\nRING\n\n+CMTI: \"SM\",1\n",
     "indication[\\r\\nRING\\r\\n] indication[\\r\\n+CMTI: \"SM\",1\\r\\n] "},
    {"result that nobody awaits", nullptr, "\r\nOK\r\n", "stray[\\r\\nOK\\r\\n] "},
    {"hang-up that nobody awaits", nullptr, "\r\nNO CARRIER\r\n", "indication[\\r\\nNO CARRIER\\r\\n] "},
    {"noise in front", nullptr, std::string("\0\x01\x80\xFF\r\n+CMTI: \"SM\",3\r\n", 21),
     "stray[\\r\\n\x01\x80\xFF\\r\\n] indication[\\r\\n+CMTI: \"SM\",3\\r\\n] "},
    {"zero bytes", "AT+CMGF?\r", std::string("\r\n+CM\0GF: 0\r\n\0\0\r\nOK\r\n", 21),
     "answer[\\r\\n+CMGF: 0\\r\\n\\r\\nOK\\r\\n]0(OK) "},
    {"what follows the result", "AT\r", "\r\nOK\r\n\r\nRING\r\n\r\nOK\r\n",
     "answer[\\r\\nOK\\r\\n]0(OK) indication[\\r\\nRING\\r\\n] stray[\\r\\nOK\\r\\n] "},
    {"nothing whole yet", "AT\r", "\r\nOK\r", ""},
};

std::vector<event> run(const stream_case &c, size_t piece)
{
    at_stream stream;
    std::vector<event> out;
    if (c.command != nullptr)
        stream.expect(c.command);
    for (size_t i = 0; i < c.bytes.size(); i += piece)
        stream.feed(std::string_view(c.bytes).substr(i, piece), out);
    return out;
}

TEST(Stream, Table)
{
    for (const stream_case &c : cases)
        for (const size_t piece : {size_t{10000}, size_t{1}, size_t{2}, size_t{7}})
            EXPECT_EQ(show(run(c, piece)), c.events) << c.name << ", in pieces of " << piece;
}

TEST(Stream, CutShortNeverGivesMoreThanTheWhole)
{
    for (const stream_case &c : cases) {
        for (size_t length = 0; length < c.bytes.size(); length++) {
            stream_case cut = c;
            cut.bytes.resize(length);
            EXPECT_EQ(c.events.find(show(run(cut, 1))), 0u) << c.name << " cut at " << length;
        }
    }
}

TEST(Stream, HowBytesAreSplitDoesNotMatter)
{
    std::minstd_rand random(1);
    for (int round = 0; round < 3000; round++) {
        stream_case c = cases[random() % std::size(cases)];
        c.bytes += cases[random() % std::size(cases)].bytes;
        for (size_t damage = random() % 4; damage > 0 && !c.bytes.empty(); damage--)
            c.bytes[random() % c.bytes.size()] = static_cast<char>("\r\n> +O\0\x80"[random() % 8]);
        EXPECT_EQ(show(run(c, 1)), show(run(c, 1 + random() % 9))) << c.name;
    }
}

TEST(Stream, PromptAndData)
{
    at_stream stream;
    std::vector<event> out;
    stream.expect_prompt("AT+CMGS=23\r");
    stream.feed("AT+CMGS=23\r\r\nRING\r\n\r\n>", out);
    EXPECT_EQ(show(out), "indication[\\r\\nRING\\r\\n] prompt[] ");
    out.clear();
    stream.expect_data("00AB\x1A");
    stream.feed(" \r\n^BOOT:0\r\n"
                "00AB\x1A"
                "\r\n+CMGS: 5\r\n\r\nOK\r\n",
                out);
    EXPECT_EQ(show(out), "indication[\\r\\n^BOOT:0\\r\\n] answer[\\r\\n+CMGS: 5\\r\\n\\r\\nOK\\r\\n]0(OK) ");
}

TEST(Stream, PromptOnlyWhereOneIsExpected)
{
    at_stream stream;
    std::vector<event> out;
    stream.expect("AT+CMGS=23\r");
    stream.feed("\r\n> ", out);
    EXPECT_EQ(show(out), "");
    EXPECT_TRUE(stream.is_prompted());
}

TEST(Stream, ErrorInPlaceOfThePrompt)
{
    at_stream stream;
    std::vector<event> out;
    stream.expect_prompt("AT+CMGS=23\r");
    stream.feed("\r\n+CMS ERROR: 304\r\n> \r\n", out);
    EXPECT_EQ(show(out), "answer[\\r\\n+CMS ERROR: 304\\r\\n]304(+CMS ERROR: 304) indication[\\r\\n> \\r\\n] ");
}

TEST(Stream, OldAnswersAreDrained)
{
    at_stream stream;
    std::vector<event> out;
    stream.expect("AT+CMEE?\r", true);
    stream.feed("\r\n+CMGR: 1,,23\r\n" PDU "\r\n\r\n+CMTI: \"SM\",2\r\n\r\nOK\r\n"
                "\r\n+CMEE: 1\r\n\r\nOK\r\n",
                out);
    EXPECT_EQ(show(out), "indication[\\r\\n+CMTI: \"SM\",2\\r\\n] "
                         "answer[\\r\\n+CMGR: 1,,23\\r\\n" PDU "\\r\\n\\r\\nOK\\r\\n]0(OK) "
                         "answer[\\r\\n+CMEE: 1\\r\\n\\r\\nOK\\r\\n]0(OK) ");
}

TEST(Stream, AbandonGivesWhatHadCome)
{
    at_stream stream;
    std::vector<event> out;
    stream.expect("AT+CMGR=1\r");
    stream.feed("\r\n+CMGR: 0,,23\r\n", out);
    EXPECT_EQ(stream.abandon(), "\r\n+CMGR: 0,,23\r\n");
    EXPECT_EQ(stream.abandon(), "");
    stream.feed("AB\r\n\r\nOK\r\n", out);
    EXPECT_EQ(show(out), "indication[\\r\\nAB\\r\\n] stray[\\r\\nOK\\r\\n] ");
}

TEST(Stream, ResetForgetsHalfALine)
{
    at_stream stream;
    std::vector<event> out;
    stream.expect("AT\r");
    stream.feed("\r\n+CMT: ,23\r\nAB", out);
    stream.reset();
    stream.feed("CD\r\n", out);
    EXPECT_EQ(show(out), "indication[\\r\\nCD\\r\\n] ");
}

TEST(Stream, LongestLine)
{
    at_stream stream;
    std::vector<event> out;
    const std::string line(most_in_line - 2, 'x');
    stream.feed("\r\n" + line + "\r\n", out);
    EXPECT_EQ(show(out), "indication[\\r\\n" + line + "\\r\\n] ");
}

TEST(Stream, LongerLineIsDroppedAndNothingElse)
{
    at_stream stream;
    std::vector<event> out;
    stream.expect("AT+CMGF?\r");
    for (int i = 0; i < 100; i++)
        stream.feed(std::string(1000, 'x'), out);
    stream.feed("\r\n\r\n+CMGF: 0\r\n\r\nOK\r\n", out);
    EXPECT_EQ(show(out), "dropped[] answer[\\r\\n+CMGF: 0\\r\\n\\r\\nOK\\r\\n]0(OK) ");
}

TEST(Stream, LongAnswerKeepsItsResult)
{
    at_stream stream;
    std::vector<event> out;
    stream.expect("AT+CMGL=4\r");
    for (int i = 0; i < 500; i++)
        stream.feed("\r\n+CMGL: 1,1,,23\r\n" + std::string(100, 'A') + "\r\n", out);
    stream.feed("\r\n+CMS ERROR: 500\r\n", out);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].error_code, 500);
    EXPECT_LE(out[0].text.size(), most_in_answer);
    EXPECT_GT(out[0].text.size(), most_in_answer - 200);
}

} // namespace
