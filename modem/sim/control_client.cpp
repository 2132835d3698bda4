#include "control_client.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace sim
{
namespace
{

constexpr int exit_failed = 1, exit_wrong_use = 2;

[[noreturn]] void fail(const std::string &what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

int connect_to(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty())
        throw std::runtime_error("no control socket: give --control or set T750_SIM_CONTROL");
    if (path.size() >= sizeof address.sun_path)
        throw std::runtime_error("the control socket's path is too long: " + path);
    std::memcpy(address.sun_path, path.c_str(), path.size());
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        fail(path);
    return fd;
}

std::string exchange(int fd, std::string request)
{
    while (!request.empty()) {
        const ssize_t count = send(fd, request.data(), request.size(), MSG_NOSIGNAL);
        if (count < 0 && errno != EINTR)
            fail("cannot ask");
        if (count > 0)
            request.erase(0, static_cast<size_t>(count));
    }
    std::string answer;
    char bytes[65536];
    for (;;) {
        const ssize_t count = recv(fd, bytes, sizeof bytes, 0);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            fail("no answer");
        if (count == 0)
            return answer;
        answer.append(bytes, static_cast<size_t>(count));
    }
}

int ask(const std::string &socket, const nlohmann::json &request)
{
    std::string line;
    try {
        line = request.dump() + "\n";
    } catch (const nlohmann::json::exception &) {
        throw std::runtime_error("an argument is not valid UTF-8");
    }
    const int fd = connect_to(socket);
    const auto answer = nlohmann::json::parse(exchange(fd, line), nullptr, false);
    close(fd);
    if (!answer.is_object())
        throw std::runtime_error("the simulator went away");
    if (!answer.value("ok", false))
        throw std::runtime_error(answer.value("error", "refused"));
    const std::string out = answer.value("out", "");
    if (std::fwrite(out.data(), 1, out.size(), stdout) != out.size() || std::fflush(stdout) != 0)
        fail("cannot print");
    return 0;
}

} // namespace

client_command::client_command(const char *tool, const char *purpose) : app(purpose, tool)
{
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", DV_VERSION);
    app.add_option("--control", socket, "The simulator's control socket")->envname("T750_SIM_CONTROL");
}

CLI::App *client_command::add(const char *name, const char *purpose)
{
    CLI::App *sub = app.add_subcommand(name, purpose);
    sub->callback([this, name] { request["command"] = app.get_name() + " " + name; });
    return sub;
}

CLI::Option *client_command::text(CLI::App *to, const char *option, const char *field, const char *purpose)
{
    return to->add_option_function<std::string>(
        option, [this, field](const std::string &value) { request[field] = value; }, purpose);
}

CLI::Option *client_command::number(CLI::App *to, const char *option, const char *field, const char *purpose)
{
    return to->add_option_function<long>(
        option, [this, field](const long &value) { request[field] = value; }, purpose);
}

CLI::Option *client_command::flag(CLI::App *to, const char *option, const char *field, const char *purpose)
{
    return to->add_flag_callback(
        option, [this, field] { request[field] = true; }, purpose);
}

CLI::Option *client_command::choice(CLI::App *to, const char *field, const char *yes, const char *no,
                                    const char *purpose)
{
    const std::string word = yes;
    return to
        ->add_option_function<std::string>(
            "state", [this, field, word](const std::string &value) { request[field] = value == word; }, purpose)
        ->required()
        ->check(CLI::IsMember({yes, no}));
}

int client_command::run(int argc, char **argv)
{
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &outcome) {
        return app.exit(outcome) == 0 ? 0 : exit_wrong_use;
    }
    return ask(socket, request);
}

int run_client(const char *tool, const char *purpose, void (*describe)(client_command &), int argc, char **argv)
{
    try {
        client_command command(tool, purpose);
        describe(command);
        return command.run(argc, argv);
    } catch (const std::exception &reason) {
        std::fprintf(stderr, "%s: %s\n", tool, reason.what());
        return exit_failed;
    }
}

} // namespace sim
