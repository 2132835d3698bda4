/* smsctl smsc: the service centre's number. */
#include <cstring>
#include <memory>

#include "command.h"
#include "modem_line.h"
#include "sms_msg.h"
#include "values.h"

namespace smsctl
{
namespace
{

constexpr int modem_seconds = 15;

std::string between_quotes(const std::string &text)
{
    const size_t start = text.find('"');
    const size_t end = start == std::string::npos ? start : text.find('"', start + 1);
    return end == std::string::npos ? std::string() : text.substr(start + 1, end - start - 1);
}

/* Gives the answer of a command that succeeded. */
std::optional<std::string> carry_out(const std::string &command)
{
    std::string why;
    const auto answer = sms_client::ask_modem(command, modem_seconds, why);
    if (answer && answer->error_code == 0)
        return answer->text;
    complain("%s: %s", command.c_str(), answer ? answer->detail.c_str() : why.c_str());
    return std::nullopt;
}

int get(bool from_modem)
{
    const auto kept = sms_client::get_flag(SMS_CSCA_FLAG);
    if (kept && !from_modem) {
        say(*kept);
        return exit_done;
    }
    return with_daemon([](sms_client::requester &) {
        const auto answer = carry_out("AT+CSCA?");
        if (!answer)
            return static_cast<int>(exit_failed);
        const std::string number = between_quotes(*answer);
        if (number.empty()) {
            complain("the modem knows no service centre");
            return static_cast<int>(exit_nothing);
        }
        say(number);
        return static_cast<int>(exit_done);
    });
}

/* The SIM keeps it; the flag is what the daemon goes by until the power goes. */
int set(const std::string &number)
{
    const std::string complaint = sms_client::complaint_about_number(number);
    if (!complaint.empty()) {
        complain("%s", complaint.c_str());
        return exit_wrong_use;
    }
    return with_daemon([&number](sms_client::requester &) {
        if (!carry_out("AT+CSCA=\"" + number + "\"," + (number.starts_with('+') ? "145" : "129")))
            return static_cast<int>(exit_failed);
        if (const int error = sms_client::set_flag(SMS_CSCA_FLAG, number)) {
            complain("the modem has it, but %s cannot be set: %s", SMS_CSCA_FLAG, std::strerror(error));
            return static_cast<int>(exit_failed);
        }
        return static_cast<int>(exit_done);
    });
}

} // namespace

void add_service_centre_commands(CLI::App &app, context &shared)
{
    CLI::App *parent = add_command(app, "smsc", "Read and set the service centre's number");
    parent->require_subcommand(1);

    auto from_modem = std::make_shared<bool>(false);
    CLI::App *getting = add_command(*parent, "get", "Print the number that is used");
    getting->add_flag("--modem", *from_modem, "Ask the modem, also when the number is known");
    on_run(getting, shared, [from_modem] { return get(*from_modem); });

    auto number = std::make_shared<std::string>();
    CLI::App *setting = add_command(*parent, "set", "Put a number on the SIM and use it from now on");
    setting->add_option("number", *number, "Up to 20 digits, with or without a + in front")->required();
    on_run(setting, shared, [number] { return set(*number); });
}

} // namespace smsctl
