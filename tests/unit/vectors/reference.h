/* The codec's rules once more, for the tests to compare with: slow, bit by bit, on strings that grow,
 * and sharing nothing with the daemon's. */
#ifndef REFERENCE_H
#define REFERENCE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace reference
{

using bytes = std::vector<uint8_t>;

/* --- hexadecimal --- */
std::string squeeze(const std::string &spaced); /* without its blanks */
std::string hex(const bytes &octets);           /* upper case */
bytes unhex(const std::string &text);           /* whole octets; no digit: 0 */

/* --- UTF-8 --- */
std::string utf8(char32_t value);                   /* up to U+FFFF, surrogates as they are */
std::u32string characters(const std::string &text); /* of well-formed text */
/* The longest beginning of at most `limit` bytes in front of a byte that starts a character. */
std::string cut(const std::string &text, size_t limit);

/* --- septets (TS 23.038, 6.1.2.1): bit n of the stream is bit n % 8 of octet n / 8 --- */
bytes pack(const bytes &septets, int fill_bits = 0);
bytes unpack(const bytes &octets, int fill_bits); /* all that are whole */

/* --- alphabets (TS 23.038, 6.2.1) --- */
char32_t default_character(unsigned code);        /* as the standard has it */
char32_t extension_character(unsigned code);      /* 0: none */
std::string decode_septets(const bytes &septets); /* as the standard has it; UTF-8 */

/* --- the daemon's own rules --- */
char32_t national_character(unsigned code);
char32_t national_extension(unsigned code); /* 0xFFFF: none */
/* What stands in a zeroed buffer with these septets after the first `count` were converted in place. */
std::string convert_in_place(const bytes &septets, size_t count);

/* What the daemon makes of an SMS-DELIVER. */
struct delivered {
    bool concatenated = false;
    unsigned reference = 0, total = 0, sequence = 0; /* where concatenated, and the element names them */
    std::string phone, date, text;
    bool text_kept = false;          /* the record's text stays as it was */
    std::string sender;              /* whole, before and without the "+" */
    std::optional<std::string> name; /* decoded from septets */
    int total_bit = 0;
    unsigned body_len = 0, sms7bit_len = 0, offset = 0;
    unsigned first_octet = 0, type = 0, pid = 0, dcs = 0, udl = 0;
    std::string smsc;  /* "+" and digits; empty without one */
    std::string stamp; /* its fourteen digits as they stand */
};
delivered decode(const std::string &pdu);

/* An SMS-SUBMIT as the standard reads it (TS 23.040, 9.2.2.2). */
struct submitted {
    std::string smsc, destination; /* digits, "+" in front when international */
    unsigned smsc_type = 0, destination_type = 0;
    unsigned first_octet = 0, message_reference = 0, pid = 0, dcs = 0, udl = 0;
    std::string validity; /* its octets in hex */
    bytes ud;             /* all octets behind TP-UDL */
    bytes header;         /* of the user data, its length octet included */
    std::string text;     /* UTF-8, as far as the data say */
    bool whole = false;   /* exactly as many octets as TP-UDL asks for */
};
std::optional<submitted> parse_submit(const std::string &pdu);

} // namespace reference

#endif
