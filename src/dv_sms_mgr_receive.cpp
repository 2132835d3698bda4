#include "dv_sms_mgr_receive.h"

#include <dirent.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <time.h>
#include <unistd.h>

#include "cfg.h"
#include "devinfo.h"
#include "dv_sms_mgr.h"
#include "dv_sms_mgr_lock.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_paths.h"
#include "dv_sms_mgr_report.h"
#include "dv_sms_mgr_text.h"
#include "dv_sms_mgr_utils.h"
#include "util.h"

dv_sms_msg *current_sms_msg;
sms_part_node *sms_part_head;
pthread_mutex_t sms_store_lock = PTHREAD_MUTEX_INITIALIZER;

static void forget_current()
{
    free(current_sms_msg);
    current_sms_msg = nullptr;
}

/* --- redirect --- */

void need_redirect_sms_to_handset(const char *text)
{
    char phone[SMS_PHONE_SIZE + 1] = {};
    sockmsg_record request = {};

    if (text == nullptr) {
        DV_TRACE("invalid parameter");
        return;
    }
    const int redirect_sw = get_CFG_int("USR_SMS_REDIRECT_SW");

    if (redirect_sw != 0 && redirect_sw != 1) {
        DV_TRACE("redirect_sw(%d) invalid parameter", redirect_sw);
        return;
    }
    if (redirect_sw == 0) {
        DV_TRACE("redirect_sw(%d) no need for SMS redirection", redirect_sw);
        return;
    }
    cfg_get_item("USR_SMS_REDIRECT_PHONE", phone, SMS_PHONE_SIZE);
    if (phone[0] == '\0') {
        DV_TRACE("redirect_phone size is 0!");
        return;
    }
    copy_text(payload_of(&request)->phone, phone);
    copy_text(payload_of(&request)->text, text);
    if (push_sms_into_queue(&request) == 1)
        DV_TRACE("redirect sms msg to handset");
    else
        DV_EVENT("push redirect_sms to queue fail");
}

/* --- the store's writer --- */

enum {
    SAVE_SIZE_DEFAULT = 500, /* messages a box */
    SAVE_SIZE_MAX = 2000,
    FLASH_FLOOR = 1024, /* KB */
    UNREAD_READ_SIZE = 6,
    LOCAL_TIME_SIZE = 32
};

long get_sys_flash_available(const char *path)
{
    struct statfs space;

    if (statfs(path, &space) != 0) {
        DV_EVENT("get_sys_flash_available false");
        return -1;
    }
    const auto available = static_cast<unsigned long>(static_cast<uint64_t>(space.f_bsize) * space.f_bavail / 1024);

    DV_TRACE("availableDisk: %lu KB", available);
    return static_cast<long>(available);
}

/* What one look at a box directory tells. */
struct box_scan {
    int files;                            /* of type regular */
    uint8_t taken[SAVE_SIZE_MAX / 8 + 1]; /* a bit for each number below its capacity that has an entry */
};

/* The number that a name stands for; 0 when it is none or beyond what a box holds. */
static int number_of(const char *name)
{
    int number = 0;

    if (*name == '0')
        return 0;
    for (; *name >= '0' && *name <= '9' && number <= SAVE_SIZE_MAX; name++)
        number = number * 10 + (*name - '0');
    return *name == '\0' && number <= SAVE_SIZE_MAX ? number : 0;
}

static bool is_regular(const char *dir, const dirent *entry)
{
    char path[PATH_MAX];
    struct stat status;

    if (entry->d_type != DT_UNKNOWN)
        return entry->d_type == DT_REG;
    snprintf(path, sizeof path, "%s/%s", dir, entry->d_name);
    return lstat(path, &status) == 0 && S_ISREG(status.st_mode);
}

/* 0; -1: no path, or not to be opened. */
static int scan_box(const char *path, box_scan *scan)
{
    memset(scan, 0, sizeof *scan);
    DIR *dir = path == nullptr ? nullptr : opendir(path);

    if (dir == nullptr)
        return -1;
    while (const dirent *entry = readdir(dir)) {
        const int number = number_of(entry->d_name);

        scan->taken[number / 8] = static_cast<uint8_t>(scan->taken[number / 8] | 1 << number % 8);
        if (is_regular(path, entry))
            scan->files++;
    }
    closedir(dir);
    return 0;
}

int count_regular_files(const char *path)
{
    box_scan scan;

    return scan_box(path, &scan) == 0 ? scan.files : -1;
}

/* The smallest number without an entry; 0 when each up to one more than there are files has one. */
static int free_number(const box_scan &scan)
{
    for (int number = 1; number <= scan.files + 1; number++)
        if ((scan.taken[number / 8] & 1 << number % 8) == 0)
            return number;
    return 0;
}

FILE *open_unbuffered(const char *path, const char *mode)
{
    FILE *file = fopen(path, mode);

    if (file != nullptr)
        setvbuf(file, nullptr, _IONBF, 0); /* what is read or written at once needs no memory in between */
    return file;
}

int write_file_fmt(const char *path, const char *mode, const char *format, ...)
{
    FILE *file = open_unbuffered(path, mode);
    va_list arguments;

    if (file == nullptr)
        return -1;
    va_start(arguments, format);
    vfprintf(file, format, arguments);
    va_end(arguments);
    fclose(file);
    return 0;
}

void get_local_time_text(char *buffer, int size)
{
    char text[80]; /* as long as any year may get */
    const time_t now = time(nullptr);
    struct tm local;

    if (buffer == nullptr || size < LOCAL_TIME_SIZE)
        return;
    tzset(); /* the time zone may have been changed since the start */
    localtime_r(&now, &local);
    snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
             local.tm_hour, local.tm_min, local.tm_sec);
    memcpy(buffer, text, strnlen(text, LOCAL_TIME_SIZE - 1));
}

bool path_exists(const char *path)
{
    return access(path, F_OK) == 0;
}

static constexpr char writer_name[] = "dv_sms_mgr_write_sms_to_file"; /* for whom the steps below speak */

static int configured_capacity()
{
    const int configured = get_CFG_int("SYS_SMS_MAX_SAVE_SIZE");

    return configured < 1 || configured > SAVE_SIZE_MAX ? SAVE_SIZE_DEFAULT : configured;
}

/* Finds a place for one more message. Its number; 0: the box is full, the flash is low, or neither
 * can be told. */
static int find_place(const dv_sms_box &box, int cfg_max_save, int *files_num)
{
    box_scan scan;
    const int scanned = scan_box(box.dir, &scan);
    const long available = get_sys_flash_available(box.dir);

    *files_num = scanned == 0 ? scan.files : -1;
    DV_TRACE_IN(writer_name, "files_num: %d cfg_max_save: %d", *files_num, cfg_max_save);
    if (*files_num < 0 || *files_num >= cfg_max_save || available < FLASH_FLOOR) {
        DV_EVENT_IN(writer_name,
                    "files_num(%d) cfg_max_save(%d) avaiable_size(%d) can not continue save,please delete it",
                    *files_num, cfg_max_save, static_cast<int>(available < INT_MAX ? available : INT_MAX));
        return 0;
    }
    return free_number(scan);
}

/* 0: written; 1: the flash has no room for it; -1: it cannot be opened. */
static int write_aside(const char *record)
{
    FILE *file = open_unbuffered(dv_sms_new_path, "w");

    if (file == nullptr)
        return -1;
    const bool written = fputs(record, file) >= 0;

    return fclose(file) == 0 && written ? 0 : 1;
}

/* Written aside, then moved into the box, so that no reader and no restart finds half a message; the
 * one sync() at the end of the filing brings it to the flash. Into the box directly only where there is
 * no writing aside: from another file system, or in a root that takes no new file. */
static void write_record(const char *path, int number, int state, const sms_fields &fields, const char *date)
{
    char record[sizeof fields + 32]; /* two numbers and four blanks beside the fields */

    snprintf(record, sizeof record, "%d %d %s %s %s", number, state, fields.phone, date, fields.text);
    const int result = write_aside(record);

    if (result > 0)
        unlink(dv_sms_new_path);
    else if (result < 0 || rename(dv_sms_new_path, path) != 0)
        write_file_fmt(path, "w", "%s", record);
}

static void count_unread()
{
    char count[UNREAD_READ_SIZE + 1] = {};

    cmd_cat(dv_sms_unread_path, count, UNREAD_READ_SIZE);
    write_file_fmt(dv_sms_unread_path, "w", "%d", static_cast<int>(strtol(count, nullptr, 10)) + 1);
    set_devinfo_value_by_id(DEVINFO_SMS_UNREAD, "1", 1);
}

/* 0; -1: nothing to file. */
static int write_received(const char *path, int number, int state, const sms_fields &fields)
{
    if (fields.text[0] == '\0') {
        DV_TRACE_IN(writer_name, "receive sms no data !");
        return -1;
    }
    write_record(path, number, state, fields, fields.date);
    DV_TRACE_IN(writer_name, "receive_data-->phone[%s] recv date[%s] data[%s]", fields.phone, fields.date, fields.text);
    need_redirect_sms_to_handset(fields.text);
    count_unread();
    return 0;
}

/* 0; -1: nothing to file. */
static int write_own(const char *path, int number, int state, const sms_fields &fields)
{
    char now[LOCAL_TIME_SIZE] = {};

    if (fields.text[0] == '\0') {
        DV_SAVE_IN(writer_name, "sms msg size is 0, can not write to file");
        return -1;
    }
    get_local_time_text(now, sizeof now);
    write_record(path, number, state, fields, now);
    DV_TRACE_IN(writer_name, "save msg --->%d %d %s %s %s", number, state, fields.phone, now, fields.text);
    return 0;
}

int dv_sms_mgr_write_sms_to_file(int flag_box, int state, const sockmsg_record *record)
{
    char text[SMS_PATH_SIZE + sizeof "mkdir -p "];
    sms_fields fields;
    int files_num;

    if (record == nullptr) {
        DV_TRACE("invalid parameter");
        return -1;
    }
    if (flag_box < 0 || flag_box >= BOX_COUNT) {
        DV_TRACE("flag_box(%d) err", flag_box);
        return -1;
    }
    const dv_sms_box &box = dv_sms_boxes[flag_box];

    DV_TRACE("save_path(%s), index_path(%s) state(%d)", box.dir, box.index, state);
    locked hold(&sms_store_lock);
    if (!path_exists(box.dir)) {
        DV_EVENT("%s isn't exit", box.dir);
        snprintf(text, sizeof text, "mkdir -p %s", box.dir);
        util_shell(text);
    }
    const int cfg_max_save = configured_capacity();
    const int number = find_place(box, cfg_max_save, &files_num);

    if (number == 0)
        return -1;
    read_fields(&fields, record);
    snprintf(text, sizeof text, "%s/%d", box.dir, number);
    if ((flag_box == BOX_RECEIVED ? write_received : write_own)(text, number, state, fields) != 0)
        return -1;
    if (!path_exists(box.index))
        cmd_echo(" ", box.index);
    write_file_fmt(box.index, "a", "%d ", number);
    sync();
    set_devinfo_value_by_id(box.full_id, cfg_max_save == files_num + 1 ? "1" : "0", 1);
    return 0;
}

void dv_sms_mgr_save_receive_msg()
{
    sockmsg_record record = {};
    sms_payload *payload = payload_of(&record);

    if (current_sms_msg == nullptr) {
        DV_EVENT("dv_sms_msg data is null");
        return;
    }
    if (!current_sms_msg->concatenated) {
        copy_text(payload->text, current_sms_msg->text);
    } else if (dv_sms_mgr_join_parts(payload->text) != 0) {
        forget_current();
        DV_EVENT("packing casc error, return");
        return;
    }
    memcpy(payload->date, current_sms_msg->date, sizeof payload->date);
    memcpy(payload->phone, current_sms_msg->phone, sizeof payload->phone);
    forget_current();
    dv_sms_mgr_write_sms_to_file(BOX_RECEIVED, SMS_FILE_STATE_NEW, &record);
}

/* --- assembly of parts --- */

void dv_sms_mgr_create_link()
{
    sms_part_head = static_cast<sms_part_node *>(calloc(1, sizeof(sms_part_node)));
    if (sms_part_head == nullptr)
        DV_EVENT("link creat failed");
}

int dv_sms_mgr_insert_link()
{
    auto *part = static_cast<sms_part_node *>(calloc(1, sizeof(sms_part_node)));

    if (part == nullptr || sms_part_head == nullptr) {
        free(part);
        DV_EVENT("link creat failed");
        return 0;
    }
    copy_text(part->text, current_sms_msg->text);
    part->reference = current_sms_msg->reference;
    part->sequence = current_sms_msg->sequence;
    part->next = sms_part_head->next;
    sms_part_head->next = part;
    return 0;
}

int count_missing_parts()
{
    uint8_t count = 0;

    for (const sms_part_node *part = sms_part_head->next; part != nullptr; part = part->next)
        if (part->reference == current_sms_msg->reference)
            count++;
    return current_sms_msg->total - count;
}

int dv_sms_mgr_link_part()
{
    if (sms_part_head == nullptr) {
        dv_sms_mgr_create_link();
        dv_sms_mgr_insert_link();
        return current_sms_msg->total - 1;
    }
    dv_sms_mgr_insert_link();
    return count_missing_parts();
}

/* --- retrieval --- */

enum { REPLY_SIZE = 512 };

static const char ok_line[] = "\r\nOK\r\n";

/* Decodes a PDU and files it unless parts of it are still missing. CMTI_FILED, CMTI_INCOMPLETE or
 * CMTI_FAILED; `concatenated` tells which kind it was. */
static int receive_pdu(const char *function, const char *pdu, bool *concatenated)
{
    current_sms_msg = static_cast<dv_sms_msg *>(calloc(1, sizeof(dv_sms_msg)));
    if (current_sms_msg == nullptr) {
        DV_TRACE_IN(function, "no memory for the message, it is refused");
        return CMTI_FAILED;
    }
    DV_TRACE_IN(function, "start parse pdu data");
    dv_sms_mgr_parse_pdu(pdu);
    *concatenated = current_sms_msg->concatenated != 0;
    if (*concatenated) {
        const int remaining = dv_sms_mgr_link_part();

        if (remaining > 0) {
            DV_TRACE_IN(function, "cascade seq %hu sms not receive finish, has %d message not receive",
                        current_sms_msg->reference, remaining);
            forget_current();
            return CMTI_INCOMPLETE;
        }
    }
    DV_TRACE_IN(function, "start write data to file");
    dv_sms_mgr_save_receive_msg();
    return CMTI_FILED;
}

/* Copies the PDU line of an answer to "AT+CMGR". false: there is none. */
static bool find_pdu_line(const char *reply, char (&pdu)[PDU_LINE_SIZE])
{
    static constexpr char answer[] = "+CMGR:";
    const char *start = strstr(reply, answer);

    if (start == nullptr)
        return false;
    start = strstr(start + sizeof answer - 1, "\r\n");
    if (start == nullptr)
        return false;
    start += 2;
    const char *end = strstr(start, "\r\n");

    if (end == nullptr)
        return false;
    memcpy(pdu, start, static_cast<size_t>(end - start)); /* the reply is no longer than the line may be */
    return true;
}
static_assert(int{REPLY_SIZE} <= int{PDU_LINE_SIZE});

/* Deletes what was filed: one message, or with the last part of several all that the storage holds. */
static int delete_from_sim(uint32_t index, bool concatenated)
{
    char command[32];
    char reply[REPLY_SIZE] = {};

    if (concatenated)
        snprintf(command, sizeof command, "AT+CMGD=1,4\r");
    else
        snprintf(command, sizeof command, "AT+CMGD=%d\r", static_cast<int>(index));
    if (dv_sms_mgr_send_at(AT_TIMEOUT, reply, sizeof reply, "%s", command) != 0)
        return CMTI_FAILED;
    if (strstr(reply, ok_line) == nullptr) {
        DV_TRACE_IN("dv_sms_mgr_receive_sms_by_cmti", "at_buff：%s, del sms failed!", command);
        return CMTI_FAILED;
    }
    return CMTI_FILED;
}

int dv_sms_mgr_receive_sms_by_cmti(uint32_t index)
{
    char reply[REPLY_SIZE] = {};
    char pdu[PDU_LINE_SIZE] = {};
    bool concatenated = false;

    if (dv_sms_mgr_send_at(AT_TIMEOUT, reply, sizeof reply, "AT+CMGR=%d\r", static_cast<int>(index)) != 0)
        return CMTI_FAILED;
    if (strstr(reply, ok_line) == nullptr) {
        DV_EVENT("recv_data is error");
        return CMTI_FAILED;
    }
    if (!find_pdu_line(reply, pdu))
        return CMTI_FAILED;
    const int result = receive_pdu(__func__, pdu, &concatenated);

    return result == CMTI_FILED ? delete_from_sim(index, concatenated) : result;
}

void dv_sms_mgr_receive_sms_by_cmt(const char *pdu)
{
    bool concatenated = false;

    receive_pdu(__func__, pdu, &concatenated);
}
