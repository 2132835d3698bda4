/* The modem's commands: what happens to it, what it is told to do wrong, and what can be seen of it. */
#include "control_commands.h"

#include <algorithm>

namespace sim
{
namespace
{

std::string plug(simulator &sim, const json &)
{
    sim.terminal.plug();
    return sim.terminal.device() + "\n";
}

std::string unplug(simulator &sim, const json &)
{
    sim.terminal.unplug();
    return "";
}

std::string restart(simulator &sim, const json &)
{
    sim.device.restart();
    return "";
}

std::string set_registered(simulator &sim, const json &request)
{
    sim.device.set_registered(flag_field(request, "on"));
    return "";
}

std::string set_sim(simulator &sim, const json &request)
{
    sim.device.set_sim(flag_field(request, "in"));
    return "";
}

std::string set_silent(simulator &sim, const json &request)
{
    sim.device.fault.silent = flag_field(request, "on");
    sim.device.faults_changed();
    return "";
}

std::string set_delay(simulator &sim, const json &request)
{
    sim.device.state.config.delay = std::chrono::milliseconds(number_field(request, "ms", 0, 0, 3600000));
    return "";
}

std::string set_garble(simulator &sim, const json &request)
{
    sim.device.fault.garble = static_cast<int>(number_field(request, "bytes", 4, 0, 1000));
    sim.device.fault.noise.seed(static_cast<unsigned>(number_field(request, "seed", 1, 1, 1000000)));
    return "";
}

std::string set_split(simulator &sim, const json &request)
{
    sim.device.fault.split = flag_field(request, "on");
    sim.device.fault.split_at = static_cast<size_t>(number_field(request, "at", 0, 0, 100000));
    sim.device.fault.split_delay = std::chrono::milliseconds(number_field(request, "ms", 50, 0, 3600000));
    return "";
}

std::string set_repeat(simulator &sim, const json &request)
{
    sim.device.fault.repeat = flag_field(request, "on");
    return "";
}

std::string set_interleave(simulator &sim, const json &request)
{
    faults &fault = sim.device.fault;
    std::erase_if(fault.planned, [](const planned_line &l) { return l.when == moment::in_answer; });
    if (flag_field(request, "on") && !flag_field(request, "messages"))
        fault.planned.push_back({moment::in_answer, text_field(request, "text", "^RSSI: 21"), for_ever});
    fault.hold_messages = flag_field(request, "messages");
    sim.device.faults_changed();
    return "";
}

std::string swallow(simulator &sim, const json &request)
{
    const auto count = static_cast<int>(number_field(request, "count", 1, 0, 1000000));
    (flag_field(request, "executed") ? sim.device.fault.lose : sim.device.fault.swallow) = count;
    return "";
}

std::string fail_command(simulator &sim, const json &request)
{
    auto &failing = sim.device.fault.failing;
    const std::string prefix = text_field(request, "prefix");
    if (flag_field(request, "clear")) {
        std::erase_if(failing, [&prefix](const failing_command &f) { return prefix.empty() || f.prefix == prefix; });
        return "";
    }
    if (prefix.empty())
        throw control_error("the beginning of a command is needed");
    std::string result = "ERROR";
    if (request.contains("error")) {
        const auto code = static_cast<int>(number_field(request, "error", 0, 0, 65535));
        result = flag_field(request, "cme") ? cme_result(code, 1) : cms_result(code);
    }
    const long times = number_field(request, "times", for_ever, for_ever, 1000000);
    if (times != 0)
        failing.push_back({prefix, result, static_cast<int>(times)});
    return "";
}

std::string unsolicited_line(simulator &sim, const json &request)
{
    const std::string text = text_field(request, "text");
    const std::string when = text_field(request, "moment", "now");
    const auto times = static_cast<int>(number_field(request, "times", 1, 1, 1000000));
    constexpr std::pair<const char *, moment> moments[] = {
        {"before", moment::before_answer}, {"answer", moment::in_answer}, {"prompt", moment::after_prompt}};
    for (const auto &[name, value] : moments) {
        if (when == name) {
            sim.device.fault.planned.push_back({value, text, times});
            return "";
        }
    }
    if (when != "now")
        throw control_error("moment is now, before, answer or prompt: " + when);
    for (int i = 0; i < times; i++)
        if (!sim.device.say(text))
            throw control_error("nobody holds the port, or the modem is silent or in the middle of a prompt");
    return "";
}

std::string fill(simulator &sim, const json &request)
{
    message_store &store = sim.device.state.store(memory_receive);
    const size_t room = store.capacity() - store.used();
    const auto count =
        request.contains("count") ? static_cast<size_t>(number_field(request, "count", 0, 0, 100000)) : room;
    if (count > room)
        throw control_error("there is room for " + std::to_string(room) + " only");
    const std::string number = sim.device.state.config.handset_number;
    const deliver_header header{.service_centre = sim.device.state.config.service_centre,
                                .from = {number, type_of(number)},
                                .when = current_timestamp(std::nullopt),
                                .message_class = std::nullopt};
    const std::string sender = number + ": ";
    for (size_t i = 1; i <= count; i++) {
        const std::string text = text_field(request, "with", "message " + std::to_string(i));
        const split_text cut = split(text, alphabet::automatic, false, false);
        if (cut.parts.size() > 1)
            throw control_error("the text is too long for one message");
        store.add({encode_deliver(header, cut.chosen, cut.parts.front(), std::nullopt), message_state::unread,
                   sender + text});
    }
    return std::to_string(store.used()) + " of " + std::to_string(store.capacity()) + "\n";
}

json describe_store(const message_store &store)
{
    constexpr const char *states[] = {"unread", "read", "unsent", "sent"};
    json out = json::array();
    for (const auto &[index, message] : store.all())
        out.push_back({{"index", index},
                       {"state", states[static_cast<int>(message.state)]},
                       {"pdu", to_hex(message.pdu)},
                       {"note", repair_utf8(message.note)}});
    return out;
}

message_store &chosen_store(simulator &sim, const json &request)
{
    message_store *store = sim.device.state.store(text_field(request, "memory", "SM"));
    if (store == nullptr)
        throw control_error("memory is SM or ME");
    return *store;
}

std::string show_storage(simulator &sim, const json &request)
{
    const message_store &store = chosen_store(sim, request);
    const json list = describe_store(store);
    if (flag_field(request, "json"))
        return one_line({{"used", store.used()}, {"capacity", store.capacity()}, {"messages", list}});
    std::string out = std::to_string(store.used()) + " of " + std::to_string(store.capacity()) + "\n";
    for (const json &entry : list)
        out += std::to_string(entry["index"].get<size_t>()) + "  " + entry["state"].get<std::string>() + "  " +
               entry["note"].get<std::string>() + "  " + entry["pdu"].get<std::string>() + "\n";
    return out;
}

bool storage_holds(simulator &sim, const json &request)
{
    return chosen_store(sim, request).used() == static_cast<size_t>(number_field(request, "wait", 0, 0, 100000));
}

/* The commands that begin as asked for. */
std::vector<const logged_command *> matching(const simulator &sim, const json &request)
{
    const std::string prefix = text_field(request, "prefix");
    std::vector<const logged_command *> out;
    for (const logged_command &command : sim.device.commands())
        if (command.text.starts_with(prefix))
            out.push_back(&command);
    return out;
}

std::string show_commands(simulator &sim, const json &request)
{
    json list = json::array();
    std::string out;
    for (const logged_command *command : matching(sim, request)) {
        const auto ms = static_cast<long>(command->at.count());
        list.push_back({{"ms", ms}, {"command", repair_utf8(command->text)}, {"result", repair_utf8(command->result)}});
        out += std::to_string(ms) + " " + printable(command->text) + "\n";
    }
    if (flag_field(request, "json"))
        out = one_line(list);
    if (flag_field(request, "clear"))
        sim.device.clear_commands();
    return out;
}

bool commands_came(simulator &sim, const json &request)
{
    return matching(sim, request).size() >= static_cast<size_t>(number_field(request, "wait", 1, 0, 1000000));
}

json describe_faults(const faults &fault)
{
    json failing = json::array();
    for (const failing_command &f : fault.failing)
        failing.push_back({{"prefix", f.prefix}, {"result", f.result}, {"times", f.times}});
    return {{"silent", fault.silent},
            {"swallow", fault.swallow},
            {"lose", fault.lose},
            {"repeat", fault.repeat},
            {"garble", fault.garble},
            {"split", fault.split},
            {"hold_messages", fault.hold_messages},
            {"planned_lines", fault.planned.size()},
            {"failing", failing}};
}

json describe_modem(const simulator &sim)
{
    const modem_state &state = sim.device.state;
    std::string cnmi;
    for (const int value : state.settings.indications)
        cnmi += (cnmi.empty() ? "" : ",") + std::to_string(value);
    const auto usage = [](const message_store &store) {
        return json{{"used", store.used()}, {"capacity", store.capacity()}};
    };
    return {{"link", sim.terminal.link()},
            {"port", sim.terminal.device()},
            {"plugged", sim.terminal.plugged()},
            {"open", sim.device.port_open()},
            {"registered", state.registered},
            {"sim", state.sim_inserted},
            {"generic", state.config.generic},
            {"delay_ms", state.config.delay.count()},
            {"echo", state.settings.echo},
            {"cmee", state.settings.error_detail},
            {"cmgf", state.settings.format},
            {"cnmi", cnmi},
            {"cscs", state.settings.characters},
            {"csca", state.service_centre},
            {"memories", state.settings.memories},
            {"storage", {{"SM", usage(state.sim)}, {"ME", usage(state.equipment)}}},
            {"waiting", sim.device.waiting().size()},
            {"commands", sim.device.commands().size()},
            {"received", sim.device.phone.complete().size()},
            {"incomplete", sim.device.phone.partial().size()},
            {"last_refusal", sim.device.last_refusal()},
            {"faults", describe_faults(sim.device.fault)}};
}

std::string show_status(simulator &sim, const json &request)
{
    const json status = describe_modem(sim);
    if (flag_field(request, "json"))
        return one_line(status);
    std::string out;
    for (const auto &[name, value] : status.items())
        out += name + ": " + (value.is_string() ? value.get<std::string>() : value.dump()) + "\n";
    return out;
}

bool status_holds(simulator &sim, const json &request)
{
    const json &wanted = request.at("wait");
    if (!wanted.is_object())
        throw control_error("wait is a set of fields and values");
    const json status = describe_modem(sim);
    return std::all_of(wanted.items().begin(), wanted.items().end(), [&status](const auto &item) {
        const auto found = status.find(item.key());
        if (found == status.end())
            throw control_error("status has no field " + item.key());
        return *found == item.value();
    });
}

std::string forget_waiting(simulator &sim, const json &)
{
    sim.device.forget_waiting();
    return "";
}

constexpr control_command modem_table[] = {
    {"modem plug", plug, nullptr},
    {"modem unplug", unplug, nullptr},
    {"modem restart", restart, nullptr},
    {"modem registered", set_registered, nullptr},
    {"modem sim", set_sim, nullptr},
    {"modem silent", set_silent, nullptr},
    {"modem delay", set_delay, nullptr},
    {"modem garble", set_garble, nullptr},
    {"modem split", set_split, nullptr},
    {"modem repeat", set_repeat, nullptr},
    {"modem interleave", set_interleave, nullptr},
    {"modem swallow", swallow, nullptr},
    {"modem fail", fail_command, nullptr},
    {"modem urc", unsolicited_line, nullptr},
    {"modem fill", fill, nullptr},
    {"modem storage", show_storage, storage_holds},
    {"modem commands", show_commands, commands_came},
    {"modem status", show_status, status_holds},
    {"modem forget", forget_waiting, nullptr},
};

} // namespace

std::span<const control_command> modem_control()
{
    return modem_table;
}

} // namespace sim
