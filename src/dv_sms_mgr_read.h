/* Marking received messages read, and deleting from any box. The bus thread. */
#ifndef DV_SMS_MGR_READ_H
#define DV_SMS_MGR_READ_H

/* `request` is "READ ALL" or message numbers separated by commas. The outcome goes to the flag. */
void dv_sms_mgr_read_recvive_sms(const char *request);

/* `request` is "DELETE ALL" or message numbers separated by commas. The outcome goes to the flag.
 * 0; -1: refused, or a received message was not there (those before it are gone). */
int dv_sms_mgr_delete_sms(const char *request, const char *box_dir, const char *index_path);

/* Counts an unread received message down before it is deleted; other boxes have no count.
 * 0; -1: the file cannot be opened or is empty. The store's lock is held. */
int update_unread_on_delete(const char *box_dir, const char *path);

/* Replaces the first `pattern` in place; the text has room. 1: replaced; 0: not there, or the text
 * is null or shorter than 3 characters. */
int replace_first(char *text, const char *pattern, const char *replacement);

#endif
