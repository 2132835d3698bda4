/* File, shell and text helpers. */
#ifndef UTIL_H
#define UTIL_H

#ifdef __cplusplus
extern "C" {
#endif

/* Reads at most `size` characters of a file into `buffer`; a file that fills all of them leaves
 * no terminator. A missing file may leave the buffer as it was, or empty it. */
int cmd_cat(const char *path, char *buffer, int size);

/* Makes `text`, as it stands, the whole content of a file. 0: written. */
int cmd_echo(const char *text, const char *path);

/* Removes a file. 0: removed. */
int cmd_rm(const char *path);

/* Runs a finished shell command line. */
int util_shell(const char *command);

/* Runs a finished shell command line and reads at most `size` characters of its standard output
 * into `buffer`, verbatim; output that fills all of them is not terminated. */
int util_get_cmd_result(const char *command, char *buffer, int size);

/* Replaces every `old_text` in `text` by `new_text`, in place, within `capacity` characters. */
int util_replace_with_new_string_ext(char *text, int capacity, const char *old_text, const char *new_text);

#ifdef __cplusplus
}
#endif

#endif
