/* Asking the SMS manager for something, as its two status flags want it: clear both, ask, await that the request is
 * taken, await its outcome, clear. */
#ifndef SMS_CLIENT_REQUEST_H
#define SMS_CLIENT_REQUEST_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "sms_msg.h"

namespace sms_client
{

/* Why a number or text cannot be sent, in words; empty: it can. The daemon keeps 31 characters of a number and encodes
 * 20 digits; it sends 4000 bytes of text and cuts what is longer. */
std::string complaint_about_number(std::string_view number);
std::string complaint_about_text(std::string_view text);
constexpr size_t most_digits = 20;
constexpr size_t most_text = 4000; /* bytes */

/* The payload of a send or draft request. Both have passed the checks above. */
sms_payload make_payload(const std::string &number, const std::string &text);

enum class outcome {
    done,
    failed,     /* the daemon says so */
    not_taken,  /* no sign that it took the request: the service is off, or it is busy */
    unfinished, /* taken, but no outcome in time: 61 requests wait already, or it takes longer */
    not_running /* nobody is there, or the flags cannot be used */
};

struct result {
    outcome what = outcome::failed;
    std::string detail; /* the daemon's error code, or the system's reason */
};

struct patience {
    std::chrono::milliseconds take{10000};
    std::chrono::milliseconds finish{180000};
    /* Called every now and then while the outcome is awaited; true starts `finish` anew: something moves. */
    std::function<bool()> progress;
};

/* Waits in turn: the flags hold one request's state, so the clients of a platform directory ask one after the other.
 * Where that directory cannot be locked, nobody waits. */
class turn
{
public:
    explicit turn(std::chrono::milliseconds limit);
    ~turn();
    turn(const turn &) = delete;
    turn &operator=(const turn &) = delete;
    bool taken() const { return taken_; }

private:
    int fd_ = -1;
    bool taken_ = false;
};

class requester
{
public:
    explicit requester(int module_id) : module_id_(module_id) {}

    /* Joins the bus, once a process; the daemon names the asker by this. Who has had the turn before may still be about
     * to leave. False: `why`. */
    bool join(std::string &why);

    /* Sends a record and awaits its outcome. Only for requests that touch the flags, and only in one's turn. */
    result ask(uint32_t msg_id, const void *payload, size_t size, const patience &limits) const;
    result ask(uint32_t msg_id, std::string_view text, const patience &limits) const;

    /* Sends a record that the flags say nothing about. */
    result tell(uint32_t msg_id, std::string_view text) const;

private:
    result send(uint32_t msg_id, const void *payload, size_t size) const;

    int module_id_;
};

/* Whether a process is that module now; platform/linux only, else false. Nothing is sent. */
bool is_module_there(int module_id);
inline bool is_daemon_running()
{
    return is_module_there(SMS_MGR_MODULE_ID);
}

/* Why the daemon would drop a send request at this moment, in words; empty: no reason is known. */
std::string why_service_is_off();

void pause(std::chrono::milliseconds time);

} // namespace sms_client

#endif
