#include "control_commands.h"

namespace sim
{

const control_command *find_control(const std::string &name)
{
    for (const std::span<const control_command> table : {handset_control(), modem_control()})
        for (const control_command &command : table)
            if (name == command.name)
                return &command;
    return nullptr;
}

std::string text_field(const json &request, const char *name, const std::string &otherwise)
{
    const auto found = request.find(name);
    if (found == request.end())
        return otherwise;
    if (!found->is_string())
        throw control_error(std::string(name) + " is a text");
    return found->get<std::string>();
}

long number_field(const json &request, const char *name, long otherwise, long least, long most)
{
    const auto found = request.find(name);
    if (found == request.end())
        return otherwise;
    const bool fits = found->is_number_integer() && *found >= least && *found <= most;
    if (!fits)
        throw control_error(std::string(name) + " is a number from " + std::to_string(least) + " to " +
                            std::to_string(most));
    return found->get<long>();
}

bool flag_field(const json &request, const char *name)
{
    const auto found = request.find(name);
    if (found == request.end())
        return false;
    if (!found->is_boolean())
        throw control_error(std::string(name) + " is true or false");
    return found->get<bool>();
}

} // namespace sim
