#include "deliver.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <stdexcept>

namespace sim
{
namespace
{

constexpr size_t most_parts = 255;

constexpr uint8_t first_octet_plain = 0x04; /* SMS-DELIVER, no more messages waiting */
constexpr uint8_t first_octet_header = 0x40;

bool is_packed(alphabet coding)
{
    return coding == alphabet::gsm7 || coding == alphabet::turkish;
}

/* The information elements, without the length in front. */
octets build_header(alphabet coding, const std::optional<concatenation> &place)
{
    octets out;
    if (place) {
        const auto low = static_cast<uint8_t>(place->reference);
        const auto high = static_cast<uint8_t>(place->reference >> 8);
        if (place->wide)
            out = {0x08, 0x04, high, low};
        else
            out = {0x00, 0x03, low};
        out.push_back(static_cast<uint8_t>(place->total));
        out.push_back(static_cast<uint8_t>(place->sequence));
    }
    if (coding == alphabet::turkish)
        out.insert(out.end(), {0x24, 0x01, 0x01});
    return out;
}

/* Septets or octets that fit beside a header of that many octets of elements. */
size_t capacity(alphabet coding, size_t elements)
{
    const size_t taken = elements == 0 ? 0 : elements + 1;
    return is_packed(coding) ? most_septets - (taken * 8 + 6) / 7 : most_octets - taken;
}

octets encode_character(char32_t c, alphabet coding)
{
    if (is_packed(coding))
        return to_septets(c, coding == alphabet::turkish ? single_shift::turkish : single_shift::standard);
    octets out;
    if (coding == alphabet::ucs2) {
        for (const char16_t unit : to_utf16(std::u32string_view(&c, 1))) {
            out.push_back(static_cast<uint8_t>(unit >> 8));
            out.push_back(static_cast<uint8_t>(unit));
        }
        return out;
    }
    const std::string bytes = to_utf8(std::u32string_view(&c, 1));
    out.assign(bytes.begin(), bytes.end());
    return out;
}

/* Each character in its coding; nothing when one is not in the alphabet. */
std::optional<std::vector<octets>> encode_characters(const std::u32string &text, alphabet coding)
{
    std::vector<octets> out;
    for (const char32_t c : text) {
        out.push_back(encode_character(c, coding));
        if (out.back().empty())
            return std::nullopt;
    }
    return out;
}

std::vector<octets> pieces_of(const std::string &text, alphabet &coding, bool raw)
{
    std::vector<octets> out;
    if (raw) {
        coding = alphabet::data;
        for (const char byte : text)
            out.push_back({static_cast<uint8_t>(byte)});
        return out;
    }
    const auto characters = from_utf8(text);
    if (!characters)
        throw std::invalid_argument("the text is not valid UTF-8");
    const alphabet first = coding == alphabet::automatic ? alphabet::gsm7 : coding;
    if (auto encoded = encode_characters(*characters, first)) {
        coding = first;
        return *encoded;
    }
    if (coding != alphabet::automatic)
        throw std::invalid_argument("the text has a character that is not in this alphabet");
    coding = alphabet::ucs2;
    return *encode_characters(*characters, coding);
}

std::vector<octets> fill_parts(const std::vector<octets> &pieces, size_t room)
{
    std::vector<octets> parts(1);
    for (const octets &piece : pieces) {
        if (parts.back().size() + piece.size() > room)
            parts.emplace_back();
        parts.back().insert(parts.back().end(), piece.begin(), piece.end());
    }
    return parts;
}

uint8_t data_coding(alphabet coding, const std::optional<unsigned> &message_class)
{
    const unsigned alphabet_bits = coding == alphabet::data ? 0x04 : coding == alphabet::ucs2 ? 0x08 : 0x00;
    return static_cast<uint8_t>(alphabet_bits | (message_class ? 0x10 | *message_class : 0));
}

uint8_t swapped_digits(int value)
{
    return static_cast<uint8_t>(value % 10 << 4 | value / 10 % 10);
}

void append_timestamp(octets &out, const timestamp &when)
{
    for (const int field : {when.year % 100, when.month, when.day, when.hour, when.minute, when.second})
        out.push_back(swapped_digits(field));
    const uint8_t sign = when.zone < 0 ? 0x08 : 0x00;
    out.push_back(static_cast<uint8_t>(swapped_digits(when.zone < 0 ? -when.zone : when.zone) | sign));
}

} // namespace

timestamp parse_timestamp(const std::string &text, int zone)
{
    timestamp t;
    char rest = 0;
    const int fields = std::sscanf(text.c_str(), "%4d-%2d-%2d %2d:%2d:%2d%c", &t.year, &t.month, &t.day, &t.hour,
                                   &t.minute, &t.second, &rest);
    const auto within = [](int value, int least, int most) { return value >= least && value <= most; };
    if (fields != 6 || !within(t.year, 2000, 2099) || !within(t.month, 1, 12) || !within(t.day, 1, 31) ||
        !within(t.hour, 0, 23) || !within(t.minute, 0, 59) || !within(t.second, 0, 59))
        throw std::invalid_argument("a date reads \"YYYY-MM-DD hh:mm:ss\", from 2000 to 2099: " + text);
    if (!within(zone, -79, 79))
        throw std::invalid_argument("a zone lies between -79 and 79 quarters of an hour");
    t.zone = zone;
    return t;
}

timestamp current_timestamp(std::optional<int> zone)
{
    std::time_t now = std::time(nullptr);
    std::tm fields{};
    if (!zone) {
        localtime_r(&now, &fields);
        zone = static_cast<int>(fields.tm_gmtoff / 900);
    }
    now += *zone * 900;
    gmtime_r(&now, &fields);
    return {fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday, fields.tm_hour,
            fields.tm_min,         fields.tm_sec,     *zone};
}

std::string format_timestamp(const timestamp &when)
{
    char text[80];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", when.year, when.month, when.day, when.hour,
                  when.minute, when.second);
    return text;
}

split_text split(const std::string &text, alphabet wanted, bool wide, bool raw)
{
    split_text out;
    out.chosen = wanted;
    const std::vector<octets> pieces = pieces_of(text, out.chosen, raw);
    out.parts = fill_parts(pieces, capacity(out.chosen, build_header(out.chosen, std::nullopt).size()));
    if (out.parts.size() > 1) {
        const concatenation place{.wide = wide};
        out.parts = fill_parts(pieces, capacity(out.chosen, build_header(out.chosen, place).size()));
    }
    if (out.parts.size() > most_parts)
        throw std::invalid_argument("the text takes more than 255 parts");
    return out;
}

octets encode_deliver(const deliver_header &header, alphabet coding, const octets &part,
                      const std::optional<concatenation> &place)
{
    const octets elements = build_header(coding, place);
    if (part.size() > capacity(coding, elements.size()))
        throw std::invalid_argument("the text is too long for one part");

    octets data;
    if (!elements.empty()) {
        data.push_back(static_cast<uint8_t>(elements.size()));
        data.insert(data.end(), elements.begin(), elements.end());
    }
    size_t length = data.size() + part.size();
    octets body = part;
    if (is_packed(coding)) {
        const size_t header_septets = (data.size() * 8 + 6) / 7;
        length = header_septets + part.size();
        body = pack_septets(part, static_cast<unsigned>(header_septets * 7 - data.size() * 8));
    }
    data.insert(data.end(), body.begin(), body.end());

    octets out = encode_service_centre(header.service_centre);
    out.push_back(static_cast<uint8_t>(first_octet_plain | (elements.empty() ? 0 : first_octet_header)));
    const octets from = encode_address(header.from);
    out.insert(out.end(), from.begin(), from.end());
    out.push_back(0x00); /* TP-PID: short message, no interworking */
    out.push_back(data_coding(coding, header.message_class));
    append_timestamp(out, header.when);
    out.push_back(static_cast<uint8_t>(length));
    out.insert(out.end(), data.begin(), data.end());
    return out;
}

} // namespace sim
