#include "peers.h"

#include <cctype>
#include <cstring>

#ifdef BENCH_GAMMU
#include <gammu.h>
#endif
#ifdef BENCH_OSMOCORE
extern "C" {
#include <osmocom/core/utils.h>
#include <osmocom/gsm/gsm48_ie.h>
#include <osmocom/gsm/gsm_utils.h>
}
#endif

namespace
{

#ifdef BENCH_GAMMU
std::string with_gammu(const Delivered &message)
{
    static GSM_SMSMessage decoded;
    unsigned char octets[512];
    char text[4 * GSM_MAX_SMS_LENGTH + 1];
    size_t end = 0;

    if (!DecodeHexBin(octets, reinterpret_cast<const unsigned char *>(message.pdu.data()), message.pdu.size()))
        return {};
    GSM_SetDefaultSMSData(&decoded);
    if (GSM_DecodePDUFrame(nullptr, &decoded, octets, message.pdu.size() / 2, &end, TRUE) != ERR_NONE)
        return {};
    EncodeUTF8(text, decoded.Text);
    return text;
}

/* The octets of one encoded part in the order of a PDU: it keeps fields of no fixed length at fixed places. */
std::string part_of(const unsigned char *frame)
{
    const GSM_SMSMessageLayout &at = PHONE_SMSSubmit;
    unsigned char pdu[512];
    char digits[2 * sizeof pdu + 1];
    size_t length = 0;
    const int octets = frame[at.TPDCS] == 0 ? (frame[at.TPUDL] * 7 + 7) / 8 : frame[at.TPUDL];
    const auto add = [&](const unsigned char *from, int count) {
        memcpy(pdu + length, from, static_cast<size_t>(count));
        length += static_cast<size_t>(count);
    };

    add(frame + at.SMSCNumber, frame[at.SMSCNumber] + 1);
    add(frame + at.firstbyte, 1);
    add(frame + at.TPMR, 1);
    add(frame + at.Number, (frame[at.Number] + 1) / 2 + 2);
    add(frame + at.TPPID, 1);
    add(frame + at.TPDCS, 1);
    add(frame + at.TPVP, 1);
    add(frame + at.TPUDL, 1);
    add(frame + at.Text, octets);
    EncodeHexBin(digits, pdu, length);
    return digits;
}

std::vector<std::string> encoded_by_gammu(const Submitted &message)
{
    static GSM_MultiPartSMSInfo info;
    static GSM_MultiSMSMessage parts;
    static unsigned char text[8 * GSM_MAX_SMS_LENGTH];
    std::vector<std::string> pdus;

    GSM_ClearMultiPartSMSInfo(&info);
    DecodeUTF8(text, message.text.c_str(), message.text.size());
    info.EntriesNum = 1;
    info.UnicodeCoding = message.kind == Kind::ucs2 ? TRUE : FALSE;
    info.Class = -1;
    info.Entries[0].ID = SMS_ConcatenatedTextLong;
    info.Entries[0].Buffer = text;
    if (GSM_EncodeMultiPartSMS(nullptr, &info, &parts) != ERR_NONE)
        return pdus;
    for (int i = 0; i < parts.Number; i++) {
        GSM_SMSMessage &part = parts.SMS[i];
        unsigned char frame[1024];
        int length = 0;

        part.PDU = SMS_Submit;
        EncodeUnicode(part.SMSC.Number, service_centre, strlen(service_centre));
        EncodeUnicode(part.Number, message.number.c_str(), message.number.size());
        part.SMSC.Validity.Format = SMS_Validity_RelativeFormat;
        part.SMSC.Validity.Relative = static_cast<GSM_ValidityPeriod>(8);
        if (GSM_EncodeSMSFrame(nullptr, &part, frame, PHONE_SMSSubmit, &length, TRUE) != ERR_NONE)
            return {};
        pdus.push_back(part_of(frame));
    }
    return pdus;
}
#endif

#ifdef BENCH_OSMOCORE
/* It has no decoder of a whole SMS-DELIVER: the digits and the septets are its work, the fields ours. */
std::string with_osmocore(const Delivered &message)
{
    uint8_t octets[512];
    char text[256];

    osmo_hexparse(message.pdu.c_str(), octets, sizeof octets);
    const uint8_t *address = octets + 1 + octets[0] + 1;
    const uint8_t *length = address + 2 + (address[0] + 1) / 2 + 9;

    gsm_7bit_decode_n(text, sizeof text, length + 1, *length);
    return text;
}

/* Nor an encoder of a whole SMS-SUBMIT. */
std::vector<std::string> encoded_by_osmocore(const Submitted &message)
{
    uint8_t pdu[512];
    uint8_t *end = pdu;
    int octets = 0;

    gsm48_encode_bcd_number(end, 16, 1, service_centre + 1);
    end[1] = 0x91;
    end += 1 + *end;
    *end++ = 0x11; /* SMS-SUBMIT, relative validity */
    *end++ = 0;    /* reference */
    gsm48_encode_bcd_number(end, 16, 1, message.number.c_str() + 1);
    end[1] = 0x91;
    const uint8_t address = *end;
    *end = static_cast<uint8_t>(message.number.size() - 1);
    end += 1 + address;
    *end++ = 0x00;
    *end++ = 0x00;
    *end++ = 8; /* 45 minutes */
    *end = static_cast<uint8_t>(gsm_7bit_encode_n(end + 1, 256, message.text.c_str(), &octets));
    end += 1 + octets;
    std::vector<std::string> pdus = {osmo_hexdump_nospc(pdu, static_cast<int>(end - pdu))};
    for (char &digit : pdus[0])
        digit = static_cast<char>(toupper(digit));
    return pdus;
}
#endif

} // namespace

std::vector<Peer> peers()
{
    return {
#ifdef BENCH_GAMMU
        {"libgammu", with_gammu, encoded_by_gammu, false},
#endif
#ifdef BENCH_OSMOCORE
        {"libosmocore", with_osmocore, encoded_by_osmocore, true},
#endif
    };
}
