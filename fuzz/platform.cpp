#include "platform.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "MTKT750/mtkt750_sms_init.h"
#include "cfg.h"
#include "commlog.h"
#include "devinfo.h"
#include "dv_sms_mgr.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_paths.h"
#include "dv_sms_mgr_receive.h"
#include "dv_sms_mgr_utils.h"
#include "flag.h"
#include "must.h"
#include "scratch.h"
#include "util.h"

namespace platform
{

std::map<std::string, std::string, std::less<>> cfg, flags;
bool formats = true;
std::map<int, std::string> devinfo;
std::deque<answer> answers;
std::vector<std::string> commands;

static thread_local bool inside; /* the daemon's code runs on this thread */
static at_request asked;         /* the last command, not answered yet */

running::running()
{
    inside = true;
}

running::~running()
{
    inside = false;
}

sockmsg_record make_record(uint32_t msg_id, const std::string &payload, char pad)
{
    sockmsg_record record = {};
    const size_t length = payload.size() < sizeof record.payload ? payload.size() : sizeof record.payload;

    record.msg_id = msg_id;
    record.length = sizeof record.payload;
    record.sender_module_id = 40;
    memset(record.payload, pad, sizeof record.payload);
    memcpy(record.payload, payload.data(), length);
    return record;
}

sockmsg_record make_indication(const std::string &text, bool genuine)
{
    std::string payload(offsetof(at_indication, text) - offsetof(at_indication, magic), '\0');
    const uint32_t magic = genuine ? uint32_t{AT_MSG_MAGIC} : ~uint32_t{AT_MSG_MAGIC};

    memcpy(payload.data(), &magic, sizeof magic);
    return make_record(AT_MSG_ID_INDICATION, payload + text);
}

void reset()
{
    cfg = {{"SYS_SMS_SW", "1"}, {"SYS_SMS_MAX_SAVE_SIZE", "100"}};
    flags = {{"SMS_CSCA", "+31653131313"}};
    devinfo = {{DEVINFO_SIM_READY, "1"}, {DEVINFO_NETWORK_STATE, "5G"}};
    answers.clear();
    commands.clear();
    formats = true;
    sms_enabled = 1;
    debug_mode = 0;
    at_err_log_enable = 1;
    if (g_sms_send_head == nullptr)
        must((g_sms_send_head = list_create()) != nullptr);
    if (sms_index_queue.slots == nullptr)
        must(init_queue() == 0);
    if (sms_pdu_queue.slots == nullptr)
        must(init_pdu_queue() == 0);
}

void forget_messages()
{
    sockmsg_record record;
    uint32_t index;
    char pdu[2];

    while (list_pop(g_sms_send_head, &record) == 1)
        ;
    while (util_dequeue(&index) == 0)
        ;
    while (util_dequeue_pdu(pdu, sizeof pdu) == 0)
        ;
    while (sms_part_head != nullptr) {
        sms_part_node *next = sms_part_head->next;
        free(sms_part_head);
        sms_part_head = next;
    }
}

/* What a modem in order says. */
static answer healthy(const std::string &command)
{
    static const struct {
        const char *command, *lines;
    } known[] = {
        {"AT+CMGF?", "\r\n+CMGF: 0\r\n"},
        {"AT+CNMI?", "\r\n+CNMI: 3,2,0,0,0\r\n"},
        {"AT+CPMS?", "\r\n+CPMS: \"SM\",1,50,\"SM\",1,50,\"SM\",1,50\r\n"},
        {"AT+CSCS?", "\r\n+CSCS: \"IRA\"\r\n"},
        {"AT+CSCA?", "\r\n+CSCA: \"+31653131313\",145\r\n"},
        {"AT+CMGR=", "\r\n+CMGR: 0,,23\r\n00040B911316325476F800004230504170000002E834\r\n"},
    };
    for (const auto &each : known)
        if (command.starts_with(each.command))
            return {answer::ok, std::string(each.lines) + "\r\nOK\r\n", 0, {}};
    return {answer::ok, "\r\nOK\r\n", 0, {}};
}

/* Delivers the next answer through the bus handler. false: the modem keeps silent. */
static bool deliver_answer()
{
    at_response response = {};
    sockmsg_record record;
    answer next;

    if (answers.empty()) {
        next = healthy(asked.text);
    } else {
        next = answers.front();
        answers.pop_front();
    }
    if (next.kind == answer::silent)
        return false;
    response.msg_id = AT_MSG_ID_COMMAND;
    response.magic = AT_MSG_MAGIC;
    response.at_id = next.kind == answer::stray ? asked.at_id + 1 : asked.at_id;
    response.error_code = next.kind == answer::fails ? next.error_code : 0;
    memcpy(response.text, next.text.data(), std::min(next.text.size(), sizeof response.text));
    memcpy(response.error_detail, next.error_detail.data(),
           std::min(next.error_detail.size(), sizeof response.error_detail));
    memcpy(&record, &response, sizeof record);
    must(dv_sms_mgr_handler(&record) == 0);
    return true;
}

/* A value as the router's libraries may give it: all of `size`, without a terminator. */
static int give(const std::string *value, char *buffer, int size)
{
    if (value == nullptr)
        return -1;
    const size_t length = std::min(value->size(), static_cast<size_t>(size));

    memcpy(buffer, value->data(), length);
    if (length < static_cast<size_t>(size))
        buffer[length] = '\0';
    return 0;
}

template <class Map, class Key> static const std::string *find(const Map &in, const Key &key)
{
    const auto found = in.find(key);
    return found == in.end() ? nullptr : &found->second;
}

/* What the daemon names lies in the store, and nowhere else. */
static void must_be_in_store(const char *path)
{
    const size_t root = strlen(dv_sms_root);

    must(strncmp(path, dv_sms_root, root) == 0 && path[root] == '/');
    for (const char *part = path; part != nullptr; part = strchr(part + 1, '/'))
        must(strncmp(part, "/..", 3) != 0 || (part[3] != '\0' && part[3] != '/'));
}

/* The messages of a box, in the order of their numbers. */
static std::vector<int> numbers_in(const std::string &directory)
{
    std::vector<int> numbers;
    DIR *dir = opendir(directory.c_str());

    if (dir == nullptr)
        return numbers;
    while (const dirent *entry = readdir(dir))
        if (entry->d_type == DT_REG)
            numbers.push_back(static_cast<int>(strtol(entry->d_name, nullptr, 10)));
    closedir(dir);
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

/* The three commands that the daemon has a shell carry out, done without one. */
static std::string run(const std::string &command)
{
    static const std::string list = "ls -tr ", count = "ls -lR ", remove = "rm ", make = "mkdir -p ";
    std::string out;

    if (command.starts_with(list)) {
        const std::string directory = command.substr(list.size(), command.find(" |") - list.size());
        long left = strtol(command.c_str() + command.rfind(' '), nullptr, 10);
        for (const int number : numbers_in(directory))
            if (left-- > 0)
                out += std::to_string(number) + "\n";
    } else if (command.starts_with(count)) {
        const std::string directory = command.substr(count.size(), command.find(" |") - count.size());
        out = std::to_string(scratch::files_in(directory)) + "\n";
    } else if (command.starts_with(remove)) {
        must(command.ends_with("/*"));
        const std::string directory = command.substr(remove.size(), command.size() - remove.size() - 2);
        for (const int number : numbers_in(directory))
            unlink((directory + "/" + std::to_string(number)).c_str());
    } else {
        must(command.starts_with(make));
    }
    return out;
}

} // namespace platform

using namespace platform;

extern "C" {

/* --- the platform's libraries --- */

int init_log_params(const char *)
{
    return 0;
}

/* Whatever is printed is read. */
void savelog(int, const char *format, ...)
{
    static char line[512];
    va_list arguments;

    if (!formats)
        return;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
}

void reset_libcommlog_level() {}

int init_sockmsg(int, sockmsg_handler, int)
{
    return 0;
}

int sockmsg_send_common_msg(int module_id, const sockmsg_record *record)
{
    must(module_id == AT_MODULE_ID && record->msg_id == AT_MSG_ID_COMMAND);
    memcpy(&asked, record, sizeof asked);
    must(memchr(asked.text, '\0', sizeof asked.text) != nullptr);
    must(asked.text_length == strlen(asked.text));
    /* One command a line: nothing that a stranger sends may start another. */
    must(asked.text_length > 0 && strchr(asked.text, '\r') == asked.text + asked.text_length - 1);
    commands.emplace_back(asked.text);
    return 0;
}

const char *get_app_name_by_id(int module_id)
{
    return module_id == AT_MODULE_ID ? "at" : nullptr;
}

int cfg_get_item(const char *key, char *buffer, int size)
{
    return give(find(cfg, key), buffer, size);
}

int get_CFG_int(const char *key)
{
    const std::string *value = find(cfg, key);
    return value == nullptr ? 0 : static_cast<int>(strtol(value->c_str(), nullptr, 10));
}

int flag_get_item(const char *name, char *buffer, int size)
{
    return give(find(flags, name), buffer, size);
}

int flag_set(const char *name, const char *value)
{
    flags[name] = value;
    return 0;
}

int get_devinfo_value_by_id(int id, char *buffer, int size)
{
    return give(find(devinfo, id), buffer, size);
}

int set_devinfo_value_by_id(int id, const char *value, int length)
{
    must(length >= 0 && strlen(value) >= static_cast<size_t>(length));
    devinfo[id] = std::string(value, static_cast<size_t>(length));
    return 0;
}

int cmd_cat(const char *path, char *buffer, int size)
{
    must_be_in_store(path);
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return -1;
    const ssize_t got = read(fd, buffer, static_cast<size_t>(size));
    close(fd);
    if (got >= 0 && got < size)
        buffer[got] = '\0';
    return 0;
}

int cmd_echo(const char *text, const char *path)
{
    must_be_in_store(path);
    const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0)
        return -1;
    const ssize_t put = write(fd, text, strlen(text));
    close(fd);
    return put < 0 ? -1 : 0;
}

int cmd_rm(const char *path)
{
    must_be_in_store(path);
    return unlink(path);
}

int util_shell(const char *command)
{
    platform::run(command);
    return 0;
}

int util_get_cmd_result(const char *command, char *buffer, int size)
{
    const std::string result = platform::run(command);
    return give(&result, buffer, size);
}

/* --- what the daemon asks of the system --- */

unsigned __real_sleep(unsigned seconds);
void __real_sync();
int __real_statfs(const char *path, struct statfs *out);
FILE *__real_fopen(const char *path, const char *mode);
int __real_pthread_cond_timedwait(pthread_cond_t *cond, pthread_mutex_t *mutex, const timespec *deadline);

unsigned __wrap_sleep(unsigned seconds);
void __wrap_sync();
int __wrap_statfs(const char *path, struct statfs *out);
FILE *__wrap_fopen(const char *path, const char *mode);
int __wrap_pthread_cond_timedwait(pthread_cond_t *cond, pthread_mutex_t *mutex, const timespec *deadline);

unsigned __wrap_sleep(unsigned seconds)
{
    return inside ? 0 : __real_sleep(seconds);
}

void __wrap_sync()
{
    if (!inside)
        __real_sync();
}

int __wrap_statfs(const char *path, struct statfs *out)
{
    if (!inside)
        return __real_statfs(path, out);
    *out = {};
    out->f_bsize = 4096;
    out->f_bavail = 1 << 20;
    return 0;
}

FILE *__wrap_fopen(const char *path, const char *mode)
{
    if (inside && path[0] != '/') /* the fuzzer's own are absolute */
        must_be_in_store(path);
    return __real_fopen(path, mode);
}

/* The answer comes as soon as it is awaited, on the one thread that there is. */
int __wrap_pthread_cond_timedwait(pthread_cond_t *cond, pthread_mutex_t *mutex, const timespec *deadline)
{
    if (!inside)
        return __real_pthread_cond_timedwait(cond, mutex, deadline);
    must(mutex == &at_lock);
    pthread_mutex_unlock(mutex);
    const bool delivered = deliver_answer();
    pthread_mutex_lock(mutex);
    return delivered ? 0 : ETIMEDOUT;
}

} /* extern "C" */
