/* All that a control command may touch. */
#ifndef SIM_SIMULATOR_H
#define SIM_SIMULATOR_H

#include "modem.h"
#include "port.h"

namespace sim
{

struct simulator {
    simulator(event_loop &loop_, const modem_config &config, const std::string &link)
        : loop(loop_), tracing(loop_.timers), device(config, loop_.timers, tracing), terminal(loop_, link)
    {
        terminal.on_bytes = [this](std::string_view bytes) { device.receive(bytes); };
        terminal.on_open = [this](bool open) { device.set_port_open(open); };
        device.write = [this](std::string_view bytes) { terminal.write(bytes); };
    }
    ~simulator() { terminal.on_open = nullptr; }

    event_loop &loop;
    trace tracing;
    modem device;
    port terminal;
    unsigned next_reference = 1;
};

} // namespace sim

#endif
