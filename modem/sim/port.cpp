#include "port.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>
#include <utility>

namespace sim
{
namespace
{

constexpr size_t most_unsent = 1 << 20;
/* Nothing tells the master that the other end is opened again; it has to look. */
constexpr timer_queue::milliseconds look_interval{10};

[[noreturn]] void fail(const std::string &what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

/* Once opened and closed, the other end counts as hung up until its next owner comes. */
void open_and_close(const std::string &device)
{
    const int fd = ::open(device.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (fd < 0)
        fail(device);
    termios settings{};
    if (tcgetattr(fd, &settings) == 0) {
        settings.c_iflag = 0;
        settings.c_oflag = 0;
        settings.c_lflag = 0;
        settings.c_cflag = (settings.c_cflag & ~static_cast<tcflag_t>(CSIZE | PARENB)) | CS8 | CREAD | CLOCAL;
        settings.c_cc[VMIN] = 1;
        settings.c_cc[VTIME] = 0;
        tcsetattr(fd, TCSANOW, &settings);
    }
    ::close(fd);
}

} // namespace

void port::make_link()
{
    struct stat found {
    };
    if (lstat(link_.c_str(), &found) == 0 && !S_ISLNK(found.st_mode))
        throw std::runtime_error(link_ + " exists and is no symbolic link");
    const std::string fresh = link_ + ".new";
    ::unlink(fresh.c_str());
    if (symlink(device_.c_str(), fresh.c_str()) != 0 || rename(fresh.c_str(), link_.c_str()) != 0)
        fail(link_);
}

void port::plug()
{
    if (plugged())
        return;
    master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master_ < 0)
        fail("cannot open a pseudo terminal");
    try {
        const char *name = nullptr;
        if (grantpt(master_) != 0 || unlockpt(master_) != 0 || (name = ptsname(master_)) == nullptr ||
            fcntl(master_, F_SETFL, O_NONBLOCK) != 0)
            fail("cannot set up a pseudo terminal");
        device_ = name;
        open_and_close(device_);
        make_link();
    } catch (...) {
        ::close(std::exchange(master_, -1));
        throw;
    }
    hung_up();
}

void port::unplug()
{
    if (!plugged())
        return;
    if (look_timer_)
        loop_.timers.cancel(*look_timer_);
    look_timer_.reset();
    loop_.unwatch(master_);
    ::unlink(link_.c_str());
    ::close(std::exchange(master_, -1));
    device_.clear();
    unsent_.clear();
    if (std::exchange(open_, false) && on_open)
        on_open(false);
}

void port::hung_up()
{
    loop_.unwatch(master_);
    unsent_.clear();
    if (std::exchange(open_, false) && on_open)
        on_open(false);
    look_timer_ = loop_.timers.after(look_interval, [this] { look_for_owner(); });
}

void port::look_for_owner()
{
    pollfd fd{master_, POLLIN, 0};
    look_timer_.reset();
    if (poll(&fd, 1, 0) > 0 && (fd.revents & POLLIN) == 0) {
        look_timer_ = loop_.timers.after(look_interval, [this] { look_for_owner(); });
        return;
    }
    open_ = true;
    if (on_open)
        on_open(true);
    watch();
}

void port::watch()
{
    const auto events = static_cast<short>(unsent_.empty() ? POLLIN : POLLIN | POLLOUT);
    loop_.watch(master_, events, [this](short revents) { handle(revents); });
}

void port::handle(short revents)
{
    if ((revents & POLLOUT) != 0 && !unsent_.empty())
        write("");
    if ((revents & (POLLIN | POLLHUP | POLLERR)) == 0)
        return;
    char bytes[4096];
    const ssize_t count = ::read(master_, bytes, sizeof bytes);
    if (count > 0 && on_bytes)
        on_bytes(std::string_view(bytes, static_cast<size_t>(count)));
    else if (count == 0 || (errno != EAGAIN && errno != EINTR))
        hung_up();
}

void port::write(std::string_view bytes)
{
    if (!open_)
        return;
    const bool waited = !unsent_.empty();
    unsent_ += bytes.substr(0, most_unsent - std::min(unsent_.size(), most_unsent));
    while (!unsent_.empty()) {
        const ssize_t count = ::write(master_, unsent_.data(), unsent_.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        unsent_.erase(0, static_cast<size_t>(count));
    }
    if (waited != !unsent_.empty())
        watch();
}

} // namespace sim
