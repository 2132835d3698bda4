#include "at_parser.h"

#include <algorithm>
#include <utility>

namespace sim
{
namespace
{

constexpr std::string_view extended_marks = "+^*%$#";

bool is_letter(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

char upper(char c)
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

/* The end of the command that starts at the front: its ";" outside of quotes, or the end of the line. */
size_t end_of_extended(std::string_view text)
{
    bool quoted = false;
    for (size_t i = 0; i < text.size(); i++) {
        if (text[i] == '"')
            quoted = !quoted;
        if (text[i] == ';' && !quoted)
            return i;
    }
    return text.size();
}

at_command take_extended(std::string_view &in)
{
    const size_t end = end_of_extended(in);
    const std::string_view whole = in.substr(0, end);
    in.remove_prefix(std::min(end + 1, in.size()));

    at_command out;
    const size_t name_end = std::min(whole.find_first_of("=?"), whole.size());
    std::string_view name = whole.substr(0, name_end);
    while (name.ends_with(' '))
        name.remove_suffix(1);
    out.name.resize(name.size());
    std::transform(name.begin(), name.end(), out.name.begin(), upper);
    const std::string_view rest = whole.substr(name_end);
    if (rest == "?") {
        out.form = command_form::read;
    } else if (rest == "=?") {
        out.form = command_form::test;
    } else if (rest.starts_with('=')) {
        out.form = command_form::set;
        out.arguments = rest.substr(1);
    } else if (!rest.empty()) {
        out.name += rest; /* "?" with something behind it: no such command */
    }
    return out;
}

std::string take_digits(std::string_view &in)
{
    const size_t end = std::min(in.find_first_not_of("0123456789"), in.size());
    std::string out(in.substr(0, end));
    in.remove_prefix(end);
    return out;
}

std::optional<at_command> take_basic(std::string_view &in)
{
    at_command out;
    if (in.front() == '&') {
        out.name = "&";
        in.remove_prefix(1);
    }
    if (in.empty() || !is_letter(in.front()))
        return std::nullopt;
    out.name += upper(in.front());
    in.remove_prefix(1);
    if (out.name == "D") {
        out.arguments = in;
        in = {};
    } else {
        out.arguments = take_digits(in);
    }
    if (out.name != "S")
        return out;
    out.name += std::exchange(out.arguments, std::string());
    if (in.starts_with('?')) {
        out.form = command_form::read;
        in.remove_prefix(1);
    } else if (in.starts_with('=')) {
        out.form = command_form::set;
        in.remove_prefix(1);
        out.arguments = take_digits(in);
    }
    return out;
}

} // namespace

std::optional<std::vector<at_command>> parse_commands(std::string_view body)
{
    std::vector<at_command> out;
    while (!body.empty()) {
        if (body.front() == ' ' || body.front() == ';') {
            body.remove_prefix(1);
        } else if (extended_marks.find(body.front()) != std::string_view::npos) {
            out.push_back(take_extended(body));
        } else {
            const auto basic = take_basic(body);
            if (!basic)
                return std::nullopt;
            out.push_back(*basic);
        }
    }
    return out;
}

std::optional<std::vector<at_argument>> parse_arguments(std::string_view text)
{
    std::vector<at_argument> out(1);
    enum { before, inside, behind } place = before;
    for (const char c : text) {
        at_argument &argument = out.back();
        if (place == inside) {
            if (c == '"')
                place = behind;
            else
                argument.text.push_back(c);
        } else if (c == ',') {
            out.emplace_back();
            place = before;
        } else if (c == '"') {
            if (place == behind || !argument.text.empty())
                return std::nullopt;
            argument.quoted = argument.given = true;
            place = inside;
        } else if (c != ' ') {
            if (place == behind)
                return std::nullopt;
            argument.text.push_back(c);
            argument.given = true;
        }
    }
    if (place == inside)
        return std::nullopt;
    return out;
}

std::optional<int> parse_number(std::string_view text)
{
    if (text.empty() || text.size() > 5 || !std::all_of(text.begin(), text.end(), is_digit))
        return std::nullopt;
    int value = 0;
    for (const char c : text)
        value = value * 10 + (c - '0');
    return value;
}

} // namespace sim
