#include "vectors/reference.h"

#include <algorithm>
#include <map>

namespace reference
{

/* --- hexadecimal --- */

std::string squeeze(const std::string &spaced)
{
    std::string text = spaced;

    text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
    return text;
}

std::string hex(const bytes &octets)
{
    std::string text;

    for (const unsigned octet : octets) {
        text += "0123456789ABCDEF"[octet / 16];
        text += "0123456789ABCDEF"[octet % 16];
    }
    return text;
}

static unsigned digit_value(char digit)
{
    static const std::string digits = "0123456789ABCDEFabcdef";
    const size_t at = digits.find(digit);

    if (digit == '\0' || at == std::string::npos)
        return 0;
    return static_cast<unsigned>(at < 16 ? at : at - 6);
}

bytes unhex(const std::string &text)
{
    bytes octets;

    for (size_t i = 0; i + 1 < text.size(); i += 2)
        octets.push_back(static_cast<uint8_t>(digit_value(text[i]) * 16 + digit_value(text[i + 1])));
    return octets;
}

/* --- UTF-8 --- */

std::string utf8(char32_t value)
{
    std::string text;

    if (value < 0x80) {
        text += static_cast<char>(value);
    } else if (value < 0x800) {
        text += static_cast<char>(0xC0 + value / 64);
        text += static_cast<char>(0x80 + value % 64);
    } else {
        text += static_cast<char>(0xE0 + value / 4096);
        text += static_cast<char>(0x80 + value / 64 % 64);
        text += static_cast<char>(0x80 + value % 64);
    }
    return text;
}

static bool continues(char byte)
{
    return static_cast<uint8_t>(byte) / 64 == 2;
}

std::u32string characters(const std::string &text)
{
    std::u32string values;

    for (size_t i = 0; i < text.size();) {
        const auto lead = static_cast<uint8_t>(text[i++]);
        char32_t value = lead < 0x80 ? lead : lead < 0xE0 ? lead % 32U : lead < 0xF0 ? lead % 16U : lead % 8U;
        for (; i < text.size() && continues(text[i]); i++)
            value = value * 64 + static_cast<uint8_t>(text[i]) % 64;
        values += value;
    }
    return values;
}

std::string cut(const std::string &text, size_t limit)
{
    for (size_t length = std::min(text.size(), limit); length > 0; length--)
        if (length == text.size() || !continues(text[length]))
            return text.substr(0, length);
    return "";
}

/* --- septets --- */

using bits = std::vector<bool>; /* in the order of their sending: the lowest of each unit first */

static void add_unit(bits &stream, unsigned unit, int width)
{
    for (int i = 0; i < width; i++)
        stream.push_back((unit >> i) % 2 != 0);
}

static bytes units(const bits &stream, size_t from, int width, bool with_rest)
{
    bytes found;

    for (size_t at = from; at < stream.size(); at += static_cast<size_t>(width)) {
        unsigned unit = 0;
        if (at + static_cast<size_t>(width) > stream.size() && !with_rest)
            break;
        for (size_t i = 0; i < static_cast<size_t>(width) && at + i < stream.size(); i++)
            unit += stream[at + i] ? 1U << i : 0U;
        found.push_back(static_cast<uint8_t>(unit));
    }
    return found;
}

bytes pack(const bytes &septets, int fill_bits)
{
    bits stream(static_cast<size_t>(fill_bits), false);

    for (const uint8_t septet : septets)
        add_unit(stream, septet, 7);
    return units(stream, 0, 8, true);
}

bytes unpack(const bytes &octets, int fill_bits)
{
    bits stream;

    for (const uint8_t octet : octets)
        add_unit(stream, octet, 8);
    return units(stream, static_cast<size_t>(fill_bits), 7, false);
}

/* --- alphabets --- */

/* By name and code where a code differs from ASCII; from the chart of the standard, column by column. */
static const std::map<unsigned, char32_t> unlike_ascii = {
    {0x00, 0x0040}, {0x01, 0x00A3}, {0x02, 0x0024}, {0x03, 0x00A5}, {0x04, 0x00E8}, {0x05, 0x00E9}, {0x06, 0x00F9},
    {0x07, 0x00EC}, {0x08, 0x00F2}, {0x09, 0x00C7}, {0x0B, 0x00D8}, {0x0C, 0x00F8}, {0x0E, 0x00C5}, {0x0F, 0x00E5},
    {0x10, 0x0394}, {0x11, 0x005F}, {0x12, 0x03A6}, {0x13, 0x0393}, {0x14, 0x039B}, {0x15, 0x03A9}, {0x16, 0x03A0},
    {0x17, 0x03A8}, {0x18, 0x03A3}, {0x19, 0x0398}, {0x1A, 0x039E}, {0x1C, 0x00C6}, {0x1D, 0x00E6}, {0x1E, 0x00DF},
    {0x1F, 0x00C9}, {0x24, 0x00A4}, {0x40, 0x00A1}, {0x5B, 0x00C4}, {0x5C, 0x00D6}, {0x5D, 0x00D1}, {0x5E, 0x00DC},
    {0x5F, 0x00A7}, {0x60, 0x00BF}, {0x7B, 0x00E4}, {0x7C, 0x00F6}, {0x7D, 0x00F1}, {0x7E, 0x00FC}, {0x7F, 0x00E0},
};

static const std::map<unsigned, char32_t> extension = {
    {0x0A, 0x000C}, {0x14, 0x005E}, {0x28, 0x007B}, {0x29, 0x007D}, {0x2F, 0x005C},
    {0x3C, 0x005B}, {0x3D, 0x007E}, {0x3E, 0x005D}, {0x40, 0x007C}, {0x65, 0x20AC},
};

char32_t default_character(unsigned code)
{
    const auto found = unlike_ascii.find(code);
    return found == unlike_ascii.end() ? code : found->second;
}

char32_t extension_character(unsigned code)
{
    const auto found = extension.find(code);
    return found == extension.end() ? 0 : found->second;
}

std::string decode_septets(const bytes &septets)
{
    std::string text;

    for (size_t i = 0; i < septets.size(); i++) {
        if (septets[i] != 0x1B || i + 1 == septets.size()) {
            text += utf8(default_character(septets[i]));
            continue;
        }
        const char32_t value = extension_character(septets[++i]);
        text += utf8(value != 0 ? value : default_character(septets[i]));
    }
    return text;
}

/* --- the daemon's own rules --- */

/* Turkish letters in place of some of the default alphabet's, and two entries that no standard has. */
char32_t national_character(unsigned code)
{
    static const std::map<unsigned, char32_t> changed = {
        {0x04, 0x20AC}, {0x07, 0x0131}, {0x0B, 0x011E}, {0x0C, 0x011F}, {0x11, 0x03A2}, {0x1B, 0x001B},
        {0x1C, 0x015E}, {0x1D, 0x015F}, {0x24, 0x0024}, {0x40, 0x00E8}, {0x60, 0x00E7},
    };
    const auto found = changed.find(code);
    return found == changed.end() ? default_character(code) : found->second;
}

char32_t national_extension(unsigned code)
{
    static const std::map<unsigned, char32_t> turkish = {
        {0x0F, U'\\'}, {0x14, U'^'}, {0x28, U'{'}, {0x29, U'}'}, {0x2F, U'\\'}, {0x3C, U'['},
        {0x3D, U'~'},  {0x3E, U']'}, {0x40, U'|'}, {0x47, U'Ğ'}, {0x49, U'İ'},  {0x53, U'Ş'},
        {0x63, U'ç'},  {0x65, U'€'}, {0x67, U'ğ'}, {0x69, U'ı'}, {0x73, U'ş'},
    };
    const auto found = turkish.find(code);
    return found == turkish.end() ? 0xFFFF : found->second;
}

std::string convert_in_place(const bytes &septets, size_t count)
{
    std::string text;

    for (size_t i = 0; i < count; i++) {
        const unsigned code = septets[i];

        if (code != 0x1B) {
            text += utf8(code == 0x09 ? U'ç' : default_character(code)); /* the small letter, on purpose */
            continue;
        }
        const unsigned behind = ++i < count ? septets[i] : 0;
        if (behind == 0x65)
            text += "€";
        else
            text += extension_character(behind) != 0 ? static_cast<char>(extension_character(behind)) : '\xFF';
    }
    std::string buffer(std::max(septets.size(), text.size()), '\0');
    std::copy(septets.begin(), septets.end(), buffer.begin());
    std::fill_n(buffer.begin(), count, '\0');
    std::copy(text.begin(), text.end(), buffer.begin());
    return buffer;
}

/* Digits in pairs, low one first; what is not there is a null character. */
static std::string swapped(std::string digits, size_t count)
{
    digits.resize((count + 1) / 2 * 2, '\0');
    for (size_t i = 0; i + 1 < digits.size(); i += 2)
        std::swap(digits[i], digits[i + 1]);
    return digits;
}

static std::string until_null(const std::string &text)
{
    return text.substr(0, text.find('\0'));
}

static std::string number(const std::string &digits, size_t count)
{
    std::string text = swapped(digits, count);

    if (!text.empty() && (text.back() == 'F' || text.back() == 'f'))
        text.pop_back();
    return until_null(text);
}

/* The hex text from a position on; beyond the end there is nothing. */
class cursor
{
public:
    explicit cursor(const std::string &text) : text_(text) {}

    std::string peek(size_t digits) const { return at_ < text_.size() ? text_.substr(at_, digits) : ""; }
    std::string rest() const { return peek(std::string::npos); }
    std::string take(size_t digits)
    {
        const std::string taken = peek(digits);
        at_ += digits;
        return taken;
    }
    unsigned octet()
    {
        const std::string pair = take(2);
        return pair.size() < 2 ? 0 : unhex(pair)[0];
    }
    bool ended() const { return at_ >= text_.size(); }

private:
    std::string text_;
    size_t at_ = 0;
};

static bytes octets_of(const std::string &digits, size_t count)
{
    bytes octets = unhex(digits.substr(0, std::min(digits.size(), 2 * count)));

    octets.resize(count, 0);
    return octets;
}

static void decode_sender(cursor &in, delivered &out)
{
    const unsigned semi_octets = in.octet();
    const size_t octets = (semi_octets + 1) / 2;

    out.type = in.octet();
    const std::string address = in.take(2 * octets);
    const bool letters = std::any_of(address.begin(), address.end(), [](char c) {
        return ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')) && c != 'F' && c != 'f';
    });
    if (letters) {
        bytes packed = octets_of(address, octets / 8 * 7 + octets % 8);
        packed.resize(octets, 0);
        out.name = until_null(convert_in_place(unpack(packed, 0), octets));
        out.sender = *out.name;
    }
    if (out.sender.empty())
        out.sender = number(address, semi_octets);
    std::replace(out.sender.begin(), out.sender.end(), ' ', '$');
    out.phone = cut(out.type == 0x91 ? "+" + out.sender : out.sender, 31);
}

static void decode_stamp(cursor &in, delivered &out)
{
    out.stamp = in.take(14);
    const std::string digits = swapped(out.stamp, 14);
    const char *separators[] = {"20", "/", "/", " ", ":", ":"};

    for (size_t i = 0; i < 6; i++)
        out.date += separators[i] + until_null(digits.substr(2 * i, 2));
}

/* Octets of the header, with the length octet; zeros where the text ends, and behind. */
static void decode_header(const bytes &header, delivered &out)
{
    const auto at = [&](size_t i) { return i < header.size() ? header[i] : 0U; };
    const unsigned length = at(2);

    out.concatenated = at(1) == 0;
    if (!out.concatenated)
        return;
    out.total = at(length + 1);
    out.sequence = at(length + 2);
    if (length == 3)
        out.reference = at(3);
    if (length == 4)
        out.reference = at(3) * 256 + at(4);
}

static std::string decode_ucs2(const bytes &octets)
{
    std::string text;

    for (size_t i = 0; i + 1 < octets.size(); i += 2)
        text += utf8(octets[i] * 256U + octets[i + 1]);
    return text;
}

static std::string decode_national(const bytes &septets)
{
    std::string text;

    for (size_t i = 0; i < septets.size(); i++) {
        if (septets[i] != 0x1B) {
            text += utf8(national_character(septets[i]));
        } else {
            i++;
            text += utf8(national_extension(i < septets.size() ? septets[i] : 0));
        }
    }
    return text;
}

static void decode_body(const std::string &digits, unsigned alphabet, bool national, delivered &out)
{
    std::string text;

    if (alphabet == 0x08) {
        if (out.body_len == 1 && digits.substr(0, 2) == "20") {
            out.text_kept = true;
            return;
        }
        text = decode_ucs2(octets_of(digits, (out.body_len + 1) / 2 * 2));
    } else if (alphabet == 0x04) {
        const bytes octets = unhex(digits.substr(0, 4 * size_t{out.body_len}));
        text.assign(octets.begin(), octets.end());
    } else {
        bytes septets = unpack(octets_of(digits, out.sms7bit_len), static_cast<int>(out.offset));
        if (septets.size() < out.body_len)
            septets.resize(out.body_len, 0);
        if (alphabet == 0x00 && national)
            text = decode_national(bytes(septets.begin(), septets.begin() + out.body_len));
        else
            text = convert_in_place(septets, out.body_len);
    }
    out.text = cut(until_null(text), 255);
}

delivered decode(const std::string &pdu)
{
    cursor in(pdu);
    delivered out;
    int header_octets = 0; /* the length octet included */
    bool national = false;

    const unsigned smsc_length = in.octet();
    const std::string smsc = in.take(2 * size_t{smsc_length});
    if (smsc.size() > 2)
        out.smsc = (smsc.substr(0, 2) == "91" ? "+" : "") + number(smsc.substr(2), smsc.size() - 2);
    out.first_octet = in.octet();
    decode_sender(in, out);
    out.pid = in.octet();
    out.dcs = in.octet();
    decode_stamp(in, out);
    out.udl = in.octet();

    if (out.first_octet / 64 % 2 == 1) {
        const bytes length = octets_of(in.peek(2), 1);
        decode_header(octets_of(in.peek(2 * (length[0] + size_t{1})), length[0] + size_t{1}), out);
        in.take(2);
        const std::string header = in.take(2 * size_t{length[0]});
        /* As many digits as the header says it has are compared with "240101": three octets, or two or
         * one of them, agree; more never do. */
        national =
            !out.concatenated && length[0] <= 3 && header == std::string("240101").substr(0, 2 * size_t{length[0]});
        header_octets = length[0] + 1;
        out.offset = static_cast<unsigned>(7 - header_octets * 8 % 7);
    }
    const int fill = static_cast<int>(out.offset);
    out.total_bit = static_cast<int>(out.udl) * 7 - (header_octets <= 1 ? 0 : header_octets * 8);
    out.body_len = static_cast<uint8_t>((out.total_bit - fill) / 7 + (out.total_bit % 7 > fill ? 1 : 0));
    out.sms7bit_len = static_cast<uint8_t>(out.total_bit / 8 + (out.total_bit % 8 != 0 ? 1 : 0));

    const unsigned alphabet = out.dcs < 0x40 ? out.dcs & 0x0C : out.dcs >= 0xF0 ? out.dcs & 0x04 : out.dcs;
    decode_body(in.rest(), alphabet, national, out);
    return out;
}

/* --- SMS-SUBMIT by the standard --- */

static std::string submit_text(const submitted &out)
{
    const size_t header = out.header.size();
    const bool ucs2 = out.dcs < 0x40 && (out.dcs & 0x0C) == 0x08;
    const bool octets = (out.dcs < 0x40 && (out.dcs & 0x0C) == 0x04) || (out.dcs >= 0xF0 && (out.dcs & 0x04) != 0);

    if (ucs2 || octets) {
        const bytes body(out.ud.begin() + static_cast<long>(header),
                         out.ud.begin() +
                             static_cast<long>(std::max(header, std::min<size_t>(out.udl, out.ud.size()))));
        return ucs2 ? decode_ucs2(body) : std::string(body.begin(), body.end());
    }
    /* The body begins at the next septet's boundary behind the header. */
    const size_t skipped = (header * 8 + 6) / 7;
    bytes septets = unpack(out.ud, 0);
    septets.resize(std::min<size_t>(septets.size(), out.udl));
    if (septets.size() <= skipped)
        return "";
    return decode_septets(bytes(septets.begin() + static_cast<long>(skipped), septets.end()));
}

std::optional<submitted> parse_submit(const std::string &pdu)
{
    cursor in(pdu);
    submitted out;

    const unsigned smsc_length = in.octet();
    const std::string smsc = in.take(2 * size_t{smsc_length});
    if (smsc.size() >= 2) {
        out.smsc_type = unhex(smsc)[0];
        out.smsc = (out.smsc_type == 0x91 ? "+" : "") + number(smsc.substr(2), smsc.size() - 2);
    }
    out.first_octet = in.octet();
    if (out.first_octet % 4 != 1)
        return {};
    out.message_reference = in.octet();
    const unsigned digits = in.octet();
    out.destination_type = in.octet();
    out.destination = (out.destination_type == 0x91 ? "+" : "") + number(in.take((digits + size_t{1}) / 2 * 2), digits);
    out.pid = in.octet();
    out.dcs = in.octet();
    const unsigned format = out.first_octet / 8 % 4;
    out.validity = in.take(format == 0 ? 0 : format == 2 ? 2 : 14);
    if (in.ended())
        return {};
    out.udl = in.octet();
    out.ud = unhex(in.rest());
    if (out.first_octet / 64 % 2 == 1) {
        if (out.ud.empty() || out.ud[0] + size_t{1} > out.ud.size())
            return {};
        out.header.assign(out.ud.begin(), out.ud.begin() + out.ud[0] + 1);
    }
    const bool eight_bits = (out.dcs < 0x40 && (out.dcs & 0x0C) != 0) || (out.dcs >= 0xF0 && (out.dcs & 0x04) != 0);
    out.whole = out.ud.size() == (eight_bits ? out.udl : (out.udl * 7 + 7) / 8);
    out.text = submit_text(out);
    return out;
}

} // namespace reference
