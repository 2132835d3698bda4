/* Works through the corpus once, one side of it, for a tool that counts instructions. */
#include <cstdio>
#include <cstring>

#include "work.h"

namespace
{

size_t done; /* so that nothing can be left out */

} // namespace

/* Only what happens in here is counted. */
extern "C" __attribute__((noinline)) void counted_decode(const Delivered &message)
{
    done += static_cast<size_t>(decode(message).text[0]);
}

extern "C" __attribute__((noinline)) void counted_encode(const Submitted &message)
{
    done += encode(message);
}

extern "C" __attribute__((noinline)) void counted_hex_to_octets(const std::string &digits)
{
    static uint8_t octets[pdu_octets_max];
    done += hex_to_octets(digits, octets);
}

extern "C" __attribute__((noinline)) void counted_octets_to_hex(const std::vector<uint8_t> &octets)
{
    static char digits[2 * pdu_octets_max];
    done += octets_to_hex(octets, digits);
}

int main(int argc, char **argv)
{
    const std::string side = argc == 2 ? argv[1] : "";

    if (side == "decode" || side == "hex_to_octets") {
        for (const Delivered &message : delivered_messages())
            side == "decode" ? counted_decode(message) : counted_hex_to_octets(message.pdu);
    } else if (side == "encode") {
        for (const Submitted &message : submitted_messages())
            counted_encode(message);
    } else if (side == "octets_to_hex") {
        for (const std::vector<uint8_t> &octets : octets_of(submitted_messages()))
            counted_octets_to_hex(octets);
    } else {
        fprintf(stderr, "usage: codec_count decode|hex_to_octets|encode|octets_to_hex\n");
        return 2;
    }
    return done > 0 ? 0 : 1;
}
