/* A request and what comes of it, without the library that carries them. */
#ifndef SMS_WEB_HTTP_H
#define SMS_WEB_HTTP_H

#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <nlohmann/json.hpp>

namespace web
{

using nlohmann::json;

struct request {
    std::string method; /* HEAD is given as GET: the server leaves the body away */
    std::string path;   /* decoded, without the query */
    std::string body;
    std::map<std::string, std::string, std::less<>> headers; /* names in lower case */
    std::map<std::string, std::string, std::less<>> query;

    /* Null when there is none. */
    const std::string *header(std::string_view name) const
    {
        const auto found = headers.find(name);
        return found == headers.end() ? nullptr : &found->second;
    }
};

struct response {
    int status = 200;
    std::string type;
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers;
};

/* Gives the answer once it is there, and nothing while it is not. */
using later = std::function<std::optional<response>()>;

/* An answer without an end. `next` gives what is to be sent now, "" while there is nothing, nothing at the end. */
struct endless {
    response head;
    std::function<std::optional<std::string>()> next;
};

using outcome = std::variant<response, later, endless>;

/* A request that is not as it must be; the text is for whoever sent it. */
struct bad_request : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/* Bytes that are no UTF-8 become U+FFFD. */
inline response json_response(int status, const json &body)
{
    return {status, "application/json", body.dump(-1, ' ', false, json::error_handler_t::replace) + "\n", {}};
}

/* `code` is one word for the page, `what` a sentence for whoever reads it. */
inline response refusal(int status, std::string_view code, std::string_view what)
{
    return json_response(status, {{"error", code}, {"message", what}});
}

} // namespace web

#endif
