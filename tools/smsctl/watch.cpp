/* smsctl watch: what happens, as it happens. */
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <memory>

#include "command.h"
#include "hook.h"
#include "text.h"
#include "watcher.h"

namespace smsctl
{
namespace
{

using sms_client::change;
using sms_client::printable;

struct watch_options {
    bool json = false;
    std::string program, url;
    double interval = 0.5, hook_timeout = 60;
    long count = 0;
};

extern "C" void request_stop(int)
{
    stop_requested = 1;
}

void print(const change &c, bool as_json)
{
    if (as_json) {
        say(sms_client::dump(sms_client::to_json(c)));
    } else if (c.what == change::value_set) {
        say(c.name + " = " + printable(c.value));
    } else {
        const char *what = c.what == change::added ? "new" : c.what == change::removed ? "gone" : "now";
        const std::string place =
            std::string(sms_client::facts_of(c.about.where).name) + " " + std::to_string(c.about.number);
        say(place + " " + what + ": " + c.about.state_word() + ", " + printable(c.about.phone) + ", " +
            printable(c.about.date) + ", " + printable(c.about.text));
    }
    std::fflush(stdout);
}

void hand_on(const sms_client::message &m, const watch_options &o)
{
    if (!o.program.empty())
        run_program(o.program, m, o.hook_timeout);
    if (!o.url.empty())
        post_message(o.url, m, std::min(o.hook_timeout, 30.0));
}

int watch(const context &shared, const watch_options &o)
{
    struct sigaction action {
    };
    action.sa_handler = request_stop;
    for (const int number : {SIGINT, SIGTERM})
        sigaction(number, &action, nullptr);
    signal(SIGPIPE, SIG_IGN);

    const sms_client::store store = shared.store();
    sms_client::watcher watcher(store);
    long received = 0;
    watcher.look();
    std::fprintf(stderr, "watching %s\n", printable(store.root()).c_str());
    while (!stop_requested && (o.count == 0 || received < o.count)) {
        for (const change &c : watcher.look()) {
            print(c, o.json);
            if (std::ferror(stdout) != 0)
                return exit_failed; /* nobody reads any more */
            if (c.what != change::added || c.about.where != sms_client::box::inbox)
                continue;
            hand_on(c.about, o);
            if (++received == o.count || stop_requested)
                break;
        }
        if (!stop_requested && (o.count == 0 || received < o.count))
            sms_client::pause(std::chrono::milliseconds(static_cast<long>(o.interval * 1000)));
    }
    return exit_done;
}

} // namespace

void add_watch_command(CLI::App &app, context &shared)
{
    auto o = std::make_shared<watch_options>();
    CLI::App *command = add_command(app, "watch", "Print messages, states and flags as they change, until Ctrl-C");
    command->add_flag("--json", o->json, "Each change as a line of JSON");
    command->add_option(
        "--exec", o->program,
        "Run this program for each new received message: SMS_NUMBER, SMS_PHONE, SMS_DATE, SMS_STATE and "
        "SMS_BOX in its environment, the text on its standard input");
    command->add_option("--post", o->url, "Post each new received message to this address as JSON")
        ->check([](const std::string &url) { return complaint_about_url(url); });
    command->add_option("--hook-timeout", o->hook_timeout, "Seconds that --exec and --post may take for a message")
        ->check(CLI::Range(0.1, 3600.0))
        ->capture_default_str();
    command->add_option("--interval", o->interval, "Seconds between two looks")
        ->check(CLI::Range(0.05, 3600.0))
        ->capture_default_str();
    command->add_option("--count", o->count, "End after so many received messages")->check(CLI::Range(1L, 1000000000L));
    on_run(command, shared, [o, &shared] { return watch(shared, *o); });
}

} // namespace smsctl
