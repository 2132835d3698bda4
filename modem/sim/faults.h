/* What a modem can be told to do wrong. */
#ifndef SIM_FAULTS_H
#define SIM_FAULTS_H

#include <chrono>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace sim
{

/* Where an unasked-for line is put. */
enum class moment {
    before_answer, /* between the command and its answer */
    in_answer,     /* between the information and the result */
    after_prompt   /* right behind the prompt for a PDU */
};

constexpr int for_ever = -1;

struct planned_line {
    moment when = moment::in_answer;
    std::string text;
    int times = 1; /* or for_ever */
};

struct failing_command {
    std::string prefix; /* of the command line, with its "AT" or without */
    std::string result;
    int times = for_ever;
};

struct faults {
    bool silent = false; /* carries nothing out, says nothing */
    int swallow = 0;     /* command lines still to be ignored */
    int lose = 0;        /* command lines still to be carried out without an answer */
    bool repeat = false; /* each answer twice */
    int garble = 0;      /* noise bytes put into each answer */
    bool split = false;  /* each answer in two pieces */
    size_t split_at = 0; /* bytes in the first piece; 0: half of them */
    std::chrono::milliseconds split_delay{50};
    bool hold_messages = false; /* message indications wait for the middle of an answer */
    std::vector<planned_line> planned;
    std::vector<failing_command> failing;
    std::minstd_rand noise{1};

    /* The lines that belong here now, each with its line ends; those used up are gone. */
    std::string take_planned(moment when);

    /* The result to give instead of carrying the line out; "" for none. */
    std::string take_failure(std::string_view line);

    /* `text` with the noise that is asked for. */
    std::string garbled(std::string text);
};

/* "\r\nTEXT\r\n" */
std::string unsolicited(std::string_view text);

} // namespace sim

#endif
