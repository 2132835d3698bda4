#include "event_loop.h"

#include <poll.h>
#include <vector>

namespace sim
{

void event_loop::watch(int fd, short events, handler on_event)
{
    watched_[fd] = {events, std::move(on_event)};
}

void event_loop::run(const volatile std::sig_atomic_t &stop, const sigset_t &while_waiting)
{
    while (stop == 0) {
        std::vector<pollfd> fds;
        for (const auto &[fd, what] : watched_)
            fds.push_back({fd, what.events, 0});

        timespec limit{};
        const auto next = timers.next();
        if (next && *next > timers.now()) {
            const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(*next - timers.now()).count();
            limit.tv_sec = static_cast<time_t>(left > 0 ? left / 1000000000 : 0);
            limit.tv_nsec = static_cast<long>(left > 0 ? left % 1000000000 : 0);
        }
        const int ready = ppoll(fds.data(), fds.size(), next ? &limit : nullptr, &while_waiting);
        for (const pollfd &fd : fds) {
            const auto found = ready > 0 && fd.revents != 0 ? watched_.find(fd.fd) : watched_.end();
            if (found == watched_.end())
                continue;
            const handler on_event = found->second.on_event; /* the entry may go while it runs */
            on_event(fd.revents);
        }
        timers.run_due();
        if (after_round)
            after_round();
    }
}

} // namespace sim
