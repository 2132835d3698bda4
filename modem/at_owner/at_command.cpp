#include "at_command.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace at_owner
{
namespace
{

constexpr std::string_view marks = "+^*%$#!_";

struct unsolicited_name {
    std::string_view name;
    bool whole; /* the line is this and nothing else; otherwise ":" follows, or the line ends */
};
constexpr unsolicited_name unsolicited_names[] = {
    {"+CMTI", false},      {"+CMT", false},     {"+CDS", false},      {"+CDSI", false},     {"+CBM", false},
    {"+CBMI", false},      {"+CREG", false},    {"+CEREG", false},    {"+CGREG", false},    {"+C5GREG", false},
    {"+CPIN", false},      {"+CRING", false},   {"+CLIP", false},     {"+CCWA", false},     {"+CUSD", false},
    {"+CIEV", false},      {"+CTZV", false},    {"+CTZE", false},     {"+CGEV", false},     {"+CSSI", false},
    {"+CSSU", false},      {"+CIREPI", false},  {"+CIREGU", false},   {"+CNEMIU", false},   {"^BOOT", false},
    {"^RSSI", false},      {"^HCSQ", false},    {"^MODE", false},     {"^SIMST", false},    {"^SRVST", false},
    {"^SMMEMFULL", false}, {"^STIN", false},    {"^SYSSTART", false}, {"^NDISSTAT", false}, {"RING", true},
    {"RDY", true},         {"SMS READY", true}, {"SMS DONE", true},   {"PB DONE", true},    {"Call Ready", true},
};

/* Registration: the answer to a read is "n,stat,..." and the report is "stat" or "stat,"lac"...". */
constexpr std::string_view registration_names[] = {"+CREG", "+CGREG", "+CEREG", "+C5GREG"};

/* Answers that come under another name than the command's. */
struct alias {
    std::string_view command, answer;
};
constexpr alias aliases[] = {{"+DORVYSMS", "+CMGS"}};

struct final_word {
    std::string_view text;
    bool whole;        /* the line is this and nothing else */
    bool only_answers; /* never comes unasked */
    bool failure;
};
constexpr final_word final_words[] = {
    {"OK", true, true, false},
    {"ERROR", true, true, true},
    {"+CMS ERROR", false, true, true},
    {"+CME ERROR", false, true, true},
    {"ABORTED", true, true, true},
    {"COMMAND NOT SUPPORT", false, true, true},
    {"TOO MANY PARAMETERS", true, true, true},
    {"NO CARRIER", true, false, true},
    {"NO DIALTONE", true, false, true},
    {"NO ANSWER", true, false, true},
    {"BUSY", true, false, true},
};

struct error_words {
    std::string_view text;
    int code;
};
constexpr error_words equipment_errors[] = {
    /* 27.007, 9.2.1 */
    {"phone failure", 0},
    {"no connection to phone", 1},
    {"operation not allowed", 3},
    {"operation not supported", 4},
    {"ph-sim pin required", 5},
    {"sim not inserted", 10},
    {"sim pin required", 11},
    {"sim puk required", 12},
    {"sim failure", 13},
    {"sim busy", 14},
    {"sim wrong", 15},
    {"incorrect password", 16},
    {"sim pin2 required", 17},
    {"memory full", 20},
    {"invalid index", 21},
    {"not found", 22},
    {"memory failure", 23},
    {"no network service", 30},
    {"network timeout", 31},
    {"incorrect parameters", 50},
    {"unknown", 100},
};
constexpr error_words message_errors[] = {
    /* 27.005, 3.2.5 */
    {"me failure", 300},
    {"sms service of me reserved", 301},
    {"operation not allowed", 302},
    {"operation not supported", 303},
    {"invalid pdu mode parameter", 304},
    {"invalid text mode parameter", 305},
    {"sim not inserted", 310},
    {"sim pin required", 311},
    {"ph-sim pin required", 312},
    {"sim failure", 313},
    {"sim busy", 314},
    {"sim wrong", 315},
    {"sim puk required", 316},
    {"memory failure", 320},
    {"invalid memory index", 321},
    {"memory full", 322},
    {"smsc address unknown", 330},
    {"no network service", 331},
    {"network timeout", 332},
    {"unknown error", 500},
};

bool equal_ignoring_case(std::string_view a, std::string_view b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
    });
}

std::string_view trimmed(std::string_view text)
{
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r'))
        text.remove_suffix(1);
    return text;
}

/* What stands behind "+CMS ERROR": a number or, at the most talkative, words. Never 0, which would mean success. */
int error_code_of(std::string_view line)
{
    const size_t colon = line.find(':');
    const std::string_view rest = colon == std::string_view::npos ? "" : trimmed(line.substr(colon + 1));
    int code = 0;
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), code);
    if (error == std::errc() && end == rest.data() + rest.size())
        return code > 0 ? code : 1;
    const auto look_up = [&rest](const auto &table) {
        for (const error_words &e : table)
            if (equal_ignoring_case(e.text, rest))
                return std::max(e.code, 1);
        return 1;
    };
    return line.starts_with("+CMS") ? look_up(message_errors) : look_up(equipment_errors);
}

/* One item of a command line: up to its ";" outside of quotes. */
std::string_view take_item(std::string_view &rest)
{
    bool quoted = false;
    size_t end = 0;
    while (end < rest.size() && (quoted || rest[end] != ';')) {
        if (rest[end] == '"')
            quoted = !quoted;
        end++;
    }
    const std::string_view item = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return item;
}

bool is_number(std::string_view text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
}

/* The second parameter of a read's answer is the state, one or two digits; that of a report an area code, or none. */
bool is_registration_report(std::string_view line)
{
    const size_t comma = line.find(',');
    if (comma == std::string_view::npos)
        return true;
    line.remove_prefix(comma + 1);
    const std::string_view second = trimmed(line.substr(0, line.find(',')));
    return !is_number(second) || second.size() > 2;
}

bool is_asked_for(const asked &command, std::string_view name)
{
    return std::any_of(command.items.begin(), command.items.end(), [name](const asked_item &item) {
        if (equal_ignoring_case(item.name, name))
            return true;
        return std::any_of(std::begin(aliases), std::end(aliases), [&](const alias &a) {
            return equal_ignoring_case(a.command, item.name) && a.answer == name;
        });
    });
}

/* A name that also comes unasked is an answer only where the command reads it. */
bool is_read(const asked &command, std::string_view name)
{
    return std::any_of(command.items.begin(), command.items.end(),
                       [name](const asked_item &item) { return !item.sets && equal_ignoring_case(item.name, name); });
}

} // namespace

asked parse_command(std::string_view line)
{
    asked out;
    line = trimmed(line);
    if (line.size() >= 2 && equal_ignoring_case(line.substr(0, 2), "AT"))
        line.remove_prefix(2);
    while (!line.empty()) {
        std::string_view item = trimmed(take_item(line));
        const size_t mark = item.find_first_of("+^*%$#!_");
        const size_t start = std::min(mark, item.size());
        if (start > 0)
            out.basic = true; /* basic commands need no ";" behind them */
        item.remove_prefix(start);
        if (item.empty())
            continue;
        const size_t end = std::min(item.find_first_of("=?"), item.size());
        const std::string_view rest = item.substr(end);
        out.items.push_back({std::string(trimmed(item.substr(0, end))), rest.starts_with('=') && rest != "=?"});
    }
    return out;
}

std::string_view response_name(std::string_view line)
{
    if (line.empty() || marks.find(line.front()) == std::string_view::npos)
        return {};
    size_t end = 1;
    while (end < line.size() && (std::isalnum(static_cast<unsigned char>(line[end])) || line[end] == '_'))
        end++;
    return end > 1 && end < line.size() && line[end] == ':' ? line.substr(0, end) : std::string_view();
}

final_result parse_final(std::string_view line)
{
    line = trimmed(line);
    for (const final_word &word : final_words) {
        if (word.whole ? line != word.text : !line.starts_with(word.text))
            continue;
        const bool numbered = word.text.starts_with("+CM");
        if (numbered && line.find(':') != word.text.size())
            continue;
        return {true, word.only_answers, !word.failure ? 0 : numbered ? error_code_of(line) : 1};
    }
    return {};
}

bool is_known_unsolicited(std::string_view line)
{
    line = trimmed(line);
    return std::any_of(std::begin(unsolicited_names), std::end(unsolicited_names), [line](const unsolicited_name &u) {
        if (!line.starts_with(u.name))
            return false;
        return line.size() == u.name.size() || (!u.whole && line[u.name.size()] == ':');
    });
}

bool belongs_to_answer(const asked &command, std::string_view line, bool draining)
{
    const std::string_view name = response_name(line);
    if (is_known_unsolicited(line)) {
        if (name.empty() || !is_read(command, name))
            return false;
        const auto registration = std::find(std::begin(registration_names), std::end(registration_names), name);
        return registration == std::end(registration_names) || !is_registration_report(line);
    }
    return draining || name.empty() || command.basic || is_asked_for(command, name);
}

header data_header(std::string_view line)
{
    const std::string_view name = response_name(line);
    if (name != "+CMT" && name != "+CDS" && name != "+CBM")
        return header::none;
    const std::string_view parameters = line.substr(name.size() + 1);
    const auto commas = std::count(parameters.begin(), parameters.end(), ',');
    const std::string_view length = trimmed(parameters.substr(commas > 0 ? parameters.rfind(',') + 1 : 0));
    if (is_number(length) && commas <= (name == "+CMT" ? 1 : 0))
        return header::pdu; /* "+CMT: alpha,length", "+CDS: length" */
    return name == "+CDS" ? header::none : header::text;
}

bool is_hex(std::string_view line)
{
    return !line.empty() &&
           std::all_of(line.begin(), line.end(), [](unsigned char c) { return std::isxdigit(c) != 0; });
}

} // namespace at_owner
