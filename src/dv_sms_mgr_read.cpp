#include "dv_sms_mgr_read.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "devinfo.h"
#include "dv_sms_mgr.h"
#include "dv_sms_mgr_lock.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_paths.h"
#include "dv_sms_mgr_receive.h"
#include "dv_sms_mgr_text.h"
#include "util.h"

enum {
    FILE_READ_SIZE = 4096, /* of an index and of a message file; more is cut */
    REQUEST_SIZE = SOCKMSG_PAYLOAD_SIZE + 1,
    TOKEN_PATH_SIZE = REQUEST_SIZE + SMS_PATH_SIZE,
    LIST_COUNT_READ_SIZE = 8,
    DELETE_COUNT_READ_SIZE = 12,
    STATE_READ_SIZE = 6
};

static const dv_sms_box &received = dv_sms_boxes[BOX_RECEIVED];

/* Ends the text in front of its last character when not all of that character's bytes are there. */
static void drop_cut_character(char *text, size_t length)
{
    size_t last = length - 1;

    while (last > 0 && is_utf8_continuation(text[last]))
        last--;
    if (last + static_cast<size_t>(dv_sms_mgr_utf8_seq_len(static_cast<uint8_t>(text[last]))) > length)
        text[last] = '\0';
}

/* Reads as much of a file as the daemon handles. */
static void read_file(const char *path, char (&text)[FILE_READ_SIZE + 1])
{
    memset(text, 0, sizeof text);
    cmd_cat(path, text, FILE_READ_SIZE);
    if (strlen(text) == FILE_READ_SIZE)
        drop_cut_character(text, FILE_READ_SIZE);
}

/* The path of the message that a token names. false: the token names no entry of the box. */
static bool path_in_box(char (&path)[TOKEN_PATH_SIZE], const char *box_dir, const char *token)
{
    snprintf(path, sizeof path, "%s/%s", box_dir, token);
    return strchr(token, '/') == nullptr && strcmp(token, ".") != 0 && strcmp(token, "..") != 0;
}

static int read_count(int characters)
{
    char count[DELETE_COUNT_READ_SIZE + 1] = {};

    cmd_cat(dv_sms_unread_path, count, characters);
    return static_cast<int>(strtol(count, nullptr, 10));
}

static void none_unread()
{
    write_file_fmt(dv_sms_unread_path, "w", "0");
    set_devinfo_value_by_id(DEVINFO_SMS_UNREAD, "0", 1);
}

/* --- reading --- */

/* Marks one message read. Messages that are read already are written back only when asked so. */
static void mark_read(const char *path, const char *number, bool rewrite)
{
    char text[FILE_READ_SIZE + 1];
    const size_t state = strlen(number) + 1; /* stands behind the first blank */

    read_file(path, text);
    if (!rewrite && (strlen(text) <= state || text[state] != '0'))
        return;
    if (strlen(text) > state)
        text[state] = '1';
    cmd_echo(text, path);
}

static void read_all()
{
    char index[FILE_READ_SIZE + 1];
    char path[TOKEN_PATH_SIZE];
    char *rest = nullptr;

    read_file(received.index, index);
    for (char *number = strtok_r(index, " ", &rest); number != nullptr; number = strtok_r(nullptr, " ", &rest))
        if (path_in_box(path, received.dir, number) && path_exists(path))
            mark_read(path, number, false);
    none_unread();
}

static void read_list(const char *request)
{
    char list[REQUEST_SIZE];
    char path[TOKEN_PATH_SIZE];
    char *rest = nullptr;
    int count = 0;

    copy_text(list, request);
    for (char *number = strtok_r(list, ",", &rest); number != nullptr; number = strtok_r(nullptr, ",", &rest)) {
        if (!path_in_box(path, received.dir, number) || !path_exists(path))
            continue;
        mark_read(path, number, true);
        count = read_count(LIST_COUNT_READ_SIZE) - 1; /* kept on purpose: whether it was unread or not */
        if (count < 0)
            count = 0;
        write_file_fmt(dv_sms_unread_path, "w", "%d ", count);
    }
    if (count == 0)
        set_devinfo_value_by_id(DEVINFO_SMS_UNREAD, "0", 1);
}

void dv_sms_mgr_read_recvive_sms(const char *request)
{
    if (request == nullptr || *request == '\0') {
        DV_EVENT("read already receive sms failed");
        dv_sms_mgr_update_last_err_code_flag(DV_SMS_MGR_ERR_FAILED);
        return;
    }
    {
        locked hold(&sms_store_lock);
        if (strncmp(request, "READ ALL", 8) == 0)
            read_all();
        else
            read_list(request);
        sync();
    }
    dv_sms_mgr_update_last_err_code_flag(DV_SMS_MGR_ERR_NONE);
}

/* --- deleting --- */

int replace_first(char *text, const char *pattern, const char *replacement)
{
    if (text == nullptr || strlen(text) < 3)
        return 0;
    char *found = strstr(text, pattern);

    if (found == nullptr)
        return 0;
    const char *behind = found + strlen(pattern);

    memmove(found + strlen(replacement), behind, strlen(behind) + 1);
    memcpy(found, replacement, strlen(replacement));
    return 1;
}

int update_unread_on_delete(const char *box_dir, const char *path)
{
    char start[STATE_READ_SIZE + 1] = {};

    if (strcmp(box_dir, received.dir) != 0)
        return 0;
    FILE *file = open_unbuffered(path, "r");
    if (file == nullptr)
        return -1;
    start[fread(start, 1, STATE_READ_SIZE, file)] = '\0';
    fclose(file);
    if (start[0] == '\0')
        return -1;
    const char *blank = strchr(start, ' ');

    if (blank != nullptr && blank[1] == '0') {
        int count = read_count(DELETE_COUNT_READ_SIZE) - 1;

        if (count < 1) {
            count = 0;
            set_devinfo_value_by_id(DEVINFO_SMS_UNREAD, "0", 1);
        }
        write_file_fmt(dv_sms_unread_path, "w", "%d", count);
    }
    sync();
    return 0;
}

static void delete_all(const char *box_dir, const char *index_path)
{
    char command[SMS_PATH_SIZE];
    char result[32 + 1] = {};

    snprintf(command, sizeof command, "rm %s/*", box_dir);
    util_get_cmd_result(command, result, 32);
    cmd_echo(" ", index_path);
    if (strcmp(box_dir, received.dir) == 0)
        none_unread();
}

/* 0; -1: a received message is not there; what was asked for behind it stays. */
static int delete_list(const char *request, const char *box_dir, const char *index_path)
{
    char index[FILE_READ_SIZE + 1];
    char list[REQUEST_SIZE];
    char path[TOKEN_PATH_SIZE];
    char entry[REQUEST_SIZE + 2];
    char *rest = nullptr;

    read_file(index_path, index);
    copy_text(list, request);
    for (char *number = strtok_r(list, ",", &rest); number != nullptr; number = strtok_r(nullptr, ",", &rest)) {
        const bool in_box = path_in_box(path, box_dir, number);

        /* What names nothing in the box is a message without a file. */
        if (in_box ? update_unread_on_delete(box_dir, path) != 0 : strcmp(box_dir, received.dir) == 0)
            return -1;
        if (in_box)
            cmd_rm(path);
        snprintf(entry, sizeof entry, " %s ", number);
        replace_first(index, entry, " ");
    }
    cmd_echo(index, index_path);
    return 0;
}

int dv_sms_mgr_delete_sms(const char *request, const char *box_dir, const char *index_path)
{
    int result = -1;

    if (request != nullptr && *request != '\0') {
        locked hold(&sms_store_lock);
        if (path_exists(box_dir) && path_exists(index_path)) {
            result = 0;
            if (strncmp(request, "DELETE ALL", 10) == 0)
                delete_all(box_dir, index_path);
            else
                result = delete_list(request, box_dir, index_path);
            if (result == 0)
                sync();
        }
    }
    dv_sms_mgr_update_last_err_code_flag(result == 0 ? DV_SMS_MGR_ERR_NONE : DV_SMS_MGR_ERR_FAILED);
    return result;
}
