#include "differential.h"

#include <cstdio>
#include <cstring>
#include <ctime>

#include <gammu.h>
extern "C" {
#include <osmocom/gsm/protocol/gsm_04_11.h> /* first: the next one names its enumeration */

#include <osmocom/gsm/gsm0411_utils.h>
#include <osmocom/gsm/gsm48_ie.h>
#include <osmocom/gsm/gsm_utils.h>
}

#include "vectors/reference.h"

namespace
{

/* Big-endian UCS-2 up to its null, surrogates joined. */
std::string utf8_of(const unsigned char *text, size_t units)
{
    std::string out;

    for (size_t i = 0; i < units; i++) {
        const unsigned unit = text[2 * i] * 256U + text[2 * i + 1];
        const unsigned next = i + 1 < units ? text[2 * i + 2] * 256U + text[2 * i + 3] : 0;
        if (unit / 0x400 == 0xD800 / 0x400 && next / 0x400 == 0xDC00 / 0x400) {
            const unsigned value = 0x10000 + (unit - 0xD800) * 0x400 + (next - 0xDC00);
            out += static_cast<char>(0xF0 | value >> 18);
            out += static_cast<char>(0x80 | (value >> 12 & 0x3F));
            out += static_cast<char>(0x80 | (value >> 6 & 0x3F));
            out += static_cast<char>(0x80 | (value & 0x3F));
            i++;
        } else {
            out += reference::utf8(unit);
        }
    }
    return out;
}

} // namespace

decoded gammu_decode(const bytes &pdu)
{
    static GSM_SMSMessage sms;
    decoded out;
    size_t end = 0;
    char date[96];

    memset(&sms, 0, sizeof sms);
    if (GSM_DecodePDUFrame(GSM_GetGlobalDebug(), &sms, pdu.data(), pdu.size(), &end, TRUE) != ERR_NONE)
        return out;
    out.good = true;
    out.phone = utf8_of(sms.Number, UnicodeLength(sms.Number));
    if (sms.Coding == SMS_Coding_8bit)
        out.text.assign(reinterpret_cast<char *>(sms.Text), static_cast<size_t>(sms.Length));
    else
        out.text = utf8_of(sms.Text, UnicodeLength(sms.Text));
    snprintf(date, sizeof date, "%04d/%02d/%02d %02d:%02d:%02d", sms.DateTime.Year, sms.DateTime.Month,
             sms.DateTime.Day, sms.DateTime.Hour, sms.DateTime.Minute, sms.DateTime.Second);
    out.date = date;
    out.wide_reference = sms.UDH.ID16bit != -1 && sms.UDH.ID8bit == -1;
    if (sms.UDH.AllParts > 0) {
        out.reference = out.wide_reference ? sms.UDH.ID16bit : sms.UDH.ID8bit;
        out.total = sms.UDH.AllParts;
        out.sequence = sms.UDH.PartNumber;
    }
    return out;
}

std::string osmocom_text(const bytes &user_data, unsigned udl, bool header)
{
    char text[512] = {};

    const int length =
        gsm_7bit_decode_n_hdr(text, sizeof text, user_data.data(), static_cast<uint8_t>(udl), header ? 1 : 0);
    return std::string(text, static_cast<size_t>(length));
}

std::string osmocom_number(const bytes &address, unsigned digits)
{
    char text[64] = {};
    bytes lv = {static_cast<uint8_t>(address.size() + 1), 0};

    lv.insert(lv.end(), address.begin(), address.end());
    if (digits == 0 || gsm48_decode_bcd_number2(text, sizeof text, lv.data(), lv.size(), 1) != 0)
        return "";
    return text;
}

/* Where the machine's zone is Greenwich, this version takes a stamp as it is, whatever its zone. */
std::string osmocom_date(const bytes &stamp)
{
    bytes copy = stamp;
    char text[64];
    const time_t local = gsm340_scts(copy.data());
    struct tm parts;

    gmtime_r(&local, &parts);
    strftime(text, sizeof text, "%Y/%m/%d %H:%M:%S", &parts);
    return text;
}

bytes osmocom_septets(const std::string &ascii)
{
    bytes septets(2 * ascii.size() + 1);

    septets.resize(static_cast<size_t>(gsm_septet_encode(septets.data(), ascii.c_str())));
    return septets;
}

bytes osmocom_pack(const bytes &septets, int fill_bits)
{
    bytes octets(septets.size() + 2);

    octets.resize(static_cast<size_t>(
        gsm_septet_pack(octets.data(), septets.data(), septets.size(), static_cast<uint8_t>(fill_bits))));
    return octets;
}

bytes osmocom_number_octets(const std::string &digits)
{
    uint8_t lv[32] = {};

    if (gsm48_encode_bcd_number(lv, sizeof lv - 1, 0, digits.c_str()) < 0)
        return {};
    return bytes(lv + 1, lv + 1 + lv[0]);
}
