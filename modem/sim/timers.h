/* Things to do later, on a clock that never jumps. */
#ifndef SIM_TIMERS_H
#define SIM_TIMERS_H

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <utility>

namespace sim
{

class timer_queue
{
public:
    using clock = std::chrono::steady_clock;
    using milliseconds = std::chrono::milliseconds;
    using id = std::pair<clock::time_point, unsigned long>;

    /* `now` stands in for the clock in tests. */
    explicit timer_queue(std::function<clock::time_point()> now = clock::now) : now_(std::move(now)), start_(now_()) {}

    clock::time_point now() const { return now_(); }

    /* Since this queue was made. */
    milliseconds elapsed() const { return std::chrono::duration_cast<milliseconds>(now_() - start_); }

    id after(milliseconds delay, std::function<void()> action)
    {
        const id key{now_() + delay, next_++};
        pending_.emplace(key, std::move(action));
        return key;
    }

    void cancel(const id &key) { pending_.erase(key); }

    /* Runs what is due, in order; what that adds and is due as well runs too. */
    void run_due()
    {
        while (!pending_.empty() && pending_.begin()->first.first <= now_()) {
            auto action = std::move(pending_.begin()->second);
            pending_.erase(pending_.begin());
            action();
        }
    }

    /* When the next one is due; nothing when none is waiting. */
    std::optional<clock::time_point> next() const
    {
        if (pending_.empty())
            return std::nullopt;
        return pending_.begin()->first.first;
    }

private:
    std::function<clock::time_point()> now_;
    clock::time_point start_;
    std::map<id, std::function<void()>> pending_;
    unsigned long next_ = 0;
};

} // namespace sim

#endif
