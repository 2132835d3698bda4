#include "address.h"

#include <algorithm>
#include <stdexcept>

namespace sim
{
namespace
{

constexpr std::string_view digit_set = "0123456789*#abc"; /* TS 24.008, 10.5.4.7 */
constexpr size_t most_letters = 11;
constexpr uint8_t telephone_plan = 0x01;

uint8_t type_octet(number_type type)
{
    const unsigned plan = type == number_type::alphanumeric ? 0 : telephone_plan;
    return static_cast<uint8_t>(0x80 | static_cast<unsigned>(type) << 4 | plan);
}

octets pack_digits(std::string_view digits)
{
    octets out;
    for (size_t i = 0; i < digits.size(); i++) {
        const size_t value = digit_set.find(digits[i]);
        if (value == std::string_view::npos)
            throw std::invalid_argument("a number holds digits, *, # and a to c only: " + std::string(digits));
        if (i % 2 == 0)
            out.push_back(static_cast<uint8_t>(0xF0 | value));
        else
            out.back() = static_cast<uint8_t>((out.back() & 0x0F) | value << 4);
    }
    return out;
}

octets encode_name(std::string_view name)
{
    const auto characters = from_utf8(name);
    octets septets;
    for (const char32_t c : characters.value_or(std::u32string())) {
        const octets codes = to_septets(c, single_shift::standard);
        if (codes.empty())
            throw std::invalid_argument("a name holds characters of the 7-bit alphabet only: " + std::string(name));
        septets.insert(septets.end(), codes.begin(), codes.end());
    }
    if (septets.empty() || septets.size() > most_letters)
        throw std::invalid_argument("a name has 1 to 11 characters: " + std::string(name));
    const octets packed = pack_septets(septets, 0);
    octets out = {static_cast<uint8_t>((septets.size() * 7 + 3) / 4), type_octet(number_type::alphanumeric)};
    out.insert(out.end(), packed.begin(), packed.end());
    return out;
}

std::string_view without_plus(std::string_view number)
{
    return number.starts_with('+') ? number.substr(1) : number;
}

} // namespace

number_type type_of(std::string_view text)
{
    if (text.starts_with('+'))
        return number_type::international;
    const bool number = !text.empty() && text.find_first_not_of("0123456789*#") == std::string_view::npos;
    return number ? number_type::unknown : number_type::alphanumeric;
}

octets encode_address(const address &from)
{
    if (from.type == number_type::alphanumeric)
        return encode_name(from.text);
    const std::string_view digits = without_plus(from.text);
    if (digits.empty() || digits.size() > most_digits)
        throw std::invalid_argument("a number has 1 to 20 digits: " + from.text);
    const octets packed = pack_digits(digits);
    octets out = {static_cast<uint8_t>(digits.size()), type_octet(from.type)};
    out.insert(out.end(), packed.begin(), packed.end());
    return out;
}

octets encode_service_centre(std::string_view number)
{
    if (number.empty())
        return {0};
    const std::string_view digits = without_plus(number);
    if (digits.empty() || digits.size() > most_digits)
        throw std::invalid_argument("a service centre's number has 1 to 20 digits: " + std::string(number));
    const octets packed = pack_digits(digits);
    const number_type type = digits.size() < number.size() ? number_type::international : number_type::unknown;
    octets out = {static_cast<uint8_t>(packed.size() + 1), type_octet(type)};
    out.insert(out.end(), packed.begin(), packed.end());
    return out;
}

std::optional<std::string> decode_digits(std::span<const uint8_t> packed, size_t count)
{
    if (packed.size() != (count + 1) / 2)
        return std::nullopt;
    std::string out;
    for (size_t i = 0; i < packed.size() * 2; i++) {
        const unsigned value = i % 2 == 0 ? packed[i / 2] & 0x0Fu : packed[i / 2] >> 4;
        if (i == count)
            return value == 0x0F ? std::optional(out) : std::nullopt;
        if (value >= digit_set.size())
            return std::nullopt;
        out.push_back(digit_set[value]);
    }
    return out;
}

std::optional<number_type> decode_type(uint8_t octet)
{
    const unsigned kind = octet >> 4 & 0x07u;
    if ((octet & 0x80) == 0 || kind > static_cast<unsigned>(number_type::abbreviated))
        return std::nullopt;
    return static_cast<number_type>(kind);
}

} // namespace sim
