/* The inspector: what is in a PDU by the standard, what the SMS manager makes of it, and where these differ; and what
 * the SMS manager sends. All as values and as JSON. Any thread. */
#ifndef SMS_PDU_INSPECT_H
#define SMS_PDU_INSPECT_H

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "daemon_view.h"
#include "differences.h"
#include "message.h"
#include "pasted.h"

namespace pdu
{

struct inspection {
    pasted given;
    message standard;
    std::optional<daemon_view> daemon; /* none for an SMS-SUBMIT, which the daemon only writes */
    std::vector<difference> differences;

    bool good() const { return standard.problems.empty(); }
};

/* Every PDU in a pasted text. */
std::vector<inspection> inspect(std::string_view text, const options &how);

/* A part as it is sent, and what is in it. */
struct outgoing {
    std::string number, text;
    sent_message sent;
    std::vector<message> parts; /* as the standard reads them */
    std::string why_alphabet;
    std::vector<std::string> notes; /* what the recipient does not get as it was written */
};

/* What a request's fields hold, in bytes. */
constexpr size_t most_number = 31, most_text = 4031;

outgoing plan(const std::string &number, const std::string &text, const std::string &service_centre,
              unsigned reference);

/* Valid UTF-8 throughout. */
nlohmann::ordered_json to_json(const inspection &one);
nlohmann::ordered_json to_json(const std::vector<inspection> &all); /* an array, an element a PDU */
nlohmann::ordered_json to_json(const outgoing &message);

} // namespace pdu

#endif
