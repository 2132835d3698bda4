/* What changes in the store and around it, from one look to the next. */
#ifndef SMS_CLIENT_WATCHER_H
#define SMS_CLIENT_WATCHER_H

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "store.h"

namespace sms_client
{

struct change {
    enum kind { added, altered, removed, value_set } what;
    message about;     /* of the first three; of a removed one, what it was */
    std::string name;  /* of the last: the flag's name or the item's number */
    std::string value; /* "" when it was cleared */
};

/* {"event": "added" ...} with the message, or "value" with "name" and "value". */
nlohmann::json to_json(const change &c);

class watcher
{
public:
    explicit watcher(const store &s) : store_(s) {}

    /* What has changed since the last look; the first look finds nothing. A message counts from when the index names
     * it, which is the last thing that its writer does. */
    std::vector<change> look();

private:
    struct seen {
        int64_t seconds = 0;
        int64_t nanoseconds = 0;
        int64_t size = 0;
        uint64_t inode = 0;
        message content;
    };
    using place = std::pair<box, int>;

    void look_at_box(box which, std::map<place, seen> &now) const;
    void compare_messages(const std::map<place, seen> &now, std::vector<change> &changes) const;

    const store &store_;
    bool first_ = true;
    std::map<place, seen> messages_;
    std::map<std::string, std::string> values_;
};

} // namespace sms_client

#endif
