/* Keeps the device-information items that tell of SIM and network, where no other service of the router sets them. */
#ifndef AT_OWNER_DEVICE_WATCH_H
#define AT_OWNER_DEVICE_WATCH_H

#include <string>
#include <string_view>
#include <vector>

namespace at_owner
{

/* The network that an answer to "AT+CREG?" or "AT+CEREG?" names: "LTE" and the like, "registered" where the modem does
 * not say which; empty: not registered, or no such answer. */
std::string registered_network(std::string_view answer);

/* Whether the answer to "AT+CPIN?" says that the SIM can be used. */
bool is_sim_ready(std::string_view answer);

class device_watch
{
public:
    /* The commands of one round, in order. */
    const std::vector<std::string> &questions() const;

    /* The answer to a question of this round; after the last one the items are set. */
    void take(size_t question, std::string_view answer, bool succeeded);

    /* The modem is gone: no SIM, no network. */
    void gone();

    /* Whether an unsolicited line makes a new round worth while. */
    static bool concerns(std::string_view indication);

private:
    bool ready_ = false;
    std::string network_;
};

} // namespace at_owner

#endif
