/* Another platform than the one for Linux: the least that keeps the daemon going, so that its own memory can be told
 * from that of the library it came with. Everything is configured, and a modem that needs nothing answers at once. */
#include <pthread.h>
#include <string.h>
#include <unistd.h>

#include "at_msg.h"
#include "cfg.h"
#include "commlog.h"
#include "devinfo.h"
#include "flag.h"
#include "sockmsg.h"
#include "util.h"

static sockmsg_handler handler;
static int ends[2]; /* of the pipe through which commands go to the modem's side */

struct known {
    const char *command, *answer;
};
static constexpr known modem[] = {
    {"AT+CMGF?", "\r\n+CMGF: 0\r\n\r\nOK\r\n"},
    {"AT+CNMI?", "\r\n+CNMI: 3,2,0,0,0\r\n\r\nOK\r\n"},
    {"AT+CPMS?", "\r\n+CPMS: \"SM\",0,50,\"SM\",0,50\r\n\r\nOK\r\n"},
    {"AT+CSCS?", "\r\n+CSCS: \"IRA\"\r\n\r\nOK\r\n"},
};

/* The bus's one thread, with the record that the library keeps for it. */
static void *serve(void *)
{
    static at_request request;
    static at_response response;

    while (read(ends[0], &request, sizeof request) == static_cast<ssize_t>(sizeof request)) {
        response = {};
        response.msg_id = AT_MSG_ID_COMMAND;
        response.at_id = request.at_id;
        strcpy(response.text, "\r\nOK\r\n");
        for (const known &each : modem)
            if (strncmp(request.text, each.command, strlen(each.command)) == 0)
                strcpy(response.text, each.answer);
        handler(reinterpret_cast<sockmsg_record *>(&response));
    }
    return nullptr;
}

extern "C" {

int init_sockmsg(int, sockmsg_handler given, int)
{
    pthread_t thread;

    handler = given;
    return pipe(ends) != 0 ? -1 : pthread_create(&thread, nullptr, serve, nullptr);
}

int sockmsg_send_common_msg(int, const sockmsg_record *record)
{
    return write(ends[1], record, sizeof *record) == static_cast<ssize_t>(sizeof *record) ? 0 : -1;
}

static int give(const char *value, char *buffer, int size)
{
    strncpy(buffer, value, static_cast<size_t>(size));
    return 0;
}

int cfg_get_item(const char *, char *buffer, int size)
{
    return give("1", buffer, size);
}

int get_CFG_int(const char *)
{
    return 0;
}

int flag_get_item(const char *, char *buffer, int size)
{
    return give("1", buffer, size);
}

int get_devinfo_value_by_id(int, char *buffer, int size)
{
    return give("1", buffer, size);
}

/* The one line that says that the daemon is idle now. */
void savelog(int, const char *format, ...)
{
    if (strstr(format, "init complete") != nullptr)
        (void)!write(STDOUT_FILENO, "init complete\n", 14);
}

int util_replace_with_new_string_ext(char *, int, const char *, const char *)
{
    return 0;
}
}
