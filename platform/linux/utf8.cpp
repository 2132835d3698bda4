#include "utf8.h"

#include <cstring>

namespace dvplatform
{

struct lead { /* RFC 3629, section 4: what may follow a first byte */
    unsigned char first, last;
    unsigned char length;
    unsigned char second_from, second_to;
};
static constexpr lead leads[] = {
    {0x00, 0x7F, 1, 0x00, 0x00}, {0xC2, 0xDF, 2, 0x80, 0xBF}, {0xE0, 0xE0, 3, 0xA0, 0xBF},
    {0xE1, 0xEC, 3, 0x80, 0xBF}, {0xED, 0xED, 3, 0x80, 0x9F}, {0xEE, 0xEF, 3, 0x80, 0xBF},
    {0xF0, 0xF0, 4, 0x90, 0xBF}, {0xF1, 0xF3, 4, 0x80, 0xBF}, {0xF4, 0xF4, 4, 0x80, 0x8F},
};

static unsigned char byte_at(std::string_view text, size_t index)
{
    return static_cast<unsigned char>(text[index]);
}

static bool is_continuation(unsigned char byte)
{
    return (byte & 0xC0) == 0x80;
}

size_t utf8_length(std::string_view text)
{
    if (text.empty())
        return 0;
    for (const lead &l : leads) {
        if (byte_at(text, 0) < l.first || byte_at(text, 0) > l.last)
            continue;
        if (text.size() < l.length)
            return 0;
        if (l.length > 1 && (byte_at(text, 1) < l.second_from || byte_at(text, 1) > l.second_to))
            return 0;
        for (size_t i = 2; i < l.length; i++) {
            if (!is_continuation(byte_at(text, i)))
                return 0;
        }
        return l.length;
    }
    return 0;
}

size_t utf8_cut(std::string_view text, size_t limit)
{
    if (text.size() <= limit)
        return text.size();
    for (size_t back = 1; back <= 3 && back <= limit; back++) {
        const size_t start = limit - back;
        if (utf8_length(text.substr(start)) > back)
            return start; /* this character would be split */
        if (!is_continuation(byte_at(text, start)))
            break;
    }
    return limit;
}

void copy_out(std::string_view text, char *out, int size)
{
    const size_t room = static_cast<size_t>(size);
    const size_t length = utf8_cut(text, room);

    memcpy(out, text.data(), length);
    if (length < room)
        out[length] = '\0';
}

} // namespace dvplatform
