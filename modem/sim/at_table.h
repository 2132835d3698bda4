/* The form of the command tables, and what their handlers share. */
#ifndef SIM_AT_TABLE_H
#define SIM_AT_TABLE_H

#include <span>
#include <string>
#include <string_view>

#include "at_commands.h"
#include "at_parser.h"

namespace sim
{

using at_handler = answer (*)(modem_state &modem, const at_command &command);

enum class dialect { any, vendor, generic };

/* One command; a form without a handler is answered with ERROR. */
struct at_entry {
    std::string_view name;
    at_handler execute, read, test, set;
    bool needs_sim = false;
    dialect spoken_in = dialect::any;
};

/* at_general.cpp: the modem and the network. */
std::span<const at_entry> general_commands();

/* at_messages.cpp: short messages. */
std::span<const at_entry> message_commands();

inline answer ok()
{
    return {};
}

inline answer ok(std::string line)
{
    return {.lines = {std::move(line)}};
}

/* For a command of which nothing follows. */
inline answer accept(modem_state &, const at_command &)
{
    return ok();
}

inline std::string quoted(const std::string &text)
{
    return '"' + text + '"';
}

inline answer error()
{
    return {.final_result = "ERROR"};
}

inline answer cms_failure(int code)
{
    return {.final_result = cms_result(code)};
}

inline answer cme_failure(const modem_state &modem, int code)
{
    return {.final_result = cme_result(code, modem.settings.error_detail)};
}

} // namespace sim

#endif
