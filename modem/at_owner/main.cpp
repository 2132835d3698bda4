/* at_owner: the only program that opens the modem's AT port. */
#include <CLI/CLI.hpp> /* does --help, --version and checked values with a line an option */
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "commlog.h"
#include "owner.h"
#include "sms_msg.h"

namespace
{

int stop_pipe[2];

extern "C" void request_stop(int)
{
    (void)!write(stop_pipe[1], "", 1);
}

struct options {
    at_owner::port_settings port;
    at_owner::owner_settings owner;
    std::string flow = "none", trace_file;
    std::vector<int> notified = {SMS_MGR_MODULE_ID};
    std::vector<std::string> init;
    bool generic = false, store_first = false, direct = false, keep_errors = false;
};

constexpr const char *description =
    "The owner of the modem's AT port: carries out the AT requests of other programs on the bus, one at a time, and\n"
    "passes on what the modem says unasked";

constexpr const char *footer =
    "\nError codes of answers: that of a +CMS ERROR or +CME ERROR, 1 for ERROR or a malformed request, 19 without a\n"
    "modem, 105 when too many requests wait, 110 when the modem did not answer in the request's time.\n"
    "Exit codes: 0 asked to end, 1 cannot start, 2 wrong use.";

void describe_port(CLI::App &app, options &o)
{
    app.add_option("--port,port", o.port.pattern,
                   "Serial device or pseudo terminal; a link, or a pattern like '/dev/ttyUSB*' in quotes, is looked up "
                   "anew whenever the modem returns")
        ->required();
    app.add_option("--baud", o.port.baud, "Speed")->capture_default_str()->check([](const std::string &text) {
        unsigned baud = 0;
        return CLI::detail::lexical_cast(text, baud) && at_owner::is_known_speed(baud) ? std::string()
                                                                                       : "no such speed";
    });
    app.add_option("--flow", o.flow, "Flow control")->check(CLI::IsMember({"none", "rtscts"}))->capture_default_str();
    app.add_option("--init", o.init,
                   "A command to send whenever the port has been opened, for instance AT+CSMS=0; may "
                   "be repeated")
        ->take_all()
        ->expected(1);
    app.add_flag("--no-cmee", o.keep_errors, "Leave the modem's form of error results as it is (otherwise AT+CMEE=1)");
}

void describe_modem(CLI::App &app, options &o)
{
    app.add_flag("--generic", o.generic,
                 "Any modem that speaks 3GPP TS 27.005: --translate-send, --set-devinfo, and --direct unless "
                 "--store-first is given");
    app.add_flag("--translate-send", o.owner.translate.send, "Turn AT+DORVYSMS into AT+CMGS and its prompt");
    auto *store = app.add_flag("--store-first", o.store_first,
                               "Have new messages stored and announced (+CMTI), in the modem's own form of AT+CNMI");
    app.add_flag("--direct", o.direct, "Have new messages delivered whole (+CMT), in the modem's own form of AT+CNMI")
        ->excludes(store);
    app.add_flag("--set-devinfo", o.owner.set_devinfo,
                 "Keep device-information items 301001 (SIM ready) and 301002 (network) up to date");
}

void describe_bus(CLI::App &app, options &o)
{
    app.add_option("--notify", o.notified, "A module that gets what the modem says unasked; may be repeated")
        ->take_all()
        ->expected(1)
        ->check(CLI::Range(1, 65535))
        ->capture_default_str();
    app.add_flag("--silent-timeouts", o.owner.silent_timeouts,
                 "Give no answer, instead of error 110, where the modem gave none");
    app.add_option("--block-after", o.owner.block_after,
                   "Time-outs in a row after which record 0x4001 reports a blocked modem; 0: never")
        ->check(CLI::Range(0, 1000000))
        ->capture_default_str();
    app.add_option("--trace", o.trace_file,
                   "Append everything that goes over the port to this file (- for standard error): numbers and texts "
                   "too");
}

void complete(options &o)
{
    at_owner::owner_settings &owner = o.owner;
    o.port.rtscts = o.flow == "rtscts";
    if (o.generic) {
        owner.translate.send = owner.set_devinfo = true;
        o.direct = !o.store_first;
    }
    owner.translate.messages = o.store_first ? at_owner::routing::store_first
                               : o.direct    ? at_owner::routing::direct
                                             : at_owner::routing::as_asked;
    owner.init = {"ATE0\r"};
    if (!o.keep_errors)
        owner.init.push_back("AT+CMEE=1\r");
    if (o.direct)
        owner.init.push_back("AT+CSMS=0\r"); /* without the acknowledgement that a later phase wants for each +CMT */
    if (owner.set_devinfo)
        owner.init.insert(owner.init.end(), {"AT+CREG=1\r", "AT+CEREG=1\r"});
    for (const std::string &command : o.init)
        owner.init.push_back(command + "\r");
}

bool catch_signals()
{
    struct sigaction action {
    };
    if (pipe(stop_pipe) != 0)
        return false;
    for (const int fd : stop_pipe) {
        fcntl(fd, F_SETFD, FD_CLOEXEC);
        fcntl(fd, F_SETFL, O_NONBLOCK);
    }
    action.sa_handler = request_stop;
    action.sa_flags = SA_RESTART;
    for (const int number : {SIGTERM, SIGINT})
        sigaction(number, &action, nullptr);
    signal(SIGPIPE, SIG_IGN);
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app{description, "at_owner"};
    options o;
    app.set_version_flag("--version", "at_owner " DV_VERSION);
    app.footer(footer);
    describe_port(app, o);
    describe_modem(app, o);
    describe_bus(app, o);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &reason) {
        return app.exit(reason) == 0 ? 0 : 2;
    }
    complete(o);

    at_owner::trace traffic;
    if (!o.trace_file.empty() && !traffic.open(o.trace_file)) {
        std::fprintf(stderr, "at_owner: %s: %s\n", o.trace_file.c_str(), std::strerror(errno));
        return 1;
    }
    init_log_params("AT_OWNER");
    at_owner::bus_side bus(o.notified);
    if (!catch_signals() || !bus.join())
        return 1;
    at_owner::port device(o.port);
    at_owner::owner(o.owner, device, bus, traffic).run(stop_pipe[0]);
    return 0;
}
