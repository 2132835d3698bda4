#include "port.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <glob.h>
#include <sys/file.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

namespace at_owner
{
namespace
{

struct speed {
    unsigned baud;
    speed_t code;
};
constexpr speed speeds[] = {
    {1200, B1200},       {2400, B2400},       {4800, B4800},     {9600, B9600},       {19200, B19200},
    {38400, B38400},     {57600, B57600},     {115200, B115200}, {230400, B230400},   {460800, B460800},
    {500000, B500000},   {576000, B576000},   {921600, B921600}, {1000000, B1000000}, {2000000, B2000000},
    {3000000, B3000000}, {4000000, B4000000},
};

const speed *find_speed(unsigned baud)
{
    const auto *found =
        std::find_if(std::begin(speeds), std::end(speeds), [baud](const speed &s) { return s.baud == baud; });
    return found == std::end(speeds) ? nullptr : found;
}

/* A path that exists as it stands is no pattern, whatever characters it has. */
std::vector<std::string> matches(const std::string &pattern)
{
    std::vector<std::string> out;
    glob_t found{};
    if (access(pattern.c_str(), F_OK) == 0)
        return {pattern};
    if (glob(pattern.c_str(), 0, nullptr, &found) == 0)
        out.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
    globfree(&found);
    return out;
}

bool set_raw(int fd, const port_settings &settings)
{
    termios t{};
    if (tcgetattr(fd, &t) != 0)
        return false;
    t.c_iflag = IGNBRK | IGNPAR;
    t.c_oflag = 0;
    t.c_lflag = 0;
    t.c_cflag &= ~static_cast<tcflag_t>(CSIZE | PARENB | CSTOPB | HUPCL | CRTSCTS);
    t.c_cflag |= static_cast<tcflag_t>(CS8 | CREAD | CLOCAL);
    if (settings.rtscts)
        t.c_cflag |= static_cast<tcflag_t>(CRTSCTS);
    t.c_cc[VMIN] = 1;
    t.c_cc[VTIME] = 0;
    const speed *wanted = find_speed(settings.baud);
    if (wanted != nullptr && (cfsetispeed(&t, wanted->code) != 0 || cfsetospeed(&t, wanted->code) != 0))
        return false;
    return tcsetattr(fd, TCSANOW, &t) == 0 && tcflush(fd, TCIOFLUSH) == 0;
}

} // namespace

bool is_known_speed(unsigned baud)
{
    return find_speed(baud) != nullptr;
}

bool port::open(std::string &reason)
{
    close();
    const std::vector<std::string> paths = matches(settings_.pattern);
    if (paths.empty())
        reason = settings_.pattern + ": no such device";
    return std::any_of(paths.begin(), paths.end(), [&](const std::string &path) { return open_device(path, reason); });
}

/* The lock keeps a second owner out; unlike TIOCEXCL it goes with the process, also from a pseudo terminal. */
bool port::open_device(const std::string &path, std::string &reason)
{
    const int fd = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        reason = path + ": " + std::strerror(errno);
        return false;
    }
    if (!isatty(fd))
        reason = path + ": not a terminal";
    else if (flock(fd, LOCK_EX | LOCK_NB) != 0)
        reason = path + ": " + (errno == EWOULDBLOCK ? "another process has it" : std::strerror(errno));
    else if (!set_raw(fd, settings_))
        reason = path + ": cannot be set up: " + std::strerror(errno);
    else {
        fd_ = fd;
        device_ = path;
        return true;
    }
    ::close(fd);
    return false;
}

void port::close()
{
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = -1;
    waiting_.clear();
}

bool port::read(std::string &bytes)
{
    char piece[4096];
    const ssize_t got = ::read(fd_, piece, sizeof piece);
    bytes.clear();
    if (got > 0)
        bytes.assign(piece, static_cast<size_t>(got));
    return got > 0 || (got < 0 && (errno == EAGAIN || errno == EINTR));
}

bool port::write(std::string_view bytes)
{
    waiting_ += bytes;
    return write_waiting();
}

bool port::write_waiting()
{
    while (!waiting_.empty()) {
        const ssize_t done = ::write(fd_, waiting_.data(), waiting_.size());
        if (done < 0 && errno == EINTR)
            continue;
        if (done < 0)
            return errno == EAGAIN;
        waiting_.erase(0, static_cast<size_t>(done));
    }
    return true;
}

void port::discard_waiting()
{
    waiting_.clear();
    if (fd_ >= 0)
        tcflush(fd_, TCOFLUSH);
}

} // namespace at_owner
