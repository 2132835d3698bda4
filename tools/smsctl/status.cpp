/* smsctl status: how things stand. */
#include <cstdio>
#include <memory>

#include "command.h"
#include "devinfo.h"
#include "text.h"
#include "values.h"

namespace smsctl
{
namespace
{

using nlohmann::json;
using sms_client::get_cfg;
using sms_client::get_devinfo;
using sms_client::get_flag;

json or_null(const std::optional<std::string> &value)
{
    return value ? json(sms_client::make_readable(*value).text) : json(nullptr);
}

json box_status(const sms_client::store &store, sms_client::box which)
{
    const auto numbers = store.numbers(which);
    json out = {{"messages", numbers ? numbers->size() : 0},
                {"capacity", sms_client::box_capacity()},
                {"full", get_devinfo(sms_client::facts_of(which).full_item) == "1"}};
    if (which != sms_client::box::inbox)
        return out;
    const auto unread = store.unread();
    out["unread"] = unread ? json(*unread) : json(nullptr);
    return out;
}

/* The service follows the switch and the SIM within a second. */
json collect(const sms_client::store &store)
{
    const bool running = sms_client::is_daemon_running();
    json out = {{"daemon_running", running},
                {"service_on", running && sms_client::why_service_is_off().empty()},
                {"service_switch", or_null(get_cfg("SYS_SMS_SW"))},
                {"sim_ready", get_devinfo(DEVINFO_SIM_READY) == "1"},
                {"network", or_null(get_devinfo(DEVINFO_NETWORK_STATE))},
                {"service_centre", or_null(get_flag(SMS_CSCA_FLAG))},
                {"unread_mark", get_devinfo(DEVINFO_SMS_UNREAD) == "1"},
                {"last_request", or_null(get_flag(DV_SMS_MGR_LAST_RECEIVED_MSG))},
                {"last_error_code", or_null(get_flag(DV_SMS_MGR_LAST_ERR_CODE))},
                {"store", sms_client::make_readable(store.root()).text}};
    for (const sms_client::box b : sms_client::all_boxes)
        out["boxes"][sms_client::facts_of(b).name] = box_status(store, b);
    return out;
}

std::string word(const json &value, const char *none)
{
    return value.is_null() ? none : sms_client::make_printable(value.get<std::string>(), false);
}

void print(const json &s)
{
    const std::string off = s["daemon_running"] ? sms_client::why_service_is_off() : "the SMS manager is not running";
    const auto line = [](const char *name, const std::string &value) {
        std::printf("%-15s %s\n", name, value.c_str());
    };
    line("Service", s["service_on"] ? "on" : "off: " + off);
    line("SIM", s["sim_ready"] ? "ready" : "not ready");
    line("Network", s["network"] == "Unkown" ? "not registered" : word(s["network"], "not registered"));
    line("Service centre", word(s["service_centre"], "not known yet"));
    for (const sms_client::box b : sms_client::all_boxes) {
        const json &box = s["boxes"][sms_client::facts_of(b).name];
        std::string value = box["messages"].dump() + " of " + box["capacity"].dump();
        if (box.contains("unread"))
            value += ", " + (box["unread"].is_null() ? "no count of" : box["unread"].dump()) + " unread";
        if (box["full"])
            value += ", full";
        line(sms_client::facts_of(b).name, value);
    }
    line("Last request", word(s["last_request"], "-"));
    line("Last error code", word(s["last_error_code"], "-"));
}

} // namespace

void add_status_command(CLI::App &app, context &shared)
{
    auto as_json = std::make_shared<bool>(false);
    CLI::App *command = add_command(app, "status", "Tell whether the service is on, and how full the boxes are");
    command->add_flag("--json", *as_json, "As JSON");
    on_run(command, shared, [as_json, &shared] {
        const json s = collect(shared.store());
        if (*as_json)
            say(sms_client::dump(s));
        else
            print(s);
        return static_cast<int>(exit_done);
    });
}

} // namespace smsctl
