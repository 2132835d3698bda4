/* Answers of the modem, to whoever asked: the first octet chooses the step, then every answer is an octet that says
 * what becomes of it and a text up to a null character. Behind them the modem is in order again. */
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "MTKT750/mtkt750_sms_init.h"
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

constexpr size_t most_answers = 64;

void read_answers(const std::string &input)
{
    for (size_t at = 0; at < input.size() && platform::answers.size() < most_answers;) {
        const auto how = static_cast<uint8_t>(input[at]);
        const size_t end = std::min(input.find('\0', at), input.size());
        platform::answer next;

        next.text = end > at ? input.substr(at + 1, end - at - 1) : "";
        if (how & 0x80) /* most printable octets leave the answer alone */
            next.kind = static_cast<decltype(next.kind)>(how & 0x03);
        next.error_code = 1 + (how >> 2 & 0x1F);
        next.error_detail = next.text;
        if ((how & 0xE0) == 0xE0)
            next.text.resize(AT_RESPONSE_TEXT_SIZE, 'A'); /* no terminator */
        platform::answers.push_back(next);
        at = end + 1;
    }
}

/* One message a file, with its number, state 0, and what the index and the counter say of it. */
void check_store()
{
    const dv_sms_box &box = dv_sms_boxes[BOX_RECEIVED];
    const int files = scratch::files_in(box.dir);
    std::string index;

    for (int number = 1; number <= files; number++) {
        const std::string content = scratch::read(std::string(box.dir) + "/" + std::to_string(number));
        must(content.starts_with(std::to_string(number) + " 0 "));
        must(content.size() <= 16 + SMS_PHONE_SIZE + SMS_DATE_SIZE + SMS_TEXT_SIZE);
        index += std::to_string(number) + " ";
    }
    must(files == 0 || scratch::read(box.index) == " " + index);
    must(files == 0 || scratch::read(dv_sms_unread_path) == std::to_string(files));
}

void receive(uint32_t index)
{
    const int result = dv_sms_mgr_receive_sms_by_cmti(index);

    must(result == CMTI_FAILED || result == CMTI_INCOMPLETE || result == CMTI_FILED);
    must(!platform::commands.empty() && platform::commands.size() <= 2);
    must(platform::commands[0] == "AT+CMGR=" + std::to_string(static_cast<int32_t>(index)) + "\r");
    if (platform::commands.size() == 2)
        must(platform::commands[1] == "AT+CMGD=1,4\r" ||
             platform::commands[1] == "AT+CMGD=" + std::to_string(static_cast<int32_t>(index)) + "\r");
    must(result != CMTI_FILED || platform::commands.size() == 2);
    check_store();
}

/* Until the answers are spent. */
void receive_all()
{
    for (uint32_t index = 1; index == 1 || !platform::answers.empty(); index++) {
        platform::commands.clear();
        receive(index);
    }
}

void free_rings()
{
    platform::forget_messages();
    free(sms_index_queue.slots);
    free(sms_pdu_queue.slots);
    sms_index_queue.slots = nullptr;
    sms_pdu_queue.slots = nullptr;
}

/* However the answers went, the list ends with the modem set up. */
void init()
{
    free_rings();
    must(dv_sms_mgr_init() == 0);
    must(at_err_log_enable == 1);
    must(platform::answers.empty() || platform::commands.size() >= 4);
}

/* The numbers that the steps keep are cut and terminated. */
void check_numbers()
{
    must(platform::flags["SMS_CSCA"].size() < 16);
    must(strnlen(dv_sms_smsc, sizeof dv_sms_smsc) < SMSC_SIZE);
}

void forget_service_centre()
{
    platform::flags.erase("SMS_CSCA");
}

void full(const std::string &reply)
{
    int total = -1;
    const int result = sim_sms_is_full(reply.c_str(), &total);

    must(result == 0 || result == 1);
    must((total == -1) == (result == 0) || total == -1);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    platform::reset();
    scratch::empty_store();
    read_answers(std::string(reinterpret_cast<const char *>(data) + 1, size - 1));
    const std::string first = platform::answers.empty() ? "" : platform::answers.front().text.substr(0, 200);

    platform::running now;
    if (data[0] % 2 == 0)
        forget_service_centre();
    switch (data[0] / 2 % 8) {
    case 0:
        receive_all();
        break;
    case 1:
        init();
        break;
    case 2:
        init_at_cmgf();
        break;
    case 3:
        init_at_cnmi();
        break;
    case 4:
        init_sim_cpms();
        break;
    case 5:
        init_sim_csca();
        break;
    case 6:
        dv_sms_mgr_check_smsc();
        break;
    default:
        full(first);
        break;
    }
    check_numbers();
    check_store();
    platform::forget_messages();
    must(current_sms_msg == nullptr);
    return 0;
}
