#include "run_program.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace web
{
namespace
{

using clock = std::chrono::steady_clock;

struct pipe_ends {
    pipe_ends()
    {
        if (pipe2(ends.data(), O_CLOEXEC) != 0)
            throw std::runtime_error(std::string("no pipe: ") + std::strerror(errno));
    }
    ~pipe_ends()
    {
        close_one(0);
        close_one(1);
    }
    pipe_ends(const pipe_ends &) = delete;
    pipe_ends &operator=(const pipe_ends &) = delete;

    void close_one(size_t which)
    {
        if (ends[which] >= 0)
            close(ends[which]);
        ends[which] = -1;
    }

    std::array<int, 2> ends{-1, -1};
};

/* Killed and reaped however we leave. */
struct child {
    explicit child(pid_t number) : pid(number) {}
    ~child()
    {
        if (pid > 0) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
    }
    child(const child &) = delete;
    child &operator=(const child &) = delete;

    pid_t pid;
};

pid_t start(const std::vector<std::string> &arguments, const pipe_ends &out, const pipe_ends &err)
{
    std::vector<char *> words;
    for (const std::string &argument : arguments)
        words.push_back(const_cast<char *>(argument.c_str()));
    words.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out.ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err.ends[1], STDERR_FILENO);
    pid_t pid = 0;
    const int error = posix_spawn(&pid, words[0], &actions, nullptr, words.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw std::runtime_error(arguments[0] + ": " + std::strerror(error));
    return pid;
}

int milliseconds_left(clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - clock::now()).count();
    if (left <= 0)
        throw std::runtime_error("the program did not end in time");
    return static_cast<int>(left);
}

/* Reads what is there; closes the end at the end. */
void read_some(pipe_ends &from, std::string &into, size_t most)
{
    char bytes[8192];
    const ssize_t count = read(from.ends[0], bytes, sizeof bytes);
    if (count > 0)
        into.append(bytes, static_cast<size_t>(count));
    else if (count == 0 || errno != EINTR)
        from.close_one(0);
    if (into.size() > most)
        throw std::runtime_error("the program says too much");
}

void read_both(pipe_ends &out, pipe_ends &err, program_end &into, clock::time_point deadline, size_t most)
{
    while (out.ends[0] >= 0 || err.ends[0] >= 0) {
        std::array<pollfd, 2> watched{{{out.ends[0], POLLIN, 0}, {err.ends[0], POLLIN, 0}}};
        if (poll(watched.data(), watched.size(), milliseconds_left(deadline)) < 0 && errno != EINTR)
            throw std::runtime_error(std::strerror(errno));
        if (watched[0].revents != 0)
            read_some(out, into.out, most);
        if (watched[1].revents != 0)
            read_some(err, into.err, most);
    }
}

int await_end(child &which, clock::time_point deadline)
{
    int status = 0;
    for (;;) {
        const pid_t ended = waitpid(which.pid, &status, WNOHANG);
        if (ended == which.pid) {
            which.pid = 0;
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        milliseconds_left(deadline);
        poll(nullptr, 0, 2);
    }
}

} // namespace

program_end run_program(const std::vector<std::string> &arguments, std::chrono::milliseconds patience, size_t most)
{
    const clock::time_point deadline = clock::now() + patience;
    pipe_ends out, err;
    child running(start(arguments, out, err));
    out.close_one(1);
    err.close_one(1);
    program_end end;
    read_both(out, err, end, deadline, most);
    end.status = await_end(running, deadline);
    return end;
}

} // namespace web
