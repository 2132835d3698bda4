/* The encoder: the input is a service centre's number, a line end, a number, a line end, and a text. Every PDU is read
 * as the standard has it and then decoded as if it had come in. */
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "dv_sms_mgr.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_pdu.h"
#include "dv_sms_mgr_receive.h"
#include "dv_sms_mgr_send.h"
#include "must.h"
#include "platform.h"
#include "vectors/reference.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace
{

counter encoded("encoded");

struct request {
    std::string smsc, number, text;
};

std::string until(const std::string &text, char end)
{
    return text.substr(0, text.find(end));
}

request read_request(const uint8_t *data, size_t size)
{
    const std::string input(reinterpret_cast<const char *>(data), size);
    const size_t first = input.find('\n');
    const size_t second = first == std::string::npos ? first : input.find('\n', first + 1);

    return {input.substr(0, first), first == std::string::npos ? "" : input.substr(first + 1, second - first - 1),
            second == std::string::npos ? "" : input.substr(second + 1)};
}

sockmsg_record record_of(const request &r)
{
    sockmsg_record record = {};
    const auto payload = reinterpret_cast<sms_payload *>(record.payload);

    record.msg_id = DV_SMS_MGR_MSG_ID_SEND_SMS;
    memcpy(payload->phone, r.number.data(), std::min(r.number.size(), sizeof payload->phone));
    memcpy(payload->text, r.text.data(), std::min(r.text.size(), sizeof payload->text));
    return record;
}

bool is_digits(const std::string &number, size_t from)
{
    return number.find_first_not_of("0123456789", from) == std::string::npos;
}

/* What the number is when it comes back; only where it is one. */
void check_number(const std::string &asked, const std::string &got, unsigned type)
{
    const bool international = asked.starts_with('+');

    must(type == (international ? 0x91 : 0x81));
    if (is_digits(asked, international ? 1 : 0))
        must(got == asked);
}

/* The text as the default alphabet can say it: controls are Greek letters and the like. */
std::string expected_gsm7(const std::string &text)
{
    std::string out;

    for (const char c : text) {
        const auto code = static_cast<uint8_t>(c);
        if (code == 0x1A || code == 0x1E)
            out += reference::utf8(reference::default_character(code == 0x1A ? 0x05 : 0x7D));
        else if (code == '\t' || code == '`')
            out += code == '\t' ? ' ' : '\'';
        else if (code < ' ' || code == 0x7F)
            out += reference::utf8(reference::default_character(code));
        else
            out += c;
    }
    return out;
}

/* Well-formed and without a character that two octets cannot say. */
bool fits_ucs2(const std::string &text)
{
    std::string again;

    for (const char32_t value : reference::characters(text)) {
        if (value > 0xFFFF)
            return false;
        again += reference::utf8(value);
    }
    return again == text;
}

/* A part that ends the text with one character of U+2000 to U+20FF is taken for a sign of life when it comes in. */
bool is_left_out(const reference::submitted &part)
{
    return part.dcs == DCS_UCS2 && part.header.size() == 6 && part.ud.size() == 8 && part.ud[6] == 0x20;
}

/* The part comes back as a message from somebody. */
void check_round_trip(const request &r, const reference::submitted &part)
{
    const unsigned first_octet = 0x04 | (part.first_octet & 0x40);
    reference::bytes head = {static_cast<uint8_t>(first_octet)};
    dv_sms_msg msg = {};
    const std::string pdu = "00" + reference::hex(head) + "0B911316325476F800" +
                            reference::hex({static_cast<uint8_t>(part.dcs)}) + "42305041700002" +
                            reference::hex({static_cast<uint8_t>(part.udl)}) + reference::hex(part.ud);

    current_sms_msg = &msg;
    dv_sms_mgr_parse_pdu(pdu.c_str());
    current_sms_msg = nullptr;
    must(strcmp(msg.phone, "+31612345678") == 0);
    if (msg.concatenated)
        must(msg.reference == part.header[3] && msg.total == part.header[4] && msg.sequence == part.header[5]);
    must((msg.concatenated != 0) == !part.header.empty());
    if (is_left_out(part))
        return;
    /* An escape that the text brought along means what follows it, and that need not be a character. */
    if (part.dcs == DCS_UCS2 || r.text.find('\x1B') == std::string::npos)
        must(reference::cut(until(part.text, '\0'), SMS_MSG_TEXT_SIZE - 1) == msg.text);
}

/* One packed part: what the modem would be given. */
reference::submitted check_part(const request &r, int number)
{
    const std::string text(dv_sms_pdu_text, strnlen(dv_sms_pdu_text, sizeof dv_sms_pdu_text));
    must(text.size() < sizeof dv_sms_pdu_text && !text.empty() && text.back() == '\x1A');
    const auto parsed = reference::parse_submit(text.substr(0, text.size() - 1));

    must(parsed.has_value());
    const reference::submitted &part = *parsed;
    const bool septets = part.dcs == DCS_GSM7;
    must(septets || part.dcs == DCS_UCS2);
    must(part.whole && part.pid == 0 && part.validity == "08");
    must(part.udl > 0 && part.udl <= (septets ? 160 : 140) && part.ud.size() <= 140);
    must(part.message_reference == dv_sms_send_state.ref);
    check_number(r.smsc, part.smsc, part.smsc_type);
    check_number(r.number, part.destination, part.destination_type);
    if (dv_sms_send_state.total == 1) {
        must(part.first_octet == 0x11 && part.header.empty());
    } else {
        const reference::bytes header = {
            5, 0, 3, dv_sms_send_state.ref, dv_sms_send_state.total, static_cast<uint8_t>(number)};
        must(part.first_octet == 0x51 && part.header == header);
    }
    return part;
}

/* The command that submits it counts its octets without the service centre's. */
void check_submission()
{
    platform::commands.clear();
    must(dv_sms_mgr_send_pdu_sms() == 0);
    must(platform::commands.size() == 1);
    const std::string &command = platform::commands[0];
    const size_t comma = command.find(',');
    const std::string pdu = command.substr(comma + 1, command.size() - comma - 3);
    const size_t octets = pdu.size() / 2 - reference::unhex(pdu.substr(0, 2))[0] - 1;

    must(command == "AT+DORVYSMS=" + std::to_string(octets) + "," + pdu + "\x1A\r");
}

/* All parts, in order; their text. */
std::string check_parts(const request &r, bool thorough, bool *refused)
{
    const int total = dv_sms_send_state.total;
    std::string joined;

    for (int number = 1; number <= total; number++) {
        must(dv_sms_send_state.seq == number);
        if (dv_sms_mgr_pack_pdu_data() != 0) {
            *refused = true;
            return joined;
        }
        must(memchr(dv_sms_pdu_text, '\x1A', sizeof dv_sms_pdu_text - 1) != nullptr);
        must(dv_sms_send_pdu.udl > 0 && dv_sms_send_pdu.udl <= (dv_sms_send_pdu.dcs == DCS_GSM7 ? 160 : 140));
        if (!thorough)
            continue;
        const reference::submitted part = check_part(r, number);
        check_submission();
        check_round_trip(r, part);
        joined += part.text;
    }
    must(dv_sms_send_state.seq == total + 1);
    return joined;
}

/* A number that no command can carry. */
bool is_refused(const std::string &number, size_t most)
{
    const std::string digits = number.substr(number.starts_with('+') ? 1 : 0);

    for (const char c : digits)
        if (static_cast<uint8_t>(c) < ' ' || c == 0x7F)
            return true;
    return digits.size() > most;
}

/* The same text cut short encodes, too. */
void encode_cut_texts(sockmsg_record record)
{
    char *text = reinterpret_cast<sms_payload *>(record.payload)->text;

    for (size_t length = strnlen(text, 300); length > 1; length -= std::min(length - 1, cut_step())) {
        text[length - 1] = '\0';
        ++encoded;
        must(dv_sms_mgr_parse_send_data(&record) == 0);
        const int total = dv_sms_send_state.total;
        for (int number = 1; number <= total && dv_sms_mgr_pack_pdu_data() == 0; number++)
            must(memchr(dv_sms_pdu_text, '\x1A', sizeof dv_sms_pdu_text - 1) != nullptr);
    }
}

void check_text(const request &r, const std::string &joined)
{
    const bool ascii = dv_sms_mgr_is_ascii(r.text.data(), static_cast<int>(r.text.size())) == 1;
    const int left =
        static_cast<int>(dv_sms_send_state.text_start + dv_sms_send_state.text_len - dv_sms_send_state.text_pos);

    must((dv_sms_send_pdu.dcs == DCS_GSM7) == ascii);
    if (!ascii) {
        if (r.text.size() < SEND_TEXT_MAX && fits_ucs2(r.text))
            must(joined == r.text);
        return;
    }
    if (r.text.find('\x1B') != std::string::npos || dv_sms_send_state.text_len > SEND_TEXT_MAX)
        return;
    /* The count of parts is not raised for escapes that moved on: a septet a part may stay behind. */
    const std::string expected = expected_gsm7(r.text);
    must(expected.starts_with(joined));
    must(left >= 0 && left <= (dv_sms_send_state.total > 1 ? dv_sms_send_state.total : 0));
    must((left == 0) == (joined == expected));
}

/* As record and flag carry it. */
void shorten(request *r)
{
    r->smsc = until(r->smsc.substr(0, SMSC_SIZE), '\0');
    if (r->smsc.empty())
        r->smsc = "+31653131313"; /* the modem knows it */
    r->number = reference::cut(until(r->number.substr(0, SMS_PHONE_SIZE), '\0'), SEND_PHONE_SIZE - 1);
    r->text = reference::cut(until(r->text.substr(0, SMS_TEXT_SIZE), '\0'), SEND_TEXT_MAX);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool once = (platform::reset(), true);
    const bool thorough = is_thorough(data, size);
    request r = read_request(data, size);
    const sockmsg_record record = record_of(r);
    bool refused = false;

    platform::formats = once && thorough;
    platform::flags["SMS_CSCA"] = r.smsc;
    const bool complete =
        record.payload[SMS_DATE_SIZE] != '\0' && record.payload[SMS_DATE_SIZE + SMS_PHONE_SIZE] != '\0';
    shorten(&r);
    memset(&dv_sms_send_pdu, 0, sizeof dv_sms_send_pdu);
    platform::running now;
    ++encoded;
    const int result = dv_sms_mgr_parse_send_data(&record);
    must((result == 0) == complete);
    if (result != 0)
        return 0;
    const std::string joined = check_parts(r, thorough, &refused);
    must(refused == (is_refused(r.smsc, SMSC_DIGITS_MAX) || is_refused(r.number, DEST_DIGITS_MAX)));
    if (!refused && thorough)
        check_text(r, joined);
    platform::formats = false;
    if (thorough)
        encode_cut_texts(record);
    return 0;
}
