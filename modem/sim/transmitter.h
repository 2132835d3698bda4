/* What goes out on the port: one thing after another, each after its own delay. */
#ifndef SIM_TRANSMITTER_H
#define SIM_TRANSMITTER_H

#include <deque>
#include <functional>
#include <optional>
#include <string>

#include "timers.h"

namespace sim
{

class transmitter
{
public:
    explicit transmitter(timer_queue &timers) : timers_(timers) {}

    std::function<void(std::string_view)> write;

    /* Goes out `delay` after all that was sent before. */
    void send(std::string bytes, timer_queue::milliseconds delay = {})
    {
        waiting_.push_back({std::move(bytes), delay});
        if (!timer_)
            drain();
    }

    void clear()
    {
        if (timer_)
            timers_.cancel(*timer_);
        timer_.reset();
        waiting_.clear();
    }

private:
    struct chunk {
        std::string bytes;
        timer_queue::milliseconds delay;
    };

    void put_first()
    {
        const std::string bytes = std::move(waiting_.front().bytes);
        waiting_.pop_front();
        if (write)
            write(bytes);
    }

    void drain()
    {
        while (!waiting_.empty()) {
            if (waiting_.front().delay.count() > 0) {
                timer_ = timers_.after(waiting_.front().delay, [this] {
                    timer_.reset();
                    put_first();
                    drain();
                });
                return;
            }
            put_first();
        }
    }

    timer_queue &timers_;
    std::deque<chunk> waiting_;
    std::optional<timer_queue::id> timer_;
};

} // namespace sim

#endif
