#include "corpus.h"

#include <algorithm>
#include <random>
#include <string_view>

namespace
{

constexpr unsigned seed = 20240305;

/* Characters that stand at the same place in ASCII and in the default alphabet. */
constexpr std::string_view common =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789 .,!?:;-+/()'\"%&=*#<>";
constexpr std::string_view words[] = {"the",    "meeting", "is",     "at",     "seven",   "code", "your",
                                      "parcel", "will",    "arrive", "today",  "between", "and",  "please",
                                      "call",   "back",    "2417",   "Router", "thanks",  "see",  "you",
                                      "later",  "Data",    "volume", "used",   "up:",     "80%"};

class Dice
{
public:
    explicit Dice(unsigned start) : engine_(start) {}

    /* 0 to below `sides`; the same on every library, unlike a distribution. */
    unsigned roll(size_t sides) { return static_cast<unsigned>(engine_() % sides); }

private:
    std::mt19937 engine_;
};

/* Plain words of exactly this many characters; a few from anywhere in the alphabet. */
std::string sentence(Dice &dice, size_t length)
{
    std::string text;

    while (text.size() < length) {
        text += words[dice.roll(std::size(words))];
        text += dice.roll(12) == 0 ? common[dice.roll(common.size())] : ' ';
    }
    text.resize(length);
    if (text.back() == ' ')
        text.back() = '.';
    return text;
}

std::string utf8_of(unsigned value)
{
    std::string bytes;

    if (value < 0x80) {
        bytes += static_cast<char>(value);
    } else if (value < 0x800) {
        bytes += static_cast<char>(0xC0 | value >> 6);
        bytes += static_cast<char>(0x80 | (value & 0x3F));
    } else {
        bytes += static_cast<char>(0xE0 | value >> 12);
        bytes += static_cast<char>(0x80 | (value >> 6 & 0x3F));
        bytes += static_cast<char>(0x80 | (value & 0x3F));
    }
    return bytes;
}

/* A text of one script, Chinese or Cyrillic, as its code points. */
std::vector<unsigned> foreign(Dice &dice, size_t length)
{
    const bool chinese = dice.roll(3) != 0;
    std::vector<unsigned> values;

    while (values.size() < length)
        values.push_back(chinese ? 0x4E00 + dice.roll(0x5000) : dice.roll(7) == 0 ? ' ' : 0x0410 + dice.roll(64));
    return values;
}

std::string digits(Dice &dice, size_t count)
{
    std::string number;

    while (number.size() < count)
        number += static_cast<char>('0' + dice.roll(10));
    return number;
}

/* One bit string, lowest bit first, behind `fill` empty bits. */
std::vector<uint8_t> packed(const std::string &septets, unsigned fill)
{
    std::vector<uint8_t> octets((septets.size() * 7 + fill + 7) / 8);

    for (size_t i = 0; i < septets.size(); i++)
        for (unsigned bit = 0; bit < 7; bit++)
            if (septets[i] >> bit & 1)
                octets[(i * 7 + fill + bit) / 8] |= static_cast<uint8_t>(1U << (i * 7 + fill + bit) % 8);
    return octets;
}

void append(std::vector<uint8_t> &octets, const std::vector<uint8_t> &more)
{
    octets.insert(octets.end(), more.begin(), more.end());
}

/* Two digits an octet, the first in the low half. */
std::vector<uint8_t> semi_octets(std::string number)
{
    std::vector<uint8_t> octets;

    if (number.size() % 2 != 0)
        number += static_cast<char>('0' + 0xF);
    for (size_t i = 0; i < number.size(); i += 2)
        octets.push_back(static_cast<uint8_t>((number[i] - '0') | (number[i + 1] - '0') << 4));
    return octets;
}

/* Length, type and digits of an address whose length counts digits. */
std::vector<uint8_t> number_address(const std::string &number)
{
    const std::string bare = number.substr(1);
    std::vector<uint8_t> octets = {static_cast<uint8_t>(bare.size()), 0x91};

    append(octets, semi_octets(bare));
    return octets;
}

/* Whether a decoder that looks for letters in the hex text can tell that this is a name. */
bool shows_letters(const std::vector<uint8_t> &octets)
{
    const std::string text = hex_of(octets);
    return text.find_first_of("ABCDE") != std::string::npos;
}

/* Names of at most seven letters: those come whole out of every decoder. */
std::string short_name(Dice &dice)
{
    constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    std::string name;

    do {
        name.clear();
        for (size_t left = 4 + dice.roll(4); left > 0; left--)
            name += letters[dice.roll(letters.size())];
    } while (!shows_letters(packed(name, 0)));
    return name;
}

std::vector<uint8_t> name_address(const std::string &name)
{
    const std::vector<uint8_t> text = packed(name, 0);
    std::vector<uint8_t> octets = {static_cast<uint8_t>((name.size() * 7 + 3) / 4), 0xD0};

    append(octets, text);
    return octets;
}

struct Body {
    uint8_t dcs;
    uint8_t length;
    std::vector<uint8_t> octets;
    std::string text;
};

Body body_7bit(const std::string &text)
{
    return {0x00, static_cast<uint8_t>(text.size()), packed(text, 0), text};
}

Body body_ucs2(const std::vector<unsigned> &values)
{
    Body body = {0x08, static_cast<uint8_t>(2 * values.size()), {}, {}};

    for (const unsigned value : values) {
        append(body.octets, {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)});
        body.text += utf8_of(value);
    }
    return body;
}

/* 153 septets behind a concatenation header and its fill bit. */
Body body_part(Dice &dice)
{
    const auto total = static_cast<uint8_t>(2 + dice.roll(4));
    const std::string text = sentence(dice, 153);
    Body body = {0x00, 160, {5, 0, 3, static_cast<uint8_t>(dice.roll(256)), total, 0}, text};

    body.octets[5] = static_cast<uint8_t>(1 + dice.roll(total));
    append(body.octets, packed(text, 1));
    return body;
}

Body body_of(Dice &dice, Kind kind)
{
    switch (kind) {
    case Kind::full_7bit:
        return body_7bit(sentence(dice, 160));
    case Kind::ucs2:
        return body_ucs2(foreign(dice, 70));
    case Kind::part:
        return body_part(dice);
    case Kind::short_7bit:
    case Kind::name:
        break;
    }
    return body_7bit(sentence(dice, 5 + dice.roll(36)));
}

Delivered delivered(Dice &dice, Kind kind)
{
    std::string stamp = dice.roll(2) ? "2403" : "2411";
    for (const unsigned values : {18u, 14u, 50u, 50u}) /* day, hour, minute, second */
        stamp += std::to_string(10 + dice.roll(values));
    stamp += "00";
    const Body body = body_of(dice, kind);
    const std::string sender = kind == Kind::name ? short_name(dice) : "+" + digits(dice, 10 + dice.roll(4));
    std::vector<uint8_t> octets = {7, 0x91};

    append(octets, semi_octets(std::string(service_centre).substr(1)));
    octets.push_back(kind == Kind::part ? 0x44 : 0x04);
    append(octets, kind == Kind::name ? name_address(sender) : number_address(sender));
    append(octets, {0x00, body.dcs});
    append(octets, semi_octets(stamp));
    octets.push_back(body.length);
    append(octets, body.octets);

    const auto two = [&stamp](size_t at) { return stamp.substr(at, 2); };
    return {kind, hex_of(octets), sender,
            "20" + two(0) + "/" + two(2) + "/" + two(4) + " " + two(6) + ":" + two(8) + ":" + two(10), body.text};
}

std::string submitted_text(Dice &dice, Kind kind)
{
    std::string text;

    switch (kind) {
    case Kind::full_7bit:
        return sentence(dice, 160);
    case Kind::part:
        return sentence(dice, 161 + dice.roll(300));
    case Kind::ucs2:
        for (const unsigned value : foreign(dice, 70))
            text += utf8_of(value);
        return text;
    case Kind::short_7bit:
    case Kind::name:
        break;
    }
    return sentence(dice, 5 + dice.roll(36));
}

/* The kinds of `count` messages in the shares of the mix, shuffled. */
std::vector<Kind> kinds(Dice &dice, int count)
{
    std::vector<Kind> list;

    for (const KindShare &share : mix)
        list.insert(list.end(), static_cast<size_t>(count * share.percent / 100), share.kind);
    list.resize(static_cast<size_t>(count), mix.back().kind);
    for (size_t i = list.size(); i > 1; i--)
        std::swap(list[i - 1], list[dice.roll(i)]);
    return list;
}

} // namespace

std::string hex_of(const std::vector<uint8_t> &octets)
{
    constexpr char digit[] = "0123456789ABCDEF";
    std::string text;

    for (const uint8_t octet : octets) {
        text += digit[octet >> 4];
        text += digit[octet & 0x0F];
    }
    return text;
}

std::vector<Delivered> delivered_messages(int count)
{
    Dice dice(seed);
    std::vector<Delivered> messages;

    for (const Kind kind : kinds(dice, count))
        messages.push_back(delivered(dice, kind));
    return messages;
}

std::vector<Submitted> submitted_messages(int count)
{
    Dice dice(seed + 1);
    std::vector<Submitted> messages;

    for (const Kind kind : kinds(dice, count))
        messages.push_back({kind, "+" + digits(dice, 10 + dice.roll(4)), submitted_text(dice, kind)});
    return messages;
}
