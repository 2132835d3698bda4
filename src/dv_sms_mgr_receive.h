/* The receive path: retrieval, assembly of parts, redirect, and the store's writer. */
#ifndef DV_SMS_MGR_RECEIVE_H
#define DV_SMS_MGR_RECEIVE_H

#include <pthread.h>
#include <stdint.h>
#include <stdio.h>

#include "dv_sms_mgr_pdu.h"
#include "sockmsg.h"

/* The message being received; null when none is. Receive path only. */
extern dv_sms_msg *current_sms_msg;

/* A part that waits for the others, newest first behind a head that carries none. Parts are matched
 * by reference alone. Receive path only. */
struct sms_part_node {
    char text[SMS_MSG_TEXT_SIZE];
    uint16_t reference;
    uint8_t sequence;
    sms_part_node *next;
};

extern sms_part_node *sms_part_head; /* null until the first part comes */

/* Results of dv_sms_mgr_receive_sms_by_cmti. */
enum { CMTI_FAILED = 0, CMTI_INCOMPLETE = 1, CMTI_FILED = 2 };

/* Reads the message at a storage index, files it and deletes it from the storage. */
int dv_sms_mgr_receive_sms_by_cmti(uint32_t index);

/* Decodes a PDU that the modem delivered directly and files it. */
void dv_sms_mgr_receive_sms_by_cmt(const char *pdu);

/* Keeps the current message as a part. How many parts of its reference are still missing; 0 or less:
 * it is complete. */
int dv_sms_mgr_link_part();
void dv_sms_mgr_create_link();
int dv_sms_mgr_insert_link();
int count_missing_parts();

/* Queues the text for the configured handset when that is wanted. */
void need_redirect_sms_to_handset(const char *text);

/* Files the current message, joined when it was concatenated, as an unread one; frees it. */
void dv_sms_mgr_save_receive_msg();

/* --- the store --- */

/* Guards the files, the index and the counter over each read-change-write. Held for no flag wait, no
 * AT command and no sleep. */
extern pthread_mutex_t sms_store_lock;

enum { SMS_FILE_STATE_NEW = 0, SMS_FILE_STATE_DONE = 1 }; /* unread or failed; read, sent or draft */

/* Files the record's phone and text (and for received messages its date) in a box of
 * dv_sms_mgr_paths.h. Any thread. 0: filed; -1: refused. */
int dv_sms_mgr_write_sms_to_file(int flag_box, int state, const sockmsg_record *record);

/* true: there is something at the path. */
bool path_exists(const char *path);

/* Free space in KB of the file system that holds the path; -1: unknown. */
long get_sys_flash_available(const char *path);

/* Entries of type regular file; -1: no path, or not to be opened. */
int count_regular_files(const char *path);

/* fopen for a file that is read or written in one go; null likewise. */
FILE *open_unbuffered(const char *path, const char *mode);

/* Writes formatted text through fopen with this mode. 0; -1: it cannot be opened. */
__attribute__((format(printf, 3, 4))) int write_file_fmt(const char *path, const char *mode, const char *format, ...);

/* Local time as "YYYY-MM-DD hh:mm:ss", unterminated, into a cleared buffer of at least 32 bytes. */
void get_local_time_text(char *buffer, int size);

#endif
