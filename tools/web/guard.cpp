#include "guard.h"

#include <algorithm>
#include <arpa/inet.h>
#include <stdexcept>
#include <strings.h>
#include <sys/random.h>

namespace web
{
namespace
{

constexpr size_t most_sessions = 32; /* the oldest makes room */
constexpr int most_wrong = 10;       /* tokens in a window */
constexpr std::chrono::seconds window{60};
constexpr const char cookie_name[] = "sms_web";
constexpr const char cookie_rules[] = "; Path=/; HttpOnly; SameSite=Strict";

bool same_word(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

/* The host of "host", "host:port" and "[address]:port". */
std::string host_of(const std::string &authority)
{
    if (authority.starts_with('[')) {
        const size_t end = authority.find(']');
        return end == std::string::npos ? "" : authority.substr(1, end - 1);
    }
    return authority.substr(0, authority.find(':'));
}

bool is_address(const std::string &host)
{
    unsigned char bytes[16];
    return inet_pton(AF_INET, host.c_str(), bytes) == 1 || inet_pton(AF_INET6, host.c_str(), bytes) == 1;
}

std::string random_word()
{
    unsigned char bytes[16];
    if (getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes))
        throw std::runtime_error("no random numbers");
    std::string out;
    for (const unsigned char byte : bytes) {
        out += "0123456789abcdef"[byte >> 4];
        out += "0123456789abcdef"[byte & 15];
    }
    return out;
}

/* The value of our cookie; empty when there is none. */
std::string cookie_of(const request &asked)
{
    const std::string *all = asked.header("cookie");
    const std::string wanted = std::string(cookie_name) + '=';
    for (size_t at = 0; all != nullptr && at < all->size();) {
        const size_t end = std::min(all->find(';', at), all->size());
        const size_t begin = std::min(all->find_first_not_of(' ', at), end);
        if (all->compare(begin, wanted.size(), wanted) == 0)
            return all->substr(begin + wanted.size(), end - begin - wanted.size());
        at = end + 1;
    }
    return "";
}

/* The page that asks is ours, or no page asks. */
bool same_site(const request &asked, bool changes)
{
    const std::string *site = asked.header("sec-fetch-site");
    if (site != nullptr && *site != "same-origin" && (changes || *site != "none"))
        return false;
    const std::string *origin = asked.header("origin");
    const std::string *host = asked.header("host");
    return origin == nullptr ||
           (host != nullptr && (same_word(*origin, "http://" + *host) || same_word(*origin, "https://" + *host)));
}

bool is_json(const request &asked)
{
    const std::string *type = asked.header("content-type");
    return type != nullptr && same_word(type->substr(0, type->find_first_of("; ")), "application/json");
}

} // namespace

bool same_secret(std::string_view given, std::string_view wanted)
{
    volatile unsigned char different = given.size() == wanted.size() ? 0 : 1;
    for (size_t i = 0; i < given.size() && !wanted.empty(); i++)
        different = different | static_cast<unsigned char>(given[i] ^ wanted[i % wanted.size()]);
    return different == 0;
}

std::optional<response> guard::refuse_host(const request &asked) const
{
    const std::string *authority = asked.header("host");
    if (authority == nullptr)
        return refusal(400, "no-host", "The request names no host.");
    const std::string host = host_of(*authority);
    const bool known = is_address(host) || same_word(host, "localhost") ||
                       std::any_of(rules_.hosts.begin(), rules_.hosts.end(),
                                   [&host](const std::string &name) { return same_word(host, name); });
    if (known)
        return std::nullopt;
    return refusal(421, "unknown-host", "This server does not go by that name. Its owner can add it with --host.");
}

bool guard::knows(const request &asked) const
{
    const std::string *given = asked.header("authorization");
    constexpr std::string_view scheme = "Bearer ";
    if (given != nullptr && given->size() > scheme.size() && same_word(given->substr(0, scheme.size()), scheme) &&
        same_secret(std::string_view(*given).substr(scheme.size()), rules_.token))
        return true;
    const std::string cookie = cookie_of(asked);
    bool found = false;
    for (const std::string &session : sessions_)
        found = same_secret(cookie, session) || found;
    return found;
}

std::optional<response> guard::refuse(const request &asked) const
{
    const bool changes = asked.method != "GET";
    if (!same_site(asked, changes))
        return refusal(403, "other-site", "Pages of other sites may not ask here.");
    if (changes && !is_json(asked))
        return refusal(415, "no-json", "The body must be of the type application/json.");
    if (!wants_token() || knows(asked))
        return std::nullopt;
    response out = refusal(401, "token", "The token is wanted.");
    out.headers.emplace_back("WWW-Authenticate", "Bearer");
    return out;
}

response guard::open_session(const request &asked)
{
    const auto now = std::chrono::steady_clock::now();
    if (now - window_ > window) {
        window_ = now;
        wrong_ = 0;
    }
    if (!same_site(asked, true) || !is_json(asked))
        return refusal(403, "other-site", "Pages of other sites may not ask here.");
    if (wrong_ >= most_wrong)
        return refusal(429, "too-often", "Too many wrong tokens. Try again in a minute.");
    const json body = json::parse(asked.body, nullptr, false);
    const bool given = body.is_object() && body.contains("token") && body["token"].is_string();
    if (!wants_token() || !given || !same_secret(body["token"].get<std::string>(), rules_.token)) {
        wrong_++;
        return refusal(401, "token", "This is not the token.");
    }
    if (sessions_.size() >= most_sessions)
        sessions_.erase(sessions_.begin());
    sessions_.push_back(random_word());
    response out = json_response(200, json::object());
    out.headers.emplace_back("Set-Cookie", std::string(cookie_name) + '=' + sessions_.back() + cookie_rules);
    return out;
}

response guard::close_session(const request &asked)
{
    std::erase(sessions_, cookie_of(asked));
    response out = json_response(200, json::object());
    out.headers.emplace_back("Set-Cookie", std::string(cookie_name) + "=" + cookie_rules + "; Max-Age=0");
    return out;
}

} // namespace web
