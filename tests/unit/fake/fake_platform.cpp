#include "fake/fake_platform.h"

#include <gtest/gtest.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "at_msg.h"
#include "cfg.h"
#include "commlog.h"
#include "devinfo.h"
#include "fake/fake_modem.h"
#include "flag.h"
#include "util.h"

namespace fake
{

using guard = std::lock_guard<std::recursive_mutex>;

std::string visible(std::string_view text)
{
    std::string out;

    for (const char c : text) {
        char code[8];

        if (c == '\r') {
            out += "\\r";
        } else if (c == '\n') {
            out += "\\n";
        } else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
            snprintf(code, sizeof code, "\\x%02X", static_cast<unsigned>(c));
            out += code;
        } else {
            out += c;
        }
    }
    return out;
}

platform &the_platform()
{
    static auto *only = new platform; /* outlives every thread that may still call */
    return *only;
}

void platform::reset()
{
    guard hold(lock);
    cfg_store.clear();
    flag_store.clear();
    devinfo_store.clear();
    read_modes_.clear();
    results_.clear();
    bus_results_.clear();
    app_names_.clear();
    null_names_ = false;
    calls_.clear();
    sent_.clear();
    handler_ = nullptr;
    hook_ = nullptr;
}

/* --- the stores --- */

static std::string value_of(const std::map<std::string, std::string> &store, const std::string &key)
{
    const auto found = store.find(key);
    return found == store.end() ? "(unset)" : found->second;
}

void platform::set_cfg(const std::string &key, const std::string &value)
{
    guard hold(lock);
    cfg_store[key] = value;
}

void platform::unset_cfg(const std::string &key)
{
    guard hold(lock);
    cfg_store.erase(key);
}

void platform::set_flag(const std::string &name, const std::string &value)
{
    guard hold(lock);
    flag_store[name] = value;
}

void platform::unset_flag(const std::string &name)
{
    guard hold(lock);
    flag_store.erase(name);
}

void platform::set_devinfo(int id, const std::string &value)
{
    guard hold(lock);
    devinfo_store[std::to_string(id)] = value;
}

void platform::unset_devinfo(int id)
{
    guard hold(lock);
    devinfo_store.erase(std::to_string(id));
}

std::string platform::cfg(const std::string &key)
{
    guard hold(lock);
    return value_of(cfg_store, key);
}

std::string platform::flag(const std::string &name)
{
    guard hold(lock);
    return value_of(flag_store, name);
}

std::string platform::devinfo(int id)
{
    guard hold(lock);
    return value_of(devinfo_store, std::to_string(id));
}

/* --- switches --- */

void platform::set_read_mode(const std::string &function, const read_mode &mode)
{
    guard hold(lock);
    read_modes_[function] = mode;
}

void platform::set_read_mode(const read_mode &mode)
{
    for (const char *function :
         {"cfg_get_item", "flag_get_item", "get_devinfo_value_by_id", "cmd_cat", "util_get_cmd_result"})
        set_read_mode(function, mode);
}

void platform::set_result(const std::string &function, int result)
{
    guard hold(lock);
    results_[function] = result;
}

void platform::clear_result(const std::string &function)
{
    guard hold(lock);
    results_.erase(function);
}

void platform::set_bus_result(int module_id, int result)
{
    guard hold(lock);
    bus_results_[module_id] = result;
}

void platform::set_app_name(int module_id, const std::string &name)
{
    guard hold(lock);
    app_names_[module_id] = name;
}

void platform::set_null_app_names(bool null_names)
{
    guard hold(lock);
    null_names_ = null_names;
}

bool platform::overridden(const char *function, int *result)
{
    guard hold(lock);
    const auto found = results_.find(function);

    if (found == results_.end())
        return false;
    *result = found->second;
    return true;
}

/* --- what happened --- */

void platform::set_hook(std::function<void(const std::string &)> hook)
{
    guard hold(lock);
    hook_ = std::move(hook);
}

static thread_local std::string own_last_call; /* of this thread; others may have called since */

void platform::record(const std::string &line)
{
    std::function<void(const std::string &)> hook;
    {
        guard hold(lock);
        calls_.push_back(line);
        hook = hook_;
    }
    if (hook)
        hook(line);
    own_last_call = line; /* the hook may have called, too */
}

std::vector<std::string> platform::calls()
{
    guard hold(lock);
    return calls_;
}

std::vector<std::string> platform::calls(std::initializer_list<std::string_view> functions)
{
    guard hold(lock);
    std::vector<std::string> chosen;

    for (const std::string &line : calls_) {
        const std::string_view word = std::string_view(line).substr(0, line.find(' '));
        if (std::find(functions.begin(), functions.end(), word) != functions.end())
            chosen.push_back(line);
    }
    return chosen;
}

/* The rest of every line that begins so. */
static std::vector<std::string> behind(const std::vector<std::string> &lines, const std::string &prefix)
{
    std::vector<std::string> rest;

    for (const std::string &line : lines)
        if (line.compare(0, prefix.size(), prefix) == 0)
            rest.push_back(line.substr(prefix.size()));
    return rest;
}

std::vector<std::string> platform::saved()
{
    return behind(calls(), "savelog ");
}

std::vector<std::string> platform::commands()
{
    return behind(calls(), "bus " + std::to_string(AT_MODULE_ID) + " ");
}

int platform::count(const std::string &line)
{
    guard hold(lock);
    return static_cast<int>(std::count(calls_.begin(), calls_.end(), line));
}

void platform::forget()
{
    guard hold(lock);
    calls_.clear();
    sent_.clear();
}

std::vector<std::pair<int, sockmsg_record>> platform::sent()
{
    guard hold(lock);
    return sent_;
}

/* --- reads into a caller's buffer --- */

/* These are primed with what is to be taken for an unset value. */
static bool may_be_primed(const std::string &call)
{
    for (const char *primed : {"flag_get_item DV_SMS_MGR_LAST_RECEIVED_MSG ", "flag_get_item DV_SMS_MGR_LAST_ERR_CODE ",
                               "cfg_get_item SYS_REBOOT_WHEN_MODEM_UNORMAL "})
        if (call.compare(0, strlen(primed), primed) == 0)
            return true;
    return false;
}

std::vector<std::string> platform::unclean_reads()
{
    guard hold(lock);
    std::vector<std::string> all;

    all.swap(unclean_reads_);
    return all;
}

int platform::fill(const char *function, const std::string *value, char *buffer, int size)
{
    guard hold(lock);
    const read_mode mode = read_modes_[function];

    if (size <= 0 || buffer == nullptr)
        return -1;
    const auto room = static_cast<size_t>(size);
    if (std::any_of(buffer, buffer + room, [](char c) { return c != '\0'; }) && !may_be_primed(own_last_call))
        unclean_reads_.push_back(own_last_call);
    if (value == nullptr) {
        if (mode.empties_unset)
            buffer[0] = '\0';
        return mode.unset_result;
    }
    if (value->size() < room) {
        if (mode.scribbles)
            memset(buffer, 0xA5, room);
        memcpy(buffer, value->c_str(), value->size() + 1);
    } else if (mode.fills_all) {
        memcpy(buffer, value->data(), room);
    } else {
        memcpy(buffer, value->data(), room - 1);
        buffer[room - 1] = '\0';
    }
    return 0;
}

int platform::read(const char *function, const std::map<std::string, std::string> &store, const std::string &key,
                   char *buffer, int size)
{
    int result;

    record(std::string(function) + " " + key + " " + std::to_string(size));
    guard hold(lock);
    if (overridden(function, &result))
        return result;
    const auto found = store.find(key);
    return fill(function, found == store.end() ? nullptr : &found->second, buffer, size);
}

/* --- the bus --- */

void platform::set_handler(sockmsg_handler taker)
{
    guard hold(lock);
    handler_ = taker;
}

sockmsg_handler platform::handler()
{
    guard hold(lock);
    return handler_;
}

const char *platform::app_name(int module_id)
{
    guard hold(lock);
    const auto found = app_names_.find(module_id);

    if (found != app_names_.end())
        return name_pool_.insert(found->second).first->c_str();
    if (null_names_)
        return nullptr;
    return name_pool_.insert("module" + std::to_string(module_id)).first->c_str();
}

int platform::send(int module_id, const sockmsg_record *sent)
{
    std::string line = "bus " + std::to_string(module_id) + " ";
    at_request request = {};

    if (module_id == AT_MODULE_ID) {
        memcpy(&request, sent, sizeof request);
        line += visible(std::string(request.text, strnlen(request.text, sizeof request.text)));
    } else {
        line += std::to_string(sent->msg_id);
    }
    record(line);
    {
        guard hold(lock);
        const auto found = bus_results_.find(module_id);
        if (found != bus_results_.end() && found->second != 0)
            return found->second;
        sent_.emplace_back(module_id, *sent);
    }
    return module_id == AT_MODULE_ID ? the_modem().take(request) : 0;
}

} // namespace fake

/* --- the C interface --- */

extern "C" FILE *__real_fopen(const char *path, const char *mode); /* the platform's own files are not the daemon's */

using fake::the_platform;
using fake::visible;

static std::string quoted(const char *text)
{
    return text == nullptr ? "(null)" : "\"" + visible(text) + "\"";
}

/* Only the scratch directory is a test's to touch. */
static bool inside_scratch(const char *path)
{
    const bool inside = path != nullptr && path[0] != '/' && strstr(path, "..") == nullptr;

    EXPECT_TRUE(inside) << "a path outside the scratch directory: " << (path == nullptr ? "(null)" : path);
    return inside;
}

static bool harmless_command(const char *command)
{
    const bool harmless = command != nullptr && strstr(command, " /") == nullptr && strstr(command, "..") == nullptr;

    EXPECT_TRUE(harmless) << "a command outside the scratch directory: " << (command == nullptr ? "(null)" : command);
    return harmless;
}

static int read_stream(const char *function, FILE *stream, char *buffer, int size)
{
    std::string content;

    for (int c = fgetc(stream); c != EOF; c = fgetc(stream))
        content += static_cast<char>(c);
    return the_platform().fill(function, &content, buffer, size);
}

int init_sockmsg(int module_id, sockmsg_handler handler, int flags)
{
    int result;

    the_platform().record("init_sockmsg " + std::to_string(module_id) + " " + std::to_string(flags));
    if (the_platform().overridden("init_sockmsg", &result))
        return result;
    the_platform().set_handler(handler);
    return 0;
}

int sockmsg_send_common_msg(int module_id, const sockmsg_record *record)
{
    return the_platform().send(module_id, record);
}

const char *get_app_name_by_id(int module_id)
{
    the_platform().record("get_app_name_by_id " + std::to_string(module_id));
    return the_platform().app_name(module_id);
}

int cfg_get_item(const char *key, char *buffer, int size)
{
    return the_platform().read("cfg_get_item", the_platform().cfg_store, key, buffer, size);
}

int get_CFG_int(const char *key)
{
    the_platform().record(std::string("get_CFG_int ") + key);
    return atoi(the_platform().cfg(key).c_str());
}

int flag_get_item(const char *name, char *buffer, int size)
{
    return the_platform().read("flag_get_item", the_platform().flag_store, name, buffer, size);
}

int flag_set(const char *name, const char *value)
{
    int result;

    the_platform().record(std::string("flag_set ") + name + " " + quoted(value));
    if (the_platform().overridden("flag_set", &result))
        return result;
    the_platform().set_flag(name, value);
    return 0;
}

int get_devinfo_value_by_id(int id, char *buffer, int size)
{
    return the_platform().read("get_devinfo_value_by_id", the_platform().devinfo_store, std::to_string(id), buffer,
                               size);
}

int set_devinfo_value_by_id(int id, const char *value, int length)
{
    int result;

    the_platform().record("set_devinfo_value_by_id " + std::to_string(id) + " " + quoted(value) + " " +
                          std::to_string(length));
    if (the_platform().overridden("set_devinfo_value_by_id", &result))
        return result;
    the_platform().set_devinfo(id, std::string(value, strnlen(value, static_cast<size_t>(std::max(length, 0)))));
    return 0;
}

int init_log_params(const char *tag)
{
    int result = 0;

    the_platform().record(std::string("init_log_params ") + tag);
    the_platform().overridden("init_log_params", &result);
    return result;
}

void savelog(int level, const char *format, ...)
{
    va_list arguments;

    va_start(arguments, format);
    const int length = vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    std::string text(static_cast<size_t>(std::max(length, 0)) + 1, '\0');
    va_start(arguments, format);
    vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    text.pop_back();
    the_platform().record("savelog " + std::to_string(level) + " " + visible(text));
}

void reset_libcommlog_level(void)
{
    the_platform().record("reset_libcommlog_level");
}

int cmd_cat(const char *path, char *buffer, int size)
{
    int result;

    the_platform().record(std::string("cmd_cat ") + path + " " + std::to_string(size));
    if (the_platform().overridden("cmd_cat", &result))
        return result;
    FILE *file = inside_scratch(path) ? __real_fopen(path, "r") : nullptr;
    if (file == nullptr)
        return the_platform().fill("cmd_cat", nullptr, buffer, size);
    result = read_stream("cmd_cat", file, buffer, size);
    fclose(file);
    return result;
}

int cmd_echo(const char *text, const char *path)
{
    int result;

    the_platform().record("cmd_echo " + quoted(text) + " " + path);
    if (the_platform().overridden("cmd_echo", &result))
        return result;
    FILE *file = inside_scratch(path) ? __real_fopen(path, "w") : nullptr;
    if (file == nullptr)
        return -1;
    result = fputs(text, file) < 0 ? -1 : 0;
    return fclose(file) == 0 ? result : -1;
}

int cmd_rm(const char *path)
{
    int result;

    the_platform().record(std::string("cmd_rm ") + path);
    if (the_platform().overridden("cmd_rm", &result))
        return result;
    return inside_scratch(path) ? unlink(path) : -1;
}

int util_shell(const char *command)
{
    int result;

    the_platform().record(std::string("util_shell ") + command);
    if (the_platform().overridden("util_shell", &result))
        return result;
    return harmless_command(command) ? system(command) : -1;
}

int util_get_cmd_result(const char *command, char *buffer, int size)
{
    int result;

    the_platform().record("util_get_cmd_result " + std::to_string(size) + " " + command);
    if (the_platform().overridden("util_get_cmd_result", &result))
        return result;
    FILE *output = harmless_command(command) ? popen(command, "r") : nullptr;
    if (output == nullptr)
        return the_platform().fill("util_get_cmd_result", nullptr, buffer, size);
    result = read_stream("util_get_cmd_result", output, buffer, size);
    pclose(output);
    return result;
}

int util_replace_with_new_string_ext(char *text, int capacity, const char *old_text, const char *new_text)
{
    int result;

    the_platform().record("util_replace_with_new_string_ext " + std::to_string(capacity) + " " + quoted(text) + " " +
                          quoted(old_text) + " " + quoted(new_text));
    if (the_platform().overridden("util_replace_with_new_string_ext", &result))
        return result;
    std::string changed(text);
    for (size_t at = changed.find(old_text); at != std::string::npos;
         at = changed.find(old_text, at + strlen(new_text)))
        changed.replace(at, strlen(old_text), new_text);
    if (changed.size() > strlen(text) && changed.size() >= static_cast<size_t>(capacity)) /* only growth is bounded */
        changed.resize(std::max(strlen(text), static_cast<size_t>(capacity) - 1));
    memcpy(text, changed.c_str(), changed.size() + 1);
    return 0;
}
