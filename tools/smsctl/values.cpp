/* smsctl cfg, flag, devinfo: the platform's stores of values. */
#include "values.h"

#include <cstring>
#include <memory>

#include "command.h"
#include "devinfo.h"
#include "sms_msg.h"
#include "text.h"

namespace smsctl
{
namespace
{

struct value_options {
    std::string name, value;
};

struct item_name {
    const char *name;
    int id;
};
constexpr item_name item_names[] = {
    {"sim", DEVINFO_SIM_READY},           {"network", DEVINFO_NETWORK_STATE},
    {"unread", DEVINFO_SMS_UNREAD},       {"inbox-full", DEVINFO_SMS_RECEIVED_FULL},
    {"sent-full", DEVINFO_SMS_SENT_FULL}, {"drafts-full", DEVINFO_SMS_DRAFT_FULL},
};

std::string item_help()
{
    std::string out = "Its number, or a name:";
    for (const item_name &i : item_names)
        out += std::string(" ") + i.name + " (" + std::to_string(i.id) + ")";
    return out;
}

int item_of(const std::string &name)
{
    for (const item_name &i : item_names)
        if (name == i.name)
            return i.id;
    return sms_client::parse_number(name).value_or(-1);
}

int print_value(const std::string &name, const std::optional<std::string> &value)
{
    if (!value) {
        complain("%s is not set", name.c_str());
        return exit_nothing;
    }
    say(sms_client::make_printable(sms_client::make_readable(*value).text, true));
    return exit_done;
}

int report_set(const std::string &name, int error)
{
    if (error == 0)
        return exit_done;
    complain("%s cannot be set: %s", name.c_str(), std::strerror(error));
    return exit_failed;
}

using reader = std::function<std::optional<std::string>(const std::string &)>;
using writer = std::function<int(const std::string &, const std::string &)>;

/* The commands get and set of one store of values. */
CLI::App *add_value_command(CLI::App &app, context &shared, const char *name, const char *description,
                            const std::string &key_help, const reader &read, const writer &write)
{
    CLI::App *parent = add_command(app, name, description);
    parent->require_subcommand(1);

    auto getting = std::make_shared<value_options>();
    CLI::App *get = add_command(*parent, "get", "Print a value");
    get->add_option("name", getting->name, key_help)->required();
    on_run(get, shared, [getting, read] { return print_value(getting->name, read(getting->name)); });

    auto setting = std::make_shared<value_options>();
    CLI::App *set = add_command(*parent, "set", "Set a value");
    set->add_option("name", setting->name, key_help)->required();
    set->add_option("value", setting->value, "The value, as it stands")->required();
    on_run(set, shared, [setting, write] { return report_set(setting->name, write(setting->name, setting->value)); });
    return parent;
}

} // namespace

void add_value_commands(CLI::App &app, context &shared)
{
    add_value_command(app, shared, "cfg", "Read and set configuration values", "The key", sms_client::get_cfg,
                      sms_client::set_cfg);
    CLI::App *flag = add_value_command(app, shared, "flag", "Read, set and clear flags", "The flag's name",
                                       sms_client::get_flag, sms_client::set_flag);
    auto clearing = std::make_shared<value_options>();
    CLI::App *clear = add_command(*flag, "clear", "Make a flag empty");
    clear->add_option("name", clearing->name, "The flag's name")->required();
    on_run(clear, shared, [clearing] { return report_set(clearing->name, sms_client::set_flag(clearing->name, "")); });

    add_value_command(
        app, shared, "devinfo", "Read and set device-information items", item_help(),
        [](const std::string &name) { return sms_client::get_devinfo(item_of(name)); },
        [](const std::string &name, const std::string &value) {
            return sms_client::set_devinfo(item_of(name), value);
        });
}

} // namespace smsctl
