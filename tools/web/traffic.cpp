#include "traffic.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace web
{
namespace
{

using nlohmann::json;

constexpr off_t most_at_start = 256 << 10; /* bytes of an old trace that are read */
constexpr size_t most_in_line = 32 << 10;  /* what is longer is left out */
constexpr size_t least_pdu = 20;           /* hex digits */

bool is_hex(char c)
{
    return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}

/* A PDU stands alone between blanks, commas, quotes and escapes; a line end's escape ends with a letter. */
bool is_border(std::string_view text, size_t at)
{
    return at >= text.size() || std::isalnum(static_cast<unsigned char>(text[at])) == 0;
}

bool begins_alone(std::string_view text, size_t at)
{
    if (at == 0 || is_border(text, at - 1))
        return true;
    return at >= 2 && text[at - 2] == '\\' && (text[at - 1] == 'n' || text[at - 1] == 'r');
}

json pieces(std::string_view text)
{
    json out = json::array();
    std::string plain;
    for (size_t at = 0; at < text.size();) {
        size_t end = at;
        while (end < text.size() && is_hex(text[end]))
            end++;
        const size_t digits = end - at;
        if (digits >= least_pdu && digits % 2 == 0 && begins_alone(text, at) && is_border(text, end)) {
            if (!plain.empty())
                out.push_back(plain);
            plain.clear();
            out.push_back({{"pdu", text.substr(at, digits)}});
        } else {
            end = std::max(end, at + 1);
            plain += text.substr(at, end - at);
        }
        at = end;
    }
    if (!plain.empty())
        out.push_back(plain);
    return out;
}

/* The file is for tools, and the bytes in it are printable ASCII; whatever else is there must not break the JSON. */
std::string printable(std::string_view text)
{
    std::string out(text);
    std::replace_if(
        out.begin(), out.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return out;
}

} // namespace

std::optional<json> parse_traffic_line(std::string_view line)
{
    const size_t end = line.find(' ');
    if (end == std::string_view::npos || line.size() < end + 3 || line[end + 2] != ' ')
        return std::nullopt;
    const char kind = line[end + 1];
    if (std::string_view("><!?#").find(kind) == std::string_view::npos)
        return std::nullopt;
    return json{{"at", printable(line.substr(0, end))},
                {"kind", std::string(1, kind)},
                {"parts", pieces(printable(line.substr(end + 3)))}};
}

traffic::~traffic()
{
    if (fd_ >= 0)
        close(fd_);
}

/* Opens the file anew when another one has taken its place, and begins anew when it was emptied. */
bool traffic::open_file()
{
    struct stat now {
    };
    if (stat(path_.c_str(), &now) != 0 || !S_ISREG(now.st_mode))
        return fd_ >= 0; /* what was opened may still grow */
    if (fd_ >= 0 && now.st_ino == inode_ && now.st_size >= read_)
        return true;
    const bool first = fd_ < 0;
    const int fd = open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return fd_ >= 0;
    if (fd_ >= 0)
        close(fd_);
    fd_ = fd;
    inode_ = now.st_ino;
    read_ = first ? std::max<off_t>(0, now.st_size - most_at_start) : 0;
    skipping_ = read_ > 0;
    rest_.clear();
    return true;
}

void traffic::take(std::string_view line, json &fresh)
{
    std::optional<json> parsed = parse_traffic_line(line);
    if (!parsed)
        return;
    const std::lock_guard hold(lock_);
    (*parsed)["seq"] = next_++;
    lines_.push_back(*parsed);
    if (lines_.size() > most_traffic_lines)
        lines_.pop_front();
    fresh.push_back(std::move(*parsed));
}

json traffic::poll()
{
    json fresh = json::array();
    if (!there() || !open_file())
        return fresh;
    char bytes[16384];
    for (ssize_t count = 0; (count = pread(fd_, bytes, sizeof bytes, read_)) > 0;) {
        read_ += count;
        std::string_view more(bytes, static_cast<size_t>(count));
        for (size_t end = 0; (end = more.find('\n')) != std::string_view::npos; more.remove_prefix(end + 1)) {
            rest_ += more.substr(0, end);
            if (!skipping_)
                take(rest_, fresh);
            skipping_ = false;
            rest_.clear();
        }
        rest_ += more;
        if (rest_.size() > most_in_line) {
            rest_.clear();
            skipping_ = true;
        }
    }
    return fresh;
}

json traffic::after(uint64_t seq) const
{
    const std::lock_guard hold(lock_);
    json out = json::array();
    for (const json &line : lines_)
        if (line["seq"].get<uint64_t>() > seq)
            out.push_back(line);
    return out;
}

} // namespace web
