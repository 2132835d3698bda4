/* smsctl list, show, export: what the store holds. */
#include <cstdio>
#include <memory>

#include "command.h"
#include "text.h"

namespace smsctl
{
namespace
{

using sms_client::make_printable;
using sms_client::make_readable;
using sms_client::printable;

struct box_options {
    std::string box;
    std::string message;
    bool json = false;
};

void print_line(const sms_client::message &m)
{
    std::printf("%4d  %-6s  %-19s  %-16s  %s\n", m.number, m.state_word(), printable(m.date).c_str(),
                printable(m.phone).c_str(), printable(m.text).c_str());
    if (!m.problem.empty())
        complain("%s %d: %s", sms_client::facts_of(m.where).name, m.number, m.problem.c_str());
}

nlohmann::json list_json(const std::vector<sms_client::message> &messages)
{
    nlohmann::json out = nlohmann::json::array();
    for (const sms_client::message &m : messages)
        out.push_back(sms_client::to_json(m));
    return out;
}

int list(const context &shared, const box_options &o)
{
    const sms_client::store store = shared.store();
    std::vector<sms_client::message> all;
    for (const sms_client::box b : sms_client::all_boxes) {
        if (!o.box.empty() && b != box_named(o.box))
            continue;
        const std::vector<sms_client::message> some = store.list(b);
        if (!o.json && o.box.empty())
            std::printf("%s%s: %zu\n", b == sms_client::box::inbox ? "" : "\n", sms_client::facts_of(b).name,
                        some.size());
        if (!o.json)
            for (const sms_client::message &m : some)
                print_line(m);
        all.insert(all.end(), some.begin(), some.end());
    }
    if (o.json)
        say(sms_client::dump(list_json(all)));
    return all.empty() ? exit_nothing : exit_done;
}

int show(const context &shared, const box_options &o)
{
    const auto number = sms_client::parse_number(o.message);
    const auto m = number ? shared.store().read(box_named(o.box), *number) : std::nullopt;
    if (!number) {
        complain("a message's number is digits: %s", o.message.c_str());
        return exit_wrong_use;
    }
    if (!m) {
        complain("%s has no message %d", o.box.c_str(), *number);
        return exit_nothing;
    }
    if (o.json) {
        say(sms_client::dump(sms_client::to_json(*m)));
        return exit_done;
    }
    const char *who = m->where == sms_client::box::inbox ? "From" : "To";
    std::printf("%-7s %s %d\n%-7s %s\n%-7s %s\n%-7s %s\n", "Message", o.box.c_str(), m->number, "State",
                m->state_word(), who, printable(m->phone).c_str(), "Date", printable(m->date).c_str());
    if (!m->problem.empty())
        std::printf("%-7s %s\n", "Problem", m->problem.c_str());
    say("\n" + make_printable(make_readable(m->text).text, true));
    return exit_done;
}

} // namespace

void add_box_commands(CLI::App &app, context &shared)
{
    auto listing = std::make_shared<box_options>();
    CLI::App *command = add_command(app, "list", "List the messages of a box, or of all");
    add_box(command, listing->box);
    command->add_flag("--json", listing->json, "As JSON");
    on_run(command, shared, [listing, &shared] { return list(shared, *listing); });

    auto showing = std::make_shared<box_options>();
    command = add_command(app, "show", "Show one message whole");
    add_box(command, showing->box)->required();
    command->add_option("message", showing->message, "Its number")->required();
    command->add_flag("--json", showing->json, "As JSON");
    on_run(command, shared, [showing, &shared] { return show(shared, *showing); });

    auto exporting = std::make_shared<box_options>();
    exporting->json = true;
    command = add_command(app, "export", "Write a box as JSON: an array with an object a message");
    add_box(command, exporting->box)->required();
    on_run(command, shared, [exporting, &shared] { return list(shared, *exporting); });
}

} // namespace smsctl
