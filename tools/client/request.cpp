#include "request.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "devinfo.h"
#include "modem_line.h"
#include "sockmsg.h"
#include "text.h"
#include "values.h"

namespace sms_client
{
namespace
{

using clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds look_interval{10};
constexpr std::chrono::seconds leaving_time{5};

int take_record(sockmsg_record *record)
{
    if (record != nullptr)
        take_modem_answer(*record);
    return 0;
}

template <size_t Size> void copy_text(char (&out)[Size], const std::string &text)
{
    std::memcpy(out, text.data(), std::min(text.size(), Size - 1));
}

int clear_flags()
{
    const int error = set_flag(DV_SMS_MGR_LAST_RECEIVED_MSG, "");
    return error != 0 ? error : set_flag(DV_SMS_MGR_LAST_ERR_CODE, "");
}

} // namespace

void pause(std::chrono::milliseconds time)
{
    poll(nullptr, 0, static_cast<int>(time.count()));
}

std::string complaint_about_number(std::string_view number)
{
    std::string_view digits = number;
    if (digits.starts_with('+'))
        digits.remove_prefix(1);
    if (digits.empty())
        return "the number has no digits";
    if (digits.find_first_not_of("0123456789") != std::string_view::npos)
        return "a number is digits, with or without a + in front";
    if (digits.size() > most_digits)
        return "a number has at most " + std::to_string(most_digits) + " digits; this one has " +
               std::to_string(digits.size());
    return {};
}

std::string complaint_about_text(std::string_view text)
{
    if (text.empty())
        return "the text is empty";
    if (text.find('\0') != std::string_view::npos)
        return "the text holds a NUL character";
    if (!is_utf8(text))
        return "the text is not UTF-8";
    if (text.size() > most_text)
        return "a text has at most " + std::to_string(most_text) + " bytes; this one has " +
               std::to_string(text.size());
    return {};
}

sms_payload make_payload(const std::string &number, const std::string &text)
{
    sms_payload out{};
    copy_text(out.phone, number);
    copy_text(out.text, text);
    return out;
}

turn::turn(std::chrono::milliseconds limit)
{
    const clock::time_point deadline = clock::now() + limit;
    const std::string path = platform_root() + "/.requests.lock";
    fd_ = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0660);
    struct stat folder {
    };
    if (fd_ >= 0 && stat(platform_root().c_str(), &folder) == 0) { /* not allowed: it is another's, and good already */
        (void)!fchown(fd_, static_cast<uid_t>(-1), folder.st_gid);
        (void)fchmod(fd_, 0660);
    }
    taken_ = fd_ < 0;
    while (!taken_) {
        taken_ = flock(fd_, LOCK_EX | LOCK_NB) == 0;
        if (!taken_ && clock::now() >= deadline)
            return;
        if (!taken_)
            pause(look_interval);
    }
}

turn::~turn()
{
    if (fd_ >= 0)
        close(fd_);
}

bool requester::join(std::string &why)
{
    const clock::time_point deadline = clock::now() + leaving_time;
    while (is_module_there(module_id_) && clock::now() < deadline)
        pause(look_interval);
    const int error = init_sockmsg(module_id_, take_record, 0);
    if (error != 0)
        why = "cannot join the bus as module " + std::to_string(module_id_) + ": " + std::strerror(error);
    return error == 0;
}

result requester::send(uint32_t msg_id, const void *payload, size_t size) const
{
    sockmsg_record record{};
    record.msg_id = msg_id;
    record.length = static_cast<uint32_t>(sizeof record.payload);
    std::memcpy(record.payload, payload, std::min(size, sizeof record.payload));
    const int error = sockmsg_send_common_msg(SMS_MGR_MODULE_ID, &record);
    if (error == 0)
        return {outcome::done, {}};
    return {outcome::not_running, error == ECONNREFUSED ? "the SMS manager is not running" : std::strerror(error)};
}

result requester::tell(uint32_t msg_id, std::string_view text) const
{
    return send(msg_id, text.data(), text.size());
}

result requester::ask(uint32_t msg_id, std::string_view text, const patience &limits) const
{
    return ask(msg_id, text.data(), text.size(), limits);
}

result requester::ask(uint32_t msg_id, const void *payload, size_t size, const patience &limits) const
{
    const std::string taken = std::to_string(module_id_) + "," + std::to_string(msg_id);
    if (const int error = clear_flags())
        return {outcome::not_running, std::string("the status flags cannot be cleared: ") + std::strerror(error)};
    const result sent = send(msg_id, payload, size);
    if (sent.what != outcome::done)
        return sent;

    clock::time_point deadline = clock::now() + limits.take;
    while (get_flag(DV_SMS_MGR_LAST_RECEIVED_MSG) != taken) {
        if (clock::now() >= deadline)
            return {outcome::not_taken, {}};
        pause(look_interval);
    }
    set_flag(DV_SMS_MGR_LAST_RECEIVED_MSG, "");

    deadline = clock::now() + limits.finish;
    std::optional<std::string> code;
    while (!(code = get_flag(DV_SMS_MGR_LAST_ERR_CODE))) {
        if (limits.progress && limits.progress())
            deadline = clock::now() + limits.finish;
        if (clock::now() >= deadline)
            return {outcome::unfinished, {}};
        pause(look_interval);
    }
    set_flag(DV_SMS_MGR_LAST_ERR_CODE, "");
    return {*code == "0" ? outcome::done : outcome::failed, *code};
}

/* Connecting to a datagram socket sends nothing, and fails where no process has it. */
bool is_module_there(int module_id)
{
    const std::string path = platform_root() + "/bus/" + std::to_string(module_id);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        return false;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    const bool there = connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    close(fd);
    return there;
}

std::string why_service_is_off()
{
    const auto first = [](const std::optional<std::string> &value) { return value ? value->front() : '\0'; };
    if (first(get_cfg("SYS_SMS_SW")) != '1')
        return "the message service is switched off (SYS_SMS_SW is not 1)";
    if (first(get_devinfo(DEVINFO_SIM_READY)) != '1')
        return "the SIM is not ready (item 301001 is not 1)";
    return {};
}

} // namespace sms_client
