#include "pasted.h"

#include <algorithm>
#include <charconv>

namespace pdu
{
namespace
{

constexpr std::string_view blanks = " \t\x1A";

/* In front of a PDU: on a line of its own, or up to a comma on the same line. */
constexpr std::string_view headers[] = {"+CMGR:", "+CMGL:", "+CMT:", "+CDS:", "AT+CMGS="};
constexpr std::string_view commands[] = {"AT+DORVYSMS="};
constexpr std::string_view others[] = {"OK", "ERROR", "AT", "+"}; /* what else stands at a line's beginning */
constexpr std::string_view noted[] = {"AT+", " AT"};              /* a command behind the time at which it came */

std::vector<std::string> lines_of(std::string_view text)
{
    std::vector<std::string> out(1);
    for (size_t i = 0; i < text.size(); i++) {
        const bool written = text[i] == '\\' && i + 1 < text.size() && (text[i + 1] == 'r' || text[i + 1] == 'n');
        if (written || text[i] == '\r' || text[i] == '\n') {
            out.emplace_back();
            i += written ? 1 : 0;
        } else {
            out.back() += text[i];
        }
    }
    return out;
}

std::string without_blanks(std::string_view line)
{
    std::string out;
    std::copy_if(line.begin(), line.end(), std::back_inserter(out),
                 [](char c) { return blanks.find(c) == std::string_view::npos; });
    return out;
}

std::string_view trimmed(std::string_view line)
{
    const size_t first = line.find_first_not_of(" \t>");
    return first == std::string_view::npos ? "" : line.substr(first, line.find_last_not_of(blanks) + 1 - first);
}

std::optional<size_t> number_in(std::string_view text)
{
    const std::string digits = without_blanks(text);
    size_t value = 0;
    const auto end = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return end.ec == std::errc() && end.ptr == digits.data() + digits.size() ? std::optional(value) : std::nullopt;
}

/* The last of the numbers behind it. */
std::optional<size_t> stated_by(std::string_view header)
{
    const size_t at = header.find_last_of(",=:");
    return at == std::string_view::npos ? std::nullopt : number_in(header.substr(at + 1));
}

template <size_t Count> size_t find_any(std::string_view line, const std::string_view (&words)[Count])
{
    for (const std::string_view word : words) {
        const size_t at = line.find(word);
        if (at != std::string_view::npos)
            return at;
    }
    return std::string_view::npos;
}

template <size_t Count> bool begins_with(std::string_view line, const std::string_view (&words)[Count])
{
    return std::any_of(std::begin(words), std::end(words), [line](std::string_view w) { return line.starts_with(w); });
}

/* "AT+DORVYSMS=13,0491..." */
pasted from_command(std::string_view command)
{
    const size_t equals = command.find('='), comma = command.find(',');
    if (comma == std::string_view::npos)
        return {"", std::string(command), std::nullopt};
    return {without_blanks(command.substr(comma + 1)), std::string(command.substr(0, comma)),
            number_in(command.substr(equals + 1, comma - equals - 1))};
}

} // namespace

std::vector<pasted> find_pdus(std::string_view text)
{
    std::vector<pasted> out;
    bool awaited = false; /* a header was seen */
    for (const std::string &whole : lines_of(text)) {
        const std::string_view line = trimmed(whole);
        const size_t header = find_any(line, headers), command = find_any(line, commands);
        if (line.empty())
            continue;
        if (command != std::string_view::npos) {
            out.push_back(from_command(line.substr(command)));
            awaited = false;
        } else if (header != std::string_view::npos) {
            out.push_back({"", std::string(line.substr(header)), stated_by(line.substr(header))});
            awaited = true;
        } else if (begins_with(line, others) || find_any(line, noted) != std::string_view::npos) {
            awaited = false;
        } else if (awaited) {
            out.back().hex = without_blanks(line);
            awaited = false;
        } else {
            out.push_back({without_blanks(line), "", std::nullopt});
        }
    }
    return out;
}

} // namespace pdu
