/* The inspector's findings as text for a terminal. */
#ifndef SMS_PDU_PRINT_H
#define SMS_PDU_PRINT_H

#include "inspect.h"

namespace pdu
{

std::string in_text(const inspection &one);
std::string in_text(const outgoing &message, bool verbose);

} // namespace pdu

#endif
