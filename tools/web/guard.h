/* Who may ask: the name that was asked for, the page that asks, and the token. */
#ifndef SMS_WEB_GUARD_H
#define SMS_WEB_GUARD_H

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "http.h"

namespace web
{

struct guard_rules {
    std::string token;              /* empty: none is wanted */
    std::vector<std::string> hosts; /* names, beside addresses and localhost, that the server is called by */
};

/* Used by the server's thread alone, but for wants_token(). */
class guard
{
public:
    explicit guard(guard_rules rules) : rules_(std::move(rules)) {}

    /* For every request: a name that is not ours means that another site has let its own name point here. */
    std::optional<response> refuse_host(const request &asked) const;

    /* For what is not public: requests of other sites' pages, and without the token. */
    std::optional<response> refuse(const request &asked) const;

    bool wants_token() const { return !rules_.token.empty(); }

    /* Gives a cookie for the token in the body {"token": ...}; after a few wrong ones everybody has to wait. */
    response open_session(const request &asked);
    response close_session(const request &asked);

private:
    bool knows(const request &asked) const;

    guard_rules rules_;
    std::vector<std::string> sessions_; /* the newest last */
    int wrong_ = 0;                     /* wrong tokens since the window began */
    std::chrono::steady_clock::time_point window_{};
};

/* True when both are the same; takes as long whatever they have in common. */
bool same_secret(std::string_view given, std::string_view wanted);

} // namespace web

#endif
