/* What all commands of smsctl share. */
#ifndef SMSCTL_COMMAND_H
#define SMSCTL_COMMAND_H

#include <csignal>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp> /* does --help, --version and checked values with a line an option */

#include "request.h"
#include "store.h"

namespace smsctl
{

enum exit_code { exit_done = 0, exit_failed = 1, exit_wrong_use = 2, exit_no_answer = 3, exit_nothing = 4 };

constexpr int module_id = 40; /* on the bus */

/* Set by the signals that end a command which runs until it is told to. */
extern volatile std::sig_atomic_t stop_requested;

struct context {
    std::string store_root;      /* as given */
    std::function<int()> action; /* of the command that was given: gives the exit code */

    sms_client::store store() const { return sms_client::store(sms_client::store::default_root(store_root)); }
};

/* Each adds its commands to the program. */
void add_send_commands(CLI::App &app, context &shared);
void add_box_commands(CLI::App &app, context &shared);
void add_mark_commands(CLI::App &app, context &shared);
void add_status_command(CLI::App &app, context &shared);
void add_value_commands(CLI::App &app, context &shared);
void add_notice_commands(CLI::App &app, context &shared);
void add_service_centre_commands(CLI::App &app, context &shared);
void add_watch_command(CLI::App &app, context &shared);
void add_doctor_command(CLI::App &app, context &shared);

/* A command, or a command's command, with --help and --version. */
CLI::App *add_command(CLI::App &parent, const char *name, const char *description);

/* What the command does, when it is the one given. Every option it reads must outlive the parsing. */
void on_run(CLI::App *command, context &shared, std::function<int()> action);

/* "smsctl: ..." on standard error. */
#ifdef __GNUC__
__attribute__((format(printf, 1, 2)))
#endif
void complain(const char *format, ...);

/* A line on standard output. */
void say(const std::string &line);

/* The option --timeout of a request: seconds until the outcome. */
CLI::Option *add_timeout(CLI::App *command, double &seconds);
sms_client::patience patience_of(double seconds);

/* Waits in turn, joins the bus and asks. */
int with_daemon(const std::function<int(sms_client::requester &)> &work);

/* Says on standard error what went wrong and gives the exit code; `done` says nothing. */
int report(const sms_client::result &r, const char *what);

/* The box of a name that the command line has checked. */
sms_client::box box_named(const std::string &name);
CLI::Option *add_box(CLI::App *command, std::string &name);

} // namespace smsctl

#endif
