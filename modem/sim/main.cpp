#include <CLI/CLI.hpp> /* does --help, --version and checked values with a line an option */
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "control_server.h"
#include "simulator.h"

namespace
{

volatile std::sig_atomic_t stop_requested = 0;

extern "C" void request_stop(int)
{
    stop_requested = 1;
}

struct options {
    std::string link, control, trace_file, indications = "0,0,0,0,0", storage = "SM";
    long delay = 10;
    bool instant = false, no_echo = false;
    sim::modem_config modem;
};

void describe_options(CLI::App &app, options &o)
{
    app.add_option("--pty-link", o.link, "Symbolic link that leads to the AT port")->required();
    app.add_option("--control", o.control, "Unix socket for `handset` and `modem`")->required();
    app.add_option("--capacity", o.modem.sim_capacity, "Messages that the SIM holds")
        ->check(CLI::Range(0, 255))
        ->capture_default_str();
    app.add_option("--me-capacity", o.modem.equipment_capacity, "Messages that the modem itself holds")
        ->check(CLI::Range(0, 1000))
        ->capture_default_str();
    app.add_option("--smsc", o.modem.service_centre, "Service centre's number")->capture_default_str();
    app.add_option("--number", o.modem.handset_number, "The handset's number")->capture_default_str();
    app.add_option("--own-number", o.modem.own_number, "The router's number")->capture_default_str();
    app.add_flag("--generic", o.modem.generic, "AT+CMGS with its prompt instead of the vendor's send command");
    auto *instant = app.add_flag("--instant", o.instant, "Answer without delay");
    app.add_option("--delay", o.delay, "Milliseconds before each answer")
        ->check(CLI::Range(0, 3600000))
        ->capture_default_str()
        ->excludes(instant);
    app.add_option("--trace", o.trace_file, "Append all traffic to this file (- for standard error)");
    app.add_option("--cmgf", o.modem.power_up.format, "Message format at power-up: 0 PDU, 1 text")
        ->check(CLI::Range(0, 1))
        ->capture_default_str();
    app.add_option("--cnmi", o.indications, "Indication settings at power-up")->capture_default_str();
    app.add_option("--cscs", o.modem.power_up.characters, "Character set at power-up")
        ->check(CLI::IsMember({"IRA", "GSM", "UCS2"}))
        ->capture_default_str();
    app.add_option("--cmee", o.modem.power_up.error_detail, "Error detail at power-up")
        ->check(CLI::Range(0, 2))
        ->capture_default_str();
    app.add_option("--storage", o.storage, "Preferred storage at power-up")
        ->check(CLI::IsMember({"SM", "ME"}))
        ->capture_default_str();
    app.add_flag("--no-echo", o.no_echo, "Start with the echo off");
}

sim::modem_config modem_config_of(const options &o)
{
    sim::modem_config config = o.modem;
    sim::modem_settings &power_up = config.power_up;
    power_up.echo = !o.no_echo;
    power_up.memories.fill(o.storage);
    config.delay = std::chrono::milliseconds(o.instant ? 0 : o.delay);
    for (const std::string &number : {config.service_centre, config.handset_number})
        if (!number.empty())
            sim::encode_address({number, sim::type_of(number)});
    sim::modem_state probe(config);
    if (sim::run_line(probe, "AT+CNMI=" + o.indications).final_result != "OK")
        throw std::invalid_argument("--cnmi: no such settings: " + o.indications);
    power_up.indications = probe.settings.indications;
    return config;
}

int serve(const options &o)
{
    sigset_t blocked, while_waiting;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    sigaddset(&blocked, SIGINT);
    sigprocmask(SIG_BLOCK, &blocked, &while_waiting);
    struct sigaction action {
    };
    action.sa_handler = request_stop;
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
    signal(SIGPIPE, SIG_IGN);

    sim::event_loop loop;
    sim::simulator simulator(loop, modem_config_of(o), o.link);
    if (!o.trace_file.empty() && !simulator.tracing.open(o.trace_file))
        throw std::runtime_error(o.trace_file + ": " + std::strerror(errno));
    sim::control_server control(simulator, o.control);
    simulator.terminal.plug();
    std::puts("ready");
    std::fflush(stdout);
    loop.run(stop_requested, while_waiting);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    try {
        CLI::App app{"A simulated modem with a network and a handset behind it, seen from its AT port"};
        options o;
        app.set_version_flag("--version", "t750_sim " DV_VERSION);
        describe_options(app, o);
        CLI11_PARSE(app, argc, argv);
        return serve(o);
    } catch (const std::exception &reason) {
        std::fprintf(stderr, "t750_sim: %s\n", reason.what());
        return 1;
    }
}
