/* TP-UD: its header's elements and the short message behind them (3GPP TS 23.040, 9.2.3.24). */
#ifndef SMS_PDU_USER_DATA_H
#define SMS_PDU_USER_DATA_H

#include "cursor.h"
#include "message.h"

namespace pdu
{

/* Reads TP-UDL and TP-UD into the message, whose TP-DCS and TP-UDHI are known. Throws cut_short. */
void read_user_data(message &out, cursor &in);

} // namespace pdu

#endif
