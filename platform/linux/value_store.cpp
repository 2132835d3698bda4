/* The configuration, flag and device-information stores: one value a file. A value that is set is
 * the file's content; one line feed at the end of a file belongs to the hand that edited it. */
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <string_view>

#include "cfg.h"
#include "devinfo.h"
#include "flag.h"
#include "state.h"
#include "utf8.h"

using namespace dvplatform;

static constexpr size_t key_limit = 128;
static constexpr size_t value_limit = 65536;

static bool is_key(const char *key)
{
    if (!key || *key == '\0' || *key == '.' || strnlen(key, key_limit + 1) > key_limit)
        return false;
    for (; *key; key++) {
        if (*key == '/' || static_cast<unsigned char>(*key) < ' ' || *key == 0x7F)
            return false;
    }
    return true;
}

static int load_value(const char *folder, const char *key, std::string *value)
{
    if (!is_key(key))
        return EINVAL;

    const int error = read_file(state_path(folder, key).c_str(), value_limit + 1, value);
    if (!error && !value->empty() && value->back() == '\n')
        value->pop_back();
    return error;
}

static int get_value(const char *folder, const char *key, char *buffer, int size)
{
    std::string value;

    if (!buffer || size <= 0)
        return EINVAL;
    const int error = load_value(folder, key, &value);
    if (!error || error == ENOENT) /* what is unset reads as empty: a caller may have primed its buffer */
        copy_out(value, buffer, size);
    return error;
}

static int open_new(const std::string &path)
{
    return open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, file_mode);
}

/* The stores that can be set here do not outlive the power, so nothing waits for a disk. */
static int set_value(const char *folder, const char *key, std::string_view value)
{
    if (!is_key(key))
        return EINVAL;
    if (value.size() > value_limit)
        return EMSGSIZE;

    const std::string temporary = state_path(folder, temporary_name(key));
    int fd = open_new(temporary);
    if (fd < 0 && errno == ENOENT) {
        const int error = make_state_folder(folder);
        if (error)
            return error;
        fd = open_new(temporary);
    }
    if (fd < 0)
        return errno;
    share_file(fd, temporary, file_mode);

    std::string content(value);
    if (!content.empty() && content.back() == '\n')
        content += '\n'; /* so that reading takes away this one */
    return fill_and_rename(fd, temporary, state_path(folder, key), content, false);
}

int cfg_get_item(const char *key, char *buffer, int size)
{
    return get_value("cfg", key, buffer, size);
}

int get_CFG_int(const char *key)
{
    std::string value;
    char *end = nullptr;

    if (load_value("cfg", key, &value) != 0)
        return 0;
    errno = 0;
    const long number = strtol(value.c_str(), &end, 10);
    if (end == value.c_str() || errno != 0 || number != static_cast<int>(number))
        return 0;
    end += strspn(end, " \t\r\n");
    return *end == '\0' ? static_cast<int>(number) : 0;
}

int flag_get_item(const char *name, char *buffer, int size)
{
    return get_value("flag", name, buffer, size);
}

int flag_set(const char *name, const char *value)
{
    return value ? set_value("flag", name, value) : EINVAL;
}

int get_devinfo_value_by_id(int id, char *buffer, int size)
{
    return id < 0 ? EINVAL : get_value("devinfo", std::to_string(id).c_str(), buffer, size);
}

int set_devinfo_value_by_id(int id, const char *value, int length)
{
    if (id < 0 || !value || length < 0)
        return EINVAL;
    return set_value("devinfo", std::to_string(id).c_str(), {value, strnlen(value, static_cast<size_t>(length))});
}
