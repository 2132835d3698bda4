/* The places where a modem keeps messages: numbered from 1 to a capacity. */
#ifndef SIM_STORAGE_H
#define SIM_STORAGE_H

#include <cstddef>
#include <map>
#include <optional>
#include <string>

#include "charset.h"

namespace sim
{

enum class message_state { unread, read, unsent, sent }; /* the numbers of 3GPP TS 27.005 */

struct stored_message {
    octets pdu; /* service centre in front */
    message_state state = message_state::unread;
    std::string note; /* for people: who sent what */
};

class message_store
{
public:
    explicit message_store(size_t capacity) : capacity_(capacity) {}

    size_t used() const { return messages_.size(); }
    size_t capacity() const { return capacity_; }
    bool full() const { return used() >= capacity_; }
    bool holds(size_t index) const { return index >= 1 && index <= capacity_; }

    /* Into the lowest free place. Its index; nothing when the store is full. */
    std::optional<size_t> add(stored_message message)
    {
        if (full())
            return std::nullopt;
        size_t index = 1;
        while (messages_.contains(index))
            index++;
        messages_.emplace(index, std::move(message));
        return index;
    }

    /* Null when nothing is there. */
    stored_message *find(size_t index)
    {
        const auto found = messages_.find(index);
        return found == messages_.end() ? nullptr : &found->second;
    }

    void remove(size_t index) { messages_.erase(index); }

    template <typename Test> void remove_if(Test test)
    {
        std::erase_if(messages_, [&test](const auto &entry) { return test(entry.second); });
    }

    std::map<size_t, stored_message> &all() { return messages_; }
    const std::map<size_t, stored_message> &all() const { return messages_; }

private:
    size_t capacity_;
    std::map<size_t, stored_message> messages_;
};

/* Octets of the TPDU: what stands behind the service centre. */
inline size_t tpdu_length(const octets &pdu)
{
    const size_t in_front = pdu.empty() ? 0 : 1 + size_t{pdu[0]};
    return pdu.size() > in_front ? pdu.size() - in_front : 0;
}

} // namespace sim

#endif
