/* The numbers and names that other programs have, too. The other tests use their names. */
#include <string>

#include "MTKT750/mtkt750_sms_init.h"
#include "at_msg.h"
#include "core_bench.h"
#include "devinfo.h"
#include "dv_sms_mgr.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_send.h"
#include "dv_sms_mgr_utils.h"
#include "sms_msg.h"

namespace
{

struct number_case {
    const char *name;
    int number;
    int wanted;
};

TEST(contract, numbers_of_modules_requests_and_items)
{
    const number_case cases[] = {
        {"the daemon", SMS_MGR_MODULE_ID, 27},
        {"the owner of the port", AT_MODULE_ID, 5},
        {"send", DV_SMS_MGR_MSG_ID_SEND_SMS, 0x5500},
        {"read", DV_SMS_MGR_MSG_ID_READ_SMS, 0x5501},
        {"delete received", DV_SMS_MGR_MSG_ID_DELETE_RECEIVE_SMS, 0x5502},
        {"delete sent", DV_SMS_MGR_MSG_ID_DELETE_SEND_SMS, 0x5503},
        {"delete drafts", DV_SMS_MGR_MSG_ID_DELETE_DRAFT_SMS, 0x5504},
        {"generate", DV_SMS_MGR_MSG_ID_GENERATE_SMS, 0x5505},
        {"notice", DV_SMS_MGR_MSG_ID_FLOW_CONTROL_SMS, 0x5506},
        {"save a draft", DV_SMS_MGR_MSG_ID_SAVE_DRAFT_SMS, 0x5507},
        {"warning", FLOWCONTROL_MSG_ID_WARN_EVENT, 0x8002},
        {"AT command and answer", AT_MSG_ID_COMMAND, 0x1017},
        {"AT indication", AT_MSG_ID_INDICATION, 0x1010},
        {"the modem crashed", AT_MSG_ID_ASSERT, 0x4000},
        {"the modem is blocked", AT_MSG_ID_BLOCK, 0x4001},
        {"AT marker", AT_MSG_MAGIC, 0xABCD},
        {"length of an AT record", AT_MSG_LENGTH, 0x1004},
        {"done", DV_SMS_MGR_ERR_NONE, 0},
        {"failed", DV_SMS_MGR_ERR_FAILED, 500},
        {"SIM ready", DEVINFO_SIM_READY, 301001},
        {"network", DEVINFO_NETWORK_STATE, 301002},
        {"unread messages", DEVINFO_SMS_UNREAD, 306001},
        {"received box full", DEVINFO_SMS_RECEIVED_FULL, 306002},
        {"sent box full", DEVINFO_SMS_SENT_FULL, 306003},
        {"draft box full", DEVINFO_SMS_DRAFT_FULL, 306004},
        {"phone of a request", offsetof(sockmsg_record, payload) + offsetof(sms_payload, phone), 44},
        {"text of a request", offsetof(sockmsg_record, payload) + offsetof(sms_payload, text), 76},
        {"characters of a phone", SMS_PHONE_SIZE, 32},
        {"characters of a text", SMS_TEXT_SIZE, 4032},
        {"characters that are sent", SEND_TEXT_MAX, 4000},
        {"places of a ring", SMS_RING_SIZE, 50},
    };

    for (const number_case &each : cases)
        EXPECT_EQ(each.wanted, each.number) << each.name;
}

TEST(contract, names_of_flags)
{
    EXPECT_STREQ("DV_SMS_MGR_LAST_RECEIVED_MSG", DV_SMS_MGR_LAST_RECEIVED_MSG);
    EXPECT_STREQ("DV_SMS_MGR_LAST_ERR_CODE", DV_SMS_MGR_LAST_ERR_CODE);
    EXPECT_STREQ("SMS_CSCA", SMS_CSCA_FLAG);
}

/* As the program starts, before any test has set them. */
const int tracing_at_start = debug_mode, service_at_start = sms_enabled, errors_shown_at_start = at_err_log_enable;

TEST(contract, the_program_starts_without_tracing_and_service_and_shows_errors)
{
    EXPECT_EQ(0, tracing_at_start);
    EXPECT_EQ(0, service_at_start);
    EXPECT_EQ(1, errors_shown_at_start);
}

} // namespace
