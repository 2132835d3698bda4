#include "modem_line.h"

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <unistd.h>

#include "at_msg.h"

namespace sms_client
{
namespace
{

constexpr int grace = 3; /* seconds beyond what the owner of the port gives the modem */

/* It outlives main: the bus's thread never ends. */
struct mailbox {
    std::mutex lock;
    std::condition_variable arrived;
    int32_t awaited = -1; /* guarded by lock, as what follows */
    std::optional<modem_answer> answer;
};

mailbox &answers()
{
    static auto &the_mailbox = *new mailbox;
    return the_mailbox;
}

template <size_t Size> std::string field_text(const char (&field)[Size])
{
    return {field, strnlen(field, Size)};
}

} // namespace

void take_modem_answer(const sockmsg_record &record)
{
    at_response response;
    std::memcpy(&response, &record, sizeof response);
    if (response.msg_id != AT_MSG_ID_COMMAND || response.magic != AT_MSG_MAGIC)
        return;
    mailbox &box = answers();
    const std::lock_guard<std::mutex> hold(box.lock);
    if (response.at_id != box.awaited)
        return;
    box.answer = modem_answer{field_text(response.text), response.error_code, field_text(response.error_detail)};
    box.arrived.notify_all();
}

std::optional<modem_answer> ask_modem(const std::string &command, int seconds, std::string &why)
{
    static int32_t last_id = static_cast<int32_t>(getpid() % 50000);
    mailbox &box = answers();
    at_request request{};
    const std::string line = command + "\r";
    if (line.size() >= sizeof request.text) {
        why = "the command is too long";
        return std::nullopt;
    }
    request.msg_id = AT_MSG_ID_COMMAND;
    request.length = AT_MSG_LENGTH;
    request.magic = AT_MSG_MAGIC;
    request.at_id = ++last_id;
    request.timeout = seconds;
    request.text_length = static_cast<uint32_t>(line.size());
    std::memcpy(request.text, line.data(), line.size());

    std::unique_lock<std::mutex> hold(box.lock);
    box.awaited = request.at_id;
    box.answer.reset();
    sockmsg_record record;
    std::memcpy(&record, &request, sizeof record);
    if (sockmsg_send_common_msg(AT_MODULE_ID, &record) != 0) {
        why = "nobody owns the modem's port";
        return std::nullopt;
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds + grace);
    if (!box.arrived.wait_until(hold, deadline, [&box] { return box.answer.has_value(); })) {
        why = "the modem does not answer";
        return std::nullopt;
    }
    return box.answer;
}

} // namespace sms_client
