/* The HTTP server: libmicrohttpd with its limits, one thread for all connections, answers that may wait. */
#ifndef SMS_WEB_HTTP_SERVER_H
#define SMS_WEB_HTTP_SERVER_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <netinet/in.h>
#include <set>
#include <string>

#include "http.h"

struct MHD_Connection;
struct MHD_Daemon;

namespace web
{

inline constexpr size_t body_limit = 64 << 10; /* octets of a request's body */

/* An address to listen on, of either family. */
struct endpoint {
    sockaddr_storage address{};
    bool loopback = false; /* nobody but this machine can reach it */
    std::string text;      /* as it stands in a URL */
};

/* Reads an IPv4 or IPv6 address. Throws std::runtime_error for any other text. */
endpoint parse_endpoint(const std::string &address, uint16_t port);

class http_server
{
public:
    using handler = std::function<outcome(const request &)>;

    /* Listens from now on. The handler runs on the server's thread and must not wait for anything. Throws
     * std::runtime_error when the address cannot be had. */
    http_server(const endpoint &where, handler answer);
    ~http_server(); /* ends every answer that waits, then every connection */
    http_server(const http_server &) = delete;
    http_server &operator=(const http_server &) = delete;

    uint16_t port() const { return port_; }

    /* Looks again at every answer that waits. Any thread; cheap when none does. */
    void wake();

    struct exchange; /* one request on its way */

private:
    friend struct exchange;
    bool park(MHD_Connection *connection, uint64_t seen);
    bool stopping_now();

    handler answer_;
    MHD_Daemon *daemon_ = nullptr;
    uint16_t port_ = 0;
    std::atomic<uint64_t> wakes_{0};
    std::mutex lock_; /* guards what follows, and suspending against resuming */
    std::set<MHD_Connection *> parked_;
    bool stopping_ = false;
};

} // namespace web

#endif
