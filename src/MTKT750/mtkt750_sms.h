/* What is particular to the T750's way of announcing messages. */
#ifndef MTKT750_SMS_H
#define MTKT750_SMS_H

#include "sockmsg.h"

/* Routes an indication record by its prefix; the bus thread. */
void dv_sms_mgr_at_report_event_handler(const sockmsg_record *record);

/* "+CMT" as the header line, "\r\n", the PDU, "\r\n": queues the PDU. 0: queued; -1: not. */
int dv_sms_mgr_t750_cmt_handler(const char *text);

/* One pass of the receive thread: at most one PDU and one storage index; takes two seconds. */
void dv_sms_mgr_receive_poll();

#endif
