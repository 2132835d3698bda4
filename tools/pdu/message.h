/* A short message as 3GPP TS 23.040 reads its PDU: every field in the order in which it stands. */
#ifndef SMS_PDU_MESSAGE_H
#define SMS_PDU_MESSAGE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pdu
{

using octets = std::vector<uint8_t>;

/* A field, or a group of bits in one. */
struct field {
    std::string name;    /* as the standard has it */
    octets bytes;        /* as they stand; none for a group of bits */
    size_t offset = 0;   /* of the first octet, or of the one that holds the bits */
    std::string bits;    /* "......00": which bits of the octet, highest first; empty for whole octets */
    std::string meaning; /* UTF-8, one line; text from the air in it is escaped */
    std::vector<field> children;
};

/* What goes wrong, and at which octet. What stands in front of it is read all the same. */
struct problem {
    size_t offset;
    std::string what;
};

enum class layout { deliver, submit, status_report };
enum class alphabet { gsm7, data, ucs2 };

/* An element of the user-data header. */
struct header_element {
    uint8_t id;
    octets data;
};

/* A part's place, from the first concatenation element of either width. */
struct place {
    unsigned reference = 0;
    bool wide = false; /* 16 bits */
    unsigned total = 0;
    unsigned sequence = 0;
};

struct message {
    layout kind = layout::deliver;
    octets bytes;
    std::vector<field> fields;
    std::vector<problem> problems; /* by their octets */

    /* What the fields say, as far as they are there. */
    size_t smsc_octets = 0; /* in front of the TPDU */
    unsigned first_octet = 0;
    std::string address;      /* sender, destination or recipient, in UTF-8 */
    bool has_address = false; /* it is there whole */
    unsigned address_type = 0;
    size_t address_digits = 0; /* semi-octets, as stated */
    octets address_value;
    std::string date; /* "2024-03-05 14:07:00 +01:00" */
    int zone = 0;     /* quarters of an hour ahead of UTC */
    std::optional<uint8_t> pid, dcs;
    alphabet coding = alphabet::gsm7;
    bool compressed = false;
    unsigned udl = 0;
    bool has_header = false;
    size_t header_octets = 0; /* the length octet included */
    unsigned fill_bits = 0;
    std::vector<header_element> header;
    std::optional<place> part;
    octets septets;          /* of a 7-bit body */
    octets body;             /* of another one */
    bool body_short = false; /* less of it is there than TP-UDL says */
    bool has_text = false;
    std::string text; /* UTF-8; what is no character is U+FFFD */
};

enum class reading { by_type, deliver, submit };

struct options {
    reading as = reading::by_type; /* by TP-MTI, or as told */
    bool has_smsc = true;          /* a service centre stands in front of the TPDU */
};

/* Reads hex text as far as it goes. Never throws for what is in it. */
message read_message(std::string_view hex, const options &how);

/* "SMS-DELIVER" */
const char *name_of(layout kind);
const char *name_of(alphabet coding);

} // namespace pdu

#endif
