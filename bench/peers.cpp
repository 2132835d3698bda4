#include "peers.h"

#ifdef BENCH_GAMMU
#include <gammu.h>
#endif
#ifdef BENCH_OSMOCORE
extern "C" {
#include <osmocom/core/utils.h>
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
#endif

} // namespace

std::vector<Peer> peers()
{
    return {
#ifdef BENCH_GAMMU
        {"libgammu", with_gammu, false},
#endif
#ifdef BENCH_OSMOCORE
        {"libosmocore", with_osmocore, true},
#endif
    };
}
