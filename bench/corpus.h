/* The messages that everything here is measured on: generated from a fixed seed, so that every run and
 * every machine works on the same ones. */
#ifndef BENCH_CORPUS_H
#define BENCH_CORPUS_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

enum class Kind { full_7bit, short_7bit, ucs2, part, name };

struct KindShare {
    Kind kind;
    const char *label;
    int percent;
};

/* The mix; the last takes what rounding leaves. */
inline constexpr std::array<KindShare, 5> mix = {{
    {Kind::full_7bit, "7-bit of 160", 26},
    {Kind::short_7bit, "7-bit, short", 15},
    {Kind::ucs2, "UCS-2 of 70", 20},
    {Kind::part, "part with header", 27},
    {Kind::name, "alphanumeric sender", 12},
}};

/* A message as the modem hands it over, and what it says. */
struct Delivered {
    Kind kind;
    std::string pdu; /* hex text of the SMS-DELIVER, service centre in front */
    std::string sender;
    std::string date; /* 20YY/MM/DD hh:mm:ss */
    std::string text; /* UTF-8 */
};

/* A message as a client asks for it. */
struct Submitted {
    Kind kind;
    std::string number;
    std::string text; /* UTF-8 */
};

inline constexpr int corpus_size = 4000;
inline constexpr const char *service_centre = "+491710760000";

std::vector<Delivered> delivered_messages(int count = corpus_size);
std::vector<Submitted> submitted_messages(int count = corpus_size);

/* Only those of one kind. */
template <class Message> std::vector<Message> only(const std::vector<Message> &all, Kind kind)
{
    std::vector<Message> chosen;

    for (const Message &message : all)
        if (message.kind == kind)
            chosen.push_back(message);
    return chosen;
}

/* Upper-case hex text. */
std::string hex_of(const std::vector<uint8_t> &octets);

#endif
