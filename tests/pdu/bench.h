/* What the inspector's tests share. */
#ifndef PDU_BENCH_H
#define PDU_BENCH_H

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "pdu/inspect.h"

namespace pdu
{

inline std::string squeezed(std::string spaced)
{
    spaced.erase(std::remove(spaced.begin(), spaced.end(), ' '), spaced.end());
    return spaced;
}

/* Blanks in the PDU only divide its fields. */
inline message read(const std::string &hex, reading as = reading::by_type, bool has_smsc = true)
{
    return read_message(squeezed(hex), {as, has_smsc});
}

inline inspection inspected(const std::string &hex)
{
    const std::vector<inspection> all = inspect(hex, {});
    EXPECT_EQ(1u, all.size()) << hex;
    return all.empty() ? inspection() : all[0];
}

/* The first field of this name, at any depth. */
inline const field *find_field(const std::vector<field> &fields, const std::string &name)
{
    for (const field &each : fields) {
        if (each.name == name)
            return &each;
        const field *inside = find_field(each.children, name);
        if (inside != nullptr)
            return inside;
    }
    return nullptr;
}

inline std::string meaning(const message &m, const std::string &name)
{
    const field *found = find_field(m.fields, name);
    return found == nullptr ? "(no such field)" : found->meaning;
}

/* The octets of all fields that are not divided, in order; each field has those of the fields in it. */
inline void append_octets(const std::vector<field> &fields, octets &out)
{
    for (const field &each : fields) {
        const size_t start = out.size();
        append_octets(each.children, out);
        if (out.size() == start)
            out.insert(out.end(), each.bytes.begin(), each.bytes.end());
        if (out.size() == start)
            continue; /* bits, or nothing */
        EXPECT_EQ(start, each.offset) << each.name;
        EXPECT_EQ(octets(out.begin() + static_cast<std::ptrdiff_t>(start), out.end()), each.bytes) << each.name;
    }
}

/* Every octet stands in one field, at its place. */
inline void expect_whole(const message &m, const std::string &hex)
{
    octets shown;
    append_octets(m.fields, shown);
    EXPECT_EQ(m.bytes, shown) << hex;
}

inline std::string problems_of(const message &m)
{
    std::string out;
    for (const problem &each : m.problems)
        out += std::to_string(each.offset) + ": " + each.what + '\n';
    return out;
}

/* Some of each kind, in fields. */
inline const std::vector<std::string> &samples()
{
    static const std::vector<std::string> all = {
        /* 7-bit; 7-bit part; UCS-2 part; 8-bit with ports; a name, Turkish single shift; voice mail indication */
        "07 911326040000F0 04 0B 91 1346610089F6 00 00 20806291731408 0C C8F71D14969741F977FD07",
        "00 44 0B 91 1316325476F8 00 00 42305041700002 0A 050003 2A0201 D06536",
        "04 91 214365 44 0B 91 1316325476F8 00 08 42305041700002 0A 050003 2A0202 4E2D6587",
        "00 44 05 81 2143F5 00 F5 42305041700002 09 06 0504 0B84 23F0 0102",
        "00 44 0A D0 D4E2940A0A 00 00 42305041700002 0A 03240101 4096D9EC37",
        "00 44 05 81 2143F5 00 C8 42305041700002 06 04 01028005 00",
        /* submits with each form of validity */
        "04 91 214365 11 01 05 81 2143F5 00 00 08 02 E834",
        "00 01 01 05 81 2143F5 00 04 03 010203",
        "00 19 01 05 81 2143F5 00 00 42305041700000 02 E834",
        "00 49 01 05 81 2143F5 00 08 01000000000000 09 060804 1234 0201 0041",
        /* reports */
        "00 06 2A 0B 91 1316325476F8 42305041700002 42305041800002 00",
        "00 46 2A 0B 91 1316325476F8 42305041700002 42305041800002 20 07 00 00 06 05000301 0201",
    };
    return all;
}

} // namespace pdu

#endif
