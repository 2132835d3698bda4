/* The owner's side of the local message bus: requests that wait, answers and indications that go out. */
#ifndef AT_OWNER_BUS_SIDE_H
#define AT_OWNER_BUS_SIDE_H

#include <cstdint>
#include <string>
#include <vector>

#include "at_msg.h"

namespace at_owner
{

/* Codes of answers that the owner makes up itself; a modem's own codes are those of +CMS and +CME ERROR. */
enum own_error {
    error_malformed = 1, /* the request is no command line; detail: why */
    error_no_modem = 19, /* ENODEV */
    error_busy = 105,    /* ENOBUFS: too many requests wait */
    error_timeout = 110  /* ETIMEDOUT */
};

constexpr size_t most_requests = 64; /* that wait */

struct request {
    std::string text; /* as given, with its "\r" */
    int32_t at_id = 0;
    int32_t timeout = 0; /* seconds as given */
    int module = 0;      /* who asked */
};

/* Takes requests off the bus and gives each an answer. The handler runs on the bus's thread and only queues; everything
 * else is called from the one thread that owns the port. One a process: the bus library has room for one handler. */
class bus_side
{
public:
    /* `notified`: the modules that get indications and notices. */
    explicit bus_side(std::vector<int> notified) : notified_(std::move(notified)) {}

    /* False: not on the bus; standard error has the reason. */
    bool join();

    /* Becomes readable when requests wait. */
    int wake_fd() const;
    std::vector<request> take_requests();

    /* `text` is cut to the record's 3979 bytes and `detail` to 99; a cut answer's error code still is that of its final
     * result. */
    void answer(const request &to, const std::string &text, int error_code, const std::string &detail) const;
    void indicate(const std::string &text) const;
    void notice(uint32_t msg_id) const; /* AT_MSG_ID_ASSERT or AT_MSG_ID_BLOCK */

private:
    void send(int module, const void *record) const;

    std::vector<int> notified_;
};

} // namespace at_owner

#endif
