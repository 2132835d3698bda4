#include "events.h"

namespace web
{
namespace
{

std::string event_text(const std::string &name, const json &data)
{
    return "event: " + name + "\ndata: " + data.dump(-1, ' ', false, json::error_handler_t::replace) + "\n\n";
}

/* Begins a stream; one that breaks is opened again after a second. */
constexpr const char hello[] = "retry: 1000\nevent: hello\ndata: {}\n\n";

} // namespace

void event_hub::append(std::string text)
{
    {
        const std::lock_guard hold(lock_);
        if (listeners_ == 0)
            return;
        recent_.push_back(std::move(text));
        if (recent_.size() > most_behind) {
            recent_.pop_front();
            first_++;
        }
    }
    wake_();
}

void event_hub::publish(const std::string &name, const json &data)
{
    append(event_text(name, data));
}

void event_hub::keep_alive()
{
    append(": still here\n\n");
}

size_t event_hub::listeners() const
{
    const std::lock_guard hold(lock_);
    return listeners_;
}

/* All that has come since `position`, which moves on. */
std::optional<std::string> event_hub::next(uint64_t &position)
{
    const std::lock_guard hold(lock_);
    const uint64_t end = first_ + recent_.size();
    std::string out;
    if (position < first_) {
        position = end;
        return hello;
    }
    for (; position < end; position++)
        out += recent_[position - first_];
    return out;
}

std::optional<endless> event_hub::listen()
{
    uint64_t position = 0;
    {
        const std::lock_guard hold(lock_);
        if (listeners_ >= most_listeners)
            return std::nullopt;
        listeners_++;
        position = first_ + recent_.size();
    }
    /* Counts the listener as long as its stream lives. */
    const std::shared_ptr<void> counted(nullptr, [this](void *) {
        const std::lock_guard hold(lock_);
        listeners_--;
    });
    response head{200, "text/event-stream", "", {{"X-Accel-Buffering", "no"}}};
    return endless{std::move(head), [this, counted, position, greeted = false]() mutable -> std::optional<std::string> {
                       if (greeted)
                           return next(position);
                       greeted = true;
                       return hello;
                   }};
}

} // namespace web
