/* smsctl doctor: what is off in the store. */
#include "doctor.h"

#include <cstdio>
#include <memory>

#include "command.h"

namespace smsctl
{
namespace
{

int print(const std::vector<sms_client::finding> &findings)
{
    if (findings.empty()) {
        say("nothing is off");
        return exit_done;
    }
    for (const sms_client::finding &f : findings)
        std::printf("%s: %s\n    %s\n", f.about.c_str(), f.what.c_str(), f.then.c_str());
    return exit_failed;
}

int print_json(const std::vector<sms_client::finding> &findings)
{
    nlohmann::json out = nlohmann::json::array();
    for (const sms_client::finding &f : findings)
        out.push_back({{"about", f.about}, {"what", f.what}, {"then", f.then}});
    say(sms_client::dump(out));
    return findings.empty() ? exit_done : exit_failed;
}

} // namespace

void add_doctor_command(CLI::App &app, context &shared)
{
    auto as_json = std::make_shared<bool>(false);
    CLI::App *command =
        add_command(app, "doctor", "Compare index, directory, counter and flags of the store; change nothing");
    command->add_flag("--json", *as_json, "As JSON");
    command->footer("\nExit codes: 0 nothing is off, 1 something is.");
    on_run(command, shared, [as_json, &shared] {
        const auto findings = sms_client::examine(shared.store());
        return *as_json ? print_json(findings) : print(findings);
    });
}

} // namespace smsctl
