#include "dv_sms_mgr_report.h"

#include <stdlib.h>
#include <string.h>

#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_utils.h"

int dv_sms_mgr_cmti_handler(const char *text)
{
    const char *comma = strchr(text, ',');

    if (comma == nullptr) {
        DV_EVENT("decode +CMTI, error!");
        return -1;
    }
    const auto index = static_cast<uint32_t>(strtol(comma + 1, nullptr, 10));
    const int result = util_enqueue(index);

    if (result == 0)
        DV_TRACE("recv new sms by cmti, not cmt, new_sms_index:%d", static_cast<int>(index));
    return result;
}

int dv_sms_mgr_is_pdu(const char *pdu)
{
    return pdu[0] != '\0' && pdu[1] >= '3' && pdu[1] <= 'C';
}

int dv_sms_mgr_cmt_handler(const char *text)
{
    char pdu[PDU_LINE_SIZE] = {};

    if (text == nullptr) {
        DV_EVENT("pdu_data is NULL, return");
        return -1;
    }
    const size_t length = strlen(text);

    if (length > PDU_LINE_SIZE - 1) {
        DV_EVENT("decode +CMT, error!");
        return -1;
    }
    if (length > 4) /* a line end on either side */
        memcpy(pdu, text + 2, length - 4);
    if (!dv_sms_mgr_is_pdu(pdu)) {
        DV_TRACE("not pdu data");
        DV_SAVE("not pdu data: %s", text);
        return -1;
    }
    const int result = util_enqueue_pdu(pdu);

    if (result == 0)
        DV_TRACE("recv new sms, read by cmt, not cmti");
    return result;
}
