/* A program on the bus for the tests.
 *
 * bus_peer MODULE HANDLER    joins and prints "joined RESULT"; ends when joining failed or its input does
 *   HANDLER: print    a line "record MSG_ID SENDER EXTRA CHECKSUM" for each record
 *            count    nothing for each; "count" answers
 *            hold     like print, but each record waits for "go", after which nothing is held any more
 *            none     a null handler
 *
 * Commands on standard input, one a line:
 *   send MODULE MSG_ID EXTRA    prints "sent RESULT"
 *   go
 *   count                       prints "count RECORDS IN_ORDER OVERLAPS" (IN_ORDER: ids 0, 1, 2... so far)
 *   join MODULE                 prints "joined RESULT"
 *   run COMMAND                 prints what the library's shell gives back, of at most 200 characters */
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "sockmsg.h"
#include "util.h"

static std::mutex g_lock;
static std::condition_variable g_change;
static bool g_held = true;
static unsigned g_records, g_in_order;
static std::atomic<int> g_inside{0};
static std::atomic<unsigned> g_overlaps{0};

static unsigned checksum(const sockmsg_record *record)
{
    unsigned sum = record->reserved * 31 + record->length;

    for (const uint8_t byte : record->payload)
        sum = sum * 31 + byte;
    return sum;
}

static int print(sockmsg_record *record)
{
    printf("record %u %u %u %u\n", record->msg_id, record->sender_module_id, record->sender_extra, checksum(record));
    memset(record, 0xEE, sizeof *record); /* it is the library's, and harmless to spoil during the call */
    return 0;
}

static int hold(sockmsg_record *record)
{
    std::unique_lock<std::mutex> lock(g_lock);

    puts("holding");
    g_change.wait(lock, [] { return !g_held; });
    return print(record);
}

static int count(sockmsg_record *record)
{
    if (g_inside.fetch_add(1) != 0)
        g_overlaps++;
    {
        std::lock_guard<std::mutex> lock(g_lock);
        g_in_order += record->msg_id == g_in_order ? 1 : 0;
        g_records++;
    }
    g_inside--;
    return 1; /* means nothing */
}

static void obey(const char *command)
{
    unsigned module = 0, id = 0, extra = 0;

    if (sscanf(command, "send %u %u %u", &module, &id, &extra) == 3) {
        sockmsg_record record = {};
        record.msg_id = id;
        record.sender_module_id = 999;
        record.sender_extra = extra;
        printf("sent %d\n", sockmsg_send_common_msg(static_cast<int>(module), &record));
    } else if (sscanf(command, "join %u", &module) == 1) {
        printf("joined %d\n", init_sockmsg(static_cast<int>(module), print, 0));
    } else if (strncmp(command, "run ", 4) == 0) {
        char output[200 + 1] = {};
        util_get_cmd_result(command + 4, output, 200);
        printf("%s", output);
    } else if (strncmp(command, "go", 2) == 0) {
        std::lock_guard<std::mutex> lock(g_lock);
        g_held = false;
        g_change.notify_all();
    } else if (strncmp(command, "count", 5) == 0) {
        std::lock_guard<std::mutex> lock(g_lock);
        printf("count %u %u %u\n", g_records, g_in_order, g_overlaps.load());
    }
}

int main(int argc, char **argv)
{
    static constexpr struct {
        const char *name;
        sockmsg_handler handler;
    } handlers[] = {{"print", print}, {"count", count}, {"hold", hold}, {"none", nullptr}};
    char command[256];

    if (argc != 3)
        return 2;
    setvbuf(stdout, nullptr, _IOLBF, 0);
    for (const auto &h : handlers) {
        if (strcmp(argv[2], h.name) != 0)
            continue;
        const int result = init_sockmsg(atoi(argv[1]), h.handler, 0);
        printf("joined %d\n", result);
        if (result != 0)
            return 1;
    }
    while (fgets(command, sizeof command, stdin))
        obey(command);
    return 0;
}
