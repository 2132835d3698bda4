/* What others make of the same messages, where Debian's packages of their libraries are installed. */
#ifndef BENCH_PEERS_H
#define BENCH_PEERS_H

#include <functional>
#include <string>
#include <vector>

#include "corpus.h"

struct Peer {
    std::string name;
    std::function<std::string(const Delivered &)> text; /* UTF-8, the header left out */
    std::function<std::vector<std::string>(const Submitted &)>
        pdus;       /* hex text of each part, service centre in front */
    bool only_7bit; /* plain 7-bit messages are all that it is asked for */
};

std::vector<Peer> peers();

#endif
