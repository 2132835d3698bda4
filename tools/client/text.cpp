#include "text.h"

#include <cstdint>

namespace sms_client
{
namespace
{

constexpr uint32_t nothing = 0xFFFFFFFF;
constexpr std::string_view replacement = "\xEF\xBF\xBD";

bool is_high(uint32_t c)
{
    return c >= 0xD800 && c < 0xDC00;
}

bool is_low(uint32_t c)
{
    return c >= 0xDC00 && c < 0xE000;
}

/* Takes one character off the front, halves of surrogate pairs included; `nothing` takes one byte that begins none. */
uint32_t take(std::string_view &in)
{
    const auto byte = [&in](size_t i) { return static_cast<uint32_t>(static_cast<unsigned char>(in[i])); };
    struct form {
        uint32_t mask, mark;
        size_t length;
        uint32_t least;
    };
    constexpr form forms[] = {
        {0x80, 0x00, 1, 0}, {0xE0, 0xC0, 2, 0x80}, {0xF0, 0xE0, 3, 0x800}, {0xF8, 0xF0, 4, 0x10000}};
    for (const form &f : forms) {
        if ((byte(0) & f.mask) != f.mark || in.size() < f.length)
            continue;
        uint32_t c = byte(0) & ~f.mask & 0xFF;
        bool good = true;
        for (size_t i = 1; i < f.length; i++) {
            good = good && (byte(i) & 0xC0) == 0x80;
            c = c << 6 | (byte(i) & 0x3F);
        }
        if (!good || c < f.least || c > 0x10FFFF)
            break;
        in.remove_prefix(f.length);
        return c;
    }
    in.remove_prefix(1);
    return nothing;
}

std::string four_bytes(uint32_t c)
{
    return {static_cast<char>(0xF0 | c >> 18), static_cast<char>(0x80 | (c >> 12 & 0x3F)),
            static_cast<char>(0x80 | (c >> 6 & 0x3F)), static_cast<char>(0x80 | (c & 0x3F))};
}

void add_escaped(std::string &out, std::string_view bytes)
{
    for (const char c : bytes)
        out += "\\x" + to_hex({&c, 1});
}

} // namespace

bool is_utf8(std::string_view bytes)
{
    while (!bytes.empty()) {
        const uint32_t c = take(bytes);
        if (c == nothing || is_high(c) || is_low(c))
            return false;
    }
    return true;
}

readable make_readable(std::string_view bytes)
{
    readable out;
    while (!bytes.empty()) {
        const std::string_view start = bytes;
        const uint32_t c = take(bytes);
        if (c != nothing && !is_high(c) && !is_low(c)) {
            out.text += start.substr(0, start.size() - bytes.size());
            continue;
        }
        std::string_view behind = bytes;
        const uint32_t next = is_high(c) && !bytes.empty() ? take(behind) : nothing;
        if (is_low(next)) {
            out.text += four_bytes(0x10000 + ((c - 0xD800) << 10) + (next - 0xDC00));
            bytes = behind;
        } else {
            out.text += replacement;
            out.complete = false;
        }
    }
    return out;
}

std::string make_printable(std::string_view utf8, bool keep_lines)
{
    std::string out;
    while (!utf8.empty()) {
        const std::string_view start = utf8;
        const uint32_t c = take(utf8);
        const std::string_view character = start.substr(0, start.size() - utf8.size());
        if (c == '\n')
            out += keep_lines ? "\n" : "\\n";
        else if (c == '\r' && (!keep_lines || !utf8.starts_with('\n')))
            out += "\\r";
        else if (c == '\r')
            continue; /* the line feed behind it says the same */
        else if (c == '\t')
            out += keep_lines ? "\t" : "\\t";
        else if (c == '\\' && !keep_lines)
            out += "\\\\";
        else if (c < ' ' || (c >= 0x7F && c < 0xA0) || c == nothing)
            add_escaped(out, character);
        else
            out += character;
    }
    return out;
}

std::string printable(std::string_view bytes)
{
    return make_printable(make_readable(bytes).text, false);
}

std::string to_hex(std::string_view bytes)
{
    constexpr char digits[] = "0123456789abcdef";
    std::string out;
    for (const char c : bytes) {
        out += digits[static_cast<unsigned char>(c) >> 4];
        out += digits[static_cast<unsigned char>(c) & 15];
    }
    return out;
}

} // namespace sms_client
