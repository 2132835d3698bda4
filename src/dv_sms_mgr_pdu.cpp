#include "dv_sms_mgr_pdu.h"

#include <stdlib.h>
#include <string.h>

#include <bit>

#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_pdu_tables.h"
#include "dv_sms_mgr_receive.h"
#include "dv_sms_mgr_send.h"
#include "dv_sms_mgr_text.h"
#include "util.h"

/* --- hexadecimal text and semi-octets --- */

uint8_t hex_char_to_value(char digit)
{
    return hex_value_table[static_cast<uint8_t>(digit)];
}

static uint8_t hex_pair(const char *pair)
{
    return static_cast<uint8_t>(hex_char_to_value(pair[0]) << 4 | hex_char_to_value(pair[1]));
}

/* Many digits are converted a block at a time, as vectors, without tables and branches. Arrays in their place would
 * be guarded against overflow, block by block. */
enum { HEX_BLOCK = 16 /* octets */ };

typedef uint8_t octet_block __attribute__((vector_size(HEX_BLOCK)));
typedef int8_t digit_block __attribute__((vector_size(HEX_BLOCK)));

/* What the digits 0 to 15 are written as. */
static digit_block written(octet_block digits)
{
    const auto values = reinterpret_cast<digit_block>(digits);

    return values + '0' + ((values > 9) & ('A' - '0' - 10));
}

static void write_hex_block(const uint8_t *bytes, char *text)
{
    octet_block octets;

    memcpy(&octets, bytes, sizeof octets);
    const digit_block high = written(octets >> 4);
    const digit_block low = written(octets & 0x0F);
    const digit_block first =
        __builtin_shufflevector(high, low, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
    const digit_block second =
        __builtin_shufflevector(high, low, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31);

    memcpy(text, &first, sizeof first);
    memcpy(text + sizeof first, &second, sizeof second);
}

/* What the digits say, 0 for what is none. */
static octet_block read_digits(const char *text)
{
    octet_block digits;

    memcpy(&digits, text, sizeof digits);
    const octet_block number = digits - '0';
    const octet_block letter = (digits | 0x20) - 'a';

    return (number & reinterpret_cast<octet_block>(number < 10)) |
           ((letter + 10) & reinterpret_cast<octet_block>(letter < 6));
}

static void read_hex_block(const char *text, uint8_t *bytes)
{
    const octet_block first = read_digits(text);
    const octet_block second = read_digits(text + HEX_BLOCK);
    const octet_block high =
        __builtin_shufflevector(first, second, 0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
    const octet_block low =
        __builtin_shufflevector(first, second, 1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31);
    const octet_block octets = high << 4 | low;

    memcpy(bytes, &octets, sizeof octets);
}

/* The last one may overlap the one in front. */
static int next_block(int at, int last)
{
    return at < last && at > last - HEX_BLOCK ? last : at + HEX_BLOCK;
}

int bytes_to_hex(const uint8_t *bytes, char *text, int count)
{
    const int last = count - HEX_BLOCK;

    for (int i = 0; i <= last; i = next_block(i, last))
        write_hex_block(bytes + i, text + 2 * i);
    for (int i = 0; last < 0 && i < count; i++) {
        text[2 * i] = hex_digits[bytes[i] >> 4];
        text[2 * i + 1] = hex_digits[bytes[i] & 0x0F];
    }
    return 2 * count;
}

/* All of 2 * count digits are there. */
static void read_hex(const char *text, uint8_t *bytes, int count)
{
    const int last = count - HEX_BLOCK;

    for (int i = 0; i <= last; i = next_block(i, last))
        read_hex_block(text + 2 * i, bytes + i);
    for (int i = 0; last < 0 && i < count; i++)
        bytes[i] = hex_pair(text + 2 * i);
}

int hex_to_bytes(const char *text, uint8_t *bytes, int max_bytes)
{
    if (max_bytes <= 0)
        return 0;
    const int count = static_cast<int>(strnlen(text, 2 * static_cast<size_t>(max_bytes)) / 2);

    read_hex(text, bytes, count);
    return count;
}

/* Eight digits swapped in pairs. */
static uint64_t swapped_eight(const char *digits)
{
    uint64_t eight;

    memcpy(&eight, digits, 8);
    return (eight & 0x00FF00FF00FF00FF) << 8 | (eight >> 8 & 0x00FF00FF00FF00FF);
}

/* An even number of digits. */
static void swap_pairs(const char *digits, char *text, int count)
{
    if (count >= 8) {
        const uint64_t last = swapped_eight(digits + count - 8); /* may overlap what is in front */

        for (int i = 0; i < count - 8; i += 8) {
            const uint64_t eight = swapped_eight(digits + i);
            memcpy(text + i, &eight, 8);
        }
        memcpy(text + count - 8, &last, 8);
        return;
    }
    for (int i = 0; i < count; i += 2) {
        const char first = digits[i];
        text[i] = digits[i + 1];
        text[i + 1] = first;
    }
}

int phone_to_semi_octets(const char *digits, char *text, int count)
{
    const int odd = count % 2;
    const int pairs = count - odd;

    swap_pairs(digits, text, pairs);
    if (count > 0) { /* without a branch for the fill: its place is written again when there is none */
        const char last = digits[count - 1];
        text[pairs] = 'F';
        text[pairs + odd] = last;
    }
    text[pairs + 2 * odd] = '\0';
    return pairs + 2 * odd;
}

int semi_octets_to_text(const char *semi_octets, char *text, int count)
{
    const int even = count + count % 2;

    for (int i = 0; i < even; i += 2) {
        text[i] = semi_octets[i + 1];
        text[i + 1] = semi_octets[i];
    }
    text[even] = '\0';
    if (even > 0 && (text[even - 1] == 'F' || text[even - 1] == 'f')) {
        text[even - 1] = '\0';
        return count - 1;
    }
    return count;
}

int has_non_hex_letter(const char *text, int length)
{
    for (int i = 0; i < length; i++) {
        const char letter = static_cast<char>(text[i] & ~0x20);

        if (letter >= 'A' && letter <= 'Z' && letter != 'F')
            return 1;
    }
    return 0;
}

/* --- septets --- */

static constexpr uint64_t every_byte = 0x0101010101010101;
static constexpr uint64_t high_bits = 0x80 * every_byte;

typedef uint64_t two_words __attribute__((vector_size(16)));

/* Eight octets that are septets, as one number of 56 bits, the first in the lowest; or two of each. */
template <class Word> static Word join_septets(Word apart)
{
    apart = (apart & 0x007F007F007F007F) | (apart & 0x7F007F007F007F00) >> 1;
    apart = (apart & 0x00003FFF00003FFF) | (apart & 0x3FFF00003FFF0000) >> 2;
    return (apart & 0x000000000FFFFFFF) | (apart & 0x0FFFFFFF00000000) >> 4;
}

/* At most eight, whatever their highest bits are; rare, so that it stands in the program once. */
[[gnu::noinline]] static int pack_few(const uint8_t *septets, uint8_t *octets, int count)
{
    unsigned carry = 0;
    int written = 0;

    for (int k = 0; k < count; k++) {
        if (k > 0)
            octets[written++] = static_cast<uint8_t>((unsigned{septets[k]} << (8 - k)) + carry);
        carry = static_cast<unsigned>(septets[k]) >> k;
    }
    if (count % 8 != 0)
        octets[written++] = static_cast<uint8_t>(carry);
    return written;
}

/* At most eight, which eight that can be read may end with; how many octets. */
static int pack_rest(const uint8_t *septets, uint8_t *octets, int count, bool eight_in_front)
{
    const int written = count < 8 ? count : 7;
    uint64_t packed = 0;

    if (eight_in_front) {
        memcpy(&packed, septets + count - 8, 8);
        packed >>= 8 * (8 - count);
    }
    for (int k = 0; !eight_in_front && k < count; k++)
        packed |= uint64_t{septets[k]} << 8 * k;
    if (packed & high_bits)
        return pack_few(septets, octets, count);
    packed = join_septets(packed);
    for (int k = 0; k < written; k++)
        octets[k] = static_cast<uint8_t>(packed >> 8 * k);
    return written;
}

int dv_sms_mgr_pack_7bit(const uint8_t *septets, uint8_t *octets, int count)
{
    const bool eight = count >= 8;
    int written = 0;

    for (; count >= 16; count -= 16, septets += 16, written += 14) {
        two_words two;

        memcpy(&two, septets, sizeof two);
        if ((two[0] | two[1]) & high_bits)
            break;
        two = join_septets(two);
        const uint64_t first = two[0], second = two[1]; /* the eighth octet of each is 0, in the place of the next */

        memcpy(octets + written, &first, 8);
        memcpy(octets + written + 7, &second, 8);
    }
    for (; count > 0; count -= 8, septets += 8)
        written += pack_rest(septets, octets + written, count < 8 ? count : 8, eight);
    octets[written] = 0;
    return written;
}

/* Eight septets, the first in the lowest bits, as eight octets. */
static uint64_t spread_septets(uint64_t packed)
{
    packed = (packed & 0x000000000FFFFFFF) | (packed & 0x00FFFFFFF0000000) << 4;
    packed = (packed & 0x00003FFF00003FFF) | (packed & 0x0FFFC0000FFFC000) << 2;
    return (packed & 0x007F007F007F007F) | (packed & 0x3F803F803F803F80) << 1;
}

/* The octets are one stream of bits, lowest first, of which the septets are cut eight at a time. */
int dv_sms_mgr_unpack_7bit(const uint8_t *octets, uint8_t *septets, int count, int offset)
{
    const int total = count > 0 ? (8 * count - offset) / 7 : 0;

    for (int done = 0; done < total; done += 8, octets += 7, count -= 7) {
        uint64_t bits = 0;

        if (count >= 8)
            memcpy(&bits, octets, 8);
        else
            memcpy(&bits, octets, static_cast<size_t>(count));
        bits = spread_septets(bits >> offset);
        if (total - done >= 8)
            memcpy(septets + done, &bits, 8);
        else
            memcpy(septets + done, &bits, static_cast<size_t>(total - done));
    }
    septets[total] = 0;
    return total;
}
static_assert(std::endian::native == std::endian::little);

/* --- character sets --- */

int dv_sms_mgr_utf8_seq_len(uint8_t lead)
{
    return utf8_length_table[lead];
}

/* The same for a text that is not at its end, but never beyond its terminator. */
static int sequence_in_text(const char *text)
{
    const auto lead = static_cast<uint8_t>(*text);

    if (lead < 0x80)
        return 1;
    if ((lead & 0xE0) == 0xC0 && text[1] != '\0')
        return 2;
    if ((lead & 0xF0) == 0xE0 && text[1] != '\0' && text[2] != '\0')
        return 3;
    return static_cast<int>(strnlen(text, utf8_length_table[lead]));
}

enum { ASCII_BLOCK = sizeof(octet_block) /* characters */ };

static bool none_of(digit_block flags)
{
    const auto words = reinterpret_cast<two_words>(flags);

    return (words[0] | words[1]) == 0;
}

/* Whether the first `count` of these characters, of which a block can be read, are the same in ASCII and in the default
 * alphabet: printable, and none of $, @, [ \ ] ^ _ ` and { | } ~ DEL. */
static bool same_in_ascii(const void *characters, int count)
{
    static constexpr digit_block places = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    digit_block ascii;

    memcpy(&ascii, characters, sizeof ascii);
    const auto no_letter = (ascii >= '@') & ((((ascii & 0x1F) - 1) & 0x1F) > 'Z' - '@' - 1);
    const auto others = (ascii < ' ') | (ascii == '$') | no_letter;

    return none_of(count >= ASCII_BLOCK ? others : others & (places < static_cast<int8_t>(count)));
}

static int sum_of(octet_block numbers)
{
    constexpr uint64_t low_halves = 0x00FF00FF00FF00FF;
    const auto words = reinterpret_cast<two_words>(numbers);
    const two_words sums = (words & low_halves) + (words >> 8 & low_halves);

    return static_cast<int>((sums[0] + sums[1]) * 0x0001000100010001 >> 48);
}

static octet_block load_block(const char *text)
{
    octet_block block;

    memcpy(&block, text, sizeof block);
    return block;
}

/* Counts the characters of well-formed text of at most three bytes each, a block at a time, without looking at one
 * after the other: there are as many as bytes that are no continuation, if these are where the leads want them. Where
 * it found something else, or the last bytes: always the begin of a character. */
static const char *count_well_formed(const char *begin, const char *end, int *count)
{
    const auto first = static_cast<uint8_t>(begin[0]);

    if (end - begin < 2 + HEX_BLOCK || is_utf8_continuation(begin[0]) ||
        is_utf8_continuation(begin[1]) != (first >= 0xC0))
        return begin;
    const char *text = begin + 2; /* where a block has two bytes in front of it */
    octet_block continuations = {};

    for (int blocks = 1; end - text >= HEX_BLOCK && blocks < UINT8_MAX; blocks++, text += HEX_BLOCK) {
        const octet_block block = load_block(text);
        const octet_block before = load_block(text - 1);
        const octet_block two_before = load_block(text - 2);
        const auto continuation = (block & 0xC0) == 0x80;

        if (!none_of((((before >= 0xC0) | (two_before >= 0xE0)) ^ continuation) | (two_before >= 0xF0)))
            break;
        continuations -= reinterpret_cast<octet_block>(continuation);
    }
    *count += static_cast<int>(text - begin) - sum_of(continuations) - is_utf8_continuation(begin[1]);
    while (is_utf8_continuation(*--text)) { /* whether the last one is whole was not looked at */
    }
    --*count;
    return text;
}

int dv_sms_mgr_utf8_char_count(const char *text)
{
    int count = 0;

    if (text == nullptr)
        return 0;
    const char *end = text + strlen(text);

    while ((text = count_well_formed(text, end, &count)) < end) {
        text += sequence_in_text(text);
        count++;
    }
    return count;
}

void dv_sms_mgr_insert_escape(int position, int length, uint8_t code)
{
    const int last = length - 1 < SEND_TEXT_MAX - 1 ? length - 1 : SEND_TEXT_MAX - 1;
    char *at = dv_sms_send_text + position;

    memmove(at + 1, at, static_cast<size_t>(last - position + 1));
    at[0] = GSM7_ESCAPE;
    at[1] = static_cast<char>(code);
}

int dv_sms_mgr_ascii_to_gsm7(int length)
{
    int looked_at = 0; /* the characters up to here are taken one by one */

    for (int i = 0; i < length; i++) {
        char *text = dv_sms_send_text + i;

        if (i >= looked_at && i + ASCII_BLOCK <= SEND_TEXT_MAX) {
            if (same_in_ascii(text, length - i)) {
                i += ASCII_BLOCK - 1;
                continue;
            }
            looked_at = i + ASCII_BLOCK;
        }
        const auto ascii = static_cast<uint8_t>(*text);

        if (ascii >= ascii_to_gsm7_table.size())
            continue;
        const uint8_t code = ascii_to_gsm7_table[ascii];

        if ((code & GSM7_ESCAPED) == 0) {
            *text = static_cast<char>(code);
            continue;
        }
        dv_sms_mgr_insert_escape(i, length, code & 0x7F);
        i++;
        if (++length > SEND_TEXT_MAX)
            break;
    }
    return length;
}

/* Converts the code at `i`, or the escape there and the code behind it. The position behind. */
static int convert_gsm7_one(const uint8_t *codes, int count, int i, char **out)
{
    const uint8_t code = codes[i++];

    if (code != GSM7_ESCAPE) {
        const uint16_t utf8 = gsm7_to_utf8_table[code & 0x7F];

        if (utf8 > 0xFF)
            *(*out)++ = static_cast<char>(utf8 >> 8);
        *(*out)++ = static_cast<char>(utf8);
        return i;
    }
    const uint8_t extension = i < count ? codes[i] : 0; /* none behind a trailing escape */

    if (extension == GSM7_EXT_EURO) {
        memcpy(*out, "\xE2\x82\xAC", 3);
        *out += 3;
    } else {
        *(*out)++ = static_cast<char>(extension < extension_table.size() ? extension_table[extension] : 0xFF);
    }
    return i + 1;
}

/* The end of the text. */
static char *convert_gsm7(const uint8_t (&codes)[PDU_WORK_SIZE], int count, char *out)
{
    int looked_at = 0; /* the codes up to here are taken one by one */

    for (int i = 0; i < count;) {
        const int left = count - i;

        if (i < looked_at || i + ASCII_BLOCK > PDU_WORK_SIZE || !same_in_ascii(codes + i, left)) {
            looked_at = i < looked_at ? looked_at : i + ASCII_BLOCK;
            i = convert_gsm7_one(codes, count, i, &out);
            continue;
        }
        if (left < ASCII_BLOCK) {
            memcpy(out, codes + i, static_cast<size_t>(left));
            return out + left;
        }
        memcpy(out, codes + i, ASCII_BLOCK);
        out += ASCII_BLOCK;
        i += ASCII_BLOCK;
    }
    return out;
}

void dv_sms_mgr_gsm7_to_utf8(char *buffer, int count)
{
    uint8_t codes[PDU_WORK_SIZE];

    memcpy(codes, buffer, static_cast<size_t>(count));
    memset(buffer, 0, static_cast<size_t>(count));
    convert_gsm7(codes, count, buffer);
}

int dv_sms_mgr_gsm7_to_ucs2(char *buffer, int count)
{
    uint8_t codes[PDU_WORK_SIZE];
    int written = 0;

    memcpy(codes, buffer, static_cast<size_t>(count));
    memset(buffer, 0, static_cast<size_t>(count));
    for (int i = 0; i < count; i++) {
        uint16_t value = national_table[codes[i] & 0x7F];

        if (codes[i] == GSM7_ESCAPE)
            value = national_extension_table[++i < count ? codes[i] & 0x7F : 0];
        buffer[written++] = static_cast<char>(value >> 8);
        buffer[written++] = static_cast<char>(value);
    }
    return written;
}

int dv_sms_mgr_utf8_to_unicode_one(const char *sequence, uint32_t *value, int length)
{
    static constexpr uint8_t lead_bits[] = {0, 0xFF, 0x1F, 0x0F, 0x07, 0x03, 0x01};

    *value = 0;
    if (length < 1 || length > 6)
        return 0;
    uint32_t result = static_cast<uint8_t>(sequence[0]) & lead_bits[length];

    for (int i = 1; i < length; i++) {
        if (!is_utf8_continuation(sequence[i]))
            return 0;
        result = result << 6 | (static_cast<uint8_t>(sequence[i]) & 0x3F);
    }
    *value = result;
    return length;
}

/* The character at the text's position, which moves behind it: its low 16 bits; 0 when it is malformed,
 * or cut short by the text's end. */
static unsigned take_character(const char **text)
{
    const char *sequence = *text;
    const int length = sequence_in_text(sequence);
    uint32_t value = 0;

    *text += length;
    if (length == utf8_length_table[static_cast<uint8_t>(*sequence)])
        dv_sms_mgr_utf8_to_unicode_one(sequence, &value, length);
    return value & 0xFFFF;
}

/* Four characters, one in a lane, its first byte the lowest. */
typedef uint32_t four_characters __attribute__((vector_size(16)));
typedef uint16_t four_pairs __attribute__((vector_size(8)));

enum {
    TAKEN_AT_ONCE = 4,   /* characters */
    LONGEST_SEQUENCE = 6 /* bytes */
};

/* The four digits of each lane, the first in the lowest byte. */
static void write_digits(four_characters values, char *out)
{
    const digit_block digits = written(reinterpret_cast<octet_block>(values));

    memcpy(out, &digits, sizeof digits);
}

/* Writes four characters of three bytes, as the twelve bytes here may be. How many of them are: 4, 2 or 0. */
static int take_three_bytes(const char *text, char *out)
{
    uint32_t first[TAKEN_AT_ONCE];

    memcpy(&first[0], text, 4);
    memcpy(&first[1], text + 3, 4);
    memcpy(&first[2], text + 6, 4);
    memcpy(&first[3], text + 8, 4);
    const four_characters bytes = {first[0], first[1], first[2], first[3] >> 8};
    const auto others = reinterpret_cast<two_words>((bytes & 0xC0C0F0) ^ 0x8080E0);

    write_digits((bytes & 0x0F) | (bytes >> 2 & 0x0F00) | (bytes << 10 & 0x0C0000) | (bytes >> 4 & 0x030000) |
                     (bytes << 8 & 0x0F000000),
                 out);
    return others[0] != 0 ? 0 : others[1] != 0 ? 2 : 4;
}

/* Writes letters of two bytes up to the one of ASCII behind them, at most four characters, as the eight bytes here may
 * be. How many bytes of them are, without a branch for each word; the characters are added up. */
static int take_two_bytes(const char *text, char *out, int *taken)
{
    uint64_t eight;
    four_pairs pairs;

    memcpy(&eight, text, sizeof eight);
    memcpy(&pairs, text, sizeof pairs);
    const uint64_t others = (eight & 0xC0E0C0E0C0E0C0E0) ^ 0x80C080C080C080C0;
    const int letters = (std::countr_zero(others >> 1 | uint64_t{1} << 63) + 1) / 16;
    const int one_byte = ~(eight >> (16 * letters & 63)) >> 7 & 1; /* behind four the first is looked at again */
    const four_characters bytes = __builtin_convertvector(pairs, four_characters);
    const four_characters two =
        (bytes << 6 & 0x0700) | (bytes << 18 & 0x0C0000) | (bytes << 4 & 0x030000) | (bytes << 16 & 0x0F000000);
    const four_characters one = (bytes << 12 & 0x0F0000) | (bytes << 24 & 0x0F000000);
    const auto ascii = reinterpret_cast<four_characters>((bytes & 0x80) == 0);

    write_digits((one & ascii) | (two & ~ascii), out);
    *taken += letters + one_byte;
    return 2 * letters + one_byte;
}

static void take_one(const char **text, char *out)
{
    const unsigned value = take_character(text);

    for (int i = 0; i < 4; i++)
        out[i] = hex_digits[value >> (12 - 4 * i) & 0x0F];
}

/* Writes one character or some of the text that goes up to `end`; how many. */
static int take_characters(const char **text, const char *end, int max_chars, char *out)
{
    const auto left = end - *text;
    char scratch[4 * TAKEN_AT_ONCE];
    char *digits = left > 3 * LONGEST_SEQUENCE ? out : scratch; /* where fewer than four are left, fewer have room */
    int taken = 0;

    if (max_chars >= TAKEN_AT_ONCE && left >= 12 && (**text & 0xF0) == 0xE0) {
        taken = take_three_bytes(*text, digits);
        *text += 3 * taken;
    } else if (max_chars >= TAKEN_AT_ONCE && left >= 8) {
        *text += take_two_bytes(*text, digits, &taken);
    }
    if (taken == 0) {
        take_one(text, out);
        return 1;
    }
    if (digits == scratch)
        memcpy(out, scratch, 4 * static_cast<size_t>(taken));
    return taken;
}

const char *dv_sms_mgr_utf8_to_unicode_string(const char *text, char *output, int max_chars)
{
    if (output == nullptr) {
        DV_EVENT("output_str is NULL, return");
        return nullptr;
    }
    const char *end = text + (max_chars > 0 ? strnlen(text, 6 * static_cast<size_t>(max_chars)) : 0);

    while (max_chars > 0 && text < end) {
        const int taken = take_characters(&text, end, max_chars, output);

        max_chars -= taken;
        output += 4 * taken;
    }
    *output = '\0';
    return text;
}

int dv_sms_mgr_unicode_to_utf8_one(uint32_t value, char *output, int capacity)
{
    static constexpr uint32_t limits[] = {0x80, 0x800, 0x10000, 0x200000, 0x4000000, 0x80000000};
    static constexpr uint8_t leads[] = {0x00, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};
    int more = 0; /* continuation bytes */

    if (output == nullptr || capacity <= 6) {
        DV_EVENT("output error");
        return -1;
    }
    while (more < 6 && value >= limits[more])
        more++;
    if (more == 6)
        return 0;
    for (int i = more; i > 0; i--, value >>= 6)
        output[i] = static_cast<char>(0x80 | (value & 0x3F));
    output[0] = static_cast<char>(leads[more] | value);
    return more + 1;
}

/* An even number of bytes; the end of the text. */
static char *convert_ucs2(const uint8_t *ucs2, int bytes, char *out)
{
    for (const uint8_t *end = ucs2 + bytes; ucs2 < end; ucs2 += 2) {
        const unsigned value = unsigned{ucs2[0]} << 8 | ucs2[1];

        if (value < 0x80) {
            *out++ = static_cast<char>(value);
        } else if (value < 0x800) {
            *out++ = static_cast<char>(0xC0 | value >> 6);
            *out++ = static_cast<char>(0x80 | (value & 0x3F));
        } else {
            *out++ = static_cast<char>(0xE0 | value >> 12);
            *out++ = static_cast<char>(0x80 | (value >> 6 & 0x3F));
            *out++ = static_cast<char>(0x80 | (value & 0x3F));
        }
    }
    return out;
}

void dv_sms_mgr_ucs2_to_utf8_string(const uint8_t *ucs2, char *output, int bytes)
{
    const int even = bytes > 0 ? bytes & ~1 : 0;

    output = convert_ucs2(ucs2, even, output);
    if (even < bytes) {
        const uint8_t last[] = {ucs2[even], 0};

        output = convert_ucs2(last, 2, output);
    }
    *output = '\0';
}

/* --- decoding --- */

static constexpr char decoder_name[] = "dv_sms_mgr_parse_pdu"; /* for whom the steps below speak */

enum : uint8_t { UDHI = 0x40, IEI_CONCATENATED_8BIT = 0x00 };

/* Hex digits still to be read; `pos` never passes `end`, where the text's terminator stands. */
struct pdu_reader {
    const char *pos;
    const char *end;
};

static size_t digits_left(const pdu_reader *in)
{
    return static_cast<size_t>(in->end - in->pos);
}

static void skip_digits(pdu_reader *in, size_t digits)
{
    in->pos += digits < digits_left(in) ? digits : digits_left(in);
}

/* 0 when the text ends before the octet does. */
static uint8_t take_octet(pdu_reader *in)
{
    const uint8_t octet = digits_left(in) < 2 ? 0 : hex_pair(in->pos);

    skip_digits(in, 2);
    return octet;
}

/* At most `max` octets, as many as are there; nothing is taken. Their count. */
static int read_octets(const pdu_reader *in, uint8_t *octets, int max)
{
    const int there = static_cast<int>(digits_left(in) / 2);
    const int count = there < max ? there : max;

    read_hex(in->pos, octets, count);
    return count;
}

enum {
    SEMI_OCTETS_MAX = 256, /* of an address of 255, rounded up to even */
    SENDER_SIZE = 400      /* its digits, or 128 characters of two bytes and the septets behind them */
};

/* Takes digits as they stand. Where the text ends before them, they are copied into the scratch with
 * zeros behind them. */
static const char *take_digits(pdu_reader *in, size_t digits, char (&scratch)[SEMI_OCTETS_MAX])
{
    const char *taken = in->pos;

    if (digits_left(in) < digits) {
        memset(scratch, 0, sizeof scratch);
        memcpy(scratch, in->pos, digits_left(in));
        taken = scratch;
    }
    skip_digits(in, digits);
    return taken;
}

/* A sender that is a name in packed septets. */
static void decode_name(const char *address, int octets, char *name)
{
    uint8_t packed[SEMI_OCTETS_MAX / 2] = {};

    memset(name, 0, SENDER_SIZE);
    /* Kept on purpose: the last octets of a name of 8 octets and more stay zero. */
    hex_to_bytes(address, packed, octets / 8 * 7 + octets % 8);
    dv_sms_mgr_unpack_7bit(packed, reinterpret_cast<uint8_t *>(name), octets, 0);
    dv_sms_mgr_gsm7_to_utf8(name, octets);
    DV_EVENT_IN(decoder_name, "sms_phone is english, phone is:%s", name);
}

static void take_sender(pdu_reader *in)
{
    char scratch[SEMI_OCTETS_MAX];
    char number[1 + SENDER_SIZE];
    char *sender = number + 1;
    const int semi_octets = take_octet(in);
    const uint8_t type = take_octet(in);
    const int octets = (semi_octets + 1) / 2;
    const char *address = take_digits(in, static_cast<size_t>(2 * octets), scratch);

    number[0] = '+';
    sender[0] = '\0';
    if (has_non_hex_letter(address, 2 * octets))
        decode_name(address, octets, sender);
    if (sender[0] == '\0')
        semi_octets_to_text(address, sender, semi_octets);
    util_replace_with_new_string_ext(sender, SMS_MSG_PHONE_SIZE - 1, " ", "$");
    DV_EVENT_IN(decoder_name, "util_replace_with_new_string_ext data:%s", sender);

    const char *phone = type == TYPE_INTERNATIONAL ? number : sender;

    DV_EVENT_IN(decoder_name, "sms_phone:%s", phone);
    copy_text(current_sms_msg->phone, phone);
}

/* The service centre's time stamp without its zone. */
static void take_date(pdu_reader *in)
{
    static constexpr char prefix[] = "20";
    static constexpr char behind[] = {'/', '/', ' ', ':', ':', '\0'};
    char scratch[SEMI_OCTETS_MAX];
    const char *stamp = take_digits(in, 14, scratch);
    char *date = current_sms_msg->date;
    char *out = date + 2;

    memset(date, 0, SMS_MSG_DATE_SIZE);
    memcpy(date, prefix, 2);
    for (int i = 0; i < 6; i++, stamp += 2) {
        if (stamp[1] != '\0') { /* a pair that the text's end cuts is left out */
            *out++ = stamp[1];
            *out++ = stamp[0];
        }
        *out++ = behind[i];
    }
    DV_EVENT_IN(decoder_name, "sms_date:%s", date);
}

void dv_sms_mgr_parse_udh(const uint8_t (&header)[PDU_UDH_SIZE])
{
    dv_sms_msg *msg = current_sms_msg;
    const unsigned length = header[2];

    /* Kept on purpose: any other first element, a 16-bit reference included, is a single message. */
    msg->concatenated = header[1] == IEI_CONCATENATED_8BIT ? 1 : 0;
    if (!msg->concatenated)
        return;
    msg->total = header[length + 1];
    msg->sequence = header[length + 2];
    if (length == 3)
        msg->reference = header[3];
    else if (length == 4)
        msg->reference = static_cast<uint16_t>(header[3] << 8 | header[4]);
}

/* What the header leaves for the body. */
struct pdu_header {
    int length;    /* octets without the length octet */
    int fill_bits; /* in front of the first septet */
    bool national; /* Turkish single shift */
};

static pdu_header take_header(pdu_reader *in)
{
    static constexpr char turkish_single_shift[] = "240101";
    uint8_t octets[PDU_UDH_SIZE] = {};
    pdu_header header = {};

    read_octets(in, octets, 1);
    header.length = octets[0];
    read_octets(in, octets, header.length + 1);
    dv_sms_mgr_parse_udh(octets);
    skip_digits(in, 2);
    if (!current_sms_msg->concatenated)
        header.national =
            header.length <= 3 && strncmp(in->pos, turkish_single_shift, static_cast<size_t>(2 * header.length)) == 0;
    skip_digits(in, static_cast<size_t>(2 * header.length));
    header.fill_bits = 7 - (header.length + 1) * 8 % 7; /* kept on purpose: 7, not 0, for whole septets */
    return header;
}

/* TS 23.038, 4, as far as the text's alphabet goes. */
static uint8_t alphabet_of(uint8_t dcs)
{
    if ((dcs & 0xC0) == 0)
        return dcs & 0x0C;
    if ((dcs & 0xF0) == 0xF0)
        return dcs & 0x04;
    return dcs;
}

/* How much of the text is body (TP-UDL counts septets or octets; both are taken as septets here). */
struct body_lengths {
    int total_bit;
    uint8_t body_len;    /* characters, or octets */
    uint8_t sms7bit_len; /* octets that hold them packed */
};

static body_lengths measure_body(const pdu_header &header, uint8_t udl)
{
    const int offset = header.fill_bits;
    const int total_bit = udl * 7 - (header.length == 0 ? 0 : (header.length + 1) * 8);

    return {total_bit, static_cast<uint8_t>((total_bit - offset) / 7 + (total_bit % 7 > offset ? 1 : 0)),
            static_cast<uint8_t>(total_bit / 8 + (total_bit % 8 != 0 ? 1 : 0))};
}

/* Copies decoded text that has its terminator at `end` or before. */
static void put_body(const char *text, const char *end)
{
    const size_t length = utf8_prefix(text, strnlen(text, static_cast<size_t>(end - text)), SMS_MSG_TEXT_SIZE - 1);

    memcpy(current_sms_msg->text, text, length);
    memset(current_sms_msg->text + length, 0, SMS_MSG_TEXT_SIZE - length);
}

/* `octets` octets of UCS-2; those that are not there are 0. */
static void take_ucs2(const pdu_reader *in, int octets)
{
    uint8_t ucs2[UINT8_MAX + 1];
    char text[PDU_WORK_SIZE];
    const int read = read_octets(in, ucs2, octets);

    memset(ucs2 + read, 0, static_cast<size_t>(octets - read));
    put_body(text, convert_ucs2(ucs2, octets, text));
}

static void take_octets(const pdu_reader *in, int octets)
{
    char text[PDU_WORK_SIZE];

    put_body(text, text + read_octets(in, reinterpret_cast<uint8_t *>(text), octets));
}

/* Unpacks the septets, zeros where there are none; how many were unpacked. */
static int unpack_body(const pdu_reader *in, const body_lengths &lengths, int offset, uint8_t (&codes)[PDU_WORK_SIZE])
{
    uint8_t octets[UINT8_MAX];
    const int read = read_octets(in, octets, lengths.sms7bit_len);

    memset(octets + read, 0, static_cast<size_t>(lengths.sms7bit_len - read));
    const int septets = dv_sms_mgr_unpack_7bit(octets, codes, lengths.sms7bit_len, offset);

    if (septets < lengths.body_len)
        memset(codes + septets, 0, static_cast<size_t>(lengths.body_len - septets));
    return septets;
}

static void take_septets(const pdu_reader *in, const body_lengths &lengths, int offset)
{
    uint8_t codes[PDU_WORK_SIZE];
    char text[PDU_WORK_SIZE];
    const int septets = unpack_body(in, lengths, offset, codes);
    char *end = convert_gsm7(codes, lengths.body_len, text);
    const auto length = static_cast<int>(end - text);

    /* Kept on purpose: codes behind the length stay as they are where the text reaches up to them. */
    if (length >= lengths.body_len && length < septets) {
        memcpy(end, codes + length, static_cast<size_t>(septets - length));
        end = text + septets;
    }
    put_body(text, end);
}

static void take_national_septets(const pdu_reader *in, const body_lengths &lengths, int offset)
{
    uint8_t codes[PDU_WORK_SIZE];
    char text[PDU_WORK_SIZE];

    unpack_body(in, lengths, offset, codes);
    const int octets = dv_sms_mgr_gsm7_to_ucs2(reinterpret_cast<char *>(codes), lengths.body_len);

    put_body(text, convert_ucs2(codes, octets, text));
}

static void take_body(const pdu_reader *in, uint8_t alphabet, const pdu_header &header, uint8_t udl)
{
    const body_lengths lengths = measure_body(header, udl);
    const int offset = header.fill_bits;

    DV_EVENT_IN(decoder_name, "total_bit:%d, body_len:%hhu, sms7bit_len:%hhu, offset:%hhu", lengths.total_bit,
                lengths.body_len, lengths.sms7bit_len, static_cast<uint8_t>(offset));
    if (alphabet == DCS_UCS2 && lengths.body_len == 1 && strncmp(in->pos, "20", 2) == 0)
        DV_EVENT_IN(decoder_name, "has some reason, don`t decode");
    else if (alphabet == DCS_UCS2)
        take_ucs2(in, (lengths.body_len + 1) / 2 * 2);
    else if (alphabet == DCS_8BIT)
        take_octets(in, 2 * lengths.body_len);
    else if (alphabet == DCS_GSM7 && header.national)
        take_national_septets(in, lengths, offset);
    else
        take_septets(in, lengths, offset);
}

void dv_sms_mgr_parse_pdu(const char *pdu)
{
    pdu_reader in = {pdu, pdu + strlen(pdu)};
    pdu_header header = {};

    skip_digits(&in, 2 * size_t{take_octet(&in)}); /* the service centre's address */
    const uint8_t first_octet = take_octet(&in);

    take_sender(&in);
    skip_digits(&in, 2); /* TP-PID */
    const uint8_t dcs = take_octet(&in);

    take_date(&in);
    const uint8_t udl = take_octet(&in);

    current_sms_msg->concatenated = 0;
    if (first_octet & UDHI)
        header = take_header(&in);
    take_body(&in, alphabet_of(dcs), header, udl);
}

/* --- joining --- */

/* Moves the texts of the parts with this reference into the slots, and the parts off the list. */
static void collect_parts(char (*slots)[SMS_MSG_TEXT_SIZE], uint16_t reference, int total)
{
    sms_part_node **link = &sms_part_head->next;

    for (int taken = 0; taken < total && *link != nullptr;) {
        sms_part_node *part = *link;

        if (part->reference != reference) {
            link = &part->next;
            continue;
        }
        if (part->sequence >= 1 && part->sequence <= total)
            memcpy(slots[part->sequence - 1], part->text, SMS_MSG_TEXT_SIZE);
        *link = part->next;
        free(part);
        taken++;
    }
}

int dv_sms_mgr_join_parts(char *output)
{
    if (output == nullptr || sms_part_head == nullptr)
        return -1;
    const int total = current_sms_msg->total;
    const size_t slot_count = total > 0 ? static_cast<size_t>(total) : 1;
    auto *slots = static_cast<char(*)[SMS_MSG_TEXT_SIZE]>(calloc(slot_count, SMS_MSG_TEXT_SIZE));
    if (slots == nullptr)
        return -1;
    collect_parts(slots, current_sms_msg->reference, total);

    /* One byte more than fits is looked at, to cut in front of a character. */
    size_t length = 0;
    for (int i = 0; i < total && length < SMS_TEXT_SIZE; i++) {
        const size_t added = strnlen(slots[i], SMS_TEXT_SIZE - length);

        memcpy(output + length, slots[i], added);
        length += added;
    }
    output[utf8_prefix(output, length, SMS_TEXT_SIZE - 1)] = '\0';
    free(slots);
    return 0;
}
