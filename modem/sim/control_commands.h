/* What can be asked over the control socket. */
#ifndef SIM_CONTROL_COMMANDS_H
#define SIM_CONTROL_COMMANDS_H

#include <nlohmann/json.hpp> /* well-known, header only, and sure about what is valid JSON */
#include <span>
#include <stdexcept>
#include <string>

#include "simulator.h"

namespace sim
{

using json = nlohmann::json;

/* A request that cannot be carried out, in words for its author. */
struct control_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct control_command {
    const char *name;
    std::string (*run)(simulator &sim, const json &request); /* what to print; throws control_error */
    bool (*ready)(simulator &sim, const json &request);      /* null: at once; else waited for when asked to */
};

std::span<const control_command> handset_control();
std::span<const control_command> modem_control();

/* Null when there is none of that name. */
const control_command *find_control(const std::string &name);

/* One line of valid JSON, whatever the texts in it are made of. */
inline std::string one_line(const json &value)
{
    return value.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

/* Fields of a request, with control_error for one of the wrong kind. */
std::string text_field(const json &request, const char *name, const std::string &otherwise = "");
long number_field(const json &request, const char *name, long otherwise, long least, long most);
bool flag_field(const json &request, const char *name);

} // namespace sim

#endif
