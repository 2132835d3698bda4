/* smsctl generate, notice, warn. */
#include <cstdio>
#include <map>
#include <memory>
#include <unistd.h>

#include "command.h"
#include "sms_msg.h"
#include "text.h"
#include "values.h"

namespace smsctl
{
namespace
{

using sms_client::get_cfg;
using sms_client::outcome;

struct notice_options {
    std::string type;
    double timeout = 60;
};

/* ---- generate ---- */

constexpr int bar_width = 40;

class progress_bar
{
public:
    explicit progress_bar(const sms_client::store &store) : store_(store), shown_(isatty(STDERR_FILENO)) {}

    /* True when a box has grown since the last look. */
    bool look()
    {
        const size_t before = count_;
        count_ = 0;
        for (const sms_client::box b : sms_client::all_boxes)
            count_ += store_.numbers(b).value_or(std::vector<int>()).size();
        if (shown_ && count_ != before)
            draw();
        return count_ > before;
    }

    void finish() const
    {
        if (shown_)
            std::fputc('\n', stderr);
    }

    size_t count() const { return count_; }

private:
    void draw() const
    {
        const size_t whole = sms_client::all_boxes.size() * static_cast<size_t>(sms_client::box_capacity());
        const size_t full = std::min(count_, whole) * bar_width / whole;
        const std::string bar = std::string(full, '#') + std::string(bar_width - full, '.');
        std::fprintf(stderr, "\r[%s] %zu of %zu", bar.c_str(), count_, whole);
        std::fflush(stderr);
    }

    const sms_client::store &store_;
    const bool shown_;
    size_t count_ = 0;
};

int generate(const context &shared, const notice_options &o)
{
    const sms_client::store store = shared.store();
    if (!get_cfg("SYS_SMS_MAX_SAVE_SIZE"))
        complain("SYS_SMS_MAX_SAVE_SIZE is not set: no message will be made");
    return with_daemon([&](sms_client::requester &daemon) {
        progress_bar bar(store);
        bar.look();
        const size_t before = bar.count();
        sms_client::patience limits = patience_of(o.timeout);
        limits.progress = [&bar] { return bar.look(); };
        const sms_client::result r = daemon.ask(DV_SMS_MGR_MSG_ID_GENERATE_SMS, "", limits);
        bar.look();
        bar.finish();
        if (r.what == outcome::done)
            say(std::to_string(bar.count() - std::min(before, bar.count())) + " messages made");
        return report(r, "no messages made");
    });
}

/* ---- notices ---- */

/* What the daemon looks at before it sends one. It does not tell why it sends none, so this does. */
struct notice_kind {
    const char *name, *other_name;
    const char *payload; /* of a warning; null: the failover notice */
    const char *switch_key, *number_key, *text_key;
    bool text_needed;
};
constexpr notice_kind failover = {"notice",
                                  "",
                                  nullptr,
                                  "USR_FLOW_SMS_NOTICE_SWITCH",
                                  "USR_FLOW_SMS_NOTICE_PHONE_NUMBER",
                                  "USR_FLOW_SMS_NOTICE_TEXT_0",
                                  false};
constexpr notice_kind warnings[] = {
    {"50", "half", "0", "USR_FLOW_SMS_NOTICE_SWITCH", "USR_FLOW_SMS_NOTICE_PHONE_NUMBER",
     "USR_SMS_NOTICE_FLOW_OVER_PERCENT_50_TEXT_0", false},
    {"100", "full", "1", "USR_FLOW_SMS_NOTICE_SWITCH", "USR_FLOW_SMS_NOTICE_PHONE_NUMBER",
     "USR_SMS_NOTICE_FLOW_OVER_PERCENT_100_TEXT_0", false},
    {"national", "", "2", "USR_NATIONAL_FLOW_SMS_NOTICE_SWITCH", "USR_NATIONAL_FLOW_SMS_NOTICE_PHONE_NUMBER",
     "USR_NATIONAL_FLOW_SMS_NOTICE_TEXT_0", true},
    {"international", "", "3", "USR_INTERNATIONAL_FLOW_SMS_NOTICE_SWITCH",
     "USR_INTERNATIONAL_FLOW_SMS_NOTICE_PHONE_NUMBER", "USR_INTERNATIONAL_FLOW_SMS_NOTICE_TEXT_0", true},
};

/* Empty: the daemon will send it. */
std::string why_refused(const notice_kind &kind)
{
    const std::string on = get_cfg(kind.switch_key).value_or("0");
    const bool is_number = kind.text_needed; /* those two switches are numbers, the others the text "1" */
    if (is_number ? std::atoi(on.c_str()) == 0 : on.front() != '1')
        return std::string(kind.switch_key) + " is off";
    if (!get_cfg(kind.number_key))
        return std::string(kind.number_key) + " is not set";
    if (kind.text_needed && !get_cfg(kind.text_key))
        return std::string(kind.text_key) + " is not set";
    if (kind.payload == nullptr) {
        const char mode = get_cfg("USR_WAN_MODE").value_or("").c_str()[0];
        if (mode != '5' && mode != '7')
            return "USR_WAN_MODE is no fixed-line mode (5 or 7)";
    }
    return {};
}

/* What tells one filing of a message from the next under the same number. */
using filed = std::map<int, std::string>;

filed look_at_sent(const sms_client::store &store, const std::string &phone)
{
    filed out;
    for (const sms_client::message &m : store.list(sms_client::box::sent))
        if (m.phone == phone)
            out[m.number] = m.date + m.state + m.text;
    return out;
}

/* Nothing but the box "sent" shows what became of a notice. */
int await_filing(const sms_client::store &store, const std::string &phone, const filed &before, double timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + patience_of(timeout).finish;
    while (std::chrono::steady_clock::now() < deadline) {
        for (const auto &[number, content] : look_at_sent(store, phone)) {
            const auto known = before.find(number);
            const auto m = store.read(sms_client::box::sent, number);
            if ((known != before.end() && known->second == content) || !m)
                continue;
            if (m->state == '1') {
                say("sent to " + phone + ", filed as message " + std::to_string(number));
                return exit_done;
            }
            complain("sending to %s failed; filed as message %d", phone.c_str(), number);
            return exit_failed;
        }
        sms_client::pause(std::chrono::milliseconds(100));
    }
    complain("no outcome in time: nothing new in the box \"sent\"; it may come yet");
    return exit_no_answer;
}

int send_notice(const context &shared, const notice_kind &kind, double timeout)
{
    const std::string refused = why_refused(kind);
    const sms_client::store store = shared.store();
    return with_daemon([&](sms_client::requester &daemon) {
        const std::string phone = get_cfg(kind.number_key).value_or("").substr(0, 16); /* what the daemon reads of it */
        const filed before = look_at_sent(store, phone);
        const uint32_t msg_id =
            kind.payload == nullptr ? DV_SMS_MGR_MSG_ID_FLOW_CONTROL_SMS : FLOWCONTROL_MSG_ID_WARN_EVENT;
        const sms_client::result r = daemon.tell(msg_id, kind.payload == nullptr ? "" : kind.payload);
        if (r.what != outcome::done)
            return report(r, "not sent");
        if (refused.empty())
            return await_filing(store, phone, before, timeout);
        complain("not sent: %s", refused.c_str());
        return static_cast<int>(exit_failed);
    });
}

const notice_kind *find_warning(const std::string &type)
{
    for (const notice_kind &kind : warnings)
        if (type == kind.name || type == kind.payload || (*kind.other_name != '\0' && type == kind.other_name))
            return &kind;
    return nullptr;
}

} // namespace

void add_notice_commands(CLI::App &app, context &shared)
{
    auto generating = std::make_shared<notice_options>();
    CLI::App *command = add_command(app, "generate", "Fill all boxes with test messages");
    add_timeout(command, generating->timeout)->description("Seconds to wait while no box grows");
    on_run(command, shared, [generating, &shared] { return generate(shared, *generating); });

    auto noticing = std::make_shared<notice_options>();
    command = add_command(app, "notice", "Send the notice that the wired line failed, as configured");
    add_timeout(command, noticing->timeout);
    on_run(command, shared, [noticing, &shared] { return send_notice(shared, failover, noticing->timeout); });

    auto warning = std::make_shared<notice_options>();
    command = add_command(app, "warn", "Send a warning about used-up traffic, as configured");
    command
        ->add_option("type", warning->type, "50 or half (number 0), 100 or full (1), national (2), international (3)")
        ->required()
        ->check([](const std::string &type) {
            return find_warning(type) != nullptr ? std::string() : "no such warning: " + type;
        });
    add_timeout(command, warning->timeout);
    on_run(command, shared,
           [warning, &shared] { return send_notice(shared, *find_warning(warning->type), warning->timeout); });
}

} // namespace smsctl
