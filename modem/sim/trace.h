/* A file that tells what went through the port and why. */
#ifndef SIM_TRACE_H
#define SIM_TRACE_H

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "timers.h"

namespace sim
{

/* Control characters and what is not ASCII as "\r", "\n", "\xHH"; the rest as it is. */
std::string printable(std::string_view bytes);

class trace
{
public:
    explicit trace(const timer_queue &timers) : timers_(timers) {}

    /* Appends to a file from now on; "-" is the standard error output. False when it cannot be opened (errno). */
    bool open(const std::string &path);

    void from_port(std::string_view bytes) { write('<', bytes); }
    void to_port(std::string_view bytes) { write('>', bytes); }
    void note(std::string_view text) { write('!', text); }

private:
    struct closer {
        void operator()(std::FILE *file) const { std::fclose(file); }
    };
    void write(char tag, std::string_view bytes);

    const timer_queue &timers_;
    std::unique_ptr<std::FILE, closer> file_;
    bool to_stderr_ = false;
};

} // namespace sim

#endif
