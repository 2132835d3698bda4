#include "trace.h"

namespace sim
{

std::string printable(std::string_view bytes)
{
    std::string out;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        char code[8];
        if (c == '\r') {
            out += "\\r";
        } else if (c == '\n') {
            out += "\\n";
        } else if (byte < 0x20 || byte >= 0x7F) {
            std::snprintf(code, sizeof code, "\\x%02X", byte);
            out += code;
        } else {
            out += c;
        }
    }
    return out;
}

bool trace::open(const std::string &path)
{
    to_stderr_ = path == "-";
    if (!to_stderr_)
        file_.reset(std::fopen(path.c_str(), "ae"));
    return to_stderr_ || file_ != nullptr;
}

void trace::write(char tag, std::string_view bytes)
{
    std::FILE *out = to_stderr_ ? stderr : file_.get();
    if (out == nullptr)
        return;
    const auto ms = static_cast<long long>(timers_.elapsed().count());
    std::fprintf(out, "%lld.%03lld %c %s\n", ms / 1000, ms % 1000, tag, printable(bytes).c_str());
    std::fflush(out);
}

} // namespace sim
