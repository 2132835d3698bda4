/* The alphabets of 3GPP TS 23.038 and their packing, and the text forms between them. */
#ifndef SIM_CHARSET_H
#define SIM_CHARSET_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace sim
{

using octets = std::vector<uint8_t>;

/* The table behind the escape code 0x1B. */
enum class single_shift { standard, turkish };

/* Valid UTF-8 to code points; nothing for any other input (overlong forms, surrogates, cut sequences). */
std::optional<std::u32string> from_utf8(std::string_view text);

/* Code points to UTF-8. What is no character (a lone surrogate, above U+10FFFF) becomes U+FFFD. */
std::string to_utf8(std::u32string_view text);

/* Any bytes as valid UTF-8: each byte that is not part of a character becomes U+FFFD. */
std::string repair_utf8(std::string_view bytes);

/* One character as one or two septets (the escape first); empty when the alphabet lacks it. */
octets to_septets(char32_t character, single_shift shift);

/* Septets to text. A code that the shift table lacks gives the default alphabet's character; an escape with nothing
 * behind it, or with another escape, gives a space (TS 23.038, 6.2.1). */
std::u32string from_septets(std::span<const uint8_t> septets, single_shift shift);

/* Packs septets, the first one starting at bit `fill` (0-6) of the first octet. */
octets pack_septets(std::span<const uint8_t> septets, unsigned fill);

/* The count septets that start at bit `fill`; nothing when the octets do not hold that many. */
std::optional<octets> unpack_septets(std::span<const uint8_t> packed, size_t count, unsigned fill);

/* UTF-16 units: surrogate pairs are made and joined; a lone half stays as it is. */
std::u16string to_utf16(std::u32string_view text);
std::u32string from_utf16(std::u16string_view text);

/* Upper-case hex. */
std::string to_hex(std::span<const uint8_t> bytes);

/* Hex digits of either case; nothing for an odd count or another character. */
std::optional<octets> from_hex(std::string_view text);

} // namespace sim

#endif
