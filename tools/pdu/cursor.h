/* Octets taken one after the other, each with its place. */
#ifndef SMS_PDU_CURSOR_H
#define SMS_PDU_CURSOR_H

#include <string>

#include "message.h"

namespace pdu
{

/* The octets end before a field does. Ends the reading. */
struct cut_short {
    problem why;
};

class cursor
{
public:
    explicit cursor(const octets &bytes) : bytes_(bytes) {}

    size_t at() const { return at_; }
    size_t left() const { return bytes_.size() - at_; }

    /* A field of `count` octets. What is there of it goes in front of the problem that ends the reading. */
    field take(const std::string &name, size_t count, std::vector<field> &into);
    uint8_t peek() const { return bytes_[at_]; } /* only while something is left */

private:
    const octets &bytes_;
    size_t at_ = 0;
};

} // namespace pdu

#endif
