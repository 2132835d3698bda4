/* A command line cut into its commands (ITU-T V.250, 5.2.4 and 5.4). */
#ifndef SIM_AT_PARSER_H
#define SIM_AT_PARSER_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim
{

enum class command_form { execute, read, test, set };

struct at_command {
    std::string name; /* upper case: "+CMGR", "E", "&F", "S0" */
    command_form form = command_form::execute;
    std::string arguments; /* behind "=" or, for a basic command, its digits */
};

/* `body` is what stands behind "AT". Nothing when it does not hang together. */
std::optional<std::vector<at_command>> parse_commands(std::string_view body);

struct at_argument {
    std::string text;
    bool quoted = false;
    bool given = false; /* false between two commas */
};

/* Arguments parted by commas; nothing for a quote out of place. */
std::optional<std::vector<at_argument>> parse_arguments(std::string_view text);

/* Decimal digits alone, up to 99999. */
std::optional<int> parse_number(std::string_view text);

} // namespace sim

#endif
