/* What the tests of the send pipeline share: the fixture, and a reader of the PDUs that were submitted,
 * written from TS 23.040 and 23.038 and not from the encoder. */
#ifndef CORE_SENDING_H
#define CORE_SENDING_H

#include <string>
#include <vector>

#include "core_bench.h"

/* One submitted PDU. */
struct submit {
    int announced = 0; /* octets, as the command says */
    std::string smsc;  /* length, type and digits in hex */
    unsigned first_octet = 0, reference = 0, pid = 0, dcs = 0, validity = 0, udl = 0;
    std::string number; /* digits, "+" in front of an international one */
    std::string header; /* hex of the user-data header, its length too; empty without one */
    std::string text;   /* septets, one a character; or UTF-16 code units in hex */
    int tpdu = 0;       /* octets behind the service centre */
    bool well_formed = false;
};

submit read_submit(const std::string &command);

class sending : public core_bench
{
protected:
    void SetUp() override;

    int send(const std::string &phone, const std::string &text, uint32_t sender = 3, uint32_t extra = 0);

    /* The PDUs submitted, read. */
    std::vector<submit> submitted();

    /* As behind SetUp, in the middle of a test. */
    void start_over();

    static std::string filed() { return read_file("mnt/data/sms/sms_send/1"); }
};

std::string repeat(const std::string &text, int times);

/* Letters that tell their place. */
std::string letters(int count);

inline const char last_code[] = "DV_SMS_MGR_LAST_ERR_CODE";
inline const char e_acute[] = "\xC3\xA9", chinese[] = "\xE4\xB8\xAD";

#endif
