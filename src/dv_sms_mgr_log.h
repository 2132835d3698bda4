/* How the daemon reports: one idiom for every event.
 *
 * DV_TRACE  a line on standard output while `debug_mode` is set
 * DV_SAVE   a line in the platform's persistent log, level 0
 * DV_EVENT  both
 *
 * The _IN forms name the function, for a helper that speaks for the function that called it. */
#ifndef DV_SMS_MGR_LOG_H
#define DV_SMS_MGR_LOG_H

#include <stdint.h>
#include <stdio.h>

#include <atomic>

#include "commlog.h"

extern std::atomic<uint8_t> debug_mode; /* 1: started with -D */

/* A located line on standard output, whatever `debug_mode` says. The text stands in the program once
 * for this and for the log: here it is the end of the other's format. */
__attribute__((format(printf, 4, 5))) void dv_sms_mgr_print_event(const char *file, const char *function, int line,
                                                                  const char *format, ...);

#define DV_PRINT_IN(function, format, ...)                                                                             \
    dv_sms_mgr_print_event(__FILE__, function, __LINE__, format __VA_OPT__(, ) __VA_ARGS__)

#define DV_TRACE_IN(function, format, ...)                                                                             \
    do {                                                                                                               \
        if (debug_mode) [[unlikely]]                                                                                   \
            DV_PRINT_IN(function, format __VA_OPT__(, ) __VA_ARGS__);                                                  \
    } while (0)

#define DV_SAVE_IN(function, format, ...) savelog(0, "[dv_sms_mgr] %s: " format, function __VA_OPT__(, ) __VA_ARGS__)

#define DV_EVENT_IN(function, format, ...)                                                                             \
    do {                                                                                                               \
        DV_TRACE_IN(function, format __VA_OPT__(, ) __VA_ARGS__);                                                      \
        DV_SAVE_IN(function, format __VA_OPT__(, ) __VA_ARGS__);                                                       \
    } while (0)

#define DV_TRACE(format, ...) DV_TRACE_IN(__func__, format __VA_OPT__(, ) __VA_ARGS__)
#define DV_SAVE(format, ...) DV_SAVE_IN(__func__, format __VA_OPT__(, ) __VA_ARGS__)
#define DV_EVENT(format, ...) DV_EVENT_IN(__func__, format __VA_OPT__(, ) __VA_ARGS__)

#endif
