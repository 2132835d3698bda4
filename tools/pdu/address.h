/* Addresses and times of a PDU (3GPP TS 23.040, 9.1.2.5 and 9.2.3.11). */
#ifndef SMS_PDU_ADDRESS_H
#define SMS_PDU_ADDRESS_H

#include "message.h"

namespace pdu
{

/* Digits of semi-octets: 0 to 9, *, #, a to c; a fill in front of the end as "?". */
std::string digits_of(const octets &bytes, size_t semi_octets);

/* With "+" for an international number; a name in the 7-bit alphabet as UTF-8. */
std::string address_text(uint8_t type, const octets &bytes, size_t semi_octets);

struct time_stamp {
    std::string text;            /* "2024-03-05 14:07:00 +01:00" */
    int zone = 0;                /* quarters of an hour */
    std::optional<size_t> wrong; /* the first octet that is no time */
};

/* Seven octets. */
time_stamp read_time(const octets &bytes);

} // namespace pdu

#endif
