/* Character sets, septets, hexadecimal and semi-octet text (3GPP TS 23.038), and the decoding of
 * SMS-DELIVER (TS 23.040, 9.2.2.1). Works in the caller's buffers, keeps no state of its own. */
#ifndef DV_SMS_MGR_PDU_H
#define DV_SMS_MGR_PDU_H

#include <stddef.h>
#include <stdint.h>

enum {
    SMS_MSG_PHONE_SIZE = 32, /* terminators included */
    SMS_MSG_DATE_SIZE = 32,
    SMS_MSG_TEXT_SIZE = 256,
    PDU_WORK_SIZE = 1024, /* of every scratch buffer; the longest text decoded is 765 bytes */
    PDU_UDH_SIZE = 260    /* a header of 256 octets, and what its first element may point at behind it */
};

enum : uint8_t {
    TYPE_UNKNOWN = 0x81,       /* types of address (TS 23.040, 9.1.2.5), of the telephone numbering plan */
    TYPE_INTERNATIONAL = 0x91, /* the digits follow a "+" */
    GSM7_ESCAPE = 0x1B         /* in front of a code of the extension table (TS 23.038, 6.2.1.1) */
};

/* A decoded message, or one part of one. */
struct dv_sms_msg {
    uint32_t concatenated;          /* 1: the header carries a concatenation element with an 8-bit identifier */
    uint16_t reference;             /* these three hold only then */
    uint8_t total;                  /* parts of the whole message */
    uint8_t sequence;               /* this part, from 1 */
    char phone[SMS_MSG_PHONE_SIZE]; /* "+" and digits, digits, or a name; no spaces */
    char date[SMS_MSG_DATE_SIZE];   /* 20YY/MM/DD hh:mm:ss, as the service centre wrote it */
    char text[SMS_MSG_TEXT_SIZE];   /* UTF-8 */
};

/* Decodes the hex text of an SMS-DELIVER, service centre in front, into the current message
 * (dv_sms_mgr_receive.h), which must be there. Digits that are none count as 0, and a text that
 * ends early leaves the later fields empty. Receive path only. */
void dv_sms_mgr_parse_pdu(const char *pdu);

/* Reads the first element of a user-data header (its length octet first, zeros behind it) into the
 * current message's concatenation fields. */
void dv_sms_mgr_parse_udh(const uint8_t (&header)[PDU_UDH_SIZE]);

/* Takes the parts with the current message's reference off the list and joins their texts in
 * sequence order; the output has room for SMS_TEXT_SIZE bytes, terminator included, and the text
 * is cut at a character to fit. 0: joined; -1: no output, no list or no memory. */
int dv_sms_mgr_join_parts(char *output);

/* --- hexadecimal text and semi-octets --- */

/* 0 to 15; 0 for what is no hex digit. */
uint8_t hex_char_to_value(char digit);

/* Two upper-case digits an octet, no terminator. The characters written. */
int bytes_to_hex(const uint8_t *bytes, char *text, int count);

/* At most `max_bytes` octets; stops in front of a pair that the text's end cuts. The octets written. */
int hex_to_bytes(const char *text, uint8_t *bytes, int max_bytes);

/* Swaps `count` digits in pairs, with an "F" to fill an odd count; the output holds count + 2
 * characters. Returns the count rounded up to even. */
int phone_to_semi_octets(const char *digits, char *text, int count);

/* Swaps `count` semi-octets back and drops a trailing fill; reads the count rounded up to even,
 * and the output holds two more. Returns the count, less one when a fill was dropped. */
int semi_octets_to_text(const char *semi_octets, char *text, int count);

/* 1: the text holds a letter other than "F" and "f". */
int has_non_hex_letter(const char *text, int length);

/* --- septets --- */

/* Packs septets without a gap (TS 23.038, 6.1.2.1); the output holds one octet more, which is
 * zeroed. Septets are not masked. The octets written. */
int dv_sms_mgr_pack_7bit(const uint8_t *septets, uint8_t *octets, int count);

/* Unpacks `count` octets whose first `offset` (0 to 7) bits are fill; the output holds
 * count * 8 / 7 + 2 septets, one of them the terminator. The septets written. */
int dv_sms_mgr_unpack_7bit(const uint8_t *octets, uint8_t *septets, int count, int offset);

/* --- character sets --- */

/* Bytes of the UTF-8 sequence that this byte leads; 1 for a continuation byte. */
int dv_sms_mgr_utf8_seq_len(uint8_t lead);

/* Characters of a terminated text, counted by their lead bytes; 0 for null. */
int dv_sms_mgr_utf8_char_count(const char *text);

/* Converts the first `length` characters of the send text (dv_sms_mgr_send.h) from ASCII to the
 * default alphabet, in place. The new length: escapes count; SEND_TEXT_MAX + 1 when it grew past
 * its end, the rest then unconverted. */
int dv_sms_mgr_ascii_to_gsm7(int length);

/* Puts an escape and the extension code where one character of the send text stands. */
void dv_sms_mgr_insert_escape(int position, int length, uint8_t code);

/* Converts the first `count` (at most PDU_WORK_SIZE) septets of a buffer to UTF-8, in place; the buffer
 * has room for two bytes a septet. What lies behind them stays, unless the text grows over it. */
void dv_sms_mgr_gsm7_to_utf8(char *buffer, int count);

/* The same with the national tables, to big-endian UCS-2. The bytes written. */
int dv_sms_mgr_gsm7_to_ucs2(char *buffer, int count);

/* The code value of one UTF-8 sequence. Returns its length; 0 (and value 0) when it is malformed. */
int dv_sms_mgr_utf8_to_unicode_one(const char *sequence, uint32_t *value, int length);

/* At most `max_chars` characters of a terminated text as four hex digits each; the output holds
 * 4 * max_chars + 1 bytes. The position behind the last character converted; null without an output. */
const char *dv_sms_mgr_utf8_to_unicode_string(const char *text, char *output, int max_chars);

/* One value as 1 to 6 bytes; the output's capacity must be above 6. The bytes written: 0 for a value
 * above 0x7FFFFFFF; -1 for no or too small an output. */
int dv_sms_mgr_unicode_to_utf8_one(uint32_t value, char *output, int capacity);

/* Big-endian UCS-2 to terminated UTF-8; an odd last byte is taken as a high byte with a low byte 0.
 * The output holds three bytes a pair and one. */
void dv_sms_mgr_ucs2_to_utf8_string(const uint8_t *ucs2, char *output, int bytes);

#endif
