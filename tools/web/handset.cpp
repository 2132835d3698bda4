#include "handset.h"

#include <algorithm>
#include <ctime>
#include <stdexcept>

namespace web
{
namespace
{

struct trouble_word {
    const char *word;
    const char *command;
    const char *field; /* of the request; null when it has none */
    bool value;
};
constexpr trouble_word trouble_words[] = {
    {"unplug", "modem unplug", nullptr, false},       {"plug", "modem plug", nullptr, false},
    {"restart", "modem restart", nullptr, false},     {"leave-network", "modem registered", "on", false},
    {"join-network", "modem registered", "on", true},
};

std::string local_time()
{
    const std::time_t now = std::time(nullptr);
    struct tm parts {
    };
    char text[32];
    localtime_r(&now, &parts);
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    return text;
}

/* A message of the router's as the page shows it. */
json bubble(const json &message)
{
    json pdus = json::array();
    for (const json &part : message.at("parts"))
        pdus.push_back(part.at("pdu"));
    return {{"from", "router"},           {"date", message.at("date")},
            {"text", message.at("text")}, {"parts", message.at("total")},
            {"arrived", pdus.size()},     {"complete", message.at("complete")},
            {"pdus", std::move(pdus)}};
}

} // namespace

uint64_t handset::revision() const
{
    const std::lock_guard hold(lock_);
    return revision_;
}

json handset::show() const
{
    const std::lock_guard hold(lock_);
    json out = modem_;
    out["revision"] = revision_;
    out["number"] = number_;
    out["messages"] = messages_;
    for (const json &message : partial_)
        out["messages"].push_back(message);
    return out;
}

/* Under the lock. */
void handset::add(json message)
{
    message["seq"] = std::to_string(next_++);
    messages_.push_back(std::move(message));
    if (messages_.size() > most_bubbles)
        messages_.pop_front();
    revision_++;
}

/* Whole messages come in the order in which they became whole, so those behind the known ones are new. */
void handset::take_inbox(const json &inbox)
{
    const std::lock_guard hold(lock_);
    size_t whole = 0;
    json partial = json::array();
    for (const json &message : inbox) {
        if (message.at("complete").get<bool>()) {
            if (++whole > received_)
                add(bubble(message));
        } else {
            json part = bubble(message);
            part["seq"] = "partial-" + std::to_string(partial.size());
            partial.push_back(std::move(part));
        }
    }
    received_ = whole;
    if (partial != partial_)
        revision_++;
    partial_ = std::move(partial);
}

void handset::poll()
{
    json modem = {{"reachable", false}, {"plugged", false}, {"registered", false}};
    json inbox;
    try {
        const json status = sim_.ask_json({{"command", "modem status"}});
        modem = {{"reachable", true}, {"plugged", status.at("plugged")}, {"registered", status.at("registered")}};
        const auto received = status.at("received").get<size_t>();
        const auto incomplete = status.at("incomplete").get<size_t>();
        bool fresh = incomplete > 0; /* their parts are not counted */
        {
            const std::lock_guard hold(lock_);
            if (received < received_) { /* cleared, or another simulator */
                messages_.clear();
                received_ = 0;
                revision_++;
            }
            fresh = fresh || received != received_ || incomplete != partial_.size();
        }
        if (fresh)
            inbox = sim_.ask_json({{"command", "handset inbox"}, {"partial", true}});
    } catch (const std::exception &) {
        /* the page says that it is gone */
    }
    if (inbox.is_array())
        take_inbox(inbox);
    const std::lock_guard hold(lock_);
    if (modem != modem_) {
        modem_ = std::move(modem);
        revision_++;
    }
}

job_result handset::send(const std::string &text)
{
    const json sent = sim_.ask_json({{"command", "handset send"}, {"from", number_}, {"text", text}});
    const json &pdus = sent.at("pdus");
    const std::lock_guard hold(lock_);
    add({{"from", "handset"},
         {"date", local_time()},
         {"text", text},
         {"parts", pdus.size()},
         {"arrived", pdus.size()},
         {"complete", true},
         {"pdus", pdus}});
    return {true, "done", json::object()};
}

job_result handset::trouble(const std::string &action)
{
    const auto found = std::find_if(std::begin(trouble_words), std::end(trouble_words),
                                    [&action](const trouble_word &each) { return action == each.word; });
    if (found == std::end(trouble_words))
        return {false, "unknown", {{"message", "There is no such trouble."}}};
    json request{{"command", found->command}};
    if (found->field != nullptr)
        request[found->field] = found->value;
    sim_.ask(request);
    return {true, "done", json::object()};
}

} // namespace web
