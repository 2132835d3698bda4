/* Shell commands. */
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "flag.h"
#include "sandbox.h"
#include "util.h"

class shell : public sandbox
{
};

static std::string output_of(const std::string &command)
{
    char buffer[4096 + 1] = {};

    util_get_cmd_result(command.c_str(), buffer, 4096);
    return buffer;
}

TEST_F(shell, runs_a_command_and_gives_back_its_exit_status)
{
    EXPECT_EQ(0, util_shell(("mkdir -p " + path("a/b")).c_str()));
    EXPECT_EQ(0, util_shell(("test -d " + path("a/b")).c_str()));
    EXPECT_EQ(7, util_shell("exit 7"));
    EXPECT_EQ(127, util_shell("/no/such/program 2>/dev/null"));
    EXPECT_EQ(128 + SIGKILL, util_shell("kill -KILL $$"));
    EXPECT_EQ(-1, util_shell(nullptr));
}

TEST_F(shell, the_result_is_verbatim)
{
    EXPECT_EQ("3\n", output_of("echo 3"));
    EXPECT_EQ("a\n\nb\r\n", output_of("printf 'a\\n\\nb\\r\\n'"));
    EXPECT_EQ("", output_of("true"));
    EXPECT_EQ("", output_of("echo nothing of this >&2 2>/dev/null >/dev/null"));
}

TEST_F(shell, the_result_is_0_only_when_the_command_succeeded)
{
    char buffer[16 + 1] = "before";

    EXPECT_EQ(0, util_get_cmd_result("echo x", buffer, 16));
    EXPECT_EQ(5, util_get_cmd_result("echo y; exit 5", buffer, 16));
    EXPECT_STREQ("y\n", buffer) << "what it wrote is there";
    EXPECT_EQ(128 + SIGTERM, util_get_cmd_result("kill -TERM $$", buffer, 16));
    EXPECT_STREQ("", buffer);
}

TEST_F(shell, the_result_stays_within_the_size_and_is_terminated_where_there_is_room)
{
    const std::string text = "0123456789\n";

    for (size_t size = 1; size <= text.size() + 2; size++) {
        std::string buffer(size + 2, '#');
        EXPECT_EQ(0, util_get_cmd_result("echo 0123456789", buffer.data() + 1, static_cast<int>(size)));
        EXPECT_EQ('#', buffer.front());
        EXPECT_EQ('#', buffer.back());
        const size_t length = std::min(size, text.size());
        EXPECT_EQ(text.substr(0, length), buffer.substr(1, length));
        if (length < size) {
            EXPECT_EQ('\0', buffer[1 + length]) << size;
        }
    }
}

TEST_F(shell, output_in_pieces_is_put_together)
{
    EXPECT_EQ("onetwothree", output_of("printf one; sleep 0.02; printf two; sleep 0.02; printf three"));
}

TEST_F(shell, a_command_that_writes_too_much_still_ends_as_it_would)
{
    char buffer[6] = {};
    const std::string command = "head -c 300000 /dev/zero | tr '\\0' x; echo $? >" + path("end") + "; exit 4";

    EXPECT_EQ(4, util_get_cmd_result(command.c_str(), buffer, 5));
    EXPECT_STREQ("xxxxx", buffer);
    EXPECT_EQ("0\n", read_text(path("end")));
}

TEST_F(shell, bad_arguments_are_errors_and_run_nothing)
{
    char buffer[4] = "###";
    const std::string command = "echo x >" + path("ran");

    EXPECT_EQ(-1, util_get_cmd_result(nullptr, buffer, 3));
    EXPECT_EQ(-1, util_get_cmd_result(command.c_str(), nullptr, 3));
    EXPECT_EQ(-1, util_get_cmd_result(command.c_str(), buffer, 0));
    EXPECT_EQ(-1, util_get_cmd_result(command.c_str(), buffer, -1));
    EXPECT_STREQ("###", buffer);
    EXPECT_EQ("(none)", read_text(path("ran")));
}

TEST_F(shell, the_command_has_the_usual_signals_whatever_the_program_did)
{
    sigset_t all, before;

    const auto old_pipe = signal(SIGPIPE, SIG_IGN), old_term = signal(SIGTERM, SIG_IGN);
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const int by_term = util_shell("kill -TERM $$; exit 0");
    const int by_pipe = util_shell("kill -PIPE $$; exit 0");
    char buffer[4];
    const int by_hangup = util_get_cmd_result("kill -HUP $$; exit 0", buffer, 4);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    signal(SIGPIPE, old_pipe);
    signal(SIGTERM, old_term);
    EXPECT_EQ(128 + SIGTERM, by_term);
    EXPECT_EQ(128 + SIGPIPE, by_pipe);
    EXPECT_EQ(128 + SIGHUP, by_hangup);
}

TEST_F(shell, the_programs_own_signals_are_left_alone)
{
    struct sigaction interrupt = {}, child = {};
    sigset_t mask;

    util_shell("true");
    sigaction(SIGINT, nullptr, &interrupt);
    sigaction(SIGCHLD, nullptr, &child);
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(SIG_DFL, interrupt.sa_handler);
    EXPECT_EQ(SIG_DFL, child.sa_handler);
    EXPECT_EQ(0, sigismember(&mask, SIGCHLD));
}

static constexpr char count_descriptors[] = "ls /proc/self/fd | wc -l";

TEST_F(shell, commands_of_other_threads_inherit_nothing)
{
    const std::string usual = plainly(count_descriptors), large(60000, 'x');
    std::vector<char> buffer(large.size());
    std::thread others[2];
    std::atomic<unsigned> commands{0}, wrong{0};

    for (std::thread &other : others) {
        other = std::thread([&] {
            for (int i = 0; i < 60; i++, commands++)
                wrong += output_of(count_descriptors) != usual ? 1 : 0;
        });
    }
    while (commands < 120) { /* a file is open in this thread for most of the time */
        flag_set("F", large.c_str());
        for (int i = 0; i < 20; i++)
            flag_get_item("F", buffer.data(), static_cast<int>(buffer.size()));
    }
    for (std::thread &other : others)
        other.join();
    EXPECT_EQ(0u, wrong);
}

TEST_F(shell, a_command_that_ends_leaves_no_zombie)
{
    output_of("echo x");
    util_shell("true");
    EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG));
    EXPECT_EQ(ECHILD, errno);
}

#ifdef FAST_TIME_LIBRARY
/* What the library makes of a command in a process whose time runs forty times as fast. */
static std::string in_fast_time(const std::string &command)
{
    return plainly("LD_PRELOAD=" FAST_TIME_LIBRARY " FAST_TIME=40 "
                   "ASAN_OPTIONS=$ASAN_OPTIONS:verify_asan_link_order=0 " SHELL_PROBE " '" +
                   command + "'");
}

TEST_F(shell, a_command_that_never_ends_is_killed_with_all_it_started)
{
    EXPECT_EQ("-1 begun\n", in_fast_time("echo begun; (echo $$ >" + path("pid") + "; exec sleep 600) & wait"));
    EXPECT_EQ("-1 closed\n", in_fast_time("echo closed; exec >&-; sleep 600"));

    const pid_t group = atoi(read_text(path("pid")).c_str());
    ASSERT_GT(group, 1);
    for (int i = 0; i < 500 && kill(-group, 0) == 0; i++)
        usleep(10000); /* whoever adopts what was killed has to notice */
    EXPECT_EQ(-1, kill(-group, 0)) << "something of the command lives on";
}
#endif
