#include "print.h"

#include <cstdio>

#include "charset.h"
#include "text.h"

namespace pdu
{
namespace
{

constexpr size_t octets_in_line = 10;
constexpr size_t octets_width = 2 * octets_in_line + 2;
constexpr size_t name_width = 20;

std::string padded(std::string text, size_t width)
{
    if (text.size() < width)
        text.append(width - text.size(), ' ');
    return text;
}

std::string place_of(size_t offset)
{
    char text[16];
    std::snprintf(text, sizeof text, "%4zu  ", offset);
    return text;
}

std::string shown(const std::string &bytes)
{
    return '"' + sms_client::make_printable(sms_client::make_readable(bytes).text, false) + '"';
}

/* Offset, octets, name and meaning. Octets that do not fit one line go on below. */
void add_field(std::string &out, const field &one, size_t depth)
{
    const bool divided = !one.children.empty() && !one.children[0].bytes.empty();
    std::string hex = one.bits.empty() ? sim::to_hex(one.bytes) : one.bits;
    if (divided)
        hex.clear(); /* its fields show them */
    const std::string first = hex.substr(0, 2 * octets_in_line);
    std::string line = one.bits.empty() && !(one.bytes.empty()) ? place_of(one.offset) : std::string(6, ' ');
    line += padded(first, octets_width) + std::string(2 * depth, ' ') + padded(one.name, name_width - 2 * depth);
    if (!one.meaning.empty())
        line += ' ' + one.meaning;
    line.erase(line.find_last_not_of(' ') + 1);
    out += line + '\n';
    for (size_t at = 2 * octets_in_line; at < hex.size(); at += 2 * octets_in_line)
        out += place_of(one.offset + at / 2) + hex.substr(at, 2 * octets_in_line) + '\n';
    for (const field &child : one.children)
        add_field(out, child, depth + 1);
}

void add_fact(std::string &out, const char *name, const std::string &value)
{
    out += "  " + padded(name, 14) + ' ' + value + '\n';
}

std::string line_of(const septet_arithmetic &s)
{
    return "total_bit " + std::to_string(s.total_bit) + ", body_len " + std::to_string(s.body_len) + ", sms7bit_len " +
           std::to_string(s.sms7bit_len) + ", offset " + std::to_string(s.offset);
}

void add_daemon(std::string &out, const daemon_view &d)
{
    out += "\nThe SMS manager makes of it:\n";
    if (!d.taken)
        add_fact(out, "taken", "no: " + d.refused);
    add_fact(out, "sender", shown(d.sender));
    add_fact(out, "date", sms_client::make_printable(sms_client::make_readable(d.date).text, false));
    add_fact(out, "text", shown(d.text));
    if (!sms_client::is_utf8(d.text))
        add_fact(out, "", "stored as " + sms_client::to_hex(d.text));
    add_fact(out, "part",
             d.concatenated ? std::to_string(d.sequence) + " of " + std::to_string(d.total) + ", reference " +
                                  std::to_string(d.reference)
                            : std::string("a message of its own"));
    if (d.joined)
        add_fact(out, "joined", shown(*d.joined) + ", with the parts above");
    if (d.septets)
        add_fact(out, "septets", line_of(*d.septets));
}

void add_differences(std::string &out, const std::vector<difference> &all)
{
    if (all.empty())
        return;
    out += "\nWhere it differs from the standard, on purpose:\n";
    for (const difference &each : all) {
        add_fact(out, each.what.c_str(), "");
        out.erase(out.find_last_not_of(" \n") + 1);
        out += '\n';
        add_fact(out, "    standard", each.standard);
        add_fact(out, "    daemon", each.daemon);
        add_fact(out, "    why", each.why);
    }
}

void add_problems(std::string &out, const std::vector<problem> &problems)
{
    if (problems.empty())
        return;
    out += '\n';
    for (const problem &each : problems)
        out += "Malformed at octet " + std::to_string(each.offset) + ": " + each.what + '\n';
}

std::string heading(const message &m)
{
    return std::string(name_of(m.kind)) + ", " + std::to_string(m.bytes.size()) +
           (m.bytes.size() == 1 ? " octet" : " octets");
}

void add_part(std::string &out, const outgoing &o, size_t i, bool verbose)
{
    const sent_part &sent = o.sent.parts[i];
    const message &read = o.parts[i];
    out += "\nPart " + std::to_string(i + 1) + " of " + std::to_string(o.sent.parts.size()) + ": " +
           std::to_string(sent.taken) + (o.sent.ucs2 ? " bytes of the text, " : " septets, ") + "UDL " +
           std::to_string(read.udl) + ", " + shown(read.text) + '\n';
    out += "  AT+DORVYSMS=" + std::to_string(sent.tpdu_octets) + ',' + sent.pdu + '\n';
    if (!verbose)
        return;
    for (const field &each : read.fields)
        add_field(out, each, 0);
}

} // namespace

std::string in_text(const inspection &one)
{
    std::string out;
    if (!one.given.header.empty())
        out += sms_client::make_printable(sms_client::make_readable(one.given.header).text, false) + '\n';
    out += heading(one.standard) + '\n';
    for (const field &each : one.standard.fields)
        add_field(out, each, 0);
    add_problems(out, one.standard.problems);
    if (one.daemon)
        add_daemon(out, *one.daemon);
    else
        out += "\nThe SMS manager writes such PDUs and reads none.\n";
    add_differences(out, one.differences);
    return out;
}

std::string in_text(const outgoing &o, bool verbose)
{
    if (o.sent.refused)
        return "Refused: " + o.sent.why + '\n';
    const std::string unit = o.sent.ucs2 ? "character" : "septet";
    std::string out =
        std::string(name_of(o.sent.ucs2 ? alphabet::ucs2 : alphabet::gsm7)) + ": " + o.why_alphabet + '\n';
    out += std::to_string(o.sent.units) + ' ' + unit + (o.sent.units == 1 ? "" : "s") + ", ";
    if (o.sent.concatenated)
        out += std::to_string(o.sent.per_part) + " a part: " + std::to_string(o.sent.total) + " parts\n";
    else
        out += "up to " + std::to_string(o.sent.per_part) + " in one part\n";
    for (const std::string &note : o.notes)
        out += "Note: " + note + '\n';
    for (size_t i = 0; i < o.parts.size(); i++)
        add_part(out, o, i, verbose);
    return out;
}

} // namespace pdu
