/* Stored bytes made fit to be shown. */
#ifndef SMS_CLIENT_TEXT_H
#define SMS_CLIENT_TEXT_H

#include <string>
#include <string_view>

namespace sms_client
{

bool is_utf8(std::string_view bytes); /* as RFC 3629 has it: no surrogates */

struct readable {
    std::string text;     /* UTF-8 */
    bool complete = true; /* false: something was no character, and U+FFFD stands for each byte or lone half of it */
};

/* Any bytes as UTF-8. The store holds characters beyond U+FFFF as two halves of three bytes each: they are joined. */
readable make_readable(std::string_view bytes);

/* UTF-8 made harmless for a terminal: control characters as \n, \r, \t or \xHH of each byte, and a backslash as \\.
 * With `keep_lines` line feeds stay, and only what a terminal would act on is escaped. */
std::string make_printable(std::string_view utf8, bool keep_lines);

std::string printable(std::string_view bytes); /* both, for a line of its own */

std::string to_hex(std::string_view bytes); /* lower case */

} // namespace sms_client

#endif
