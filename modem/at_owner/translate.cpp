#include "translate.h"

#include <algorithm>
#include <cctype>
#include <string_view>

namespace at_owner
{
namespace
{

constexpr std::string_view vendor_send = "AT+DORVYSMS=";
constexpr std::string_view set_routing = "AT+CNMI=3,2,0,0,0\r";
constexpr char ctrl_z = 0x1A;

/* 27.005, 3.4.1: what mode 3 means depends on the modem, and many refuse it; some know only the shortest form. */
constexpr std::string_view stored_routings[] = {"3,1,0,0,0", "2,1,0,0,0", "1,1,0,0,0", "2,1"};
constexpr std::string_view direct_routings[] = {"3,2,0,0,0", "2,2,0,0,0", "1,2,0,0,0", "2,2"};

bool is_decimal(std::string_view text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
}

} // namespace

std::vector<exchange> translate(const translation &how, const std::string &command)
{
    const std::string_view text = command;
    if (how.messages != routing::as_asked && text == set_routing) {
        std::vector<exchange> out;
        for (const std::string_view r : how.messages == routing::store_first ? stored_routings : direct_routings)
            out.push_back({"AT+CNMI=" + std::string(r) + "\r", {}});
        return out;
    }
    if (how.send && text.starts_with(vendor_send) && text.ends_with("\x1A\r")) {
        const std::string_view arguments = text.substr(vendor_send.size(), text.size() - vendor_send.size() - 1);
        const size_t comma = arguments.find(',');
        if (comma != std::string_view::npos && is_decimal(arguments.substr(0, comma)) &&
            arguments.find(ctrl_z) == arguments.size() - 1)
            return {{"AT+CMGS=" + std::string(arguments.substr(0, comma)) + "\r",
                     std::string(arguments.substr(comma + 1))}};
    }
    return {{command, {}}};
}

} // namespace at_owner
