/* Where the SMS manager reads a PDU otherwise than the standard does, and why. */
#ifndef SMS_PDU_DIFFERENCES_H
#define SMS_PDU_DIFFERENCES_H

#include <string>
#include <vector>

#include "daemon_view.h"
#include "message.h"

namespace pdu
{

struct difference {
    std::string what;
    std::string standard, daemon; /* UTF-8, one line */
    std::string why;
};

std::vector<difference> find_differences(const message &standard, const daemon_view &daemon);

} // namespace pdu

#endif
