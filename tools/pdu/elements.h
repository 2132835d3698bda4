/* What an element of the user-data header says (3GPP TS 23.040, 9.2.3.24). */
#ifndef SMS_PDU_ELEMENTS_H
#define SMS_PDU_ELEMENTS_H

#include "message.h"

namespace pdu
{

enum : uint8_t {
    concatenation_8bit = 0x00,
    concatenation_16bit = 0x08,
    single_shift = 0x24,
    locking_shift = 0x25,
    turkish = 1
};

struct element_meaning {
    std::string text;
    bool good_length = true; /* that of the standard, where it fixes one */
};

element_meaning describe(const header_element &element);

/* The first concatenation element of either width and of good length. */
std::optional<place> find_place(const std::vector<header_element> &header);

/* The language that the first element of this kind names. */
std::optional<uint8_t> language_of(const std::vector<header_element> &header, uint8_t id);

} // namespace pdu

#endif
