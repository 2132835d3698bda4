/* A text from the handset as SMS-DELIVER PDUs (3GPP TS 23.040, 9.2.2.1). */
#ifndef SIM_DELIVER_H
#define SIM_DELIVER_H

#include <optional>
#include <string>
#include <vector>

#include "address.h"
#include "charset.h"

namespace sim
{

constexpr size_t most_octets = 140, most_septets = 160; /* of user data */

enum class alphabet { automatic, gsm7, turkish, ucs2, data };

/* Time of arrival at the service centre: its local time, and how many quarters of an hour that is ahead of UTC. */
struct timestamp {
    int year = 2000, month = 1, day = 1, hour = 0, minute = 0, second = 0;
    int zone = 0; /* -79 to 79 */
};

/* "YYYY-MM-DD hh:mm:ss", each field within its range; throws std::invalid_argument otherwise. */
timestamp parse_timestamp(const std::string &text, int zone);

/* The present. The machine's own zone, or the one given. */
timestamp current_timestamp(std::optional<int> zone);

/* As parse_timestamp takes it; the zone is left out. */
std::string format_timestamp(const timestamp &when);

/* Where a part stands in its message. */
struct concatenation {
    unsigned reference = 0;
    bool wide = false; /* a reference of 16 bits */
    unsigned total = 1;
    unsigned sequence = 1;
};

struct deliver_header {
    std::string service_centre;
    address from;
    timestamp when;
    std::optional<unsigned> message_class; /* 0-3 */
};

/* A text cut into parts that a PDU can hold; no character is cut in two. */
struct split_text {
    alphabet chosen = alphabet::gsm7;
    std::vector<octets> parts; /* septets for gsm7 and turkish, octets otherwise */
};

/* One part when the text fits a single message, else as many as it takes with a header of the given width.
 * `text` is UTF-8, or any octets when `raw` is set (data only). Throws std::invalid_argument when a character is not
 * in the alphabet asked for, when the text is not UTF-8, or when it takes more than 255 parts. */
split_text split(const std::string &text, alphabet wanted, bool wide, bool raw);

/* The octets of a PDU with the service centre in front, as a modem hands it out. Throws std::invalid_argument when
 * the part is too long for its header. */
octets encode_deliver(const deliver_header &header, alphabet coding, const octets &part,
                      const std::optional<concatenation> &place);

} // namespace sim

#endif
