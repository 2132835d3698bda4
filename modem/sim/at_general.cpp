#include "at_table.h"

namespace sim
{
namespace
{

constexpr const char *manufacturer = "MediaTek Inc.";
constexpr const char *model = "T750 simulator";
constexpr const char *revision = "T750SIM 1.0";
constexpr const char *imei = "004999010640000";
constexpr const char *imsi = "204080123456789";

answer manufacturer_text(modem_state &, const at_command &)
{
    return ok(manufacturer);
}

answer model_text(modem_state &, const at_command &)
{
    return ok(model);
}

answer revision_text(modem_state &, const at_command &)
{
    return ok(revision);
}

answer serial_number(modem_state &, const at_command &)
{
    return ok(imei);
}

answer subscriber(modem_state &, const at_command &)
{
    return ok(imsi);
}

answer own_number(modem_state &modem, const at_command &)
{
    const std::string &number = modem.config.own_number;
    return ok("+CNUM: ," + quoted(number) + (number.starts_with('+') ? ",145" : ",129"));
}

answer identity(modem_state &, const at_command &)
{
    return ok(std::string(manufacturer) + "\r\n" + model + "\r\n" + revision);
}

answer capabilities(modem_state &, const at_command &)
{
    return ok("+GCAP: +CGSM");
}

answer echo(modem_state &modem, const at_command &command)
{
    if (command.arguments.size() > 1 || command.arguments > "1")
        return error();
    modem.settings.echo = command.arguments == "1";
    return ok();
}

/* Only results in words are given. */
answer verbose(modem_state &, const at_command &command)
{
    return command.arguments == "1" ? ok() : error();
}

answer reset(modem_state &modem, const at_command &)
{
    modem.settings = modem.config.power_up;
    return ok();
}

/* Sets a value of 0 to `most` from the one argument. */
answer set_small(modem_state &modem, const at_command &command, int &value, int most)
{
    const auto number = parse_number(command.arguments);
    if (!number || *number > most)
        return cme_failure(modem, cme_incorrect_parameters);
    value = *number;
    return ok();
}

answer read_detail(modem_state &modem, const at_command &)
{
    return ok("+CMEE: " + std::to_string(modem.settings.error_detail));
}

answer test_detail(modem_state &, const at_command &)
{
    return ok("+CMEE: (0-2)");
}

answer set_detail(modem_state &modem, const at_command &command)
{
    return set_small(modem, command, modem.settings.error_detail, 2);
}

answer read_characters(modem_state &modem, const at_command &)
{
    return ok("+CSCS: " + quoted(modem.settings.characters));
}

answer test_characters(modem_state &, const at_command &)
{
    return ok("+CSCS: (\"IRA\",\"GSM\",\"UCS2\")");
}

answer set_characters(modem_state &modem, const at_command &command)
{
    const auto arguments = parse_arguments(command.arguments);
    if (!arguments || arguments->size() != 1)
        return cme_failure(modem, cme_incorrect_parameters);
    for (const char *known : {"IRA", "GSM", "UCS2"}) {
        if (arguments->front().text == known) {
            modem.settings.characters = known;
            return ok();
        }
    }
    return cme_failure(modem, cme_incorrect_parameters);
}

answer read_pin(modem_state &modem, const at_command &)
{
    return modem.sim_inserted ? ok("+CPIN: READY") : cme_failure(modem, cme_sim_not_inserted);
}

std::string registration(const char *name, int reports, bool registered)
{
    return std::string(name) + ": " + std::to_string(reports) + "," + registration_status(reports, registered);
}

answer read_registration(modem_state &modem, const at_command &)
{
    return ok(registration("+CREG", modem.settings.registration_reports, modem.registered));
}

answer test_registration(modem_state &, const at_command &)
{
    return ok("+CREG: (0-2)");
}

answer set_registration(modem_state &modem, const at_command &command)
{
    return set_small(modem, command, modem.settings.registration_reports, 2);
}

answer read_packet(modem_state &modem, const at_command &)
{
    return ok(registration("+CEREG", modem.settings.packet_reports, modem.registered));
}

answer test_packet(modem_state &, const at_command &)
{
    return ok("+CEREG: (0-2)");
}

answer set_packet(modem_state &modem, const at_command &command)
{
    return set_small(modem, command, modem.settings.packet_reports, 2);
}

answer signal(modem_state &modem, const at_command &)
{
    return ok(modem.registered ? "+CSQ: 21,99" : "+CSQ: 99,99");
}

answer test_signal(modem_state &, const at_command &)
{
    return ok("+CSQ: (0-31,99),(0-7,99)");
}

answer read_operator(modem_state &modem, const at_command &)
{
    return ok(modem.registered ? "+COPS: 0,0,\"Simulated\",7" : "+COPS: 0");
}

answer read_function(modem_state &, const at_command &)
{
    return ok("+CFUN: 1");
}

/* The radio is always on. */
answer set_function(modem_state &modem, const at_command &command)
{
    return command.arguments == "1" ? ok() : cme_failure(modem, cme_operation_not_supported);
}

answer activity(modem_state &, const at_command &)
{
    return ok("+CPAS: 0");
}

/* name, execute, read, test, set */
constexpr at_entry general_table[] = {
    {"E", echo, nullptr, nullptr, nullptr},
    {"V", verbose, nullptr, nullptr, nullptr},
    {"Q", accept, nullptr, nullptr, nullptr},
    {"X", accept, nullptr, nullptr, nullptr},
    {"H", accept, nullptr, nullptr, nullptr},
    {"S0", nullptr, nullptr, nullptr, accept},
    {"S7", nullptr, nullptr, nullptr, accept},
    {"&C", accept, nullptr, nullptr, nullptr},
    {"&D", accept, nullptr, nullptr, nullptr},
    {"&F", reset, nullptr, nullptr, nullptr},
    {"&W", accept, nullptr, nullptr, nullptr},
    {"Z", reset, nullptr, nullptr, nullptr},
    {"I", identity, nullptr, nullptr, nullptr},
    {"+GMI", manufacturer_text, nullptr, accept, nullptr},
    {"+GMM", model_text, nullptr, accept, nullptr},
    {"+GMR", revision_text, nullptr, accept, nullptr},
    {"+GSN", serial_number, nullptr, accept, nullptr},
    {"+GCAP", capabilities, nullptr, accept, nullptr},
    {"+CGMI", manufacturer_text, nullptr, accept, nullptr},
    {"+CGMM", model_text, nullptr, accept, nullptr},
    {"+CGMR", revision_text, nullptr, accept, nullptr},
    {"+CGSN", serial_number, nullptr, accept, nullptr},
    {"+CIMI", subscriber, nullptr, accept, nullptr, true},
    {"+CNUM", own_number, nullptr, accept, nullptr, true},
    {"+CMEE", nullptr, read_detail, test_detail, set_detail},
    {"+CSCS", nullptr, read_characters, test_characters, set_characters},
    {"+CPIN", nullptr, read_pin, accept, nullptr},
    {"+CREG", nullptr, read_registration, test_registration, set_registration},
    {"+CEREG", nullptr, read_packet, test_packet, set_packet},
    {"+CSQ", signal, nullptr, test_signal, nullptr},
    {"+COPS", nullptr, read_operator, nullptr, accept},
    {"+CFUN", nullptr, read_function, accept, set_function},
    {"+CPAS", activity, nullptr, nullptr, nullptr},
};

} // namespace

std::string registration_status(int reports, bool registered)
{
    if (!registered)
        return "0";
    return reports == 2 ? "1,\"00C3\",\"0001A2B3\",7" : "1"; /* area, cell, E-UTRAN */
}

std::span<const at_entry> general_commands()
{
    return general_table;
}

} // namespace sim
