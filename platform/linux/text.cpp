/* Text replaced in place. */
#include <cstring>
#include <string>
#include <string_view>

#include "utf8.h"
#include "util.h"

using namespace dvplatform;

/* The result is what replacing without a bound gives, cut to the room there is. Occurrences whose
 * replacement did not get in whole are not counted. Text that fills its capacity and does not grow
 * is not cut to make room for a terminator. */
int util_replace_with_new_string_ext(char *text, int capacity, const char *old_text, const char *new_text)
{
    if (!text || capacity <= 0 || !old_text || !new_text)
        return -1;

    const std::string source(text, strnlen(text, static_cast<size_t>(capacity)));
    const std::string_view old_part = old_text, new_part = new_text;
    const size_t room = new_part.size() > old_part.size() ? static_cast<size_t>(capacity) - 1 : source.size();
    std::string result;
    int replaced = 0;

    if (old_part.empty() || source.find(old_part) == std::string::npos)
        return 0;
    for (size_t from = 0; from < source.size() && result.size() <= room;) {
        const size_t at = source.find(old_part, from);
        result.append(source, from, at - from);
        if (at == std::string::npos)
            break;
        result.append(new_part);
        from = at + old_part.size();
        if (result.size() <= room)
            replaced++;
    }
    const size_t length = utf8_cut(result, room);
    memcpy(text, result.data(), length);
    if (length < static_cast<size_t>(capacity))
        text[length] = '\0';
    return replaced;
}
