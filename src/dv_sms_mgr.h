/* The daemon's core: start-up, the bus handler, the status flags, the threads, the AT channel. */
#ifndef DV_SMS_MGR_H
#define DV_SMS_MGR_H

#include <pthread.h>
#include <stdint.h>

#include <atomic>

#include "at_msg.h"
#include "sms_msg.h"
#include "sockmsg.h"

extern std::atomic<uint8_t> sms_enabled; /* 1: requests to send and indications are taken */

extern pthread_mutex_t sms_send_lock; /* guards g_sms_send_head; never held while at_lock is asked for */
extern pthread_cond_t sms_send_cond;  /* a request was queued */
extern pthread_mutex_t at_lock;       /* guards the AT answer */
extern pthread_condattr_t at_available_cond_attr;
extern pthread_cond_t at_available_cond; /* an AT answer arrived; waits on CLOCK_MONOTONIC */

/* Takes one record from the bus; the bus library's thread. The record is only read.
 * 0: taken; -1: no record, or a notice that the modem crashed or blocks. */
int dv_sms_mgr_handler(sockmsg_record *record);

/* Publishes which request was taken last, as "%d,%d". Waits up to 3 seconds for another value to be
 * cleared, then overwrites it. */
void dv_sms_mgr_update_last_msg_flag(uint32_t sender, uint32_t msg_id);

/* Publishes the outcome of the last request, DV_SMS_MGR_ERR_NONE or DV_SMS_MGR_ERR_FAILED. Waits up
 * to 3 seconds for any value to be cleared, then overwrites it. */
void dv_sms_mgr_update_last_err_code_flag(int code);

/* 0: the device-information store names a network; -1: it does not. */
int dv_sms_mgr_check_network_state();

enum { AT_TIMEOUT = 15 }; /* seconds: of every command */

/* Sends one AT command (printf format and arguments, "\r" included) and waits for the answer: for
 * `timeout` + 3 seconds, or 18 when `timeout` is below 1. Of the answer's text exactly size - 1
 * characters are copied into `buffer`, whose last character stays as it was: pass it zeroed. A null
 * buffer gets nothing. One command at a time, whichever threads ask; never on the bus thread, which
 * delivers the answer.
 * 0: an answer without an error, or one to another command (nothing is copied then); ETIMEDOUT (110):
 * none; -2: the wait failed; else the modem's error code, or the bus's when the record was not sent. */
__attribute__((format(printf, 4, 5))) int dv_sms_mgr_send_at(int timeout, char *buffer, int size, const char *format,
                                                             ...);

/* Delivers an answer record to the thread that waits for it; the bus thread. 0; -1: no record. */
int dv_sms_mgr_at_respone_event_handler(const sockmsg_record *record);

/* Forgets whatever answer is held. */
void dv_sms_mgr_clear_at_response();

/* One pass of housekeeping: keeps sms_enabled in step with the switch and the SIM; takes a second. */
void process_1s_signal();

/* Starts the worker threads and sleeps; ends the process with status -1 when one cannot be started. */
[[noreturn]] void dv_sms_mgr_create_thread();

/* Detaches the worker threads and tells them to stop; run at exit, harmless when repeated. */
void dv_sms_mgr_stop_threads();

#endif
