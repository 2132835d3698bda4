/* Records that ask the SMS manager for something, and what it answers in the flag store. */
#ifndef SMS_MSG_H
#define SMS_MSG_H

#include <stddef.h>
#include <stdint.h>

#include "sockmsg.h"

enum { SMS_MGR_MODULE_ID = 27 };

enum {
    DV_SMS_MGR_MSG_ID_SEND_SMS = 0x5500,           /* sms_payload: phone, text */
    DV_SMS_MGR_MSG_ID_READ_SMS = 0x5501,           /* text: "1,2,3" or "READ ALL" */
    DV_SMS_MGR_MSG_ID_DELETE_RECEIVE_SMS = 0x5502, /* text: "1,2,3" or "DELETE ALL" */
    DV_SMS_MGR_MSG_ID_DELETE_SEND_SMS = 0x5503,
    DV_SMS_MGR_MSG_ID_DELETE_DRAFT_SMS = 0x5504,
    DV_SMS_MGR_MSG_ID_GENERATE_SMS = 0x5505,     /* nothing */
    DV_SMS_MGR_MSG_ID_FLOW_CONTROL_SMS = 0x5506, /* nothing */
    DV_SMS_MGR_MSG_ID_SAVE_DRAFT_SMS = 0x5507,   /* sms_payload: phone, text */
    FLOWCONTROL_MSG_ID_WARN_EVENT = 0x8002       /* text: the warning's type, "0" to "3" */
};

enum {
    SMS_DATE_SIZE = 32, /* terminators included */
    SMS_PHONE_SIZE = 32,
    SMS_TEXT_SIZE = 4032
};

/* The payload of a send or draft request, and of a message on its way to the store. */
typedef struct {
    char date[SMS_DATE_SIZE]; /* of a received message; unused in requests */
    char phone[SMS_PHONE_SIZE];
    char text[SMS_TEXT_SIZE]; /* UTF-8 */
} sms_payload;

/* Flags. The asker clears both, sends its request and waits for what it needs:
 * the last message taken as "%d,%d" (sender's module id, message id); the outcome as "%d". */
#define DV_SMS_MGR_LAST_RECEIVED_MSG "DV_SMS_MGR_LAST_RECEIVED_MSG"
#define DV_SMS_MGR_LAST_ERR_CODE "DV_SMS_MGR_LAST_ERR_CODE"
enum { DV_SMS_MGR_ERR_NONE = 0, DV_SMS_MGR_ERR_FAILED = 500 };

#define SMS_CSCA_FLAG "SMS_CSCA" /* the cached service-centre number */

#ifdef __cplusplus
static_assert(sizeof(sms_payload) == SOCKMSG_PAYLOAD_SIZE && offsetof(sms_payload, phone) == 44 - 12 &&
              offsetof(sms_payload, text) == 76 - 12);
#endif

#endif
