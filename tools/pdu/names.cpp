#include "names.h"

#include <iterator>

namespace pdu
{
namespace
{

struct range_name {
    unsigned first, last;
    const char *name;
};

template <size_t Count> const char *find(const range_name (&table)[Count], unsigned code)
{
    for (const range_name &each : table)
        if (code >= each.first && code <= each.last)
            return each.name;
    return "reserved";
}

constexpr const char *numbers[] = {"unknown type of number",  "international number",  "national number",
                                   "network-specific number", "subscriber number",     "alphanumeric",
                                   "abbreviated number",      "reserved for extension"};

constexpr range_name plans[] = {
    {0, 0, "unknown plan"},
    {1, 1, "telephone plan (E.164)"},
    {3, 3, "data plan (X.121)"},
    {4, 4, "telex plan"},
    {5, 6, "service centre specific plan"},
    {8, 8, "national plan"},
    {9, 9, "private plan"},
    {10, 10, "ERMES plan"},
};

constexpr range_name protocols[] = {
    {0x40, 0x40, "Short Message Type 0: acknowledged, and neither shown nor kept"},
    {0x41, 0x47, "Replace Short Message"},
    {0x48, 0x48, "Device Triggering Short Message"},
    {0x5E, 0x5E, "Enhanced Message Service (obsolete)"},
    {0x5F, 0x5F, "Return Call Message"},
    {0x7C, 0x7C, "ANSI-136 R-DATA"},
    {0x7D, 0x7D, "ME Data download"},
    {0x7E, 0x7E, "ME De-personalization Short Message"},
    {0x7F, 0x7F, "(U)SIM Data download"},
    {0xC0, 0xFF, "for the service centre's own use"},
};

constexpr range_name devices[] = {
    {0, 0, "implicit"},
    {1, 1, "telex"},
    {2, 2, "group 3 telefax"},
    {3, 3, "group 4 telefax"},
    {4, 4, "voice telephone"},
    {5, 5, "ERMES"},
    {6, 6, "national paging system"},
    {7, 7, "Videotex"},
    {8, 8, "teletex, carrier unspecified"},
    {9, 9, "teletex, in PSPDN"},
    {10, 10, "teletex, in CSPDN"},
    {11, 11, "teletex, in analog PSTN"},
    {12, 12, "teletex, in digital ISDN"},
    {13, 13, "UCI"},
    {16, 16, "message handling facility"},
    {17, 17, "public X.400 system"},
    {18, 18, "Internet electronic mail"},
    {24, 30, "service centre specific"},
    {31, 31, "mobile station"},
};

constexpr range_name statuses[] = {
    {0x00, 0x00, "received by the recipient"},
    {0x01, 0x01, "forwarded to the recipient, not confirmed"},
    {0x02, 0x02, "replaced by the service centre"},
    {0x10, 0x1F, "done: service centre specific"},
    {0x20, 0x20, "still trying: congestion"},
    {0x21, 0x21, "still trying: recipient busy"},
    {0x22, 0x22, "still trying: no response from the recipient"},
    {0x23, 0x23, "still trying: service rejected"},
    {0x24, 0x24, "still trying: quality of service not available"},
    {0x25, 0x25, "still trying: error in the recipient"},
    {0x30, 0x3F, "still trying: service centre specific"},
    {0x40, 0x40, "failed for good: remote procedure error"},
    {0x41, 0x41, "failed for good: incompatible destination"},
    {0x42, 0x42, "failed for good: connection rejected by the recipient"},
    {0x43, 0x43, "failed for good: not obtainable"},
    {0x44, 0x44, "failed for good: quality of service not available"},
    {0x45, 0x45, "failed for good: no interworking available"},
    {0x46, 0x46, "failed for good: validity period expired"},
    {0x47, 0x47, "failed for good: deleted by its sender"},
    {0x48, 0x48, "failed for good: deleted by the service centre's administration"},
    {0x49, 0x49, "failed for good: the message does not exist"},
    {0x50, 0x5F, "failed for good: service centre specific"},
    {0x60, 0x60, "given up: congestion"},
    {0x61, 0x61, "given up: recipient busy"},
    {0x62, 0x62, "given up: no response from the recipient"},
    {0x63, 0x63, "given up: service rejected"},
    {0x64, 0x64, "given up: quality of service not available"},
    {0x65, 0x65, "given up: error in the recipient"},
    {0x70, 0x7F, "given up: service centre specific"},
};

constexpr range_name elements[] = {
    {0x00, 0x00, "Concatenated short messages, 8-bit reference number"},
    {0x01, 0x01, "Special SMS Message Indication"},
    {0x02, 0x02, "Reserved"},
    {0x03, 0x03, "Value not used to avoid misinterpretation as line feed"},
    {0x04, 0x04, "Application port addressing scheme, 8 bit address"},
    {0x05, 0x05, "Application port addressing scheme, 16 bit address"},
    {0x06, 0x06, "SMSC Control Parameters"},
    {0x07, 0x07, "UDH Source Indicator"},
    {0x08, 0x08, "Concatenated short message, 16-bit reference number"},
    {0x09, 0x09, "Wireless Control Message Protocol"},
    {0x0A, 0x0A, "Text Formatting"},
    {0x0B, 0x0B, "Predefined Sound"},
    {0x0C, 0x0C, "User Defined Sound"},
    {0x0D, 0x0D, "Predefined Animation"},
    {0x0E, 0x0E, "Large Animation"},
    {0x0F, 0x0F, "Small Animation"},
    {0x10, 0x10, "Large Picture"},
    {0x11, 0x11, "Small Picture"},
    {0x12, 0x12, "Variable Picture"},
    {0x13, 0x13, "User prompt indicator"},
    {0x14, 0x14, "Extended Object"},
    {0x15, 0x15, "Reused Extended Object"},
    {0x16, 0x16, "Compression Control"},
    {0x17, 0x17, "Object Distribution Indicator"},
    {0x18, 0x18, "Standard WVG object"},
    {0x19, 0x19, "Character Size WVG object"},
    {0x1A, 0x1A, "Extended Object Data Request Command"},
    {0x1B, 0x1F, "Reserved for future EMS features"},
    {0x20, 0x20, "RFC 5322 E-Mail Header"},
    {0x21, 0x21, "Hyperlink format element"},
    {0x22, 0x22, "Reply Address Element"},
    {0x23, 0x23, "Enhanced Voice Mail Information"},
    {0x24, 0x24, "National Language Single Shift"},
    {0x25, 0x25, "National Language Locking Shift"},
    {0x26, 0x6F, "Reserved for future use"},
    {0x70, 0x7F, "(U)SIM Toolkit Security Header"},
    {0x80, 0x9F, "SME to SME specific use"},
    {0xA0, 0xBF, "Reserved for future use"},
    {0xC0, 0xDF, "SC specific use"},
    {0xE0, 0xFF, "Reserved for future use"},
};

constexpr const char *languages[] = {"reserved", "Turkish",   "Spanish", "Portuguese", "Bengali", "Gujarati", "Hindi",
                                     "Kannada",  "Malayalam", "Oriya",   "Punjabi",    "Tamil",   "Telugu",   "Urdu"};

} // namespace

std::string counted(size_t count, const char *unit)
{
    return std::to_string(count) + ' ' + unit + (count == 1 ? "" : "s");
}

std::string type_of_address(uint8_t octet)
{
    std::string out = numbers[octet >> 4 & 7];
    out += ", ";
    out += find(plans, octet & 0x0Fu);
    if ((octet & 0x80) == 0)
        out += "; the highest bit should be 1";
    return out;
}

std::string protocol_identifier(uint8_t octet)
{
    if (octet < 0x20)
        return octet == 0 ? "from one subscriber to another, no interworking"
                          : "no interworking, protocol " + std::to_string(octet & 0x1F);
    if (octet < 0x40)
        return std::string("telematic interworking: ") + find(devices, octet & 0x1Fu);
    std::string out = find(protocols, octet);
    if (octet >= 0x41 && octet <= 0x47)
        out += " Type " + std::to_string(octet & 7);
    return out;
}

std::string status(uint8_t octet)
{
    return find(statuses, octet);
}

const char *element_name(uint8_t id)
{
    return find(elements, id);
}

const char *language_name(uint8_t code)
{
    return code < std::size(languages) ? languages[code] : "reserved";
}

std::string relative_validity(uint8_t octet)
{
    if (octet <= 143)
        return counted((octet + 1u) * 5, "minute");
    if (octet <= 167) {
        const unsigned half_hours = octet - 143u;
        return "12 hours and " + counted(half_hours * 30, "minute");
    }
    return octet <= 196 ? counted(octet - 166u, "day") : counted(octet - 192u, "week");
}

} // namespace pdu
