#include "message.h"

#include <algorithm>

#include "address.h"
#include "charset.h"
#include "cursor.h"
#include "data_coding.h"
#include "names.h"
#include "text.h"
#include "user_data.h"

namespace pdu
{
namespace
{

constexpr size_t most_address_digits = 20; /* TS 23.040, 9.1.2.5: ten octets */

/* Hex text as octets, up to what is none. */
octets take_hex(std::string_view hex, std::vector<problem> &problems)
{
    octets out;
    size_t at = 0;
    for (; at + 1 < hex.size(); at += 2) {
        const auto one = sim::from_hex(hex.substr(at, 2));
        if (!one)
            break;
        out.push_back((*one)[0]);
    }
    if (at + 1 == hex.size() && sim::from_hex("0" + std::string(hex.substr(at, 1))))
        problems.push_back({at / 2, "half an octet: an odd number of hex digits"});
    else if (at < hex.size())
        problems.push_back({at / 2, "no hex digits: \"" +
                                        sms_client::make_printable(sim::repair_utf8(hex.substr(at, 2)), false) + '"'});
    return out;
}

class reader
{
public:
    reader(message &out) : out_(out), in_(out.bytes) {}

    void read(const options &how)
    {
        if (how.has_smsc)
            service_centre();
        first_octet(how.as);
        if (out_.kind == layout::deliver)
            deliver();
        else if (out_.kind == layout::submit)
            submit();
        else
            status_report();
        if (in_.left() > 0) {
            field rest = take("behind the message", in_.left());
            out_.problems.push_back({rest.offset, std::to_string(rest.bytes.size()) +
                                                      (rest.bytes.size() == 1 ? " octet" : " octets") +
                                                      " too many behind the user data"});
            add(rest, "belongs to no field");
        }
    }

private:
    field take(const char *name, size_t count) { return in_.take(name, count, out_.fields); }

    void add(field one, std::string meaning)
    {
        one.meaning = std::move(meaning);
        out_.fields.push_back(std::move(one));
    }

    void fault(size_t offset, std::string what) { out_.problems.push_back({offset, std::move(what)}); }

    void service_centre()
    {
        field length = take("SMSC length", 1);
        const uint8_t count = length.bytes[0];
        out_.smsc_octets = count + 1u;
        add(length, count == 0   ? "no service centre given"
                    : count == 1 ? "1 octet: a type, and no number"
                                 : std::to_string(count) + " octets, the type included");
        if (count == 0)
            return;
        field type = take("SMSC type", 1);
        const uint8_t octet = type.bytes[0];
        add(type, type_of_address(octet));
        if (count == 1)
            return;
        field number = take("SMSC number", count - 1u);
        const size_t digits = number.bytes.size() * 2 - ((number.bytes.back() >> 4) == 0x0F ? 1 : 0);
        check_digits(number, digits);
        add(number, address_text(octet, number.bytes, digits));
    }

    void check_digits(const field &number, size_t digits)
    {
        for (size_t i = 0; i < number.bytes.size() * 2; i++) {
            const unsigned digit = i % 2 == 0 ? number.bytes[i / 2] & 0x0Fu : number.bytes[i / 2] >> 4;
            if (i < digits && digit == 0x0F)
                return fault(number.offset + i / 2, "a fill in front of the number's end");
            if (i >= digits && digit != 0x0F)
                return fault(number.offset + i / 2, "the fill behind an odd number of digits should be F");
        }
    }

    void first_octet(reading as)
    {
        field octet = take("first octet", 1);
        out_.first_octet = octet.bytes[0];
        const unsigned type = out_.first_octet & 3u;
        out_.kind = type == 1 ? layout::submit : type == 2 ? layout::status_report : layout::deliver;
        if (as != reading::by_type)
            out_.kind = as == reading::submit ? layout::submit : layout::deliver;
        out_.has_header = (out_.first_octet & 0x40) != 0;
        octet.children.push_back(bits("TP-MTI", 0x03, type_name(type)));
        if (out_.kind == layout::submit)
            submit_bits(octet);
        else
            deliver_bits(octet);
        add(octet, name_of(out_.kind));
    }

    std::string type_name(unsigned type) const
    {
        constexpr const char *named[] = {"SMS-DELIVER", "SMS-SUBMIT", "SMS-STATUS-REPORT",
                                         "reserved, to be read as SMS-DELIVER"};
        const bool agrees =
            (type == 1) == (out_.kind == layout::submit) && (type == 2) == (out_.kind == layout::status_report);
        return named[type] + (agrees ? std::string() : std::string("; read as ") + name_of(out_.kind) + ", as asked");
    }

    field bits(const char *name, unsigned mask, std::string meaning) const
    {
        return bit_field(name, static_cast<uint8_t>(out_.first_octet), mask, in_.at() - 1, std::move(meaning));
    }

    bool has(unsigned bit) const { return (out_.first_octet & bit) != 0; }

    void deliver_bits(field &octet)
    {
        octet.children.push_back(bits("TP-MMS", 0x04, has(0x04) ? "no more messages wait" : "more messages wait"));
        octet.children.push_back(bits("TP-LP", 0x08, has(0x08) ? "forwarded or spawned" : "not forwarded nor spawned"));
        if (out_.kind == layout::status_report)
            octet.children.push_back(bits("TP-SRQ", 0x20, has(0x20) ? "about an SMS-COMMAND" : "about an SMS-SUBMIT"));
        else
            octet.children.push_back(
                bits("TP-SRI", 0x20, has(0x20) ? "the sender gets a status report" : "no status report"));
        header_bit(octet);
        if (out_.kind == layout::deliver)
            octet.children.push_back(bits("TP-RP", 0x80, has(0x80) ? "a reply path is set" : "no reply path"));
    }

    void submit_bits(field &octet)
    {
        constexpr const char *formats[] = {"no TP-VP", "TP-VP enhanced", "TP-VP relative", "TP-VP absolute"};
        octet.children.push_back(
            bits("TP-RD", 0x04, has(0x04) ? "duplicates are rejected" : "duplicates are accepted"));
        octet.children.push_back(bits("TP-VPF", 0x18, formats[out_.first_octet >> 3 & 3]));
        octet.children.push_back(
            bits("TP-SRR", 0x20, has(0x20) ? "a status report is wanted" : "no status report is wanted"));
        header_bit(octet);
        octet.children.push_back(bits("TP-RP", 0x80, has(0x80) ? "a reply path is wanted" : "no reply path"));
    }

    void header_bit(field &octet)
    {
        octet.children.push_back(
            bits("TP-UDHI", 0x40, out_.has_header ? "the user data begins with a header" : "no header"));
    }

    void address(const char *name)
    {
        field group;
        group.name = name;
        group.offset = in_.at();
        try {
            address_parts(group);
        } catch (const cut_short &) {
            gather(group);
            throw;
        }
        gather(group);
    }

    void address_parts(field &group)
    {
        field length = in_.take("address length", 1, group.children);
        const size_t digits = length.bytes[0];
        length.meaning = std::to_string(digits) + (digits == 1 ? " semi-octet" : " semi-octets");
        group.children.push_back(length);
        field type = in_.take("type of address", 1, group.children);
        out_.address_type = type.bytes[0];
        type.meaning = type_of_address(type.bytes[0]);
        group.children.push_back(type);
        if (digits > most_address_digits)
            fault(length.offset, "an address has at most 20 semi-octets");
        field value = in_.take("address value", (digits + 1) / 2, group.children);
        if ((type.bytes[0] >> 4 & 7) != 5)
            check_digits(value, digits);
        out_.has_address = true;
        out_.address_digits = digits;
        out_.address_value = value.bytes;
        out_.address = address_text(type.bytes[0], value.bytes, digits);
        group.meaning = sms_client::make_printable(out_.address, false);
        value.meaning = group.meaning;
        if (digits > 0)
            group.children.push_back(value);
    }

    /* A group's octets are those of its fields. */
    void gather(field &group)
    {
        for (const field &child : group.children)
            group.bytes.insert(group.bytes.end(), child.bytes.begin(), child.bytes.end());
        if (!group.bytes.empty())
            out_.fields.push_back(group);
    }

    void time(const char *name)
    {
        field stamp = take(name, 7);
        const time_stamp when = read_time(stamp.bytes);
        if (when.wrong)
            fault(stamp.offset + *when.wrong, std::string(name) + " holds no time here");
        if (out_.date.empty() && out_.kind != layout::submit) {
            out_.date = when.text;
            out_.zone = when.zone;
        }
        add(stamp, when.text);
    }

    void protocol()
    {
        field octet = take("TP-PID", 1);
        out_.pid = octet.bytes[0];
        add(octet, protocol_identifier(octet.bytes[0]));
    }

    void coding()
    {
        field octet = take("TP-DCS", 1);
        data_coding what = read_data_coding(octet.bytes[0], octet.offset);
        out_.dcs = octet.bytes[0];
        out_.coding = what.coding;
        out_.compressed = what.compressed;
        octet.children = std::move(what.bits);
        add(octet, what.meaning);
    }

    void reference()
    {
        field octet = take("TP-MR", 1);
        add(octet, "reference " + std::to_string(octet.bytes[0]));
    }

    void deliver()
    {
        address("TP-OA");
        protocol();
        coding();
        time("TP-SCTS");
        read_user_data(out_, in_);
    }

    void submit()
    {
        reference();
        address("TP-DA");
        protocol();
        coding();
        validity();
        read_user_data(out_, in_);
    }

    void validity()
    {
        constexpr size_t sizes[] = {0, 7, 1, 7};
        const unsigned format = out_.first_octet >> 3 & 3u;
        if (format == 0)
            return;
        if (format == 3)
            return time("TP-VP");
        field period = take("TP-VP", sizes[format]);
        add(period, format == 2 ? relative_validity(period.bytes[0]) : "enhanced format");
    }

    void status_report()
    {
        reference();
        address("TP-RA");
        time("TP-SCTS");
        time("TP-DT");
        field octet = take("TP-ST", 1);
        add(octet, status(octet.bytes[0]));
        if (in_.left() > 0)
            report_parameters();
    }

    void report_parameters()
    {
        field indicator = take("TP-PI", 1);
        const uint8_t present = indicator.bytes[0];
        add(indicator, std::string("follows:") + ((present & 1) != 0 ? " TP-PID" : "") +
                           ((present & 2) != 0 ? " TP-DCS" : "") + ((present & 4) != 0 ? " TP-UDL" : "") +
                           ((present & 7) == 0 ? " nothing" : ""));
        if ((present & 1) != 0)
            protocol();
        if ((present & 2) != 0)
            coding();
        if ((present & 4) != 0)
            read_user_data(out_, in_);
    }

    message &out_;
    cursor in_;
};

} // namespace

message read_message(std::string_view hex, const options &how)
{
    message out;
    std::vector<problem> in_digits;
    out.bytes = take_hex(hex, in_digits);
    try {
        reader(out).read(how);
    } catch (const cut_short &end) {
        out.problems.push_back(end.why);
    }
    if (!in_digits.empty()) /* then that is why the octets end */
        std::erase_if(out.problems, [&](const problem &p) { return p.offset >= out.bytes.size(); });
    out.problems.insert(out.problems.end(), in_digits.begin(), in_digits.end());
    std::stable_sort(out.problems.begin(), out.problems.end(),
                     [](const problem &a, const problem &b) { return a.offset < b.offset; });
    return out;
}

const char *name_of(layout kind)
{
    constexpr const char *names[] = {"SMS-DELIVER", "SMS-SUBMIT", "SMS-STATUS-REPORT"};
    return names[static_cast<size_t>(kind)];
}

const char *name_of(alphabet coding)
{
    constexpr const char *names[] = {"GSM 7-bit default alphabet", "8-bit data", "UCS-2"};
    return names[static_cast<size_t>(coding)];
}

} // namespace pdu
