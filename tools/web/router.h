/* What the SMS manager is asked for, and what it and the platform report. */
#ifndef SMS_WEB_ROUTER_H
#define SMS_WEB_ROUTER_H

#include <array>
#include <atomic>
#include <string>
#include <vector>

#include "jobs.h"
#include "request.h"
#include "store_view.h"

namespace web
{

/* A message by its number and what it was when it was last seen. */
struct message_mark {
    int number = 0;
    std::string key;
};

struct service_state {
    bool daemon = false; /* the SMS manager is on the bus */
    std::string off;     /* why it drops what it is to send, in words; empty: it does not */
    bool sim = false;
    std::string network; /* empty: not registered */
    std::string centre;  /* the service centre's number */
    int capacity = 0;    /* messages a box */
    std::array<bool, 3> full{};
};

class router
{
public:
    explicit router(const sms_client::store &store);

    /* Puts this process on the bus, once, before anything else. False: `why`. */
    static bool join(std::string &why);

    service_state state() const;

    /* The following wait for the end of the request; one at a time. */
    job_result send(const std::string &to, const std::string &text, const std::atomic<bool> &stopping) const;
    job_result save_draft(const std::string &to, const std::string &text, const std::atomic<bool> &stopping) const;

    /* The unread ones of these; without any: all. */
    job_result mark_read(const std::vector<message_mark> &messages, const std::atomic<bool> &stopping) const;

    /* Without any: all of the box. Nothing is deleted when one of them is not what it was. */
    job_result remove(box from, const std::vector<message_mark> &messages, const std::atomic<bool> &stopping) const;

private:
    sms_client::requester daemon_;
    const sms_client::store &store_;
};

} // namespace web

#endif
