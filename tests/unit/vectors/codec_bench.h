/* What the codec's tests share. */
#ifndef CODEC_BENCH_H
#define CODEC_BENCH_H

#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>
#include <vector>

#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_pdu.h"
#include "dv_sms_mgr_receive.h"
#include "fake/bench.h"
#include "vectors/reference.h"

using lines = std::vector<std::string>;

/* A copy on the heap without a byte to spare: the sanitizer sees whoever reads behind it. */
class exact_text
{
public:
    explicit exact_text(const std::string &text) : bytes_(new char[text.size() + 1])
    {
        memcpy(bytes_.get(), text.c_str(), text.size() + 1);
    }
    const char *c_str() const { return bytes_.get(); }

private:
    std::unique_ptr<char[]> bytes_;
};

/* The current message lies on the heap, zeroed, as the receive path has it. */
class codec : public bench
{
protected:
    void SetUp() override
    {
        bench::SetUp();
        current_sms_msg = static_cast<dv_sms_msg *>(calloc(1, sizeof(dv_sms_msg)));
        ASSERT_NE(nullptr, current_sms_msg);
    }

    void TearDown() override
    {
        free(current_sms_msg);
        current_sms_msg = nullptr;
        while (sms_part_head != nullptr) {
            sms_part_node *next = sms_part_head->next;
            free(sms_part_head);
            sms_part_head = next;
        }
        bench::TearDown();
    }

    /* The record that the PDU decodes to; blanks in the PDU only divide its fields. */
    static const dv_sms_msg &decode(const std::string &pdu)
    {
        memset(current_sms_msg, 0, sizeof *current_sms_msg);
        dv_sms_mgr_parse_pdu(exact_text(reference::squeeze(pdu)).c_str());
        return *current_sms_msg;
    }

    /* Decodes and holds the record to the reference. false: they differ. */
    static bool agrees_with_reference(const std::string &pdu)
    {
        static const char before[] = "as it was";
        const reference::delivered expected = reference::decode(pdu);
        dv_sms_msg &msg = *current_sms_msg;

        memset(&msg, 0, sizeof msg);
        strcpy(msg.text, before);
        dv_sms_mgr_parse_pdu(exact_text(pdu).c_str());
        EXPECT_EQ(expected.phone, std::string(msg.phone, strnlen(msg.phone, sizeof msg.phone)));
        EXPECT_EQ(expected.date, std::string(msg.date, strnlen(msg.date, sizeof msg.date)));
        EXPECT_EQ(expected.text_kept ? before : expected.text,
                  std::string(msg.text, strnlen(msg.text, sizeof msg.text)));
        EXPECT_EQ(expected.concatenated ? 1U : 0U, msg.concatenated);
        EXPECT_EQ(expected.reference, msg.reference);
        EXPECT_EQ(expected.total, msg.total);
        EXPECT_EQ(expected.sequence, msg.sequence);
        EXPECT_EQ(0, msg.phone[SMS_MSG_PHONE_SIZE - 1]);
        EXPECT_EQ(0, msg.date[SMS_MSG_DATE_SIZE - 1]);
        EXPECT_EQ(0, msg.text[SMS_MSG_TEXT_SIZE - 1]);
        if (HasFailure())
            ADD_FAILURE() << "the PDU was \"" << pdu << "\"";
        return !HasFailure();
    }

    /* For loops of many thousand calls: neither trace nor log is kept. */
    void be_quiet()
    {
        debug_mode = 0;
        platform.forget();
    }
};

#endif
