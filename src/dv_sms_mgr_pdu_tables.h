/* The codec's tables. Each is built by the compiler from the entries that matter. */
#ifndef DV_SMS_MGR_PDU_TABLES_H
#define DV_SMS_MGR_PDU_TABLES_H

#include <stddef.h>
#include <stdint.h>

#include <array>

#include "dv_sms_mgr_pdu.h"

enum : uint8_t { GSM7_EXT_EURO = 0x65 };

/* The default alphabet (TS 23.038, 6.2.1) in code points; the tables below are built from it. */
inline constexpr std::array<uint16_t, 128> default_alphabet = [] {
    constexpr char16_t text[] = u"@£$¥èéùìòÇ\nØø\rÅåΔ_ΦΓΛΩΠΨΣΘΞ\x1BÆæßÉ"
                                u" !\"#¤%&'()*+,-./0123456789:;<=>?"
                                u"¡ABCDEFGHIJKLMNOPQRSTUVWXYZÄÖÑÜ§"
                                u"¿abcdefghijklmnopqrstuvwxyzäöñüà";
    static_assert(sizeof text / sizeof text[0] == 128 + 1);
    std::array<uint16_t, 128> table{};
    for (size_t i = 0; i < table.size(); i++)
        table[i] = text[i];
    return table;
}();

struct code_value {
    uint8_t code;
    uint16_t value;
};

/* UTF-8 of each septet: two bytes, or one where the high byte is zero. */
inline constexpr std::array<uint16_t, 128> gsm7_to_utf8_table = [] {
    std::array<uint16_t, 128> table{};
    for (size_t i = 0; i < table.size(); i++) {
        const unsigned value = default_alphabet[i];
        table[i] = static_cast<uint16_t>(value < 0x80 ? value : (0xC0 | value >> 6) << 8 | 0x80 | (value & 0x3F));
    }
    table[0x09] = 0xC3A7;        /* kept on purpose: the small c-cedilla */
    table[GSM7_ESCAPE] = 0xFFFF; /* no character of its own: never one byte */
    return table;
}();
static_assert(gsm7_to_utf8_table[0x00] == '@' && gsm7_to_utf8_table[0x10] == 0xCE94 &&
              gsm7_to_utf8_table[0x7F] == 0xC3A0);

/* Single-byte extensions (TS 23.038, 6.2.1.1); the euro sign has a rule of its own. */
inline constexpr std::array<uint8_t, 0x50> extension_table = [] {
    constexpr code_value list[] = {
        {0x0A, '\f'}, {0x14, '^'}, {0x28, '{'}, {0x29, '}'}, {0x2F, '\\'},
        {0x3C, '['},  {0x3D, '~'}, {0x3E, ']'}, {0x40, '|'},
    };
    std::array<uint8_t, 0x50> table{};
    for (uint8_t &byte : table)
        byte = 0xFF;
    for (const code_value &entry : list)
        table[entry.code] = static_cast<uint8_t>(entry.value);
    return table;
}();

/* For messages with the Turkish single-shift header. The odd entries are kept on purpose. */
inline constexpr std::array<uint16_t, 128> national_table = [] {
    constexpr code_value changes[] = {
        {0x04, 0x20AC}, {0x07, 0x0131}, {0x0B, 0x011E}, {0x0C, 0x011F}, {0x11, 0x03A2}, {0x1B, 0x001B},
        {0x1C, 0x015E}, {0x1D, 0x015F}, {0x24, 0x0024}, {0x40, 0x00E8}, {0x60, 0x00E7},
    };
    std::array<uint16_t, 128> table = default_alphabet;
    for (const code_value &change : changes)
        table[change.code] = change.value;
    return table;
}();

/* Turkish single shift (TS 23.038, A.2.1), without the form feed and with 0x0F, kept on purpose. */
inline constexpr std::array<uint16_t, 128> national_extension_table = [] {
    constexpr code_value list[] = {
        {0x0F, 0x005C}, {0x14, 0x005E}, {0x28, 0x007B}, {0x29, 0x007D}, {0x2F, 0x005C}, {0x3C, 0x005B},
        {0x3D, 0x007E}, {0x3E, 0x005D}, {0x40, 0x007C}, {0x47, 0x011E}, {0x49, 0x0130}, {0x53, 0x015E},
        {0x63, 0x00E7}, {0x65, 0x20AC}, {0x67, 0x011F}, {0x69, 0x0131}, {0x73, 0x015F},
    };
    std::array<uint16_t, 128> table{};
    for (uint16_t &value : table)
        value = 0xFFFF;
    for (const code_value &entry : list)
        table[entry.code] = entry.value;
    return table;
}();

/* Bytes of the sequence that a byte leads. */
inline constexpr std::array<uint8_t, 256> utf8_length_table = [] {
    std::array<uint8_t, 256> table{};
    for (size_t lead = 0; lead < table.size(); lead++)
        table[lead] = lead < 0xC0 || lead > 0xFD ? 1
                      : lead < 0xE0              ? 2
                      : lead < 0xF0              ? 3
                      : lead < 0xF8              ? 4
                      : lead < 0xFC              ? 5
                                                 : 6;
    return table;
}();

inline constexpr std::array<uint8_t, 256> hex_value_table = [] {
    std::array<uint8_t, 256> table{};
    for (uint8_t i = 0; i < 10; i++)
        table['0' + i] = i;
    for (uint8_t i = 0; i < 6; i++)
        table['A' + i] = table['a' + i] = static_cast<uint8_t>(10 + i);
    return table;
}();

inline constexpr char hex_digits[] = "0123456789ABCDEF";

/* What ASCII becomes in the default alphabet: a code, with GSM7_ESCAPED one that stands behind an escape.
 * Bytes above ASCII are no character of it and stay as they are. */
enum : uint8_t { GSM7_ESCAPED = 0x80 };

inline constexpr std::array<uint8_t, 128> ascii_to_gsm7_table = [] {
    constexpr code_value plain[] = {
        {'@', 0x00}, {'_', 0x11}, {'$', 0x02}, {'`', 0x27}, {'\t', 0x20}, {0x1A, 0x05}, {0x1E, 0x7D},
    };
    constexpr code_value escaped[] = {
        {'^', 0x14}, {'{', 0x28}, {'}', 0x29}, {'\\', 0x2F}, {'[', 0x3C}, {'~', 0x3D}, {']', 0x3E}, {'|', 0x40},
    };
    std::array<uint8_t, 128> table{};
    for (size_t i = 0; i < table.size(); i++)
        table[i] = static_cast<uint8_t>(i);
    for (const code_value &entry : plain)
        table[entry.code] = static_cast<uint8_t>(entry.value);
    for (const code_value &entry : escaped)
        table[entry.code] = static_cast<uint8_t>(GSM7_ESCAPED | entry.value);
    return table;
}();

#endif
