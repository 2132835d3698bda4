#include "bus_side.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <mutex>
#include <string_view>
#include <unistd.h>
#include <utility>

#include "commlog.h"

namespace at_owner
{
namespace
{

/* How often a receiver without room is tried, which takes a tenth of a second each time: what the modem says once must
 * not be gone because the daemon stood still for a moment. */
constexpr int tries = 20;

/* Where the bus's thread leaves requests. It outlives main: that thread never ends. */
struct inbox {
    std::mutex lock;
    std::deque<request> waiting; /* guarded by lock */
    int wake[2] = {-1, -1};      /* set before the bus is joined */
};

inbox &requests()
{
    static auto &the_inbox = *new inbox;
    return the_inbox;
}

template <size_t Size> void copy_bytes(char (&out)[Size], std::string_view text)
{
    const size_t length = std::min(text.size(), Size - 1);
    std::memcpy(out, text.data(), length);
    std::memset(out + length, 0, Size - length);
}

request unpack(const at_request &record, int sender)
{
    const size_t terminated = strnlen(record.text, sizeof record.text);
    const size_t stated = record.text_length;
    request out;
    out.text.assign(record.text, stated > 0 && stated < terminated ? stated : terminated);
    out.at_id = record.at_id;
    out.timeout = record.timeout;
    out.module = sender;
    return out;
}

int take_record(sockmsg_record *record)
{
    at_request asked;
    if (record == nullptr)
        return -1;
    if (record->msg_id != AT_MSG_ID_COMMAND)
        return 0;
    std::memcpy(&asked, record, sizeof asked);
    const auto sender = static_cast<int>(record->sender_module_id);
    if (asked.magic != AT_MSG_MAGIC || sender <= 0) {
        savelog(0, "[at_owner] a request of module %d without its marker or sender is dropped", sender);
        return 0;
    }
    inbox &in = requests();
    const std::lock_guard<std::mutex> hold(in.lock);
    in.waiting.push_back(unpack(asked, sender));
    if (in.waiting.size() == 1)
        (void)!write(in.wake[1], "", 1);
    return 0;
}

} // namespace

bool bus_side::join()
{
    inbox &in = requests();
    if (pipe(in.wake) != 0)
        return false;
    for (const int fd : in.wake) {
        fcntl(fd, F_SETFD, FD_CLOEXEC);
        fcntl(fd, F_SETFL, O_NONBLOCK);
    }
    return init_sockmsg(AT_MODULE_ID, take_record, 0) == 0;
}

int bus_side::wake_fd() const
{
    return requests().wake[0];
}

std::vector<request> bus_side::take_requests()
{
    inbox &in = requests();
    char bytes[16];
    const std::lock_guard<std::mutex> hold(in.lock);
    while (read(in.wake[0], bytes, sizeof bytes) > 0) {
    }
    std::vector<request> out(std::make_move_iterator(in.waiting.begin()), std::make_move_iterator(in.waiting.end()));
    in.waiting.clear();
    return out;
}

void bus_side::send(int module, const void *record) const
{
    sockmsg_record copy;
    std::memcpy(&copy, record, sizeof copy);
    int error = ENOBUFS;
    for (int i = 0; i < tries && error == ENOBUFS; i++)
        error = sockmsg_send_common_msg(module, &copy);
    if (error != 0)
        savelog(0, "[at_owner] record 0x%04X does not reach module %d: %s", static_cast<unsigned>(copy.msg_id), module,
                std::strerror(error));
}

void bus_side::answer(const request &to, const std::string &text, int error_code, const std::string &detail) const
{
    at_response out{};
    out.msg_id = AT_MSG_ID_COMMAND;
    out.length = AT_MSG_LENGTH;
    out.magic = AT_MSG_MAGIC;
    out.at_id = to.at_id;
    copy_bytes(out.text, text);
    out.error_code = error_code;
    copy_bytes(out.error_detail, detail);
    send(to.module, &out);
}

void bus_side::indicate(const std::string &text) const
{
    at_indication out{};
    out.msg_id = AT_MSG_ID_INDICATION;
    out.length = AT_MSG_LENGTH;
    out.magic = AT_MSG_MAGIC;
    copy_bytes(out.text, text);
    for (const int module : notified_)
        send(module, &out);
}

void bus_side::notice(uint32_t msg_id) const
{
    at_indication out{};
    out.msg_id = msg_id;
    out.length = AT_MSG_LENGTH;
    out.magic = AT_MSG_MAGIC;
    for (const int module : notified_)
        send(module, &out);
}

} // namespace at_owner
