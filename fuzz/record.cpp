/* Whole records from the bus: an octet for the platform's state, then records of an octet that chooses the id, one with
 * options, two with the payload's length, and the payload. Then queues and rings are drained, and the daemon has to
 * receive and send as ever. */
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "MTKT750/mtkt750_sms.h"
#include "devinfo.h"
#include "dv_sms_mgr.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_paths.h"
#include "dv_sms_mgr_receive.h"
#include "dv_sms_mgr_send.h"
#include "dv_sms_mgr_utils.h"
#include "must.h"
#include "platform.h"
#include "scratch.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace
{

constexpr int most_records = 16;
constexpr uint32_t ids[] = {
    DV_SMS_MGR_MSG_ID_SEND_SMS,
    DV_SMS_MGR_MSG_ID_READ_SMS,
    DV_SMS_MGR_MSG_ID_DELETE_RECEIVE_SMS,
    DV_SMS_MGR_MSG_ID_DELETE_SEND_SMS,
    DV_SMS_MGR_MSG_ID_DELETE_DRAFT_SMS,
    DV_SMS_MGR_MSG_ID_GENERATE_SMS,
    DV_SMS_MGR_MSG_ID_FLOW_CONTROL_SMS,
    DV_SMS_MGR_MSG_ID_SAVE_DRAFT_SMS,
    FLOWCONTROL_MSG_ID_WARN_EVENT,
    AT_MSG_ID_COMMAND,
    AT_MSG_ID_INDICATION,
    AT_MSG_ID_ASSERT,
    AT_MSG_ID_BLOCK,
};
constexpr size_t id_count = sizeof ids / sizeof ids[0];

enum option : uint8_t { fill = 0x01, disable = 0x02, trace = 0x04, drain = 0x08, anonymous = 0x10, taken_flags = 0x20 };

void configure(uint8_t how)
{
    platform::reset();
    platform::cfg["SYS_SMS_MAX_SAVE_SIZE"] = std::to_string(how % 4);
    platform::cfg["USR_SMS_REDIRECT_SW"] = how & 0x04 ? "1" : "0";
    platform::cfg["USR_SMS_REDIRECT_PHONE"] = how & 0x08 ? "+31600000000" : std::string(40, '7');
    for (const char *key : {"USR_FLOW_SMS_NOTICE_SWITCH", "USR_NATIONAL_FLOW_SMS_NOTICE_SWITCH",
                            "USR_INTERNATIONAL_FLOW_SMS_NOTICE_SWITCH"})
        platform::cfg[key] = how & 0x10 ? "1" : "0";
    for (const char *key : {"USR_FLOW_SMS_NOTICE_PHONE_NUMBER", "USR_NATIONAL_FLOW_SMS_NOTICE_PHONE_NUMBER",
                            "USR_INTERNATIONAL_FLOW_SMS_NOTICE_PHONE_NUMBER"})
        platform::cfg[key] = how & 0x20 ? "+31611111111" : std::string(200, '1');
    platform::cfg["USR_WAN_MODE"] = "7";
    if (how & 0x40)
        for (int chunk = 0; chunk < 32; chunk++)
            platform::cfg["USR_FLOW_SMS_NOTICE_TEXT_" + std::to_string(chunk)] = std::string(128, '\xC3');
    if (how & 0x80)
        platform::devinfo[DEVINFO_NETWORK_STATE] = "Unkown";
}

void drain_queues()
{
    sockmsg_record request;

    while (sms_pdu_queue.count > 0 || sms_index_queue.count > 0)
        dv_sms_mgr_receive_poll();
    must(g_sms_send_head->count <= SMS_SEND_QUEUE_LIMIT + 1);
    while (list_pop(g_sms_send_head, &request) == 1)
        dv_sms_mgr_send_sms(&request);
    must(g_sms_send_head->count == 0 && g_sms_send_head->first == nullptr && g_sms_send_head->last == nullptr);
    must(current_sms_msg == nullptr);
}

void hand_over(uint32_t id, uint8_t options, const std::string &payload)
{
    sockmsg_record record = platform::make_record(id, payload, options & fill ? 'A' : '\0');

    if (options & anonymous)
        record.sender_module_id = 0;
    if (!(options & taken_flags)) {
        platform::flags.erase(DV_SMS_MGR_LAST_RECEIVED_MSG);
        platform::flags.erase(DV_SMS_MGR_LAST_ERR_CODE);
    }
    sms_enabled = options & disable ? 0 : 1;
    debug_mode = options & trace ? 1 : 0;
    const sockmsg_record before = record;
    const int result = dv_sms_mgr_handler(&record);
    must(result == 0 || (result == -1 && (id == AT_MSG_ID_ASSERT || id == AT_MSG_ID_BLOCK)));
    must(memcmp(&before, &record, sizeof record) == 0); /* it belongs to the bus */
    if (options & drain)
        drain_queues();
}

void check_boxes()
{
    for (const dv_sms_box &box : dv_sms_boxes)
        must(scratch::read(box.index).find('\0') == std::string::npos);
    const std::string unread = scratch::read(dv_sms_unread_path);
    must(unread.find_first_not_of("0123456789 ") == std::string::npos);
}

/* Whatever came before. */
void check_alive()
{
    std::string payload(SMS_DATE_SIZE, '\0');
    sockmsg_record indication =
        platform::make_indication("\r\n+CMT: ,23\r\n07911356131313F3040B911316325476F8000042305041700002"
                                  "02E834\r\n");

    platform::forget_messages();
    platform::reset();
    scratch::empty_store();
    payload += "+31612345678";
    payload.resize(SMS_DATE_SIZE + SMS_PHONE_SIZE, '\0');
    sockmsg_record request = platform::make_record(DV_SMS_MGR_MSG_ID_SEND_SMS, payload + "hi");

    must(dv_sms_mgr_handler(&indication) == 0);
    must(dv_sms_mgr_handler(&request) == 0);
    drain_queues();
    must(scratch::read(std::string(dv_sms_boxes[BOX_RECEIVED].dir) + "/1") ==
         "1 0 +31612345678 2024/03/05 14:07:00 hi");
    must(scratch::read(std::string(dv_sms_boxes[BOX_SENT].dir) + "/1").starts_with("1 1 +31612345678 "));
    must(platform::flags[DV_SMS_MGR_LAST_ERR_CODE] == "0");
    must(platform::commands.size() == 1 && platform::commands[0].starts_with("AT+DORVYSMS=16,"));
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string input(reinterpret_cast<const char *>(data), size);
    const auto octet = [&](size_t at) { return at < size ? static_cast<unsigned>(data[at]) : 0U; };
    size_t at = 1;

    configure(static_cast<uint8_t>(octet(0)));
    scratch::empty_store();
    platform::running now;
    for (int i = 0; at < size && i < most_records; i++) {
        const unsigned chosen = octet(at);
        const auto options = static_cast<uint8_t>(octet(at + 1));
        const size_t length = octet(at + 2) + 256 * octet(at + 3);
        const uint32_t odd_id = chosen | octet(at + 1) << 8 | octet(at + 2) << 16 | octet(at + 3) << 24;
        at += 4;
        const std::string payload = at < size ? input.substr(at, length) : "";
        hand_over(chosen < id_count ? ids[chosen] : odd_id, options, payload);
        at += length;
    }
    drain_queues();
    check_boxes();
    check_alive();
    platform::forget_messages();
    return 0;
}
