#include "control_server.h"

#include <cerrno>
#include <cstring>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "control_commands.h"

namespace sim
{
namespace
{

constexpr size_t most_in_request = 4 << 20;
constexpr long most_seconds = 86400;

[[noreturn]] void fail(const std::string &what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

sockaddr_un address_of(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path)
        throw std::runtime_error("the control socket's path is empty or too long: " + path);
    std::memcpy(address.sun_path, path.c_str(), path.size());
    return address;
}

int open_socket()
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0)
        fail("cannot make a socket");
    return fd;
}

/* Takes a dead one's place; a living one keeps it. */
void clear_path(const std::string &path, const sockaddr_un &address)
{
    struct stat found {
    };
    if (lstat(path.c_str(), &found) != 0)
        return;
    if (!S_ISSOCK(found.st_mode))
        throw std::runtime_error(path + " exists and is no socket");
    const int fd = open_socket();
    const bool answers = connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    close(fd);
    if (answers)
        throw std::runtime_error("somebody answers on " + path + " already");
    unlink(path.c_str());
}

std::string success(const std::string &out)
{
    return one_line({{"ok", true}, {"out", out}});
}

std::string failure(const std::string &why)
{
    return one_line({{"ok", false}, {"error", why}});
}

} // namespace

struct control_server::connection {
    explicit connection(int descriptor) : fd(descriptor) {}

    const int fd;
    std::string in, out;
    json request;
    const control_command *command = nullptr;
    std::optional<timer_queue::id> timer;
    bool waiting = false; /* for what the request waits for */
};

control_server::control_server(simulator &sim, std::string path) : sim_(sim), path_(std::move(path))
{
    const sockaddr_un address = address_of(path_);
    clear_path(path_, address);
    listener_ = open_socket();
    const mode_t mask = umask(0177);
    const bool bound = bind(listener_, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    umask(mask);
    if (!bound || listen(listener_, SOMAXCONN) != 0) {
        const int reason = errno;
        close(listener_);
        errno = reason;
        fail(path_);
    }
    sim_.loop.watch(listener_, POLLIN, [this](short) { accept_one(); });
    sim_.loop.after_round = [this] { check_waiting(); };
}

control_server::~control_server()
{
    while (!connections_.empty())
        drop(connections_.front());
    sim_.loop.unwatch(listener_);
    sim_.loop.after_round = nullptr;
    close(listener_);
    unlink(path_.c_str());
}

void control_server::accept_one()
{
    const int fd = accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0)
        return;
    connections_.emplace_back(fd);
    connection &fresh = connections_.back();
    sim_.loop.watch(fd, POLLIN, [this, &fresh](short) { read_from(fresh); });
}

void control_server::drop(connection &which)
{
    if (which.timer)
        sim_.loop.timers.cancel(*which.timer);
    sim_.loop.unwatch(which.fd);
    close(which.fd);
    connections_.remove_if([&which](const connection &c) { return &c == &which; });
}

void control_server::read_from(connection &from)
{
    char bytes[65536];
    const ssize_t count = recv(from.fd, bytes, sizeof bytes, 0);
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (count <= 0 || from.in.size() > most_in_request) {
        drop(from);
        return;
    }
    if (from.waiting)
        return;
    from.in.append(bytes, static_cast<size_t>(count));
    const size_t end = from.in.find('\n');
    if (end == std::string::npos)
        return;
    from.request = json::parse(from.in.substr(0, end), nullptr, false);
    from.in.clear();
    start(from);
}

void control_server::start(connection &asker)
{
    try {
        if (!asker.request.is_object())
            throw control_error("the request is no JSON object");
        const std::string name = text_field(asker.request, "command");
        asker.command = find_control(name);
        if (asker.command == nullptr)
            throw control_error("unknown command: " + name);
        const long seconds = number_field(asker.request, "timeout", 10, 0, most_seconds);
        if (asker.command->ready != nullptr && asker.request.contains("wait")) {
            asker.waiting = true;
            asker.timer = sim_.loop.timers.after(std::chrono::seconds(seconds), [this, &asker] {
                asker.timer.reset();
                reply(asker, failure("what was waited for did not come in time"));
            });
            return; /* looked at after this round */
        }
        reply(asker, success(asker.command->run(sim_, asker.request)));
    } catch (const std::exception &reason) {
        reply(asker, failure(reason.what()));
    }
}

void control_server::check_waiting()
{
    for (auto next = connections_.begin(); next != connections_.end();) {
        connection &asker = *next++;
        if (!asker.waiting)
            continue;
        try {
            if (asker.command->ready(sim_, asker.request))
                reply(asker, success(asker.command->run(sim_, asker.request)));
        } catch (const std::exception &reason) {
            reply(asker, failure(reason.what()));
        }
    }
}

void control_server::reply(connection &to, std::string text)
{
    to.waiting = false;
    to.out = std::move(text);
    sim_.loop.watch(to.fd, POLLOUT, [this, &to](short) { write_to(to); });
}

void control_server::write_to(connection &to)
{
    const ssize_t count = send(to.fd, to.out.data(), to.out.size(), MSG_NOSIGNAL);
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (count > 0)
        to.out.erase(0, static_cast<size_t>(count));
    if (count <= 0 || to.out.empty())
        drop(to);
}

} // namespace sim
