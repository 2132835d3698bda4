/* PDUs for the store's tests: SMS-DELIVER as a modem prints it, from +31612345678 at 14:07:00 on the 5th of
 * March 2024. */
#ifndef STORE_PDU_H
#define STORE_PDU_H

#include <stdint.h>
#include <stdio.h>

#include <string>

/* One message of two septets, put together by hand: "hi". */
inline const char pdu_hi[] = "0791261304000000" /* service centre */
                             "04"               /* SMS-DELIVER */
                             "0B911316325476F8" /* from */
                             "0000"             /* TP-PID, TP-DCS */
                             "42305041700002"   /* time stamp and zone */
                             "02E834";          /* length, user data */

inline std::string hex_of(const std::string &octets)
{
    std::string text;

    for (const char octet : octets) {
        char digits[3];

        snprintf(digits, sizeof digits, "%02X", static_cast<unsigned>(static_cast<unsigned char>(octet)));
        text += digits;
    }
    return text;
}

/* A part of a concatenated message; total 0 with sequence 0 and no reference stands for a single one. */
struct part {
    int reference = -1; /* -1: not concatenated; above 255: the element carries two octets of it */
    int total = 0;
    int sequence = 0;
};

inline std::string header_of(const part &which)
{
    if (which.reference < 0)
        return "";
    std::string header = which.reference > 255 ? std::string("\x06\x00\x04", 3) : std::string("\x05\x00\x03", 3);

    if (which.reference > 255)
        header += static_cast<char>(which.reference >> 8);
    header += static_cast<char>(which.reference);
    header += static_cast<char>(which.total);
    header += static_cast<char>(which.sequence);
    return header;
}

inline std::string deliver(uint8_t dcs, size_t length, const std::string &header, const std::string &octets,
                           const std::string &sender)
{
    return std::string("0791261304000000") + (header.empty() ? "04" : "44") + sender + "00" +
           hex_of(std::string(1, static_cast<char>(dcs))) + "42305041700002" +
           hex_of(std::string(1, static_cast<char>(length))) + hex_of(header) + hex_of(octets);
}

/* The text as octets (8-bit data), which come out as they went in; a part has at least two of them, four with
 * a long reference. */
inline std::string pdu_of(const std::string &text, const part &which = {},
                          const std::string &sender = "0B911316325476F8")
{
    const std::string header = header_of(which);

    return deliver(0x04, header.size() + text.size(), header, text, sender);
}

/* `count` times the same septet, packed (TS 23.038, 6.1.2.1). */
inline std::string pdu_of_septets(unsigned septet, size_t count)
{
    std::string octets((count * 7 + 7) / 8, '\0');

    for (size_t bit = 0; bit < count * 7; bit++)
        if (septet >> bit % 7 & 1)
            octets[bit / 8] = static_cast<char>(octets[bit / 8] | 1 << bit % 8);
    return deliver(0x00, count, "", octets, "0B911316325476F8");
}

#endif
