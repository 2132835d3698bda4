"""Changes to the character sets, decoding, joining, encoding and the send path."""

PDU = "src/dv_sms_mgr_pdu.cpp"
TABLES = "src/dv_sms_mgr_pdu_tables.h"
SEND = "src/dv_sms_mgr_send.cpp"

CHANGES = [
    # --- tables ---
    ("the capital c-cedilla", TABLES, "0xC3A7", "0xC387"),
    ("a national entry as the standard has it", TABLES, "{0x11, 0x03A2}", "{0x11, 0x005F}"),
    ("the national form feed", TABLES, "{0x0F, 0x005C}", "{0x0A, 0x000C}"),
    ("a tab stays a tab", TABLES, "{'\\t', 0x20}", "{'\\t', 0x09}"),
    ("a control code stays one", TABLES, "{0x1E, 0x7D}", "{0x1E, 0x1E}"),
    ("bars are slashes", TABLES, "{'|', 0x40}", "{'|', 0x2F}"),
    ("small hexadecimal digits", TABLES, "0123456789ABCDEF", "0123456789abcdef"),
    ("a sequence of seven", TABLES, "lead > 0xFD", "lead > 0xFE"),

    # --- hexadecimal text, semi-octets, septets ---
    ("half a pair is converted", PDU, "(strnlen(text, 2 * static_cast<size_t>(max_bytes)) / 2)", "((strnlen(text, 2 * static_cast<size_t>(max_bytes)) + 1) / 2)"),
    ("a small fill stays", PDU, " || text[even - 1] == 'f'", ""),
    ("an odd number is filled with 0", PDU, "text[pairs] = 'F';", "text[pairs] = '0';"),
    ("no number has a Z", PDU, "letter <= 'Z'", "letter < 'Z'"),
    ("F is a letter", PDU, " && letter != 'F'", ""),
    ("packed septets have no zero behind them", PDU, "    octets[written] = 0;\n", ""),
    ("unpacked septets have no zero behind them", PDU, "    septets[total] = 0;\n", ""),

    # --- character sets ---
    ("the walk stops one escape earlier", PDU, "++length > SEND_TEXT_MAX", "++length >= SEND_TEXT_MAX"),
    ("a value is written into six bytes", PDU, "capacity <= 6", "capacity < 6"),
    ("a null output is only traced", PDU, 'DV_EVENT("output_str is NULL', 'DV_TRACE("output_str is NULL'),
    ("a short output is only logged", PDU, 'DV_EVENT("output error', 'DV_SAVE("output error'),
    ("values of 31 bits are refused", PDU, "0x80000000}", "0x40000000}"),

    # --- decoding ---
    ("the whole name is decoded", PDU, "octets / 8 * 7 + octets % 8", "octets"),
    ("spaces become underscores", PDU, '" ", "$")', '" ", "_")'),
    ("a sender one character longer", PDU, "SMS_MSG_PHONE_SIZE - 1,", "SMS_MSG_PHONE_SIZE,"),
    ("no sign in front of foreign numbers", PDU, "? number : sender", "? sender : number"),
    ("the date of the last century", PDU, 'prefix[] = "20"', 'prefix[] = "19"'),
    ("the date is only traced", PDU, 'DV_EVENT_IN(decoder_name, "sms_date', 'DV_TRACE_IN(decoder_name, "sms_date'),
    ("16-bit references are parts", PDU, "header[1] == IEI_CONCATENATED_8BIT", "(header[1] == IEI_CONCATENATED_8BIT || header[1] == 8)"),
    ("the total from its usual place", PDU, "msg->total = header[length + 1]", "msg->total = header[4]"),
    ("a reference of one octet", PDU, "header[3] << 8 | header[4]", "header[4]"),
    ("a header that says less is not national", PDU, "header.length <= 3 &&", "header.length == 3 &&"),
    ("no fill bits before whole septets", PDU, "* 8 % 7;", "* 8 % 7 % 7; header.fill_bits %= 7;"),
    ("the message class counts", PDU, "dcs & 0x0C", "dcs & 0x0F"),
    ("class 2 is text", PDU, "return dcs & 0x04;", "return 0;"),
    ("one character more at the edge", PDU, "% 7 > offset", "% 7 >= offset"),
    ("an odd octet is dropped", PDU, "(lengths.body_len + 1) / 2 * 2", "lengths.body_len / 2 * 2"),
    ("half of the octets", PDU, "2 * lengths.body_len)", "lengths.body_len)"),
    ("the special case does not end the decoding", PDU, "lengths.body_len == 1 &&", "lengths.body_len == 2 &&"),
    ("without a header the last message's parts count", PDU, "    current_sms_msg->concatenated = 0;\n", ""),

    # --- joining ---
    ("part 0 has a slot", PDU, "part->sequence >= 1 &&", "part->sequence >= 0 &&"),
    ("the last part has no slot", PDU, "part->sequence <= total", "part->sequence < total"),
    ("a joined part is not freed", PDU, "        free(part);\n", ""),
    ("the slots are not freed", PDU, "    free(slots);\n", ""),
    ("parts are taken by nothing but their order", PDU, "part->reference != reference", "false"),
    ("a joined text one byte shorter", PDU, "length, SMS_TEXT_SIZE - 1)", "length, SMS_TEXT_SIZE - 2)"),

    # --- encoding ---
    ("161 septets in one part", SEND, "{160, 153}", "{161, 153}"),
    ("parts of 152 septets", SEND, "{160, 153}", "{160, 152}"),
    ("71 characters in one part", SEND, "{70, 67}", "{71, 67}"),
    ("parts of 66 characters", SEND, "{70, 67}", "{70, 66}"),
    ("parts of 140 octets", SEND, "{140, 133}", "{140, 140}"),
    ("valid for 40 minutes", SEND, "VALIDITY_45_MINUTES = 8", "VALIDITY_45_MINUTES = 7"),
    ("no relative validity", SEND, "VPF_RELATIVE = 0x10", "VPF_RELATIVE = 0x18"),
    ("duplicates are rejected", SEND, "octet &= ~unsigned{RD_BIT};", "octet |= unsigned{RD_BIT};"),
    ("a header of six septets", SEND, "UDH_SEPTETS = 7", "UDH_SEPTETS = 6"),
    ("an element of four octets", SEND, "udh_iedl = 3", "udh_iedl = 4"),
    ("parts are counted from 0", SEND, "state->seq = 1;", "state->seq = 0;"),
    ("a lone escape never goes out", SEND, "if (n > 1 && septets[n - 1]", "if (n > 0 && septets[n - 1]"),
    ("escapes are parted from their codes", SEND, "            n--; /*", "            n -= 0; /*"),
    ("spaces are refused in a number", SEND, "(eight - ' ' * every_byte)", "(eight - '!' * every_byte)"),
    ("a delete character goes into the command", SEND, " | ((none_is_delete - every_byte) & ~none_is_delete)", ""),
    ("a digit more in the service centre", SEND, "smsc ? size_t{SMSC_DIGITS_MAX}", "smsc ? size_t{SMSC_DIGITS_MAX} - 1"),
    ("the type is not counted in the service centre's length", SEND, "even / 2 + 1", "even / 2"),
    ("nothing behind the PDU", SEND, "    *out++ = CTRL_Z;\n", ""),
    ("a failed number is logged too", SEND, 'PHONE_SMSC) != 0) {\n        DV_TRACE(', 'PHONE_SMSC) != 0) {\n        DV_EVENT('),

    # --- the send path ---
    ("the old service centre stays", SEND, "    memset(dv_sms_smsc, 0, sizeof dv_sms_smsc);\n", ""),
    ("the modem is asked for a known service centre", SEND, "return dv_sms_smsc[0] != '\\0' ? 0 : ask_smsc();", "return ask_smsc();"),
    ("an unknown service centre is a failure", SEND,
     'if (strstr(reply, "\\r\\nOK\\r\\n") == nullptr)\n        return 0;', 'if (strstr(reply, "\\r\\nOK\\r\\n") == nullptr)\n        return -1;'),
    ("the service centre one character shorter", SEND, "copy_text(dv_sms_smsc, SMSC_SIZE,", "copy_text(dv_sms_smsc, SMSC_SIZE - 1,"),
    ("the network is asked before the service centre", SEND,
     'if (dv_sms_mgr_check_smsc() != 0) {', 'if (dv_sms_mgr_check_network_state() != 0 || dv_sms_mgr_check_smsc() != 0) {'),
    ("a failed service centre is only logged", SEND, 'DV_EVENT("check smsc', 'DV_SAVE("check smsc'),
    ("every message has the same reference", SEND, "    state->ref++;\n", ""),
    ("byte 0x80 is ASCII", SEND, "(text[i]) >= 0x80", "(text[i]) > 0x80"),
    ("a single part of 70 whatever its length", SEND, "state->seg_size = static_cast<uint8_t>(characters);", "state->seg_size = sizes_ucs2.single;"),
    ("one blank", SEND, "phone(%s)  send_data", "phone(%s) send_data"),
    ("a text is not needed", SEND, " || fields.text[0] == '\\0') {\n        DV_EVENT(\"phone", ") {\n        DV_EVENT(\"phone"),
    ("the service centre counts in the length", SEND, "- dv_sms_send_pdu.smsc_len - 1;", "- 1;"),
    ("the length one octet longer", SEND, "dv_sms_send_pdu.smsc_len - 1;", "dv_sms_send_pdu.smsc_len;"),
    ("an error is a success when OK stands in it", SEND, 'strstr(reply, "\\r\\nOK\\r\\n") == nullptr) {', 'strstr(reply, "OK") == nullptr) {'),
    ("the modem's refusal is told without its words", SEND, 'DV_EVENT("recv pdu at failed:%s", reply)', 'DV_EVENT("recv pdu at failed")'),
    ("the modem has ten seconds", SEND, 'send_at(AT_TIMEOUT, reply, sizeof reply, "%s"', 'send_at(10, reply, sizeof reply, "%s"'),
    ("the last part is not sent", SEND, "seq <= dv_sms_send_state.total", "seq < dv_sms_send_state.total"),
    ("a failed part does not end the message", SEND, 'send sms failed, return");\n            return -1;', 'send sms failed, return");'),
    ("only both origin words make an asker", SEND, "sender_module_id != 0 ||", "sender_module_id != 0 &&"),
    ("sent messages are filed as failed", SEND, "sent ? SMS_FILE_STATE_DONE : SMS_FILE_STATE_NEW", "sent ? SMS_FILE_STATE_NEW : SMS_FILE_STATE_DONE"),
    ("sent messages are filed as drafts", SEND, "dv_sms_mgr_write_sms_to_file(BOX_SENT", "dv_sms_mgr_write_sms_to_file(BOX_DRAFT"),
]
