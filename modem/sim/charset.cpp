#include "charset.h"

#include <algorithm>
#include <iterator>

namespace sim
{
namespace
{

constexpr uint8_t escape = 0x1B;
constexpr char32_t replacement = 0xFFFD;

/* TS 23.038, 6.2.1 */
constexpr char32_t default_alphabet[] = U"@£$¥èéùìòÇ\nØø\rÅå"
                                        U"Δ_ΦΓΛΩΠΨΣΘΞ\x1B"
                                        U"ÆæßÉ"
                                        U" !\"#¤%&'()*+,-./"
                                        U"0123456789:;<=>?"
                                        U"¡ABCDEFGHIJKLMNO"
                                        U"PQRSTUVWXYZÄÖÑÜ§"
                                        U"¿abcdefghijklmno"
                                        U"pqrstuvwxyzäöñüà";
static_assert(std::size(default_alphabet) == 128 + 1);
static_assert(default_alphabet[0x1B] == escape && default_alphabet[0x24] == U'¤' && default_alphabet[0x7F] == U'à');

struct shifted {
    uint8_t code;
    char32_t character;
};

/* TS 23.038, 6.2.1.1 */
constexpr shifted standard_shift[] = {
    {0x0A, U'\f'}, {0x14, U'^'}, {0x28, U'{'}, {0x29, U'}'}, {0x2F, U'\\'},
    {0x3C, U'['},  {0x3D, U'~'}, {0x3E, U']'}, {0x40, U'|'}, {0x65, U'€'},
};

/* TS 23.038, A.2.1 */
constexpr shifted turkish_shift[] = {
    {0x0A, U'\f'}, {0x14, U'^'}, {0x28, U'{'}, {0x29, U'}'}, {0x2F, U'\\'}, {0x3C, U'['},
    {0x3D, U'~'},  {0x3E, U']'}, {0x40, U'|'}, {0x47, U'Ğ'}, {0x49, U'İ'},  {0x53, U'Ş'},
    {0x63, U'ç'},  {0x65, U'€'}, {0x67, U'ğ'}, {0x69, U'ı'}, {0x73, U'ş'},
};

std::span<const shifted> shift_table(single_shift shift)
{
    return shift == single_shift::turkish ? std::span<const shifted>(turkish_shift) : standard_shift;
}

bool is_surrogate(char32_t c)
{
    return c >= 0xD800 && c <= 0xDFFF;
}

/* Takes one character off the front; false, and nothing taken, when there is none. */
bool take_character(std::string_view &in, char32_t &character)
{
    const auto lead = static_cast<uint8_t>(in.front());
    const size_t length = lead < 0x80 ? 1 : lead < 0xC0 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF5 ? 4 : 0;
    if (length == 0 || in.size() < length)
        return false;
    char32_t value = length == 1 ? lead : lead & (0x7Fu >> length);
    for (size_t i = 1; i < length; i++) {
        const auto next = static_cast<uint8_t>(in[i]);
        if ((next & 0xC0) != 0x80)
            return false;
        value = value << 6 | (next & 0x3Fu);
    }
    constexpr char32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
    if (value < least[length] || value > 0x10FFFF || is_surrogate(value))
        return false;
    in.remove_prefix(length);
    character = value;
    return true;
}

void append_utf8(std::string &out, char32_t c)
{
    if (is_surrogate(c) || c > 0x10FFFF)
        c = replacement;
    const auto put = [&out](char32_t byte) { out.push_back(static_cast<char>(static_cast<uint8_t>(byte))); };
    if (c < 0x80) {
        put(c);
    } else if (c < 0x800) {
        put(0xC0 | c >> 6);
        put(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        put(0xE0 | c >> 12);
        put(0x80 | (c >> 6 & 0x3F));
        put(0x80 | (c & 0x3F));
    } else {
        put(0xF0 | c >> 18);
        put(0x80 | (c >> 12 & 0x3F));
        put(0x80 | (c >> 6 & 0x3F));
        put(0x80 | (c & 0x3F));
    }
}

int hex_value(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

} // namespace

std::optional<std::u32string> from_utf8(std::string_view text)
{
    std::u32string out;
    char32_t character = 0;
    while (!text.empty()) {
        if (!take_character(text, character))
            return std::nullopt;
        out.push_back(character);
    }
    return out;
}

std::string to_utf8(std::u32string_view text)
{
    std::string out;
    for (const char32_t c : text)
        append_utf8(out, c);
    return out;
}

std::string repair_utf8(std::string_view bytes)
{
    std::string out;
    char32_t character = 0;
    while (!bytes.empty()) {
        if (!take_character(bytes, character)) {
            character = replacement;
            bytes.remove_prefix(1);
        }
        append_utf8(out, character);
    }
    return out;
}

octets to_septets(char32_t character, single_shift shift)
{
    const char32_t *end = default_alphabet + 128;
    const char32_t *found = std::find(default_alphabet, end, character);
    if (found != end && character != escape)
        return {static_cast<uint8_t>(found - default_alphabet)};
    for (const shifted &s : shift_table(shift))
        if (s.character == character)
            return {escape, s.code};
    return {};
}

std::u32string from_septets(std::span<const uint8_t> septets, single_shift shift)
{
    std::u32string out;
    const std::span<const shifted> table = shift_table(shift);
    for (size_t i = 0; i < septets.size(); i++) {
        uint8_t code = septets[i] & 0x7F;
        if (code != escape) {
            out.push_back(default_alphabet[code]);
            continue;
        }
        if (++i == septets.size() || (septets[i] & 0x7F) == escape) {
            out.push_back(U' ');
            continue;
        }
        code = septets[i] & 0x7F;
        const auto found =
            std::find_if(table.begin(), table.end(), [code](const shifted &s) { return s.code == code; });
        out.push_back(found != table.end() ? found->character : default_alphabet[code]);
    }
    return out;
}

octets pack_septets(std::span<const uint8_t> septets, unsigned fill)
{
    octets out((fill + septets.size() * 7 + 7) / 8);
    size_t bit = fill;
    for (const uint8_t septet : septets) {
        const unsigned shifted_septet = (septet & 0x7Fu) << (bit % 8);
        out[bit / 8] = static_cast<uint8_t>(out[bit / 8] | shifted_septet);
        if (shifted_septet > 0xFF)
            out[bit / 8 + 1] = static_cast<uint8_t>(shifted_septet >> 8);
        bit += 7;
    }
    return out;
}

std::optional<octets> unpack_septets(std::span<const uint8_t> packed, size_t count, unsigned fill)
{
    if (fill + count * 7 > packed.size() * 8)
        return std::nullopt;
    octets out;
    out.reserve(count);
    for (size_t bit = fill; out.size() < count; bit += 7) {
        unsigned window = packed[bit / 8];
        if (bit / 8 + 1 < packed.size())
            window |= static_cast<unsigned>(packed[bit / 8 + 1]) << 8;
        out.push_back(static_cast<uint8_t>(window >> (bit % 8) & 0x7F));
    }
    return out;
}

std::u16string to_utf16(std::u32string_view text)
{
    std::u16string out;
    for (const char32_t c : text) {
        if (c < 0x10000) {
            out.push_back(static_cast<char16_t>(c));
        } else {
            out.push_back(static_cast<char16_t>(0xD7C0 + (c >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
        }
    }
    return out;
}

std::u32string from_utf16(std::u16string_view text)
{
    std::u32string out;
    for (size_t i = 0; i < text.size(); i++) {
        const char32_t high = text[i];
        const char32_t low = i + 1 < text.size() ? text[i + 1] : 0;
        if (high >= 0xD800 && high <= 0xDBFF && low >= 0xDC00 && low <= 0xDFFF) {
            out.push_back(0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00));
            i++;
        } else {
            out.push_back(high);
        }
    }
    return out;
}

std::string to_hex(std::span<const uint8_t> bytes)
{
    constexpr char digits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(bytes.size() * 2);
    for (const uint8_t byte : bytes) {
        out.push_back(digits[byte >> 4]);
        out.push_back(digits[byte & 0x0F]);
    }
    return out;
}

std::optional<octets> from_hex(std::string_view text)
{
    if (text.size() % 2 != 0)
        return std::nullopt;
    octets out;
    out.reserve(text.size() / 2);
    for (size_t i = 0; i < text.size(); i += 2) {
        const int high = hex_value(text[i]);
        const int low = hex_value(text[i + 1]);
        if (high < 0 || low < 0)
            return std::nullopt;
        out.push_back(static_cast<uint8_t>(high << 4 | low));
    }
    return out;
}

} // namespace sim
