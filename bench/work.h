/* What is measured: the daemon's codec, and the floors under it. Each works through one message. */
#ifndef BENCH_WORK_H
#define BENCH_WORK_H

#include "corpus.h"
#include "dv_sms_mgr_pdu.h"

/* What the daemon makes of a PDU; good until the next call. */
const dv_sms_msg &decode(const Delivered &message);

/* Number and text to the PDUs of all parts. How many octets they have in all; 0: it was refused. */
size_t encode(const Submitted &message);

/* The hex texts that `encode` writes, for the floor and for comparisons. */
std::vector<std::string> encoded(const Submitted &message);

/* Hex digits to octets through a digit table: what no decoder can do without. */
size_t hex_to_octets(const std::string &digits, uint8_t *octets);

/* Octets to hex digits: what no encoder can do without. */
size_t octets_to_hex(const std::vector<uint8_t> &octets, char *digits);

inline constexpr size_t pdu_octets_max = 1024; /* of what the floors read or write for one message */

/* The octets of the PDUs of each message, as `octets_to_hex` takes them. */
std::vector<std::vector<uint8_t>> octets_of(const std::vector<Submitted> &messages);

#endif
