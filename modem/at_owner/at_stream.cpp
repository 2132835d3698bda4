#include "at_stream.h"

#include <algorithm>
#include <utility>

namespace at_owner
{
namespace
{

constexpr size_t most_lead = 16;

bool is_blank(std::string_view text)
{
    return text.find_first_not_of(" \t\r") == std::string_view::npos;
}

/* Bytes that no line of a modem has: a wrong speed, a restart. What is above 0x7F may be a name. */
bool is_noise(std::string_view line)
{
    return std::any_of(line.begin(), line.end(), [](unsigned char c) { return (c < ' ' && c != '\t') || c == 0x7F; });
}

std::string without_end(std::string_view line)
{
    while (line.ends_with('\r'))
        line.remove_suffix(1);
    return std::string(line);
}

} // namespace

void at_stream::expect(std::string_view line, bool draining)
{
    asked_ = parse_command(line);
    echo_ = line;
    answer_.clear();
    waiting_ = true;
    wants_prompt_ = after_prompt_ = false;
    draining_ = draining;
}

void at_stream::expect_prompt(std::string_view line)
{
    expect(line);
    wants_prompt_ = true;
}

std::string at_stream::abandon()
{
    waiting_ = wants_prompt_ = draining_ = false;
    echo_.clear();
    return std::exchange(answer_, {});
}

void at_stream::reset()
{
    abandon();
    line_.clear();
    lead_.clear();
    header_.clear();
    header_kind_ = header::none;
    overlong_ = after_prompt_ = false;
}

void at_stream::feed(std::string_view bytes, std::vector<event> &events)
{
    for (const char c : bytes)
        take(c, events);
}

void at_stream::take(char c, std::vector<event> &events)
{
    if (std::exchange(after_prompt_, false) && c == ' ')
        return; /* the second half of "> " */
    if (c == '\0')
        return; /* could not be handed on in a text */
    /* "\r" in front of "\r\n": the end of an echo, behind which the answer begins. */
    if (c == '\r' && line_.ends_with('\r') && !is_blank(line_))
        end_line(events);
    line_ += c;
    if (c == '\n') {
        end_line(events);
    } else if (line_.size() > most_in_line) {
        overlong_ = true;
        line_.clear();
    } else if (waiting_ && !echo_.empty() && line_ == echo_) {
        line_.clear();
    } else if (wants_prompt_ && line_ == ">") {
        line_.clear();
        lead_.clear();
        answer_.clear();
        wants_prompt_ = false;
        after_prompt_ = true;
        events.push_back({event_kind::prompt, {}, 0, {}});
    }
}

void at_stream::end_line(std::vector<event> &events)
{
    const std::string raw = std::exchange(line_, {});
    if (std::exchange(overlong_, false)) {
        lead_.clear();
        events.push_back({event_kind::dropped, {}, 0, {}});
        return;
    }
    const std::string line = without_end(raw.ends_with('\n') ? std::string_view(raw).substr(0, raw.size() - 1) : raw);
    if (is_blank(line)) {
        if (lead_.size() + raw.size() <= most_lead)
            lead_ += raw;
        return;
    }
    sort_line(line, std::exchange(lead_, {}) + raw, events);
}

/* The line behind a header goes with it. A PDU is hexadecimal: anything else shows that it was lost. */
bool at_stream::take_data_line(const std::string &line, std::vector<event> &events)
{
    const header kind = std::exchange(header_kind_, header::none);
    if (kind == header::none)
        return false;
    const std::string text = "\r\n" + std::exchange(header_, {}) + "\r\n";
    const bool fits = kind == header::text || is_hex(line);
    events.push_back({event_kind::indication, fits ? text + line + "\r\n" : text, 0, {}});
    return fits;
}

void at_stream::sort_line(const std::string &line, const std::string &raw, std::vector<event> &events)
{
    if (take_data_line(line, events))
        return;
    header_kind_ = data_header(line);
    if (header_kind_ != header::none) {
        header_ = line;
        return;
    }
    if (!waiting_) {
        sort_idle_line(line, events);
        return;
    }
    if (answer_.empty() && is_echo(line))
        return;
    const final_result result = parse_final(line);
    if (!result.is_final && !belongs_to_answer(asked_, line, draining_)) {
        events.push_back({event_kind::indication, "\r\n" + line + "\r\n", 0, {}});
        return;
    }
    keep(raw);
    if (!result.is_final)
        return;
    events.push_back({event_kind::answer, std::exchange(answer_, {}), result.error_code, line});
    if (!draining_)
        abandon();
}

void at_stream::sort_idle_line(const std::string &line, std::vector<event> &events)
{
    const bool stray = is_noise(line) || parse_final(line).only_answers;
    events.push_back({stray ? event_kind::stray : event_kind::indication, "\r\n" + line + "\r\n", 0, {}});
}

/* An echo that noise in front of it hid from the comparison byte by byte. */
bool at_stream::is_echo(std::string_view line) const
{
    const std::string echo = without_end(echo_);
    return echo.size() > 2 && line.ends_with(echo);
}

/* A modem that leaves out the first "\r\n" gets it here: readers look for it. */
void at_stream::keep(const std::string &raw)
{
    if (answer_.empty() && !raw.starts_with('\r'))
        answer_ = "\r\n";
    if (answer_.size() + raw.size() <= most_in_answer)
        answer_ += raw;
}

} // namespace at_owner
