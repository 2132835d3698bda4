/* Addresses of 3GPP TS 23.040 (9.1.2.5): numbers in semi-octets and names in the 7-bit alphabet. */
#ifndef SIM_ADDRESS_H
#define SIM_ADDRESS_H

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "charset.h"

namespace sim
{

constexpr size_t most_digits = 20; /* of an address in a TPDU */

/* Types of number (bits 4-6 of the type octet). */
enum class number_type { unknown, international, national, network, subscriber, alphanumeric, abbreviated };

struct address {
    std::string text; /* digits, "*", "#", "a" to "c"; "+" in front of an international number; or a name in UTF-8 */
    number_type type = number_type::unknown;
};

/* The type that a text has by itself: a leading "+", digits alone, or a name. */
number_type type_of(std::string_view text);

/* As in a TPDU: length in semi-octets, type octet, address. Throws std::invalid_argument with a reason for a number
 * of more than 20 digits, a name of more than 11 characters, or characters that its kind cannot hold. */
octets encode_address(const address &from);

/* As the service centre stands in front of a TPDU: length in octets, type octet, digits. "" gives the one octet 0. */
octets encode_service_centre(std::string_view number);

/* Semi-octets of `count` digits, checked: a digit each, and the fill F after an odd count and nowhere else. */
std::optional<std::string> decode_digits(std::span<const uint8_t> packed, size_t count);

/* The type octet's kind of number; nothing when bit 7 is clear or the kind is reserved. */
std::optional<number_type> decode_type(uint8_t octet);

} // namespace sim

#endif
