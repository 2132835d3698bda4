/* The log service. */
#ifndef COMMLOG_H
#define COMMLOG_H

#ifdef __cplusplus
extern "C" {
#endif

/* Names the program in the log; called once, before the first savelog. 0: done. */
int init_log_params(const char *tag);

/* Writes one line to the persistent log, formatted like printf. Level 0 is always kept; a higher
 * level is more talkative and is dropped while the configured level is below it. Any thread. */
#ifdef __GNUC__
__attribute__((format(printf, 2, 3)))
#endif
void savelog(int level, const char *format, ...);

/* Reads the configured level again. */
void reset_libcommlog_level(void);

#ifdef __cplusplus
}
#endif

#endif
