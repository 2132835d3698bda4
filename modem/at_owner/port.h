/* The serial device or pseudo terminal behind which the modem is. */
#ifndef AT_OWNER_PORT_H
#define AT_OWNER_PORT_H

#include <string>
#include <string_view>

namespace at_owner
{

struct port_settings {
    std::string pattern; /* a path, a link or a pattern (glob): the first match that can be opened is taken */
    unsigned baud = 115200;
    bool rtscts = false;
};

bool is_known_speed(unsigned baud);

class port
{
public:
    explicit port(port_settings settings) : settings_(std::move(settings)) {}
    ~port() { close(); }
    port(const port &) = delete;
    port &operator=(const port &) = delete;

    /* True: open, raw, empty. False: `reason` says why not. */
    bool open(std::string &reason);
    void close();
    bool is_open() const { return fd_ >= 0; }
    int fd() const { return fd_; }
    const std::string &device() const { return device_; }

    /* What has come, at most one piece; false when the device is gone. */
    bool read(std::string &bytes);

    /* Takes the bytes to be written; they go out as the device takes them. False when the device is gone. */
    bool write(std::string_view bytes);
    bool write_waiting();
    bool has_waiting() const { return !waiting_.empty(); }

    /* Forgets what has not gone out yet. */
    void discard_waiting();

private:
    bool open_device(const std::string &path, std::string &reason);

    port_settings settings_;
    std::string device_, waiting_;
    int fd_ = -1;
};

} // namespace at_owner

#endif
