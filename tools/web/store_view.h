/* The message store as the page shows it, read again whenever something in it has changed. */
#ifndef SMS_WEB_STORE_VIEW_H
#define SMS_WEB_STORE_VIEW_H

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "store.h"

namespace web
{

using sms_client::box;

/* Stands for a message's content, whatever its state: its number alone may be another's tomorrow. */
std::string key_of(const sms_client::message &m);

struct shown_message {
    std::string state; /* "unread", "sent" ... */
    nlohmann::json content;
};

/* One reading of a box. */
struct box_content {
    uint64_t revision = 0;               /* rises with every change */
    std::vector<shown_message> messages; /* the newest first */

    size_t with_state(std::string_view state) const;
};

class store_view
{
public:
    explicit store_view(std::string root) : store_(std::move(root)) {}

    /* Looks whether something has changed and reads it; true when a box is another than before. One thread. */
    bool poll();

    /* Any thread. */
    std::shared_ptr<const box_content> content(box which) const;

    /* As it is at this moment. */
    const sms_client::store &now() const { return store_; }

private:
    bool poll_box(box which);

    const sms_client::store store_;
    std::array<uint64_t, 3> quick_{}, whole_{}; /* of what was read; of the thread that polls */
    mutable std::mutex lock_;                   /* guards the pointers; what they point to never changes */
    std::array<std::shared_ptr<const box_content>, 3> boxes_ = {
        std::make_shared<box_content>(), std::make_shared<box_content>(), std::make_shared<box_content>()};
};

} // namespace web

#endif
