/* What can be asked for. Each request carries an id of the asker's, under which it is done once. */
#include "app.h"

#include <algorithm>
#include <cctype>

#include "measure.h"
#include "pdu/inspect.h"

namespace web
{
namespace
{

constexpr size_t most_in_id = 64;
constexpr size_t most_marks = 300; /* a request holds 4,095 bytes of numbers */
constexpr size_t most_pdus = 255;
constexpr size_t most_in_pdu = 1024; /* hex digits */

json object_of(const request &asked)
{
    json body = json::parse(asked.body, nullptr, false);
    if (!body.is_object())
        throw bad_request("The body is no JSON object.");
    return body;
}

std::string text_of(const json &body, const char *field, const char *complaint)
{
    const auto found = body.find(field);
    if (found == body.end() || !found->is_string() || found->get_ref<const std::string &>().empty())
        throw bad_request(complaint);
    std::string text = *found;
    if (text.find('\0') != std::string::npos)
        throw bad_request("A text cannot hold the character 0.");
    return text;
}

/* The client library's complaint as a sentence. */
void refuse_if(const std::string &complaint)
{
    if (!complaint.empty())
        throw bad_request(static_cast<char>(std::toupper(static_cast<unsigned char>(complaint[0]))) +
                          complaint.substr(1) + ".");
}

std::string number_of(const json &body)
{
    std::string number = text_of(body, "to", "A number to send to is wanted.");
    refuse_if(sms_client::complaint_about_number(number));
    return number;
}

std::string message_of(const json &body)
{
    std::string text = text_of(body, "text", "A text is wanted.");
    refuse_if(sms_client::complaint_about_text(text));
    if (measure_text(text).units > send_limit)
        throw bad_request("The text is too long: with its escapes it has more than 4,000 characters.");
    return text;
}

std::vector<message_mark> marks_of(const json &body)
{
    if (body.value("all", json(false)) == true)
        return {};
    const json list = body.value("messages", json::array());
    if (!list.is_array() || list.empty() || list.size() > most_marks)
        throw bad_request("Either \"all\" is true, or \"messages\" lists 1 to 300 of them.");
    std::vector<message_mark> out;
    for (const json &each : list) {
        if (!each.is_object() || !each.value("number", json()).is_number_integer() ||
            !each.value("key", json()).is_string())
            throw bad_request("A message is named by its number and its key.");
        out.push_back({each["number"].get<int>(), each["key"].get<std::string>()});
    }
    return out;
}

bool good_id(const std::string &id)
{
    return id.size() <= most_in_id && std::all_of(id.begin(), id.end(), [](char c) {
               return c == '-' || std::isalnum(static_cast<unsigned char>(c)) != 0;
           });
}

/* A list of PDUs as a text that the inspector reads: a line each. */
std::string pdus_of(const json &body)
{
    const json list = body.value("pdus", json());
    if (!list.is_array() || list.empty() || list.size() > most_pdus)
        throw bad_request("\"pdus\" lists 1 to 255 of them.");
    std::string out;
    for (const json &each : list) {
        const std::string pdu = each.is_string() ? each.get<std::string>() : "";
        if (pdu.empty() || pdu.size() > most_in_pdu ||
            !std::all_of(pdu.begin(), pdu.end(), [](unsigned char c) { return std::isxdigit(c) != 0; }))
            throw bad_request("A PDU is up to 1,024 hex digits.");
        out += pdu + '\n';
    }
    return out;
}

} // namespace

response app::submit(const json &body, const char *kind, lane where, job_table::work what)
{
    const std::string id = text_of(body, "id", "An id is wanted.");
    if (!good_id(id))
        throw bad_request("An id has up to 64 letters, digits and dashes.");
    if (!id.starts_with(instance_ + '-'))
        return refusal(409, "restarted",
                       "The id is not of this life of the server, which does not know what was done.");
    switch (jobs_->submit(id, kind, body.dump(), where, std::move(what))) {
    case job_table::taken::fresh:
        return json_response(202, jobs_->show(id).value_or(json{{"id", id}}));
    case job_table::taken::known:
        return json_response(200, jobs_->show(id).value_or(json{{"id", id}}));
    case job_table::taken::conflict:
        return refusal(409, "id-used", "Another request had this id.");
    case job_table::taken::full:
        break;
    }
    response out = refusal(503, "busy", "Too many requests wait.");
    out.headers.emplace_back("Retry-After", "5");
    return out;
}

outcome app::post_session(const request &asked)
{
    return guard_.open_session(asked);
}

outcome app::post_session_end(const request &asked)
{
    response out = guard_.close_session(asked);
    wake(); /* its streams end */
    return out;
}

outcome app::post_message(const request &asked)
{
    const json body = object_of(asked);
    return submit(body, "send", lane::router,
                  [this, to = number_of(body), text = message_of(body)](const std::atomic<bool> &stopping) {
                      return router_.send(to, text, stopping);
                  });
}

outcome app::post_draft(const request &asked)
{
    const json body = object_of(asked);
    return submit(body, "draft", lane::router,
                  [this, to = number_of(body), text = message_of(body)](const std::atomic<bool> &stopping) {
                      return router_.save_draft(to, text, stopping);
                  });
}

outcome app::post_read(const request &asked)
{
    const json body = object_of(asked);
    return submit(body, "read", lane::router, [this, marks = marks_of(body)](const std::atomic<bool> &stopping) {
        return router_.mark_read(marks, stopping);
    });
}

outcome app::post_delete(const request &asked)
{
    const json body = object_of(asked);
    const std::optional<box> from = sms_client::find_box(text_of(body, "box", "A box is wanted."));
    if (!from)
        throw bad_request("There is no such box.");
    return submit(body, "delete", lane::router,
                  [this, from = *from, marks = marks_of(body)](const std::atomic<bool> &stopping) {
                      return router_.remove(from, marks, stopping);
                  });
}

outcome app::post_handset(const request &asked)
{
    if (!handset_.there())
        return refusal(404, "not-found", "There is no handset.");
    const json body = object_of(asked);
    return submit(body, "handset", lane::other,
                  [this, text = text_of(body, "text", "A text is wanted.")](const std::atomic<bool> &) {
                      return handset_.send(text);
                  });
}

outcome app::post_trouble(const request &asked)
{
    if (!handset_.there())
        return refusal(404, "not-found", "There is no simulated modem.");
    const json body = object_of(asked);
    return submit(body, "modem", lane::other,
                  [this, action = text_of(body, "action", "An action is wanted.")](const std::atomic<bool> &) {
                      return handset_.trouble(action);
                  });
}

/* Answered at once: it changes nothing and takes no time to speak of. */
outcome app::post_inspect(const request &asked)
{
    const nlohmann::ordered_json explained = pdu::to_json(pdu::inspect(pdus_of(object_of(asked)), {}));
    return response{200, "application/json", explained.dump() + "\n", {}};
}

} // namespace web
