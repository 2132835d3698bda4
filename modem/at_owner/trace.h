/* The record of what goes over the port, for people and for programs that follow it. One line an item:
 *   2026-11-21T09:30:12.345Z > AT+CMGF?\r          written to the modem
 *   2026-11-21T09:30:12.360Z < \r\n+CMGF: 0\r\n\r\nOK\r\n    an answer, whole
 *   2026-11-21T09:30:13.000Z ! \r\n+CMTI: "SM",3\r\n          an unsolicited line, with its data line
 *   2026-11-21T09:30:13.000Z ? \r\nOK\r\n          what belongs to nothing
 *   2026-11-21T09:30:14.000Z # port opened: /dev/ttyUSB2
 * A backslash and what is not printable ASCII are escaped: \\, \r, \n, \xHH. */
#ifndef AT_OWNER_TRACE_H
#define AT_OWNER_TRACE_H

#include <cstdio>
#include <string>
#include <string_view>

namespace at_owner
{

std::string escaped(std::string_view text);

class trace
{
public:
    ~trace();
    trace() = default;
    trace(const trace &) = delete;
    trace &operator=(const trace &) = delete;

    /* Appends to a file; "-" is standard error. False, with errno, when it cannot be opened. */
    bool open(const std::string &path);
    void item(char kind, std::string_view text);

private:
    std::FILE *file_ = nullptr;
};

} // namespace at_owner

#endif
