/* sms_web: a page for the router's short messages. */
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iostream>

#include <CLI/CLI.hpp>

#include "app.h"

namespace
{

constexpr int exit_failed = 1, exit_wrong_use = 2;
constexpr size_t least_token = 16;

constexpr const char purpose[] =
    "A small web server with one page: the router's short messages, and on a workbench the simulated handset and what "
    "the SMS manager and the modem say to each other.";
constexpr const char footer[] =
    "It listens on this machine only. Any other address wants a token, and should have TLS in front of it.\n"
    "/healthz tells whether the SMS manager is there, /metrics has numbers for Prometheus.";

struct command_line {
    web::app_options options;
    std::string token_file;
};

void describe(CLI::App &line, command_line &to)
{
    web::app_options &o = to.options;
    line.set_version_flag("--version", DV_VERSION);
    line.footer(footer);
    line.add_option("--listen", o.listen, "IPv4 or IPv6 address to listen on")->capture_default_str();
    line.add_option("--port", o.port, "Port; 0: a free one, which is printed")->capture_default_str();
    auto *token = line.add_option("--token", o.rules.token, "Secret of 16 characters or more that is wanted")
                      ->envname("SMS_WEB_TOKEN");
    line.add_option("--token-file", to.token_file, "Its first line is the secret")->excludes(token);
    line.add_option("--host", o.rules.hosts, "Name by which browsers may call the server, beside addresses; repeat it");
    line.add_option("--store", o.store, "The message store's directory")
        ->envname("DV_SMS_STORE")
        ->capture_default_str();
    line.add_option("--handset-control", o.handset_control, "Control socket of the simulated modem: shows its handset");
    line.add_option("--handset-number", o.handset_number, "The handset's number")->capture_default_str();
    line.add_option("--trace", o.trace, "Trace file of the AT port's owner: shows the traffic");
    line.add_option("--assets", o.assets_folder, "Takes the page from this directory instead: to work on it")
        ->check(CLI::ExistingDirectory);
}

/* What the parser cannot see. Throws CLI::ValidationError. */
void complete(command_line &given)
{
    std::string &token = given.options.rules.token;
    if (!given.token_file.empty()) {
        std::ifstream file(given.token_file);
        if (!std::getline(file, token) || token.empty())
            throw CLI::ValidationError("--token-file", "no secret in " + given.token_file);
    }
    const bool loopback = [&given] {
        try {
            return web::parse_endpoint(given.options.listen, given.options.port).loopback;
        } catch (const std::runtime_error &reason) {
            throw CLI::ValidationError("--listen", reason.what());
        }
    }();
    if (token.empty() && !loopback)
        throw CLI::ValidationError("--listen", "others than this machine could ask: give --token-file or --token");
    if (!token.empty() && token.size() < least_token)
        throw CLI::ValidationError("--token", "the secret needs 16 characters or more");
}

int serve(const web::app_options &options, const sigset_t &ends)
{
    std::string why;
    if (!web::router::join(why)) {
        std::cerr << "sms_web: " << why << '\n';
        return exit_failed;
    }
    try {
        const web::app running(options);
        std::cout << "sms_web: listening on " << running.url() << std::endl;
        int number = 0;
        sigwait(&ends, &number);
    } catch (const std::exception &reason) {
        std::cerr << "sms_web: " << reason.what() << '\n';
        return exit_failed;
    }
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App line(purpose, "sms_web");
    command_line given;
    describe(line, given);
    try {
        line.parse(argc, argv);
        complete(given);
    } catch (const CLI::ParseError &outcome) {
        return line.exit(outcome) == 0 ? EXIT_SUCCESS : exit_wrong_use;
    }
    sigset_t ends; /* blocked before any thread starts, so that only sigwait sees them */
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    return serve(given.options, ends);
}
