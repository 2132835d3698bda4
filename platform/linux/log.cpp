/* The log: syslog and, when DV_PLATFORM_LOG names one, a file. One record, one line. */
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <forward_list>
#include <mutex>
#include <string>
#include <string_view>
#include <syslog.h>
#include <unistd.h>

#include "commlog.h"
#include "state.h"
#include "utf8.h"

using namespace dvplatform;

enum { TEXT_SIZE = 8192, TAG_LIMIT = 32, DEFAULT_LEVEL = 3, LEVEL_UNKNOWN = -1 };

static constexpr int syslog_priorities[] = {LOG_INFO, LOG_INFO, LOG_INFO, LOG_DEBUG}; /* by level */

static std::atomic<int> g_level{LEVEL_UNKNOWN};
static std::atomic<const char *> g_tag{nullptr};
static std::mutex g_tag_lock;
/* One line at a time, so that no thread's stack has to hold one. Taken before g_tag_lock. */
static std::mutex g_line_lock;

/* A line of bounded length that takes a character, or its escape, whole or not at all. */
struct line {
    size_t length;
    bool full;
    char text[TEXT_SIZE + 256]; /* the head of the line comes on top */

    void add(std::string_view piece)
    {
        full = full || piece.size() >= sizeof text - length; /* room for the line feed */
        if (full)
            return;
        memcpy(text + length, piece.data(), piece.size());
        length += piece.size();
    }
};

/* A tag, once named, stays where it is: syslog keeps the pointer. */
static const char *name_program(const char *tag)
{
    static auto &tags = *new std::forward_list<std::string>;
    std::lock_guard<std::mutex> hold(g_tag_lock);

    if (!tag && g_tag.load())
        return g_tag.load();
    std::string &copy = tags.emplace_front(tag ? tag : "dvplatform");
    copy.resize(utf8_cut(copy, TAG_LIMIT));
    std::replace_if(
        copy.begin(), copy.end(), [](char c) { return static_cast<unsigned char>(c) <= ' ' || c == 0x7F; }, '_');
    openlog(copy.c_str(), LOG_PID, LOG_DAEMON);
    g_tag = copy.c_str();
    return g_tag;
}

static int configured_level()
{
    std::string value;
    char *end = nullptr;

    if (read_file(state_path("cfg", "SYS_LOG_LEVEL").c_str(), 16, &value) != 0)
        return DEFAULT_LEVEL;
    const long level = strtol(value.c_str(), &end, 10);
    return end == value.c_str() ? DEFAULT_LEVEL : static_cast<int>(std::clamp(level, 0L, 1000L));
}

static bool is_control(std::string_view character) /* C0, DEL and C1 */
{
    const unsigned char first = static_cast<unsigned char>(character[0]);

    return first < ' ' || first == 0x7F || (first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0);
}

static void add_escaped(line *out, std::string_view text)
{
    while (!text.empty() && !out->full) {
        const size_t length = std::max<size_t>(utf8_length(text), 1);
        const std::string_view character = text.substr(0, length);
        char escape[16];
        if (character == "\n") {
            out->add("\\n");
        } else if (character == "\r") {
            out->add("\\r");
        } else if (utf8_length(text) > 0 && !is_control(character)) {
            out->add(character);
        } else {
            int escaped = 0;
            for (const char byte : character)
                escaped += snprintf(escape + escaped, sizeof escape - static_cast<size_t>(escaped), "\\x%02X",
                                    static_cast<unsigned char>(byte));
            out->add(escape);
        }
        text.remove_prefix(length);
    }
}

/* What vsnprintf left of a text of `wanted` bytes: no part of a character at a cut, no line feed at the end. */
static std::string_view formatted(const char (&text)[TEXT_SIZE], int wanted)
{
    std::string_view message = text;

    if (wanted < 0)
        return "(this line cannot be formatted)";
    if (static_cast<size_t>(wanted) >= TEXT_SIZE) {
        size_t start = message.size() - 1;
        while (start > message.size() - 4 && (static_cast<unsigned char>(message[start]) & 0xC0) == 0x80)
            start--;
        if (utf8_length(message.substr(start)) != message.size() - start)
            message = message.substr(0, start);
    } else if (!message.empty() && message.back() == '\n') {
        message.remove_suffix(1);
    }
    return message;
}

static void add_head(line *out, const char *tag, int level)
{
    struct timespec now = {};
    struct tm local = {};
    char head[160];

    clock_gettime(CLOCK_REALTIME, &now);
    localtime_r(&now.tv_sec, &local);
    strftime(head, sizeof head, "%Y-%m-%d %H:%M:%S", &local);
    out->add(head);
    snprintf(head, sizeof head, ".%03d %s[%ld] %d ", static_cast<int>(now.tv_nsec / 1000000), tag,
             static_cast<long>(getpid()), level);
    out->add(head);
}

/* One write, at the end of the file: lines of several processes never mix. A pipe that nobody
 * empties loses lines instead of stopping the program. */
static void append_to_file(const char *path, line *out)
{
    const int fd = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0640);

    if (fd < 0)
        return;
    out->text[out->length] = '\n'; /* add() kept the room */
    (void)!write(fd, out->text, out->length + 1);
    close(fd);
}

static bool wants_syslog()
{
    const char *choice = getenv("DV_PLATFORM_SYSLOG");

    return !choice || strcmp(choice, "0") != 0;
}

int init_log_params(const char *tag)
{
    if (!tag || *tag == '\0')
        return EINVAL;
    name_program(tag);
    reset_libcommlog_level();
    return 0;
}

void reset_libcommlog_level(void)
{
    g_level = configured_level();
}

void savelog(int level, const char *format, ...)
{
    const int saved_errno = errno;
    const char *path = getenv("DV_PLATFORM_LOG");

    if (!format)
        return;
    if (g_level == LEVEL_UNKNOWN)
        reset_libcommlog_level();
    level = std::max(level, 0);
    if (level > g_level) {
        errno = saved_errno;
        return;
    }

    std::lock_guard<std::mutex> hold(g_line_lock);
    static char text[TEXT_SIZE];
    static line out;
    va_list arguments;
    va_start(arguments, format);
    errno = saved_errno;
    const int wanted = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    const std::string_view message = formatted(text, wanted);
    const char *tag = name_program(nullptr);
    out.length = 0;
    out.full = false;
    add_head(&out, tag, level);
    const size_t head = out.length;
    add_escaped(&out, message);
    if (wants_syslog())
        syslog(LOG_DAEMON | syslog_priorities[std::min(level, 3)], "%.*s", static_cast<int>(out.length - head),
               out.text + head);
    if (path && *path)
        append_to_file(path, &out);
    errno = saved_errno;
}
