/* What a command line asks for, as far as telling its answer from everything else needs it. */
#ifndef AT_OWNER_AT_COMMAND_H
#define AT_OWNER_AT_COMMAND_H

#include <string>
#include <string_view>
#include <vector>

namespace at_owner
{

struct asked_item {
    std::string name; /* of an extended command, with its mark: "+CMGR" */
    bool sets;        /* "=" and a value, not "?", "=?" or nothing */
};

/* A command line (ITU-T V.250, 5.2.1), with or without its "\r". */
struct asked {
    std::vector<asked_item> items;
    bool basic = false; /* it holds basic commands too, whose answers may look like anything */
};

asked parse_command(std::string_view line);

/* "+CMGR" of "+CMGR: 1,,23"; empty when the line does not begin like that. */
std::string_view response_name(std::string_view line);

/* A final result code (V.250, 5.7.1; 27.005, 3.2.5; 27.007, 9). */
struct final_result {
    bool is_final = false;
    bool only_answers = false; /* never comes unasked */
    int error_code = 0;        /* 0 for OK, the number of a +CMS or +CME ERROR, 1 for any other failure */
};

final_result parse_final(std::string_view line);

/* A line that a modem sends by itself, whatever is going on. */
bool is_known_unsolicited(std::string_view line);

/* Whether a line without a final result is part of the answer to `command`. While old answers are drained, nothing
 * but known unsolicited lines is taken for unsolicited. */
bool belongs_to_answer(const asked &command, std::string_view line, bool draining);

/* Header lines that a line with a PDU or a text follows. */
enum class header { none, pdu, text };
header data_header(std::string_view line);
bool is_hex(std::string_view line);

} // namespace at_owner

#endif
