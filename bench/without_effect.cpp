/* What neither of the platforms here does anything for. */
#include "cfg.h"
#include "commlog.h"
#include "devinfo.h"
#include "flag.h"
#include "sockmsg.h"
#include "util.h"

extern "C" {

const char *get_app_name_by_id(int)
{
    return "";
}

int flag_set(const char *, const char *)
{
    return 0;
}

int set_devinfo_value_by_id(int, const char *, int)
{
    return 0;
}

int init_log_params(const char *)
{
    return 0;
}

void reset_libcommlog_level() {}

int cmd_cat(const char *, char *, int)
{
    return 0;
}

int cmd_echo(const char *, const char *)
{
    return 0;
}

int cmd_rm(const char *)
{
    return 0;
}

int util_shell(const char *)
{
    return 0;
}

int util_get_cmd_result(const char *, char *, int)
{
    return 0;
}
}
