/* A platform that is not there: the daemon's codec is linked with it. Nothing leaves the process: no bus, no file, no
 * command. Not for several threads at once. */
#ifndef SMS_PDU_STAND_IN_PLATFORM_H
#define SMS_PDU_STAND_IN_PLATFORM_H

#include <string>
#include <vector>

namespace pdu::stand_in
{

/* What the codec has logged since the last call, a line each. */
std::vector<std::string> take_log();

} // namespace pdu::stand_in

#endif
