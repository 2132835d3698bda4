#include "core_sending.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <filesystem>

#include "dv_sms_mgr_send.h"

static unsigned hex_digit(char digit)
{
    return static_cast<unsigned>(digit <= '9' ? digit - '0' : digit - 'A' + 10);
}

class pdu_text
{
public:
    explicit pdu_text(const std::string &hex) : hex_(hex) {}
    bool more() const { return at_ + 2 <= hex_.size(); }
    unsigned octet()
    {
        const unsigned value = more() ? hex_digit(hex_[at_]) << 4 | hex_digit(hex_[at_ + 1]) : 0;
        at_ += 2;
        return value;
    }
    std::string take(size_t octets)
    {
        const std::string taken = at_ <= hex_.size() ? hex_.substr(at_, 2 * octets) : "";
        at_ += 2 * octets;
        return taken;
    }
    bool at_end() const { return at_ == hex_.size(); }
    size_t left() const { return at_ <= hex_.size() ? (hex_.size() - at_) / 2 : 0; }

private:
    std::string hex_;
    size_t at_ = 0;
};

static std::string septets(const std::string &hex, unsigned skip_bits, unsigned count)
{
    std::string text;

    for (unsigned i = 0; i < count; i++) {
        unsigned value = 0;

        for (unsigned bit = 0; bit < 7; bit++) {
            const unsigned position = skip_bits + 7 * i + bit, octet = position / 8;
            if (2 * octet + 2 > hex.size())
                return text + "(cut)";
            const unsigned byte = hex_digit(hex[2 * octet]) << 4 | hex_digit(hex[2 * octet + 1]);
            value |= (byte >> (position % 8) & 1) << bit;
        }
        text += static_cast<char>(value);
    }
    return text;
}

submit read_submit(const std::string &command)
{
    submit read;
    const size_t comma = command.find(',');

    if (command.compare(0, 12, "AT+DORVYSMS=") != 0 || comma == std::string::npos || command.size() < comma + 3 ||
        command.compare(command.size() - 2, 2, "\x1A\r") != 0)
        return read;
    read.announced = std::stoi(command.substr(12, comma - 12));
    pdu_text in(command.substr(comma + 1, command.size() - comma - 3));

    const unsigned smsc_octets = in.octet();
    char length[3];
    snprintf(length, sizeof length, "%02X", smsc_octets);
    read.smsc = length + in.take(smsc_octets);
    read.tpdu = static_cast<int>(in.left());
    read.first_octet = in.octet();
    read.reference = in.octet();
    const unsigned digits = in.octet();
    const unsigned type = in.octet();
    const std::string swapped = in.take((digits + 1) / 2);
    if (type == 0x91)
        read.number = "+";
    for (size_t i = 0; i < digits && (i ^ 1) < swapped.size(); i++)
        read.number += swapped[i ^ 1];
    read.pid = in.octet();
    read.dcs = in.octet();
    read.validity = in.octet();
    read.udl = in.octet();

    const std::string user_data = in.take(in.left());
    unsigned header_octets = 0;
    if (read.first_octet & 0x40 && user_data.size() >= 2) {
        header_octets = 1 + (hex_digit(user_data[0]) << 4 | hex_digit(user_data[1]));
        read.header = user_data.substr(0, 2 * header_octets);
    }
    const unsigned octets = static_cast<unsigned>(user_data.size() / 2);
    if (read.dcs == 0x00) {
        const unsigned header_septets = (8 * header_octets + 6) / 7;
        read.text =
            read.udl < header_septets ? "(cut)" : septets(user_data, 7 * header_septets, read.udl - header_septets);
        read.well_formed = octets == (7 * read.udl + 7) / 8;
    } else {
        read.text = user_data.substr(2 * header_octets);
        read.well_formed = octets == read.udl;
    }
    read.well_formed = read.well_formed && in.at_end() && read.announced == read.tpdu;
    return read;
}

/* --- the fixture --- */

void sending::SetUp()
{
    core_bench::SetUp();
    setenv("TZ", "UTC0", 1);
    tzset();
    seams::set_time(1709647620); /* 2024-03-05 14:07:00 */
    platform.set_flag("SMS_CSCA", "+31653131313");
    platform.set_flag(last_code, "");
    platform.set_devinfo(301002, "LTE");
    start_over();
}

int sending::send(const std::string &phone, const std::string &text, uint32_t sender, uint32_t extra)
{
    const sockmsg_record request = make_message(DV_SMS_MGR_MSG_ID_SEND_SMS, phone, text, sender, extra);
    return dv_sms_mgr_send_sms(&request);
}

std::vector<submit> sending::submitted()
{
    std::vector<submit> all;

    for (const at_request &request : modem.requests())
        if (strncmp(request.text, "AT+DORVYSMS", 11) == 0)
            all.push_back(read_submit(request.text));
    return all;
}

void sending::start_over()
{
    modem.reset();
    forget();
    platform.set_flag(last_code, "");
    dv_sms_send_state.ref = 0;
    std::filesystem::remove_all("mnt");
    std::filesystem::create_directories("mnt/data/sms/sms_send"); /* or filing would speak of it */
}

std::string repeat(const std::string &text, int times)
{
    std::string out;

    for (int i = 0; i < times; i++)
        out += text;
    return out;
}

std::string letters(int count)
{
    std::string out;

    for (int i = 0; i < count; i++)
        out += static_cast<char>('a' + i % 23);
    return out;
}
