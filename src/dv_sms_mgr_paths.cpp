#include "dv_sms_mgr_paths.h"

#include "devinfo.h"

#ifndef DV_SMS_ROOT
#define DV_SMS_ROOT "/mnt/data/sms"
#endif

const char dv_sms_root[] = DV_SMS_ROOT;
const char dv_sms_unread_path[] = DV_SMS_ROOT "/unread_sms";
const char dv_sms_new_path[] = DV_SMS_ROOT "/.new";

const dv_sms_box dv_sms_boxes[BOX_COUNT] = {
    {DV_SMS_ROOT "/sms_read", DV_SMS_ROOT "/read_index", DEVINFO_SMS_RECEIVED_FULL},
    {DV_SMS_ROOT "/sms_send", DV_SMS_ROOT "/send_index", DEVINFO_SMS_SENT_FULL},
    {DV_SMS_ROOT "/sms_draft", DV_SMS_ROOT "/draft_index", DEVINFO_SMS_DRAFT_FULL},
};
