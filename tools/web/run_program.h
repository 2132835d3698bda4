/* Runs another program to its end, with bounds on its time and its output. */
#ifndef SMS_WEB_RUN_PROGRAM_H
#define SMS_WEB_RUN_PROGRAM_H

#include <chrono>
#include <string>
#include <vector>

namespace web
{

struct program_end {
    int status = -1; /* what it ended with; -1 when a signal ended it */
    std::string out; /* its standard output */
    std::string err; /* its standard error */
};

/* `arguments[0]` is the program's path; no shell is in between. It reads nothing. What still runs after `patience` or
 * prints more than `most` bytes is killed. Throws std::runtime_error then, and when it cannot be started. Any thread.
 */
program_end run_program(const std::vector<std::string> &arguments, std::chrono::milliseconds patience, size_t most);

} // namespace web

#endif
