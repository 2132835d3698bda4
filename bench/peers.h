/* What others make of the same PDUs, where Debian's packages of their libraries are installed. */
#ifndef BENCH_PEERS_H
#define BENCH_PEERS_H

#include <functional>
#include <string>
#include <vector>

#include "corpus.h"

struct Peer {
    std::string name;
    std::function<std::string(const Delivered &)> text; /* UTF-8, the header left out */
    bool only_7bit;                                     /* plain 7-bit messages are all that it is asked for */
};

std::vector<Peer> peers();

#endif
