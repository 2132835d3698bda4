#include "MTKT750/mtkt750_sms.h"

#include <string.h>
#include <unistd.h>

#include "at_msg.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_receive.h"
#include "dv_sms_mgr_report.h"
#include "dv_sms_mgr_text.h"
#include "dv_sms_mgr_utils.h"

static constexpr char line_end[] = "\r\n";

int dv_sms_mgr_t750_cmt_handler(const char *text)
{
    static constexpr char prefix[] = "\r\n+CMT:";
    char pdu[PDU_LINE_SIZE] = {};

    if (text == nullptr) {
        DV_EVENT("pdu_data is NULL, return");
        return -1;
    }
    const char *header_end = strstr(text + strnlen(text, sizeof prefix - 1), line_end);
    if (header_end == nullptr)
        return -1;
    const char *start = header_end + 2;
    const char *end = strstr(start, line_end);
    const size_t length = end == nullptr ? strlen(start) : static_cast<size_t>(end - start);

    if (length > PDU_LINE_SIZE - 1) {
        DV_EVENT("decode +CMT, error!");
        return -1;
    }
    memcpy(pdu, start, length);
    DV_TRACE("pdu: %s", pdu);
    DV_TRACE("pdu tmp[1]:%c", pdu[1]);
    if (!dv_sms_mgr_is_pdu(pdu)) {
        DV_TRACE("not pdu data");
        DV_SAVE("not pdu data: %s", pdu);
        return -1;
    }
    const int result = util_enqueue_pdu(pdu);

    if (result == 0)
        DV_TRACE("recv new sms, read by cmt, not cmti");
    return result;
}

struct indication {
    const char *prefix;
    int (*handler)(const char *text);
};

/* In the order in which they are tried. */
static constexpr indication indications[] = {
    {"\r\n+CMTI:", dv_sms_mgr_cmti_handler},
    {"\r\n+CMT:", dv_sms_mgr_t750_cmt_handler},
};

void dv_sms_mgr_at_report_event_handler(const sockmsg_record *record)
{
    at_indication message;
    char text[AT_INDICATION_TEXT_SIZE + 1];

    if (record == nullptr)
        return;
    memcpy(&message, record, sizeof message);
    if (message.magic != AT_MSG_MAGIC) {
        DV_TRACE("recv atind magic num error!");
        return;
    }
    copy_field(text, message.text);
    dv_sms_mgr_log_data("<= recv atind data:", text);
    for (const indication &each : indications) {
        if (strncmp(text, each.prefix, strlen(each.prefix)) == 0) {
            each.handler(text);
            return;
        }
    }
    dv_sms_mgr_log_data("Didn't match any Func, default ignore it:", text);
}

void dv_sms_mgr_receive_poll()
{
    char pdu[PDU_LINE_SIZE] = {};
    uint32_t index = 0;

    if (util_dequeue_pdu(pdu, sizeof pdu) == 0)
        dv_sms_mgr_receive_sms_by_cmt(pdu);
    sleep(1);
    if (util_dequeue(&index) == 0)
        dv_sms_mgr_receive_sms_by_cmti(index);
    sleep(1);
}
