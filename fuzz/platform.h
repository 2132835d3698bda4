/* The platform's libraries in memory, and the modem behind them. One thread. */
#ifndef FUZZ_PLATFORM_H
#define FUZZ_PLATFORM_H

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "at_msg.h"

namespace platform
{

extern std::map<std::string, std::string, std::less<>> cfg, flags;
extern std::map<int, std::string> devinfo;

extern bool formats; /* whether log lines are put together, as the real log does; set by reset */

/* While one lives the daemon's code runs: sleeps take no time, and a file outside the store is a finding. */
class running
{
public:
    running();
    ~running();
};

/* --- the modem --- */

struct answer {
    enum { ok, fails, stray, silent } kind = ok;
    std::string text;         /* of an answer, from "\r\n" on; may fill its field without a terminator */
    int error_code = 0;       /* where it fails */
    std::string error_detail; /* the same */
};

extern std::deque<answer> answers;        /* to the next commands; when there are no more, a healthy modem's */
extern std::vector<std::string> commands; /* that were sent */

/* A record with an id and a payload as it is; `pad` fills the rest of the payload. */
sockmsg_record make_record(uint32_t msg_id, const std::string &payload, char pad = '\0');
sockmsg_record make_indication(const std::string &text, bool genuine = true);

/* Forgets values, answers and commands: service on, SIM ready, registered, service centre known. */
void reset();

/* Frees what the daemon holds between two inputs: the rings, the send queue, parts that wait. */
void forget_messages();

} // namespace platform

#endif
