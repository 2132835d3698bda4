/* What at_owner reads from its port: octets, and behind a null one an octet that says what is done in between. Fed in
 * pieces and octet by octet, the same must come out. */
#include <cstdint>
#include <string>
#include <vector>

#include "at_command.h"
#include "at_stream.h"
#include "must.h"
#include "translate.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

using namespace at_owner;

namespace
{

struct found {
    std::vector<event> events;
    std::vector<std::string> abandoned;
};

/* A command from the input, up to and with its "\r". */
std::string take_command(const std::string &input, size_t *at)
{
    const size_t end = std::min(input.find('\r', *at), input.size());
    const std::string command = input.substr(*at, end - *at) + "\r";

    *at = std::min(end + 1, input.size());
    return command;
}

void act(at_stream &stream, uint8_t action, const std::string &input, size_t *at, found &out)
{
    switch (action % 8) {
    case 0:
        stream.expect("AT+CMGR=1\r");
        break;
    case 1:
        stream.expect(take_command(input, at));
        break;
    case 2:
        stream.expect_prompt("AT+CMGS=20\r");
        break;
    case 3:
        stream.expect_data("0001000B91\x1A");
        break;
    case 4:
        out.abandoned.push_back(stream.abandon());
        break;
    case 5:
        stream.reset();
        break;
    case 6:
        stream.expect("AT\r", true);
        break;
    default:
        stream.feed(std::string(1, '\0'), out.events);
        break;
    }
}

found run(const std::string &input, bool octet_by_octet)
{
    at_stream stream;
    found out;

    for (size_t at = 0; at < input.size();) {
        const size_t end = std::min(input.find('\0', at), input.size());
        const std::string piece = input.substr(at, end - at);
        if (octet_by_octet)
            for (const char c : piece)
                stream.feed(std::string(1, c), out.events);
        else
            stream.feed(piece, out.events);
        at = std::min(end + 2, input.size());
        if (end + 1 < input.size())
            act(stream, static_cast<uint8_t>(input[end + 1]), input, &at, out);
    }
    return out;
}

void check(const event &e)
{
    constexpr size_t line_ends = 6; /* of a header and its data line */

    must(e.text.find('\0') == std::string::npos);
    switch (e.kind) {
    case event_kind::answer:
        must(e.text.size() <= most_in_answer + 2 && e.text.starts_with('\r'));
        must(parse_final(e.detail).is_final && parse_final(e.detail).error_code == e.error_code);
        break;
    case event_kind::indication:
    case event_kind::stray:
        must(e.text.starts_with("\r\n") && e.text.ends_with("\r\n") && e.text.size() > 4);
        must(e.text.size() <= 2 * most_in_line + line_ends);
        break;
    case event_kind::prompt:
    case event_kind::dropped:
        must(e.text.empty());
        break;
    }
}

bool same(const event &a, const event &b)
{
    return a.kind == b.kind && a.text == b.text && a.error_code == b.error_code && a.detail == b.detail;
}

/* A request is carried out as it is, or as a command and data that say the same. */
void check_translation(const std::string &command)
{
    for (const routing messages : {routing::as_asked, routing::store_first, routing::direct}) {
        const std::vector<exchange> ways = translate({true, messages}, command);
        must(!ways.empty());
        for (const exchange &way : ways) {
            must(way.command.empty() == command.empty());
            if (way.data.empty())
                continue;
            must(way.command.starts_with("AT+CMGS=") && way.command.ends_with('\r'));
            must(way.data.find('\x1A') == way.data.size() - 1);
            must("AT+DORVYSMS=" + way.command.substr(8, way.command.size() - 9) + "," + way.data + "\r" == command);
        }
        must(translate({false, routing::as_asked}, command)[0].command == command);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string input(reinterpret_cast<const char *>(data), size);
    const found pieces = run(input, false);
    const found octets = run(input, true);

    must(pieces.events.size() == octets.events.size() && pieces.abandoned == octets.abandoned);
    for (size_t i = 0; i < pieces.events.size(); i++) {
        check(pieces.events[i]);
        must(same(pieces.events[i], octets.events[i]));
    }
    for (const std::string &rest : pieces.abandoned)
        must(rest.size() <= most_in_answer + 2);
    check_translation(input);
    return 0;
}
