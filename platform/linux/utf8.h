/* UTF-8: where a character begins and ends. */
#ifndef DVPLATFORM_UTF8_H
#define DVPLATFORM_UTF8_H

#include <cstddef>
#include <string_view>

namespace dvplatform
{

/* The length, 1 to 4, of the well-formed character that `text` begins with; 0 when it begins with
 * none: an overlong form, a surrogate, a stray or missing continuation byte, or nothing at all. */
size_t utf8_length(std::string_view text);

/* The largest cut, at most `limit`, that leaves no part of a character at the end of `text`. */
size_t utf8_cut(std::string_view text, size_t limit);

/* Copies `text` into `out`, at most `size` characters and no part of one; terminated when there
 * is room for it, so text that fills all of `out` is not. `size` is positive. */
void copy_out(std::string_view text, char *out, int size);

} // namespace dvplatform

#endif
