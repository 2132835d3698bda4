#include "at_commands.h"

#include <algorithm>

#include "at_table.h"

namespace sim
{
namespace
{

struct cme_words {
    int code;
    const char *text;
};

/* 3GPP TS 27.007, 9.2 */
constexpr cme_words words[] = {
    {cme_operation_not_supported, "operation not supported"},
    {cme_sim_not_inserted, "SIM not inserted"},
    {cme_incorrect_parameters, "Incorrect parameters"},
};

bool is_spoken(const at_entry &entry, const modem_state &modem)
{
    return entry.spoken_in == dialect::any || (entry.spoken_in == dialect::generic) == modem.config.generic;
}

const at_entry *find_command(const modem_state &modem, std::string_view name)
{
    for (const std::span<const at_entry> table : {message_commands(), general_commands()})
        for (const at_entry &entry : table)
            if (entry.name == name && is_spoken(entry, modem))
                return &entry;
    return nullptr;
}

at_handler handler_of(const at_entry &entry, command_form form)
{
    switch (form) {
    case command_form::execute:
        return entry.execute;
    case command_form::read:
        return entry.read;
    case command_form::test:
        return entry.test;
    case command_form::set:
        break;
    }
    return entry.set;
}

answer run_command(modem_state &modem, const at_command &command)
{
    const at_entry *entry = find_command(modem, command.name);
    const at_handler handler = entry != nullptr ? handler_of(*entry, command.form) : nullptr;
    if (handler == nullptr)
        return error();
    if (entry->needs_sim && !modem.sim_inserted)
        return cms_failure(cms_sim_not_inserted);
    return handler(modem, command);
}

} // namespace

std::string render_lines(const answer &from)
{
    std::string out;
    for (const std::string &line : from.lines)
        out += "\r\n" + line + "\r\n";
    return out;
}

std::string render_result(const answer &from)
{
    return "\r\n" + from.final_result + "\r\n";
}

std::string cms_result(int code)
{
    return "+CMS ERROR: " + std::to_string(code);
}

std::string cme_result(int code, int detail)
{
    if (detail == 0)
        return "ERROR";
    if (detail == 2)
        for (const cme_words &w : words)
            if (w.code == code)
                return std::string("+CME ERROR: ") + w.text;
    return "+CME ERROR: " + std::to_string(code);
}

size_t command_start(std::string_view line)
{
    const auto is = [](char c, char letter) { return c == letter || c == letter + ('a' - 'A'); };
    for (size_t i = 0; i + 1 < line.size(); i++)
        if (is(line[i], 'A') && is(line[i + 1], 'T'))
            return i + 2;
    return std::string_view::npos;
}

answer run_line(modem_state &modem, std::string_view line)
{
    const auto commands = parse_commands(line.substr(command_start(line)));
    if (!commands)
        return error();
    answer whole;
    for (const at_command &command : *commands) {
        answer one = run_command(modem, command);
        whole.lines.insert(whole.lines.end(), one.lines.begin(), one.lines.end());
        whole.final_result = one.final_result;
        whole.prompt = one.prompt;
        if (one.final_result != "OK" || one.prompt)
            break; /* V.250, 5.4.3: what stands behind a failing command is not looked at */
    }
    return whole;
}

} // namespace sim
