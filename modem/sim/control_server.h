/* The control socket: one line of JSON in, one line of JSON out, then the connection closes.
 *
 *   {"command": "handset send", "text": "hello", ...}
 *   {"ok": true, "out": "what to print"} or {"ok": false, "error": "why not"}
 */
#ifndef SIM_CONTROL_SERVER_H
#define SIM_CONTROL_SERVER_H

#include <list>
#include <memory>
#include <string>

#include "event_loop.h"
#include "simulator.h"

namespace sim
{

class control_server
{
public:
    /* Binds the socket, for its owner alone. A stale one is replaced; one that answers is an error. Throws
     * std::runtime_error. */
    control_server(simulator &sim, std::string path);
    ~control_server();
    control_server(const control_server &) = delete;
    control_server &operator=(const control_server &) = delete;

private:
    struct connection;

    void accept_one();
    void read_from(connection &from);
    void start(connection &asker);
    void reply(connection &to, std::string text);
    void write_to(connection &to);
    void drop(connection &which);
    void check_waiting();

    simulator &sim_;
    std::string path_;
    int listener_ = -1;
    std::list<connection> connections_;
};

} // namespace sim

#endif
