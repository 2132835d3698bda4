#include "dv_sms_mgr_send.h"

#include <stdio.h>
#include <string.h>

#include "dv_sms_mgr.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_paths.h"
#include "dv_sms_mgr_pdu.h"
#include "dv_sms_mgr_receive.h"
#include "dv_sms_mgr_text.h"
#include "flag.h"

enum : uint8_t {
    MTI_MASK = 0x03,
    MTI_SUBMIT = 0x01,
    RD_BIT = 0x04,
    VPF_MASK = 0x18,
    VPF_RELATIVE = 0x10,
    UDHI_BIT = 0x40,
    VALIDITY_45_MINUTES = 8,
    CTRL_Z = 0x1A
};

enum {
    UDH_OCTETS = 6, /* of a concatenation header, its length octet included */
    UDH_SEPTETS = 7 /* the same with one fill bit */
};

char dv_sms_send_text[SEND_TEXT_MAX + 2];
char dv_sms_send_phone[SEND_PHONE_SIZE];
char dv_sms_smsc[SMSC_SIZE + 1];
dv_sms_pdu dv_sms_send_pdu;
dv_sms_send_ctx dv_sms_send_state;
char dv_sms_pdu_text[PDU_TEXT_SIZE];

/* --- encoding --- */

/* Bit 7 of a byte is set where one of the eight characters is a control character, and perhaps behind such. */
static uint64_t controls_among(uint64_t eight)
{
    constexpr uint64_t every_byte = 0x0101010101010101;
    const uint64_t none_is_delete = eight ^ 0x7F * every_byte;
    const uint64_t below_blank = (eight - ' ' * every_byte) & ~eight;

    return (below_blank | ((none_is_delete - every_byte) & ~none_is_delete)) & 0x80 * every_byte;
}

static uint64_t load_eight(const char *text)
{
    uint64_t eight;

    memcpy(&eight, text, 8);
    return eight;
}

/* Such a one would end the AT command too early. */
static bool has_control(const char *text, size_t length)
{
    uint64_t found = 0;

    if (length < 8) {
        uint64_t few = 0x3030303030303030;

        memcpy(&few, text, length);
        return controls_among(few) != 0;
    }
    for (size_t i = 0; i + 8 < length; i += 8)
        found |= controls_among(load_eight(text + i));
    return (found | controls_among(load_eight(text + length - 8))) != 0; /* may overlap the last */
}

int dv_sms_mgr_pdu_gen_phone(const char *number, dv_sms_pdu *record, int mode)
{
    if (number == nullptr || record == nullptr)
        return -1;
    const bool smsc = mode == PHONE_SMSC;
    const uint8_t type = *number == '+' ? TYPE_INTERNATIONAL : TYPE_UNKNOWN;

    if (*number == '+')
        number++;
    const size_t length = strlen(number);

    if (length > (smsc ? size_t{SMSC_DIGITS_MAX} : size_t{DEST_DIGITS_MAX}) || has_control(number, length))
        return -1;
    const int even =
        phone_to_semi_octets(number, smsc ? record->smsc_digits : record->dest_digits, static_cast<int>(length));
    if (smsc) {
        record->smsc_type = type;
        record->smsc_len = static_cast<uint8_t>(even / 2 + 1);
    } else {
        record->dest_type = type;
        record->dest_len = static_cast<uint8_t>(length);
    }
    return 0;
}

int dv_sms_mgr_pdu_gen_param(uint8_t *first_octet)
{
    if (first_octet == nullptr)
        return -1;
    unsigned octet = *first_octet;

    octet = (octet & ~unsigned{MTI_MASK}) | MTI_SUBMIT;
    octet = (octet & ~unsigned{UDHI_BIT}) | (dv_sms_send_state.concatenated ? unsigned{UDHI_BIT} : 0);
    octet &= ~unsigned{RD_BIT};
    octet = (octet & ~unsigned{VPF_MASK}) | VPF_RELATIVE;
    *first_octet = static_cast<uint8_t>(octet);
    return 0;
}

/* Characters of the send text that no part carries yet. */
static int text_left()
{
    return static_cast<int>(dv_sms_send_state.text_start + dv_sms_send_state.text_len - dv_sms_send_state.text_pos);
}

static int lesser(int a, int b)
{
    return a < b ? a : b;
}

/* What was put into the record's user data. */
struct user_data {
    int length; /* as TP-UDL counts it */
    int bytes;  /* of the record */
};

/* Raw octets. */
static user_data add_octets(dv_sms_pdu *record)
{
    dv_sms_send_ctx *state = &dv_sms_send_state;
    const int n = lesser(text_left(), state->seg_size);
    const int bytes = n > 0 ? n : 0;

    memcpy(record->ud, state->text_pos, static_cast<size_t>(bytes));
    record->ud_count = static_cast<uint8_t>(n);
    state->text_pos += state->seg_size;
    return {n, bytes};
}

/* Packed septets; behind a header one fill bit stands in front of the first. */
static user_data add_septets(dv_sms_pdu *record)
{
    dv_sms_send_ctx *state = &dv_sms_send_state;
    const auto *septets = reinterpret_cast<const uint8_t *>(state->text_pos);
    int n = lesser(text_left(), state->seg_size);
    int octets;

    if (!state->concatenated) {
        octets = dv_sms_mgr_pack_7bit(septets, record->ud, n);
    } else {
        if (n > 1 && septets[n - 1] == GSM7_ESCAPE)
            n--; /* an escape goes with its code into the next part */
        record->ud[0] = static_cast<uint8_t>((septets[0] & 0x7F) * 2);
        octets = dv_sms_mgr_pack_7bit(septets + 1, record->ud + 1, n - 1) + 1;
    }
    record->ud_count = static_cast<uint8_t>(octets);
    state->text_pos += n;
    return {n, octets};
}

/* UCS-2 as hex text. */
static user_data add_ucs2(dv_sms_pdu *record)
{
    dv_sms_send_ctx *state = &dv_sms_send_state;
    auto *text = reinterpret_cast<char *>(record->ud);

    state->text_pos = dv_sms_mgr_utf8_to_unicode_string(state->text_pos, text, state->seg_size);
    const auto digits = static_cast<int>(strlen(text));

    return {digits / 2, digits};
}

uint16_t dv_sms_mgr_pdu_gen_ud(dv_sms_pdu *record)
{
    dv_sms_send_ctx *state = &dv_sms_send_state;
    int count = 0;

    record->udh_len = 0;
    if (state->concatenated) {
        record->udh_len = UDH_OCTETS - 1;
        record->udh_iei = 0x00; /* concatenated message, 8-bit reference */
        record->udh_iedl = 3;
        record->udh_ref = state->ref;
        record->udh_total = state->total;
        record->udh_seq = state->seq;
        count = record->dcs == DCS_GSM7 ? UDH_SEPTETS : UDH_OCTETS;
    }
    const user_data added = record->dcs == DCS_8BIT   ? add_octets(record)
                            : record->dcs == DCS_GSM7 ? add_septets(record)
                                                      : add_ucs2(record);

    memset(record->ud + added.bytes, 0, sizeof record->ud - static_cast<size_t>(added.bytes));
    state->seq++;
    return static_cast<uint16_t>(count + added.length);
}

static char *put_digits(char *out, const char **digits, size_t octets)
{
    memcpy(out, *digits, 2 * octets);
    *digits += 2 * octets;
    return out + 2 * octets;
}

/* All octets around the addresses are made digits at once. Where the text ends; null: a null argument. */
static char *write_pdu(const dv_sms_pdu *record, char *out)
{
    if (record == nullptr || out == nullptr)
        return nullptr;
    const uint8_t octets[] = {
        record->smsc_len,    record->smsc_type,                                        /* service centre */
        record->first_octet, record->message_ref, record->dest_len, record->dest_type, /* destination */
        record->pid,         record->dcs,         record->validity, record->udl,       /* parameters */
        record->udh_len,     record->udh_iei,     record->udh_iedl,                    /* header */
        record->udh_ref,     record->udh_total,   record->udh_seq,
    };
    char digits[2 * sizeof octets];
    const char *next = digits;

    bytes_to_hex(octets, digits, sizeof octets);
    out = put_digits(out, &next, 2);
    out = stpcpy(out, record->smsc_digits);
    out = put_digits(out, &next, 4);
    out = stpcpy(out, record->dest_digits);
    out = put_digits(out, &next, 4);
    if (record->first_octet & UDHI_BIT)
        out = put_digits(out, &next, UDH_OCTETS);
    if (record->dcs == DCS_UCS2)
        out = stpcpy(out, reinterpret_cast<const char *>(record->ud));
    else
        out += bytes_to_hex(record->ud, out, record->ud_count);
    *out++ = CTRL_Z;
    *out = '\0';
    return out;
}

int dv_sms_mgr_pdu_to_str(const dv_sms_pdu *record, char *output)
{
    return write_pdu(record, output) != nullptr ? 0 : -1;
}

int dv_sms_mgr_pack_pdu_data()
{
    dv_sms_pdu *record = &dv_sms_send_pdu;

    if (dv_sms_mgr_pdu_gen_phone(dv_sms_smsc, record, PHONE_SMSC) != 0) {
        DV_TRACE("dv_sms_mgr_pdu_gen_phone failed");
        return -1;
    }
    if (dv_sms_mgr_pdu_gen_param(&record->first_octet) != 0) {
        DV_TRACE("dv_sms_mgr_pdu_gen_param failed");
        return -1;
    }
    record->message_ref = dv_sms_send_state.ref;
    if (dv_sms_mgr_pdu_gen_phone(dv_sms_send_state.dest, record, PHONE_DEST) != 0) {
        DV_TRACE("dv_sms_mgr_pdu_gen_phone failed");
        return -1;
    }
    record->pid = 0;
    record->validity = VALIDITY_45_MINUTES;
    const uint16_t udl = dv_sms_mgr_pdu_gen_ud(record);

    if (udl == 0) {
        DV_TRACE("dv_sms_mgr_pdu_gen_ud failed");
        return -1;
    }
    record->udl = static_cast<uint8_t>(udl);
    char *end = write_pdu(record, dv_sms_pdu_text);

    if (end == nullptr) {
        DV_TRACE("dv_sms_mgr_pdu_to_str failed");
        return -1;
    }
    memset(end, 0, static_cast<size_t>(dv_sms_pdu_text + sizeof dv_sms_pdu_text - end));
    return 0;
}

/* --- checks and segmentation --- */

/* What is done once for a message, and waits for the modem, is made small here and not fast ("cold"). */

/* 0: asked, whether the modem knows it or not; -1: it did not answer. */
[[gnu::cold]] static int ask_smsc()
{
    static constexpr char answer[] = "\r\n+CSCA: \"";
    char reply[256] = {};

    if (dv_sms_mgr_send_at(AT_TIMEOUT, reply, sizeof reply, "AT+CSCA?\r") != 0)
        return -1;
    if (strstr(reply, "\r\nOK\r\n") == nullptr)
        return 0;
    char *number = strstr(reply, answer);
    char *quote = number == nullptr ? nullptr : strchr(number + sizeof answer - 1, '"');

    if (quote == nullptr)
        return 0;
    *quote = '\0';
    copy_text(dv_sms_smsc, SMSC_SIZE, number + sizeof answer - 1);
    return 0;
}

[[gnu::cold]] int dv_sms_mgr_check_smsc()
{
    memset(dv_sms_smsc, 0, sizeof dv_sms_smsc);
    flag_get_item(SMS_CSCA_FLAG, dv_sms_smsc, SMSC_SIZE);
    return dv_sms_smsc[0] != '\0' ? 0 : ask_smsc();
}

int dv_sms_mgr_is_ascii(const char *text, int length)
{
    constexpr uint64_t high_bits = 0x8080808080808080;

    if (length >= 16) {
        const uint64_t last = load_eight(text + length - 16) | load_eight(text + length - 8); /* may overlap */

        for (int i = 0; i + 16 < length; i += 16)
            if ((load_eight(text + i) | load_eight(text + i + 8)) & high_bits)
                return 0;
        return (last & high_bits) == 0;
    }
    for (int i = 0; i < length; i++)
        if (static_cast<uint8_t>(text[i]) >= 0x80)
            return 0;
    return 1;
}

/* How much one message, or one part of several, carries (TS 23.040, 9.2.3.24). */
struct segment_sizes {
    uint8_t single;
    uint8_t part;
};

static constexpr segment_sizes sizes_gsm7 = {160, 153};
static constexpr segment_sizes sizes_8bit = {140, 133};
static constexpr segment_sizes sizes_ucs2 = {70, 67};

static void split(int length, const segment_sizes &sizes)
{
    dv_sms_send_ctx *state = &dv_sms_send_state;

    state->concatenated = length > sizes.single;
    state->seg_size = state->concatenated ? sizes.part : sizes.single;
    state->total = state->concatenated ? static_cast<uint8_t>((length + sizes.part - 1) / sizes.part) : uint8_t{1};
    state->seq = 1;
}

void dv_sms_mgr_segment_text(int length)
{
    dv_sms_send_ctx *state = &dv_sms_send_state;

    dv_sms_send_pdu.dcs = dv_sms_mgr_is_ascii(dv_sms_send_text, length) ? DCS_GSM7 : DCS_UCS2;
    state->text_start = dv_sms_send_text;
    state->text_pos = dv_sms_send_text;
    state->dest = dv_sms_send_phone;
    state->ref++;
    state->text_len = static_cast<uint16_t>(length);

    if (dv_sms_send_pdu.dcs == DCS_GSM7) {
        state->text_len = static_cast<uint16_t>(dv_sms_mgr_ascii_to_gsm7(length));
        split(state->text_len, sizes_gsm7);
    } else if (dv_sms_send_pdu.dcs == DCS_UCS2) {
        const int characters = dv_sms_mgr_utf8_char_count(dv_sms_send_text);

        split(characters, sizes_ucs2);
        if (!state->concatenated)
            state->seg_size = static_cast<uint8_t>(characters);
    } else {
        split(length, sizes_8bit);
    }
}

[[gnu::cold]] int dv_sms_mgr_check_send_sms(int length)
{
    if (dv_sms_mgr_check_smsc() != 0) {
        DV_EVENT("check smsc failed, return");
        return -1;
    }
    if (dv_sms_mgr_check_network_state() != 0) {
        DV_EVENT("sim state is error, please check!");
        return -1;
    }
    dv_sms_mgr_segment_text(length);
    return 0;
}

[[gnu::cold]] int dv_sms_mgr_parse_send_data(const sockmsg_record *record)
{
    sms_fields fields;

    if (record == nullptr)
        return -1;
    read_fields(&fields, record);
    if (fields.phone[0] == '\0' || fields.text[0] == '\0') {
        DV_EVENT("phone(%s)  send_data(%s) is error, can not send!", fields.phone, fields.text);
        return -1;
    }
    copy_text(dv_sms_send_phone, fields.phone);
    memset(dv_sms_send_text, 0, sizeof dv_sms_send_text);
    const size_t length = copy_text(dv_sms_send_text, SEND_TEXT_MAX + 1, fields.text);

    if (dv_sms_mgr_check_send_sms(static_cast<int>(length)) != 0) {
        DV_EVENT("check sim state and send data failed, return");
        return -1;
    }
    return 0;
}

/* --- submission --- */

[[gnu::cold]] int dv_sms_mgr_send_pdu_sms()
{
    const int octets = static_cast<int>(strlen(dv_sms_pdu_text) / 2) - dv_sms_send_pdu.smsc_len - 1;
    char command[PDU_TEXT_SIZE + 32];
    char reply[256] = {};

    snprintf(command, sizeof command, "AT+DORVYSMS=%d,%s\r", octets, dv_sms_pdu_text);
    if (debug_mode)
        printf("%s---%s---%d---at_buff:%s\n", __FILE__, __func__, __LINE__, command);
    if (dv_sms_mgr_send_at(AT_TIMEOUT, reply, sizeof reply, "%s", command) != 0) {
        DV_EVENT("send pdu at failed, return");
        return -1;
    }
    if (strstr(reply, "\r\nOK\r\n") == nullptr) {
        DV_EVENT("recv pdu at failed:%s", reply);
        return -1;
    }
    return 0;
}

/* Sends all parts, in order; the first that fails ends it. */
[[gnu::cold]] static int send_parts()
{
    while (dv_sms_send_state.seq <= dv_sms_send_state.total) {
        if (dv_sms_mgr_pack_pdu_data() != 0) {
            DV_EVENT_IN("dv_sms_mgr_send_sms", "packing pdu data failed, return");
            return -1;
        }
        if (dv_sms_mgr_send_pdu_sms() != 0) {
            DV_EVENT_IN("dv_sms_mgr_send_sms", "send sms failed, return");
            return -1;
        }
    }
    return 0;
}

[[gnu::cold]] int dv_sms_mgr_send_sms(const sockmsg_record *record)
{
    int result = dv_sms_mgr_parse_send_data(record);

    if (result != 0)
        DV_EVENT("parse send data failed, return");
    else
        result = send_parts();
    const bool sent = result == 0;

    if (record != nullptr && (record->sender_module_id != 0 || record->sender_extra != 0))
        dv_sms_mgr_update_last_err_code_flag(sent ? DV_SMS_MGR_ERR_NONE : DV_SMS_MGR_ERR_FAILED);
    return dv_sms_mgr_write_sms_to_file(BOX_SENT, sent ? SMS_FILE_STATE_DONE : SMS_FILE_STATE_NEW, record);
}
