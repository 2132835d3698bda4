#include "line_reader.h"

#include <algorithm>

namespace sim
{
namespace
{

constexpr char ctrl_z = 0x1A, esc = 0x1B, backspace = 0x08, del = 0x7F;

} // namespace

void line_reader::append(std::string_view bytes)
{
    waiting_ += bytes.substr(0, most_waiting - std::min(waiting_.size(), most_waiting));
}

void line_reader::keep(char c)
{
    if (current_.size() < most_in_line)
        current_.push_back(c);
    else
        too_long_ = true;
}

std::optional<line_reader::event> line_reader::end(kind what)
{
    event out{too_long_ && what != kind::cancelled ? kind::too_long : what, std::move(current_)};
    current_.clear();
    too_long_ = false;
    in_text_ = false;
    return out;
}

std::optional<line_reader::event> line_reader::take(char c)
{
    if (in_text_ && c == ctrl_z)
        return end(kind::text);
    if (in_text_ && c == esc)
        return end(kind::cancelled);
    if (!in_text_ && c == '\r')
        return end(kind::line);
    if (c == backspace || c == del) {
        if (!current_.empty())
            current_.pop_back();
    } else if (c != '\r' && c != '\n') {
        keep(c);
    }
    return std::nullopt;
}

std::optional<line_reader::event> line_reader::next(std::string &echo)
{
    for (size_t i = 0; i < waiting_.size(); i++) {
        auto found = take(waiting_[i]);
        if (found) {
            echo.append(waiting_, 0, i + 1);
            waiting_.erase(0, i + 1);
            return found;
        }
    }
    echo += waiting_;
    waiting_.clear();
    return std::nullopt;
}

void line_reader::clear()
{
    waiting_.clear();
    current_.clear();
    in_text_ = too_long_ = false;
}

} // namespace sim
