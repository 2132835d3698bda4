#include "at_parser.h"

#include <gtest/gtest.h>

namespace sim
{
namespace
{

/* NAME:FORM:ARGUMENTS, one after another. */
std::string parsed(std::string_view body)
{
    const auto commands = parse_commands(body);
    if (!commands)
        return "refused";
    std::string out;
    for (const at_command &c : *commands)
        out += "[" + c.name + ":" + "x?t="[static_cast<int>(c.form)] + ":" + c.arguments + "]";
    return out;
}

struct parsed_line {
    const char *body, *commands;
};

constexpr parsed_line lines[] = {
    {"", ""},
    {"+CMGF?", "[+CMGF:?:]"},
    {"+cmgf=?", "[+CMGF:t:]"},
    {"+CMGF=0", "[+CMGF:=:0]"},
    {"+CMGL", "[+CMGL:x:]"},
    {"+CMGL=", "[+CMGL:=:]"},
    {"+CMGF ?", "[+CMGF:?:]"},
    {"+CMGF=0;+CMGL;", "[+CMGF:=:0][+CMGL:x:]"},
    {"+CSCA=\"1;2\";+X?", "[+CSCA:=:\"1;2\"][+X:?:]"},
    {"+CSCA=\"1;2;+X?", "[+CSCA:=:\"1;2;+X?]"},
    {"E0", "[E:x:0]"},
    {"E0V1&C12+X", "[E:x:0][V:x:1][&C:x:12][+X:x:]"},
    {"E0 V1", "[E:x:0][V:x:1]"},
    {"S0=3S7?S10", "[S0:=:3][S7:?:][S10:x:]"},
    {"D+316;+X", "[D:x:+316;+X]"},
    {"^X=1", "[^X:=:1]"},
    {"+X?1", "[+X?1:x:]"},
    {"&", "refused"},
    {"!", "refused"},
    {"E0!", "refused"},
};

TEST(at_parser, lines_are_cut_into_commands)
{
    for (const parsed_line &l : lines)
        EXPECT_EQ(parsed(l.body), l.commands) << l.body;
}

/* Each argument: quoted ones in quotes, those left out as a dash. */
std::string arguments(std::string_view text)
{
    const auto list = parse_arguments(text);
    if (!list)
        return "refused";
    std::string out;
    for (const at_argument &a : *list)
        out += "[" + (a.quoted ? '"' + a.text + '"' : a.given ? a.text : "-") + "]";
    return out;
}

TEST(at_parser, arguments_are_parted_by_commas)
{
    EXPECT_EQ(arguments(""), "[-]");
    EXPECT_EQ(arguments("1"), "[1]");
    EXPECT_EQ(arguments("1, 2,,3"), "[1][2][-][3]");
    EXPECT_EQ(arguments("\"SM\",\"\",\"a, b\""), "[\"SM\"][\"\"][\"a, b\"]");
    EXPECT_EQ(arguments("\"SM"), "refused");
    EXPECT_EQ(arguments("\"S\"M"), "refused");
    EXPECT_EQ(arguments("S\"M\""), "refused");
}

TEST(at_parser, numbers_are_digits)
{
    EXPECT_EQ(parse_number("0"), 0);
    EXPECT_EQ(parse_number("00123"), 123);
    EXPECT_EQ(parse_number("99999"), 99999);
    for (const char *bad : {"", "-1", "+1", " 1", "1x", "100000"})
        EXPECT_EQ(parse_number(bad), std::nullopt) << bad;
}

} // namespace
} // namespace sim
