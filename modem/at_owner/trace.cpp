#include "trace.h"

#include <ctime>
#include <fcntl.h>
#include <unistd.h>

namespace at_owner
{

std::string escaped(std::string_view text)
{
    constexpr char digits[] = "0123456789ABCDEF";
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\r')
            out += "\\r";
        else if (c == '\n')
            out += "\\n";
        else if (c == '\\')
            out += "\\\\";
        else if (byte >= ' ' && byte < 0x7F)
            out += c;
        else
            out += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
    }
    return out;
}

trace::~trace()
{
    if (file_ != nullptr)
        std::fclose(file_);
}

/* Numbers and texts go there: it is for its owner and group only. */
bool trace::open(const std::string &path)
{
    const int fd = path == "-" ? dup(STDERR_FILENO)
                               : ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0640);
    if (fd < 0)
        return false;
    file_ = fdopen(fd, "a");
    if (file_ == nullptr)
        ::close(fd);
    return file_ != nullptr;
}

void trace::item(char kind, std::string_view text)
{
    if (file_ == nullptr)
        return;
    struct timespec now {
    };
    struct tm utc {
    };
    char when[32];
    clock_gettime(CLOCK_REALTIME, &now);
    gmtime_r(&now.tv_sec, &utc);
    std::strftime(when, sizeof when, "%Y-%m-%dT%H:%M:%S", &utc);
    std::fprintf(file_, "%s.%03ldZ %c %s\n", when, now.tv_nsec / 1000000, kind, escaped(text).c_str());
    std::fflush(file_);
}

} // namespace at_owner
