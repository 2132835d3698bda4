/* smsctl send, draft, resend. */
#include <cstdio>
#include <memory>

#include "command.h"
#include "sms_msg.h"
#include "text.h"

namespace smsctl
{
namespace
{

using sms_client::outcome;

struct send_options {
    std::string number, text;
    int message = 0;
    double timeout = 180;
};

std::string read_input()
{
    std::string out;
    char piece[4096];
    size_t got = 0;
    while ((got = std::fread(piece, 1, sizeof piece, stdin)) > 0 && out.size() <= 2 * sms_client::most_text)
        out.append(piece, got);
    return out;
}

/* Everything that can be known to fail does so before anything is sent. */
int submit(const std::string &number, const std::string &text, uint32_t msg_id, double timeout)
{
    for (const std::string &complaint :
         {sms_client::complaint_about_number(number), sms_client::complaint_about_text(text)}) {
        if (!complaint.empty()) {
            complain("%s", complaint.c_str());
            return exit_wrong_use;
        }
    }
    return with_daemon([&](sms_client::requester &daemon) {
        const sms_payload payload = sms_client::make_payload(number, text);
        const bool sends = msg_id == DV_SMS_MGR_MSG_ID_SEND_SMS;
        const sms_client::result r = daemon.ask(msg_id, &payload, sizeof payload, patience_of(timeout));
        if (r.what == outcome::done)
            say(sends ? "sent" : "saved");
        if (sends && r.what == outcome::not_taken && !sms_client::why_service_is_off().empty()) {
            complain("not sent: no answer: %s", sms_client::why_service_is_off().c_str());
            return static_cast<int>(exit_no_answer);
        }
        if (sends && r.what == outcome::unfinished)
            complain("a request that is the 62nd to wait is dropped without a word");
        return report(r, sends ? "not sent" : "not saved");
    });
}

void add_submit(CLI::App &app, context &shared, const char *name, const char *description, uint32_t msg_id)
{
    auto o = std::make_shared<send_options>();
    CLI::App *command = add_command(app, name, description);
    o->timeout = msg_id == DV_SMS_MGR_MSG_ID_SEND_SMS ? 180 : 30;
    command->add_option("number", o->number, "Up to 20 digits, with or without a + in front")->required();
    command
        ->add_option("text", o->text,
                     "Up to 4000 bytes; - reads it from standard input. Behind --, it may begin with -")
        ->required();
    add_timeout(command, o->timeout);
    on_run(command, shared,
           [o, msg_id] { return submit(o->number, o->text == "-" ? read_input() : o->text, msg_id, o->timeout); });
}

int resend(const context &shared, const send_options &o)
{
    const auto m = shared.store().read(sms_client::box::sent, o.message);
    if (!m) {
        complain("sent has no message %d", o.message);
        return exit_nothing;
    }
    const sms_client::readable text = sms_client::make_readable(m->text);
    if (!m->problem.empty() || !text.complete) {
        complain("message %d cannot be sent again as it was: %s", o.message,
                 m->problem.empty() ? "its text is damaged" : m->problem.c_str());
        return exit_failed;
    }
    return submit(m->phone, text.text, DV_SMS_MGR_MSG_ID_SEND_SMS, o.timeout);
}

} // namespace

void add_send_commands(CLI::App &app, context &shared)
{
    add_submit(app, shared, "send", "Send a text and wait until the network has taken it", DV_SMS_MGR_MSG_ID_SEND_SMS);
    add_submit(app, shared, "draft", "File a text as a draft", DV_SMS_MGR_MSG_ID_SAVE_DRAFT_SMS);

    auto o = std::make_shared<send_options>();
    CLI::App *again = add_command(app, "resend", "Send a message of the box \"sent\" once more; both stay there");
    again->add_option("message", o->message, "Its number")->required()->check(CLI::Range(1, 1000000));
    add_timeout(again, o->timeout);
    on_run(again, shared, [o, &shared] { return resend(shared, *o); });
}

} // namespace smsctl
