/* Strict reading of SMS-SUBMIT PDUs (3GPP TS 23.040, 9.2.2.2), as the router hands them to its modem. */
#ifndef SIM_SUBMIT_H
#define SIM_SUBMIT_H

#include <optional>
#include <span>
#include <stdexcept>
#include <string>

#include "charset.h"
#include "deliver.h"

namespace sim
{

/* What is wrong with a PDU, in words. */
struct malformed_pdu : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct submit {
    std::string service_centre; /* "" when the PDU names none */
    std::string to;             /* with "+" when international */
    unsigned message_reference = 0;
    unsigned protocol = 0;
    unsigned data_coding = 0;
    alphabet coding = alphabet::gsm7; /* gsm7, turkish, ucs2 or data */
    std::string validity;             /* in words, "" when absent */
    std::string header;               /* the user-data header in hex, its length included; "" when absent */
    std::optional<concatenation> place;
    octets codes; /* the text's septets or octets */
};

/* `pdu` begins with the service centre; `stated` is the number of octets behind it that the command line announced.
 * Throws malformed_pdu. */
submit parse_submit(std::span<const uint8_t> pdu, size_t stated);

/* The text of one or several parts as UTF-8. UCS-2 parts are read as one, so that surrogate pairs cut in two meet;
 * what is no character is shown as U+FFFD. */
std::string text_of(alphabet coding, std::span<const octets> parts);

} // namespace sim

#endif
