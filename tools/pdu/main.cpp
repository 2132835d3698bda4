/* sms_pdu: what is in a PDU, and what the SMS manager makes of it. */
#include <CLI/CLI.hpp> /* does --help, --version and checked values with a line an option */
#include <cstdio>
#include <string>
#include <unistd.h>
#include <vector>

#include "inspect.h"
#include "print.h"

namespace
{

enum exit_code { exit_done = 0, exit_malformed = 1, exit_wrong_use = 2 };

constexpr const char *footer = "\nExit codes: 0 done, 1 malformed or refused, 2 wrong use.\n"
                               "Results go to standard output, everything else to standard error.";
constexpr size_t most_input = 1 << 20;

struct decode_options {
    std::vector<std::string> given;
    bool no_smsc = false, submit = false, deliver = false, json = false;
};

struct encode_options {
    std::string number, text, service_centre;
    unsigned reference = 1;
    bool verbose = false, json = false;
};

int complain(const char *what)
{
    std::fprintf(stderr, "sms_pdu: %s\n", what);
    return exit_wrong_use;
}

void say(const std::string &text)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
}

std::string read_input()
{
    std::string out;
    char piece[4096];
    size_t got = 0;
    while (out.size() <= most_input && (got = std::fread(piece, 1, sizeof piece, stdin)) > 0)
        out.append(piece, got);
    return out;
}

std::string joined(const std::vector<std::string> &lines)
{
    std::string out;
    for (const std::string &line : lines)
        out += line + '\n';
    return out;
}

int decode(const decode_options &o)
{
    const bool from_input = o.given.empty() || (o.given.size() == 1 && o.given[0] == "-");
    const std::string text = from_input ? read_input() : joined(o.given);
    if (text.size() > most_input)
        return complain("that is too much at once");
    pdu::options how;
    how.has_smsc = !o.no_smsc;
    how.as = o.submit ? pdu::reading::submit : o.deliver ? pdu::reading::deliver : pdu::reading::by_type;
    const std::vector<pdu::inspection> all = pdu::inspect(text, how);
    if (all.empty())
        return complain("no PDU is given");
    bool good = true;
    for (const pdu::inspection &each : all)
        good = good && each.good();
    if (o.json) {
        say(pdu::to_json(all).dump(2) + '\n');
    } else {
        for (size_t i = 0; i < all.size(); i++)
            say((i == 0 ? "" : "\n") + pdu::in_text(all[i]));
    }
    return good ? exit_done : exit_malformed;
}

int encode(encode_options o)
{
    if (o.text == "-")
        o.text = read_input();
    if (o.number.empty() || o.text.empty())
        return complain("neither number nor text may be empty");
    if (o.number.size() > pdu::most_number || o.text.size() > pdu::most_text)
        return complain("a request holds a number of 31 bytes and a text of 4,031");
    const pdu::outgoing message = pdu::plan(o.number, o.text, o.service_centre, o.reference);
    say(o.json ? pdu::to_json(message).dump(2) + '\n' : pdu::in_text(message, o.verbose));
    return message.sent.refused ? exit_malformed : exit_done;
}

CLI::App *add_command(CLI::App &app, const char *name, const char *description)
{
    CLI::App *command = app.add_subcommand(name, description);
    command->set_version_flag("--version", "sms_pdu " DV_VERSION);
    return command;
}

void add_decode(CLI::App &app, decode_options &o)
{
    CLI::App *command = add_command(app, "decode", "Show a PDU field by field, and what the SMS manager makes of it");
    command->add_option("hex", o.given,
                        "PDUs in hex, or a modem's answer with its header line (+CMGR, +CMGL, +CMT); otherwise, or "
                        "with -, from standard input");
    command->add_flag("--no-smsc", o.no_smsc, "No service centre stands in front");
    CLI::Option *submit = command->add_flag("--submit", o.submit, "Read it as SMS-SUBMIT, whatever TP-MTI says");
    command->add_flag("--deliver", o.deliver, "Read it as SMS-DELIVER, whatever TP-MTI says")->excludes(submit);
    command->add_flag("--json", o.json, "As JSON: an array, an element a PDU");
}

void add_encode(CLI::App &app, encode_options &o)
{
    CLI::App *command = add_command(app, "encode", "Show the parts that the SMS manager would send");
    command->add_option("number", o.number, "Destination, up to 20 digits")->required();
    command->add_option("text", o.text, "Text in UTF-8; - reads it from standard input")->required();
    command->add_option("--smsc", o.service_centre, "Service centre, up to 22 digits; none is given otherwise");
    command->add_option("--reference", o.reference, "Reference of the message")
        ->check(CLI::Range(0u, 255u))
        ->capture_default_str();
    command->add_flag("--verbose", o.verbose, "Show each part field by field");
    command->add_flag("--json", o.json, "As JSON");
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app{"Shows what is in an SMS PDU, what the SMS manager makes of it, and what it sends", "sms_pdu"};
    decode_options to_decode;
    encode_options to_encode;
    app.set_version_flag("--version", "sms_pdu " DV_VERSION);
    app.footer(footer);
    app.require_subcommand(1);
    add_decode(app, to_decode);
    add_encode(app, to_encode);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &reason) {
        return app.exit(reason) == 0 ? exit_done : exit_wrong_use;
    }
    int code = app.got_subcommand("decode") ? decode(to_decode) : encode(to_encode);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        complain("standard output cannot be written");
        code = exit_malformed;
    }
    return code;
}
