#include "elements.h"

#include "charset.h"
#include "names.h"

namespace pdu
{
namespace
{

unsigned word(const octets &data, size_t at)
{
    return static_cast<unsigned>(data[at]) << 8 | data[at + 1];
}

std::string number(unsigned value)
{
    return std::to_string(value);
}

std::string concatenation(unsigned reference, unsigned total, unsigned sequence)
{
    std::string out = "reference " + number(reference) + ", part " + number(sequence) + " of " + number(total);
    if (total == 0 || sequence == 0 || sequence > total)
        out += "; there is no such part, the element is to be passed over";
    return out;
}

std::string ports(unsigned destination, unsigned source)
{
    return "to port " + number(destination) + ", from port " + number(source);
}

std::string waiting(const octets &data)
{
    constexpr const char *kinds[] = {"voice", "fax", "electronic mail", "other"};
    return number(data[1]) + " waiting: " + kinds[data[0] & 3] + ((data[0] & 0x80) != 0 ? ", keep the text" : "");
}

std::string in_words(const header_element &e)
{
    const octets &d = e.data;
    switch (e.id) {
    case concatenation_8bit:
        return concatenation(d[0], d[1], d[2]);
    case 0x01:
        return waiting(d);
    case 0x04:
        return ports(d[0], d[1]);
    case 0x05:
        return ports(word(d, 0), word(d, 2));
    case concatenation_16bit:
        return concatenation(word(d, 0), d[2], d[3]);
    case 0x20:
        return "the header of the e-mail has " + number(d[0]) + " characters";
    case single_shift:
    case locking_shift:
        return language_name(d[0]);
    default:
        return "";
    }
}

struct fixed_length {
    uint8_t id;
    size_t octets;
};

constexpr fixed_length lengths[] = {{concatenation_8bit, 3},  {0x01, 2}, {0x04, 2},         {0x05, 4},
                                    {concatenation_16bit, 4}, {0x20, 1}, {single_shift, 1}, {locking_shift, 1}};

size_t fixed_length_of(uint8_t id)
{
    for (const fixed_length &each : lengths)
        if (each.id == id)
            return each.octets;
    return 0; /* any */
}

} // namespace

element_meaning describe(const header_element &element)
{
    const size_t wanted = fixed_length_of(element.id);
    if (wanted != 0 && element.data.size() != wanted)
        return {"should have " + number(static_cast<unsigned>(wanted)) + " octets; to be passed over", false};
    return {in_words(element), true};
}

std::optional<place> find_place(const std::vector<header_element> &header)
{
    for (const header_element &e : header) {
        if (e.id == concatenation_8bit && e.data.size() == 3)
            return place{e.data[0], false, e.data[1], e.data[2]};
        if (e.id == concatenation_16bit && e.data.size() == 4)
            return place{word(e.data, 0), true, e.data[2], e.data[3]};
    }
    return std::nullopt;
}

std::optional<uint8_t> language_of(const std::vector<header_element> &header, uint8_t id)
{
    for (const header_element &e : header)
        if (e.id == id && e.data.size() == 1)
            return e.data[0];
    return std::nullopt;
}

} // namespace pdu
