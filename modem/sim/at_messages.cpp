/* Where 27.005 leaves a choice: reading an empty or a non-existing place gives "+CMS ERROR: 321"; deleting an empty
 * one is a success, as on most modems. There is no text mode for messages, only its setting: in it, what would show
 * or take a message is refused. */
#include "at_table.h"

namespace sim
{
namespace
{

constexpr const char *memory_names[] = {"SM", "ME"};
constexpr int all_states = 4;
constexpr char ctrl_z = 0x1A;

bool in_pdu_mode(const modem_state &modem)
{
    return modem.settings.format == 0;
}

/* A string parameter in the character set of +CSCS. */
std::string in_character_set(const modem_state &modem, const std::string &text)
{
    if (modem.settings.characters != "UCS2")
        return text;
    octets units;
    for (const char c : text) {
        units.push_back(0);
        units.push_back(static_cast<uint8_t>(c));
    }
    return to_hex(units);
}

/* All arguments as numbers, those left out as -1; nothing when one is anything else. */
std::optional<std::vector<int>> numbers_of(const at_command &command)
{
    const auto arguments = parse_arguments(command.arguments);
    if (!arguments)
        return std::nullopt;
    std::vector<int> out;
    for (const at_argument &argument : *arguments) {
        const auto number = parse_number(argument.text);
        if (argument.quoted || (argument.given && !number))
            return std::nullopt;
        out.push_back(number.value_or(-1));
    }
    return out;
}

answer read_format(modem_state &modem, const at_command &)
{
    return ok("+CMGF: " + std::to_string(modem.settings.format));
}

answer test_format(modem_state &, const at_command &)
{
    return ok("+CMGF: (0,1)");
}

answer set_format(modem_state &modem, const at_command &command)
{
    const auto number = parse_number(command.arguments);
    if (!number || *number > 1)
        return cms_failure(cms_operation_not_supported);
    modem.settings.format = *number;
    return ok();
}

answer read_indications(modem_state &modem, const at_command &)
{
    std::string line = "+CNMI: ";
    for (const int value : modem.settings.indications)
        line += std::to_string(value) + ",";
    line.pop_back();
    return ok(line);
}

answer test_indications(modem_state &, const at_command &)
{
    return ok("+CNMI: (0-3),(0-3),(0,2),(0),(0,1)");
}

/* Values left out stay as they are. */
answer set_indications(modem_state &modem, const at_command &command)
{
    constexpr int most[] = {3, 3, 2, 0, 1};
    const auto numbers = numbers_of(command);
    if (!numbers || numbers->size() > std::size(most))
        return cms_failure(cms_operation_not_supported);
    auto wanted = modem.settings.indications;
    for (size_t i = 0; i < numbers->size(); i++) {
        const int value = (*numbers)[i];
        if (value > most[i] || (i == 2 && value == 1))
            return cms_failure(cms_operation_not_supported);
        if (value >= 0)
            wanted[i] = value;
    }
    modem.settings.indications = wanted;
    return ok();
}

answer read_service(modem_state &, const at_command &)
{
    return ok("+CSMS: 0,1,1,0");
}

answer test_service(modem_state &, const at_command &)
{
    return ok("+CSMS: (0)");
}

answer set_service(modem_state &, const at_command &command)
{
    return command.arguments == "0" ? ok("+CSMS: 1,1,0") : cms_failure(cms_operation_not_supported);
}

answer read_service_centre(modem_state &modem, const at_command &)
{
    const std::string &number = modem.service_centre;
    return ok("+CSCA: " + quoted(in_character_set(modem, number)) + (number.starts_with('+') ? ",145" : ",129"));
}

answer set_service_centre(modem_state &modem, const at_command &command)
{
    const auto arguments = parse_arguments(command.arguments);
    if (!arguments || arguments->size() > 2 || !arguments->front().quoted)
        return cms_failure(cms_operation_not_supported);
    std::string digits = arguments->front().text;
    if (digits.starts_with('+'))
        digits.erase(0, 1);
    if (digits.empty() || digits.size() > 20 || digits.find_first_not_of("0123456789") != std::string::npos)
        return cms_failure(cms_operation_not_supported);
    const bool typed = arguments->size() == 2 && (*arguments)[1].given;
    const bool international = typed ? (*arguments)[1].text == "145" : digits != arguments->front().text;
    modem.service_centre = (international ? "+" : "") + digits;
    return ok();
}

std::string usage(const message_store &store)
{
    return std::to_string(store.used()) + "," + std::to_string(store.capacity());
}

answer read_memories(modem_state &modem, const at_command &)
{
    std::string line = "+CPMS: ";
    for (const std::string &name : modem.settings.memories)
        line += quoted(name) + "," + usage(*modem.store(name)) + ",";
    line.pop_back();
    return ok(line);
}

answer test_memories(modem_state &, const at_command &)
{
    std::string names = "(";
    for (const char *name : memory_names)
        names += quoted(name) + ",";
    names.back() = ')';
    return ok("+CPMS: " + names + "," + names + "," + names);
}

answer set_memories(modem_state &modem, const at_command &command)
{
    const auto arguments = parse_arguments(command.arguments);
    auto wanted = modem.settings.memories;
    if (!arguments || arguments->size() > wanted.size())
        return cms_failure(cms_operation_not_supported);
    for (size_t i = 0; i < arguments->size(); i++) {
        const at_argument &argument = (*arguments)[i];
        if (modem.store(argument.text) == nullptr)
            return cms_failure(cms_operation_not_supported);
        wanted[i] = argument.text;
    }
    modem.settings.memories = wanted;
    std::string line = "+CPMS: ";
    for (const std::string &name : modem.settings.memories)
        line += usage(*modem.store(name)) + ",";
    line.pop_back();
    return ok(line);
}

std::string listing(const stored_message &message)
{
    return std::to_string(static_cast<int>(message.state)) + ",," + std::to_string(tpdu_length(message.pdu)) + "\r\n" +
           to_hex(message.pdu);
}

void mark_read(stored_message &message)
{
    if (message.state == message_state::unread)
        message.state = message_state::read;
}

answer read_message(modem_state &modem, const at_command &command)
{
    const auto index = parse_number(command.arguments);
    if (!in_pdu_mode(modem))
        return cms_failure(cms_operation_not_supported);
    stored_message *message = modem.store(memory_read).find(static_cast<size_t>(index.value_or(0)));
    if (message == nullptr)
        return cms_failure(cms_invalid_index);
    answer out = ok("+CMGR: " + listing(*message));
    mark_read(*message);
    return out;
}

answer list_state(modem_state &modem, int state)
{
    if (!in_pdu_mode(modem))
        return cms_failure(cms_operation_not_supported);
    std::string lines;
    for (auto &[index, message] : modem.store(memory_read).all()) {
        if (state != all_states && static_cast<int>(message.state) != state)
            continue;
        lines += (lines.empty() ? "+CMGL: " : "\r\n+CMGL: ") + std::to_string(index) + "," + listing(message);
        mark_read(message);
    }
    return lines.empty() ? ok() : ok(lines);
}

answer list_unread(modem_state &modem, const at_command &)
{
    return list_state(modem, 0);
}

answer list_messages(modem_state &modem, const at_command &command)
{
    const auto state = parse_number(command.arguments);
    if (!state || *state > all_states)
        return cms_failure(cms_invalid_pdu_parameter);
    return list_state(modem, *state);
}

answer test_list(modem_state &modem, const at_command &)
{
    return ok(in_pdu_mode(modem) ? "+CMGL: (0-4)"
                                 : "+CMGL: (\"REC UNREAD\",\"REC READ\",\"STO UNSENT\",\"STO SENT\",\"ALL\")");
}

/* Which states a deletion flag takes in (27.005, 3.5.4). */
bool is_deleted(int flag, message_state state)
{
    switch (state) {
    case message_state::read:
        return flag >= 1;
    case message_state::sent:
        return flag >= 2;
    case message_state::unsent:
        return flag >= 3;
    case message_state::unread:
        break;
    }
    return flag == all_states;
}

answer delete_message(modem_state &modem, const at_command &command)
{
    const auto numbers = numbers_of(command);
    if (!numbers || numbers->size() > 2 || numbers->front() < 0)
        return cms_failure(cms_invalid_index);
    message_store &store = modem.store(memory_read);
    const int flag = numbers->size() == 2 ? (*numbers)[1] : 0;
    if (flag > all_states)
        return cms_failure(cms_invalid_pdu_parameter);
    if (flag > 0) {
        store.remove_if([flag](const stored_message &m) { return is_deleted(flag, m.state); });
        return ok();
    }
    const auto index = static_cast<size_t>(numbers->front());
    if (!store.holds(index))
        return cms_failure(cms_invalid_index);
    store.remove(index);
    return ok();
}

answer test_delete(modem_state &modem, const at_command &)
{
    std::string used = "(";
    for (const auto &entry : modem.store(memory_read).all())
        used += std::to_string(entry.first) + ",";
    if (used.size() > 1)
        used.pop_back();
    return ok("+CMGD: " + used + "),(0-4)");
}

answer send_pdu(modem_state &modem, const std::string &hex, size_t stated, const char *name)
{
    unsigned reference = 0;
    const cms_error failure = modem.send(hex, stated, reference);
    if (failure != cms_none)
        return cms_failure(failure);
    return ok(std::string(name) + ": " + std::to_string(reference));
}

/* AT+DORVYSMS=LENGTH,HEX<Ctrl-Z>: PDU and end mark travel in the command line. */
answer vendor_send(modem_state &modem, const at_command &command)
{
    if (!in_pdu_mode(modem))
        return cms_failure(cms_invalid_text_parameter);
    const size_t comma = command.arguments.find(',');
    const auto stated = parse_number(command.arguments.substr(0, comma));
    if (!stated || comma == std::string::npos || command.arguments.back() != ctrl_z)
        return cms_failure(cms_invalid_pdu_parameter);
    const std::string hex = command.arguments.substr(comma + 1, command.arguments.size() - comma - 2);
    return send_pdu(modem, hex, static_cast<size_t>(*stated), "+DORVYSMS");
}

answer prompt_for_pdu(modem_state &modem, const at_command &command)
{
    if (!in_pdu_mode(modem))
        return cms_failure(cms_operation_not_supported);
    const auto stated = parse_number(command.arguments);
    if (!stated)
        return cms_failure(cms_invalid_pdu_parameter);
    modem.prompted_length = static_cast<size_t>(*stated);
    return {.prompt = true};
}

/* name, execute, read, test, set, needs the SIM */
constexpr at_entry message_table[] = {
    {"+CSMS", nullptr, read_service, test_service, set_service},
    {"+CMGF", nullptr, read_format, test_format, set_format},
    {"+CNMI", nullptr, read_indications, test_indications, set_indications},
    {"+CSCA", nullptr, read_service_centre, accept, set_service_centre, true},
    {"+CPMS", nullptr, read_memories, test_memories, set_memories, true},
    {"+CMGR", nullptr, nullptr, accept, read_message, true},
    {"+CMGL", list_unread, nullptr, test_list, list_messages, true},
    {"+CMGD", nullptr, nullptr, test_delete, delete_message, true},
    {"+DORVYSMS", nullptr, nullptr, nullptr, vendor_send, true, dialect::vendor},
    {"+CMGS", nullptr, nullptr, accept, prompt_for_pdu, true, dialect::generic},
};

} // namespace

std::span<const at_entry> message_commands()
{
    return message_table;
}

answer run_text(modem_state &modem, const std::string &text)
{
    return send_pdu(modem, text, modem.prompted_length, "+CMGS");
}

} // namespace sim
