#include "cursor.h"

namespace pdu
{

field cursor::take(const std::string &name, size_t count, std::vector<field> &into)
{
    const size_t there = count < left() ? count : left();
    field out;
    out.name = name;
    out.offset = at_;
    out.bytes.assign(bytes_.begin() + static_cast<std::ptrdiff_t>(at_),
                     bytes_.begin() + static_cast<std::ptrdiff_t>(at_ + there));
    at_ += there;
    if (there == count)
        return out;
    const std::string missing =
        count == 1 ? "is missing"
                   : "needs " + std::to_string(count) + " octets, " + std::to_string(there) + " are there";
    if (there > 0) {
        out.meaning = "cut short";
        into.push_back(out);
    }
    throw cut_short{{at_, name + ' ' + missing}};
}

} // namespace pdu
