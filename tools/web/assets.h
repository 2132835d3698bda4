/* The page's files, which are part of the program. */
#ifndef SMS_WEB_ASSETS_H
#define SMS_WEB_ASSETS_H

#include <span>
#include <string>

#include "http.h"

namespace web
{

struct asset {
    const char *name;
    const unsigned char *content;
    size_t size;
    const char *tag; /* an entity tag, quotes included */
};

std::span<const asset> embedded_assets();

/* Answers "/" and "/NAME"; 404 for any other path. With a folder the content comes from there, under the same names:
 * for whoever works on the page. */
response serve_asset(const request &asked, const std::string &folder);

} // namespace web

#endif
