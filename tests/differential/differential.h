/* The daemon's decoding and encoding beside that of two libraries which others wrote. Where they differ, a behaviour
 * that is stated must say how: the library's result with that behaviour applied is the daemon's. */
#ifndef DIFFERENTIAL_H
#define DIFFERENTIAL_H

#include <cstdint>
#include <random>
#include <string>
#include <vector>

using bytes = std::vector<uint8_t>;

enum class alphabet { gsm7, data, ucs2 };

/* A message as it was made up, and its SMS-DELIVER. */
struct message {
    uint8_t sender_type = 0;
    bytes address; /* of the sender, packed or swapped */
    unsigned semi_octets = 0;
    bytes name; /* its septets, when it is one */
    uint8_t dcs = 0;
    alphabet kind = alphabet::gsm7;
    bytes codes;  /* septets, octets, or UCS-2 with the high octet first */
    bytes header; /* its length octet included; empty: none */
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, quarters = 0; /* zone: of an hour */
    bytes pdu;
};

message make_message(std::mt19937 &random);
bytes deliver(const message &m);

/* A text and who gets it. */
struct request {
    std::string number, text;
};

request make_request(std::mt19937 &random);

/* What a library makes of a PDU. */
struct decoded {
    bool good = false;
    std::string phone, date, text; /* UTF-8 */
    int reference = -1, total = 0, sequence = 0;
    bool wide_reference = false;
};

decoded gammu_decode(const bytes &pdu);
std::string osmocom_text(const bytes &user_data, unsigned udl, bool header); /* a letter an octet */
std::string osmocom_number(const bytes &address, unsigned digits);           /* without a "+" */
std::string osmocom_date(const bytes &stamp);
bytes osmocom_septets(const std::string &ascii);
bytes osmocom_pack(const bytes &septets, int fill_bits);
bytes osmocom_number_octets(const std::string &digits);

/* --- the tally --- */

void agree(const char *what);
/* The difference is what `behaviour` (a key of the table in main.cpp) says. */
void explain(const char *behaviour);
void unexplained(const std::string &what, const std::string &ours, const std::string &theirs, const std::string &about);

/* Compares: equal, or equal once the behaviours that changed something were applied. */
void settle(const char *what, const std::string &ours, const std::string &theirs, const std::string &applied,
            const std::vector<const char *> &behaviours, const std::string &about);

/* Adds a behaviour once. */
void note(std::vector<const char *> *behaviours, const char *behaviour);

/* libgammu writes every tilde of a UCS-2 text twice. */
std::string single_tildes(const std::string &text, std::vector<const char *> *behaviours);

void compare_decoding(const message &m);
void compare_encoding(const request &r);

std::string hex(const bytes &octets);

#endif
