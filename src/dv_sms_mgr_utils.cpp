#include "dv_sms_mgr_utils.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "dv_sms_mgr.h"
#include "dv_sms_mgr_lock.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_text.h"

sms_send_list *g_sms_send_head;
sms_index_ring sms_index_queue = {nullptr, 0, 0, 0, PTHREAD_MUTEX_INITIALIZER};
sms_pdu_ring sms_pdu_queue = {nullptr, 0, 0, 0, PTHREAD_MUTEX_INITIALIZER};

/* --- the send queue --- */

sms_send_list *list_create()
{
    return static_cast<sms_send_list *>(calloc(1, sizeof(sms_send_list)));
}

sms_send_node *list_node_create(const sockmsg_record *record)
{
    auto *node = static_cast<sms_send_node *>(malloc(sizeof(sms_send_node)));

    if (node == nullptr)
        return nullptr;
    node->record = *record;
    node->next = nullptr;
    return node;
}

int list_join(sms_send_node *node, sms_send_list *head)
{
    if (node == nullptr)
        return 0;
    if (head->last == nullptr)
        head->first = node;
    else
        head->last->next = node;
    head->last = node;
    head->count++;
    return 1;
}

int list_pop(sms_send_list *head, sockmsg_record *record)
{
    sms_send_node *node = head->first;

    if (node == nullptr)
        return 0;
    *record = node->record;
    head->first = node->next;
    if (head->first == nullptr)
        head->last = nullptr;
    free(node);
    head->count--;
    return 1;
}

static int32_t requests_waiting()
{
    locked hold(&sms_send_lock);
    return g_sms_send_head->count;
}

int push_sms_into_queue(const sockmsg_record *record)
{
    if (record == nullptr) {
        DV_TRACE("invalid parameter");
        return -1;
    }
    if (requests_waiting() > SMS_SEND_QUEUE_LIMIT) {
        DV_EVENT("there are too much msgs, just stop push queue");
        return 0;
    }
    sms_send_node *node = list_node_create(record);
    if (node == nullptr)
        return -1;

    locked hold(&sms_send_lock);
    const int joined = list_join(node, g_sms_send_head);
    if (joined == 1) {
        DV_TRACE("join succ");
        pthread_cond_broadcast(&sms_send_cond);
    } else {
        DV_TRACE("list_join fail!");
        free(node);
    }
    return joined;
}

/* --- the receive rings --- */

int util_enqueue(uint32_t index)
{
    locked hold(&sms_index_queue.lock);
    if (sms_index_queue.count == SMS_RING_SIZE) {
        DV_EVENT("queue is full, can not enqueue");
        return -1;
    }
    sms_index_queue.slots[sms_index_queue.write] = index;
    sms_index_queue.count++;
    sms_index_queue.write = (sms_index_queue.write + 1) % SMS_RING_SIZE;
    return 0;
}

int util_dequeue(uint32_t *index)
{
    locked hold(&sms_index_queue.lock);
    if (sms_index_queue.count == 0)
        return -1;
    *index = sms_index_queue.slots[sms_index_queue.read];
    sms_index_queue.count--;
    sms_index_queue.read = (sms_index_queue.read + 1) % SMS_RING_SIZE;
    return 0;
}

int util_enqueue_pdu(const char *text)
{
    locked hold(&sms_pdu_queue.lock);
    if (sms_pdu_queue.count == SMS_RING_SIZE) {
        DV_EVENT("pdu queue is full, can not enqueue");
        return -1;
    }
    const size_t size = strlen(text) + 1;
    auto *copy = static_cast<char *>(malloc(size));
    if (copy == nullptr) {
        DV_EVENT("malloc failed, can not enqueue");
        return -1;
    }
    memcpy(copy, text, size);
    sms_pdu_queue.slots[sms_pdu_queue.write] = copy;
    sms_pdu_queue.count++;
    sms_pdu_queue.write = (sms_pdu_queue.write + 1) % SMS_RING_SIZE;
    return 0;
}

int util_dequeue_pdu(char *buffer, int size)
{
    locked hold(&sms_pdu_queue.lock);
    if (sms_pdu_queue.count == 0)
        return -1;
    char *text = sms_pdu_queue.slots[sms_pdu_queue.read];
    copy_text(buffer, static_cast<size_t>(size), text);
    free(text);
    sms_pdu_queue.count--;
    sms_pdu_queue.read = (sms_pdu_queue.read + 1) % SMS_RING_SIZE;
    return 0;
}

/* --- raw AT data --- */

/* Prints the text with its line ends visible. */
static void print_escaped(const char *prefix, const char *text)
{
    char line[2 * SOCKMSG_PAYLOAD_SIZE + 1];
    size_t length = 0;

    for (; *text != '\0' && length + 2 < sizeof line; text++) {
        if (*text == '\r' || *text == '\n') {
            line[length++] = '\\';
            line[length++] = *text == '\r' ? 'r' : 'n';
        } else {
            line[length++] = *text;
        }
    }
    line[length] = '\0';
    printf("[dv_sms_mgr] %s%s\n", prefix, line);
}

void dv_sms_mgr_log_data(const char *prefix, const char *text)
{
    if (debug_mode) {
        print_escaped(prefix, text);
        return;
    }
    savelog(3, "[dv_sms_mgr] %s%s", prefix, text);
    printf("[dv_sms_mgr] %s%s", prefix, text);
}
