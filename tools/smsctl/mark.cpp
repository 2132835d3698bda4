/* smsctl read, delete. */
#include <algorithm>
#include <cstdio>
#include <memory>
#include <unistd.h>

#include "command.h"
#include "sms_msg.h"

namespace smsctl
{
namespace
{

using sms_client::box;
using sms_client::outcome;

constexpr double request_timeout = 60;
constexpr size_t most_list = 4000; /* bytes of a list of numbers in one request */

struct mark_options {
    std::string box = "inbox";
    std::vector<std::string> numbers;
    double timeout = request_timeout;
    bool yes = false;
};

/* "3,7" and "3" "7"; false when something else is among them. */
bool parse_numbers(const std::vector<std::string> &words, std::vector<int> &out)
{
    for (const std::string &word : words) {
        std::string_view rest = word;
        while (true) {
            const size_t comma = std::min(rest.find(','), rest.size());
            const auto number = sms_client::parse_number(rest.substr(0, comma));
            if (!number)
                return false;
            if (std::find(out.begin(), out.end(), *number) == out.end())
                out.push_back(*number);
            if (comma == rest.size())
                break;
            rest.remove_prefix(comma + 1);
        }
    }
    return true;
}

/* The requests that a list takes: each fits a record. */
std::vector<std::string> lists_of(const std::vector<int> &numbers)
{
    std::vector<std::string> out;
    for (const int number : numbers) {
        const std::string text = std::to_string(number);
        if (out.empty() || out.back().size() + 1 + text.size() > most_list)
            out.push_back(text);
        else
            out.back() += "," + text;
    }
    return out;
}

/* A missing message would make the daemon end halfway, or say that all is well. */
bool all_there(const sms_client::store &store, box where, const std::vector<int> &numbers)
{
    const std::vector<int> there = store.numbers(where).value_or(std::vector<int>());
    bool good = true;
    for (const int number : numbers) {
        if (!std::binary_search(there.begin(), there.end(), number)) {
            complain("%s has no message %d", sms_client::facts_of(where).name, number);
            good = false;
        }
    }
    return good;
}

int carry_out(uint32_t msg_id, const std::vector<std::string> &requests, double timeout, const char *trouble,
              const std::string &success)
{
    return with_daemon([&](sms_client::requester &daemon) {
        for (const std::string &text : requests) {
            const sms_client::result r = daemon.ask(msg_id, text, patience_of(timeout));
            if (r.what != outcome::done)
                return report(r, trouble);
        }
        say(success);
        return static_cast<int>(exit_done);
    });
}

std::string counted(size_t count)
{
    return std::to_string(count) + (count == 1 ? " message" : " messages");
}

bool is_confirmed(const mark_options &o, size_t count)
{
    if (o.yes || !isatty(STDIN_FILENO))
        return true;
    std::fprintf(stderr, "Delete %s of %s? [y/N] ", count == 1 ? "the one message" : ("all " + counted(count)).c_str(),
                 o.box.c_str());
    const int answer = std::getchar();
    return answer == 'y' || answer == 'Y';
}

int mark(const context &shared, const mark_options &o, bool deletes)
{
    const sms_client::store store = shared.store();
    const box where = box_named(o.box);
    const uint32_t msg_id = deletes ? sms_client::facts_of(where).delete_id : uint32_t{DV_SMS_MGR_MSG_ID_READ_SMS};
    const char *trouble = deletes ? "not deleted" : "not marked read";
    const char *success = deletes ? " deleted" : " marked read";

    if (o.numbers.size() == 1 && o.numbers.front() == "all") {
        const size_t count = store.numbers(where).value_or(std::vector<int>()).size();
        if (count == 0) {
            complain("%s is empty", o.box.c_str());
            return exit_nothing;
        }
        if (deletes && !is_confirmed(o, count)) {
            complain("nothing deleted");
            return exit_failed;
        }
        return carry_out(msg_id, {deletes ? "DELETE ALL" : "READ ALL"}, o.timeout, trouble, counted(count) + success);
    }
    std::vector<int> numbers;
    if (!parse_numbers(o.numbers, numbers)) {
        complain("messages are numbers, like 3,7,12, or the word all");
        return exit_wrong_use;
    }
    if (!all_there(store, where, numbers))
        return exit_nothing;
    return carry_out(msg_id, lists_of(numbers), o.timeout, trouble, counted(numbers.size()) + success);
}

void add_numbers(CLI::App *command, mark_options &o)
{
    command->add_option("numbers", o.numbers, "Message numbers, with commas or blanks between, or: all")
        ->required()
        ->expected(1, -1);
    add_timeout(command, o.timeout);
}

} // namespace

void add_mark_commands(CLI::App &app, context &shared)
{
    auto reading = std::make_shared<mark_options>();
    CLI::App *command = add_command(app, "read", "Mark received messages as read");
    add_numbers(command, *reading);
    on_run(command, shared, [reading, &shared] { return mark(shared, *reading, false); });

    auto deleting = std::make_shared<mark_options>();
    command = add_command(app, "delete", "Delete messages of a box; all of them only after asking, on a terminal");
    add_box(command, deleting->box)->required();
    add_numbers(command, *deleting);
    command->add_flag("-y,--yes", deleting->yes, "Do not ask");
    on_run(command, shared, [deleting, &shared] { return mark(shared, *deleting, true); });
}

} // namespace smsctl
