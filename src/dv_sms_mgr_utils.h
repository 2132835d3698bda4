/* The queues between the bus thread and the workers, and the logger of raw AT data. */
#ifndef DV_SMS_MGR_UTILS_H
#define DV_SMS_MGR_UTILS_H

#include <pthread.h>
#include <stdint.h>

#include "sockmsg.h"

/* Requests to send, oldest first; unbounded, kept short by push_sms_into_queue. */
struct sms_send_node {
    sockmsg_record record;
    sms_send_node *next;
};

struct sms_send_list {
    sms_send_node *first;
    sms_send_node *last;
    int32_t count;
};

extern sms_send_list *g_sms_send_head; /* guarded by sms_send_lock */

enum { SMS_SEND_QUEUE_LIMIT = 60 }; /* a request is refused while more than these wait */

/* A new empty list, or null when memory is short. */
sms_send_list *list_create();

/* A new node with a copy of the record, or null when memory is short. */
sms_send_node *list_node_create(const sockmsg_record *record);

/* Appends a node, which the list then owns. 1: appended; 0: no node. */
int list_join(sms_send_node *node, sms_send_list *head);

/* Takes the oldest record off the list and frees its node. 1: taken; 0: the list is empty. */
int list_pop(sms_send_list *head, sockmsg_record *record);

/* Queues a copy of the record for the send thread; the caller keeps its own. Any thread.
 * 1: queued; 0: refused, too many wait; -1: no record or no memory. */
int push_sms_into_queue(const sockmsg_record *record);

/* The receive rings: filled by the bus thread, drained by the receive thread. Their storage is
 * allocated once, before the first indication is taken. */
enum { SMS_RING_SIZE = 50 };

struct sms_index_ring {
    uint32_t *slots; /* SMS_RING_SIZE storage indexes */
    int32_t read, write, count;
    pthread_mutex_t lock; /* guards all of it */
};

struct sms_pdu_ring {
    char **slots; /* SMS_RING_SIZE texts, owned by the ring while they wait */
    int32_t read, write, count;
    pthread_mutex_t lock; /* guards all of it */
};

extern sms_index_ring sms_index_queue;
extern sms_pdu_ring sms_pdu_queue;

/* 0: queued; -1: the ring is full and the index is lost. */
int util_enqueue(uint32_t index);

/* 0: the oldest index is taken; -1: empty. */
int util_dequeue(uint32_t *index);

/* Queues a copy of the hex text of a PDU. 0: queued; -1: full or no memory, and the text is lost. */
int util_enqueue_pdu(const char *text);

/* Takes the oldest text into `buffer` of `size` (at least 1) bytes, terminated. 0: taken; -1: empty. */
int util_dequeue_pdu(char *buffer, int size);

/* Logs one line of raw AT data: escaped to standard output while tracing, else as it is to the
 * persistent log at level 3 and to standard output. */
void dv_sms_mgr_log_data(const char *prefix, const char *text);

#endif
