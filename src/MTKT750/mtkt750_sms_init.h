/* Brings the T750's SMS service into the state that the daemon assumes, and the store's flags into
 * step with its files. Start-up only, before the worker threads. */
#ifndef MTKT750_SMS_INIT_H
#define MTKT750_SMS_INIT_H

#include <stdint.h>

#include <atomic>

/* Waits for the SIM, prepares rings and store, and works through the init list for as long as it
 * takes. 0; -1: no memory for a ring. */
int dv_sms_mgr_init();

/* Allocate the rings' storage and empty them. 0; -1: no memory. */
int init_queue();
int init_pdu_queue();

/* Steps of the init list. 0; -1: to be tried again. */
int init_at_cmgf();  /* PDU mode */
int init_at_cnmi();  /* direct delivery of new messages */
int init_sim_cpms(); /* storage on the SIM, with room in it */
int init_sim_csca(); /* character set and service centre */

extern std::atomic<uint8_t> at_err_log_enable; /* 0 while a step keeps failing: its errors are known */

/* Reads the answer to "AT+CPMS?". 1: used and total are the same text, and `total` gets its value. */
int sim_sms_is_full(const char *reply, int *total);

/* Recreates missing index files from the box directories. */
void rebuild_sms_index();

/* Recomputes the unread count and the boxes' flags from the files; also after test messages. */
void init_sms_box_state();

#endif
