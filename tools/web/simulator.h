/* Asks the simulated modem, through its control socket, what its commands "handset" and "modem" ask. */
#ifndef SMS_WEB_SIMULATOR_H
#define SMS_WEB_SIMULATOR_H

#include <chrono>
#include <string>

#include <nlohmann/json.hpp>

namespace web
{

/* Any thread: each question has a connection of its own. */
class simulator
{
public:
    explicit simulator(std::string socket) : socket_(std::move(socket)) {}

    /* False when there is none to ask: the page then shows no handset. */
    bool there() const { return !socket_.empty(); }

    /* One request and what the command would have printed. Throws std::runtime_error when it is refused, or nobody
     * answers in time. */
    std::string ask(const nlohmann::json &request, std::chrono::milliseconds patience = std::chrono::seconds(3)) const;

    /* The same for a command that prints JSON. */
    nlohmann::json ask_json(nlohmann::json request) const;

private:
    const std::string socket_;
};

} // namespace web

#endif
