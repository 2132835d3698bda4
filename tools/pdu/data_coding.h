/* TP-DCS (3GPP TS 23.038, 4). */
#ifndef SMS_PDU_DATA_CODING_H
#define SMS_PDU_DATA_CODING_H

#include "message.h"

namespace pdu
{

struct data_coding {
    alphabet coding = alphabet::gsm7;
    bool compressed = false;
    std::vector<field> bits; /* what each group of them says */
    std::string meaning;     /* the same in a line */
};

data_coding read_data_coding(uint8_t octet, size_t offset);

/* A group of an octet's bits: "..11...." of 0x3F under the mask 0x30. */
field bit_field(const char *name, uint8_t octet, unsigned mask, size_t offset, std::string meaning);

} // namespace pdu

#endif
