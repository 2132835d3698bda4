#include "dv_sms_mgr_generate.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "MTKT750/mtkt750_sms_init.h"
#include "cfg.h"
#include "dv_sms_mgr.h"
#include "dv_sms_mgr_lock.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_paths.h"
#include "dv_sms_mgr_receive.h"
#include "dv_sms_mgr_text.h"
#include "dv_sms_mgr_utils.h"
#include "util.h"

/* --- notices --- */

enum {
    SWITCH_SIZE = 2,
    NOTICE_PHONE_SIZE = 16,
    CHUNK_KEY_SIZE = 64,
    CHUNK_SIZE = 128,
    CHUNK_COUNT = 32,
    NOTICE_TEXT_SIZE = 4000
};

static constexpr char failover_text[] =
    "尊敬的用户，由于您的有线宽带岀现故障，为不影响您使用网络，不间断网关已自动切换为无线宽带，"
    "您可正常使用宽带网络，同时请您尽快拨打运营商客服电话申报有线宽带故障，谢谢！";
static constexpr char half_used_text[] = "尊敬的用户，您的流量已使用50%，请注意！";
static constexpr char all_used_text[] = "尊敬的用户，您的流量已使用100%，设备已经断网，请注意！";

/* Joins the chunks of a text that the configuration holds under numbered keys, up to the first empty
 * one. The key holds one %d. */
__attribute__((format(printf, 2, 0))) static void join_chunks(char (&text)[NOTICE_TEXT_SIZE + 1],
                                                              const char *key_format)
{
    size_t length = 0;

    memset(text, 0, sizeof text);
    for (int n = 0; n < CHUNK_COUNT; n++) {
        char key[CHUNK_KEY_SIZE];
        char chunk[CHUNK_SIZE + 1] = {};

        snprintf(key, sizeof key, key_format, n);
        cfg_get_item(key, chunk, CHUNK_SIZE);
        if (chunk[0] == '\0')
            break;
        const size_t added = copy_text(text + length, sizeof text - length, chunk);

        length += added;
        if (chunk[added] != '\0')
            break; /* full */
    }
}

static bool switched_on(const char *key)
{
    char value[SWITCH_SIZE + 1] = {};

    cfg_get_item(key, value, SWITCH_SIZE);
    return value[0] == '1';
}

static bool read_phone(char (&phone)[NOTICE_PHONE_SIZE + 1], const char *key)
{
    memset(phone, 0, sizeof phone);
    cfg_get_item(key, phone, NOTICE_PHONE_SIZE);
    return phone[0] != '\0';
}

static void queue_notice(const char *phone, const char *text)
{
    sockmsg_record request = {};

    copy_text(payload_of(&request)->phone, phone);
    copy_text(payload_of(&request)->text, text);
    push_sms_into_queue(&request);
}

/* The switch and the number that the failover notice and the allowance warnings share. */
static int check_flow_notice(const char *function, char (&phone)[NOTICE_PHONE_SIZE + 1])
{
    if (!switched_on("USR_FLOW_SMS_NOTICE_SWITCH")) {
        DV_EVENT_IN(function, "flow notice switch is closed, please check it!");
        return -1;
    }
    if (!read_phone(phone, "USR_FLOW_SMS_NOTICE_PHONE_NUMBER")) {
        DV_EVENT_IN(function, "flow notice phone number is null, please check it!");
        return -1;
    }
    return 0;
}

/* Queues the configured text, or the default when there is none. */
static int queue_flow_notice(const char *function, const char *phone, const char *key_format, const char *default_text)
{
    char text[NOTICE_TEXT_SIZE + 1];

    join_chunks(text, key_format);
    if (text[0] == '\0')
        DV_TRACE_IN(function, "empty USR_FLOW_SMS_NOTICE_TEXT, just use text as default..");
    queue_notice(phone, text[0] == '\0' ? default_text : text);
    return 0;
}

int dv_sms_mgr_send_flow_control_notice()
{
    char phone[NOTICE_PHONE_SIZE + 1];
    char mode[SWITCH_SIZE + 1] = {};

    if (check_flow_notice(__func__, phone) != 0)
        return -1;
    cfg_get_item("USR_WAN_MODE", mode, SWITCH_SIZE);
    if (mode[0] != '7' && mode[0] != '5') {
        DV_TRACE("recently mode is not fix mode, do not send sms!");
        return -1;
    }
    return queue_flow_notice(__func__, phone, "USR_FLOW_SMS_NOTICE_TEXT_%d", failover_text);
}

/* Warnings without a default text. Where trace and log differ, they differ on purpose. */
struct roaming_warning {
    const char *switch_key;
    const char *phone_key;
    const char *text_key_format;
    const char *closed;
    const char *no_phone_trace;
    const char *no_phone_log;
    const char *no_text;
};

static constexpr roaming_warning national_warning = {
    "USR_NATIONAL_FLOW_SMS_NOTICE_SWITCH",
    "USR_NATIONAL_FLOW_SMS_NOTICE_PHONE_NUMBER",
    "USR_NATIONAL_FLOW_SMS_NOTICE_TEXT_%d",
    "national_notice_sw is closed, please check it!",
    "notional flow notice phone number is null, please check it!",
    "notional notice phone number is null, please check it!",
    "empty USR_NATIONAL_FLOW_SMS_NOTICE_TEXT, break",
};

static constexpr roaming_warning international_warning = {
    "USR_INTERNATIONAL_FLOW_SMS_NOTICE_SWITCH",
    "USR_INTERNATIONAL_FLOW_SMS_NOTICE_PHONE_NUMBER",
    "USR_INTERNATIONAL_FLOW_SMS_NOTICE_TEXT_%d",
    "international_notice_sw is closed, please check it!",
    "international notice phone number is null, please check it!",
    "international notice phone number is null, please check it!",
    "empty USR_INTERNATIONAL_FLOW_SMS_NOTICE_TEXT, break",
};

static int warn_roaming(const char *function, const roaming_warning &warning)
{
    char phone[NOTICE_PHONE_SIZE + 1];
    char text[NOTICE_TEXT_SIZE + 1];

    if (get_CFG_int(warning.switch_key) == 0) {
        DV_TRACE_IN(function, "%s", warning.closed);
        return -1;
    }
    if (!read_phone(phone, warning.phone_key)) {
        DV_TRACE_IN(function, "%s", warning.no_phone_trace);
        DV_SAVE_IN(function, "%s", warning.no_phone_log);
        return -1;
    }
    join_chunks(text, warning.text_key_format);
    if (text[0] == '\0') {
        DV_TRACE_IN(function, "%s", warning.no_text);
        return -1;
    }
    queue_notice(phone, text);
    return 0;
}

static int warn_allowance(const char *function, const char *key_format, const char *default_text)
{
    char phone[NOTICE_PHONE_SIZE + 1];

    if (check_flow_notice(function, phone) != 0)
        return -1;
    return queue_flow_notice(function, phone, key_format, default_text);
}

int dv_sms_mgr_send_flow_control_warn(const char *payload)
{
    enum { HALF_USED = 0, ALL_USED = 1, NATIONAL = 2, INTERNATIONAL = 3 };

    if (payload == nullptr) {
        DV_EVENT("sockmsg data is null, please check it!");
        return -1;
    }
    switch (strtol(payload, nullptr, 10)) {
    case HALF_USED:
        return warn_allowance(__func__, "USR_SMS_NOTICE_FLOW_OVER_PERCENT_50_TEXT_%d", half_used_text);
    case ALL_USED:
        return warn_allowance(__func__, "USR_SMS_NOTICE_FLOW_OVER_PERCENT_100_TEXT_%d", all_used_text);
    case NATIONAL:
        return warn_roaming(__func__, national_warning);
    case INTERNATIONAL:
        return warn_roaming(__func__, international_warning);
    default:
        return -1;
    }
}

/* --- test messages --- */

enum { GENERATE_FLOOR = 500 /* KB */, GENERATE_INDEX_READ_SIZE = 4000, CAPACITY_READ_SIZE = 6 };

static constexpr const char *test_prefixes[BOX_COUNT] = {"测试接收短信_", "测试发送短信_", "测试草稿短信_"};

static void prepare_box(const dv_sms_box &box)
{
    char command[SMS_PATH_SIZE + sizeof "mkdir -p "];
    char result[64 + 1] = {};

    if (!path_exists(box.dir)) {
        snprintf(command, sizeof command, "mkdir -p %s", box.dir);
        util_get_cmd_result(command, result, 64);
    }
    if (!path_exists(box.index))
        cmd_echo(" ", box.index);
}

static void write_test_message(const dv_sms_box &box, const char *prefix, int number)
{
    char path[SMS_PATH_SIZE];
    char line[256];
    char index[GENERATE_INDEX_READ_SIZE + 1] = {};
    char new_index[sizeof index + 16];

    snprintf(path, sizeof path, "%s/%d", box.dir, number);
    if (path_exists(path))
        return;
    snprintf(line, sizeof line, "%d 0 1300000000 12:21:12 2021-12-21 %s%d", number, prefix, number);
    cmd_echo(line, path);
    cmd_cat(box.index, index, GENERATE_INDEX_READ_SIZE);
    snprintf(new_index, sizeof new_index, "%s%d ", index, number);
    cmd_echo(new_index, box.index);
    sync();
}

int dv_sms_mgr_generate()
{
    char capacity[CAPACITY_READ_SIZE + 1] = {};

    cfg_get_item("SYS_SMS_MAX_SAVE_SIZE", capacity, CAPACITY_READ_SIZE);
    const long count = strtol(capacity, nullptr, 10);
    {
        locked hold(&sms_store_lock);
        for (const dv_sms_box &box : dv_sms_boxes)
            prepare_box(box);
    }
    long available = get_sys_flash_available(dv_sms_boxes[BOX_RECEIVED].dir);

    for (int number = 1; number <= count && available > GENERATE_FLOOR; number++) {
        {
            locked hold(&sms_store_lock);
            for (int box = 0; box < BOX_COUNT; box++)
                write_test_message(dv_sms_boxes[box], test_prefixes[box], number);
        }
        available = get_sys_flash_available(dv_sms_boxes[BOX_RECEIVED].dir);
    }
    init_sms_box_state();
    dv_sms_mgr_update_last_err_code_flag(DV_SMS_MGR_ERR_NONE);
    return 0;
}
