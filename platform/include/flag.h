/* The flag store: named values that do not outlive the power. */
#ifndef FLAG_H
#define FLAG_H

#ifdef __cplusplus
extern "C" {
#endif

/* Copies the flag's value into `buffer`, at most `size` characters; a value that fills all of them
 * is not terminated. An unset flag may leave the buffer as it was, or empty it. 0: read. */
int flag_get_item(const char *name, char *buffer, int size);

/* Sets the flag to a copy of `value`; the empty text clears it. 0: set. */
int flag_set(const char *name, const char *value);

#ifdef __cplusplus
}
#endif

#endif
