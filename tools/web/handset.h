/* The simulated handset as the page shows it: what it sent from here and what the router sent to it. */
#ifndef SMS_WEB_HANDSET_H
#define SMS_WEB_HANDSET_H

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

#include "jobs.h"
#include "simulator.h"

namespace web
{

inline constexpr size_t most_bubbles = 300;

class handset
{
public:
    handset(std::string socket, std::string number) : sim_(std::move(socket)), number_(std::move(number)) {}

    bool there() const { return sim_.there(); }

    /* Looks what has changed. One thread; may wait for the simulator. */
    void poll();

    /* Rises with every change. Any thread. */
    uint64_t revision() const;

    /* {"revision", "number", "reachable", "plugged", "registered", "messages"}. Any thread. */
    json show() const;

    /* Sends a text to the router, and keeps it for show(). Any thread. */
    job_result send(const std::string &text);

    /* What can go wrong, by a word: "unplug", "plug", "leave-network" ... Any thread. */
    job_result trouble(const std::string &action);

private:
    void add(json message);
    void take_inbox(const json &inbox);

    const simulator sim_;
    const std::string number_;
    mutable std::mutex lock_; /* guards what follows */
    uint64_t revision_ = 1;
    uint64_t next_ = 1;
    json modem_ = {{"reachable", false}, {"plugged", false}, {"registered", false}};
    size_t received_ = 0;          /* whole messages of the router's that the simulator had at the last look */
    std::deque<json> messages_;    /* whole ones, in the order in which they were seen */
    json partial_ = json::array(); /* those that wait for parts */
};

} // namespace web

#endif
