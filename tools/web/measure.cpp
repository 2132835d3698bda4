#include "measure.h"

#include <algorithm>
#include <string>

namespace web
{
namespace
{

constexpr char escape = 0x1B;
constexpr size_t septets_alone = 160, septets_a_part = 153;
constexpr size_t characters_alone = 70, characters_a_part = 67;

size_t parts_for(size_t units, size_t alone, size_t a_part)
{
    return units <= alone ? (units > 0 ? 1 : 0) : (units + a_part - 1) / a_part;
}

/* TS 23.038, 6.2.1.1: these take an escape and a code. What the code is does not matter here. */
std::string with_escapes(std::string_view text)
{
    constexpr std::string_view extension = "^{}\\[~]|";
    std::string out;
    for (const char c : text) {
        if (extension.find(c) != std::string_view::npos)
            out += escape;
        out += c;
    }
    return out;
}

/* A part never ends with an escape, and no part is added for that. */
size_t septets_lost(std::string_view septets, size_t parts)
{
    for (size_t i = 0; i < parts; i++) {
        size_t count = std::min(septets.size(), septets_a_part);
        if (count > 0 && septets[count - 1] == escape && count < septets.size())
            count--;
        septets.remove_prefix(count);
    }
    return septets.size();
}

} // namespace

text_measure measure_text(std::string_view text)
{
    text_measure out;
    out.wide =
        std::any_of(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0x80) != 0; });
    if (out.wide) {
        out.units = static_cast<size_t>(std::count_if(
            text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
        out.parts = parts_for(out.units, characters_alone, characters_a_part);
        return out;
    }
    const std::string septets = with_escapes(text);
    out.units = septets.size();
    out.parts = parts_for(out.units, septets_alone, septets_a_part);
    if (out.parts > 1)
        out.lost = septets_lost(septets, out.parts);
    return out;
}

} // namespace web
