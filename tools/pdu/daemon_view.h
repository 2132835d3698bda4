/* What the SMS manager makes of a PDU, and what it sends: from its own codec. Any thread; one at a time. */
#ifndef SMS_PDU_DAEMON_VIEW_H
#define SMS_PDU_DAEMON_VIEW_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pdu
{

/* The decoder's arithmetic, as it logs it. */
struct septet_arithmetic {
    int total_bit = 0;   /* bits of the body: TP-UDL * 7 less the header's */
    int body_len = 0;    /* characters, or octets */
    int sms7bit_len = 0; /* octets that hold them */
    int offset = 0;      /* fill bits */
};

struct daemon_view {
    bool taken = true;        /* false: the PDU line is refused in front of the decoder */
    std::string refused;      /* why */
    std::string sender, date; /* bytes as they are filed */
    std::string text;         /* likewise; need not be UTF-8 */
    bool concatenated = false;
    unsigned reference = 0, total = 0, sequence = 0; /* only then */
    std::optional<std::string> joined;               /* of several parts, of which this is the last to come */
    std::optional<septet_arithmetic> septets;
    std::vector<std::string> log; /* its lines in the persistent log */
};

/* `line` as the modem prints it, the service centre in front. */
daemon_view decode_as_daemon(std::string_view line);

/* One part as it is submitted. */
struct sent_part {
    std::string pdu;     /* hex text without Ctrl-Z */
    int tpdu_octets = 0; /* what the command states */
    size_t taken = 0;    /* of the text: septets, or bytes of UTF-8 */
};

struct sent_message {
    bool refused = false;
    std::string why;       /* refused: by which rule */
    bool ucs2 = false;     /* else 7-bit */
    size_t bytes = 0;      /* of the text that is sent, after a cut at 4,000 */
    unsigned units = 0;    /* septets, or characters */
    unsigned unsent = 0;   /* septets that no part carries */
    unsigned per_part = 0; /* units a part holds */
    unsigned total = 0;
    bool concatenated = false;
    std::vector<sent_part> parts;
};

/* `reference`: TP-MR and the header's, 0 to 255. An empty service centre is one that nobody knows. */
sent_message encode_as_daemon(std::string_view number, std::string_view text, std::string_view service_centre,
                              unsigned reference);

/* PDUs of parts in the order in which they come: for each the whole text that the daemon files when it completes a
 * message, with what came before it. */
std::vector<std::optional<std::string>> join_as_daemon(const std::vector<std::string> &lines);

} // namespace pdu

#endif
