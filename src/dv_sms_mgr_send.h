/* The send path: checks, segmentation, the encoding of SMS-SUBMIT (3GPP TS 23.040, 9.2.2.2) and its
 * submission. Everything here belongs to the send thread. */
#ifndef DV_SMS_MGR_SEND_H
#define DV_SMS_MGR_SEND_H

#include <stdint.h>

#include "sockmsg.h"

enum {
    SEND_TEXT_MAX = 4000, /* characters of the working copy */
    SEND_PHONE_SIZE = 32,
    SMSC_SIZE = 32,
    SMSC_DIGITS_MAX = 22,
    DEST_DIGITS_MAX = 20,
    PDU_UD_SIZE = 350,
    PDU_TEXT_SIZE = 600
};

enum : uint8_t { DCS_GSM7 = 0x00, DCS_8BIT = 0x04, DCS_UCS2 = 0x08 };

/* The work record of one part. */
struct dv_sms_pdu {
    uint8_t smsc_len;                      /* octets, the type included */
    uint8_t smsc_type;                     /* 0x91 international, 0x81 unknown */
    char smsc_digits[SMSC_DIGITS_MAX + 1]; /* swapped semi-octets */
    uint8_t first_octet;                   /* TP-MTI, TP-RD, TP-VPF, TP-SRR, TP-UDHI, TP-RP */
    uint8_t message_ref;
    uint8_t dest_len; /* digits */
    uint8_t dest_type;
    char dest_digits[DEST_DIGITS_MAX + 1];
    uint8_t pid;
    uint8_t dcs;
    uint8_t validity; /* relative: (n + 1) * 5 minutes */
    uint8_t udl;      /* septets for 7-bit, else octets, the header included */
    uint8_t udh_len;  /* 5 for a part of a concatenated message, else 0 */
    uint8_t udh_iei;
    uint8_t udh_iedl;
    uint8_t udh_ref;
    uint8_t udh_total;
    uint8_t udh_seq;
    uint8_t ud[PDU_UD_SIZE]; /* packed septets, octets, or (UCS-2) the hex text itself */
    uint8_t ud_count;        /* octets in ud; unused for UCS-2 */
};

/* Where the segmentation of the current message stands. */
struct dv_sms_send_ctx {
    const char *text_start; /* both into dv_sms_send_text */
    const char *text_pos;   /* where the next part begins */
    const char *dest;
    uint8_t ref; /* raised by one for each message */
    uint8_t concatenated;
    uint8_t seg_size; /* septets, UCS-2 characters or octets a part */
    uint8_t total;
    uint8_t seq;       /* of the part to be built next, from 1 */
    uint16_t text_len; /* septets for 7-bit, else bytes */
};

/* Converted in place; an inserted escape may push one character behind SEND_TEXT_MAX, and a
 * terminator stands behind that. */
extern char dv_sms_send_text[SEND_TEXT_MAX + 2];
extern char dv_sms_send_phone[SEND_PHONE_SIZE];
extern char dv_sms_smsc[SMSC_SIZE + 1];
extern dv_sms_pdu dv_sms_send_pdu;
extern dv_sms_send_ctx dv_sms_send_state;
extern char dv_sms_pdu_text[PDU_TEXT_SIZE]; /* the packed part: hex text, Ctrl-Z, terminator */

/* Sends the request's text in as many parts as it needs, reports to the asker when there is one, and
 * files it in the sent box with state 1 (all parts sent) or 0. Returns what the filing returned. */
int dv_sms_mgr_send_sms(const sockmsg_record *record);

/* Takes over phone and text and prepares the segmentation. 0; -1: it cannot be sent. */
int dv_sms_mgr_parse_send_data(const sockmsg_record *record);

/* Checks service centre and network, then prepares the segmentation of the working copy of `length`
 * bytes. 0; -1: it cannot be sent now. */
int dv_sms_mgr_check_send_sms(int length);

/* Chooses alphabet and segment size for the working copy of `length` bytes, and counts a new message. */
void dv_sms_mgr_segment_text(int length);

/* Fills dv_sms_smsc from the flag, else from the modem. 0 (also when neither knows it); -1: the modem
 * did not answer. */
int dv_sms_mgr_check_smsc();

/* 1: every byte is below 0x80. */
int dv_sms_mgr_is_ascii(const char *text, int length);

/* Submits the packed part. 0; -1: the modem did not take it. */
int dv_sms_mgr_send_pdu_sms();

/* Builds the next part of the message into dv_sms_pdu_text and moves on behind it. 0; -1: not. */
int dv_sms_mgr_pack_pdu_data();

enum { PHONE_SMSC = 0, PHONE_DEST = 1 };

/* Encodes a number ("+" for international) into the record's service-centre or destination fields.
 * 0; -1: a null argument, too many digits, or a control character, which would break the command. */
int dv_sms_mgr_pdu_gen_phone(const char *number, dv_sms_pdu *record, int mode);

/* Makes the first octet that of an SMS-SUBMIT with a relative validity period. 0; -1: null. */
int dv_sms_mgr_pdu_gen_param(uint8_t *first_octet);

/* Fills header and user data from the text's position and moves it on. TP-UDL; 0: nothing to send. */
uint16_t dv_sms_mgr_pdu_gen_ud(dv_sms_pdu *record);

/* Writes the record as hex text and Ctrl-Z into PDU_TEXT_SIZE characters. 0; -1: a null argument. */
int dv_sms_mgr_pdu_to_str(const dv_sms_pdu *record, char *output);

#endif
