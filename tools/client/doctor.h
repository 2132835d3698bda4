/* Whether index, directory, counter and flags of the store agree. Looks only. */
#ifndef SMS_CLIENT_DOCTOR_H
#define SMS_CLIENT_DOCTOR_H

#include <string>
#include <vector>

#include "store.h"

namespace sms_client
{

struct finding {
    std::string about; /* a box's name, "store", "flags" or "configuration" */
    std::string what;  /* what is off */
    std::string then;  /* what becomes of it: what the next start of the daemon mends, or who else can */
};

/* Everything that is off; empty: all is well. */
std::vector<finding> examine(const store &s);

} // namespace sms_client

#endif
