/* The one place where the program waits. */
#ifndef SIM_EVENT_LOOP_H
#define SIM_EVENT_LOOP_H

#include <csignal>
#include <functional>
#include <map>

#include "timers.h"

namespace sim
{

class event_loop
{
public:
    using handler = std::function<void(short revents)>; /* poll's events; may watch and unwatch at will */

    timer_queue timers;

    /* Called after each round of events. */
    std::function<void()> after_round;

    /* One handler a descriptor; a second call changes events and handler. */
    void watch(int fd, short events, handler on_event);
    void unwatch(int fd) { watched_.erase(fd); }

    /* Runs until `stop` is set by a signal that is blocked but for the wait itself. */
    void run(const volatile std::sig_atomic_t &stop, const sigset_t &while_waiting);

private:
    struct entry {
        short events;
        handler on_event;
    };
    std::map<int, entry> watched_;
};

} // namespace sim

#endif
