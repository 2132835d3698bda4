/* The daemon's objects are linked with their calls of the platform renamed (platform_symbols.txt), so that a program
 * with the real platform's library can hold the codec beside it. */
#include "stand_in_platform.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "cfg.h"
#include "commlog.h"
#include "devinfo.h"
#include "flag.h"
#include "sms_msg.h"
#include "sockmsg.h"
#include "util.h"

namespace
{

std::vector<std::string> log_lines;

/* As every call that reads: at most `size` characters. */
int give(const char *value, char *buffer, int size)
{
    if (size > 0)
        std::strncpy(buffer, value, static_cast<size_t>(size));
    return 0;
}

} // namespace

namespace pdu::stand_in
{

std::vector<std::string> take_log()
{
    std::vector<std::string> out;
    out.swap(log_lines);
    return out;
}

} // namespace pdu::stand_in

extern "C" {

decltype(init_sockmsg) sms_pdu_init_sockmsg;
decltype(sockmsg_send_common_msg) sms_pdu_sockmsg_send_common_msg;
decltype(get_app_name_by_id) sms_pdu_get_app_name_by_id;
decltype(cfg_get_item) sms_pdu_cfg_get_item;
decltype(get_CFG_int) sms_pdu_get_CFG_int;
decltype(flag_get_item) sms_pdu_flag_get_item;
decltype(flag_set) sms_pdu_flag_set;
decltype(get_devinfo_value_by_id) sms_pdu_get_devinfo_value_by_id;
decltype(set_devinfo_value_by_id) sms_pdu_set_devinfo_value_by_id;
decltype(init_log_params) sms_pdu_init_log_params;
void sms_pdu_savelog(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));
decltype(reset_libcommlog_level) sms_pdu_reset_libcommlog_level;
decltype(cmd_cat) sms_pdu_cmd_cat;
decltype(cmd_echo) sms_pdu_cmd_echo;
decltype(cmd_rm) sms_pdu_cmd_rm;
decltype(util_shell) sms_pdu_util_shell;
decltype(util_get_cmd_result) sms_pdu_util_get_cmd_result;
decltype(util_replace_with_new_string_ext) sms_pdu_util_replace_with_new_string_ext;

int sms_pdu_init_sockmsg(int, sockmsg_handler, int)
{
    return -1;
}

int sms_pdu_sockmsg_send_common_msg(int, const sockmsg_record *)
{
    return -1;
}

const char *sms_pdu_get_app_name_by_id(int)
{
    return nullptr;
}

int sms_pdu_cfg_get_item(const char *, char *buffer, int size)
{
    return give("", buffer, size);
}

int sms_pdu_get_CFG_int(const char *)
{
    return 0;
}

/* A service centre is always known, so that the modem is never asked. */
int sms_pdu_flag_get_item(const char *name, char *buffer, int size)
{
    return give(std::strcmp(name, SMS_CSCA_FLAG) == 0 ? "0" : "", buffer, size);
}

int sms_pdu_flag_set(const char *, const char *)
{
    return 0;
}

/* There is a SIM and a network. */
int sms_pdu_get_devinfo_value_by_id(int, char *buffer, int size)
{
    return give("1", buffer, size);
}

int sms_pdu_set_devinfo_value_by_id(int, const char *, int)
{
    return 0;
}

int sms_pdu_init_log_params(const char *)
{
    return 0;
}

void sms_pdu_savelog(int, const char *format, ...)
{
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    log_lines.emplace_back(line);
}

void sms_pdu_reset_libcommlog_level(void) {}

int sms_pdu_cmd_cat(const char *, char *buffer, int size)
{
    return give("", buffer, size);
}

int sms_pdu_cmd_echo(const char *, const char *)
{
    return -1;
}

int sms_pdu_cmd_rm(const char *)
{
    return -1;
}

int sms_pdu_util_shell(const char *)
{
    return -1;
}

int sms_pdu_util_get_cmd_result(const char *, char *buffer, int size)
{
    return give("", buffer, size);
}

/* The daemon replaces one character by one. */
int sms_pdu_util_replace_with_new_string_ext(char *text, int capacity, const char *old_text, const char *new_text)
{
    int replaced = 0;
    for (int i = 0; i < capacity && text[i] != '\0'; i++) {
        if (text[i] != old_text[0])
            continue;
        text[i] = new_text[0];
        replaced++;
    }
    return replaced;
}
}
