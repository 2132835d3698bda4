/* t750_sim, handset and modem as they are started by people and scripts. */
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "charset.h"

extern char **environ;

namespace
{

using json = nlohmann::json;

constexpr int patience = 10000; /* milliseconds for anything that must come */

struct outcome {
    int status = -1;
    std::string out, err;
};

std::string read_all(int fd)
{
    std::string text;
    char bytes[4096];
    for (ssize_t count; (count = read(fd, bytes, sizeof bytes)) > 0;)
        text.append(bytes, static_cast<size_t>(count));
    return text;
}

pid_t start(const std::vector<std::string> &command, int out, int err)
{
    std::vector<char *> arguments;
    for (const std::string &word : command)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out, 1);
    posix_spawn_file_actions_adddup2(&actions, err, 2);
    pid_t pid = -1;
    EXPECT_EQ(posix_spawn(&pid, arguments[0], &actions, nullptr, arguments.data(), environ), 0) << command[0];
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

int wait_for(pid_t pid)
{
    int status = -1;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/* Both outputs are small here, so reading one after the other cannot block. */
outcome run(const std::vector<std::string> &command)
{
    int out[2], err[2];
    EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
    EXPECT_EQ(pipe2(err, O_CLOEXEC), 0);
    const pid_t pid = start(command, out[1], err[1]);
    close(out[1]);
    close(err[1]);
    outcome result{0, read_all(out[0]), read_all(err[0])};
    result.status = wait_for(pid);
    close(out[0]);
    close(err[0]);
    return result;
}

std::string read_line(int fd)
{
    std::string line;
    for (char c; read(fd, &c, 1) == 1 && c != '\n';)
        line += c;
    return line;
}

struct directory {
    directory()
    {
        char name[] = "/tmp/t750_sim.XXXXXX";
        path = mkdtemp(name);
    }
    ~directory()
    {
        for (const char *name : {"port", "control", "trace"})
            unlink((path + "/" + name).c_str());
        rmdir(path.c_str());
    }
    std::string path;
};

struct simulation {
    explicit simulation(const std::vector<std::string> &options = {"--instant", "--no-echo"})
    {
        std::vector<std::string> command = {T750_SIM,  "--pty-link", where.path + "/port", "--control",
                                            control(), "--trace",    where.path + "/trace"};
        command.insert(command.end(), options.begin(), options.end());
        int out[2];
        EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
        pid = start(command, out[1], 2);
        close(out[1]);
        EXPECT_EQ(read_line(out[0]), "ready");
        close(out[0]);
    }

    ~simulation()
    {
        if (pid > 0)
            stop(SIGKILL);
    }

    int stop(int signal)
    {
        kill(pid, signal);
        const int status = wait_for(pid);
        pid = -1;
        return status;
    }

    std::string control() const { return where.path + "/control"; }

    outcome tool(const char *program, std::vector<std::string> words) const
    {
        words.insert(words.begin(), {program, "--control", control()});
        return run(words);
    }

    /* The output of a tool that must succeed. */
    std::string handset(const std::vector<std::string> &words) const { return must(tool(HANDSET, words)); }
    std::string modem(const std::vector<std::string> &words) const { return must(tool(MODEM, words)); }

    static std::string must(const outcome &result)
    {
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.err, "");
        return result.out;
    }

    std::string trace() const
    {
        const int file = open((where.path + "/trace").c_str(), O_RDONLY | O_CLOEXEC);
        const std::string text = read_all(file);
        close(file);
        return text;
    }

    directory where;
    pid_t pid = -1;
};

struct terminal {
    explicit terminal(const simulation &s) : fd(open((s.where.path + "/port").c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        EXPECT_GE(fd, 0) << errno;
    }
    ~terminal() { close(fd); }

    /* Reads until the text has come; what was read so far when it does not come. */
    std::string until(const std::string &text)
    {
        std::string got;
        pollfd p{fd, POLLIN, 0};
        while (got.find(text) == std::string::npos && poll(&p, 1, patience) > 0) {
            char bytes[4096];
            const ssize_t count = read(fd, bytes, sizeof bytes);
            if (count <= 0)
                break;
            got.append(bytes, static_cast<size_t>(count));
        }
        return got;
    }

    std::string at(const std::string &command, const std::string &end = "OK\r\n")
    {
        const std::string line = command + "\r";
        EXPECT_EQ(write(fd, line.data(), line.size()), static_cast<ssize_t>(line.size()));
        return until(end);
    }

    int fd;
};

TEST(programs, a_text_comes_in_and_a_text_goes_out)
{
    simulation s;
    terminal port(s);
    EXPECT_EQ(port.at("AT+CMGF=0;+CNMI=3,2,0,0,0"), "\r\nOK\r\n");
    EXPECT_EQ(s.handset({"send", "--from", "+18005551212", "--date", "2011-01-01 12:34:56", "hellohello"}),
              "1 part, gsm7, delivered\n");
    EXPECT_EQ(port.until("EC37\r\n"), "\r\n+CMT: ,28\r\n07911326040000F0040B918100551512F2000011101021436500"
                                      "0AE8329BFD4697D9EC37\r\n");
    EXPECT_EQ(port.at("AT+DORVYSMS=13,0491214365110105812143F500000802E834\x1A"), "\r\n+DORVYSMS: 1\r\n\r\nOK\r\n");
    const json inbox = json::parse(s.handset({"inbox", "--json", "--wait", "1"}));
    ASSERT_EQ(inbox.size(), 1u);
    EXPECT_EQ(inbox[0]["text"], "hi");
    EXPECT_EQ(inbox[0]["to"], "12345");
    EXPECT_EQ(s.handset({"clear"}), "");
    EXPECT_EQ(s.handset({"inbox"}), "");
}

TEST(programs, the_terminal_is_raw)
{
    simulation s;
    terminal port(s);
    termios settings{};
    ASSERT_EQ(tcgetattr(port.fd, &settings), 0);
    EXPECT_EQ(settings.c_lflag & static_cast<tcflag_t>(ECHO | ICANON | ISIG | IEXTEN), 0u);
    EXPECT_EQ(settings.c_iflag & static_cast<tcflag_t>(ICRNL | INLCR | IXON), 0u);
    EXPECT_EQ(settings.c_oflag & static_cast<tcflag_t>(OPOST), 0u);
}

TEST(programs, the_port_can_be_closed_and_opened_again)
{
    simulation s;
    for (int i = 0; i < 5; i++) {
        terminal port(s);
        EXPECT_EQ(port.at("AT+CMGF=0;+CNMI=3,2,0,0,0"), "\r\nOK\r\n");
    }
    s.modem({"status", "--wait", "open=false"});
    EXPECT_EQ(s.handset({"send", "hi"}), "1 part, gsm7, waiting: 1\n");
    terminal port(s);
    EXPECT_NE(port.at("AT", "E834\r\n").find("+CMT: ,21\r\n"), std::string::npos);
}

TEST(programs, a_port_that_nobody_opens_stays_closed)
{
    simulation s;
    for (int i = 0; i < 20; i++)
        EXPECT_EQ(json::parse(s.modem({"status", "--json"}))["open"], false);
    EXPECT_EQ(s.trace().find("port opened"), std::string::npos);
    terminal port(s);
    port.at("AT");
    EXPECT_NE(s.trace().find("port opened"), std::string::npos);
}

TEST(programs, the_modem_can_be_unplugged)
{
    simulation s;
    {
        terminal port(s);
        port.at("AT+CMGF=0;+CNMI=3,2,0,0,0");
        EXPECT_EQ(s.modem({"unplug"}), "");
        char byte;
        pollfd p{port.fd, POLLIN, 0};
        EXPECT_EQ(poll(&p, 1, patience), 1);
        EXPECT_NE(p.revents & POLLHUP, 0);
        EXPECT_LE(read(port.fd, &byte, 1), 0);
        EXPECT_NE(write(port.fd, "AT\r", 3), 3);
    }
    EXPECT_NE(access((s.where.path + "/port").c_str(), F_OK), 0);
    EXPECT_EQ(s.handset({"send", "hi"}), "1 part, gsm7, waiting: 1\n");
    const std::string device = s.modem({"plug"});
    EXPECT_TRUE(device.starts_with("/dev/pts/")) << device;
    terminal port(s);
    EXPECT_NE(port.at("AT+CNMI?", "E834\r\n").find("+CNMI: 3,2,0,0,0"), std::string::npos) << "settings are kept";
}

TEST(programs, waiting_ends_when_it_comes)
{
    simulation s;
    terminal port(s);
    int out[2];
    ASSERT_EQ(pipe2(out, O_CLOEXEC), 0);
    const pid_t waiting = start({MODEM, "--control", s.control(), "commands", "AT+CMGF", "--wait", "2"}, out[1], 2);
    close(out[1]);
    port.at("AT+CMGF=0");
    pollfd p{out[0], POLLIN, 0};
    EXPECT_EQ(poll(&p, 1, 100), 0) << "one is not two";
    port.at("AT+CMGF?");
    EXPECT_EQ(wait_for(waiting), 0);
    EXPECT_NE(read_all(out[0]).find(" AT+CMGF?\n"), std::string::npos);
    close(out[0]);
}

TEST(programs, waiting_ends_in_time)
{
    simulation s;
    const outcome late = s.tool(HANDSET, {"inbox", "--wait", "1", "--timeout", "0"});
    EXPECT_EQ(late.status, 1);
    EXPECT_EQ(late.out, "");
    EXPECT_EQ(late.err, "handset: what was waited for did not come in time\n");
}

TEST(programs, faults_from_the_command_line)
{
    simulation s;
    terminal port(s);
    s.modem({"fail", "+CMGF", "500", "--times", "1"});
    EXPECT_EQ(port.at("AT+CMGF?", "500\r\n"), "\r\n+CMS ERROR: 500\r\n");
    s.modem({"interleave", "on", "--text", "RING"});
    EXPECT_EQ(port.at("AT"), "\r\nRING\r\n\r\nOK\r\n");
    s.modem({"interleave", "off"});
    s.modem({"garble", "3"});
    EXPECT_EQ(json::parse(s.modem({"status", "--json"}))["faults"]["garble"], 3);
    s.modem({"garble", "off"});
    s.modem({"split", "on", "--delay", "1"});
    EXPECT_EQ(port.at("AT"), "\r\nOK\r\n");
    s.modem({"swallow", "1"});
    s.modem({"split", "off"});
    EXPECT_EQ(write(port.fd, "ATI\r", 4), 4);
    EXPECT_EQ(port.at("AT"), "\r\nOK\r\n");
    s.modem({"silent", "on"});
    s.modem({"silent", "off"});
    s.modem({"urc", "RING"});
    EXPECT_EQ(port.until("RING\r\n"), "\r\nRING\r\n");
    EXPECT_EQ(s.modem({"fill", "3"}), "3 of 20\n");
    EXPECT_EQ(s.modem({"storage"}).substr(0, 8), "3 of 20\n");
    s.modem({"restart"});
    EXPECT_EQ(port.until("BOOT:0\r\n"), "\r\n^BOOT:0\r\n");
}

TEST(programs, wrong_use)
{
    simulation s;
    for (const std::vector<std::string> &words : {std::vector<std::string>{},
                                                  {"dance"},
                                                  {"send"},
                                                  {"send", "--class", "x", "hi"},
                                                  {"part", "1", "2"},
                                                  {"inbox", "--nonsense"}}) {
        const outcome wrong = s.tool(HANDSET, words);
        EXPECT_EQ(wrong.status, 2);
        EXPECT_EQ(wrong.out, "");
        EXPECT_NE(wrong.err, "");
    }
    for (const std::vector<std::string> &words :
         {std::vector<std::string>{"silent"}, {"silent", "perhaps"}, {"delay", "x"}, {"garble", "-1"}})
        EXPECT_EQ(s.tool(MODEM, words).status, 2);
    const outcome refused = s.tool(HANDSET, {"send", "--alphabet", "morse", "hi"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err, "handset: alphabet is auto, gsm7, turkish, ucs2 or 8bit: morse\n");
    const outcome bytes = s.tool(HANDSET, {"send", "\xFF"});
    EXPECT_EQ(bytes.status, 1);
    EXPECT_EQ(bytes.err, "handset: an argument is not valid UTF-8\n");
}

TEST(programs, nobody_there)
{
    unsetenv("T750_SIM_CONTROL");
    const outcome none = run({HANDSET, "inbox"});
    EXPECT_EQ(none.status, 1);
    EXPECT_EQ(none.err, "handset: no control socket: give --control or set T750_SIM_CONTROL\n");
    const outcome absent = run({MODEM, "--control", "/nonexistent/socket", "status"});
    EXPECT_EQ(absent.status, 1);
    EXPECT_EQ(absent.err, "modem: /nonexistent/socket: No such file or directory\n");
    EXPECT_EQ(run({MODEM, "--control", std::string(200, 'x'), "status"}).status, 1);
}

TEST(programs, help_and_version)
{
    for (const char *program : {T750_SIM, HANDSET, MODEM}) {
        for (const char *option : {"--help", "--version"}) {
            const outcome shown = run({program, option});
            EXPECT_EQ(shown.status, 0) << program << option;
            EXPECT_NE(shown.out, "");
            EXPECT_EQ(shown.err, "");
        }
    }
    EXPECT_EQ(run({HANDSET, "send", "--help"}).status, 0);
    EXPECT_NE(run({T750_SIM}).status, 0);
}

TEST(programs, ends_cleanly)
{
    for (const int signal : {SIGTERM, SIGINT}) {
        simulation s;
        EXPECT_EQ(s.stop(signal), 0);
        EXPECT_NE(access((s.where.path + "/port").c_str(), F_OK), 0);
        struct stat found {
        };
        EXPECT_NE(lstat((s.where.path + "/port").c_str(), &found), 0);
        EXPECT_NE(lstat(s.control().c_str(), &found), 0);
    }
}

TEST(programs, takes_over_from_a_dead_one_but_not_from_a_living_one)
{
    simulation s;
    const std::vector<std::string> again = {T750_SIM, "--pty-link", s.where.path + "/port", "--control", s.control()};
    const outcome second = run(again);
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.err, "t750_sim: somebody answers on " + s.control() + " already\n");
    EXPECT_NE(s.modem({"status"}), "");
    s.stop(SIGKILL);
    int out[2];
    ASSERT_EQ(pipe2(out, O_CLOEXEC), 0);
    s.pid = start(again, out[1], 2);
    close(out[1]);
    EXPECT_EQ(read_line(out[0]), "ready");
    close(out[0]);
    EXPECT_NE(s.modem({"status"}), "");
}

TEST(programs, refuses_a_bad_start)
{
    directory where;
    const auto start_with = [&where](const std::vector<std::string> &options) {
        std::vector<std::string> command = {T750_SIM, "--pty-link", where.path + "/port", "--control",
                                            where.path + "/control"};
        command.insert(command.end(), options.begin(), options.end());
        return run(command);
    };
    EXPECT_NE(start_with({"--capacity", "-1"}).status, 0);
    EXPECT_NE(start_with({"--instant", "--delay", "5"}).status, 0);
    EXPECT_EQ(start_with({"--cnmi", "9,9"}).err, "t750_sim: --cnmi: no such settings: 9,9\n");
    EXPECT_EQ(start_with({"--number", std::string(30, '1')}).status, 1);
    EXPECT_EQ(start_with({"--trace", "/nonexistent/trace"}).status, 1);
    const int file = open((where.path + "/port").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    close(file);
    EXPECT_EQ(start_with({}).err, "t750_sim: " + where.path + "/port exists and is no symbolic link\n");
    EXPECT_EQ(access((where.path + "/port").c_str(), F_OK), 0) << "what is not ours stays";
    EXPECT_NE(access((where.path + "/control").c_str(), F_OK), 0);
}

/* Raw bytes to the control socket: an answer or a closed connection, and the simulator lives on. */
std::string ask_raw(const std::string &path, const std::string &bytes)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    shutdown(fd, SHUT_WR);
    const std::string answer = read_all(fd);
    close(fd);
    return answer;
}

TEST(programs, the_control_socket_takes_anything)
{
    simulation s;
    EXPECT_EQ(ask_raw(s.control(), "nonsense\n"), "{\"error\":\"the request is no JSON object\",\"ok\":false}\n");
    EXPECT_EQ(ask_raw(s.control(), "{\"command\":\"x\"}\n"), "{\"error\":\"unknown command: x\",\"ok\":false}\n");
    EXPECT_EQ(ask_raw(s.control(), "{\"command\":\"handset send\",\"text\":\"\xFF\"}\n"),
              "{\"error\":\"the request is no JSON object\",\"ok\":false}\n");
    EXPECT_EQ(ask_raw(s.control(), "{\"command\":7}\n"), "{\"error\":\"command is a text\",\"ok\":false}\n");
    EXPECT_EQ(ask_raw(s.control(), "no end of line"), "");
    EXPECT_EQ(ask_raw(s.control(), ""), "");
    EXPECT_EQ(ask_raw(s.control(), "{\"command\":\"modem status\",\"wait\":{\"open\":7},\"timeout\":-1}\n"),
              "{\"error\":\"timeout is a number from 0 to 86400\",\"ok\":false}\n");
    EXPECT_NE(s.modem({"status"}), "");
}

TEST(programs, the_trace_tells_why_a_message_was_refused)
{
    simulation s;
    terminal port(s);
    port.at("AT+CMGF=0");
    port.at("AT+DORVYSMS=14,0491214365110105812143F500000802E834\x1A", "304\r\n");
    const std::string trace = s.trace();
    EXPECT_NE(trace.find(" < AT+CMGF=0\\r\n"), std::string::npos) << trace;
    EXPECT_NE(trace.find(" ! submit refused: the command says 14 octets, but 13 are there\n"), std::string::npos);
    EXPECT_NE(trace.find(" > \\r\\n+CMS ERROR: 304\\r\\n\n"), std::string::npos);
}

} // namespace
