/* Asks the simulator one thing. */
#ifndef SIM_CONTROL_CLIENT_H
#define SIM_CONTROL_CLIENT_H

#include <nlohmann/json.hpp>
#include <string>

#include <CLI/CLI.hpp>

namespace sim
{

/* One command line: fills the request while it is read, then asks. */
struct client_command {
    CLI::App app;
    std::string socket;
    nlohmann::json request = nlohmann::json::object();

    client_command(const char *tool, const char *purpose);

    /* A sub-command whose request is "TOOL NAME". */
    CLI::App *add(const char *name, const char *purpose);

    /* Options that become fields of the request. */
    CLI::Option *text(CLI::App *to, const char *option, const char *field, const char *purpose);
    CLI::Option *number(CLI::App *to, const char *option, const char *field, const char *purpose);
    CLI::Option *flag(CLI::App *to, const char *option, const char *field, const char *purpose);

    /* A positional "on" or "off" (or other two words). */
    CLI::Option *choice(CLI::App *to, const char *field, const char *yes, const char *no, const char *purpose);

    /* Reads the arguments, asks, prints. The exit code, as below. */
    int run(int argc, char **argv);
};

/* All that a tool's main does. 0: done; 1: refused or nobody there; 2: wrong use. */
int run_client(const char *tool, const char *purpose, void (*describe)(client_command &), int argc, char **argv);

} // namespace sim

#endif
