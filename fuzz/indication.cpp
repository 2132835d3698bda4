/* The indications: texts divided by null characters, each through the bus handler. What is queued is held to what the
 * text says. */
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "dv_sms_mgr.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_report.h"
#include "dv_sms_mgr_utils.h"
#include "must.h"
#include "platform.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace
{

bool looks_like_pdu(const std::string &line)
{
    return line.size() > 1 && line[1] >= '3' && line[1] <= 'C';
}

/* The line behind the header of a +CMT that is taken; empty when it is refused. */
std::string expected_pdu(const std::string &text)
{
    static const std::string prefix = "\r\n+CMT:";
    const size_t header_end = text.find("\r\n", prefix.size());

    if (!text.starts_with(prefix) || header_end == std::string::npos)
        return "";
    const size_t start = header_end + 2;
    const std::string line = text.substr(start, text.find("\r\n", start) - start);
    return line.size() < PDU_LINE_SIZE && looks_like_pdu(line) ? line : "";
}

void check_queues(const std::string &text, bool expect_any)
{
    const std::string pdu = expect_any ? expected_pdu(text) : "";
    const size_t comma = text.find(',');
    const bool index_queued = expect_any && text.starts_with("\r\n+CMTI:") && comma != std::string::npos;
    char line[PDU_LINE_SIZE] = {};
    uint32_t index = 0;

    must(sms_pdu_queue.count == (pdu.empty() ? 0 : 1) && sms_index_queue.count == (index_queued ? 1 : 0));
    if (!pdu.empty()) {
        must(util_dequeue_pdu(line, sizeof line) == 0);
        must(pdu == line);
    }
    if (index_queued) {
        must(util_dequeue(&index) == 0);
        must(index == static_cast<uint32_t>(strtol(text.c_str() + comma + 1, nullptr, 10)));
    }
}

/* The same, more than the rings hold. */
void check_flood(const sockmsg_record &record)
{
    for (int i = 0; i < SMS_RING_SIZE + 3; i++) {
        sockmsg_record copy = record;
        dv_sms_mgr_handler(&copy);
        must(sms_pdu_queue.count <= SMS_RING_SIZE && sms_index_queue.count <= SMS_RING_SIZE);
    }
    platform::forget_messages();
    must(sms_pdu_queue.count == 0 && sms_index_queue.count == 0);
}

void check_plain_cmt(const std::string &text)
{
    const int result = dv_sms_mgr_cmt_handler(text.c_str());
    const std::string pdu = text.size() > 4 ? text.substr(2, text.size() - 4) : "";
    char line[PDU_LINE_SIZE] = {};

    must((result == 0) == (text.size() < PDU_LINE_SIZE && looks_like_pdu(pdu)));
    must((util_dequeue_pdu(line, sizeof line) == 0) == (result == 0));
    if (result == 0)
        must(pdu == line);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string input(reinterpret_cast<const char *>(data), size);

    platform::reset();
    platform::formats = is_thorough(data, size);
    platform::running now;
    for (size_t start = 0; start <= input.size();) {
        const size_t end = std::min(input.find('\0', start), input.size());
        const std::string text = input.substr(start, std::min<size_t>(end - start, AT_INDICATION_TEXT_SIZE));
        sockmsg_record record = platform::make_indication(text);
        sockmsg_record forged = platform::make_indication(text, false);

        debug_mode = text.size() % 8 == 0;
        must(dv_sms_mgr_handler(&record) == 0);
        check_queues(text, true);
        dv_sms_mgr_handler(&forged);
        check_queues(text, false);
        sms_enabled = 0;
        dv_sms_mgr_handler(&record);
        check_queues(text, false);
        sms_enabled = 1;
        check_plain_cmt(text);
        if (start == 0 && is_thorough(data, size))
            check_flood(record);
        start = end + 1;
    }
    debug_mode = 0;
    return 0;
}
