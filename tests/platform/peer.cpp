#include "peer.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

static void make_pipe(int (&ends)[2])
{
    if (pipe2(ends, O_CLOEXEC) != 0)
        abort();
}

peer::peer(int module_id, const std::string &handler, const std::function<bool()> &prepare)
{
    const std::string module = std::to_string(module_id);
    int in[2], out[2], err[2];

    make_pipe(in);
    make_pipe(out);
    make_pipe(err);
    pid = fork();
    if (pid == 0) {
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        if (prepare())
            execl(BUS_PEER, "bus_peer", module.c_str(), handler.c_str(), nullptr);
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    input = in[1];
    output = out[0];
    error_output = err[0];
}

peer::~peer()
{
    kill();
    const std::string complaints = errors();
    EXPECT_EQ(std::string::npos, complaints.find("Sanitizer")) << complaints;
    close(input);
    close(output);
    close(error_output);
}

std::string peer::next_line()
{
    using clock = std::chrono::steady_clock;
    const auto deadline = clock::now() + std::chrono::seconds(20);
    size_t end;

    while ((end = unread.find('\n')) == std::string::npos) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - clock::now()).count();
        struct pollfd ready = {output, POLLIN, 0};
        char text[4096];
        if (left <= 0 || poll(&ready, 1, static_cast<int>(left)) <= 0)
            return "(nothing)";
        const ssize_t got = read(output, text, sizeof text);
        if (got <= 0)
            return "(nothing)";
        unread.append(text, static_cast<size_t>(got));
    }
    std::string line = unread.substr(0, end);
    unread.erase(0, end + 1);
    return line;
}

int peer::joined()
{
    int result = -1;

    return sscanf(next_line().c_str(), "joined %d", &result) == 1 ? result : -1;
}

std::string peer::errors()
{
    std::string all;
    char text[4096];

    for (ssize_t got; (got = read(error_output, text, sizeof text)) > 0;)
        all.append(text, static_cast<size_t>(got));
    return all;
}

void peer::command(const std::string &text)
{
    const std::string line = text + "\n";

    if (write(input, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
        abort();
}

void peer::signal(int number)
{
    if (pid > 0)
        ::kill(pid, number);
}

void peer::kill()
{
    if (pid <= 0)
        return;
    ::kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    pid = -1;
}
