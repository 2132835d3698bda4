#include "address.h"

#include <cstdio>

#include "charset.h"

namespace pdu
{
namespace
{

constexpr char digit_set[] = "0123456789*#abc?"; /* TS 24.008, 10.5.4.7 */
constexpr unsigned alphanumeric = 5;
constexpr unsigned international = 1;

} // namespace

std::string digits_of(const octets &bytes, size_t semi_octets)
{
    std::string out;
    for (size_t i = 0; i < semi_octets && i / 2 < bytes.size(); i++)
        out += digit_set[i % 2 == 0 ? bytes[i / 2] & 0x0F : bytes[i / 2] >> 4];
    return out;
}

std::string address_text(uint8_t type, const octets &bytes, size_t semi_octets)
{
    const unsigned number = type >> 4 & 7u;
    if (number != alphanumeric)
        return (number == international && semi_octets > 0 ? "+" : "") + digits_of(bytes, semi_octets);
    const auto septets = sim::unpack_septets(bytes, semi_octets * 4 / 7, 0);
    return septets ? sim::to_utf8(sim::from_septets(*septets, sim::single_shift::standard)) : "";
}

time_stamp read_time(const octets &bytes)
{
    constexpr unsigned least[] = {0, 1, 1, 0, 0, 0}, most[] = {99, 12, 31, 23, 59, 59};
    unsigned value[6];
    time_stamp out;
    for (size_t i = 0; i < 6; i++) {
        const unsigned tens = bytes[i] & 0x0Fu, ones = bytes[i] >> 4;
        value[i] = tens * 10 + ones;
        if (!out.wrong && (tens > 9 || ones > 9 || value[i] < least[i] || value[i] > most[i]))
            out.wrong = i;
    }
    const unsigned quarters = (bytes[6] & 0x07u) * 10 + (bytes[6] >> 4);
    if (!out.wrong && (bytes[6] >> 4) > 9)
        out.wrong = 6;
    out.zone = (bytes[6] & 0x08) != 0 ? -static_cast<int>(quarters) : static_cast<int>(quarters);
    char text[80];
    std::snprintf(text, sizeof text, "20%02u-%02u-%02u %02u:%02u:%02u %c%02u:%02u", value[0], value[1], value[2],
                  value[3], value[4], value[5], out.zone < 0 ? '-' : '+', quarters / 4, quarters % 4 * 15);
    out.text = text;
    return out;
}

} // namespace pdu
