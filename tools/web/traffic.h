/* What goes over the modem's port: follows the trace that the owner of the port writes. */
#ifndef SMS_WEB_TRAFFIC_H
#define SMS_WEB_TRAFFIC_H

#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

#include <nlohmann/json.hpp>

namespace web
{

inline constexpr size_t most_traffic_lines = 500;

/* One line of the trace, "TIME KIND TEXT", as {"at", "kind", "parts"}: the parts are the text in pieces, a string or
 * {"pdu": HEX}. Nothing for a line of another form. */
std::optional<nlohmann::json> parse_traffic_line(std::string_view line);

class traffic
{
public:
    /* An empty path: there is no trace. A file that is not there yet is awaited. */
    explicit traffic(std::string path) : path_(std::move(path)) {}
    ~traffic();
    traffic(const traffic &) = delete;
    traffic &operator=(const traffic &) = delete;

    bool there() const { return !path_.empty(); }

    /* Reads what was written since the last call; gives the new lines, each with its "seq". One thread. */
    nlohmann::json poll();

    /* The lines behind number `seq` that are still known. Any thread. */
    nlohmann::json after(uint64_t seq) const;

private:
    bool open_file();
    void take(std::string_view line, nlohmann::json &fresh);

    const std::string path_;
    int fd_ = -1; /* this and what follows: of the thread that polls */
    ino_t inode_ = 0;
    off_t read_ = 0;
    std::string rest_; /* a line whose end is not there yet */
    bool skipping_ = false;
    mutable std::mutex lock_; /* guards what follows */
    std::deque<nlohmann::json> lines_;
    uint64_t next_ = 1;
};

} // namespace web

#endif
