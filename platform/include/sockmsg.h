/* The local message bus: one fixed record type, one module number a process. */
#ifndef SOCKMSG_H
#define SOCKMSG_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { SOCKMSG_PAYLOAD_SIZE = 4096 };

typedef struct {
    uint32_t msg_id;
    uint32_t reserved;
    uint32_t length;
    uint8_t payload[SOCKMSG_PAYLOAD_SIZE]; /* text in it need not be terminated */
    uint32_t sender_module_id;             /* stamped by the sending library */
    uint32_t sender_extra;
} sockmsg_record; /* little-endian */

/* Called on a thread of the bus library's own, one record at a time. The record belongs to the
 * library and is valid only until the handler returns. */
typedef int (*sockmsg_handler)(sockmsg_record *record);

/* Joins the bus as `module_id`; from then on `handler` gets every record addressed to it.
 * 0: joined; anything else: not. */
int init_sockmsg(int module_id, sockmsg_handler handler, int flags);

/* Sends a copy of one record to a module; the caller keeps its own. 0: sent. Never blocks for long. */
int sockmsg_send_common_msg(int module_id, const sockmsg_record *record);

/* The module's name for traces; static storage, may be null for an unknown module. */
const char *get_app_name_by_id(int module_id);

#ifdef __cplusplus
}

static_assert(sizeof(sockmsg_record) == 4116 && offsetof(sockmsg_record, payload) == 12 &&
              offsetof(sockmsg_record, sender_module_id) == 4108 && offsetof(sockmsg_record, sender_extra) == 4112);
#endif

#endif
