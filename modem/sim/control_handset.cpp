/* The handset's commands: send, part, raw, inbox, clear. */
#include "control_commands.h"

#include <algorithm>

namespace sim
{
namespace
{

alphabet alphabet_field(const json &request)
{
    const std::string name = text_field(request, "alphabet", "auto");
    constexpr std::pair<const char *, alphabet> names[] = {{"auto", alphabet::automatic},
                                                           {"gsm7", alphabet::gsm7},
                                                           {"turkish", alphabet::turkish},
                                                           {"ucs2", alphabet::ucs2},
                                                           {"8bit", alphabet::data}};
    for (const auto &[known, value] : names)
        if (name == known)
            return value;
    throw control_error("alphabet is auto, gsm7, turkish, ucs2 or 8bit: " + name);
}

const char *alphabet_name(alphabet which)
{
    switch (which) {
    case alphabet::turkish:
        return "turkish";
    case alphabet::ucs2:
        return "ucs2";
    case alphabet::data:
        return "8bit";
    default:
        return "gsm7";
    }
}

route route_field(const json &request)
{
    const std::string name = text_field(request, "via", "auto");
    if (name == "auto")
        return route::follow;
    if (name == "cmt")
        return route::direct;
    if (name == "cmti")
        return route::stored;
    throw control_error("via is auto, cmt or cmti: " + name);
}

address sender_field(const simulator &sim, const json &request)
{
    address from;
    from.text = text_field(request, "from", sim.device.state.config.handset_number);
    from.type = type_of(from.text);
    const std::string type = text_field(request, "type");
    constexpr std::pair<const char *, number_type> names[] = {
        {"unknown", number_type::unknown},        {"international", number_type::international},
        {"national", number_type::national},      {"network", number_type::network},
        {"subscriber", number_type::subscriber},  {"alphanumeric", number_type::alphanumeric},
        {"abbreviated", number_type::abbreviated}};
    for (const auto &[known, value] : names) {
        if (type == known) {
            from.type = value;
            return from;
        }
    }
    if (!type.empty())
        throw control_error("no such type of number: " + type);
    return from;
}

deliver_header header_field(const simulator &sim, const json &request)
{
    deliver_header header;
    header.service_centre = sim.device.state.config.service_centre;
    header.from = sender_field(sim, request);
    if (request.contains("class"))
        header.message_class = static_cast<unsigned>(number_field(request, "class", 0, 0, 3));
    std::optional<int> zone;
    if (request.contains("zone"))
        zone = static_cast<int>(number_field(request, "zone", 0, -79, 79));
    const std::string date = text_field(request, "date");
    header.when = date.empty() ? current_timestamp(zone) : parse_timestamp(date, zone.value_or(0));
    return header;
}

unsigned take_reference(simulator &sim, const json &request, bool wide)
{
    const unsigned most = wide ? 0xFFFF : 0xFF;
    if (request.contains("reference"))
        return static_cast<unsigned>(number_field(request, "reference", 0, 0, most));
    return sim.next_reference++ & most;
}

/* The sequence numbers to send, in order. */
std::vector<unsigned> order_field(const json &request, unsigned total)
{
    std::vector<unsigned> order;
    const json asked = request.value("order", json::array());
    if (!asked.is_array())
        throw control_error("order is a list of part numbers");
    for (const json &number : asked)
        order.push_back(number.is_number_integer() && number > 0 && number <= total ? number.get<unsigned>() : 0);
    for (unsigned i = 1; i <= total && asked.empty(); i++)
        order.push_back(i);
    const auto without = static_cast<unsigned>(number_field(request, "without", 0, 0, 255));
    const auto twice = static_cast<unsigned>(number_field(request, "twice", 0, 0, 255));
    for (const unsigned number : {without, twice})
        if (number > total)
            order.push_back(number); /* refused below */
    for (const unsigned number : order)
        if (number < 1 || number > total)
            throw control_error("there are parts 1 to " + std::to_string(total) + " only");
    std::erase(order, without);
    const auto found = std::find(order.begin(), order.end(), twice);
    if (found != order.end())
        order.insert(found, twice);
    return order;
}

std::string queue_state(const simulator &sim)
{
    const size_t left = sim.device.waiting().size();
    return left == 0 ? "delivered" : "waiting: " + std::to_string(left);
}

void offer(simulator &sim, route way, const deliver_header &header, octets pdu, const std::string &text)
{
    sim.device.offer({std::move(pdu), way, header.message_class, header.from.text + ": " + text});
}

std::string report(const simulator &sim, bool as_json, json parts, alphabet chosen, json reference)
{
    const size_t count = parts.size();
    if (as_json)
        return one_line({{"alphabet", alphabet_name(chosen)},
                         {"reference", std::move(reference)},
                         {"pdus", std::move(parts)},
                         {"waiting", sim.device.waiting().size()}});
    return std::to_string(count) + (count == 1 ? " part, " : " parts, ") + alphabet_name(chosen) + ", " +
           queue_state(sim) + "\n";
}

std::string send_text(simulator &sim, const json &request)
{
    const bool raw = request.contains("octets");
    std::string text = text_field(request, "text");
    if (raw) {
        const auto bytes = from_hex(text_field(request, "octets"));
        if (!bytes)
            throw control_error("octets are an even number of hex digits");
        text.assign(bytes->begin(), bytes->end());
    }
    const bool wide = flag_field(request, "ref16"), as_json = flag_field(request, "json");
    const deliver_header header = header_field(sim, request);
    const split_text cut = split(text, alphabet_field(request), wide, raw);
    const auto total = static_cast<unsigned>(cut.parts.size());
    const std::vector<unsigned> order = order_field(request, total);
    const route way = route_field(request);
    json sent = json::array();
    json reference;
    concatenation place{.wide = wide, .total = total};
    if (total > 1)
        reference = place.reference = take_reference(sim, request, wide);
    for (const unsigned sequence : order) {
        place.sequence = sequence;
        octets pdu = encode_deliver(header, cut.chosen, cut.parts[sequence - 1],
                                    total > 1 ? std::optional(place) : std::nullopt);
        sent.push_back(to_hex(pdu));
        offer(sim, way, header, std::move(pdu), repair_utf8(text.substr(0, 40)));
    }
    return report(sim, as_json, sent, cut.chosen, reference);
}

std::string send_part(simulator &sim, const json &request)
{
    const bool wide = flag_field(request, "ref16"), as_json = flag_field(request, "json");
    concatenation place{.wide = wide};
    place.reference = static_cast<unsigned>(number_field(request, "reference", 0, 0, wide ? 0xFFFF : 0xFF));
    place.total = static_cast<unsigned>(number_field(request, "total", 1, 0, 255));
    place.sequence = static_cast<unsigned>(number_field(request, "sequence", 1, 0, 255));
    const deliver_header header = header_field(sim, request);
    const std::string text = text_field(request, "text");
    const split_text cut = split(text, alphabet_field(request), wide, false);
    if (cut.parts.size() > 1)
        throw control_error("the text is too long for one part");
    octets pdu = encode_deliver(header, cut.chosen, cut.parts.front(), place);
    const std::string hex = to_hex(pdu);
    offer(sim, route_field(request), header, std::move(pdu), repair_utf8(text.substr(0, 40)));
    return report(sim, as_json, json::array({hex}), cut.chosen, place.reference);
}

std::string send_raw(simulator &sim, const json &request)
{
    const auto pdu = from_hex(text_field(request, "pdu"));
    if (!pdu || pdu->empty())
        throw control_error("a PDU is an even number of hex digits");
    sim.device.offer({*pdu, route_field(request), std::nullopt, "raw"});
    return queue_state(sim) + "\n";
}

json describe_part(const received_part &part)
{
    const submit &content = part.content;
    json out{{"reference", content.message_reference},
             {"service_centre", content.service_centre},
             {"pid", content.protocol},
             {"dcs", content.data_coding},
             {"validity", content.validity},
             {"header", content.header},
             {"text", text_of(content.coding, std::span(&content.codes, 1))},
             {"pdu", part.pdu},
             {"date", part.date}};
    if (content.place) {
        out["sequence"] = content.place->sequence;
        out["total"] = content.place->total;
    }
    return out;
}

json describe(const simulator &sim, const received_message &message)
{
    json parts = json::array();
    for (const received_part &part : message.parts)
        parts.push_back(describe_part(part));
    json out{{"from", sim.device.state.config.own_number},
             {"to", message.to},
             {"date", message.parts.back().date},
             {"text", text_of(message)},
             {"codes", codes_of(message)},
             {"alphabet", alphabet_name(message.first().coding)},
             {"dcs", message.first().data_coding},
             {"total", message.total()},
             {"complete", message.complete},
             {"parts", std::move(parts)}};
    if (message.first().place)
        out["reference"] = message.first().place->reference;
    return out;
}

std::vector<const received_message *> listed(const simulator &sim, const json &request)
{
    std::vector<const received_message *> out;
    for (const received_message &message : sim.device.phone.complete())
        out.push_back(&message);
    if (flag_field(request, "partial"))
        for (const received_message &message : sim.device.phone.partial())
            out.push_back(&message);
    return out;
}

std::string show_inbox(simulator &sim, const json &request)
{
    const bool as_json = flag_field(request, "json");
    json list = json::array();
    std::string lines;
    for (const received_message *message : listed(sim, request)) {
        if (as_json) {
            list.push_back(describe(sim, *message));
            continue;
        }
        lines += message->parts.back().date + "  " + sim.device.state.config.own_number + " -> " + message->to + "  " +
                 std::to_string(message->parts.size()) + "/" + std::to_string(message->total()) + " " +
                 alphabet_name(message->first().coding) + "  " + text_of(*message) + "\n";
    }
    return as_json ? one_line(list) : lines;
}

bool inbox_holds(simulator &sim, const json &request)
{
    return listed(sim, request).size() >= static_cast<size_t>(number_field(request, "wait", 1, 0, 1000000));
}

std::string clear_inbox(simulator &sim, const json &)
{
    sim.device.phone.clear();
    return "";
}

constexpr control_command handset_table[] = {
    {"handset send", send_text, nullptr},    {"handset part", send_part, nullptr},
    {"handset raw", send_raw, nullptr},      {"handset inbox", show_inbox, inbox_holds},
    {"handset clear", clear_inbox, nullptr},
};

} // namespace

std::span<const control_command> handset_control()
{
    return handset_table;
}

} // namespace sim
