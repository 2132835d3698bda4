/* A modem on the bench: its port is a string, its clock is turned by hand. */
#ifndef TESTS_MODEM_SIM_BENCH_H
#define TESTS_MODEM_SIM_BENCH_H

#include <chrono>
#include <string>
#include <utility>

#include "modem.h"

namespace sim
{

/* A line of the modem's. */
inline std::string line(const std::string &text)
{
    return "\r\n" + text + "\r\n";
}

inline const std::string ok = line("OK");

inline modem_config bench_config()
{
    modem_config config;
    config.delay = std::chrono::milliseconds(0);
    config.sim_capacity = 5;
    config.power_up.echo = false;
    return config;
}

/* As the daemon sets its modem. */
inline modem_config daemon_config()
{
    modem_config config = bench_config();
    config.power_up.format = 0;
    config.power_up.indications = {3, 2, 0, 0, 0};
    return config;
}

struct bench {
    explicit bench(const modem_config &config = bench_config())
        : timers([this] { return now; }), traced(timers), device(config, timers, traced)
    {
        device.write = [this](std::string_view bytes) { out += bytes; };
        device.set_port_open(true);
        pass(std::chrono::seconds(1)); /* the port's owner has settled */
    }

    /* Turns the clock, stopping at each timer that becomes due. */
    void pass(std::chrono::milliseconds span)
    {
        const auto end = now + span;
        while (timers.next() && *timers.next() <= end) {
            now = std::max(now, *timers.next());
            timers.run_due();
        }
        now = end;
    }

    /* What the modem said since the last call. */
    std::string heard() { return std::exchange(out, std::string()); }

    /* A command line with its end, and what the modem says to it at once. */
    std::string at(const std::string &line)
    {
        device.receive(line + "\r");
        return heard();
    }

    timer_queue::clock::time_point now{};
    timer_queue timers;
    trace traced;
    modem device;
    std::string out;
};

/* "hellohello" from +18005551212 by way of +12345678901. */
constexpr const char *hellohello = "07912143658709F1040B918100551512F20000111010214365000AE8329BFD4697D9EC37";

inline const std::string cmt = "\r\n+CMT: ,28\r\n" + std::string(hellohello) + "\r\n";

inline waiting_message message(const char *hex = hellohello, route way = route::follow)
{
    return {*from_hex(hex), way, std::nullopt, ""};
}

} // namespace sim

#endif
