/* The codec beside its floors and its peers, on the same messages. */
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>

#include "peers.h"
#include "work.h"

namespace
{

/* One iteration works through all messages; the table divides by their number. */
template <class Message>
void add(const std::string &name, std::vector<Message> messages, const std::function<size_t(const Message &)> &work)
{
    benchmark::RegisterBenchmark(name.c_str(), [messages = std::move(messages), work](benchmark::State &state) {
        for (auto _ : state)
            for (const Message &message : messages)
                benchmark::DoNotOptimize(work(message));
        state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(messages.size()));
    });
}

void add_decoding(const std::string &label, const std::vector<Delivered> &messages)
{
    add<Delivered>("decode/" + label + "/floor", messages, [](const Delivered &message) {
        uint8_t octets[pdu_octets_max];
        const size_t count = hex_to_octets(message.pdu, octets);
        benchmark::DoNotOptimize(octets);
        benchmark::ClobberMemory();
        return count;
    });
    add<Delivered>("decode/" + label + "/dv_sms_mgr", messages,
                   [](const Delivered &message) { return static_cast<size_t>(decode(message).text[0]); });
}

void add_encoding(const std::string &label, const std::vector<Submitted> &messages)
{
    add<std::vector<uint8_t>>("encode/" + label + "/floor", octets_of(messages),
                              [](const std::vector<uint8_t> &octets) {
                                  char digits[2 * pdu_octets_max];
                                  const size_t count = octets_to_hex(octets, digits);
                                  benchmark::DoNotOptimize(digits);
                                  benchmark::ClobberMemory();
                                  return count;
                              });
    add<Submitted>("encode/" + label + "/dv_sms_mgr", messages,
                   [](const Submitted &message) { return encode(message); });
}

template <class Message> bool plain_7bit(const Message &message)
{
    return message.kind == Kind::full_7bit || message.kind == Kind::short_7bit || message.kind == Kind::name;
}

bool same_text(const Peer &peer, const Delivered &message)
{
    return peer.text(message) == message.text;
}

/* Without the numbers that everybody counts for himself: the message's reference, and the parts'. */
std::string without_references(std::string pdu)
{
    const size_t first_octet = 2 + 2 * std::stoul(pdu.substr(0, 2), nullptr, 16);
    const size_t digits = std::stoul(pdu.substr(first_octet + 4, 2), nullptr, 16);
    const size_t header = first_octet + 8 + digits + digits % 2 + 8;

    pdu.replace(first_octet + 2, 2, "..");
    if ((std::stoul(pdu.substr(first_octet, 2), nullptr, 16) & 0x40) != 0)
        pdu.replace(header + 6, 2, "..");
    return pdu;
}

bool same_text(const Peer &peer, const Submitted &message)
{
    const std::vector<std::string> ours = encoded(message), theirs = peer.pdus(message);

    return std::equal(ours.begin(), ours.end(), theirs.begin(), theirs.end(),
                      [](const std::string &a, const std::string &b) {
                          return !b.empty() && without_references(a) == without_references(b);
                      });
}

/* Those that the peer is asked for and makes the same of. */
template <class Message> std::vector<Message> agreed(const Peer &peer, const std::vector<Message> &messages)
{
    std::vector<Message> same;
    size_t asked = 0;

    for (const Message &message : messages) {
        if (peer.only_7bit && !plain_7bit(message))
            continue;
        asked++;
        if (same_text(peer, message))
            same.push_back(message);
    }
    if (same.size() != asked)
        fprintf(stderr, "%s: %zu of %zu messages differ and are left out\n", peer.name.c_str(), asked - same.size(),
                asked);
    return same;
}

/* Beside the others only messages count that all of them agree on. */
template <class Message> void add_peers(const std::string &name, const std::vector<Message> &messages,
                                        size_t (*work)(const Peer &peer, const Message &message))
{
    for (const Peer &peer : peers()) {
        const std::vector<Message> same = agreed(peer, messages);

        if (!same.empty() && (!peer.only_7bit || same.size() == messages.size()))
            add<Message>(name + "/" + peer.name, same,
                         [peer, work](const Message &message) { return work(peer, message); });
    }
}

size_t decode_with(const Peer &peer, const Delivered &message)
{
    return peer.text(message).size();
}

size_t encode_with(const Peer &peer, const Submitted &message)
{
    return peer.pdus(message).size();
}

/* Nothing is timed that does not do its work. */
void must_be_right(const std::vector<Delivered> &messages)
{
    for (const Delivered &message : messages) {
        const dv_sms_msg &got = decode(message);

        if (got.phone != message.sender || got.date != message.date || got.text != message.text) {
            fprintf(stderr, "wrongly decoded: %s\n", message.pdu.c_str());
            exit(1);
        }
    }
}

} // namespace

int main(int argc, char **argv)
{
    const std::vector<Delivered> delivered = delivered_messages();
    const std::vector<Submitted> submitted = submitted_messages();

    must_be_right(delivered);
    add_decoding("mix", delivered);
    add_peers<Delivered>("decode/mix", delivered, decode_with);
    for (const KindShare &share : mix) {
        add_decoding(share.label, only(delivered, share.kind));
        add_peers<Delivered>(std::string("decode/") + share.label, only(delivered, share.kind), decode_with);
    }
    add_encoding("mix", submitted);
    add_peers<Submitted>("encode/mix", submitted, encode_with);
    for (const KindShare &share : mix) {
        if (share.kind == Kind::name)
            continue;
        add_encoding(share.label, only(submitted, share.kind));
        add_peers<Submitted>(std::string("encode/") + share.label, only(submitted, share.kind), encode_with);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
