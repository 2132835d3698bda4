/* What comes in on the port, cut into command lines (ITU-T V.250, 5.2) and, behind a prompt, into texts. */
#ifndef SIM_LINE_READER_H
#define SIM_LINE_READER_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace sim
{

class line_reader
{
public:
    static constexpr size_t most_in_line = 2048;
    static constexpr size_t most_waiting = 65536; /* bytes not yet read; what comes on top is dropped */

    enum class kind { line, too_long, text, cancelled };
    struct event {
        kind what;
        std::string text; /* a line without its "\r", a text without its Ctrl-Z */
    };

    void append(std::string_view bytes);

    /* Reads on to the end of the next line or text; nothing when it has not come yet. What it read is added to
     * `echo`. */
    std::optional<event> next(std::string &echo);

    /* After a prompt: the next thing is a text that ends with Ctrl-Z, or with ESC when it is given up. */
    void expect_text() { in_text_ = true; }
    bool expecting_text() const { return in_text_; }

    void clear();

private:
    std::optional<event> take(char c);
    std::optional<event> end(kind what);
    void keep(char c);

    std::string waiting_, current_;
    bool in_text_ = false;
    bool too_long_ = false;
};

} // namespace sim

#endif
