/* What the codes of 3GPP TS 23.040 and 23.038 are called. */
#ifndef SMS_PDU_NAMES_H
#define SMS_PDU_NAMES_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace pdu
{

std::string type_of_address(uint8_t octet);     /* 9.1.2.5 */
std::string protocol_identifier(uint8_t octet); /* 9.2.3.9 */
std::string status(uint8_t octet);              /* 9.2.3.15 */
const char *element_name(uint8_t id);           /* 9.2.3.24 */
const char *language_name(uint8_t code);        /* TS 23.038, 6.2.1.2.4 */
std::string relative_validity(uint8_t octet);   /* 9.2.3.12.1 */

std::string counted(size_t count, const char *unit); /* "1 octet", "2 octets" */

} // namespace pdu

#endif
