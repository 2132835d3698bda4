/* PDUs out of what people paste: hex digits, or a modem's answer with its header line. */
#ifndef SMS_PDU_PASTED_H
#define SMS_PDU_PASTED_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pdu
{

struct pasted {
    std::string hex;              /* without blanks; empty: a header with nothing behind it */
    std::string header;           /* "+CMGR: 0,,24"; empty when there is none */
    std::optional<size_t> stated; /* the TPDU's octets that the header, or the command, states */
};

/* A PDU a line; blanks in it only divide its fields. Final results and other lines of a modem are passed over, and
 * "\r" and "\n" written as such end a line. */
std::vector<pasted> find_pdus(std::string_view text);

} // namespace pdu

#endif
