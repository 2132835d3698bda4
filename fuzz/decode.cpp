/* The decoder: every line is the hex text of a PDU. What comes out is held to the slow decoder of the unit tests;
 * parts are kept and joined as the receive path does it. */
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_pdu.h"
#include "dv_sms_mgr_receive.h"
#include "must.h"
#include "platform.h"
#include "sms_msg.h"
#include "vectors/reference.h"

extern "C" {
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t max_size, unsigned seed);
}

namespace
{

constexpr size_t most_digits = 1200; /* more than twice what any line holds */
constexpr uint64_t mark = 0x5AA55AA55AA55AA5;

/* The record between two marks. */
struct marked_msg {
    uint64_t in_front = mark;
    dv_sms_msg msg = {};
    uint64_t behind = mark;
};

counter decoded("decoded");

/* From a copy without a byte to spare. */
dv_sms_msg decode(std::string_view pdu)
{
    const auto copy = std::make_unique_for_overwrite<char[]>(pdu.size() + 1);
    marked_msg box;

    ++decoded;
    pdu.copy(copy.get(), pdu.size());
    copy[pdu.size()] = '\0';
    memset(box.msg.phone, 'p', sizeof box.msg.phone);
    memset(box.msg.date, 'd', sizeof box.msg.date);
    current_sms_msg = &box.msg;
    dv_sms_mgr_parse_pdu(copy.get());
    current_sms_msg = nullptr;
    must(box.in_front == mark && box.behind == mark);
    return box.msg;
}

/* Well-formed but for surrogates, which are written one by one, and 0xFF, which stands for an unknown extension. */
bool is_utf8(const char *text)
{
    while (*text != '\0') {
        const auto lead = static_cast<uint8_t>(*text++);
        const int more = lead < 0x80 || lead == 0xFF   ? 0
                         : lead >= 0xC2 && lead < 0xE0 ? 1
                         : lead >= 0xE0 && lead < 0xF0 ? 2
                                                       : -1;
        if (more < 0)
            return false;
        for (int i = 0; i < more; i++)
            if ((static_cast<uint8_t>(*text++) & 0xC0) != 0x80)
                return false;
    }
    return true;
}

template <size_t Size> bool is_zero_behind(const char (&field)[Size])
{
    const size_t length = strnlen(field, Size);

    for (size_t i = length; i < Size; i++)
        if (field[i] != '\0')
            return false;
    return length < Size;
}

void compare(const dv_sms_msg &msg, const reference::delivered &expected)
{
    must(expected.phone == msg.phone);
    must(expected.date == msg.date);
    must(expected.text == msg.text);
    must(msg.concatenated == (expected.concatenated ? 1U : 0U));
    must(expected.reference == msg.reference && expected.total == msg.total && expected.sequence == msg.sequence);
}

unsigned octet_at(std::string_view pdu, size_t at)
{
    return at + 2 > pdu.size() ? 0U : hex_char_to_value(pdu[at]) * 16U + hex_char_to_value(pdu[at + 1]);
}

/* Digits up to and with TP-UDL; 0 when they are not all there. */
size_t head_of(std::string_view pdu)
{
    const size_t address = 2 + 2 * size_t{octet_at(pdu, 0)} + 2;
    const size_t head = address + 4 + (octet_at(pdu, address) + 1) / 2 * size_t{2} + 4 + 14 + 2;

    return head <= pdu.size() ? head : 0;
}

/* What stood in front of the cut is decoded as before. */
void check_cut(std::string_view pdu, size_t at, const dv_sms_msg &whole, size_t head)
{
    const dv_sms_msg cut = decode(pdu.substr(0, at));

    if (head == 0 || at < head)
        return;
    must(memcmp(cut.phone, whole.phone, sizeof cut.phone) == 0);
    must(memcmp(cut.date, whole.date, sizeof cut.date) == 0);
}

/* 8-bit data are taken as they are. */
bool is_data(std::string_view pdu, size_t head)
{
    const unsigned dcs = head == 0 ? 0 : octet_at(pdu, head - 18);

    return ((dcs & 0xC0) == 0 && (dcs & 0x0C) == 0x04) || (dcs & 0xF4) == 0xF4;
}

dv_sms_msg check_line(std::string_view pdu, bool thorough)
{
    const dv_sms_msg msg = decode(pdu);
    const size_t head = head_of(pdu);

    must(is_zero_behind(msg.phone) && is_zero_behind(msg.date) && is_zero_behind(msg.text));
    must(strncmp(msg.date, "20", 2) == 0 && strlen(msg.date) <= 19);
    must(strchr(msg.phone, ' ') == nullptr);
    must(is_data(pdu, head) || is_utf8(msg.text));
    if (thorough) {
        compare(msg, reference::decode(std::string(pdu)));
        for (size_t at = pdu.size() % cut_step(); at < pdu.size(); at += cut_step())
            check_cut(pdu, at, msg, head);
    }
    return msg;
}

/* The parts of one reference in the order of their arrival. */
struct part {
    unsigned sequence;
    std::string text;
};

/* What the joiner gives for the first `total` parts taken off the newest end. */
std::string expected_join(std::vector<part> &parts, unsigned total)
{
    std::vector<std::string> slots(total);
    std::string text;

    for (unsigned taken = 0; taken < total && !parts.empty(); taken++) {
        const part newest = parts.back();
        parts.pop_back();
        if (newest.sequence >= 1 && newest.sequence <= total)
            slots[newest.sequence - 1] = newest.text;
    }
    for (const std::string &slot : slots)
        text += slot;
    return reference::cut(text, SMS_TEXT_SIZE - 1);
}

void link_and_join(dv_sms_msg *msg, std::map<unsigned, std::vector<part>> *waiting)
{
    std::vector<part> &parts = (*waiting)[msg->reference];

    current_sms_msg = msg;
    const bool first = sms_part_head == nullptr;
    const int missing = dv_sms_mgr_link_part();
    parts.push_back({msg->sequence, msg->text});
    must(missing == msg->total - (first ? 1 : static_cast<int>(parts.size() % 256)));
    if (missing <= 0) {
        const auto output = std::make_unique<char[]>(SMS_TEXT_SIZE);
        must(dv_sms_mgr_join_parts(output.get()) == 0);
        must(expected_join(parts, msg->total) == output.get());
    }
    current_sms_msg = nullptr;
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::map<unsigned, std::vector<part>> waiting;
    const std::string_view input(reinterpret_cast<const char *>(data), size);
    const bool thorough = is_thorough(data, size);

    platform::formats = thorough;
    platform::running now;
    for (size_t start = 0; start <= input.size();) {
        const size_t end = std::min(input.find('\n', start), input.size());
        const std::string_view line = input.substr(start, end - start);
        dv_sms_msg msg = check_line(line.substr(0, std::min(line.find('\0'), most_digits)), thorough);
        if (msg.concatenated)
            link_and_join(&msg, &waiting);
        start = end + 1;
    }
    while (sms_part_head != nullptr) {
        sms_part_node *next = sms_part_head->next;
        free(sms_part_head);
        sms_part_head = next;
    }
    return 0;
}

/* Mutates the octets of one line rather than its digits, three times in four. */
size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t max_size, unsigned seed)
{
    constexpr size_t most_octets = 400;
    const std::string_view text(reinterpret_cast<char *>(data), size);
    uint8_t octets[most_octets];
    char rest[2 * most_octets];

    if (seed % 4 == 0 || size == 0)
        return LLVMFuzzerMutate(data, size, max_size);
    const size_t point = seed / 4 % size;
    const size_t before = point == 0 ? std::string_view::npos : text.rfind('\n', point - 1);
    const size_t start = before == std::string_view::npos ? 0 : before + 1;
    const size_t end = std::min(text.find('\n', start), size);
    const size_t count = (end - start) / 2;

    if (count > most_octets || size - end > sizeof rest)
        return LLVMFuzzerMutate(data, size, max_size);
    for (size_t i = 0; i < count; i++)
        octets[i] = static_cast<uint8_t>(octet_at(text, start + 2 * i));
    const size_t length = LLVMFuzzerMutate(octets, count, most_octets);
    if (start + 2 * length + size - end > max_size)
        return LLVMFuzzerMutate(data, size, max_size);
    memcpy(rest, data + end, size - end);
    bytes_to_hex(octets, reinterpret_cast<char *>(data) + start, static_cast<int>(length));
    memcpy(data + start + 2 * length, rest, size - end);
    return start + 2 * length + size - end;
}
