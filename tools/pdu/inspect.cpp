#include "inspect.h"

#include <algorithm>

#include "charset.h"
#include "names.h"
#include "text.h"

namespace pdu
{
namespace
{

using json = nlohmann::ordered_json;

/* --- decoding --- */

/* The header's number of octets against what is there. */
void check_stated(const pasted &given, message &m)
{
    if (!given.stated || !m.problems.empty())
        return;
    const size_t tpdu = m.bytes.size() - m.smsc_octets;
    if (tpdu == *given.stated)
        return;
    std::string what = "the line in front says " + counted(*given.stated, "octet") + " behind the service centre, " +
                       std::to_string(tpdu) + (tpdu == 1 ? " is there" : " are there");
    if (m.bytes.size() == *given.stated && m.smsc_octets > 0)
        what += "; as many as there are without a service centre (--no-smsc)";
    m.problems.push_back({m.smsc_octets + std::min(tpdu, *given.stated), what});
}

/* The daemon knows PDUs with a service centre only: one of no digits stands in for it. */
daemon_view view_of(const std::string &hex, bool has_smsc)
{
    daemon_view out = decode_as_daemon(has_smsc ? hex : "00" + hex);
    if (!has_smsc) {
        out.taken = true;
        out.refused.clear();
    }
    return out;
}

inspection inspect_one(const pasted &given, const options &how)
{
    inspection out;
    out.given = given;
    out.standard = read_message(given.hex, how);
    check_stated(given, out.standard);
    if (out.standard.kind != layout::submit) {
        out.daemon = view_of(given.hex, how.has_smsc);
        out.differences = find_differences(out.standard, *out.daemon);
    }
    return out;
}

/* The whole text where the last of several parts is. */
void join_parts(std::vector<inspection> &all, bool has_smsc)
{
    std::vector<std::string> lines;
    std::vector<daemon_view *> parts;
    for (inspection &each : all) {
        if (!each.daemon || !each.daemon->concatenated)
            continue;
        lines.push_back((has_smsc ? "" : "00") + each.given.hex);
        parts.push_back(&*each.daemon);
    }
    const auto joined = join_as_daemon(lines);
    for (size_t i = 0; i < parts.size(); i++)
        parts[i]->joined = joined[i];
}

/* --- encoding --- */

std::u32string characters_of(const std::string &text)
{
    return sim::from_utf8(sim::repair_utf8(text)).value_or(std::u32string());
}

std::string name_of_character(char32_t c)
{
    char code[16];
    std::snprintf(code, sizeof code, " (U+%04X)", static_cast<unsigned>(c));
    return '"' + sms_client::make_printable(sim::to_utf8({&c, 1}), false) + '"' + code;
}

std::string why_alphabet(const outgoing &o)
{
    if (!o.sent.ucs2)
        return "every character is ASCII";
    for (const char32_t c : characters_of(o.text))
        if (c > 0x7F)
            return name_of_character(c) + " is not ASCII: any such character makes the whole text UCS-2, also one "
                                          "that the 7-bit alphabet has";
    return "";
}

/* ASCII that the 7-bit alphabet lacks, or that is taken for something else. */
constexpr struct {
    char from;
    const char *note;
} replaced[] = {
    {'`', "a grave accent goes out as an apostrophe"},
    {'\t', "a tab goes out as a blank"},
    {0x1A, "the control character 1A goes out as \"é\""},
    {0x1E, "the control character 1E goes out as \"ñ\""},
};

void note_losses_7bit(outgoing &o)
{
    const std::string sent = o.text.substr(0, o.sent.bytes);
    for (const auto &each : replaced)
        if (sent.find(each.from) != std::string::npos)
            o.notes.emplace_back(each.note);
    if (o.sent.unsent > 0)
        o.notes.push_back(counted(o.sent.unsent, "septet") +
                          (o.sent.unsent == 1 ? " at the end is" : " at the end are") +
                          " never sent: an escape that would end a part begins the next one, and the number of parts "
                          "is not raised for it");
}

void note_losses_ucs2(outgoing &o)
{
    const std::u32string characters = characters_of(o.text);
    const auto beyond = std::count_if(characters.begin(), characters.end(), [](char32_t c) { return c > 0xFFFF; });
    if (beyond > 0)
        o.notes.push_back(counted(static_cast<size_t>(beyond), "character") +
                          " beyond U+FFFF: of each the low 16 bits are sent, no surrogate pair");
    if (!sms_client::is_utf8(o.text))
        o.notes.emplace_back("bytes that are not UTF-8 go out as the character 0, or as what they count for");
}

void note_losses(outgoing &o)
{
    if (o.sent.bytes < o.text.size())
        o.notes.push_back("of " + std::to_string(o.text.size()) + " bytes the first " + std::to_string(o.sent.bytes) +
                          " are sent: at most 4,000, cut at a character");
    if (o.sent.ucs2)
        note_losses_ucs2(o);
    else
        note_losses_7bit(o);
}

/* --- JSON --- */

std::string readable(const std::string &bytes)
{
    return sms_client::make_readable(bytes).text;
}

/* "text", and "text_hex" beside it where the bytes are no UTF-8. */
void add_bytes(json &out, const char *name, const std::string &bytes)
{
    out[name] = readable(bytes);
    if (!sms_client::is_utf8(bytes))
        out[std::string(name) + "_hex"] = sms_client::to_hex(bytes);
}

json fields_json(const std::vector<field> &fields)
{
    json out = json::array();
    for (const field &each : fields) {
        json one = {{"name", each.name}, {"offset", each.offset}, {"octets", sim::to_hex(each.bytes)}};
        if (!each.bits.empty())
            one["bits"] = each.bits;
        one["meaning"] = each.meaning;
        if (!each.children.empty())
            one["children"] = fields_json(each.children);
        out.push_back(std::move(one));
    }
    return out;
}

json place_json(unsigned reference, unsigned total, unsigned sequence)
{
    return {{"reference", reference}, {"total", total}, {"sequence", sequence}};
}

json standard_json(const message &m)
{
    json out = json::object();
    if (m.has_address)
        out["address"] = m.address;
    if (!m.date.empty())
        out["date"] = m.date;
    if (m.dcs) {
        out["alphabet"] = name_of(m.coding);
        out["text"] = m.has_text ? json(m.text) : json(nullptr);
    }
    if (m.part) {
        out["concatenation"] = place_json(m.part->reference, m.part->total, m.part->sequence);
        out["concatenation"]["bits"] = m.part->wide ? 16 : 8;
    }
    return out;
}

json daemon_json(const daemon_view &d)
{
    json out = {{"taken", d.taken}};
    if (!d.taken)
        out["refused"] = d.refused;
    add_bytes(out, "sender", d.sender);
    add_bytes(out, "date", d.date);
    add_bytes(out, "text", d.text);
    out["concatenation"] = d.concatenated ? place_json(d.reference, d.total, d.sequence) : json(nullptr);
    if (d.joined)
        add_bytes(out, "joined", *d.joined);
    if (d.septets)
        out["septets"] = {{"total_bit", d.septets->total_bit},
                          {"body_len", d.septets->body_len},
                          {"sms7bit_len", d.septets->sms7bit_len},
                          {"offset", d.septets->offset}};
    out["log"] = json::array();
    for (const std::string &line : d.log)
        out["log"].push_back(readable(line));
    return out;
}

json problems_json(const std::vector<problem> &problems)
{
    json out = json::array();
    for (const problem &each : problems)
        out.push_back({{"offset", each.offset}, {"what", each.what}});
    return out;
}

json part_json(const sent_part &sent, const message &read)
{
    return {{"pdu", sent.pdu},
            {"length", sent.tpdu_octets},
            {"command", "AT+DORVYSMS=" + std::to_string(sent.tpdu_octets) + "," + sent.pdu},
            {"taken", sent.taken},
            {"text", read.text},
            {"fields", fields_json(read.fields)}};
}

} // namespace

std::vector<inspection> inspect(std::string_view text, const options &how)
{
    std::vector<inspection> out;
    for (const pasted &each : find_pdus(text))
        out.push_back(inspect_one(each, how));
    if (out.size() > 1)
        join_parts(out, how.has_smsc);
    return out;
}

outgoing plan(const std::string &number, const std::string &text, const std::string &service_centre, unsigned reference)
{
    outgoing out;
    out.number = number;
    out.text = text;
    out.sent = encode_as_daemon(number, text, service_centre, reference);
    for (const sent_part &part : out.sent.parts)
        out.parts.push_back(read_message(part.pdu, {reading::submit, true}));
    if (!out.sent.refused) {
        out.why_alphabet = why_alphabet(out);
        note_losses(out);
    }
    return out;
}

json to_json(const inspection &one)
{
    json out = {{"pdu", readable(one.given.hex)}};
    if (!one.given.header.empty())
        out["header"] = readable(one.given.header);
    out["kind"] = name_of(one.standard.kind);
    out["fields"] = fields_json(one.standard.fields);
    out["problems"] = problems_json(one.standard.problems);
    out["standard"] = standard_json(one.standard);
    out["daemon"] = one.daemon ? daemon_json(*one.daemon) : json(nullptr);
    out["differences"] = json::array();
    for (const difference &each : one.differences)
        out["differences"].push_back(
            {{"what", each.what}, {"standard", each.standard}, {"daemon", each.daemon}, {"why", each.why}});
    return out;
}

json to_json(const std::vector<inspection> &all)
{
    json out = json::array();
    for (const inspection &each : all)
        out.push_back(to_json(each));
    return out;
}

json to_json(const outgoing &o)
{
    json out = {{"number", readable(o.number)}, {"text", readable(o.text)}, {"refused", nullptr}};
    if (o.sent.refused) {
        out["refused"] = o.sent.why;
        return out;
    }
    out["alphabet"] = name_of(o.sent.ucs2 ? alphabet::ucs2 : alphabet::gsm7);
    out["why"] = o.why_alphabet;
    out["unit"] = o.sent.ucs2 ? "character" : "septet";
    out["units"] = o.sent.units;
    out["per_part"] = o.sent.per_part;
    out["total"] = o.sent.total;
    out["notes"] = o.notes;
    out["parts"] = json::array();
    for (size_t i = 0; i < o.parts.size(); i++)
        out["parts"].push_back(part_json(o.sent.parts[i], o.parts[i]));
    return out;
}

} // namespace pdu
