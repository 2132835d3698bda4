#include "submit.h"

#include "address.h"

namespace sim
{
namespace
{

constexpr unsigned mti_mask = 0x03, mti_submit = 0x01;
constexpr unsigned header_bit = 0x40;

enum class validity_format { none, enhanced, relative, absolute };

class reader
{
public:
    explicit reader(std::span<const uint8_t> bytes) : rest_(bytes) {}
    size_t left() const { return rest_.size(); }

    std::span<const uint8_t> take(size_t count, const char *what)
    {
        if (rest_.size() < count)
            throw malformed_pdu(std::string("cut short in ") + what);
        const auto taken = rest_.first(count);
        rest_ = rest_.subspan(count);
        return taken;
    }

    unsigned octet(const char *what) { return take(1, what)[0]; }

private:
    std::span<const uint8_t> rest_;
};

std::string read_number(reader &in, size_t digits, const char *what)
{
    const auto type = decode_type(static_cast<uint8_t>(in.octet(what)));
    if (!type)
        throw malformed_pdu(std::string("reserved type of number in ") + what);
    if (*type == number_type::alphanumeric)
        throw malformed_pdu(std::string("a name where a number belongs, in ") + what);
    const auto text = decode_digits(in.take((digits + 1) / 2, what), digits);
    if (!text)
        throw malformed_pdu(std::string("digit or fill out of place in ") + what);
    return (*type == number_type::international && !text->empty() ? "+" : "") + *text;
}

std::string read_service_centre(reader &in)
{
    constexpr const char *what = "the service centre's address";
    const unsigned length = in.octet(what);
    if (length == 0)
        return "";
    if (length > 1 + most_digits / 2)
        throw malformed_pdu("the service centre's address is too long");
    const auto octets_of_address = in.take(length, what);
    /* The length counts octets, so only the last octet tells whether the number of digits is odd. */
    const bool odd = length > 1 && octets_of_address.back() >> 4 == 0x0F;
    reader number(octets_of_address);
    return read_number(number, (length - 1) * 2 - (odd ? 1 : 0), what);
}

/* TS 23.040, 9.2.3.12.1 */
std::string relative_validity(unsigned value)
{
    const unsigned minutes = value <= 143   ? (value + 1) * 5
                             : value <= 167 ? 720 + (value - 143) * 30
                             : value <= 196 ? (value - 166) * 1440
                                            : (value - 192) * 10080;
    return std::to_string(minutes) + " minutes";
}

std::string absolute_validity(std::span<const uint8_t> fields)
{
    constexpr unsigned least[] = {0, 1, 1, 0, 0, 0};
    constexpr unsigned most[] = {99, 12, 31, 23, 59, 59};
    constexpr const char *between[] = {"20", "-", "-", " ", ":", ":"};
    std::string out = "until ";
    for (size_t i = 0; i < 6; i++) {
        const unsigned tens = fields[i] & 0x0Fu, ones = fields[i] >> 4;
        const unsigned value = tens * 10 + ones;
        if (tens > 9 || ones > 9 || value < least[i] || value > most[i])
            throw malformed_pdu("the absolute validity period is no date");
        out += between[i] + std::string(1, static_cast<char>('0' + tens)) + static_cast<char>('0' + ones);
    }
    if (fields[6] >> 4 > 9)
        throw malformed_pdu("the absolute validity period's zone is no number");
    return out;
}

std::string read_validity(reader &in, validity_format format)
{
    constexpr const char *what = "the validity period";
    switch (format) {
    case validity_format::relative:
        return relative_validity(in.octet(what));
    case validity_format::absolute:
        return absolute_validity(in.take(7, what));
    case validity_format::enhanced:
        return "enhanced " + to_hex(in.take(7, what));
    case validity_format::none:
        break;
    }
    return "";
}

/* TS 23.038, 4 */
alphabet alphabet_of(unsigned data_coding)
{
    if ((data_coding & 0x80) == 0) {
        constexpr alphabet general[] = {alphabet::gsm7, alphabet::data, alphabet::ucs2, alphabet::automatic};
        if ((data_coding & 0x20) != 0)
            throw malformed_pdu("compressed text");
        const alphabet chosen = general[data_coding >> 2 & 0x03];
        if (chosen == alphabet::automatic)
            throw malformed_pdu("reserved alphabet in the data coding scheme");
        return chosen;
    }
    switch (data_coding >> 4) {
    case 0x0C:
    case 0x0D:
        return alphabet::gsm7;
    case 0x0E:
        return alphabet::ucs2;
    case 0x0F:
        if ((data_coding & 0x08) != 0)
            throw malformed_pdu("reserved bit set in the data coding scheme");
        return (data_coding & 0x04) != 0 ? alphabet::data : alphabet::gsm7;
    default:
        throw malformed_pdu("reserved data coding scheme");
    }
}

concatenation read_concatenation(std::span<const uint8_t> element, bool wide)
{
    if (element.size() != (wide ? 4u : 3u))
        throw malformed_pdu("a concatenation element of a wrong length");
    concatenation place;
    place.wide = wide;
    place.reference = wide ? element[0] * 256u + element[1] : element[0];
    place.total = element[element.size() - 2];
    place.sequence = element[element.size() - 1];
    if (place.total == 0 || place.sequence == 0 || place.sequence > place.total)
        throw malformed_pdu("part " + std::to_string(place.sequence) + " of " + std::to_string(place.total));
    return place;
}

void read_elements(std::span<const uint8_t> elements, submit &out)
{
    reader in(elements);
    while (in.left() > 0) {
        const unsigned id = in.octet("the user-data header");
        const auto element = in.take(in.octet("the user-data header"), "an element of the user-data header");
        if (id == 0x00 || id == 0x08)
            out.place = read_concatenation(element, id == 0x08);
        if (id == 0x24 && out.coding == alphabet::gsm7 && element.size() == 1 && element[0] == 1)
            out.coding = alphabet::turkish;
    }
}

bool any_bit_set(std::span<const uint8_t> bytes, size_t from, size_t to)
{
    for (size_t bit = from; bit < to; bit++)
        if ((bytes[bit / 8] >> (bit % 8) & 1) != 0)
            return true;
    return false;
}

void read_septets(std::span<const uint8_t> data, size_t count, size_t header_octets, submit &out)
{
    const size_t header_septets = (header_octets * 8 + 6) / 7;
    if (count > most_septets)
        throw malformed_pdu("more than 160 septets");
    if (data.size() != (count * 7 + 7) / 8)
        throw malformed_pdu("the length says " + std::to_string(count) + " septets, which are " +
                            std::to_string((count * 7 + 7) / 8) + " octets, but " + std::to_string(data.size()) +
                            " are there");
    if (header_septets > count)
        throw malformed_pdu("the user-data header is longer than the user data");
    const size_t start = header_septets * 7;
    if (any_bit_set(data, header_octets * 8, start) || any_bit_set(data, count * 7, data.size() * 8))
        throw malformed_pdu("fill bits that are not 0");
    const auto body = data.subspan(start / 8);
    out.codes = *unpack_septets(body, count - header_septets, static_cast<unsigned>(start % 8));
}

void read_user_data(reader &in, bool has_header, submit &out)
{
    const size_t length = in.octet("the user data's length");
    const auto data = in.take(in.left(), "the user data");
    size_t header_octets = 0;
    if (has_header) {
        reader header(data);
        const auto elements = header.take(header.octet("the user-data header"), "the user-data header");
        header_octets = elements.size() + 1;
        out.header = to_hex(data.first(header_octets));
        read_elements(elements, out);
    }
    if (out.coding == alphabet::gsm7 || out.coding == alphabet::turkish) {
        read_septets(data, length, header_octets, out);
        return;
    }
    if (length > most_octets)
        throw malformed_pdu("more than 140 octets");
    if (data.size() != length)
        throw malformed_pdu("the length says " + std::to_string(length) + " octets, but " +
                            std::to_string(data.size()) + " are there");
    const auto body = data.subspan(header_octets);
    if (out.coding == alphabet::ucs2 && body.size() % 2 != 0)
        throw malformed_pdu("half a UCS-2 character");
    out.codes.assign(body.begin(), body.end());
}

std::u16string units_of(const octets &bytes)
{
    std::u16string out;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2)
        out.push_back(static_cast<char16_t>(bytes[i] << 8 | bytes[i + 1]));
    return out;
}

} // namespace

submit parse_submit(std::span<const uint8_t> pdu, size_t stated)
{
    reader in(pdu);
    submit out;
    out.service_centre = read_service_centre(in);
    if (in.left() != stated)
        throw malformed_pdu("the command says " + std::to_string(stated) + " octets, but " + std::to_string(in.left()) +
                            " are there");

    const unsigned first = in.octet("the first octet");
    if ((first & mti_mask) != mti_submit)
        throw malformed_pdu("the message type is not SMS-SUBMIT");
    out.message_reference = in.octet("the message reference");
    const size_t digits = in.octet("the destination's length");
    if (digits == 0 || digits > most_digits)
        throw malformed_pdu("a destination of " + std::to_string(digits) + " digits");
    out.to = read_number(in, digits, "the destination");
    out.protocol = in.octet("the protocol identifier");
    out.data_coding = in.octet("the data coding scheme");
    out.coding = alphabet_of(out.data_coding);
    out.validity = read_validity(in, static_cast<validity_format>(first >> 3 & 0x03));
    read_user_data(in, (first & header_bit) != 0, out);
    return out;
}

std::string text_of(alphabet coding, std::span<const octets> parts)
{
    std::string out;
    std::u16string units;
    for (const octets &part : parts) {
        switch (coding) {
        case alphabet::ucs2:
            units += units_of(part);
            break;
        case alphabet::data:
            out.append(part.begin(), part.end());
            break;
        default:
            out += to_utf8(
                from_septets(part, coding == alphabet::turkish ? single_shift::turkish : single_shift::standard));
        }
    }
    if (coding == alphabet::data)
        return repair_utf8(out);
    return coding == alphabet::ucs2 ? to_utf8(from_utf16(units)) : out;
}

} // namespace sim
