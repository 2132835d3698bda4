/* The bytes that come from the modem, cut into answers and unsolicited lines. Knows nothing of ports, time or the bus.
 */
#ifndef AT_OWNER_AT_STREAM_H
#define AT_OWNER_AT_STREAM_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "at_command.h"

namespace at_owner
{

constexpr size_t most_in_line = 4096;   /* bytes; a longer line is dropped whole */
constexpr size_t most_in_answer = 8192; /* bytes; lines that do not fit any more are dropped, the final result counts */

enum class event_kind {
    answer,     /* text: the lines with their ends, from "\r\n" on, the final one included */
    prompt,     /* the modem waits for the data announced */
    indication, /* text: "\r\n", the line (with +CMT and the like: "\r\n" and its data line), "\r\n" */
    stray,      /* text: a line that belongs to nothing: an answer that nobody awaits, or noise */
    dropped     /* a line was too long */
};

struct event {
    event_kind kind;
    std::string text;
    int error_code = 0; /* of an answer: as final_result has it */
    std::string detail; /* of an answer: its final line */
};

class at_stream
{
public:
    /* `line` has been written: what comes is its answer, up to a final result. Where `draining`, older answers may
     * still come in front of it: each is given as it comes, until abandon or the next command. */
    void expect(std::string_view line, bool draining = false);

    /* The same, but a prompt will come first. */
    void expect_prompt(std::string_view line);

    /* `data` has been written behind the prompt, or one more command while draining: the modem may echo it. */
    void expect_data(std::string_view data) { echo_ = data; }

    /* Whether the modem stands at a prompt that nobody expected. */
    bool is_prompted() const { return line_ == ">" || line_ == "> "; }

    /* Nobody waits any more. Gives what had come of the answer. */
    std::string abandon();

    /* Another device: whatever was half read is void. */
    void reset();

    /* Reads on; what is found is added to `events`. Any bytes, in pieces of any size. */
    void feed(std::string_view bytes, std::vector<event> &events);

private:
    void take(char c, std::vector<event> &events);
    void end_line(std::vector<event> &events);
    void sort_line(const std::string &line, const std::string &raw, std::vector<event> &events);
    void sort_idle_line(const std::string &line, std::vector<event> &events);
    bool take_data_line(const std::string &line, std::vector<event> &events);
    bool is_echo(std::string_view line) const;
    void keep(const std::string &raw);

    std::string line_;      /* since the last line end */
    std::string lead_;      /* blank lines in front of it */
    bool overlong_ = false; /* the rest of a line that is dropped */
    std::string header_;    /* of an unsolicited message whose data line is still to come */
    header header_kind_ = header::none;

    bool waiting_ = false, wants_prompt_ = false, draining_ = false, after_prompt_ = false;
    asked asked_;
    std::string echo_;   /* how an echo would look */
    std::string answer_; /* kept so far */
};

} // namespace at_owner

#endif
