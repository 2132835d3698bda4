/* The platform's stores of values. An empty value counts as none: the platform may not tell them apart. */
#ifndef SMS_CLIENT_VALUES_H
#define SMS_CLIENT_VALUES_H

#include <optional>
#include <string>

namespace sms_client
{

std::optional<std::string> get_cfg(const std::string &key);
std::optional<std::string> get_flag(const std::string &name);
std::optional<std::string> get_devinfo(int id);

/* 0: set; anything else: an errno. An empty flag is a cleared one. */
int set_flag(const std::string &name, const std::string &value);
int set_devinfo(int id, const std::string &value);

/* The platform's interface only reads the configuration. This writes the file in which platform/linux keeps the value,
 * at once and whole; on a router its own tools do that. */
int set_cfg(const std::string &key, const std::string &value);

/* The directory of platform/linux: DV_PLATFORM_ROOT, else "/run/dvplatform". */
std::string platform_root();

/* What the daemon makes of SYS_SMS_MAX_SAVE_SIZE: messages a box may hold. */
int box_capacity();

} // namespace sms_client

#endif
