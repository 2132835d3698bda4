/* Shell commands. They run with the signals as a login shell has them, whatever the program did to
 * its own, and inherit no descriptor of this library. */
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "state.h"
#include "util.h"

using dvplatform::milliseconds_now;

static constexpr int64_t result_time_limit = 60'000; /* milliseconds for a command whose output is wanted */
static constexpr int failed = -1;

static void plain_signals(posix_spawnattr_t *attributes, bool own_group)
{
    sigset_t none, usual;
    short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;

    sigemptyset(&none);
    sigemptyset(&usual);
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM, SIGCHLD, SIGUSR1, SIGUSR2})
        sigaddset(&usual, signal);
    posix_spawnattr_setsigmask(attributes, &none);
    posix_spawnattr_setsigdefault(attributes, &usual);
    if (own_group) {
        posix_spawnattr_setpgroup(attributes, 0);
        flags |= POSIX_SPAWN_SETPGROUP;
    }
    posix_spawnattr_setflags(attributes, flags);
}

/* Starts the command; its output goes to `output` unless that is negative. The process, or -1. */
static pid_t start(const char *command, int output)
{
    const char *arguments[] = {"sh", "-c", command, nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    pid_t pid = -1;

    if (posix_spawn_file_actions_init(&actions) != 0)
        return -1;
    if (posix_spawnattr_init(&attributes) == 0) {
        plain_signals(&attributes, output >= 0);
        if (output >= 0)
            posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
        if (posix_spawn(&pid, "/bin/sh", &actions, &attributes, const_cast<char **>(arguments), environ) != 0)
            pid = -1;
        posix_spawnattr_destroy(&attributes);
    }
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

static int outcome(int status)
{
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : failed;
}

static int wait_for_end(pid_t pid)
{
    int status = 0;

    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR)
            return failed;
    }
    return outcome(status);
}

/* Reads to the end of the output, so that the command never meets a closed pipe; what goes beyond
 * `size` is thrown away. False: the time was over first. */
static bool collect(int input, char *buffer, int size, int64_t deadline)
{
    const size_t room = static_cast<size_t>(size);
    size_t length = 0;
    char surplus[4096];

    for (;;) {
        const int64_t left = deadline - milliseconds_now();
        struct pollfd ready = {input, POLLIN, 0};
        if (left <= 0)
            return false;
        if (poll(&ready, 1, static_cast<int>(left)) <= 0)
            continue;
        const bool keep = length < room;
        const ssize_t got = keep ? read(input, buffer + length, room - length) : read(input, surplus, sizeof surplus);
        if (got == 0 || (got < 0 && errno != EINTR && errno != EAGAIN))
            return true;
        if (got > 0 && keep)
            length += static_cast<size_t>(got);
        if (length < room)
            buffer[length] = '\0';
    }
}

/* A command may close its output and go on. False: the time was over first. */
static bool ends_before(pid_t pid, int64_t deadline)
{
    siginfo_t information = {};

    for (long pause = 100'000; milliseconds_now() < deadline; pause = pause < 10'000'000 ? pause * 2 : pause) {
        information.si_pid = 0;
        if (waitid(P_PID, static_cast<id_t>(pid), &information, WEXITED | WNOHANG | WNOWAIT) != 0 ||
            information.si_pid == pid)
            return true;
        struct timespec time = {0, pause};
        nanosleep(&time, nullptr);
    }
    return false;
}

int util_shell(const char *command)
{
    if (!command)
        return failed;
    const pid_t pid = start(command, -1);
    return pid < 0 ? failed : wait_for_end(pid);
}

int util_get_cmd_result(const char *command, char *buffer, int size)
{
    int channel[2];

    if (!command || !buffer || size <= 0 || pipe2(channel, O_CLOEXEC) != 0)
        return failed;
    buffer[0] = '\0';
    const pid_t pid = start(command, channel[1]);
    close(channel[1]);
    if (pid < 0) {
        close(channel[0]);
        return failed;
    }
    const int64_t deadline = milliseconds_now() + result_time_limit;
    const bool in_time = collect(channel[0], buffer, size, deadline) && ends_before(pid, deadline);
    close(channel[0]);
    if (!in_time)
        kill(-pid, SIGKILL); /* the shell and all that it started */
    const int result = wait_for_end(pid);
    return in_time ? result : failed;
}
