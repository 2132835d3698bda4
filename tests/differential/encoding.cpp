#include <cstring>

#include "differential.h"
#include "dv_sms_mgr_pdu.h"
#include "dv_sms_mgr_send.h"
#include "platform.h"
#include "sms_msg.h"
#include "vectors/reference.h"

namespace
{

using names = std::vector<const char *>;

struct part {
    bytes pdu;
    unsigned udl = 0, dcs = 0, septets_from = 0; /* where in the converted text it begins */
};

/* All parts as they would be submitted; empty when the daemon refuses. */
std::vector<part> encode(const request &r)
{
    std::vector<part> parts;
    sockmsg_record record = {};
    auto *payload = reinterpret_cast<sms_payload *>(record.payload);

    memcpy(payload->phone, r.number.data(), r.number.size());
    memcpy(payload->text, r.text.data(), std::min<size_t>(r.text.size(), SMS_TEXT_SIZE - 1));
    memset(&dv_sms_send_pdu, 0, sizeof dv_sms_send_pdu);
    if (dv_sms_mgr_parse_send_data(&record) != 0)
        return parts;
    for (int number = 1; number <= dv_sms_send_state.total; number++) {
        part p;
        p.septets_from = static_cast<unsigned>(dv_sms_send_state.text_pos - dv_sms_send_state.text_start);
        if (dv_sms_mgr_pack_pdu_data() != 0)
            return {};
        p.pdu = reference::unhex(std::string(dv_sms_pdu_text, strlen(dv_sms_pdu_text) - 1));
        p.udl = dv_sms_send_pdu.udl;
        p.dcs = dv_sms_send_pdu.dcs;
        parts.push_back(p);
    }
    return parts;
}

/* The text as it has to arrive. */
std::string sent_text(const request &r, bool ascii, names *behaviours)
{
    std::string out;

    if (!ascii) {
        for (const char32_t value : reference::characters(r.text)) {
            if (value > 0xFFFF)
                note(behaviours, "beyond-16-bits");
            out += reference::utf8(value & 0xFFFF);
        }
        return out;
    }
    for (const char c : r.text) {
        if (c == '`' || c == '\t')
            note(behaviours, "ascii-without-place");
        out += c == '`' ? '\'' : c == '\t' ? ' ' : c;
    }
    return out;
}

void compare_text(const request &r, const std::vector<part> &parts, bool ascii)
{
    names behaviours;
    std::string theirs;
    std::string applied = sent_text(r, ascii, &behaviours);
    const int left =
        static_cast<int>(dv_sms_send_state.text_start + dv_sms_send_state.text_len - dv_sms_send_state.text_pos);

    for (const part &p : parts) {
        const decoded got = gammu_decode(p.pdu);
        if (!got.good) {
            unexplained("libgammu takes a part", r.text, "refused", hex(p.pdu));
            return;
        }
        theirs += ascii ? got.text : single_tildes(got.text, &behaviours);
        settle("number, libgammu", r.number, got.phone, got.phone, {}, hex(p.pdu));
        const size_t index = static_cast<size_t>(&p - parts.data());
        const bool whole = parts.size() == 1 ? got.reference < 0
                                             : got.reference == dv_sms_send_state.ref &&
                                                   got.total == static_cast<int>(parts.size()) &&
                                                   got.sequence == static_cast<int>(index) + 1;
        settle("part, libgammu", whole ? "" : "header", "", "", {}, hex(p.pdu));
    }
    if (ascii && left > 0 && left <= static_cast<int>(parts.size()) && applied.starts_with(theirs)) {
        note(&behaviours, "parts-not-raised");
        applied = theirs;
    }
    /* Here the other side reads what the daemon says: what was asked, with what is stated, has to arrive. */
    settle("text sent, libgammu", theirs, r.text, applied, behaviours, r.number + ": " + r.text);
}

/* Septets and address octet by octet. */
void compare_octets(const request &r, const std::vector<part> &parts)
{
    const bool known = r.text.find_first_of("`\t") == std::string::npos;
    const bytes septets = osmocom_septets(r.text);
    const std::string digits = r.number.substr(r.number.starts_with('+') ? 1 : 0);

    for (const part &p : parts) {
        const size_t smsc = p.pdu[0] + size_t{1};
        const size_t octets = (digits.size() + 1) / 2;
        const bytes address(p.pdu.begin() + static_cast<long>(smsc + 4),
                            p.pdu.begin() + static_cast<long>(smsc + 4 + octets));
        const size_t header = parts.size() > 1 ? 6 : 0;
        const bytes body(p.pdu.begin() + static_cast<long>(smsc + 4 + octets + 4 + header), p.pdu.end());
        const size_t count = p.udl - (parts.size() > 1 ? 7 : 0);

        settle("address, libosmocore", hex(address), hex(osmocom_number_octets(digits)), hex(address), {}, r.number);
        if (!known || p.septets_from + count > septets.size())
            continue;
        const bytes theirs = osmocom_pack(
            bytes(septets.begin() + p.septets_from, septets.begin() + static_cast<long>(p.septets_from + count)),
            parts.size() > 1 ? 1 : 0);
        settle("septets, libosmocore", hex(body), hex(theirs), hex(theirs), {}, r.text);
    }
}

} // namespace

void compare_encoding(const request &r)
{
    const bool ascii = dv_sms_mgr_is_ascii(r.text.data(), static_cast<int>(r.text.size())) == 1;
    const std::vector<part> parts = encode(r);

    if (parts.empty()) {
        unexplained("encoded", "refused", r.text, r.number);
        return;
    }
    compare_text(r, parts, ascii);
    if (ascii)
        compare_octets(r, parts);
}
