/* A platform that answers at once and keeps nothing: what is left is the daemon's own work. */
#include <string.h>

#include "cfg.h"
#include "commlog.h"
#include "corpus.h"
#include "devinfo.h"
#include "flag.h"
#include "sockmsg.h"
#include "util.h"

extern "C" {

int init_sockmsg(int, sockmsg_handler, int)
{
    return 0;
}

int sockmsg_send_common_msg(int, const sockmsg_record *)
{
    return 0;
}

int cfg_get_item(const char *, char *, int)
{
    return 0;
}

/* The largest box. */
int get_CFG_int(const char *)
{
    return 2000;
}

/* Every flag is the service centre: the only one that the send checks read. */
int flag_get_item(const char *, char *buffer, int size)
{
    strncpy(buffer, service_centre, static_cast<size_t>(size));
    return 0;
}

/* Every item says that the network is there. */
int get_devinfo_value_by_id(int, char *buffer, int)
{
    memcpy(buffer, "Home", sizeof "Home");
    return 0;
}

void savelog(int, const char *, ...) {}

/* One character for another: all that the codec asks for. */
int util_replace_with_new_string_ext(char *text, int, const char *old_text, const char *new_text)
{
    for (char *at = text; (at = strchr(at, *old_text)) != nullptr; at++)
        *at = *new_text;
    return 0;
}
}
