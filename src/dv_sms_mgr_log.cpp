#include "dv_sms_mgr_log.h"

#include <stdarg.h>

enum { TRACE_SIZE = 8192 }; /* longer than any text that is traced, a whole record's included */

void dv_sms_mgr_print_event(const char *file, const char *function, int line, const char *format, ...)
{
    char text[TRACE_SIZE];
    va_list arguments;

    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    printf("%s--%s--%d: %s\n", file, function, line, text); /* at once: lines of several threads stay apart */
}
