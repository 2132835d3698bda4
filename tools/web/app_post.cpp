/* What can be asked for. Each request carries an id of the asker's, under which it is done once. */
#include "app.h"

#include <algorithm>
#include <cctype>

#include "measure.h"
#include "run_program.h"

namespace web
{
namespace
{

constexpr size_t most_in_id = 64;
constexpr size_t most_marks = 300; /* a request holds 4,095 bytes of numbers */
constexpr size_t most_in_pdu = 1024;
constexpr std::chrono::seconds inspector_time{5};
constexpr size_t inspector_output = 1 << 20;

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

job_result inspect(const std::string &program, const std::string &pdu)
{
    const program_end end = run_program({program, "decode", "--json", pdu}, inspector_time, inspector_output);
    json decoded = json::parse(end.out, nullptr, false);
    if (decoded.is_discarded())
        return {false, "failed", {{"message", end.err.empty() ? "The inspector gave no answer." : end.err}}};
    return {true, "done", {{"decoded", std::move(decoded)}}};
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
    return guard_.close_session(asked);
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

outcome app::post_inspect(const request &asked)
{
    if (options_.inspector.empty())
        return refusal(404, "not-found", "There is no inspector.");
    const json body = object_of(asked);
    std::string pdu = text_of(body, "pdu", "A PDU is wanted.");
    if (pdu.size() > most_in_pdu ||
        !std::all_of(pdu.begin(), pdu.end(), [](unsigned char c) { return std::isxdigit(c) != 0; }))
        throw bad_request("A PDU is up to 1,024 hex digits.");
    return submit(body, "inspect", lane::other,
                  [this, pdu = std::move(pdu)](const std::atomic<bool> &) { return inspect(options_.inspector, pdu); });
}

} // namespace web
