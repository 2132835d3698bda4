#include "http_server.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

#include <microhttpd.h>

namespace web
{
namespace
{

constexpr unsigned connection_limit = 64;
constexpr unsigned idle_seconds = 30;          /* a connection on which nothing moves is closed after them */
constexpr size_t connection_memory = 32 << 10; /* request line and headers must fit into it */
constexpr size_t stream_block = 8 << 10;
constexpr int backlog = 64;

using response_pointer = std::unique_ptr<MHD_Response, decltype(&MHD_destroy_response)>;

response_pointer make_response(const response &what)
{
    /* The library does not write to a buffer that it is to copy. */
    auto *const bytes = const_cast<char *>(what.body.data());
    return {MHD_create_response_from_buffer(what.body.size(), bytes, MHD_RESPMEM_MUST_COPY), MHD_destroy_response};
}

void add_headers(MHD_Response *to, const response &what)
{
    if (!what.type.empty())
        MHD_add_response_header(to, MHD_HTTP_HEADER_CONTENT_TYPE, what.type.c_str());
    for (const auto &[name, value] : what.headers)
        MHD_add_response_header(to, name.c_str(), value.c_str());
}

std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

MHD_Result take_header(void *cls, MHD_ValueKind, const char *name, const char *value)
{
    /* The first of a name counts, so that nothing behind it can replace what was checked. */
    static_cast<request *>(cls)->headers.emplace(lower(name), value != nullptr ? value : "");
    return MHD_YES;
}

MHD_Result take_query(void *cls, MHD_ValueKind, const char *name, const char *value)
{
    static_cast<request *>(cls)->query.emplace(name, value != nullptr ? value : "");
    return MHD_YES;
}

} // namespace

/* One request on its way: the library calls step() until an answer is queued. */
struct http_server::exchange {
    exchange(http_server &server, MHD_Connection *connection) : server_(server), connection_(connection) {}

    /* The headers are there. */
    MHD_Result begin(const char *url, const char *method)
    {
        asked_.method = std::strcmp(method, MHD_HTTP_METHOD_HEAD) == 0 ? MHD_HTTP_METHOD_GET : method;
        asked_.path = url;
        MHD_get_connection_values(connection_, MHD_HEADER_KIND, take_header, &asked_);
        MHD_get_connection_values(connection_, MHD_GET_ARGUMENT_KIND, take_query, &asked_);
        const std::string *length = asked_.header("content-length");
        if (length != nullptr && std::strtoull(length->c_str(), nullptr, 10) > body_limit)
            return queue(refusal(413, "too-large", "The request is too large."));
        return MHD_YES;
    }

    /* A piece of the body. What is larger than it said is cut off. */
    MHD_Result take(const char *data, size_t *size)
    {
        if (asked_.body.size() + *size > body_limit)
            return MHD_NO;
        asked_.body.append(data, *size);
        *size = 0;
        return MHD_YES;
    }

    MHD_Result step()
    {
        if (!wait_) {
            outcome result = answer();
            if (auto *now = std::get_if<response>(&result))
                return queue(*now);
            if (auto *without_end = std::get_if<endless>(&result))
                return queue_stream(*without_end);
            wait_ = std::get<later>(result);
        }
        for (;;) {
            const uint64_t seen = server_.wakes_;
            if (const std::optional<response> ready = wait_())
                return queue(*ready);
            if (server_.park(connection_, seen))
                return MHD_YES;
            if (server_.stopping_now())
                return MHD_NO;
        }
    }

private:
    outcome answer()
    {
        try {
            return server_.answer_(asked_);
        } catch (const std::exception &reason) {
            std::cerr << "sms_web: " << asked_.method << ' ' << asked_.path << ": " << reason.what() << '\n';
            return refusal(500, "internal", "Something went wrong inside the server; its log says what.");
        }
    }

    MHD_Result queue(const response &what)
    {
        const response_pointer made = make_response(what);
        if (!made)
            return MHD_NO;
        add_headers(made.get(), what);
        return MHD_queue_response(connection_, static_cast<unsigned>(what.status), made.get());
    }

    MHD_Result queue_stream(endless &what)
    {
        next_ = std::move(what.next);
        const response_pointer made(
            MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, stream_block, read_stream, this, nullptr),
            MHD_destroy_response);
        if (!made)
            return MHD_NO;
        add_headers(made.get(), what.head);
        return MHD_queue_response(connection_, static_cast<unsigned>(what.head.status), made.get());
    }

    static ssize_t read_stream(void *cls, uint64_t, char *out, size_t size)
    {
        auto &self = *static_cast<exchange *>(cls);
        while (self.ahead_.empty()) {
            const uint64_t seen = self.server_.wakes_;
            std::optional<std::string> more = self.next_();
            if (!more)
                return MHD_CONTENT_READER_END_OF_STREAM;
            self.ahead_ = std::move(*more);
            if (!self.ahead_.empty())
                break;
            if (self.server_.park(self.connection_, seen))
                return 0;
            if (self.server_.stopping_now())
                return MHD_CONTENT_READER_END_OF_STREAM;
        }
        const size_t count = std::min(size, self.ahead_.size());
        std::memcpy(out, self.ahead_.data(), count);
        self.ahead_.erase(0, count);
        return static_cast<ssize_t>(count);
    }

    http_server &server_;
    MHD_Connection *const connection_;
    request asked_;
    later wait_;                                       /* the answer is being waited for */
    std::function<std::optional<std::string>()> next_; /* of an endless answer */
    std::string ahead_;                                /* what the library had no room for yet */
};

namespace
{

MHD_Result on_request(void *cls, MHD_Connection *connection, const char *url, const char *method, const char *,
                      const char *data, size_t *size, void **context)
{
    auto *const server = static_cast<http_server *>(cls);
    if (*context == nullptr) {
        auto *const fresh = new (std::nothrow) http_server::exchange(*server, connection);
        *context = fresh;
        return fresh != nullptr ? fresh->begin(url, method) : MHD_NO;
    }
    auto *const going = static_cast<http_server::exchange *>(*context);
    return *size > 0 ? going->take(data, size) : going->step();
}

void on_completed(void *, MHD_Connection *, void **context, MHD_RequestTerminationCode)
{
    delete static_cast<http_server::exchange *>(*context);
    *context = nullptr;
}

} // namespace

namespace
{

/* The library would let two servers share a port, and each of them get some of the requests. */
struct listening_socket {
    explicit listening_socket(const endpoint &where)
        : fd(socket(where.address.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
    {
        const int on = 1;
        const bool v6 = where.address.ss_family == AF_INET6;
        const socklen_t size = v6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
        const bool good = fd >= 0 && setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
                          (!v6 || setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on) == 0) &&
                          bind(fd, reinterpret_cast<const sockaddr *>(&where.address), size) == 0 &&
                          listen(fd, backlog) == 0;
        if (good)
            return;
        const int reason = errno;
        if (fd >= 0)
            close(fd);
        throw std::runtime_error("cannot listen on " + where.text + " port " + std::to_string(port_of(where.address)) +
                                 ": " + std::strerror(reason) +
                                 (reason == EADDRINUSE ? "; --port takes another one, 0 any that is free" : ""));
    }
    ~listening_socket()
    {
        if (fd >= 0)
            close(fd);
    }
    listening_socket(const listening_socket &) = delete;
    listening_socket &operator=(const listening_socket &) = delete;

    uint16_t port() const
    {
        sockaddr_storage bound{};
        socklen_t size = sizeof bound;
        getsockname(fd, reinterpret_cast<sockaddr *>(&bound), &size);
        return port_of(bound);
    }

    static uint16_t port_of(const sockaddr_storage &address)
    {
        return ntohs(address.ss_family == AF_INET6 ? reinterpret_cast<const sockaddr_in6 &>(address).sin6_port
                                                   : reinterpret_cast<const sockaddr_in &>(address).sin_port);
    }

    int fd;
};

} // namespace

endpoint parse_endpoint(const std::string &address, uint16_t port)
{
    endpoint out;
    auto *const v4 = reinterpret_cast<sockaddr_in *>(&out.address);
    auto *const v6 = reinterpret_cast<sockaddr_in6 *>(&out.address);
    if (inet_pton(AF_INET, address.c_str(), &v4->sin_addr) == 1) {
        v4->sin_family = AF_INET;
        v4->sin_port = htons(port);
        out.loopback = ntohl(v4->sin_addr.s_addr) >> 24 == 127;
        out.text = address;
    } else if (inet_pton(AF_INET6, address.c_str(), &v6->sin6_addr) == 1) {
        v6->sin6_family = AF_INET6;
        v6->sin6_port = htons(port);
        out.loopback = IN6_IS_ADDR_LOOPBACK(&v6->sin6_addr);
        out.text = '[' + address + ']';
    } else {
        throw std::runtime_error("not an IPv4 or IPv6 address: " + address);
    }
    return out;
}

http_server::http_server(const endpoint &where, handler answer) : answer_(std::move(answer))
{
    listening_socket socket(where);
    port_ = socket.port();
    unsigned flags = MHD_USE_AUTO_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ITC;
    if (where.address.ss_family == AF_INET6)
        flags |= MHD_USE_IPv6;
    daemon_ = MHD_start_daemon(flags, 0, nullptr, nullptr, on_request, this, MHD_OPTION_LISTEN_SOCKET, socket.fd,
                               MHD_OPTION_NOTIFY_COMPLETED, on_completed, nullptr, MHD_OPTION_CONNECTION_LIMIT,
                               connection_limit, MHD_OPTION_CONNECTION_TIMEOUT, idle_seconds,
                               MHD_OPTION_CONNECTION_MEMORY_LIMIT, connection_memory, MHD_OPTION_END);
    if (daemon_ == nullptr)
        throw std::runtime_error("the server did not start");
    socket.fd = -1; /* the library's from now on */
}

http_server::~http_server()
{
    {
        const std::lock_guard hold(lock_);
        stopping_ = true;
    }
    wake();
    MHD_stop_daemon(daemon_);
}

void http_server::wake()
{
    const std::lock_guard hold(lock_);
    wakes_++;
    for (MHD_Connection *connection : parked_)
        MHD_resume_connection(connection);
    parked_.clear();
}

bool http_server::stopping_now()
{
    const std::lock_guard hold(lock_);
    return stopping_;
}

/* Lets the connection sleep until the next wake. False when there was one since `seen`, or the server stops. */
bool http_server::park(MHD_Connection *connection, uint64_t seen)
{
    const std::lock_guard hold(lock_);
    if (stopping_ || wakes_ != seen)
        return false;
    MHD_suspend_connection(connection);
    parked_.insert(connection);
    return true;
}

} // namespace web
