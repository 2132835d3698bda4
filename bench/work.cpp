#include "work.h"

#include <array>

#include "dv_sms_mgr_receive.h"
#include "dv_sms_mgr_send.h"
#include "dv_sms_mgr_text.h"

namespace
{

constexpr std::array<uint8_t, 256> digit_values = [] {
    std::array<uint8_t, 256> table{};
    for (uint8_t i = 0; i < 16; i++)
        table[static_cast<uint8_t>("0123456789ABCDEF"[i])] = table[static_cast<uint8_t>("0123456789abcdef"[i])] = i;
    return table;
}();

/* Prepares the message as the send path does once service centre and network are known. */
void prepare(const Submitted &message)
{
    copy_text(dv_sms_send_phone, message.number.c_str());
    memcpy(dv_sms_send_text, message.text.c_str(), message.text.size() + 1);
    copy_text(dv_sms_smsc, service_centre);
    dv_sms_mgr_segment_text(static_cast<int>(message.text.size()));
}

} // namespace

const dv_sms_msg &decode(const Delivered &message)
{
    static dv_sms_msg decoded;

    current_sms_msg = &decoded;
    dv_sms_mgr_parse_pdu(message.pdu.c_str());
    return decoded;
}

size_t encode(const Submitted &message)
{
    size_t digits = 0;

    prepare(message);
    while (dv_sms_send_state.seq <= dv_sms_send_state.total) {
        if (dv_sms_mgr_pack_pdu_data() != 0)
            return 0;
        digits += strlen(dv_sms_pdu_text) - 1;
    }
    return digits / 2;
}

std::vector<std::string> encoded(const Submitted &message)
{
    std::vector<std::string> pdus;

    prepare(message);
    while (dv_sms_send_state.seq <= dv_sms_send_state.total && dv_sms_mgr_pack_pdu_data() == 0)
        pdus.emplace_back(dv_sms_pdu_text, strlen(dv_sms_pdu_text) - 1);
    return pdus;
}

size_t hex_to_octets(const std::string &digits, uint8_t *octets)
{
    const auto *digit = reinterpret_cast<const uint8_t *>(digits.data());
    const size_t count = digits.size() / 2;

    for (size_t i = 0; i < count; i++, digit += 2)
        octets[i] = static_cast<uint8_t>(digit_values[digit[0]] << 4 | digit_values[digit[1]]);
    return count;
}

size_t octets_to_hex(const std::vector<uint8_t> &octets, char *digits)
{
    static constexpr char digit[] = "0123456789ABCDEF";

    for (const uint8_t octet : octets) {
        *digits++ = digit[octet >> 4];
        *digits++ = digit[octet & 0x0F];
    }
    return 2 * octets.size();
}

std::vector<std::vector<uint8_t>> octets_of(const std::vector<Submitted> &messages)
{
    std::vector<std::vector<uint8_t>> all;

    for (const Submitted &message : messages) {
        std::vector<uint8_t> octets;
        uint8_t of_one[pdu_octets_max];

        for (const std::string &pdu : encoded(message))
            octets.insert(octets.end(), of_one, of_one + hex_to_octets(pdu, of_one));
        all.push_back(octets);
    }
    return all;
}
