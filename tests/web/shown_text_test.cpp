/* What is stored, as it is shown. */
#include "shown_text.h"

#include <sstream>

#include <gtest/gtest.h>

namespace
{

using nlohmann::json;

struct shown_case {
    const char *name;
    std::string stored;
    std::string text;
    json runs; /* null: all of it can be shown */
};

const shown_case cases[] = {
    {"nothing", "", "", nullptr},
    {"plain", "hello\n\tthere\r\n", "hello\n\tthere\r\n", nullptr},
    {"Chinese", "您好", "您好", nullptr},
    {"four bytes", "\xF0\x9F\x98\x80", "😀", nullptr},
    {"two halves of three bytes", "a\xED\xA0\xBD\xED\xB8\x80z", "a😀z", nullptr},
    {"the last character there is", "\xED\xAF\xBF\xED\xBF\xBD", "\U0010FFFD", nullptr},
    {"a first half alone", "a\xED\xA0\xBDz", "a\uFFFDz", json::parse(R"(["a", {"hex": "ED A0 BD"}, "z"])")},
    {"a second half alone", "\xED\xB8\x80", "\uFFFD", json::parse(R"([{"hex": "ED B8 80"}])")},
    {"halves the wrong way round", "\xED\xB8\x80\xED\xA0\xBD", "\uFFFD\uFFFD",
     json::parse(R"([{"hex": "ED B8 80"}, {"hex": "ED A0 BD"}])")},
    {"a first half twice", "\xED\xA0\xBD\xED\xA0\xBD\xED\xB8\x80", "\uFFFD😀",
     json::parse(R"([{"hex": "ED A0 BD"}, "😀"])")},
    {"a lone byte", "x\xFFy", "x\uFFFDy", json::parse(R"(["x", {"hex": "FF"}, "y"])")},
    {"a character cut short", "x\xE6\x82", "x\uFFFD\uFFFD", json::parse(R"(["x", {"hex": "E6"}, {"hex": "82"}])")},
    {"overlong", "\xC0\xAF", "\uFFFD\uFFFD", json::parse(R"([{"hex": "C0"}, {"hex": "AF"}])")},
    {"overlong in three", "\xE0\x80\xAF", "\uFFFD\uFFFD\uFFFD",
     json::parse(R"([{"hex": "E0"}, {"hex": "80"}, {"hex": "AF"}])")},
    {"beyond the last", "\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD",
     json::parse(R"([{"hex": "F4"}, {"hex": "90"}, {"hex": "80"}, {"hex": "80"}])")},
    {"five bytes", "\xF8\x88\x80\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD",
     json::parse(R"([{"hex": "F8"}, {"hex": "88"}, {"hex": "80"}, {"hex": "80"}, {"hex": "80"}])")},
    {"a control character", std::string("a\x01") + "b", std::string("a\x01") + "b",
     json::parse(R"(["a", {"hex": "01"}, "b"])")},
    {"one of the upper ones", "a\xC2\x85z", "a\u0085z", json::parse(R"(["a", {"hex": "C2 85"}, "z"])")},
    {"no character", "\xEF\xBF\xBF", "\uFFFF", json::parse(R"([{"hex": "EF BF BF"}])")},
    {"markup", "<b>&amp;\"'</b>", "<b>&amp;\"'</b>", nullptr},
};

TEST(ShownText, IsWhatWasStored)
{
    for (const shown_case &each : cases) {
        SCOPED_TRACE(each.name);
        json out;
        web::show_text(out, "text", each.stored);
        EXPECT_EQ(out["text"], each.text);
        EXPECT_EQ(out.value("text_runs", json()), each.runs);
        EXPECT_NO_THROW((void)out.dump()) << "it must be valid UTF-8";
    }
}

/* The bytes that the pieces stand for. */
std::string bytes_of(const json &out)
{
    std::string bytes;
    for (const json &run : out.value("text_runs", json::array({out["text"]}))) {
        if (run.is_string()) {
            bytes += run.get<std::string>();
            continue;
        }
        std::istringstream hex(run["hex"].get<std::string>());
        for (unsigned byte = 0; hex >> std::hex >> byte;)
            bytes += static_cast<char>(byte);
    }
    return bytes;
}

TEST(ShownText, LosesNoByteHoweverItIsCut)
{
    const std::string halves = "\xED\xA0\xBD\xED\xB8\x80", joined = "\xF0\x9F\x98\x80";
    const std::string whole = "aé您" + halves + "\xFF" + joined + "z";
    for (size_t begin = 0; begin <= whole.size(); begin++) {
        for (size_t end = begin; end <= whole.size(); end++) {
            const std::string cut = whole.substr(begin, end - begin);
            std::string expected = cut;
            if (const size_t at = cut.find(halves); at != std::string::npos)
                expected.replace(at, halves.size(), joined);
            json out;
            web::show_text(out, "text", cut);
            EXPECT_EQ(bytes_of(out), expected) << begin << ' ' << end;
            EXPECT_NO_THROW((void)out.dump()) << begin << ' ' << end;
        }
    }
}

} // namespace
