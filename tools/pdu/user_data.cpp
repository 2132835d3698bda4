#include "user_data.h"

#include "charset.h"
#include "data_coding.h"
#include "elements.h"
#include "names.h"
#include "text.h"

namespace pdu
{
namespace
{

constexpr unsigned most_septets = 160, most_octets = 140;

/* Text from the air on one line, in quotes. */
std::string in_quotes(const std::string &text)
{
    return '"' + sms_client::make_printable(text, false) + '"';
}

bool in_septets(const message &m)
{
    return m.coding == alphabet::gsm7 && !m.compressed;
}

/* --- the header --- */

/* One element of at least two octets in front of `end`. */
field take_element(message &out, cursor &in, size_t end)
{
    field group;
    group.offset = in.at();
    field id = in.take("IEI", 1, group.children);
    id.meaning = element_name(id.bytes[0]);
    group.name = id.meaning;
    field length = in.take("IEDL", 1, group.children);
    const size_t wanted = length.bytes[0], left = end - in.at();
    length.meaning = counted(wanted, "octet");
    field data = in.take("IED", wanted < left ? wanted : left, group.children);
    const header_element element = {id.bytes[0], data.bytes};
    if (wanted > left) {
        out.problems.push_back({length.offset, "the element (IEDL " + std::to_string(wanted) +
                                                   ") reaches beyond the header, of which " + counted(left, "octet") +
                                                   (left == 1 ? " is left" : " are left")});
        data.meaning = "cut short";
    } else {
        const element_meaning what = describe(element);
        if (!what.good_length)
            out.problems.push_back({length.offset, group.name + ": " + what.text});
        data.meaning = what.text;
        out.header.push_back(element);
    }
    group.meaning = data.meaning;
    for (const field *part : {&id, &length, &data}) {
        group.bytes.insert(group.bytes.end(), part->bytes.begin(), part->bytes.end());
        if (!part->bytes.empty())
            group.children.push_back(*part);
    }
    return group;
}

/* `end`: of the user data, as far as it is there. */
void take_header(message &out, cursor &in, size_t end)
{
    std::vector<field> &into = out.fields.back().children;
    field length = in.take("UDHL", 1, into);
    length.meaning = counted(length.bytes[0], "octet") + " of header behind this one";
    into.push_back(length);
    out.header_octets = length.bytes[0] + 1u;
    size_t header_end = in.at() + length.bytes[0];
    if (header_end > end) {
        out.problems.push_back({length.offset, "the header (UDHL " + std::to_string(length.bytes[0]) +
                                                   ") reaches beyond the user data, of which " +
                                                   counted(end - in.at(), "octet") +
                                                   (end - in.at() == 1 ? " is left" : " are left")});
        header_end = end;
    }
    while (in.at() < header_end) {
        if (header_end - in.at() == 1) {
            out.problems.push_back({in.at(), "an element ends after its identifier"});
            into.push_back(in.take("IEI", 1, into));
            break;
        }
        into.push_back(take_element(out, in, header_end));
    }
    out.part = find_place(out.header);
}

/* --- the short message --- */

/* TS 23.038, A.3.1: where the Turkish locking shift differs from the default alphabet. */
constexpr struct {
    uint8_t code;
    char32_t character;
} turkish_locking[] = {{0x04, U'€'}, {0x07, U'ı'}, {0x0B, U'Ğ'}, {0x0C, U'ğ'},
                       {0x1C, U'Ş'}, {0x1D, U'ş'}, {0x40, U'İ'}, {0x60, U'ç'}};

/* The septets in the tables that the header names. */
std::string read_septets(const message &m)
{
    const auto shift =
        language_of(m.header, single_shift) == turkish ? sim::single_shift::turkish : sim::single_shift::standard;
    if (language_of(m.header, locking_shift) != turkish)
        return sim::to_utf8(sim::from_septets(m.septets, shift));
    std::u32string text;
    for (size_t i = 0; i < m.septets.size(); i++) {
        const bool escaped = m.septets[i] == 0x1B;
        const size_t count = escaped && i + 1 < m.septets.size() ? 2 : 1;
        std::u32string one = sim::from_septets(std::span(m.septets).subspan(i, count), shift);
        for (const auto &each : turkish_locking)
            if (!escaped && each.code == m.septets[i])
                one = each.character;
        text += one;
        i += count - 1;
    }
    return sim::to_utf8(text);
}

/* What is said of tables that are not at hand. */
std::string tables_missing(const message &m)
{
    std::string out;
    for (const uint8_t id : {single_shift, locking_shift}) {
        const auto language = language_of(m.header, id);
        if (language && *language != turkish)
            out += std::string("; read without the ") + (id == single_shift ? "single" : "locking") +
                   " shift table for " + language_name(*language);
    }
    return out;
}

std::string hex_codes(const octets &codes)
{
    std::string out;
    for (const uint8_t code : codes)
        out += (out.empty() ? "" : " ") + sim::to_hex({&code, 1});
    return out;
}

void add_septets(message &out, field &body, size_t wanted)
{
    const size_t bits = body.bytes.size() * 8;
    const size_t there = bits > out.fill_bits ? (bits - out.fill_bits) / 7 : 0;
    const size_t count = wanted < there ? wanted : there;
    out.septets = sim::unpack_septets(body.bytes, count, out.fill_bits).value_or(octets());
    out.has_text = true;
    out.text = read_septets(out);
    body.meaning = in_quotes(out.text) + tables_missing(out);
    field codes;
    codes.name = "septets";
    codes.offset = body.offset;
    codes.meaning = count == 0 ? "none" : std::to_string(count) + ": " + hex_codes(out.septets);
    if (out.fill_bits > 0 && !body.bytes.empty())
        body.children.push_back(bit_field("fill bits", body.bytes[0], (1u << out.fill_bits) - 1, body.offset,
                                          counted(out.fill_bits, "bit") + " up to the next septet"));
    body.children.push_back(codes);
    const size_t used = out.fill_bits + count * 7;
    if (count == wanted && used < bits && bits - used < 8)
        body.children.push_back(bit_field("padding bits", body.bytes.back(), 0xFFu << (8 - (bits - used)) & 0xFF,
                                          body.offset + body.bytes.size() - 1,
                                          counted(bits - used, "bit") + " behind the last septet"));
}

void add_ucs2(message &out, field &body)
{
    std::u16string units;
    for (size_t i = 0; i + 1 < body.bytes.size(); i += 2)
        units += static_cast<char16_t>(body.bytes[i] << 8 | body.bytes[i + 1]);
    out.has_text = true;
    out.text = sim::to_utf8(sim::from_utf16(units));
    body.meaning = in_quotes(out.text);
    if (body.bytes.size() % 2 != 0)
        out.problems.push_back({body.offset + body.bytes.size() - 1, "half a UCS-2 character"});
}

/* What stands behind the header: `wanted` septets or octets, in `room` octets of user data. */
void take_body(message &out, cursor &in, size_t wanted, size_t room)
{
    std::vector<field> &into = out.fields.back().children;
    field body = in.take("SM", room < in.left() ? room : in.left(), into);
    if (in_septets(out)) {
        add_septets(out, body, wanted);
    } else {
        out.body = body.bytes;
        if (out.coding == alphabet::ucs2 && !out.compressed)
            add_ucs2(out, body);
        else
            body.meaning = counted(body.bytes.size(), "octet") + (out.compressed ? " of compressed text" : " of data");
    }
    into.push_back(body);
}

size_t septets_of(size_t header_octets)
{
    return (header_octets * 8 + 6) / 7;
}

} // namespace

void read_user_data(message &out, cursor &in)
{
    field length = in.take("TP-UDL", 1, out.fields);
    const bool septets = in_septets(out);
    out.udl = length.bytes[0];
    const size_t needed = septets ? (out.udl * 7u + 7) / 8 : out.udl;
    length.meaning = septets ? counted(out.udl, "septet") + ", " + counted(needed, "octet") : counted(out.udl, "octet");
    out.fields.push_back(length);
    if (out.udl > (septets ? most_septets : most_octets))
        out.problems.push_back(
            {length.offset, "TP-UDL is above " + std::to_string(septets ? most_septets : most_octets)});

    const size_t start = in.at();
    const size_t there = needed < in.left() ? needed : in.left();
    out.body_short = there < needed;
    if (out.body_short)
        out.problems.push_back(
            {start + there, "the user data ends after " + std::to_string(there) + " of " + counted(needed, "octet")});
    if (there == 0)
        return;
    field data;
    data.name = "TP-UD";
    data.offset = start;
    data.bytes.assign(out.bytes.begin() + static_cast<std::ptrdiff_t>(start),
                      out.bytes.begin() + static_cast<std::ptrdiff_t>(start + there));
    out.fields.push_back(data);
    if (out.has_header)
        take_header(out, in, start + there);
    const size_t header = in.at() - start;
    if (septets && out.header_octets > 0)
        out.fill_bits = static_cast<unsigned>((7 - header * 8 % 7) % 7);
    const size_t behind = septets ? septets_of(header) : header;
    const size_t wanted = out.udl > behind ? out.udl - behind : 0;
    take_body(out, in, wanted, there - header);
    out.fields.back().meaning = out.has_header ? counted(header, "octet") + " of header, " +
                                                     counted(wanted, septets ? "septet" : "octet") + " of message"
                                               : counted(wanted, septets ? "septet" : "octet") + " of message";
}

} // namespace pdu
