#include "device_watch.h"

#include <charconv>

#include "commlog.h"
#include "devinfo.h"

namespace at_owner
{
namespace
{

constexpr const char *not_registered = "Unkown"; /* spelled so by those who read it */

struct technology {
    int number; /* 27.007, 7.2 */
    const char *name;
};
constexpr technology technologies[] = {
    {0, "GSM"},  {1, "GSM"}, {2, "UMTS"}, {3, "EDGE"}, {4, "HSDPA"}, {5, "HSUPA"},
    {6, "HSPA"}, {7, "LTE"}, {10, "LTE"}, {11, "NR"},  {12, "NR"},   {13, "NR"},
};

/* Leaves a value that is right already alone: whoever watches the items sees changes only. */
void set_item(int id, const std::string &value)
{
    char now[32 + 1] = {};
    get_devinfo_value_by_id(id, now, 32);
    if (value == now)
        return;
    const int error = set_devinfo_value_by_id(id, value.c_str(), static_cast<int>(value.size()));
    savelog(0, "[at_owner] item %d is now %s%s", id, value.c_str(), error != 0 ? ", but cannot be set" : "");
}

/* Takes one parameter off the front. */
std::string_view take_parameter(std::string_view &rest)
{
    const size_t comma = rest.find(',');
    std::string_view out = rest.substr(0, comma);
    rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
    while (!out.empty() && out.front() == ' ')
        out.remove_prefix(1);
    return out;
}

int number_of(std::string_view text)
{
    int out = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), out);
    return error == std::errc() && end == text.data() + text.size() ? out : -1;
}

} // namespace

std::string registered_network(std::string_view answer)
{
    const size_t start = answer.find("REG: ");
    if (start == std::string_view::npos)
        return {};
    const bool packet = start >= 3 && answer.substr(start - 3, 3) == "+CE";
    std::string_view rest = answer.substr(start + 5);
    rest = rest.substr(0, rest.find('\r'));
    take_parameter(rest); /* which reports are on */
    const int state = number_of(take_parameter(rest));
    if (state != 1 && state != 5) /* at home, roaming */
        return {};
    take_parameter(rest); /* area */
    take_parameter(rest); /* cell */
    const int number = number_of(take_parameter(rest));
    for (const technology &t : technologies)
        if (t.number == number)
            return t.name;
    return packet ? "LTE" : "registered"; /* +CEREG speaks of LTE alone */
}

bool is_sim_ready(std::string_view answer)
{
    return answer.find("+CPIN: READY") != std::string_view::npos;
}

/* +CEREG comes last: its network is the better one to name. */
const std::vector<std::string> &device_watch::questions() const
{
    static const std::vector<std::string> all = {"AT+CPIN?\r", "AT+CREG?\r", "AT+CEREG?\r"};
    return all;
}

void device_watch::take(size_t question, std::string_view answer, bool succeeded)
{
    if (question == 0) {
        ready_ = succeeded && is_sim_ready(answer);
        network_.clear();
        return;
    }
    const std::string network = succeeded ? registered_network(answer) : std::string();
    if (!network.empty())
        network_ = network;
    if (question + 1 < questions().size())
        return;
    set_item(DEVINFO_SIM_READY, ready_ ? "1" : "0");
    set_item(DEVINFO_NETWORK_STATE, ready_ && !network_.empty() ? network_ : not_registered);
}

void device_watch::gone()
{
    set_item(DEVINFO_SIM_READY, "0");
    set_item(DEVINFO_NETWORK_STATE, not_registered);
}

bool device_watch::concerns(std::string_view indication)
{
    for (const std::string_view name : {"+CREG:", "+CEREG:", "+CGREG:", "+CPIN:", "^SIMST:", "^SRVST:"})
        if (indication.starts_with("\r\n") && indication.substr(2).starts_with(name))
            return true;
    return false;
}

} // namespace at_owner
