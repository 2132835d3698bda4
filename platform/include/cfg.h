/* The configuration store: text values under text keys. */
#ifndef CFG_H
#define CFG_H

#ifdef __cplusplus
extern "C" {
#endif

/* Copies the value of `key` into `buffer`, at most `size` characters; a value that fills all of
 * them is not terminated. An unset key may leave the buffer as it was, or empty it. 0: read. */
int cfg_get_item(const char *key, char *buffer, int size);

/* The value of `key` as a decimal integer; 0 when it is unset. */
int get_CFG_int(const char *key);

#ifdef __cplusplus
}
#endif

#endif
