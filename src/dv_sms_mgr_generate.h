/* Notices of the router's own, and test messages. The bus thread. */
#ifndef DV_SMS_MGR_GENERATE_H
#define DV_SMS_MGR_GENERATE_H

/* Queues the notice that the wired link failed over. 0: queued; -1: not wanted. */
int dv_sms_mgr_send_flow_control_notice();

/* Queues a warning; the payload's decimal value is its type: 0 half of the allowance used, 1 all of
 * it, 2 national, 3 international. 0: queued; -1: not wanted or no such type. */
int dv_sms_mgr_send_flow_control_warn(const char *payload);

/* Fills all boxes with numbered test messages. 0. */
int dv_sms_mgr_generate();

#endif
