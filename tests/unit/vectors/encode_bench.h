/* What the encoder's tests share. */
#ifndef ENCODE_BENCH_H
#define ENCODE_BENCH_H

#include "dv_sms_mgr_send.h"
#include "vectors/codec_bench.h"

class encode : public codec
{
protected:
    void SetUp() override
    {
        codec::SetUp();
        memset(&dv_sms_send_pdu, 0, sizeof dv_sms_send_pdu);
        memset(&dv_sms_send_state, 0, sizeof dv_sms_send_state);
        memset(dv_sms_send_text, 0, sizeof dv_sms_send_text);
        memset(dv_sms_smsc, 0, sizeof dv_sms_smsc);
        memset(dv_sms_pdu_text, 0, sizeof dv_sms_pdu_text);
    }

    /* The send state as the checks leave it: a text of septets, of octets or of UTF-8. */
    static void prepare(uint8_t dcs, const std::string &text, unsigned seg_size, unsigned total,
                        const char *dest = "12345", const char *smsc = "+123456", unsigned ref = 1)
    {
        static char destination[64];

        ASSERT_LT(text.size(), sizeof dv_sms_send_text);
        memset(dv_sms_send_text, 0, sizeof dv_sms_send_text);
        memcpy(dv_sms_send_text, text.data(), text.size());
        memset(dv_sms_smsc, 0, sizeof dv_sms_smsc);
        strcpy(dv_sms_smsc, smsc);
        strcpy(destination, dest);
        dv_sms_send_pdu.dcs = dcs;
        dv_sms_send_state = {dv_sms_send_text,
                             dv_sms_send_text,
                             destination,
                             static_cast<uint8_t>(ref),
                             static_cast<uint8_t>(total > 1),
                             static_cast<uint8_t>(seg_size),
                             static_cast<uint8_t>(total),
                             1,
                             static_cast<uint16_t>(text.size())};
    }

    /* How far the text was taken. */
    static size_t taken() { return static_cast<size_t>(dv_sms_send_state.text_pos - dv_sms_send_state.text_start); }

    /* The packed part without its Ctrl-Z, which must be its last character; empty when it failed. */
    static std::string pack()
    {
        if (dv_sms_mgr_pack_pdu_data() != 0)
            return "";
        const std::string text(dv_sms_pdu_text, strnlen(dv_sms_pdu_text, sizeof dv_sms_pdu_text));
        EXPECT_LT(text.size(), sizeof dv_sms_pdu_text);
        EXPECT_EQ('\x1A', text.empty() ? '\0' : text.back());
        return text.substr(0, text.size() - 1);
    }

    /* What the send command gives as the length of the part. */
    static int command_length() { return static_cast<int>(strlen(dv_sms_pdu_text) / 2) - dv_sms_send_pdu.smsc_len - 1; }
};

#endif
