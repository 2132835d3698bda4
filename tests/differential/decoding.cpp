#include <algorithm>
#include <cstring>

#include "differential.h"
#include "dv_sms_mgr_pdu.h"
#include "dv_sms_mgr_receive.h"
#include "vectors/reference.h"

namespace
{

using names = std::vector<const char *>;

dv_sms_msg decode(const bytes &pdu)
{
    dv_sms_msg msg = {};

    current_sms_msg = &msg;
    dv_sms_mgr_parse_pdu(reference::hex(pdu).c_str());
    current_sms_msg = nullptr;
    return msg;
}

/* --- sender --- */

/* Septets of a name as far as the octets reach that the daemon converts. */
bytes reached_septets(const message &m)
{
    bytes octets = m.address;
    const size_t count = octets.size();
    const size_t reached = count / 8 * 7 + count % 8;

    for (size_t i = reached; i < count; i++)
        octets[i] = 0;
    return reference::unpack(octets, 0);
}

/* The library's name with what is stated of names. */
std::string our_name(const message &m, const std::string &theirs, names *behaviours)
{
    const size_t octets = m.address.size();
    const bytes septets = reached_septets(m);
    const std::string digits = reference::hex(m.address);
    std::string name;

    if (digits.find_first_of("ABCDE") == std::string::npos) {
        behaviours->push_back("name-of-digits");
        std::string number;
        for (size_t i = 0; i + 1 < digits.size(); i += 2)
            number += {digits[i + 1], digits[i]};
        if (!number.empty() && number.back() == 'F')
            number.pop_back();
        return number;
    }
    for (size_t i = 0; i < septets.size(); i++) {
        if (i < octets)
            name += reference::utf8(reference::default_character(septets[i]));
        else if (septets[i] == 0)
            break;
        else
            name += static_cast<char>(septets[i]);
    }
    if (name.substr(0, theirs.size()) != theirs || name.size() > theirs.size())
        behaviours->push_back("name-tail");
    if (name.find(' ') != std::string::npos) {
        behaviours->push_back("name-blank");
        std::replace(name.begin(), name.end(), ' ', '$');
    }
    return name;
}

void compare_sender(const message &m, const dv_sms_msg &ours, const decoded &gammu)
{
    names behaviours;
    std::string applied = gammu.phone;

    if (!m.name.empty()) {
        applied = our_name(m, gammu.phone, &behaviours);
    } else if (m.sender_type != 0x91 && applied.starts_with('+')) {
        applied.erase(0, 1);
        behaviours.push_back("international-is-91");
    }
    settle("sender, libgammu", ours.phone, gammu.phone, applied, behaviours, hex(m.pdu));
    if (!m.name.empty())
        return;
    const std::string osmocom = osmocom_number(m.address, m.semi_octets);
    settle("sender, libosmocore", ours.phone, osmocom, m.sender_type == 0x91 ? "+" + osmocom : osmocom, {"type-apart"},
           hex(m.pdu));
}

/* --- date --- */

void compare_date(const message &m, const dv_sms_msg &ours, const decoded &gammu)
{
    const size_t at = 8 + 3 + m.address.size() + 2;
    const bytes stamp(m.pdu.begin() + static_cast<long>(at), m.pdu.begin() + static_cast<long>(at) + 7);
    const std::string osmocom = osmocom_date(stamp);
    const std::string year = std::to_string(2000 + m.year);
    const bool late = m.year >= 70; /* from here on the libraries take other years */
    const names century = late ? names{"century"} : names{};

    settle("date, libgammu", ours.date, gammu.date, year + gammu.date.substr(4), century, hex(m.pdu));
    settle("date, libosmocore", ours.date, osmocom, year + osmocom.substr(4), century, hex(m.pdu));
}

/* --- parts --- */

std::string parts(int reference, int total, int sequence)
{
    return reference < 0 ? "one message"
                         : std::to_string(reference) + ", " + std::to_string(sequence) + " of " + std::to_string(total);
}

void compare_parts(const message &m, const dv_sms_msg &ours, const decoded &gammu)
{
    const std::string mine = parts(ours.concatenated ? ours.reference : -1, ours.total, ours.sequence);
    const std::string theirs = parts(gammu.reference, gammu.total, gammu.sequence);

    settle("parts, libgammu", mine, theirs, gammu.wide_reference ? "one message" : theirs, {"reference-16"},
           hex(m.pdu));
}

/* --- text --- */

/* What is stated of one code; empty: what everybody makes of it. */
std::string stated(const message &m, uint8_t code, bool extension, const char **behaviour)
{
    const char32_t standard = extension ? reference::extension_character(code) : reference::default_character(code);

    if (m.header.size() == 4) {
        const char32_t value = extension ? reference::national_extension(code) : reference::national_character(code);
        if (value == standard)
            return "";
        *behaviour = "national";
        return reference::utf8(value);
    }
    if (extension && standard == 0) {
        *behaviour = "extension-unknown";
        return "\xFF";
    }
    if (!extension && code == 0x09) {
        *behaviour = "c-cedilla";
        return "ç";
    }
    return "";
}

/* The characters of a text, or its octets. */
std::vector<std::string> split(const std::string &text, bool octets)
{
    std::vector<std::string> out;

    for (size_t i = 0; i < text.size();) {
        if (octets) {
            out.push_back(reference::utf8(static_cast<uint8_t>(text[i++])));
            continue;
        }
        const size_t start = i++;
        while (i < text.size() && (static_cast<uint8_t>(text[i]) & 0xC0) == 0x80)
            i++;
        out.push_back(text.substr(start, i - start));
    }
    return out;
}

/* Code by code beside the library's characters, of which only ASCII counts where the library has letters of its own. */
std::string apply_to_septets(const message &m, const std::vector<std::string> &theirs, bool own_letters,
                             names *behaviours)
{
    std::string out;
    size_t at = 0;

    for (size_t i = 0; i < m.codes.size(); i++, at++) {
        const bool extension = m.codes[i] == 0x1B;
        const uint8_t code = extension ? m.codes[++i] : m.codes[i];
        const char *behaviour = nullptr;
        const std::string other = at < theirs.size() ? theirs[at] : "";
        std::string mine = stated(m, code, extension, &behaviour);
        const char32_t standard = extension ? reference::extension_character(code) : reference::default_character(code);

        if (mine.empty()) {
            mine = other;
            if (own_letters && (standard >= 0x80 || (extension && code == 0x0A))) {
                behaviour = "own-letters";
                mine = reference::utf8(standard);
            }
        }
        /* libgammu writes an extension that it does not know as two characters */
        if (extension && !own_letters && standard == 0 && other == "¹")
            at++;
        if (i == 0 && m.header.size() == 7) {
            note(behaviours, "whole-septets");
            continue;
        }
        if (mine != other && behaviour != nullptr)
            note(behaviours, behaviour);
        out += mine;
    }
    return out;
}

/* Surrogates one by one; the last of them, or the last character, goes behind a header that fills whole septets. */
std::string apply_to_ucs2(const message &m, const std::string &theirs, names *behaviours)
{
    std::vector<std::string> units;
    std::string out;

    for (const std::string &character : split(single_tildes(theirs, behaviours), false)) {
        if (character.size() < 4) {
            units.push_back(character);
            continue;
        }
        const char32_t value = reference::characters(character)[0] - 0x10000;
        units.push_back(reference::utf8(0xD800 + value / 0x400));
        units.push_back(reference::utf8(0xDC00 + value % 0x400));
        note(behaviours, "surrogates");
    }
    if (m.header.size() == 7 && !units.empty()) {
        units.pop_back();
        note(behaviours, "whole-septets");
    }
    for (const std::string &unit : units)
        out += unit;
    return out;
}

std::string apply_to_data(const message &m, const std::string &theirs, names *behaviours)
{
    const size_t most = m.codes.size() < 2 ? m.codes.size() : 2 * (m.codes.size() - 2);

    if (m.header.size() == 6 && theirs.size() == 1) {
        note(behaviours, "data-one-octet");
        return "";
    }
    if (m.header.size() != 7 || theirs.size() <= most)
        return theirs;
    note(behaviours, "whole-septets");
    return theirs.substr(0, most);
}

void settle_text(const char *what, const message &m, const dv_sms_msg &ours, const std::string &theirs,
                 std::string applied, names behaviours)
{
    const std::string cut = reference::cut(applied, SMS_MSG_TEXT_SIZE - 1);

    if (cut != applied)
        note(&behaviours, "text-255");
    settle(what, ours.text, theirs, cut, behaviours, hex(m.pdu));
}

void compare_text(const message &m, const dv_sms_msg &ours, const decoded &gammu)
{
    names behaviours;
    std::string applied;

    if (m.kind == alphabet::gsm7)
        applied = apply_to_septets(m, split(gammu.text, false), false, &behaviours);
    else if (m.kind == alphabet::ucs2)
        applied = apply_to_ucs2(m, gammu.text, &behaviours);
    else
        applied = apply_to_data(m, gammu.text, &behaviours);
    settle_text("text, libgammu", m, ours, gammu.text, applied, behaviours);
    if (m.kind != alphabet::gsm7)
        return;
    const size_t at = 8 + 3 + m.address.size() + 2 + 7;
    const bytes user_data(m.pdu.begin() + static_cast<long>(at) + 1, m.pdu.end());
    const std::vector<std::string> letters = split(osmocom_text(user_data, m.pdu[at], !m.header.empty()), true);
    std::string theirs;
    for (const std::string &character : letters)
        theirs += character;
    behaviours.clear();
    applied = apply_to_septets(m, letters, true, &behaviours);
    settle_text("text, libosmocore", m, ours, theirs, applied, behaviours);
}

} // namespace

void compare_decoding(const message &m)
{
    const dv_sms_msg ours = decode(m.pdu);
    const decoded gammu = gammu_decode(m.pdu);

    if (!gammu.good) {
        unexplained("libgammu takes it", ours.text, "refused", hex(m.pdu));
        return;
    }
    compare_sender(m, ours, gammu);
    compare_date(m, ours, gammu);
    compare_parts(m, ours, gammu);
    compare_text(m, ours, gammu);
}
