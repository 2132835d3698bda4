#include "watcher.h"

#include <sys/stat.h>

#include "devinfo.h"
#include "sms_msg.h"
#include "text.h"
#include "values.h"

namespace sms_client
{
namespace
{

constexpr int items[] = {DEVINFO_SIM_READY,         DEVINFO_NETWORK_STATE, DEVINFO_SMS_UNREAD,
                         DEVINFO_SMS_RECEIVED_FULL, DEVINFO_SMS_SENT_FULL, DEVINFO_SMS_DRAFT_FULL};
constexpr const char *flags[] = {DV_SMS_MGR_LAST_RECEIVED_MSG, DV_SMS_MGR_LAST_ERR_CODE, SMS_CSCA_FLAG};
constexpr const char *kinds[] = {"added", "altered", "removed", "value"};

std::map<std::string, std::string> read_values()
{
    std::map<std::string, std::string> out;
    for (const char *name : flags)
        out[name] = get_flag(name).value_or("");
    for (const int id : items)
        out[std::to_string(id)] = get_devinfo(id).value_or("");
    return out;
}

/* The same message: its state may have changed. */
bool is_same(const message &a, const message &b)
{
    return a.phone == b.phone && a.date == b.date && a.text == b.text;
}

} // namespace

nlohmann::json to_json(const change &c)
{
    nlohmann::json out = {{"event", kinds[c.what]}};
    if (c.what == change::value_set) {
        out["name"] = c.name;
        out["value"] = make_readable(c.value).text;
    } else {
        out["message"] = to_json(c.about);
    }
    return out;
}

/* A file is read again only when it is not the one that was read. */
void watcher::look_at_box(box which, std::map<place, seen> &now) const
{
    for (const int number : store_.index(which)) {
        struct stat status {
        };
        if (stat(store_.path(which, number).c_str(), &status) != 0)
            continue;
        const place where{which, number};
        seen current{status.st_mtim.tv_sec, status.st_mtim.tv_nsec, status.st_size, status.st_ino, {}};
        const auto known = messages_.find(where);
        if (known != messages_.end() && known->second.seconds == current.seconds &&
            known->second.nanoseconds == current.nanoseconds && known->second.size == current.size &&
            known->second.inode == current.inode) {
            now[where] = known->second;
        } else if (auto m = store_.read(which, number)) {
            current.content = std::move(*m);
            now[where] = std::move(current);
        }
    }
}

void watcher::compare_messages(const std::map<place, seen> &now, std::vector<change> &changes) const
{
    for (const auto &[where, was] : messages_) {
        const auto is = now.find(where);
        if (is == now.end() || !is_same(was.content, is->second.content))
            changes.push_back({change::removed, was.content, {}, {}});
    }
    for (const auto &[where, is] : now) {
        const auto was = messages_.find(where);
        if (was == messages_.end() || !is_same(was->second.content, is.content))
            changes.push_back({change::added, is.content, {}, {}});
        else if (was->second.content.state != is.content.state)
            changes.push_back({change::altered, is.content, {}, {}});
    }
}

std::vector<change> watcher::look()
{
    std::vector<change> changes;
    std::map<place, seen> now;
    for (const box which : all_boxes)
        look_at_box(which, now);
    std::map<std::string, std::string> values = read_values();
    if (!first_) {
        compare_messages(now, changes);
        for (const auto &[name, value] : values)
            if (values_[name] != value)
                changes.push_back({change::value_set, {}, name, value});
    }
    first_ = false;
    messages_ = std::move(now);
    values_ = std::move(values);
    return changes;
}

} // namespace sms_client
