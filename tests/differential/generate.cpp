#include "differential.h"

#include "vectors/reference.h"

namespace
{

using random_source = std::mt19937;

unsigned pick(random_source &random, unsigned below)
{
    return static_cast<unsigned>(random() % below);
}

template <class List> auto one_of(random_source &random, const List &list)
{
    return list[pick(random, static_cast<unsigned>(std::size(list)))];
}

bool chance(random_source &random, unsigned percent)
{
    return pick(random, 100) < percent;
}

std::string digits(random_source &random, unsigned count)
{
    std::string text;

    for (unsigned i = 0; i < count; i++)
        text += static_cast<char>('0' + pick(random, 10));
    return text;
}

bytes swapped(const std::string &number)
{
    bytes octets;

    for (size_t i = 0; i < number.size(); i += 2) {
        const auto digit = [&](size_t at) {
            return at < number.size() ? static_cast<unsigned>(number[at] - '0') : 15U;
        };
        octets.push_back(static_cast<uint8_t>(digit(i + 1) << 4 | digit(i)));
    }
    return octets;
}

void make_sender(random_source &random, message *m)
{
    static constexpr uint8_t types[] = {0x91, 0x91, 0x91, 0x81, 0x81, 0xA1, 0x90};
    static const std::string letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz 0123456789.-&@_";

    if (chance(random, 25)) {
        const unsigned count = 1 + pick(random, 11);
        for (unsigned i = 0; i < count; i++) {
            const char letter = letters[pick(random, static_cast<unsigned>(letters.size()))];
            m->name.push_back(letter == '@' ? 0x00 : letter == '_' ? 0x11 : static_cast<uint8_t>(letter));
        }
        m->sender_type = 0xD0;
        m->address = reference::pack(m->name);
        m->semi_octets = (count * 7 + 3) / 4;
        return;
    }
    const std::string number = digits(random, 1 + pick(random, 20));
    m->sender_type = one_of(random, types);
    m->address = swapped(number);
    m->semi_octets = static_cast<unsigned>(number.size());
}

void make_stamp(random_source &random, message *m)
{
    m->year = static_cast<int>(pick(random, 100));
    m->month = 1 + static_cast<int>(pick(random, 12));
    m->day = 1 + static_cast<int>(pick(random, 28));
    m->hour = static_cast<int>(pick(random, 24));
    m->minute = static_cast<int>(pick(random, 60));
    m->second = static_cast<int>(pick(random, 60));
    m->quarters = static_cast<int>(pick(random, 2 * 48 + 1)) - 48;
}

bytes part_header(random_source &random, bool wide)
{
    const auto total = static_cast<uint8_t>(1 + pick(random, 255));
    const auto sequence = static_cast<uint8_t>(1 + pick(random, total));
    const auto octet = [&] { return static_cast<uint8_t>(pick(random, 256)); };

    if (wide)
        return {6, 8, 4, octet(), octet(), total, sequence};
    return {5, 0, 3, octet(), total, sequence};
}

void make_septets(random_source &random, message *m, unsigned most)
{
    static constexpr uint8_t extensions[] = {0x0A, 0x14, 0x28, 0x29, 0x2F, 0x3C, 0x3D, 0x3E, 0x40, 0x65};
    static constexpr uint8_t turkish[] = {0x14, 0x28, 0x29, 0x2F, 0x3C, 0x3D, 0x3E, 0x40,
                                          0x47, 0x49, 0x53, 0x63, 0x65, 0x67, 0x69, 0x73};
    static constexpr uint8_t dcs[] = {0x00, 0x00, 0x00, 0x10, 0x11, 0xF0, 0xF1, 0xC8, 0xD0};
    const bool national = m->header.size() == 4;
    const bool near_bound = chance(random, 30);
    const unsigned count = near_bound ? most - pick(random, std::min(4U, most)) : 1 + pick(random, most);
    const bool ascii = chance(random, 30);
    const bool greek = chance(random, 10);

    m->dcs = national ? 0x00 : one_of(random, dcs);
    while (m->codes.size() < count) {
        if (m->codes.size() + 2 <= count && !m->codes.empty() && chance(random, 8)) {
            m->codes.push_back(0x1B);
            m->codes.push_back(chance(random, 5) ? static_cast<uint8_t>(0x66)
                               : national        ? one_of(random, turkish)
                                                 : one_of(random, extensions));
            continue;
        }
        const auto code = static_cast<uint8_t>(ascii   ? 0x61 + pick(random, 26)
                                               : greek ? 0x03 + pick(random, 0x1C)
                                                       : pick(random, 128));
        if (code != 0x1B)
            m->codes.push_back(code);
    }
}

void make_ucs2(random_source &random, message *m, unsigned most)
{
    static constexpr uint8_t dcs[] = {0x08, 0x08, 0x18, 0x19};
    const unsigned count = chance(random, 30) ? most : 1 + pick(random, most);

    m->kind = alphabet::ucs2;
    m->dcs = one_of(random, dcs);
    const auto add = [&](unsigned unit) {
        m->codes.push_back(static_cast<uint8_t>(unit >> 8));
        m->codes.push_back(static_cast<uint8_t>(unit));
    };
    while (m->codes.size() / 2 < count) {
        if (m->codes.size() / 2 + 2 <= count && chance(random, 5)) {
            add(0xD800 + pick(random, 0x400));
            add(0xDC00 + pick(random, 0x400));
        } else if (chance(random, 40)) {
            add(0x4E00 + pick(random, 0x5000));
        } else {
            add(chance(random, 50) ? 0x20 + pick(random, 0x5F) : 0xA1 + pick(random, 0x500));
        }
    }
}

void make_data(random_source &random, message *m, unsigned most)
{
    static constexpr uint8_t dcs[] = {0x04, 0x14, 0xF4, 0xF5};
    const unsigned count = chance(random, 30) ? most : chance(random, 10) ? 1 : 1 + pick(random, most);

    m->kind = alphabet::data;
    m->dcs = one_of(random, dcs);
    for (unsigned i = 0; i < count; i++)
        m->codes.push_back(static_cast<uint8_t>(1 + pick(random, 255)));
}

std::string utf8_of(random_source &random)
{
    static const char *const others[] = {"é", "ñ", "€", "中", "文", "Ω", "ı", "я", "ß", "\u00A0"};

    if (chance(random, 2))
        return "😀";
    return chance(random, 50) ? std::string(1, static_cast<char>(' ' + pick(random, 95))) : one_of(random, others);
}

} // namespace

bytes deliver(const message &m)
{
    bytes pdu = {7, 0x91, 0x13, 0x56, 0x13, 0x13, 0x13, 0xF3};
    const bool septets = m.kind == alphabet::gsm7;
    const auto bits = static_cast<int>(8 * m.header.size());
    const int fill = septets ? (7 - bits % 7) % 7 : 0;
    const bytes body = septets ? reference::pack(m.codes, fill) : m.codes;
    const size_t udl =
        septets ? static_cast<size_t>((bits + fill) / 7) + m.codes.size() : m.header.size() + body.size();
    const auto bcd = [&](int value) { pdu.push_back(static_cast<uint8_t>(value % 10 << 4 | value / 10)); };

    pdu.push_back(m.header.empty() ? 0x04 : 0x44);
    pdu.push_back(static_cast<uint8_t>(m.semi_octets));
    pdu.push_back(m.sender_type);
    pdu.insert(pdu.end(), m.address.begin(), m.address.end());
    pdu.push_back(0);
    pdu.push_back(m.dcs);
    for (const int value : {m.year, m.month, m.day, m.hour, m.minute, m.second})
        bcd(value);
    bcd(m.quarters < 0 ? -m.quarters : m.quarters);
    if (m.quarters < 0)
        pdu.back() |= 0x08;
    pdu.push_back(static_cast<uint8_t>(udl));
    pdu.insert(pdu.end(), m.header.begin(), m.header.end());
    pdu.insert(pdu.end(), body.begin(), body.end());
    return pdu;
}

message make_message(std::mt19937 &random)
{
    message m;
    const unsigned kind = pick(random, 100);

    make_sender(random, &m);
    make_stamp(random, &m);
    if (chance(random, 40))
        m.header = part_header(random, chance(random, 40));
    else if (kind < 60 && chance(random, 15))
        m.header = {3, 0x24, 1, 1};
    const unsigned room = 140 - static_cast<unsigned>(m.header.size());
    if (kind < 60)
        make_septets(random, &m, room * 8 / 7);
    else if (kind < 85)
        make_ucs2(random, &m, room / 2);
    else
        make_data(random, &m, room);
    m.pdu = deliver(m);
    return m;
}

request make_request(std::mt19937 &random)
{
    static constexpr unsigned bounds[] = {1,   66,  67,  68,  69,  70,  71,  133, 134, 135, 152,
                                          153, 154, 159, 160, 161, 305, 306, 307, 459, 612};
    request r;
    const unsigned count = chance(random, 60) ? one_of(random, bounds) : 1 + pick(random, 400);
    const bool ascii = chance(random, 60);
    const bool extensions = chance(random, 50);
    const bool brackets = chance(random, 20);

    r.number = (chance(random, 50) ? "+" : "") + digits(random, 1 + pick(random, 20));
    if (chance(random, 2)) { /* an escape where a part would end, in as many septets as parts hold */
        r.text = std::string(152, 'x') + "[" + std::string(152, 'y');
        return r;
    }
    for (unsigned i = 0; i < count; i++) {
        if (!ascii)
            r.text += utf8_of(random);
        else if (brackets)
            r.text += chance(random, 40) ? '[' : 'x';
        else if (extensions)
            r.text += chance(random, 3) ? '\t' : static_cast<char>(' ' + pick(random, 95));
        else
            r.text += static_cast<char>('a' + pick(random, 26));
    }
    return r;
}
