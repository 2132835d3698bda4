/* smsctl: the SMS manager from the command line. */
#include "command.h"

namespace
{

constexpr const char *footer = "\nExit codes: 0 done, 1 failed, 2 wrong use, 3 no answer in time, 4 nothing found.\n"
                               "Results go to standard output, everything else to standard error.";

} // namespace

int main(int argc, char **argv)
{
    CLI::App app{"Sends, lists and manages the router's short messages", "smsctl"};
    smsctl::context shared;
    app.set_version_flag("--version", "smsctl " DV_VERSION);
    app.footer(footer);
    app.require_subcommand(1);
    app.add_option("--store", shared.store_root,
                   "Directory of the message store (otherwise DV_SMS_STORE, or /mnt/data/sms)");
    smsctl::add_send_commands(app, shared);
    smsctl::add_box_commands(app, shared);
    smsctl::add_mark_commands(app, shared);
    smsctl::add_notice_commands(app, shared);
    smsctl::add_watch_command(app, shared);
    smsctl::add_status_command(app, shared);
    smsctl::add_doctor_command(app, shared);
    smsctl::add_service_centre_commands(app, shared);
    smsctl::add_value_commands(app, shared);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &reason) {
        return app.exit(reason) == 0 ? smsctl::exit_done : smsctl::exit_wrong_use;
    }
    int code = shared.action();
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        smsctl::complain("standard output cannot be written");
        code = smsctl::exit_failed;
    }
    return code;
}
