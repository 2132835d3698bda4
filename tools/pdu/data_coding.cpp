#include "data_coding.h"

namespace pdu
{
namespace
{

constexpr const char *classes[] = {"class 0: shown at once, not kept", "class 1: kept by the equipment",
                                   "class 2: kept on the SIM", "class 3: for the terminal equipment"};
constexpr const char *waiting_kinds[] = {"voicemail", "fax", "electronic mail", "other"};

constexpr struct {
    alphabet coding;
    const char *name;
} alphabets[] = {{alphabet::gsm7, "GSM 7-bit default alphabet"},
                 {alphabet::data, "8-bit data"},
                 {alphabet::ucs2, "UCS-2"},
                 {alphabet::gsm7, "reserved alphabet, read as GSM 7-bit"}};

void choose(data_coding &out, alphabet coding, const char *name)
{
    out.coding = coding;
    out.meaning = name;
}

void append(data_coding &out, const std::string &more)
{
    out.meaning += ", " + more;
}

/* 00xx and 01xx: alphabet and class, compressed or not. */
void read_general(data_coding &out, uint8_t octet, size_t offset)
{
    const bool automatic = (octet & 0x40) != 0;
    out.bits.push_back(bit_field("coding group", octet, 0xC0, offset,
                                 automatic ? "marked for automatic deletion" : "general data coding"));
    out.compressed = (octet & 0x20) != 0;
    const auto &chosen = alphabets[octet >> 2 & 3];
    choose(out, chosen.coding, chosen.name);
    out.bits.push_back(bit_field("compression", octet, 0x20, offset, out.compressed ? "compressed" : "not compressed"));
    const bool has_class = (octet & 0x10) != 0;
    out.bits.push_back(bit_field("class given", octet, 0x10, offset, has_class ? "yes" : "no"));
    out.bits.push_back(bit_field("alphabet", octet, 0x0C, offset, chosen.name));
    out.bits.push_back(bit_field("message class", octet, 0x03, offset,
                                 has_class ? classes[octet & 3] : "none: the bits are reserved"));
    append(out, has_class ? classes[octet & 3] : "no class");
    if (out.compressed)
        append(out, "compressed");
    if (automatic)
        append(out, "marked for automatic deletion");
}

/* 1100 to 1110: what waits for the subscriber elsewhere. */
void read_waiting(data_coding &out, uint8_t octet, size_t offset)
{
    const unsigned group = octet >> 4;
    const char *kept =
        group == 0x0C ? "message waiting, the text may be discarded" : "message waiting, the text is kept";
    const bool active = (octet & 0x08) != 0;
    out.bits.push_back(bit_field("coding group", octet, 0xF0, offset, kept));
    out.bits.push_back(bit_field("indication", octet, 0x08, offset, active ? "on" : "off"));
    out.bits.push_back(bit_field("reserved", octet, 0x04, offset, (octet & 4) != 0 ? "should be 0" : ""));
    out.bits.push_back(bit_field("what waits", octet, 0x03, offset, waiting_kinds[octet & 3]));
    if (group == 0x0E)
        choose(out, alphabet::ucs2, alphabets[2].name);
    else
        choose(out, alphabet::gsm7, alphabets[0].name);
    append(out, kept);
    append(out, std::string(waiting_kinds[octet & 3]) + (active ? " on" : " off"));
}

/* 1111: an alphabet of two, and always a class. */
void read_class(data_coding &out, uint8_t octet, size_t offset)
{
    const auto &chosen = alphabets[octet >> 2 & 1];
    choose(out, chosen.coding, chosen.name);
    out.bits.push_back(bit_field("coding group", octet, 0xF0, offset, "data coding and message class"));
    out.bits.push_back(bit_field("reserved", octet, 0x08, offset, (octet & 8) != 0 ? "should be 0" : ""));
    out.bits.push_back(bit_field("alphabet", octet, 0x04, offset, chosen.name));
    out.bits.push_back(bit_field("message class", octet, 0x03, offset, classes[octet & 3]));
    append(out, classes[octet & 3]);
}

} // namespace

field bit_field(const char *name, uint8_t octet, unsigned mask, size_t offset, std::string meaning)
{
    field out;
    out.name = name;
    out.offset = offset;
    out.meaning = std::move(meaning);
    for (unsigned bit = 0x80; bit != 0; bit >>= 1)
        out.bits += (mask & bit) == 0 ? '.' : (octet & bit) != 0 ? '1' : '0';
    return out;
}

data_coding read_data_coding(uint8_t octet, size_t offset)
{
    data_coding out;
    if ((octet & 0x80) == 0) {
        read_general(out, octet, offset);
    } else if (octet < 0xC0) {
        choose(out, alphabet::gsm7, "reserved coding group, read as GSM 7-bit default alphabet");
        out.bits.push_back(bit_field("coding group", octet, 0xF0, offset, "reserved"));
    } else if (octet < 0xF0) {
        read_waiting(out, octet, offset);
    } else {
        read_class(out, octet, offset);
    }
    return out;
}

} // namespace pdu
