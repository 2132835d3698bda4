#include "MTKT750/mtkt750_sms_init.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "cfg.h"
#include "devinfo.h"
#include "dv_sms_mgr.h"
#include "dv_sms_mgr_lock.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_paths.h"
#include "dv_sms_mgr_receive.h"
#include "dv_sms_mgr_text.h"
#include "dv_sms_mgr_utils.h"
#include "flag.h"
#include "util.h"

std::atomic<uint8_t> at_err_log_enable{1};

/* An error of an init step: seen whether tracing or not, unless it is the same failure again. */
#define INIT_ERROR_IN(function, format, ...)                                                                           \
    do {                                                                                                               \
        if (at_err_log_enable) {                                                                                       \
            DV_PRINT_IN(function, format __VA_OPT__(, ) __VA_ARGS__);                                                  \
            DV_SAVE_IN(function, format __VA_OPT__(, ) __VA_ARGS__);                                                   \
        }                                                                                                              \
    } while (0)
#define INIT_ERROR(format, ...) INIT_ERROR_IN(__func__, format __VA_OPT__(, ) __VA_ARGS__)

/* What a step reads: seen on standard output under the same rule. */
#define INIT_PRINT_IN(function, format, ...)                                                                           \
    do {                                                                                                               \
        if (at_err_log_enable)                                                                                         \
            DV_PRINT_IN(function, format __VA_OPT__(, ) __VA_ARGS__);                                                  \
    } while (0)

/* --- one exchange with the modem --- */

enum { REPLY_SIZE = 128 };

struct exchange {
    const char *command;
    const char *not_sent;           /* reported when there is no answer */
    const char *not_ok;             /* reported when the answer is not OK */
    const char *print_as = nullptr; /* the reply is printed under this name */
};

/* 0: the reply holds an OK; -1: reported in the step's name. */
static int ask(const char *step, char (&reply)[REPLY_SIZE], const exchange &with)
{
    if (dv_sms_mgr_send_at(AT_TIMEOUT, reply, REPLY_SIZE, "%s", with.command) != 0) {
        INIT_ERROR_IN(step, "%s", with.not_sent);
        return -1;
    }
    if (with.print_as != nullptr)
        INIT_PRINT_IN(step, "%s : %s", with.print_as, reply);
    if (strstr(reply, "\r\nOK\r\n") == nullptr) {
        INIT_ERROR_IN(step, "%s", with.not_ok);
        return -1;
    }
    return 0;
}

static void clear_reply(char (&reply)[REPLY_SIZE])
{
    memset(reply, 0, REPLY_SIZE);
}

/* --- the steps --- */

int init_at_cmgf()
{
    char reply[REPLY_SIZE] = {};

    if (ask(__func__, reply, {"AT+CMGF?\r", "send at+cmgf? error", "inquire cmgf failed"}) != 0)
        return -1;
    if (strstr(reply, "+CMGF: 0") == nullptr) {
        clear_reply(reply);
        if (ask(__func__, reply, {"AT+CMGF=0\r", "send at+cmgf=0 error", "set at+cmgf=0 failed"}) != 0)
            return -1;
    }
    DV_TRACE("init_at_cmgf succ!");
    return 0;
}

int init_at_cnmi()
{
    char reply[REPLY_SIZE] = {};

    if (ask(__func__, reply, {"AT+CNMI?\r", "send at+cnmi? error", "inquire cnmi failed", "AT+CNMI?"}) != 0)
        return -1;
    if (strstr(reply, "+CNMI: 3,2,0,0,0") == nullptr) {
        clear_reply(reply);
        if (ask(__func__, reply,
                {"AT+CNMI=3,2,0,0,0\r", "send at+cnmi=3,2,0,0,0 error", "set at+cnmi=3,2,0,0,0 failed"}) != 0)
            return -1;
    }
    DV_TRACE("init_at_cnmi succ!");
    return 0;
}

/* Storages "SM",used,total ... of the reply's first three pieces between commas. */
int sim_sms_is_full(const char *reply, int *total)
{
    char text[REPLY_SIZE];
    char *rest = nullptr;

    if (reply == nullptr) {
        DV_TRACE("cpms_recv_data is NULL");
        return 0;
    }
    copy_text(text, reply);
    strtok_r(text, ",", &rest);
    const char *used_text = strtok_r(nullptr, ",", &rest);
    const char *total_text = strtok_r(nullptr, ",", &rest);

    if (used_text == nullptr || total_text == nullptr)
        return 0;
    const char *blank = strchr(used_text, ' ');

    if (blank != nullptr)
        used_text = blank + 1;
    if (strchr(total_text, ' ') != nullptr)
        total_text++;
    DV_TRACE("used : %s , total : %s", used_text, total_text);
    if (strcmp(used_text, total_text) != 0)
        return 0;
    *total = static_cast<int>(strtol(total_text, nullptr, 10));
    DV_TRACE("sim sms is full");
    return 1;
}

/* Takes messages off a full SIM until one has made room. 0; -1: none could be taken. */
static int relieve_sim(int total)
{
    int result = CMTI_FAILED;

    for (int index = 1; index <= total && result != CMTI_FILED; index++)
        result = dv_sms_mgr_receive_sms_by_cmti(static_cast<uint32_t>(index));
    if (result != CMTI_FILED) {
        DV_TRACE_IN("init_sim_cpms", "can't take sms by cmti ret: %d", result);
        return -1;
    }
    INIT_ERROR_IN("init_sim_cpms", "sms already full, please delete sim sms, otherwise can not recvive sms");
    return 0;
}

int init_sim_cpms()
{
    static constexpr int tries_allowed = 2;
    char reply[REPLY_SIZE] = {};
    int tries = 0;
    int total = 0;

    if (ask(__func__, reply, {"AT+CPMS?\r", "send at+cpms? error", "inquire cpms failed"}) != 0)
        return -1;
    while (strstr(reply, "+CPMS: \"SM\"") == nullptr && tries <= tries_allowed) {
        clear_reply(reply);
        if (ask(__func__, reply, {"AT+CPMS=\"SM\"\r", "send at+cpms=\"SM\" error", "set at+cpms=\"SM\" failed"}) != 0)
            return -1;
        clear_reply(reply);
        if (ask(__func__, reply, {"AT+CPMS?\r", "second send at+cpms? error", "second inquire cpms failed"}) != 0)
            return -1;
        tries++;
    }
    if (tries > tries_allowed) {
        INIT_ERROR("init_sim_cpms failed %d times, just give up", tries);
        return -1;
    }
    if (sim_sms_is_full(reply, &total) && relieve_sim(total) != 0)
        return -1;
    DV_TRACE("init_sim_cpms succ!");
    return 0;
}

/* Keeps the number between the reply's first two quotes in the flag store. */
static void cache_service_centre(const char *reply)
{
    char value[16] = {};
    char text[32];
    const char *opening = strchr(reply, '"');

    if (opening == nullptr)
        return;
    copy_text(text, opening + 1);
    char *closing = strchr(text, '"');

    if (closing == nullptr)
        return;
    *closing = '\0';
    copy_text(value, text);
    flag_set(SMS_CSCA_FLAG, value);
}

int init_sim_csca()
{
    char reply[REPLY_SIZE] = {};
    char cached[16 + 1] = {};

    if (ask(__func__, reply, {"AT+CSCS?\r", "send at+cscs? error", "inquire cscs failed"}) != 0)
        return -1;
    if (strstr(reply, "+CSCS: \"IRA\"") == nullptr) { /* the reply is not cleared, kept on purpose */
        if (ask(__func__, reply, {"AT+CSCS=\"IRA\"\r", "send at+cscs=\"IRA\" error", "set cscs=\"IRA\" failed"}) != 0)
            return -1;
    }
    flag_get_item(SMS_CSCA_FLAG, cached, 16);
    INIT_PRINT_IN(__func__, "cfg_csca : %s", cached);
    if (cached[0] == '\0') {
        clear_reply(reply);
        if (ask(__func__, reply, {"AT+CSCA?\r", "send at+csca? error", "inquire csca failed"}) != 0)
            return -1;
        cache_service_centre(reply);
    }
    DV_TRACE("init_sim_csca succ!");
    return 0;
}

/* --- the store at start --- */

enum { CAPACITY_TEXT_SIZE = 6, SHORT_READ_SIZE = 6, COMMAND_SIZE = 256 };

static void rebuild_index(const dv_sms_box &box, const char *capacity)
{
    char command[COMMAND_SIZE];
    char names[4096 + 1] = {};
    char index[sizeof names + 1];

    snprintf(command, sizeof command, "ls -tr %s |head -n %s", box.dir, capacity);
    util_get_cmd_result(command, names, 4096);
    for (char *end = names; (end = strpbrk(end, "\r\n")) != nullptr;)
        *end = ' ';
    snprintf(index, sizeof index, " %s", names);
    cmd_echo(index, box.index);
    sync();
}

void rebuild_sms_index()
{
    char capacity[CAPACITY_TEXT_SIZE + 1] = {};

    if (!path_exists(dv_sms_root))
        return;
    cfg_get_item("SYS_SMS_MAX_SAVE_SIZE", capacity, CAPACITY_TEXT_SIZE);
    locked hold(&sms_store_lock);
    for (const dv_sms_box &box : dv_sms_boxes)
        if (path_exists(box.dir) && !path_exists(box.index))
            rebuild_index(box, capacity);
}

/* Counts the box's files and sets its flag. The count. */
static int check_box(const dv_sms_box &box, const char *capacity)
{
    char command[COMMAND_SIZE];
    char count[SHORT_READ_SIZE + 1] = {};

    snprintf(command, sizeof command, "ls -lR %s | grep \"^-\" | wc -l", box.dir);
    util_get_cmd_result(command, count, SHORT_READ_SIZE);
    if (strncmp(count, capacity, strlen(capacity)) == 0) /* a prefix, kept on purpose */
        set_devinfo_value_by_id(box.full_id, "1", 1);
    return static_cast<int>(strtol(count, nullptr, 10));
}

/* Reads the first characters of a received message. 1: unread; 0: not, or not there; -1: no record. */
static int read_state(int number)
{
    char path[SMS_PATH_SIZE];
    char start[SHORT_READ_SIZE + 1] = {};

    snprintf(path, sizeof path, "%s/%d", dv_sms_boxes[BOX_RECEIVED].dir, number);
    FILE *file = open_unbuffered(path, "r");
    if (file == nullptr)
        return 0;
    start[fread(start, 1, SHORT_READ_SIZE, file)] = '\0';
    fclose(file);
    const char *blank = strchr(start, ' ');

    if (blank == nullptr || blank[1] == '\0')
        return -1;
    return blank[1] == '0';
}

static void count_one_more()
{
    char count[SHORT_READ_SIZE + 1] = {};

    cmd_cat(dv_sms_unread_path, count, SHORT_READ_SIZE);
    write_file_fmt(dv_sms_unread_path, "w", "%d", static_cast<int>(strtol(count, nullptr, 10)) + 1);
}

/* Recounts the unread messages numbered up to one more than there are files. */
static void recount_unread(int files)
{
    bool any = false;

    for (int number = 1; number <= files + 1; number++) {
        const int state = read_state(number);

        if (state < 0)
            continue;
        if (state == 1) {
            count_one_more();
            any = true;
        }
        sync();
    }
    if (any)
        set_devinfo_value_by_id(DEVINFO_SMS_UNREAD, "1", 1);
}

void init_sms_box_state()
{
    static constexpr int cleared[] = {DEVINFO_SMS_UNREAD, DEVINFO_SMS_SENT_FULL, DEVINFO_SMS_DRAFT_FULL,
                                      DEVINFO_SMS_RECEIVED_FULL};
    static constexpr int order[] = {BOX_SENT, BOX_DRAFT, BOX_RECEIVED};
    char capacity[CAPACITY_TEXT_SIZE + 1] = {};

    locked hold(&sms_store_lock);
    for (int id : cleared)
        set_devinfo_value_by_id(id, "0", 1);
    write_file_fmt(dv_sms_unread_path, "w", "0");
    cfg_get_item("SYS_SMS_MAX_SAVE_SIZE", capacity, CAPACITY_TEXT_SIZE);
    for (int id : order) {
        const dv_sms_box &box = dv_sms_boxes[id];

        if (!path_exists(box.dir))
            continue;
        const int files = check_box(box, capacity);

        if (id == BOX_RECEIVED)
            recount_unread(files);
    }
}

/* --- start-up --- */

int init_queue()
{
    sms_index_queue.slots = static_cast<uint32_t *>(calloc(SMS_RING_SIZE, sizeof(uint32_t)));
    sms_index_queue.read = sms_index_queue.write = sms_index_queue.count = 0;
    if (sms_index_queue.slots == nullptr) {
        DV_EVENT("init_queue failed");
        return -1;
    }
    return 0;
}

int init_pdu_queue()
{
    sms_pdu_queue.slots = static_cast<char **>(calloc(SMS_RING_SIZE, sizeof(char *)));
    sms_pdu_queue.read = sms_pdu_queue.write = sms_pdu_queue.count = 0;
    if (sms_pdu_queue.slots == nullptr) {
        DV_EVENT("init_pdu_queue failed");
        return -1;
    }
    return 0;
}

static void wait_for_sim()
{
    char ready[4 + 1];

    do {
        memset(ready, 0, sizeof ready);
        get_devinfo_value_by_id(DEVINFO_SIM_READY, ready, 4);
        sleep(1);
    } while (strcmp(ready, "1") != 0);
}

static constexpr int (*init_list[])() = {init_at_cmgf, init_at_cnmi, init_sim_cpms, init_sim_csca};

/* Four tries a second apart, then one every ten seconds, for each step until it succeeds. */
static void run_init_list()
{
    static constexpr int quick_tries = 4, slow_round = 14;
    int failures = 0;

    for (int step = 0; step < static_cast<int>(sizeof init_list / sizeof init_list[0]);) {
        int status = -1;

        if (failures < quick_tries) {
            status = init_list[step]();
        } else {
            INIT_ERROR_IN("dv_sms_mgr_init",
                          "sms init_list[%d] send at fail %d times. From then on, send at command every 10 seconds",
                          step, failures);
            at_err_log_enable = 0;
            if (failures % slow_round == 0) {
                status = init_list[step]();
                failures = quick_tries;
            }
        }
        if (status == 0) {
            at_err_log_enable = 1;
            failures = 0;
            step++;
        } else {
            failures++;
            sleep(1);
        }
    }
}

int dv_sms_mgr_init()
{
    dv_sms_mgr_clear_at_response();
    wait_for_sim();
    if (init_queue() != 0 || init_pdu_queue() != 0)
        return -1;
    rebuild_sms_index();
    init_sms_box_state();
    run_init_list();
    return 0;
}
