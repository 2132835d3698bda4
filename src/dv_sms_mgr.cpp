#include "dv_sms_mgr.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "MTKT750/mtkt750_sms.h"
#include "cfg.h"
#include "devinfo.h"
#include "dv_sms_mgr_generate.h"
#include "dv_sms_mgr_lock.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_paths.h"
#include "dv_sms_mgr_read.h"
#include "dv_sms_mgr_receive.h"
#include "dv_sms_mgr_send.h"
#include "dv_sms_mgr_text.h"
#include "dv_sms_mgr_utils.h"
#include "flag.h"

std::atomic<uint8_t> debug_mode{0};
std::atomic<uint8_t> sms_enabled{0};

pthread_mutex_t sms_send_lock;
pthread_cond_t sms_send_cond;
pthread_mutex_t at_lock;
pthread_condattr_t at_available_cond_attr;
pthread_cond_t at_available_cond;

/* --- status flags --- */

enum { FLAG_TRIES = 3 };

void dv_sms_mgr_update_last_msg_flag(uint32_t sender, uint32_t msg_id)
{
    char wanted[32] = {};

    snprintf(wanted, sizeof wanted, "%d,%d", static_cast<int>(sender), static_cast<int>(msg_id));
    for (int i = 0; i < FLAG_TRIES; i++) {
        char current[32 + 1] = {};

        memcpy(current, wanted, sizeof wanted); /* kept on purpose: a read that writes nothing counts as equal */
        flag_get_item(DV_SMS_MGR_LAST_RECEIVED_MSG, current, 32);
        if (current[0] == '\0')
            break;
        if (strcmp(current, wanted) == 0)
            return;
        DV_TRACE("flag already exist,wait for DV_SMS_MGR_LAST_RECEIVED_MSG flag clear..");
        sleep(1);
    }
    flag_set(DV_SMS_MGR_LAST_RECEIVED_MSG, wanted);
}

void dv_sms_mgr_update_last_err_code_flag(int code)
{
    char value[8 + 1] = "0";

    for (int i = 0; i < FLAG_TRIES; i++) {
        flag_get_item(DV_SMS_MGR_LAST_ERR_CODE, value, 8);
        if (value[0] == '\0')
            break;
        DV_TRACE("flag already exist (%s),wait for DV_SMS_MGR_LAST_ERR_CODE flag clear..", value);
        sleep(1);
    }
    memset(value, 0, sizeof value);
    snprintf(value, 8, "%d", code);
    flag_set(DV_SMS_MGR_LAST_ERR_CODE, value);
}

/* --- requests from the bus --- */

static constexpr char handler_name[] = "dv_sms_mgr_handler"; /* for whom the actions speak */

/* A payload as one terminated text. */
struct payload_text {
    char text[SOCKMSG_PAYLOAD_SIZE + 1];

    explicit payload_text(const sockmsg_record *record)
    {
        memcpy(text, record->payload, SOCKMSG_PAYLOAD_SIZE);
        text[SOCKMSG_PAYLOAD_SIZE] = '\0';
    }
};

static void note_request(const sockmsg_record *record)
{
    dv_sms_mgr_update_last_msg_flag(record->sender_module_id, record->msg_id);
}

static int take_send(const sockmsg_record *record)
{
    sms_fields fields;

    read_fields(&fields, record);
    note_request(record);
    DV_EVENT_IN(handler_name, "DV_SMS_MGR_MSG_ID_SEND_SMS phone: %s msg:%s", fields.phone, fields.text);
    push_sms_into_queue(record);
    return 0;
}

static int take_read(const sockmsg_record *record)
{
    const payload_text request(record);

    DV_TRACE_IN(handler_name, "DV_SMS_MGR_MSG_ID_READ_SMS:%s", request.text);
    note_request(record);
    dv_sms_mgr_read_recvive_sms(request.text);
    return 0;
}

static void delete_from(const sockmsg_record *record, const char *name, int box_id)
{
    const payload_text request(record);
    const dv_sms_box &box = dv_sms_boxes[box_id];

    DV_TRACE_IN(handler_name, "%s:%s", name, request.text);
    set_devinfo_value_by_id(box.full_id, "0", 1);
    note_request(record);
    dv_sms_mgr_delete_sms(request.text, box.dir, box.index);
}

static int take_delete_received(const sockmsg_record *record)
{
    delete_from(record, "DV_SMS_MGR_MSG_ID_DELETE_RECEIVE_SMS", BOX_RECEIVED);
    return 0;
}

static int take_delete_sent(const sockmsg_record *record)
{
    delete_from(record, "DV_SMS_MGR_MSG_ID_DELETE_SEND_SMS", BOX_SENT);
    return 0;
}

static int take_delete_draft(const sockmsg_record *record)
{
    delete_from(record, "DV_SMS_MGR_MSG_ID_DELETE_DRAFT_SMS", BOX_DRAFT);
    return 0;
}

static int take_generate(const sockmsg_record *record)
{
    DV_TRACE_IN(handler_name, "DV_SMS_MGR_MSG_ID_GENERATE_SMS");
    note_request(record);
    dv_sms_mgr_generate();
    return 0;
}

static int take_notice(const sockmsg_record *)
{
    DV_TRACE_IN(handler_name, "DV_SMS_MGR_MSG_ID_FLOW_CONTROL_SMS");
    dv_sms_mgr_send_flow_control_notice();
    return 0;
}

static int take_draft(const sockmsg_record *record)
{
    sms_fields fields;

    read_fields(&fields, record);
    note_request(record);
    DV_TRACE_IN(handler_name, "DV_SMS_MGR_MSG_ID_SAVE_DRAFT_SMS phone: %s msg:%s", fields.phone, fields.text);
    const bool filed = dv_sms_mgr_write_sms_to_file(BOX_DRAFT, SMS_FILE_STATE_DONE, record) == 0;
    dv_sms_mgr_update_last_err_code_flag(filed ? DV_SMS_MGR_ERR_NONE : DV_SMS_MGR_ERR_FAILED);
    return 0;
}

static int take_warning(const sockmsg_record *record)
{
    const payload_text type(record);

    DV_TRACE_IN(handler_name, "FLOWCONTROL_MSG_ID_WARN_EVENT:%s", type.text);
    dv_sms_mgr_send_flow_control_warn(type.text);
    return 0;
}

static int take_at_response(const sockmsg_record *record)
{
    dv_sms_mgr_at_respone_event_handler(record);
    return 0;
}

static int take_at_indication(const sockmsg_record *record)
{
    dv_sms_mgr_at_report_event_handler(record);
    return 0;
}

static int take_at_trouble(const sockmsg_record *)
{
    DV_EVENT_IN(handler_name, "at assert or at block");
    return -1;
}

struct bus_action {
    uint32_t msg_id;
    bool needs_service; /* ignored silently while sms_enabled is 0 */
    int (*act)(const sockmsg_record *record);
};

static constexpr bus_action bus_actions[] = {
    {DV_SMS_MGR_MSG_ID_SEND_SMS, true, take_send},
    {DV_SMS_MGR_MSG_ID_READ_SMS, false, take_read},
    {DV_SMS_MGR_MSG_ID_DELETE_RECEIVE_SMS, false, take_delete_received},
    {DV_SMS_MGR_MSG_ID_DELETE_SEND_SMS, false, take_delete_sent},
    {DV_SMS_MGR_MSG_ID_DELETE_DRAFT_SMS, false, take_delete_draft},
    {DV_SMS_MGR_MSG_ID_GENERATE_SMS, false, take_generate},
    {DV_SMS_MGR_MSG_ID_FLOW_CONTROL_SMS, false, take_notice},
    {DV_SMS_MGR_MSG_ID_SAVE_DRAFT_SMS, false, take_draft},
    {FLOWCONTROL_MSG_ID_WARN_EVENT, false, take_warning},
    {AT_MSG_ID_COMMAND, false, take_at_response},
    {AT_MSG_ID_INDICATION, true, take_at_indication},
    {AT_MSG_ID_ASSERT, false, take_at_trouble},
    {AT_MSG_ID_BLOCK, false, take_at_trouble},
};

int dv_sms_mgr_handler(sockmsg_record *record)
{
    if (record == nullptr) {
        DV_EVENT("invaild input");
        return -1;
    }
    const char *sender = get_app_name_by_id(static_cast<int>(record->sender_module_id));

    DV_TRACE("recv msg(0x%04X) from %s", record->msg_id, sender == nullptr ? "" : sender);
    for (const bus_action &action : bus_actions)
        if (action.msg_id == record->msg_id)
            return action.needs_service && !sms_enabled ? 0 : action.act(record);
    return 0;
}

/* --- the AT channel --- */

enum {
    AT_ID_LIMIT = 59999,
    AT_WAIT_DEFAULT = 18, /* seconds */
    AT_WAIT_EXTRA = 3,
    AT_TIMEOUTS_REPORTED = 14, /* more in a row are reported */
    AT_TIMEOUTS_AFTER_REPORT = -59999,
    AT_REPORT_PAUSE = 10
};

/* at_lock is given up while the answer is awaited, so this one keeps the requests apart. Taken first. */
static pthread_mutex_t at_request_lock = PTHREAD_MUTEX_INITIALIZER;

/* Guarded by at_lock. */
static at_response at_answer;
static bool at_answered; /* at_answer was delivered after the request was sent */
static int32_t at_timeout_count;

/* The network is usable whatever it is called; only an empty or unknown state is not. */
int dv_sms_mgr_check_network_state()
{
    char state[16 + 1] = {};

    get_devinfo_value_by_id(DEVINFO_NETWORK_STATE, state, 16);
    if (state[0] == '\0' || strcmp(state, "Unkown") == 0) { /* spelled so by the platform */
        DV_EVENT("network state is error, please check it!");
        return -1;
    }
    return 0;
}

void dv_sms_mgr_clear_at_response()
{
    locked hold(&at_lock);
    memset(&at_answer, 0, sizeof at_answer);
    at_answered = false;
}

int dv_sms_mgr_at_respone_event_handler(const sockmsg_record *record)
{
    if (record == nullptr) {
        DV_EVENT("pEvt is NULL");
        return -1;
    }
    locked hold(&at_lock);
    memcpy(&at_answer, record, sizeof at_answer);
    at_answered = true;
    pthread_cond_broadcast(&at_available_cond);
    return 0;
}

static constexpr char send_at_name[] = "dv_sms_mgr_send_at"; /* for whom the steps below speak */

/* Counts an unanswered request. Rebooting is the system's business: the daemon reports and pauses,
 * and the count starts so low that the next report is a long way off. at_lock is held. */
static void count_timeout()
{
    char allowed[2 + 1] = "0";

    if (++at_timeout_count <= AT_TIMEOUTS_REPORTED)
        return;
    at_timeout_count = AT_TIMEOUTS_AFTER_REPORT;
    cfg_get_item("SYS_REBOOT_WHEN_MODEM_UNORMAL", allowed, 2);
    if (allowed[0] == '\0') {
        DV_TRACE_IN(send_at_name, "cfg_get DC_SYS_REBOOT_WHEN_MODEM_UNORMAL failed!");
        strcpy(allowed, "1");
    }
    if (strcmp(allowed, "1") == 0) {
        DV_TRACE_IN(send_at_name, "<<<<< System allow reboot when modem unormal, do it soon. <<<<<");
        sleep(AT_REPORT_PAUSE);
    } else {
        DV_TRACE_IN(send_at_name, "<<<<< System not allow reboot when modem unormal. <<<<<");
    }
}

/* Waits for a delivered record; a wake-up alone is none. at_lock is held. 0 or an error number. */
static int await_answer(int timeout)
{
    timespec deadline;
    int result = 0;

    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += timeout < 1 ? AT_WAIT_DEFAULT : timeout + AT_WAIT_EXTRA;
    while (!at_answered && result == 0)
        result = pthread_cond_timedwait(&at_available_cond, &at_lock, &deadline);
    return at_answered ? 0 : result;
}

/* Takes over the answer that was delivered for the request. at_lock is held. Apart from its caller, so that the stack
 * does not hold its text beside the request while the bus is at work. */
[[gnu::noinline]] static int take_answer(const at_request *request, char *buffer, int size)
{
    char text[AT_RESPONSE_TEXT_SIZE + 1];

    if (at_answer.at_id != request->at_id) {
        DV_TRACE_IN(send_at_name, "[sms_mgr] get at_respone at_id not same as request! , cmd: %s", request->text);
        return 0; /* kept on purpose: a stray answer ends the call as a success */
    }
    if (at_answer.error_code != 0) {
        DV_TRACE_IN(send_at_name, "[sms_mgr] send at error! code:%d, error detail:%.*s", at_answer.error_code,
                    static_cast<int>(AT_RESPONSE_DETAIL_SIZE), at_answer.error_detail);
        return at_answer.error_code;
    }
    if (buffer != nullptr && size > 0)
        memcpy(buffer, at_answer.text,
               static_cast<size_t>(size <= AT_RESPONSE_TEXT_SIZE ? size - 1 : AT_RESPONSE_TEXT_SIZE));
    copy_field(text, at_answer.text);
    dv_sms_mgr_log_data("<= recv data :", text);
    return 0;
}

int dv_sms_mgr_send_at(int timeout, char *buffer, int size, const char *format, ...)
{
    union {
        at_request request;
        sockmsg_record record; /* as the bus takes it */
    } sent = {};
    at_request &request = sent.request;
    va_list arguments;

    if (buffer == nullptr)
        DV_EVENT("ret_error is error!");
    request.msg_id = AT_MSG_ID_COMMAND;
    request.length = AT_MSG_LENGTH;
    request.magic = AT_MSG_MAGIC;
    request.timeout = timeout;
    va_start(arguments, format);
    vsnprintf(request.text, sizeof request.text, format, arguments);
    va_end(arguments);
    request.text_length = static_cast<uint32_t>(strlen(request.text));

    locked one_at_a_time(&at_request_lock);
    pthread_mutex_lock(&at_lock);
    srand(static_cast<unsigned>(time(nullptr)));
    request.at_id = rand() % AT_ID_LIMIT;
    memset(&at_answer, 0, sizeof at_answer);
    at_answered = false;

    int result = sockmsg_send_common_msg(AT_MODULE_ID, &sent.record);
    if (result != 0) {
        pthread_mutex_unlock(&at_lock);
        DV_EVENT("sockmsg_send_common_msg() failed:%d", result);
        return result;
    }
    dv_sms_mgr_log_data("=> send data :", request.text);

    result = await_answer(timeout);
    if (result == ETIMEDOUT) {
        count_timeout();
    } else {
        at_timeout_count = 0;
        if (result != 0) {
            DV_TRACE("pthread_cond_timedwait failed: %d", result);
            result = -2;
        } else {
            result = take_answer(&request, buffer, size);
        }
    }
    pthread_mutex_unlock(&at_lock);
    return result;
}

/* --- worker threads --- */

void process_1s_signal()
{
    static uint8_t ticks; /* of the housekeeping thread alone */
    char sim[4 + 1] = {};
    char service[2 + 1] = {};

    get_devinfo_value_by_id(DEVINFO_SIM_READY, sim, 4);
    cfg_get_item("SYS_SMS_SW", service, 2);
    if (!sms_enabled && service[0] == '1' && sim[0] == '1')
        sms_enabled = 1;
    /* Kept on purpose: a value that is neither "0" nor "1" changes nothing in either direction. */
    if (sms_enabled && (service[0] == '0' || sim[0] == '0')) {
        sms_enabled = 0;
        DV_EVENT("sms function close or sim not exsit, please check it");
    }
    if (++ticks % 10 == 0) {
        reset_libcommlog_level();
        ticks = 0;
    }
    sleep(1);
}

/* Stop flags: raised at exit, tested after each pass. */
static std::atomic<uint8_t> stop_1s_thread, stop_receive_thread, stop_send_thread;

static void *process_1s_thread(void *)
{
    do {
        process_1s_signal();
    } while (!stop_1s_thread);
    DV_TRACE("exit_from_process_1s_thread!");
    DV_SAVE("exit_from_process_1s_thread!\n");
    pthread_exit(nullptr);
}

static void *process_receive_sms_thread(void *)
{
    do {
        dv_sms_mgr_receive_poll();
        sleep(1);
    } while (!stop_receive_thread);
    DV_TRACE("exit_from_process_cmt_read_sms_thread!");
    DV_SAVE("exit_from_process_cmt_read_sms_thread!\n");
    pthread_exit(nullptr);
}

static int take_request(sockmsg_record *record)
{
    locked hold(&sms_send_lock);
    while (g_sms_send_head->count <= 0)
        pthread_cond_wait(&sms_send_cond, &sms_send_lock);
    *record = {};
    return list_pop(g_sms_send_head, record);
}

static void *process_send_sms_thread(void *)
{
    do {
        sockmsg_record record;

        if (take_request(&record) == 1)
            dv_sms_mgr_send_sms(&record);
    } while (!stop_send_thread);
    DV_TRACE("exit_from_process_send_sms_thread!");
    DV_SAVE("exit_from_process_send_sms_thread!\n");
    pthread_exit(nullptr);
}

struct worker {
    const char *name;
    void *(*body)(void *unused);
    std::atomic<uint8_t> *stop;
    pthread_t thread;
    std::atomic<bool> running;
};

/* In the order in which they are started and stopped. */
static worker workers[] = {
    {"process_1s_thread", process_1s_thread, &stop_1s_thread, {}, {}},
    {"process_receive_sms_thread", process_receive_sms_thread, &stop_receive_thread, {}, {}},
    {"process_send_sms_thread", process_send_sms_thread, &stop_send_thread, {}, {}},
};

void dv_sms_mgr_stop_threads()
{
    for (worker &each : workers) {
        if (!each.running.exchange(false))
            continue;
        pthread_detach(each.thread);
        *each.stop = 1;
    }
}

void dv_sms_mgr_create_thread()
{
    for (worker &each : workers) {
        if (pthread_create(&each.thread, nullptr, each.body, nullptr) != 0) {
            DV_TRACE("Create %s error!", each.name);
            DV_SAVE("Create %s error!\n", each.name);
            exit(-1);
        }
        each.running = true;
        atexit(dv_sms_mgr_stop_threads);
    }
    DV_EVENT("dv_sms_mgr init complete");
    for (;;)
        sleep(10);
}
