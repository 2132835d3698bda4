#include "router.h"

#include <chrono>
#include <set>

#include "devinfo.h"
#include "measure.h"
#include "sms_msg.h"
#include "values.h"

namespace web
{
namespace
{

using namespace std::chrono_literals;
using sms_client::outcome;
using sms_client::patience;
using sms_client::result;

constexpr int module_id = 41;
constexpr auto turn_limit = 60s;   /* for other clients' requests */
constexpr auto turn_step = 250ms;  /* how soon the server's end is noticed */
constexpr auto quick_finish = 30s; /* what only touches files; a slow flash, and three seconds for each stale flag */
constexpr auto part_finish = 20s;  /* the modem has 15 for a part */

/* Thrown through a request that nobody waits for any longer. */
struct stopped {
};

struct meaning {
    outcome what;
    const char *code;
};
constexpr meaning meanings[] = {
    {outcome::done, "done"},
    {outcome::failed, "failed"},
    {outcome::not_taken, "not-taken"},
    {outcome::unfinished, "no-answer"},
    {outcome::not_running, "no-daemon"},
};

job_result result_of(const result &r)
{
    job_result out;
    for (const meaning &each : meanings)
        if (each.what == r.what)
            out.code = each.code;
    out.ok = r.what == outcome::done;
    return out;
}

job_result refused(const char *code)
{
    return {false, code, json::object()};
}

/* One request, in its turn among the platform's clients. */
template <typename Ask> job_result in_turn(const std::atomic<bool> &stopping, Ask ask)
{
    const auto deadline = std::chrono::steady_clock::now() + turn_limit;
    while (!stopping && std::chrono::steady_clock::now() < deadline) {
        const sms_client::turn ours(turn_step);
        if (!ours.taken())
            continue;
        try {
            return ask();
        } catch (const stopped &) {
            break;
        }
    }
    return refused("busy");
}

patience patience_for(std::chrono::milliseconds finish, const std::atomic<bool> &stopping)
{
    patience out;
    out.finish = finish;
    out.progress = [&stopping] {
        if (stopping)
            throw stopped();
        return false;
    };
    return out;
}

bool is_set(int item)
{
    return sms_client::get_devinfo(item).value_or("").starts_with('1');
}

/* The daemon ends halfway at a number without a file, and numbers are given anew, so each must be what it was. */
bool same_as_before(const sms_client::store &store, box where, const message_mark &mark, sms_client::message *now)
{
    std::optional<sms_client::message> found = store.read(where, mark.number);
    if (!found || key_of(*found) != mark.key)
        return false;
    *now = std::move(*found);
    return true;
}

std::string list_of(const std::set<int> &numbers)
{
    std::string out;
    for (const int number : numbers)
        out += (out.empty() ? "" : ",") + std::to_string(number);
    return out;
}

} // namespace

router::router(const sms_client::store &store) : daemon_(module_id), store_(store) {}

bool router::join(std::string &why)
{
    return sms_client::requester(module_id).join(why);
}

service_state router::state() const
{
    service_state out;
    out.daemon = sms_client::is_daemon_running();
    out.off = sms_client::why_service_is_off();
    out.sim = is_set(DEVINFO_SIM_READY);
    out.network = sms_client::get_devinfo(DEVINFO_NETWORK_STATE).value_or("");
    if (out.network == "Unkown") /* spelled so by the platform */
        out.network.clear();
    out.centre = sms_client::get_flag(SMS_CSCA_FLAG).value_or("");
    out.capacity = sms_client::box_capacity();
    for (const box each : sms_client::all_boxes)
        out.full[static_cast<size_t>(each)] = is_set(sms_client::facts_of(each).full_item);
    return out;
}

job_result router::send(const std::string &to, const std::string &text, const std::atomic<bool> &stopping) const
{
    if (!sms_client::why_service_is_off().empty()) /* the request would be dropped without a word */
        return refused("service-off");
    const size_t parts = measure_text(text).parts;
    const auto finish = quick_finish + part_finish * parts;
    job_result out = in_turn(stopping, [&] {
        const sms_payload payload = sms_client::make_payload(to, text);
        return result_of(
            daemon_.ask(DV_SMS_MGR_MSG_ID_SEND_SMS, &payload, sizeof payload, patience_for(finish, stopping)));
    });
    out.details["parts"] = parts;
    return out;
}

job_result router::save_draft(const std::string &to, const std::string &text, const std::atomic<bool> &stopping) const
{
    return in_turn(stopping, [&] {
        const sms_payload payload = sms_client::make_payload(to, text);
        return result_of(daemon_.ask(DV_SMS_MGR_MSG_ID_SAVE_DRAFT_SMS, &payload, sizeof payload,
                                     patience_for(quick_finish, stopping)));
    });
}

/* The looks at the store below belong to the turn as well: whoever has it before may delete what is named. */

job_result router::mark_read(const std::vector<message_mark> &messages, const std::atomic<bool> &stopping) const
{
    return in_turn(stopping, [&]() -> job_result {
        std::set<int> unread; /* the counter falls for each that is listed, so those that are read are not */
        for (const message_mark &mark : messages) {
            sms_client::message now;
            if (!same_as_before(store_, box::inbox, mark, &now))
                return refused("changed");
            if (now.state == '0')
                unread.insert(now.number);
        }
        if (unread.empty() && !messages.empty())
            return {true, "done", json::object()};
        const std::string request = messages.empty() ? "READ ALL" : list_of(unread);
        return result_of(daemon_.ask(DV_SMS_MGR_MSG_ID_READ_SMS, request, patience_for(quick_finish, stopping)));
    });
}

job_result router::remove(box from, const std::vector<message_mark> &messages, const std::atomic<bool> &stopping) const
{
    return in_turn(stopping, [&]() -> job_result {
        std::set<int> numbers;
        for (const message_mark &mark : messages) {
            sms_client::message now;
            if (!same_as_before(store_, from, mark, &now))
                return refused("changed");
            numbers.insert(now.number);
        }
        const std::string request = messages.empty() ? "DELETE ALL" : list_of(numbers);
        return result_of(
            daemon_.ask(sms_client::facts_of(from).delete_id, request, patience_for(quick_finish, stopping)));
    });
}

} // namespace web
