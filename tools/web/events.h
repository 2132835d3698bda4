/* Server-sent events: everything that is published goes to every page that listens. */
#ifndef SMS_WEB_EVENTS_H
#define SMS_WEB_EVENTS_H

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "http.h"

namespace web
{

inline constexpr size_t most_listeners = 16;
inline constexpr size_t most_behind = 256; /* events that a slow listener may lag behind */

/* Any thread. */
class event_hub
{
public:
    /* `wake` is called after each event. */
    explicit event_hub(std::function<void()> wake) : wake_(std::move(wake)) {}

    void publish(const std::string &name, const json &data);

    /* A comment, by which the system notices listeners that went away. */
    void keep_alive();

    /* A stream that begins with the event "hello"; one that lags too far behind begins anew. Nothing when too
     * many listen. The stream may outlive nothing but the hub. */
    std::optional<endless> listen();

    size_t listeners() const;

private:
    void append(std::string text);
    std::optional<std::string> next(uint64_t &position);

    const std::function<void()> wake_;
    mutable std::mutex lock_; /* guards what follows */
    std::deque<std::string> recent_;
    uint64_t first_ = 0; /* the position of recent_.front() */
    size_t listeners_ = 0;
};

} // namespace web

#endif
