#include "differences.h"

#include <algorithm>

#include "elements.h"
#include "text.h"

namespace pdu
{
namespace
{

constexpr uint8_t escape = 0x1B;
constexpr size_t most_text = 255; /* bytes of a part's text */
constexpr const char *no_rule = "the decoder's own arithmetic";

std::string in_quotes(const std::string &bytes)
{
    return '"' + sms_client::make_printable(sms_client::make_readable(bytes).text, false) + '"';
}

/* Reasons that apply at the same time, one behind the other. */
class reasons
{
public:
    void add(bool applies, const char *why)
    {
        if (applies)
            text_ += (text_.empty() ? "" : "; ") + std::string(why);
    }
    std::string text() const { return text_.empty() ? no_rule : text_; }

private:
    std::string text_;
};

/* --- the sender --- */

bool is_name(const message &m)
{
    return (m.address_type >> 4 & 7) == 5;
}

/* As the daemon tells a name: by a digit from A to E. */
bool has_letters(const octets &address)
{
    const auto is_letter = [](unsigned digit) { return digit >= 0x0A && digit <= 0x0E; };
    return std::any_of(address.begin(), address.end(),
                       [&](uint8_t octet) { return is_letter(octet >> 4) || is_letter(octet & 0x0Fu); });
}

void compare_sender(const message &m, const daemon_view &d, std::vector<difference> &out)
{
    const std::string sender = sms_client::make_readable(d.sender).text;
    if (m.address == sender)
        return;
    const bool letters = has_letters(m.address_value);
    const size_t octets = m.address_value.size();
    reasons why;
    why.add(
        is_name(m) && !letters,
        "whether a sender is a name is told by its digits (any letter but F), not by its type: this one counts as a "
        "number");
    why.add(!is_name(m) && letters,
            "a digit above 9 (*, #, a, b, c) makes it a name: that is told by the digits, not by the type");
    why.add(letters && octets >= 8,
            "of a name of 8 octets and more (A / 8) * 7 + A % 8 octets are read: it loses its end");
    why.add(letters && m.address.find(' ') != std::string::npos,
            "a blank becomes \"$\", since blanks divide the fields of a filed record");
    why.add(letters && octets < 8,
            "as many characters are converted as the name has octets, with the daemon's alphabet");
    why.add((m.address_type >> 4 & 7) == 1 && m.address_type != 0x91, "only the type 91 makes a number international");
    why.add(m.address_type == 0x91 && octets == 0, "the \"+\" of type 91 stands also in front of no digits");
    why.add(m.address.find('?') != std::string::npos, "a fill in front of the end stays as \"F\"");
    why.add(!is_name(m) && m.address_digits % 2 == 1 && octets > 0 && (m.address_value.back() >> 4) != 0x0F,
            "digits are read in pairs: one that stands where the fill should be is kept");
    why.add(m.address.size() > 31, "a sender has at most 31 characters");
    out.push_back({"sender", in_quotes(m.address), in_quotes(d.sender), why.text()});
}

/* --- date, place, kind of message --- */

std::string digits_only(const std::string &text, size_t most)
{
    std::string out;
    for (const char c : text)
        if (c >= '0' && c <= '9' && out.size() < most)
            out += c;
    return out;
}

void compare_date(const message &m, const daemon_view &d, std::vector<difference> &out)
{
    if (m.date.empty())
        return;
    reasons why;
    why.add(m.zone != 0, "the time zone is not looked at: the service centre's local time is filed");
    const bool same = digits_only(m.date, 14) == digits_only(d.date, 14);
    why.add(!same, "the digits are taken as they stand");
    if (m.zone != 0 || !same)
        out.push_back(
            {"date", m.date, sms_client::make_printable(sms_client::make_readable(d.date).text, false), why.text()});
}

std::string in_words(const place &p)
{
    return "part " + std::to_string(p.sequence) + " of " + std::to_string(p.total) + ", reference " +
           std::to_string(p.reference) + (p.wide ? " (16 bits)" : "");
}

void compare_place(const message &m, const daemon_view &d, std::vector<difference> &out)
{
    const bool first = !m.header.empty() && m.header[0].id == concatenation_8bit;
    const std::string standard = m.part ? in_words(*m.part) : "a message of its own";
    const std::string daemon =
        d.concatenated ? in_words({d.reference, false, d.total, d.sequence}) : "a message of its own";
    if (standard == daemon)
        return;
    reasons why;
    why.add(m.part && m.part->wide, "parts are matched by 8-bit references: a 16-bit one makes no part");
    why.add(m.part && !m.part->wide && !first, "only the header's first element is looked at");
    why.add(m.part && first && m.part->wide == false && d.concatenated, "the first element is taken as it stands");
    why.add(!m.part && d.concatenated, "the length of the concatenation element is not checked");
    out.push_back({"concatenation", standard, daemon, why.text()});
}

alphabet alphabet_of_daemon(uint8_t dcs)
{
    const unsigned kept = (dcs & 0xC0) == 0 ? dcs & 0x0Cu : (dcs & 0xF0) == 0xF0 ? dcs & 0x04u : dcs;
    return kept == 0x08 ? alphabet::ucs2 : kept == 0x04 ? alphabet::data : alphabet::gsm7;
}

void compare_coding(const message &m, std::vector<difference> &out)
{
    const alphabet taken = alphabet_of_daemon(*m.dcs);
    if (taken != m.coding)
        out.push_back({"alphabet", name_of(m.coding), name_of(taken),
                       "outside the coding groups 00 and 1111 every message counts as 7-bit"});
    if (m.compressed)
        out.push_back({"compression", "compressed", "not compressed", "the bit is not looked at"});
    const bool has_class = (*m.dcs & 0x90) == 0x10 || (*m.dcs & 0xF0) == 0xF0;
    if (has_class && (*m.dcs & 0x03) == 0)
        out.push_back({"class 0", "shown at once, not kept", "filed as any other",
                       "the message class is not looked at: a router has no display"});
    if ((*m.dcs & 0xF0) == 0xC0)
        out.push_back({"message waiting", "the text may be discarded", "filed as any other",
                       "message waiting indications are not looked at"});
}

void compare_protocol(const message &m, std::vector<difference> &out)
{
    if (m.pid == 0x40)
        out.push_back({"Short Message Type 0", "acknowledged, and neither shown nor kept", "filed as any other",
                       "TP-PID is not looked at"});
    if (m.pid >= 0x41 && m.pid <= 0x47)
        out.push_back({"Replace Short Message", "takes the place of the last one of its type and sender",
                       "filed as a further message", "TP-PID is not looked at"});
}

/* --- the text --- */

bool has_code(const message &m, uint8_t code)
{
    bool escaped = false;
    for (const uint8_t septet : m.septets) {
        if (!escaped && septet == code)
            return true;
        escaped = !escaped && septet == escape;
    }
    return false;
}

bool has_unknown_extension(const octets &septets)
{
    constexpr uint8_t known[] = {0x0A, 0x14, 0x28, 0x29, 0x2F, 0x3C, 0x3D, 0x3E, 0x40, 0x65};
    for (size_t i = 0; i < septets.size(); i++) {
        if (septets[i] != escape)
            continue;
        const bool there = ++i < septets.size();
        if (!there || std::find(std::begin(known), std::end(known), septets[i]) == std::end(known))
            return true;
    }
    return false;
}

bool has_half(const octets &ucs2)
{
    for (size_t i = 0; i + 1 < ucs2.size(); i += 2)
        if (ucs2[i] >= 0xD8 && ucs2[i] <= 0xDF)
            return true;
    return false;
}

bool has_zero(const octets &ucs2)
{
    for (size_t i = 0; i + 1 < ucs2.size(); i += 2)
        if (ucs2[i] == 0 && ucs2[i + 1] == 0)
            return true;
    return false;
}

/* The header that the daemon knows the national tables by. */
bool turns_turkish(const message &m)
{
    return m.header_octets == 4 && m.header.size() == 1 && language_of(m.header, single_shift) == turkish;
}

void reasons_of_septets(const message &m, const daemon_view &d, reasons &why)
{
    const bool shifted = language_of(m.header, single_shift) || language_of(m.header, locking_shift);
    const bool whole_septets = m.has_header && m.header_octets * 8 % 7 == 0;
    why.add(whole_septets,
            "behind a header that fills whole septets the fill counts as 7 bits, not 0: the first character is lost");
    why.add(has_code(m, 0x09), "septet 09 is the small c-cedilla");
    why.add(turns_turkish(m), "the tables for the Turkish single shift have entries of their own (04, 07, 0B, 0C, 11, "
                              "1C, 1D, 24, 40, 60; behind an escape 0A, 0F), and what they lack is U+FFFF");
    why.add(shifted && !turns_turkish(m),
            "national tables are used only behind the header 03 24 01 01 (Turkish single shift)");
    why.add(!turns_turkish(m) && has_unknown_extension(m.septets), "an escape without an extension gives the byte FF");
    why.add(m.body_short, "octets that are missing count as 0, each septet of them as \"@\"");
    why.add(m.text.size() > most_text, "a part's text is cut at 255 bytes");
    why.add(d.text.size() > m.text.size() && d.text.starts_with(m.text),
            "what lies behind the last character in the same octets stays behind it");
    why.add(m.udl > 160, "a length above that of a message wraps");
}

void reasons_of_ucs2(const message &m, const daemon_view &d, reasons &why)
{
    const bool shortened = m.has_header && d.text.size() < m.text.size();
    const bool single = d.septets && d.septets->body_len == 1 && d.text.empty();
    why.add(single, "a UCS-2 message of one octet that begins with 20 is not decoded");
    why.add(has_half(m.body),
            "the halves of a surrogate pair are stored one by one, three bytes each; readers join them");
    why.add(has_zero(m.body), "a character 0 ends the filed text");
    why.add(m.text.size() > most_text || (has_half(m.body) && m.body.size() * 3 / 2 > most_text),
            "a part's text is cut at 255 bytes");
    why.add(shortened && !has_half(m.body) && !has_zero(m.body),
            "the body is measured in septets also for UCS-2: behind this header its end is lost");
    why.add(m.body.size() % 2 != 0, "half a character is completed with a low octet 0");
    why.add(m.udl > 140, "a length above that of a message wraps");
}

void compare_text(const message &m, const daemon_view &d, std::vector<difference> &out)
{
    if (!m.has_text && m.body.empty())
        return;
    if (m.has_text && m.text == d.text)
        return;
    const bool other_alphabet = alphabet_of_daemon(m.dcs.value_or(0)) != m.coding || m.compressed;
    reasons why;
    why.add(other_alphabet, "read in another alphabet");
    if (!other_alphabet && m.coding == alphabet::gsm7)
        reasons_of_septets(m, d, why);
    else if (!other_alphabet && m.coding == alphabet::ucs2)
        reasons_of_ucs2(m, d, why);
    else
        why.add(!other_alphabet, "data is filed as text as it is");
    const std::string standard =
        m.has_text ? in_quotes(m.text) : std::string("no text: ") + (m.compressed ? "compressed" : name_of(m.coding));
    std::string daemon = in_quotes(d.text);
    if (!sms_client::is_utf8(d.text))
        daemon += ", stored as " + sms_client::to_hex(d.text);
    out.push_back({"text", standard, daemon, why.text()});
}

} // namespace

std::vector<difference> find_differences(const message &standard, const daemon_view &daemon)
{
    std::vector<difference> out;
    if (!daemon.taken)
        out.push_back({"PDU line", "a PDU", "not taken when it comes behind +CMT; read with AT+CMGR it is decoded",
                       daemon.refused});
    if (standard.kind != layout::deliver) {
        out.push_back({"kind of message", name_of(standard.kind), "read as SMS-DELIVER",
                       "TP-MTI is not looked at: the daemon asks for no status reports"});
        return out;
    }
    if (standard.has_address)
        compare_sender(standard, daemon, out);
    compare_date(standard, daemon, out);
    compare_place(standard, daemon, out);
    if (standard.dcs) {
        compare_protocol(standard, out);
        compare_coding(standard, out);
        compare_text(standard, daemon, out);
    }
    return out;
}

} // namespace pdu
