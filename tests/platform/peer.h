/* A running bus_peer. */
#ifndef TESTS_PLATFORM_PEER_H
#define TESTS_PLATFORM_PEER_H

#include <functional>
#include <string>
#include <sys/types.h>

class peer
{
public:
    /* Starts it, in a process that `prepare` succeeds in; joined() tells how it went. */
    peer(
        int module_id, const std::string &handler, const std::function<bool()> &prepare = [] { return true; });
    ~peer(); /* kills it */
    peer(const peer &) = delete;
    peer &operator=(const peer &) = delete;

    int joined();            /* the result of joining, waited for */
    std::string errors();    /* all it wrote to standard error; it has ended */
    std::string next_line(); /* waited for, 20 s at most; then "(nothing)" */
    void command(const std::string &text);
    void signal(int number);
    void kill(); /* SIGKILL, and waits until it is gone */

private:
    pid_t pid = -1;
    int input = -1, output = -1, error_output = -1;
    std::string unread;
};

#endif
