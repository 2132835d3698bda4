#include "daemon_view.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "dv_sms_mgr_pdu.h"
#include "dv_sms_mgr_receive.h"
#include "dv_sms_mgr_report.h"
#include "dv_sms_mgr_send.h"
#include "sms_msg.h"
#include "stand_in_platform.h"

namespace pdu
{
namespace
{

std::mutex codec_lock; /* the codec's buffers are the process's */

/* The decoder's record while it works. */
class current_record
{
public:
    current_record() { current_sms_msg = &record_; }
    ~current_record() { current_sms_msg = nullptr; }
    current_record(const current_record &) = delete;
    current_record &operator=(const current_record &) = delete;

    const dv_sms_msg &record() const { return record_; }

private:
    dv_sms_msg record_ = {};
};

/* The list of parts is as empty behind this as in front. */
class clean_parts
{
public:
    clean_parts() { drop(); }
    ~clean_parts() { drop(); }
    clean_parts(const clean_parts &) = delete;
    clean_parts &operator=(const clean_parts &) = delete;

private:
    static void drop()
    {
        while (sms_part_head != nullptr) {
            sms_part_node *next = sms_part_head->next;
            std::free(sms_part_head);
            sms_part_head = next;
        }
    }
};

std::optional<septet_arithmetic> find_arithmetic(const std::vector<std::string> &log)
{
    septet_arithmetic found;
    for (const std::string &line : log) {
        const char *at = std::strstr(line.c_str(), "total_bit:");
        if (at != nullptr && std::sscanf(at, "total_bit:%d, body_len:%d, sms7bit_len:%d, offset:%d", &found.total_bit,
                                         &found.body_len, &found.sms7bit_len, &found.offset) == 4)
            return found;
    }
    return std::nullopt;
}

std::string refusal_of(const std::string &line)
{
    if (line.size() > PDU_LINE_SIZE - 1)
        return "a PDU line has at most " + std::to_string(PDU_LINE_SIZE - 1) + " characters";
    if (!dv_sms_mgr_is_pdu(line.c_str()))
        return "the second character of a PDU line lies between \"3\" and \"C\"";
    return "";
}

std::string refusal_of_number(std::string_view number)
{
    const size_t digits = number.size() - (number.starts_with('+') ? 1 : 0);
    if (digits > DEST_DIGITS_MAX)
        return "a destination has at most " + std::to_string(DEST_DIGITS_MAX) + " digits";
    return "a number holds no control characters";
}

void fill_request(sockmsg_record &record, std::string_view number, std::string_view text)
{
    sms_payload payload = {};
    std::memcpy(payload.phone, number.data(), std::min(number.size(), sizeof payload.phone));
    std::memcpy(payload.text, text.data(), std::min(text.size(), sizeof payload.text));
    std::memcpy(record.payload, &payload, sizeof payload);
}

/* Packs part after part; false when the encoder refuses. */
bool pack_parts(sent_message &out)
{
    const dv_sms_send_ctx &state = dv_sms_send_state;
    while (state.seq <= state.total) {
        const char *from = state.text_pos;
        if (dv_sms_mgr_pack_pdu_data() != 0)
            return false;
        sent_part part;
        part.pdu.assign(dv_sms_pdu_text, std::strlen(dv_sms_pdu_text) - 1); /* without Ctrl-Z */
        part.tpdu_octets = static_cast<int>(part.pdu.size() / 2) - dv_sms_send_pdu.smsc_len - 1;
        part.taken = static_cast<size_t>(state.text_pos - from);
        out.parts.push_back(std::move(part));
    }
    return true;
}

} // namespace

daemon_view decode_as_daemon(std::string_view line)
{
    const std::lock_guard hold(codec_lock);
    const std::string text(line);
    const current_record current;
    daemon_view out;
    out.refused = refusal_of(text);
    out.taken = out.refused.empty();
    stand_in::take_log();
    dv_sms_mgr_parse_pdu(text.c_str());
    const dv_sms_msg &record = current.record();
    out.sender = record.phone;
    out.date = record.date;
    out.text = record.text;
    out.concatenated = record.concatenated != 0;
    if (out.concatenated) {
        out.reference = record.reference;
        out.total = record.total;
        out.sequence = record.sequence;
    }
    out.log = stand_in::take_log();
    out.septets = find_arithmetic(out.log);
    return out;
}

sent_message encode_as_daemon(std::string_view number, std::string_view text, std::string_view service_centre,
                              unsigned reference)
{
    const std::lock_guard hold(codec_lock);
    static sockmsg_record record;
    sent_message out;
    record = {};
    fill_request(record, number, text);
    dv_sms_send_pdu = {};
    dv_sms_send_state = {};
    dv_sms_send_state.ref = static_cast<uint8_t>(reference - 1); /* raised for each message */
    stand_in::take_log();
    if (dv_sms_mgr_parse_send_data(&record) != 0) {
        out.refused = true;
        out.why = "neither number nor text may be empty";
        return out;
    }
    std::memset(dv_sms_smsc, 0, sizeof dv_sms_smsc);
    std::memcpy(dv_sms_smsc, service_centre.data(), std::min(service_centre.size(), sizeof dv_sms_smsc - 1));
    const dv_sms_send_ctx &state = dv_sms_send_state;
    out.ucs2 = dv_sms_send_pdu.dcs == DCS_UCS2;
    out.bytes = std::strlen(dv_sms_send_text);
    out.units = out.ucs2 ? static_cast<unsigned>(dv_sms_mgr_utf8_char_count(dv_sms_send_text)) : state.text_len;
    out.concatenated = state.concatenated != 0;
    out.per_part = out.ucs2 && !out.concatenated ? 70 : state.seg_size;
    out.total = state.total;
    if (!pack_parts(out)) {
        out.refused = true;
        out.why = refusal_of_number(number);
    }
    const auto sent = static_cast<unsigned>(state.text_pos - state.text_start);
    if (!out.ucs2 && !out.refused)
        out.unsent = sent < state.text_len ? state.text_len - sent : 0;
    return out;
}

std::vector<std::optional<std::string>> join_as_daemon(const std::vector<std::string> &lines)
{
    const std::lock_guard hold(codec_lock);
    const clean_parts around;
    static char joined[SMS_TEXT_SIZE];
    std::vector<std::optional<std::string>> out;
    for (const std::string &line : lines) {
        const current_record current;
        dv_sms_mgr_parse_pdu(line.c_str());
        out.emplace_back();
        if (!current.record().concatenated || dv_sms_mgr_link_part() > 0)
            continue;
        std::memset(joined, 0, sizeof joined);
        if (dv_sms_mgr_join_parts(joined) == 0)
            out.back() = joined;
    }
    stand_in::take_log();
    return out;
}

} // namespace pdu
