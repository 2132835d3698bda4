#include "handset.h"

#include <algorithm>

namespace sim
{
namespace
{

constexpr size_t most_kept = 20000; /* of each kind; the oldest give way */

bool belongs(const received_message &message, const received_part &part)
{
    const auto &mine = message.first().place, &other = part.content.place;
    return message.to == part.content.to && mine->reference == other->reference && mine->wide == other->wide &&
           mine->total == other->total && message.first().coding == part.content.coding;
}

void keep(std::vector<received_message> &list, received_message message)
{
    if (list.size() >= most_kept)
        list.erase(list.begin());
    list.push_back(std::move(message));
}

std::vector<octets> codes_in_order(const received_message &message)
{
    std::vector<const received_part *> order;
    order.reserve(message.parts.size());
    for (const received_part &part : message.parts)
        order.push_back(&part);
    const auto sequence = [](const received_part *part) {
        return part->content.place ? part->content.place->sequence : 1;
    };
    std::stable_sort(order.begin(), order.end(),
                     [&](const auto *a, const auto *b) { return sequence(a) < sequence(b); });
    std::vector<octets> out;
    out.reserve(order.size());
    for (const received_part *part : order)
        out.push_back(part->content.codes);
    return out;
}

} // namespace

void handset::take(received_part part)
{
    if (!part.content.place) {
        const std::string to = part.content.to;
        keep(complete_, {to, {std::move(part)}, true});
        return;
    }
    /* The newest comes first: an older one with the same reference was left incomplete. */
    const auto found = std::find_if(partial_.rbegin(), partial_.rend(),
                                    [&part](const received_message &m) { return belongs(m, part); });
    const auto same_place = [&part](const received_part &other) {
        return other.content.place->sequence == part.content.place->sequence;
    };
    received_message *message = found == partial_.rend() ? nullptr : &*found;
    if (message != nullptr) {
        const auto twin = std::find_if(message->parts.begin(), message->parts.end(), same_place);
        if (twin != message->parts.end()) {
            if (twin->content.codes == part.content.codes)
                return;
            message = nullptr;
        }
    }
    if (message == nullptr) {
        keep(partial_, {part.content.to, {}, false});
        message = &partial_.back();
    }
    message->parts.push_back(std::move(part));
    if (message->parts.size() < message->total())
        return;
    received_message whole = std::move(*message);
    partial_.erase(partial_.begin() + (message - partial_.data()));
    whole.complete = true;
    keep(complete_, std::move(whole));
}

void handset::clear()
{
    complete_.clear();
    partial_.clear();
}

std::string text_of(const received_message &message)
{
    return text_of(message.first().coding, codes_in_order(message));
}

std::string codes_of(const received_message &message)
{
    std::string out;
    for (const octets &codes : codes_in_order(message))
        out += to_hex(codes);
    return out;
}

} // namespace sim
