#include "assets.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace web
{
namespace
{

struct content_type {
    const char *ending, *type;
};
constexpr content_type types[] = {
    {".html", "text/html; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".svg", "image/svg+xml"},
};

std::string type_of(const std::string &name)
{
    for (const content_type &each : types)
        if (name.ends_with(each.ending))
            return each.type;
    return "application/octet-stream";
}

std::optional<std::string> read_whole(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream out;
    if (!file || !(out << file.rdbuf()))
        return std::nullopt;
    return out.str();
}

} // namespace

response serve_asset(const request &asked, const std::string &folder)
{
    const std::string name = asked.path == "/" ? "index.html" : asked.path.substr(1);
    const auto files = embedded_assets();
    const auto found = std::find_if(files.begin(), files.end(), [&name](const asset &a) { return name == a.name; });
    if (found == files.end())
        return refusal(404, "not-found", "There is nothing here.");
    if (!folder.empty()) {
        std::optional<std::string> text = read_whole(folder + '/' + name);
        return text ? response{200, type_of(name), std::move(*text), {{"Cache-Control", "no-store"}}}
                    : refusal(404, "not-found", "The folder lacks this file.");
    }
    response out{200, type_of(name), "", {{"Cache-Control", "no-cache"}, {"ETag", found->tag}}};
    const std::string *known = asked.header("if-none-match");
    if (known != nullptr && known->find(found->tag) != std::string::npos) {
        out.status = 304;
        out.type.clear();
        return out;
    }
    out.body.assign(reinterpret_cast<const char *>(found->content), found->size);
    return out;
}

} // namespace web
