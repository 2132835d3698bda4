/* Commands of the T750 put into words that other modems understand. */
#ifndef AT_OWNER_TRANSLATE_H
#define AT_OWNER_TRANSLATE_H

#include <string>
#include <vector>

namespace at_owner
{

enum class routing {
    as_asked,
    store_first, /* new messages are stored and announced with +CMTI */
    direct       /* new messages come whole, with +CMT */
};

struct translation {
    bool send = false; /* "AT+DORVYSMS=n,PDU" becomes "AT+CMGS=n" and, behind the prompt, the PDU */
    routing messages = routing::as_asked;
};

/* One way to carry a request out. */
struct exchange {
    std::string command; /* with its "\r" */
    std::string data;    /* with its Ctrl-Z, for the prompt that follows; empty: no prompt */
};

/* The ways to carry `command` out, in the order in which they are tried until the modem takes one. At least one. */
std::vector<exchange> translate(const translation &how, const std::string &command);

} // namespace at_owner

#endif
