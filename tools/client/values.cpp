#include "values.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <sys/stat.h>
#include <vector>

#include "cfg.h"
#include "devinfo.h"
#include "flag.h"
#include "util.h"

namespace sms_client
{
namespace
{

constexpr int most_value = 65536;
constexpr size_t most_key = 128;
constexpr int default_capacity = 500, most_capacity = 2000;

/* The platform may fill a buffer without a terminator, and may leave it alone. */
template <typename Read> std::optional<std::string> get(Read read)
{
    std::vector<char> buffer(most_value + 1);
    if (read(buffer.data(), most_value) != 0 || buffer[0] == '\0')
        return std::nullopt;
    return std::string(buffer.data());
}

bool is_key(const std::string &key)
{
    return !key.empty() && key.size() <= most_key && key.front() != '.' &&
           std::all_of(key.begin(), key.end(), [](unsigned char c) { return c >= ' ' && c != 0x7F && c != '/'; });
}

} // namespace

std::optional<std::string> get_cfg(const std::string &key)
{
    return get([&key](char *buffer, int size) { return cfg_get_item(key.c_str(), buffer, size); });
}

std::optional<std::string> get_flag(const std::string &name)
{
    return get([&name](char *buffer, int size) { return flag_get_item(name.c_str(), buffer, size); });
}

std::optional<std::string> get_devinfo(int id)
{
    return get([id](char *buffer, int size) { return get_devinfo_value_by_id(id, buffer, size); });
}

int set_flag(const std::string &name, const std::string &value)
{
    return flag_set(name.c_str(), value.c_str());
}

int set_devinfo(int id, const std::string &value)
{
    return set_devinfo_value_by_id(id, value.c_str(), static_cast<int>(value.size()));
}

std::string platform_root()
{
    const char *root = std::getenv("DV_PLATFORM_ROOT");
    return root != nullptr && *root != '\0' ? root : "/run/dvplatform";
}

/* One line feed at the end of such a file is not part of the value. */
int set_cfg(const std::string &key, const std::string &value)
{
    const std::string directory = platform_root() + "/cfg";
    struct stat status {
    };
    if (!is_key(key))
        return EINVAL;
    if (stat(platform_root().c_str(), &status) != 0)
        return ENOENT;
    if (mkdir(directory.c_str(), 0770) != 0 && errno != EEXIST)
        return errno;
    const std::string content = value.ends_with('\n') ? value + '\n' : value;
    return cmd_echo(content.c_str(), (directory + "/" + key).c_str()) == 0 ? 0 : EIO;
}

int box_capacity()
{
    const int set = get_CFG_int("SYS_SMS_MAX_SAVE_SIZE");
    return set < 1 || set > most_capacity ? default_capacity : set;
}

} // namespace sms_client
