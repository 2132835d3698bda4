/* How the daemon will split a text: page/measure.js says the same while somebody writes. */
#ifndef SMS_WEB_MEASURE_H
#define SMS_WEB_MEASURE_H

#include <cstddef>
#include <string_view>

namespace web
{

inline constexpr size_t send_limit = 4000; /* bytes, and septets, that the daemon can work on */

struct text_measure {
    bool wide = false; /* UCS-2: some byte is no ASCII */
    size_t units = 0;  /* septets with the escapes, or characters */
    size_t parts = 0;
    size_t lost = 0; /* septets at the end for which the parts have no room */
};

/* Of a text of at most send_limit bytes of UTF-8; none: no parts. */
text_measure measure_text(std::string_view text);

} // namespace web

#endif
