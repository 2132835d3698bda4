/* Handlers of new-message indications (3GPP TS 27.005, 3.4.1). They only queue; the bus thread. */
#ifndef DV_SMS_MGR_REPORT_H
#define DV_SMS_MGR_REPORT_H

/* Longest PDU line, terminator included. */
enum { PDU_LINE_SIZE = 512 };

/* "+CMTI": queues the storage index behind the comma. 0: queued; -1: not. */
int dv_sms_mgr_cmti_handler(const char *text);

/* "+CMT" as "\r\n", the PDU, "\r\n": queues the PDU. 0: queued; -1: not. */
int dv_sms_mgr_cmt_handler(const char *text);

/* 1: a PDU line whose second character lies between "3" and "C". Kept on purpose: it is what tells
 * PDUs with a service centre in front from other lines. */
int dv_sms_mgr_is_pdu(const char *pdu);

#endif
