/* The modem's end of a pseudo terminal, reached through a symbolic link. */
#ifndef SIM_PORT_H
#define SIM_PORT_H

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "event_loop.h"

namespace sim
{

class port
{
public:
    port(event_loop &loop, std::string link) : loop_(loop), link_(std::move(link)) {}
    ~port() { unplug(); }
    port(const port &) = delete;
    port &operator=(const port &) = delete;

    std::function<void(std::string_view)> on_bytes;
    std::function<void(bool)> on_open; /* somebody holds the other end, or nobody does any more */

    /* Makes the terminal, raw, and the link to it; nothing when it is there already. A stale link is replaced.
     * Throws std::runtime_error. */
    void plug();

    /* The link goes, and whoever holds the other end sees it hang up. */
    void unplug();

    bool plugged() const { return master_ >= 0; }
    const std::string &device() const { return device_; }
    const std::string &link() const { return link_; }

    /* What cannot be taken at once is kept, to a bound; beyond it bytes are lost. */
    void write(std::string_view bytes);

private:
    void watch();
    void handle(short revents);
    void hung_up();
    void look_for_owner();
    void make_link();

    event_loop &loop_;
    std::string link_, device_;
    int master_ = -1;
    bool open_ = false;
    std::string unsent_;
    std::optional<timer_queue::id> look_timer_;
};

} // namespace sim

#endif
