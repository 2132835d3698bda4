/* The telephone on the other side of the network: what the router sent, read and put together. */
#ifndef SIM_HANDSET_H
#define SIM_HANDSET_H

#include <string>
#include <vector>

#include "submit.h"

namespace sim
{

struct received_part {
    submit content;
    std::string pdu; /* hex, as the router gave it */
    std::string date;
};

struct received_message {
    std::string to;                   /* the number it was sent to */
    std::vector<received_part> parts; /* in the order of arrival */
    bool complete = false;

    const submit &first() const { return parts.front().content; }
    unsigned total() const { return first().place ? first().place->total : 1; }
};

class handset
{
public:
    /* Takes one part in. A part that is there already, octet for octet, is dropped; another one with the same
     * sequence number starts a new message. */
    void take(received_part part);

    /* In the order in which the last part arrived; those still waiting for parts come last. */
    const std::vector<received_message> &complete() const { return complete_; }
    const std::vector<received_message> &partial() const { return partial_; }
    void clear();

private:
    std::vector<received_message> complete_, partial_;
};

/* The parts' text in the order of their sequence numbers, as UTF-8. */
std::string text_of(const received_message &message);

/* What the user data holds behind any header, in hex: a septet an octet for the 7-bit alphabets, the octets as they are
 * otherwise. */
std::string codes_of(const received_message &message);

} // namespace sim

#endif
