/* The device-information store: text values under numbers. */
#ifndef DEVINFO_H
#define DEVINFO_H

#ifdef __cplusplus
extern "C" {
#endif

/* The items that concern short messages. */
enum {
    DEVINFO_SIM_READY = 301001,         /* "1": the SIM is present and ready; "0": absent */
    DEVINFO_NETWORK_STATE = 301002,     /* empty or "Unkown" (spelled so): not registered */
    DEVINFO_SMS_UNREAD = 306001,        /* "1": there are unread received messages */
    DEVINFO_SMS_RECEIVED_FULL = 306002, /* "1": the box holds as many messages as it may */
    DEVINFO_SMS_SENT_FULL = 306003,
    DEVINFO_SMS_DRAFT_FULL = 306004
};

/* Copies the item's value into `buffer`, at most `size` characters; a value that fills all of them
 * is not terminated. An unset item may leave the buffer as it was, or empty it. 0: read. */
int get_devinfo_value_by_id(int id, char *buffer, int size);

/* Sets the item to the first `length` characters of `value`. 0: set. */
int set_devinfo_value_by_id(int id, const char *value, int length);

#ifdef __cplusplus
}
#endif

#endif
