/* Stored bytes made fit for showing. */
#ifndef SMS_WEB_SHOWN_TEXT_H
#define SMS_WEB_SHOWN_TEXT_H

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace web
{

/* Sets `out[name]` to the bytes as UTF-8: halves of a surrogate pair, stored as three bytes each, are joined; every
 * other byte that is not UTF-8 becomes U+FFFD. Where there are such bytes, or control characters, `out[name + "_runs"]`
 * has the pieces in order: a text, or {"hex": "ED A0 BD"} for bytes that stand for nothing that can be shown. */
void show_text(nlohmann::json &out, const std::string &name, std::string_view bytes);

/* The same without the pieces. */
std::string plain_text(std::string_view bytes);

} // namespace web

#endif
