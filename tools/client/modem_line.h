/* One AT command, carried out by the owner of the modem's port. */
#ifndef SMS_CLIENT_MODEM_LINE_H
#define SMS_CLIENT_MODEM_LINE_H

#include <optional>
#include <string>

#include "sockmsg.h"

namespace sms_client
{

struct modem_answer {
    std::string text;   /* as the modem sent it, from "\r\n" on */
    int error_code = 0; /* 0: the command succeeded */
    std::string detail;
};

/* Sends a command without its "\r" and awaits the answer; the process has joined the bus. Nothing: `why`. One thread.
 */
std::optional<modem_answer> ask_modem(const std::string &command, int seconds, std::string &why);

/* For the record handler of a process that asks the modem: keeps the answer that is awaited. */
void take_modem_answer(const sockmsg_record &record);

} // namespace sms_client

#endif
