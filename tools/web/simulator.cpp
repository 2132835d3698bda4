#include "simulator.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace web
{
namespace
{

using nlohmann::json;
using clock = std::chrono::steady_clock;

constexpr size_t most_in_answer = 8 << 20;

[[noreturn]] void fail(const std::string &what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

struct connection {
    explicit connection(const std::string &path) : fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (path.size() >= sizeof address.sun_path)
            throw std::runtime_error("the control socket's path is too long");
        std::memcpy(address.sun_path, path.c_str(), path.size());
        if (fd < 0 || connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
            const int reason = errno;
            if (fd >= 0)
                close(fd);
            errno = reason;
            fail("the simulator does not answer");
        }
    }
    ~connection() { close(fd); }
    connection(const connection &) = delete;
    connection &operator=(const connection &) = delete;

    const int fd;
};

void await(int fd, short events, clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - clock::now()).count();
    pollfd watched{fd, events, 0};
    if (left <= 0 || poll(&watched, 1, static_cast<int>(left)) == 0)
        throw std::runtime_error("the simulator did not answer in time");
}

void send_all(int fd, std::string_view text, clock::time_point deadline)
{
    while (!text.empty()) {
        const ssize_t count = send(fd, text.data(), text.size(), MSG_NOSIGNAL);
        if (count > 0)
            text.remove_prefix(static_cast<size_t>(count));
        else if (errno == EAGAIN)
            await(fd, POLLOUT, deadline);
        else if (errno != EINTR)
            fail("the simulator went away");
    }
}

std::string receive_all(int fd, clock::time_point deadline)
{
    std::string out;
    char bytes[16384];
    for (;;) {
        const ssize_t count = recv(fd, bytes, sizeof bytes, 0);
        if (count == 0)
            return out;
        if (count > 0)
            out.append(bytes, static_cast<size_t>(count));
        else if (errno == EAGAIN)
            await(fd, POLLIN, deadline);
        else if (errno != EINTR)
            fail("the simulator went away");
        if (out.size() > most_in_answer)
            throw std::runtime_error("the simulator's answer is too long");
    }
}

} // namespace

std::string simulator::ask(const json &request, std::chrono::milliseconds patience) const
{
    const clock::time_point deadline = clock::now() + patience;
    const connection to(socket_);
    send_all(to.fd, request.dump(-1, ' ', false, json::error_handler_t::replace) + "\n", deadline);
    const json answer = json::parse(receive_all(to.fd, deadline), nullptr, false);
    if (!answer.is_object())
        throw std::runtime_error("the simulator went away");
    if (!answer.value("ok", false))
        throw std::runtime_error(answer.value("error", "the simulator refused"));
    return answer.value("out", "");
}

json simulator::ask_json(json request) const
{
    request["json"] = true;
    json out = json::parse(ask(request), nullptr, false);
    if (out.is_discarded())
        throw std::runtime_error("the simulator's answer is no JSON");
    return out;
}

} // namespace web
