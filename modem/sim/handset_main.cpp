#include "control_client.h"

namespace
{

void add_message_options(sim::client_command &handset, CLI::App *to)
{
    handset.text(to, "--from", "from", "Sender: a number, with + or without, or a name (default: the handset's)");
    handset.text(to, "--type", "type",
                 "Sender's type: unknown, international, national, network, subscriber, alphanumeric, abbreviated");
    handset.text(to, "--alphabet", "alphabet", "auto (7-bit if it can be, else UCS-2), gsm7, turkish, ucs2 or 8bit");
    handset.text(to, "--via", "via", "auto (as the modem is set), cmt or cmti");
    handset.number(to, "--class", "class", "Message class, 0 to 3");
    handset.text(to, "--date", "date", "Service centre's time, \"YYYY-MM-DD hh:mm:ss\" (default: now)");
    handset.number(to, "--zone", "zone", "Quarters of an hour ahead of UTC, -79 to 79");
    handset.flag(to, "--ref16", "ref16", "A reference of 16 bits");
    handset.flag(to, "--json", "json", "Show the PDUs, as JSON");
}

void add_send(sim::client_command &handset)
{
    CLI::App *send = handset.add("send", "Send a text to the router, in parts if it takes several");
    add_message_options(handset, send);
    handset.number(send, "--reference", "reference", "Reference of a message in parts (default: counted)");
    send->add_option_function<std::vector<unsigned>>(
            "--order", [&handset](const std::vector<unsigned> &order) { handset.request["order"] = order; },
            "Parts in this order, for instance 3,1,2")
        ->delimiter(',');
    handset.number(send, "--twice", "twice", "Send this part twice");
    handset.number(send, "--without", "without", "Leave this part out");
    CLI::App *content = send->add_option_group("Content", "What to send");
    handset.text(content, "--octets", "octets", "Data in hex instead of a text");
    handset.text(content, "text", "text", "The text");
    content->require_option(1);
}

void add_part(sim::client_command &handset)
{
    CLI::App *part = handset.add("part", "Send one part of a message");
    add_message_options(handset, part);
    handset.number(part, "reference", "reference", "Reference")->required();
    handset.number(part, "total", "total", "Number of parts")->required();
    handset.number(part, "sequence", "sequence", "Which of them this is")->required();
    handset.text(part, "text", "text", "The text")->required();
}

void add_others(sim::client_command &handset)
{
    CLI::App *raw = handset.add("raw", "Send a PDU as it is, service centre in front");
    handset.text(raw, "--via", "via", "auto, cmt or cmti");
    handset.text(raw, "pdu", "pdu", "The PDU in hex")->required();

    CLI::App *inbox = handset.add("inbox", "Show what the router sent");
    handset.flag(inbox, "--json", "json", "As JSON, with each part");
    handset.flag(inbox, "--partial", "partial", "Those as well that wait for parts");
    handset.number(inbox, "--wait", "wait", "Wait until there are so many");
    handset.number(inbox, "--timeout", "timeout", "Seconds to wait (default: 10)");

    handset.add("clear", "Forget what the router sent");
}

void describe(sim::client_command &handset)
{
    add_send(handset);
    add_part(handset);
    add_others(handset);
}

} // namespace

int main(int argc, char **argv)
{
    return sim::run_client("handset", "The handset behind the simulated modem", describe, argc, argv);
}
