/* The trace of the AT port, followed. */
#include "traffic.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

namespace
{

using nlohmann::json;

struct line_case {
    const char *name, *line, *parts; /* null: no line of a trace */
};
constexpr line_case line_cases[] = {
    {"a command", R"(2026-11-21T09:30:12.345Z > AT+CMGF?\r)", R"(["AT+CMGF?\\r"])"},
    {"an answer", R"(2026-11-21T09:30:12.345Z < \r\nOK\r\n)", R"(["\\r\\nOK\\r\\n"])"},
    {"a PDU to the modem", R"(t > AT+DORVYSMS=13,00110005812143F500000802E834\x1A\r)",
     R"(["AT+DORVYSMS=13,", {"pdu": "00110005812143F500000802E834"}, "\\x1A\\r"])"},
    {"a PDU behind a line end", R"(t ! \r\n+CMT: ,30\r\n07911326040000F0040B911386674523F1\r\n)",
     R"(["\\r\\n+CMT: ,30\\r\\n", {"pdu": "07911326040000F0040B911386674523F1"}, "\\r\\n"])"},
    {"too short for one", R"(t < \r\n+CSCS: "00112233445566"\r\n)", R"(["\\r\\n+CSCS: \"00112233445566\"\\r\\n"])"},
    {"half an octet too many", "t < 00112233445566778899A", R"(["00112233445566778899A"])"},
    {"part of a longer word", "t < G0011223344556677889900", R"(["G0011223344556677889900"])"},
    {"a word behind it", "t < 0011223344556677889900Z", R"(["0011223344556677889900Z"])"},
    {"markup", "t < <b>", R"(["<b>"])"},
    {"about the port", "t # port opened: /dev/x", R"(["port opened: /dev/x"])"},
    {"bytes that are none of ASCII", "t < \xFF\x01", R"(["??"])"},
    {"another kind", "t = x", nullptr},
    {"no kind", "t", nullptr},
    {"nothing", "", nullptr},
    {"cut behind the kind", "t >", nullptr},
};

TEST(TrafficLine, ComesApart)
{
    for (const line_case &each : line_cases) {
        SCOPED_TRACE(each.name);
        const auto parsed = web::parse_traffic_line(each.line);
        ASSERT_EQ(parsed.has_value(), each.parts != nullptr);
        if (each.parts != nullptr) {
            EXPECT_EQ((*parsed)["parts"], json::parse(each.parts));
        }
    }
}

struct TrafficFile : testing::Test {
    TrafficFile()
    {
        char name[] = "/tmp/sms_web_trace_XXXXXX";
        folder = mkdtemp(name);
        path = folder + "/trace";
    }
    ~TrafficFile() override { std::filesystem::remove_all(folder); }

    void write(const std::string &text) const { std::ofstream(path, std::ios::app) << text; }

    static std::vector<std::string> texts(const json &lines)
    {
        std::vector<std::string> out;
        for (const json &line : lines)
            out.push_back(line["parts"].empty() ? "" : line["parts"][0].get<std::string>());
        return out;
    }

    using texts_type = std::vector<std::string>;
    std::string folder, path;
};

TEST_F(TrafficFile, IsAwaitedAndFollowed)
{
    web::traffic traffic(path);
    EXPECT_TRUE(traffic.poll().empty());
    write("t > one\nt < tw");
    EXPECT_EQ(texts(traffic.poll()), texts_type{"one"});
    write("o\n");
    EXPECT_EQ(texts(traffic.poll()), texts_type{"two"});
    EXPECT_TRUE(traffic.poll().empty());
    EXPECT_EQ(texts(traffic.after(0)), (texts_type{"one", "two"}));
    EXPECT_EQ(texts(traffic.after(1)), texts_type{"two"});
    EXPECT_TRUE(traffic.after(2).empty());
}

TEST_F(TrafficFile, MayBeReplaced)
{
    web::traffic traffic(path);
    write("t > old\n");
    EXPECT_EQ(texts(traffic.poll()), texts_type{"old"});
    std::filesystem::rename(path, path + ".1");
    write("t > new\n");
    EXPECT_EQ(texts(traffic.poll()), texts_type{"new"});
    EXPECT_EQ(traffic.after(0).size(), 2U);
}

TEST_F(TrafficFile, MayBeEmptied)
{
    web::traffic traffic(path);
    write("t > long line\n");
    traffic.poll();
    std::filesystem::resize_file(path, 0);
    EXPECT_TRUE(traffic.poll().empty());
    write("t > x\n");
    EXPECT_EQ(texts(traffic.poll()), texts_type{"x"});
}

TEST_F(TrafficFile, MayGoAndComeBack)
{
    web::traffic traffic(path);
    write("t > a\n");
    traffic.poll();
    std::filesystem::remove(path);
    EXPECT_TRUE(traffic.poll().empty());
    write("t > b\n");
    EXPECT_EQ(texts(traffic.poll()), texts_type{"b"});
}

TEST_F(TrafficFile, IsReadFromItsEndWhenItIsLong)
{
    web::traffic traffic(path);
    std::string text;
    for (int i = 0; i < 20000; i++)
        text += "t > line number " + std::to_string(i) + "\n";
    write(text);
    const json fresh = traffic.poll();
    ASSERT_FALSE(fresh.empty());
    EXPECT_LT(fresh.size(), 15000U);
    EXPECT_EQ(texts(fresh).back(), "line number 19999");
    EXPECT_TRUE(texts(fresh).front().starts_with("line number ")) << "no line cut in two";
    EXPECT_EQ(traffic.after(0).size(), web::most_traffic_lines);
}

TEST_F(TrafficFile, DropsALineWithoutEnd)
{
    web::traffic traffic(path);
    write("t > " + std::string(100000, 'x'));
    EXPECT_TRUE(traffic.poll().empty());
    write(std::string(100000, 'y') + "\nt > after it\n");
    EXPECT_EQ(texts(traffic.poll()), texts_type{"after it"});
}

TEST(Traffic, IsNotThereWithoutAFile)
{
    web::traffic traffic("");
    EXPECT_FALSE(traffic.there());
    EXPECT_TRUE(traffic.poll().empty());
}

} // namespace
