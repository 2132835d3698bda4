#include "faults.h"

namespace sim
{
namespace
{

bool matches(std::string_view line, std::string_view prefix)
{
    return line.starts_with(prefix) || (line.size() > 2 && line.substr(2).starts_with(prefix));
}

} // namespace

std::string unsolicited(std::string_view text)
{
    return "\r\n" + std::string(text) + "\r\n";
}

std::string faults::take_planned(moment when)
{
    std::string out;
    for (planned_line &line : planned) {
        if (line.when != when)
            continue;
        out += unsolicited(line.text);
        if (line.times > 0)
            line.times--;
    }
    std::erase_if(planned, [](const planned_line &line) { return line.times == 0; });
    return out;
}

std::string faults::take_failure(std::string_view line)
{
    for (size_t i = 0; i < failing.size(); i++) {
        if (!matches(line, failing[i].prefix))
            continue;
        std::string result = failing[i].result;
        if (failing[i].times > 0 && --failing[i].times == 0)
            failing.erase(failing.begin() + static_cast<std::ptrdiff_t>(i));
        return result;
    }
    return "";
}

std::string faults::garbled(std::string text)
{
    for (int i = 0; i < garble; i++) {
        const size_t place = noise() % (text.size() + 1);
        text.insert(place, 1, static_cast<char>(0x80 | (noise() & 0x7F)));
    }
    return text;
}

} // namespace sim
