#include "control_client.h"

namespace
{

void add_switches(sim::client_command &modem)
{
    modem.add("unplug", "Take the port away; the modem keeps its settings");
    modem.add("plug", "Give the port back, perhaps under another device name");
    modem.add("restart", "Power cycle: settings as at the beginning, then a ^BOOT line");
    modem.choice(modem.add("registered", "Network there or not"), "on", "on", "off", "on or off");
    modem.choice(modem.add("sim", "SIM in or out"), "in", "in", "out", "in or out");

    CLI::App *fill = modem.add("fill", "Put messages into the storage for incoming ones, to the brim");
    modem.number(fill, "count", "count", "So many only");
    modem.text(fill, "--with", "with", "Their text");

    CLI::App *urc = modem.add("urc", "An unasked-for line");
    modem.text(urc, "text", "text", "The line")->required();
    modem.text(urc, "--moment", "moment", "now, or before, in the middle of (answer), or behind the prompt");
    modem.number(urc, "--times", "times", "So many times (default: 1)");

    modem.add("forget", "Drop the messages that the service centre still holds");
}

void add_faults(sim::client_command &modem)
{
    modem.choice(modem.add("silent", "Carry nothing out and say nothing"), "on", "on", "off", "on or off");
    modem.choice(modem.add("repeat", "Give each answer twice"), "on", "on", "off", "on or off");

    modem.number(modem.add("delay", "Answer late"), "milliseconds", "ms", "Milliseconds")->required();

    CLI::App *garble = modem.add("garble", "Put noise into each answer");
    garble
        ->add_option_function<std::string>(
            "bytes",
            [&modem](const std::string &value) {
                if (value != "on")
                    modem.request["bytes"] = value == "off" ? 0 : std::stol(value);
            },
            "on, off or a number of bytes")
        ->required()
        ->check(CLI::IsMember({"on", "off"}) | CLI::Range(0, 1000));
    modem.number(garble, "--seed", "seed", "Start of the sequence of noise");

    CLI::App *split = modem.add("split", "Give each answer in two pieces");
    modem.choice(split, "on", "on", "off", "on or off");
    modem.number(split, "--at", "at", "Bytes in the first piece (default: half of them)");
    modem.number(split, "--delay", "ms", "Milliseconds between them (default: 50)");

    CLI::App *interleave = modem.add("interleave", "Put an unasked-for line into the middle of each answer");
    modem.choice(interleave, "on", "on", "off", "on or off");
    CLI::Option *text = modem.text(interleave, "--text", "text", "The line (default: ^RSSI: 21)");
    modem.flag(interleave, "--messages", "messages", "Instead, let incoming messages wait for such a place")
        ->excludes(text);

    CLI::App *swallow = modem.add("swallow", "Ignore the next commands");
    modem.number(swallow, "count", "count", "So many")->required();
    modem.flag(swallow, "--executed", "executed", "Carry them out, but do not answer");

    CLI::App *fail = modem.add("fail", "Answer a command with an error");
    modem.text(fail, "prefix", "prefix", "How the command begins, with AT or without");
    modem.number(fail, "error", "error", "Number of the +CMS ERROR (default: a plain ERROR)");
    modem.flag(fail, "--cme", "cme", "+CME ERROR instead");
    modem.number(fail, "--times", "times", "So many times (default: until cleared)");
    modem.flag(fail, "--clear", "clear", "Stop doing so, for this prefix or for all");
}

void add_views(sim::client_command &modem)
{
    CLI::App *status = modem.add("status", "Show how the modem is set");
    modem.flag(status, "--json", "json", "As JSON");
    status->add_option_function<std::vector<std::string>>(
        "--wait",
        [&modem](const std::vector<std::string> &wanted) {
            for (const std::string &item : wanted) {
                const size_t equals = item.find('=');
                if (equals == std::string::npos)
                    throw CLI::ValidationError("--wait", "FIELD=VALUE: " + item);
                const std::string value = item.substr(equals + 1);
                const auto parsed = nlohmann::json::parse(value, nullptr, false);
                modem.request["wait"][item.substr(0, equals)] = parsed.is_discarded() ? nlohmann::json(value) : parsed;
            }
        },
        "Wait until FIELD=VALUE");
    modem.number(status, "--timeout", "timeout", "Seconds to wait (default: 10)");

    CLI::App *storage = modem.add("storage", "Show the messages in a storage");
    modem.text(storage, "--memory", "memory", "SM or ME (default: SM)");
    modem.flag(storage, "--json", "json", "As JSON");
    modem.number(storage, "--wait", "wait", "Wait until it holds so many");
    modem.number(storage, "--timeout", "timeout", "Seconds to wait (default: 10)");

    CLI::App *commands = modem.add("commands", "Show the commands received: milliseconds and text");
    modem.text(commands, "prefix", "prefix", "Those only that begin so");
    modem.flag(commands, "--json", "json", "As JSON, with the results");
    modem.flag(commands, "--clear", "clear", "Forget all of them afterwards");
    modem.number(commands, "--wait", "wait", "Wait until there are so many");
    modem.number(commands, "--timeout", "timeout", "Seconds to wait (default: 10)");
}

void describe(sim::client_command &modem)
{
    add_switches(modem);
    add_faults(modem);
    add_views(modem);
}

} // namespace

int main(int argc, char **argv)
{
    return sim::run_client("modem", "The simulated modem: what happens to it and what can be seen of it", describe,
                           argc, argv);
}
