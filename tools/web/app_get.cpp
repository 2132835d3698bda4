/* What can be read. */
#include "app.h"

#include <charconv>
#include <chrono>

namespace web
{
namespace
{

constexpr int most_wait = 25; /* seconds that an answer may take: less than a connection may idle */
constexpr size_t most_listed = 2000;

/* A number of the query; 0 when it is not there or none. */
uint64_t number_of(const request &asked, std::string_view name)
{
    uint64_t out = 0;
    const auto found = asked.query.find(name);
    if (found != asked.query.end())
        std::from_chars(found->second.data(), found->second.data() + found->second.size(), out);
    return out;
}

std::string last_segment(const std::string &path)
{
    return path.substr(path.rfind('/') + 1);
}

/* The lines of one metric, its name and its help once. */
class metric_text
{
public:
    void begin(const std::string &name, const char *type, const char *help)
    {
        name_ = name;
        out_ += "# HELP " + name + ' ' + help + "\n# TYPE " + name + ' ' + type + '\n';
    }
    void add(const std::string &labels, uint64_t value)
    {
        out_ += name_ + (labels.empty() ? "" : '{' + labels + '}') + ' ' + std::to_string(value) + '\n';
    }
    const std::string &text() const { return out_; }

private:
    std::string name_, out_;
};

struct box_state {
    box which;
    const char *state;
};
constexpr box_state box_states[] = {
    {box::inbox, "unread"}, {box::inbox, "read"}, {box::sent, "failed"}, {box::sent, "sent"}, {box::drafts, "draft"},
};

const char *name_of(box which)
{
    return sms_client::facts_of(which).name;
}

} // namespace

json app::state() const
{
    const service_state service = router_.state();
    json boxes;
    for (const box each : sms_client::all_boxes) {
        const auto content = store_.content(each);
        boxes[name_of(each)] = {{"revision", content->revision},
                                {"total", content->messages.size()},
                                {"unread", content->with_state("unread")},
                                {"failed", content->with_state("failed")},
                                {"full", service.full[static_cast<size_t>(each)]}};
    }
    return {{"instance", instance_},
            {"version", DV_VERSION},
            {"service",
             {{"daemon", service.daemon},
              {"on", service.daemon && service.off.empty()},
              {"why_off", service.off},
              {"sim", service.sim},
              {"network", service.network},
              {"centre", service.centre}}},
            {"capacity", service.capacity},
            {"boxes", std::move(boxes)},
            {"handset", handset_.there()},
            {"traffic", traffic_.there()},
            {"token", guard_.wants_token()}};
}

outcome app::get_health(const request &)
{
    const service_state service = router_.state();
    return json_response(service.daemon ? 200 : 503,
                         {{"daemon", service.daemon}, {"service", service.daemon && service.off.empty()}});
}

outcome app::get_state(const request &)
{
    return json_response(200, tell_state());
}

outcome app::get_metrics(const request &)
{
    const service_state service = router_.state();
    metric_text out;
    out.begin("sms_web_daemon_up", "gauge", "1 while the SMS manager is on the bus.");
    out.add("", service.daemon ? 1 : 0);
    out.begin("sms_web_service_on", "gauge", "1 while the SMS manager takes messages to send.");
    out.add("", service.daemon && service.off.empty() ? 1 : 0);
    out.begin("sms_web_messages", "gauge", "Messages in the store.");
    for (const box_state &each : box_states)
        out.add(std::string("box=\"") + name_of(each.which) + "\",state=\"" + each.state + '"',
                store_.content(each.which)->with_state(each.state));
    out.begin("sms_web_unread", "gauge", "Unread messages.");
    out.add("", store_.content(box::inbox)->with_state("unread"));
    out.begin("sms_web_box_capacity", "gauge", "Messages that a box may hold.");
    out.add("", static_cast<uint64_t>(service.capacity));
    out.begin("sms_web_box_full", "gauge", "1 while the SMS manager reports the box as full.");
    for (const box each : sms_client::all_boxes)
        out.add(std::string("box=\"") + name_of(each) + '"', service.full[static_cast<size_t>(each)] ? 1 : 0);
    out.begin("sms_web_requests_total", "counter", "Requests by what was asked for and how they ended.");
    for (const auto &[what, count] : jobs_->counts())
        out.add("kind=\"" + what.first + "\",outcome=\"" + what.second + '"', count);
    out.begin("sms_web_event_clients", "gauge", "Pages that listen to events.");
    out.add("", events_.listeners());
    return response{200, "text/plain; version=0.0.4; charset=utf-8", out.text(), {}};
}

outcome app::get_events(const request &asked)
{
    std::optional<endless> stream = events_.listen();
    if (!stream)
        return refusal(503, "busy", "Too many pages are open.");
    stream->next = [this, asked, next = std::move(stream->next)]() -> std::optional<std::string> {
        if (guard_.refuse(asked)) /* signed out meanwhile */
            return std::nullopt;
        return next();
    };
    return std::move(*stream);
}

outcome app::get_messages(const request &asked)
{
    const std::optional<box> which = sms_client::find_box(last_segment(asked.path));
    if (!which)
        return refusal(404, "not-found", "There is no such box.");
    const auto content = store_.content(*which);
    json messages = json::array();
    for (const shown_message &each : content->messages) {
        if (messages.size() >= most_listed)
            break;
        messages.push_back(each.content);
    }
    return json_response(200, {{"revision", content->revision}, {"messages", std::move(messages)}});
}

outcome app::get_request(const request &asked)
{
    const std::string id = last_segment(asked.path);
    const auto wait = std::chrono::seconds(std::min<uint64_t>(number_of(asked, "wait"), most_wait));
    const auto deadline = std::chrono::steady_clock::now() + wait;
    if (!jobs_->show(id)) {
        const bool ours = id.starts_with(instance_);
        return refusal(ours ? 404 : 409, ours ? "not-found" : "restarted", "There is no such request.");
    }
    return later([this, id, deadline]() -> std::optional<response> {
        const std::optional<json> job = jobs_->show(id);
        if (!job)
            return refusal(404, "not-found", "The request was forgotten.");
        if ((*job)["state"] != "finished" && std::chrono::steady_clock::now() < deadline)
            return std::nullopt;
        return json_response(200, *job);
    });
}

outcome app::get_handset(const request &)
{
    if (!handset_.there())
        return refusal(404, "not-found", "There is no handset.");
    return json_response(200, handset_.show());
}

outcome app::get_traffic(const request &asked)
{
    return json_response(200, {{"lines", traffic_.after(number_of(asked, "after"))}});
}

} // namespace web
