/* The AT commands of the modem (ITU-T V.250, 3GPP TS 27.005 and 27.007): one line in, one answer out. */
#ifndef SIM_AT_COMMANDS_H
#define SIM_AT_COMMANDS_H

#include <string>
#include <string_view>
#include <vector>

#include "modem_state.h"

namespace sim
{

struct answer {
    std::vector<std::string> lines{}; /* information texts, without the line ends around them */
    std::string final_result = "OK";
    bool prompt = false; /* no result yet: a text is asked for first */
};

/* "\r\nINFORMATION\r\n" for each text, and "\r\nRESULT\r\n". */
std::string render_lines(const answer &from);
std::string render_result(const answer &from);

/* "+CMS ERROR: n" */
std::string cms_result(int code);

/* As +CMEE has it: "ERROR", the number, or the words. */
std::string cme_result(int code, int detail);

/* What +CREG and +CEREG report: the status and, from level 2 on, the cell. */
std::string registration_status(int reports, bool registered);

/* Where the command starts: behind the first "AT" of the line. npos when there is none, and no answer then. */
size_t command_start(std::string_view line);

/* Carries out a command line that has an "AT"; its commands in turn until one fails. */
answer run_line(modem_state &modem, std::string_view line);

/* Carries out what a prompt was for. */
answer run_text(modem_state &modem, const std::string &text);

} // namespace sim

#endif
