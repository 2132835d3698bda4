#include "command.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace smsctl
{

volatile std::sig_atomic_t stop_requested = 0;

namespace
{

constexpr std::chrono::seconds turn_patience{60};

} // namespace

CLI::App *add_command(CLI::App &parent, const char *name, const char *description)
{
    CLI::App *command = parent.add_subcommand(name, description);
    command->set_version_flag("--version", "smsctl " DV_VERSION);
    command->fallthrough();
    return command;
}

void on_run(CLI::App *command, context &shared, std::function<int()> action)
{
    command->callback([&shared, action = std::move(action)] { shared.action = action; });
}

void complain(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::fputs("smsctl: ", stderr);
    std::vfprintf(stderr, format, arguments);
    std::fputc('\n', stderr);
    va_end(arguments);
}

void say(const std::string &line)
{
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
}

CLI::Option *add_timeout(CLI::App *command, double &seconds)
{
    return command->add_option("--timeout", seconds, "Seconds to wait for the outcome")
        ->check(CLI::Range(0.1, 86400.0))
        ->capture_default_str();
}

/* A request that is dropped shows early, by the flag that stays empty. */
sms_client::patience patience_of(double seconds)
{
    sms_client::patience out;
    out.finish = std::chrono::milliseconds(static_cast<long>(seconds * 1000));
    out.take = std::min(out.take, out.finish);
    return out;
}

int with_daemon(const std::function<int(sms_client::requester &)> &work)
{
    const sms_client::turn mine(turn_patience);
    sms_client::requester requester(module_id);
    std::string why;
    if (!mine.taken()) {
        complain("another client has been at work for %d seconds", static_cast<int>(turn_patience.count()));
        return exit_no_answer;
    }
    if (!requester.join(why)) {
        complain("%s", why.c_str());
        return exit_failed;
    }
    return work(requester);
}

int report(const sms_client::result &r, const char *what)
{
    switch (r.what) {
    case sms_client::outcome::done:
        return exit_done;
    case sms_client::outcome::failed:
        complain("%s: the SMS manager reports error %s", what, r.detail.c_str());
        return exit_failed;
    case sms_client::outcome::not_running:
        complain("%s: %s", what, r.detail.c_str());
        return exit_failed;
    case sms_client::outcome::not_taken:
        complain("%s: no answer: the SMS manager did not take the request; if it is only busy, it may do so yet", what);
        return exit_no_answer;
    case sms_client::outcome::unfinished:
        complain("%s: no outcome in time: the request was taken, and may be carried out yet", what);
        return exit_no_answer;
    }
    return exit_failed;
}

sms_client::box box_named(const std::string &name)
{
    return sms_client::find_box(name).value_or(sms_client::box::inbox);
}

CLI::Option *add_box(CLI::App *command, std::string &name)
{
    std::vector<std::string> names;
    for (const sms_client::box b : sms_client::all_boxes)
        names.emplace_back(sms_client::facts_of(b).name);
    return command->add_option("box", name, "Which box")->check(CLI::IsMember(names));
}

} // namespace smsctl
