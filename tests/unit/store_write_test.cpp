/* Filing: what stands in the files, in which order they are written, and who is told. */
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <time.h>

#include <filesystem>

#include "dv_sms_mgr_log.h"
#include "store_bench.h"
#include "store_pdu.h"
#include "store_seams.h"

static const time_t filing_time = 1709647507; /* 2024-03-05 14:05:07 UTC */

class store_write : public store_bench
{
protected:
    int file(int box, int state, const message &what)
    {
        const sockmsg_record record = record_of(what);

        return dv_sms_mgr_write_sms_to_file(box, state, &record);
    }

    int receive(const std::string &text = "hi")
    {
        return file(BOX_RECEIVED, 0, {"+31612345678", text, "2024/03/05 14:07:00"});
    }
};

/* --- the files --- */

TEST_F(store_write, received_message)
{
    EXPECT_EQ(0, receive("Hello there"));
    EXPECT_EQ("1 0 +31612345678 2024/03/05 14:07:00 Hello there", read_file(read_dir + "/1")) << "no line end";
    EXPECT_EQ(" 1 ", read_file(read_index));
    EXPECT_EQ("1", read_file(unread));
    EXPECT_EQ("1", platform.devinfo(306001));
    EXPECT_EQ("0", platform.devinfo(306002));
    EXPECT_EQ((lines{"read_index", "sms_read", "unread_sms"}), names(root));
}

TEST_F(store_write, sent_message_and_draft)
{
    static const struct {
        int box;
        const char *dir, *index;
        int full_id;
    } rows[] = {{1, "sms_send", "send_index", 306003}, {2, "sms_draft", "draft_index", 306004}};

    for (const auto &row : rows) {
        SCOPED_TRACE(row.dir);
        fresh();
        seams::set_time(filing_time);
        EXPECT_EQ(0, file(row.box, 1, {"+31612345678", "Hello there", "not this date"}));
        EXPECT_EQ(0, file(row.box, 0, {"123", "failed", ""}));
        EXPECT_EQ("1 1 +31612345678 2024-03-05 14:05:07 Hello there", read_file(root + "/" + row.dir + "/1"));
        EXPECT_EQ("2 0 123 2024-03-05 14:05:07 failed", read_file(root + "/" + row.dir + "/2"));
        EXPECT_EQ(" 1 2 ", read_file(root + "/" + row.index));
        EXPECT_EQ((lines{row.index, row.dir}), names(root)) << "no counter";
        EXPECT_EQ((lines{"set_devinfo_value_by_id " + std::to_string(row.full_id) + " \"0\" 1",
                         "set_devinfo_value_by_id " + std::to_string(row.full_id) + " \"0\" 1"}),
                  platform.calls({"set_devinfo_value_by_id"}))
            << "306001 is not touched";
    }
}

TEST_F(store_write, state_is_what_the_caller_says)
{
    for (const int state : {0, 1, 7}) {
        fresh();
        EXPECT_EQ(0, file(BOX_RECEIVED, state, {"1", "x", "d"}));
        EXPECT_EQ("1 " + std::to_string(state) + " 1 d x", read_file(read_dir + "/1"));
    }
}

TEST_F(store_write, text_is_the_rest_of_the_file_as_it_is)
{
    for (const std::string text : {"two  blanks ", "line\r\nbreaks\n", "per%cent %s %n %d", "中文 ğ €", " ", "\x01\x7F",
                                   "1 0 +3 2024/01/01 00:00:00 nested"}) {
        fresh();
        seams::set_time(filing_time);
        EXPECT_EQ(0, receive(text));
        EXPECT_EQ("1 0 +31612345678 2024/03/05 14:07:00 " + text, read_file(read_dir + "/1"));
        EXPECT_EQ(0, file(BOX_SENT, 1, {"%s", text}));
        EXPECT_EQ("1 1 %s 2024-03-05 14:05:07 " + text, read_file(send_dir + "/1"));
    }
}

TEST_F(store_write, empty_fields_leave_their_blanks)
{
    seams::set_time(filing_time);
    EXPECT_EQ(0, file(BOX_RECEIVED, 0, {"", "x", ""}));
    EXPECT_EQ("1 0   x", read_file(read_dir + "/1"));
    EXPECT_EQ(0, file(BOX_SENT, 0, {"", "x"})) << "a number is not asked for";
    EXPECT_EQ("1 0  2024-03-05 14:05:07 x", read_file(send_dir + "/1"));
}

/* A field that is filled to its end has no terminator: the next one must not show. */
TEST_F(store_write, fields_are_read_to_their_ends_and_no_further)
{
    const std::string date(32, 'd'), phone(32, 'p'), text(4032, 't');

    EXPECT_EQ(0, file(BOX_RECEIVED, 0, {phone, text, date}));
    EXPECT_EQ("1 0 " + phone + " " + date + " " + text, read_file(read_dir + "/1"));
    seams::set_time(filing_time);
    EXPECT_EQ(0, file(BOX_DRAFT, 1, {phone, text, date}));
    EXPECT_EQ("1 1 " + phone + " 2024-03-05 14:05:07 " + text, read_file(draft_dir + "/1"));
}

TEST_F(store_write, record_stays_as_it_was)
{
    const sockmsg_record record = record_of({std::string(32, 'p'), std::string(4032, 't'), std::string(32, 'd')});
    const sockmsg_record before = record;

    EXPECT_EQ(0, dv_sms_mgr_write_sms_to_file(BOX_RECEIVED, 0, &record));
    EXPECT_EQ(0, memcmp(&before, &record, sizeof record));
}

TEST_F(store_write, time_is_local_and_follows_the_zone)
{
    static const struct {
        const char *zone, *text;
    } rows[] = {{"UTC0", "2024-03-05 14:05:07"},
                {"CST-8", "2024-03-05 22:05:07"},
                {"NPT-5:45", "2024-03-05 19:50:07"},
                {"EST5EDT,M3.2.0,M11.1.0", "2024-03-05 09:05:07"}};

    seams::set_time(filing_time);
    for (const auto &row : rows) {
        setenv("TZ", row.zone, 1); /* changed while the daemon runs */
        EXPECT_EQ(0, file(BOX_SENT, 1, {"1", "x"}));
        EXPECT_EQ(std::string("1 ") + row.text + " x", read_file(send_dir + "/" + names(send_dir).back()).substr(4));
    }
}

TEST_F(store_write, index_grows_at_its_end)
{
    put(BOX_RECEIVED, 2);
    write_file(read_index, " 3 1 4 ");
    EXPECT_EQ(0, receive());
    EXPECT_EQ(" 3 1 4 1 ", read_file(read_index));
    EXPECT_EQ(0, platform.count("cmd_echo \" \" " + read_index)) << "one that is there is not made anew";
    write_file(read_index, "");
    EXPECT_EQ(0, receive());
    EXPECT_EQ("3 ", read_file(read_index)) << "an empty one is there, too";
}

/* --- the counter --- */

TEST_F(store_write, counter_goes_up_by_one)
{
    static const struct {
        const char *before; /* null: no file */
        const char *after;
    } rows[] = {{nullptr, "1"},       {"", "1"},      {"0", "1"},    {"4", "5"},   {"9", "10"},
                {"4 ", "5"},          {"\n4\n", "5"}, {"none", "1"}, {"-3", "-2"}, {"999999", "1000000"},
                {"1234567", "123457"}};

    for (const auto &row : rows) {
        fresh();
        if (row.before != nullptr)
            write_file(unread, row.before);
        EXPECT_EQ(0, receive());
        EXPECT_EQ(row.after, read_file(unread)) << (row.before == nullptr ? "(none)" : row.before);
        EXPECT_EQ(1, platform.count("cmd_cat " + unread + " 6"));
    }
}

TEST_F(store_write, counter_is_read_however_the_platform_does)
{
    for (const fake::read_mode mode : {fake::read_mode{.fills_all = false, .empties_unset = true, .scribbles = true},
                                       fake::read_mode{.unset_result = 0}}) {
        fresh();
        platform.set_read_mode(mode);
        EXPECT_EQ(0, receive());
        EXPECT_EQ(0, receive());
        EXPECT_EQ("2", read_file(unread));
    }
}

/* --- the order --- */

TEST_F(store_write, steps_of_a_received_message)
{
    platform.set_cfg("USR_SMS_REDIRECT_SW", "1");
    platform.set_cfg("USR_SMS_REDIRECT_PHONE", "123");
    EXPECT_EQ(0, receive());
    EXPECT_EQ((lines{"util_shell mkdir -p " + read_dir, "get_CFG_int SYS_SMS_MAX_SAVE_SIZE", "statfs " + read_dir,
                     "fopen " + root + "/.new w", "get_CFG_int USR_SMS_REDIRECT_SW",
                     "cfg_get_item USR_SMS_REDIRECT_PHONE 32", "cmd_cat " + unread + " 6", "fopen " + unread + " w",
                     "set_devinfo_value_by_id 306001 \"1\" 1", "cmd_echo \" \" " + read_index,
                     "fopen " + read_index + " a", "sync", "set_devinfo_value_by_id 306002 \"0\" 1"}),
              calls());
    EXPECT_EQ((lines{filer + ": save_path(" + read_dir + "), index_path(" + read_index + ") state(0)",
                     filer + ": " + read_dir + " isn't exit", "get_sys_flash_available: availableDisk: 1048576 KB",
                     filer + ": files_num: 0 cfg_max_save: 500",
                     filer + ": receive_data-->phone[+31612345678] recv date[2024/03/05 14:07:00] data[hi]",
                     "push_sms_into_queue: join succ", "need_redirect_sms_to_handset: redirect sms msg to handset"}),
              traced());
    EXPECT_EQ(lines{filer + ": " + read_dir + " isn't exit"}, saved());
    EXPECT_EQ("dv_sms_mgr_receive.cpp", trace_lines().at(0).file);
}

TEST_F(store_write, steps_of_a_sent_message)
{
    seams::set_time(filing_time);
    put_files(send_dir, 2);
    write_file(send_index, " 1 2 ");
    EXPECT_EQ(0, file(BOX_SENT, 1, {"123", "a b"}));
    EXPECT_EQ((lines{"get_CFG_int SYS_SMS_MAX_SAVE_SIZE", "statfs " + send_dir, "fopen " + root + "/.new w",
                     "fopen " + send_index + " a", "sync", "set_devinfo_value_by_id 306003 \"0\" 1"}),
              calls());
    EXPECT_EQ((lines{filer + ": save_path(" + send_dir + "), index_path(" + send_index + ") state(1)",
                     "get_sys_flash_available: availableDisk: 1048576 KB", filer + ": files_num: 2 cfg_max_save: 500",
                     filer + ": save msg --->3 1 123 2024-03-05 14:05:07 a b"}),
              traced());
    EXPECT_EQ(lines{}, saved());
}

TEST_F(store_write, redirect_sees_the_file_and_not_yet_the_counter)
{
    std::string file, counter;

    platform.set_hook([&](const std::string &call) {
        if (call == "get_CFG_int USR_SMS_REDIRECT_SW") {
            file = read_file(read_dir + "/1");
            counter = read_file(unread);
        }
    });
    receive();
    EXPECT_EQ(line_of(1, 0), file);
    EXPECT_EQ("(none)", counter);
}

TEST_F(store_write, everything_is_written_when_sync_is_called)
{
    lines seen;

    platform.set_hook([&](const std::string &call) {
        if (call == "sync")
            seen = {read_file(read_dir + "/1"), read_file(unread), read_file(read_index), platform.devinfo(306002)};
    });
    receive();
    EXPECT_EQ((lines{line_of(1, 0), "1", " 1 ", "(unset)"}), seen);
}

/* --- the box-full flag --- */

TEST_F(store_write, box_is_full_with_exactly_its_capacity)
{
    static const struct {
        int capacity, files;
        const char *flag;
    } rows[] = {{3, 0, "0"}, {3, 1, "0"}, {3, 2, "1"}, {1, 0, "1"}};

    for (const auto &row : rows) {
        for (int box = 0; box < 3; box++) {
            fresh();
            platform.set_cfg("SYS_SMS_MAX_SAVE_SIZE", std::to_string(row.capacity));
            platform.set_devinfo(306002 + box, "7");
            put_files(dv_sms_boxes[box].dir, row.files);
            EXPECT_EQ(0, file(box, 1, {"1", "x"}));
            EXPECT_EQ(row.flag, platform.devinfo(306002 + box)) << row.capacity << " " << row.files;
        }
    }
}

/* --- what is refused --- */

TEST_F(store_write, without_a_record_nothing_is_done)
{
    EXPECT_EQ(-1, dv_sms_mgr_write_sms_to_file(BOX_RECEIVED, 0, nullptr));
    EXPECT_EQ(lines{filer + ": invalid parameter"}, traced());
    EXPECT_EQ(lines{}, saved());
    EXPECT_EQ(lines{}, calls());
}

TEST_F(store_write, other_boxes_do_not_exist)
{
    for (const int box : {-1, 3, 4, 306002, -2147483647}) {
        fresh();
        EXPECT_EQ(-1, file(box, 0, {"1", "x"}));
        EXPECT_EQ(lines{filer + ": flag_box(" + std::to_string(box) + ") err"}, traced());
        EXPECT_EQ(lines{}, saved());
        EXPECT_EQ(lines{}, calls());
    }
}

TEST_F(store_write, received_message_without_text_is_only_traced)
{
    EXPECT_EQ(-1, receive(""));
    EXPECT_ONLY_TRACED(filer, "receive sms no data !");
    EXPECT_EQ(lines{}, names(read_dir));
    EXPECT_EQ(lines{"sms_read"}, names(root)) << "neither index nor counter; the directory alone was made";
    EXPECT_EQ((lines{"util_shell mkdir -p " + read_dir, "get_CFG_int SYS_SMS_MAX_SAVE_SIZE", "statfs " + read_dir}),
              calls());
}

TEST_F(store_write, own_message_without_text_is_only_logged)
{
    for (const int box : {BOX_SENT, BOX_DRAFT}) {
        fresh();
        make_boxes();
        EXPECT_EQ(-1, file(box, 1, {"123", ""}));
        EXPECT_ONLY_SAVED(filer, "sms msg size is 0, can not write to file");
        EXPECT_EQ(lines{}, names(dv_sms_boxes[box].dir));
        EXPECT_EQ((lines{"get_CFG_int SYS_SMS_MAX_SAVE_SIZE", std::string("statfs ") + dv_sms_boxes[box].dir}),
                  calls());
    }
}

TEST_F(store_write, missing_directory_is_made)
{
    for (const dv_sms_box &box : dv_sms_boxes) {
        const std::string dir = box.dir;

        fresh();
        EXPECT_EQ(0, file(static_cast<int>(&box - dv_sms_boxes), 1, {"1", "x"}));
        EXPECT_BOTH(filer, dir + " isn't exit");
        EXPECT_EQ(1, platform.count("util_shell mkdir -p " + dir));
        forget();
        EXPECT_EQ(0, file(static_cast<int>(&box - dv_sms_boxes), 1, {"1", "x"}));
        EXPECT_FALSE(in_trace(filer, dir + " isn't exit"));
        EXPECT_EQ(lines{}, platform.calls({"util_shell"}));
    }
}

TEST_F(store_write, directory_that_cannot_be_made_holds_nothing)
{
    platform.set_result("util_shell", 1);
    EXPECT_EQ(-1, receive());
    EXPECT_BOTH(filer, "files_num(-1) cfg_max_save(500) avaiable_size(1048576) can not continue save,please delete it");
    EXPECT_FALSE(exists(root));
}

/* --- writes that fail are not noticed --- */

TEST_F(store_write, failing_writes_do_not_stop_it)
{
    static const struct {
        const char *what;
        int failing; /* the fopen that fails */
        bool file, counter;
        const char *index;
    } rows[] = {{"the message's, beside the box", 1, true, true, " 1 "},
                {"the counter's", 2, true, false, " 1 "},
                {"the index's", 3, true, true, " "}};

    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        fresh();
        seams::fail("fopen", row.failing);
        EXPECT_EQ(0, receive());
        EXPECT_EQ(row.file, exists(read_dir + "/1"));
        EXPECT_EQ(row.counter, exists(unread));
        EXPECT_EQ(row.index, read_file(read_index));
        EXPECT_EQ("1", platform.devinfo(306001));
        EXPECT_EQ("0", platform.devinfo(306002));
        EXPECT_EQ(1, platform.count("sync"));
    }
    fresh();
    for (const char *call : {"cmd_cat", "cmd_echo", "set_devinfo_value_by_id"})
        platform.set_result(call, -1);
    EXPECT_EQ(0, receive());
    EXPECT_EQ("1 ", read_file(read_index));
    EXPECT_EQ("1", read_file(unread));
}

TEST_F(store_write, message_that_cannot_be_written_at_all)
{
    EXPECT_EQ(0, receive());
    seams::fail("fopen", 1, 0, true);
    EXPECT_EQ(0, receive());
    EXPECT_FALSE(exists(read_dir + "/2"));
    EXPECT_EQ(2, platform.count("sync"));
}

TEST_F(store_write, message_of_which_only_the_beginning_can_be_written_is_not_there_at_all)
{
    struct rlimit limit = {}, before = {};

    EXPECT_EQ(0, receive());
    signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &before);
    limit = before;
    limit.rlim_cur = 1000; /* the flash is full behind so many bytes */
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ(0, file(BOX_RECEIVED, 0, {"1", std::string(4000, 'x'), "d"}));
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(lines{"1"}, names(read_dir));
    EXPECT_FALSE(exists(root + "/.new"));
    EXPECT_EQ(0, file(BOX_RECEIVED, 0, {"1", std::string(4000, 'x'), "d"}));
    EXPECT_EQ("2 0 1 d " + std::string(4000, 'x'), read_file(read_dir + "/2"));
}

static rlim_t unlimited_again;

static void give_room(int)
{
    const struct rlimit limit = {unlimited_again, unlimited_again};

    setrlimit(RLIMIT_FSIZE, &limit);
}

TEST_F(store_write, message_that_met_a_full_flash_for_a_moment_is_not_there_at_all)
{
    struct rlimit limit = {};

    make_boxes();
    getrlimit(RLIMIT_FSIZE, &limit);
    unlimited_again = limit.rlim_max;
    signal(SIGXFSZ, give_room); /* at the first write that does not fit */
    limit.rlim_cur = 1000;
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ(0, file(BOX_RECEIVED, 0, {std::string(31, '1'), std::string(4031, 'x'), std::string(31, 'd')}));
    getrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ(unlimited_again, limit.rlim_cur) << "there was no such moment";
    EXPECT_EQ(lines{}, names(read_dir));
    EXPECT_FALSE(exists(root + "/.new"));
}

/* --- a message is there whole or not at all --- */

TEST_F(store_write, message_is_moved_into_its_box_when_it_is_whole)
{
    const std::string text(4000, 'x'); /* more than is written in one go */
    bool seen = false;

    put_files(read_dir, 1);
    platform.set_hook([&](const std::string &call) {
        if (call == "fopen " + root + "/.new w") {
            EXPECT_FALSE(exists(read_dir + "/2"));
        }
        if (call == "get_CFG_int USR_SMS_REDIRECT_SW") {
            seen = true;
            EXPECT_EQ("2 0 1 d " + text, read_file(read_dir + "/2"));
            EXPECT_FALSE(exists(root + "/.new"));
        }
    });
    EXPECT_EQ(0, file(BOX_RECEIVED, 0, {"1", text, "d"}));
    EXPECT_TRUE(seen);
    EXPECT_EQ(1, platform.count("fopen " + root + "/.new w"));
    EXPECT_EQ(0, platform.count("fopen " + read_dir + "/2 w"));
}

TEST_F(store_write, what_a_power_failure_left_is_overwritten_and_never_counted)
{
    write_file(root + "/.new", std::string(5000, 'y'));
    put_files(read_dir, 0);
    EXPECT_EQ(0, receive());
    EXPECT_EQ("1 0 +31612345678 2024/03/05 14:07:00 hi", read_file(read_dir + "/1"));
    EXPECT_FALSE(exists(root + "/.new"));
}

TEST_F(store_write, box_elsewhere_is_written_directly)
{
    make_boxes();
    ASSERT_EQ(0, mkdir((root + "/.new").c_str(), 0777)); /* nothing can be written aside */
    EXPECT_EQ(0, receive());
    EXPECT_EQ("1 0 +31612345678 2024/03/05 14:07:00 hi", read_file(read_dir + "/1"));
}

TEST_F(store_write, box_on_another_file_system_is_written_directly)
{
    make_boxes();
    store_seams::fail_rename(true);
    EXPECT_EQ(0, receive());
    store_seams::fail_rename(false);
    EXPECT_EQ("1 0 +31612345678 2024/03/05 14:07:00 hi", read_file(read_dir + "/1"));
}

/* --- from the decoded message --- */

TEST_F(store_write, decoded_message_is_filed_as_unread)
{
    current_sms_msg = static_cast<dv_sms_msg *>(calloc(1, sizeof(dv_sms_msg)));
    strcpy(current_sms_msg->phone, "Vodafone");
    strcpy(current_sms_msg->date, "2019/12/31 23:59:59");
    strcpy(current_sms_msg->text, "Hello");
    dv_sms_mgr_save_receive_msg();
    EXPECT_EQ("1 0 Vodafone 2019/12/31 23:59:59 Hello", read_file(read_dir + "/1"));
    EXPECT_EQ(nullptr, current_sms_msg);
}

TEST_F(store_write, decoded_message_of_full_fields_is_filed_whole)
{
    current_sms_msg = static_cast<dv_sms_msg *>(calloc(1, sizeof(dv_sms_msg)));
    memset(current_sms_msg->phone, 'p', 31);
    memset(current_sms_msg->date, 'd', 31);
    memset(current_sms_msg->text, 't', 255);
    dv_sms_mgr_save_receive_msg();
    EXPECT_EQ("1 0 " + std::string(31, 'p') + " " + std::string(31, 'd') + " " + std::string(255, 't'),
              read_file(read_dir + "/1"));
}

TEST_F(store_write, decoded_message_is_forgotten_before_it_is_filed)
{
    bool forgotten = false;

    platform.set_hook([&](const std::string &call) {
        if (call == "get_CFG_int SYS_SMS_MAX_SAVE_SIZE")
            forgotten = current_sms_msg == nullptr;
    });
    dv_sms_mgr_receive_sms_by_cmt(pdu_hi);
    EXPECT_TRUE(forgotten);
    EXPECT_TRUE(exists(read_dir + "/1"));
}

/* --- drafts from the bus --- */

TEST_F(store_write, draft_from_the_bus_and_its_outcome)
{
    sockmsg_record record = record_of({"123", "later"});

    record.msg_id = DV_SMS_MGR_MSG_ID_SAVE_DRAFT_SMS;
    record.sender_module_id = 3;
    seams::set_time(filing_time);
    platform.set_cfg("SYS_SMS_MAX_SAVE_SIZE", "1");
    EXPECT_EQ(0, dv_sms_mgr_handler(&record));
    EXPECT_EQ("1 1 123 2024-03-05 14:05:07 later", read_file(draft_dir + "/1"));
    EXPECT_EQ(" 1 ", read_file(draft_index));
    EXPECT_EQ("1", platform.devinfo(306004));
    EXPECT_EQ("0", err_code());
    EXPECT_EQ("3,21767", platform.flag(DV_SMS_MGR_LAST_RECEIVED_MSG));

    platform.set_flag(DV_SMS_MGR_LAST_ERR_CODE, "");
    EXPECT_EQ(0, dv_sms_mgr_handler(&record)) << "the box is full";
    EXPECT_EQ("500", err_code());
    EXPECT_EQ(lines{"1"}, names(draft_dir));

    record.payload[64] = '\0';
    platform.set_flag(DV_SMS_MGR_LAST_ERR_CODE, "");
    platform.set_cfg("SYS_SMS_MAX_SAVE_SIZE", "9");
    EXPECT_EQ(0, dv_sms_mgr_handler(&record)) << "without a text";
    EXPECT_EQ("500", err_code());
}

TEST_F(store_write, flag_of_a_draft_is_waited_for_without_the_lock)
{
    sockmsg_record record = record_of({"123", "later"});
    int free_then = 0;

    record.msg_id = DV_SMS_MGR_MSG_ID_SAVE_DRAFT_SMS;
    platform.set_flag(DV_SMS_MGR_LAST_ERR_CODE, "0");
    seams::on_sleep([&](unsigned, int) {
        if (pthread_mutex_trylock(&sms_store_lock) == 0) {
            free_then++;
            pthread_mutex_unlock(&sms_store_lock);
        }
    });
    EXPECT_EQ(0, dv_sms_mgr_handler(&record));
    EXPECT_EQ(3, seams::sleeps());
    EXPECT_EQ(3, free_then);
}

/* --- the log --- */

TEST_F(store_write, without_debug_mode_only_the_log_speaks)
{
    debug_mode = 0;
    EXPECT_EQ(0, receive());
    seams::fail_statfs();
    EXPECT_EQ(-1, receive());
    EXPECT_EQ("", output());
    EXPECT_EQ(
        (lines{filer + ": " + read_dir + " isn't exit", "get_sys_flash_available: get_sys_flash_available false",
               filer + ": files_num(1) cfg_max_save(500) avaiable_size(-1) can not continue save,please delete it"}),
        saved());
}
