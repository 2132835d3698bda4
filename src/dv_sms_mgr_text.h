/* Bounded copies of text. Whatever is cut is cut in front of a UTF-8 character, never inside one. */
#ifndef DV_SMS_MGR_TEXT_H
#define DV_SMS_MGR_TEXT_H

#include <stddef.h>
#include <string.h>

#include "sms_msg.h"

inline bool is_utf8_continuation(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

/* Length of the longest prefix of text[0, length) that has at most `limit` bytes and ends in front
 * of a byte that is not a continuation byte; the end of the text is such a place. */
inline size_t utf8_prefix(const char *text, size_t length, size_t limit)
{
    if (length <= limit)
        return length;
    /* length > limit: the byte is there. NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage) */
    while (limit > 0 && is_utf8_continuation(text[limit]))
        limit--;
    return limit;
}

/* Copies a terminated text into `out` (capacity `size`, at least 1), which is zero behind it.
 * The number of bytes copied. */
inline size_t copy_text(char *out, size_t size, const char *text)
{
    const size_t length = utf8_prefix(text, strlen(text), size - 1);

    memcpy(out, text, length);
    memset(out + length, 0, size - length);
    return length;
}

template <size_t Size> size_t copy_text(char (&out)[Size], const char *text)
{
    return copy_text(out, Size, text);
}

/* Copies a field of a record, which may fill all its bytes without a terminator. */
template <size_t Size, size_t Field> void copy_field(char (&out)[Size], const char (&field)[Field])
{
    static_assert(Size > Field);
    const size_t length = strnlen(field, Field);

    memcpy(out, field, length);
    memset(out + length, 0, Size - length);
}

/* The payload of a send or draft request with every field terminated. */
struct sms_fields {
    char date[SMS_DATE_SIZE + 1];
    char phone[SMS_PHONE_SIZE + 1];
    char text[SMS_TEXT_SIZE + 1];
};

inline const sms_payload *payload_of(const sockmsg_record *record)
{
    return reinterpret_cast<const sms_payload *>(record->payload);
}

inline sms_payload *payload_of(sockmsg_record *record)
{
    return reinterpret_cast<sms_payload *>(record->payload);
}

inline void read_fields(sms_fields *fields, const sockmsg_record *record)
{
    const sms_payload *payload = payload_of(record);

    copy_field(fields->date, payload->date);
    copy_field(fields->phone, payload->phone);
    copy_field(fields->text, payload->text);
}

#endif
