/* Test messages: up to the configured number or down to the floor of free flash. */
#include <stdlib.h>

#include <filesystem>

#include "dv_sms_mgr_generate.h"
#include "dv_sms_mgr_log.h"
#include "store_bench.h"

class generate : public store_bench
{
protected:
    void set_count(const std::string &value) { platform.set_cfg("SYS_SMS_MAX_SAVE_SIZE", value); }

    static lines indexes() { return {read_file(read_index), read_file(send_index), read_file(draft_index)}; }

    /* Which numbers are in the boxes. */
    static std::vector<lines> numbers() { return {names(read_dir), names(send_dir), names(draft_dir)}; }
};

static const char *const prefixes[] = {"测试接收短信_", "测试发送短信_", "测试草稿短信_"};

static std::string test_line(int number, int box)
{
    return std::to_string(number) + " 0 1300000000 12:21:12 2021-12-21 " + prefixes[box] + std::to_string(number);
}

TEST_F(generate, three_messages_a_box)
{
    set_count("3");
    EXPECT_EQ(0, dv_sms_mgr_generate());
    EXPECT_EQ((std::vector<lines>(3, {"1", "2", "3"})), numbers());
    EXPECT_EQ((lines(3, " 1 2 3 ")), indexes());
    for (int box = 0; box < 3; box++)
        for (int number = 1; number <= 3; number++)
            EXPECT_EQ(test_line(number, box),
                      read_file(std::string(dv_sms_boxes[box].dir) + "/" + std::to_string(number)));
    EXPECT_EQ("7 0 1300000000 12:21:12 2021-12-21 测试接收短信_7", test_line(7, 0));
    EXPECT_EQ("0", err_code());
    EXPECT_EQ("3", read_file(unread)) << "they are unread";
    for (const int id : {306001, 306002, 306003, 306004})
        EXPECT_EQ("1", platform.devinfo(id));
}

TEST_F(generate, steps_in_order)
{
    set_count("1");
    EXPECT_EQ(0, dv_sms_mgr_generate());
    lines expected = {"cfg_get_item SYS_SMS_MAX_SAVE_SIZE 6"};
    for (const dv_sms_box &box : dv_sms_boxes)
        expected.insert(expected.end(), {std::string("util_get_cmd_result 64 mkdir -p ") + box.dir,
                                         std::string("cmd_echo \" \" ") + box.index});
    expected.push_back("statfs " + read_dir);
    for (int box = 0; box < 3; box++) {
        const std::string dir = dv_sms_boxes[box].dir, index = dv_sms_boxes[box].index;

        expected.insert(expected.end(), {"cmd_echo \"" + test_line(1, box) + "\" " + dir + "/1",
                                         "cmd_cat " + index + " 4000", "cmd_echo \" 1 \" " + index, "sync"});
    }
    expected.push_back("statfs " + read_dir);
    expected.push_back("set_devinfo_value_by_id 306001 \"0\" 1"); /* the pass over the boxes begins */
    lines all = calls();
    ASSERT_GT(all.size(), expected.size());
    EXPECT_EQ((lines{"flag_get_item DV_SMS_MGR_LAST_ERR_CODE 8", "flag_set DV_SMS_MGR_LAST_ERR_CODE \"0\""}),
              lines(all.end() - 2, all.end()));
    EXPECT_EQ("set_devinfo_value_by_id 306001 \"1\" 1", all[all.size() - 3]);
    all.resize(expected.size());
    EXPECT_EQ(expected, all);
    EXPECT_EQ((lines{"get_sys_flash_available: availableDisk: 1048576 KB",
                     "get_sys_flash_available: availableDisk: 1048576 KB"}),
              traced());
    EXPECT_EQ(lines{}, saved());
}

TEST_F(generate, boxes_that_are_there_are_not_made_again)
{
    set_count("1");
    make_boxes();
    for (const dv_sms_box &box : dv_sms_boxes)
        write_file(box.index, " 9 ");
    EXPECT_EQ(0, dv_sms_mgr_generate());
    for (const std::string &call : platform.calls({"util_get_cmd_result"}))
        EXPECT_EQ(std::string::npos, call.find("mkdir")) << call;
    EXPECT_EQ((lines(3, " 9 1 ")), indexes());
}

/* --- how many --- */

TEST_F(generate, without_a_number_nothing_is_written)
{
    for (const char *value : {static_cast<const char *>(nullptr), "", "0", "-3", "x"}) {
        fresh();
        if (value != nullptr)
            set_count(value);
        EXPECT_EQ(0, dv_sms_mgr_generate());
        EXPECT_EQ(std::vector<lines>(3), numbers());
        EXPECT_EQ(lines(3, " "), indexes()) << "the boxes are prepared all the same";
        EXPECT_EQ(1, platform.count("statfs " + read_dir));
        EXPECT_EQ(1, platform.count("fopen " + unread + " w")) << "and looked at";
        EXPECT_EQ("0", platform.devinfo(306001));
        EXPECT_EQ("0", err_code());
    }
}

TEST_F(generate, six_characters_of_the_number_are_read)
{
    set_count("0000029");
    EXPECT_EQ(0, dv_sms_mgr_generate());
    EXPECT_EQ((std::vector<lines>(3, {"1", "2"})), numbers());
    fresh();
    platform.set_read_mode({.fills_all = false, .empties_unset = true, .scribbles = true});
    set_count("2");
    EXPECT_EQ(0, dv_sms_mgr_generate());
    EXPECT_EQ((std::vector<lines>(3, {"1", "2"})), numbers());
}

TEST_F(generate, number_is_not_limited_to_2000)
{
    set_count("2001");
    make_boxes();
    platform.set_result("cmd_echo", 0); /* asked for, but not written: it would take its time */
    EXPECT_EQ(0, dv_sms_mgr_generate());
    for (int box = 0; box < 3; box++)
        EXPECT_EQ(1, platform.count("cmd_echo \"" + test_line(2001, box) + "\" " + dv_sms_boxes[box].dir + "/2001"));
    EXPECT_EQ(2002, platform.count("statfs " + read_dir));
}

/* --- twice --- */

TEST_F(generate, again_adds_nothing)
{
    set_count("3");
    EXPECT_EQ(0, dv_sms_mgr_generate());
    forget();
    EXPECT_EQ(0, dv_sms_mgr_generate());
    EXPECT_EQ((lines(3, " 1 2 3 ")), indexes());
    EXPECT_EQ(lines{}, platform.calls({"cmd_echo"}));
    EXPECT_EQ(4, platform.count("statfs " + read_dir));
    set_count("4");
    EXPECT_EQ(0, dv_sms_mgr_generate());
    EXPECT_EQ((lines(3, " 1 2 3 4 ")), indexes());
}

TEST_F(generate, numbers_that_are_taken_are_passed_over_box_by_box)
{
    set_count("3");
    put(BOX_RECEIVED, 2, 1, "mine");
    write_file(read_index, " 2 ");
    std::filesystem::create_directories(send_dir + "/3");
    EXPECT_EQ(0, dv_sms_mgr_generate());
    EXPECT_EQ((lines{" 2 1 3 ", " 1 2 ", " 1 2 3 "}), indexes());
    EXPECT_EQ(line_of(2, 1, "mine"), read_file(read_dir + "/2"));
}

/* --- the floor --- */

TEST_F(generate, floor_of_500_kb)
{
    static const struct {
        long block;
        unsigned long blocks;
        bool written;
    } rows[] = {{1024, 501, true},  {1024, 500, false}, {1, 513023, false}, {1, 513024, true},
                {4096, 125, false}, {4096, 126, true},  {4096, 0, false}};

    for (const auto &row : rows) {
        fresh();
        set_count("1");
        seams::set_free_space(row.block, row.blocks);
        EXPECT_EQ(0, dv_sms_mgr_generate());
        EXPECT_EQ((std::vector<lines>(3, row.written ? lines{"1"} : lines{})), numbers())
            << row.block << " " << row.blocks;
        EXPECT_EQ(row.written ? 2 : 1, platform.count("statfs " + read_dir));
        EXPECT_EQ("0", err_code());
    }
}

TEST_F(generate, unknown_free_space_writes_nothing)
{
    set_count("3");
    seams::fail_statfs();
    EXPECT_EQ(0, dv_sms_mgr_generate());
    EXPECT_BOTH("get_sys_flash_available", "get_sys_flash_available false");
    EXPECT_EQ(std::vector<lines>(3), numbers());
    EXPECT_EQ("0", err_code());
}

TEST_F(generate, free_space_is_measured_once_a_number)
{
    set_count("9");
    platform.set_hook([](const std::string &call) {
        if (call.find("cmd_echo \"3 0 ") == 0 && call.find(read_dir) != std::string::npos)
            seams::set_free_space(1024, 500); /* number 3 is begun with more */
    });
    EXPECT_EQ(0, dv_sms_mgr_generate());
    EXPECT_EQ((std::vector<lines>(3, {"1", "2", "3"})), numbers()) << "and is completed below the floor";
    EXPECT_EQ(4, platform.count("statfs " + read_dir));

    fresh();
    set_count("9");
    platform.set_hook([](const std::string &call) {
        if (call.find("cmd_echo \"2 0 ") == 0)
            seams::fail_statfs();
    });
    EXPECT_EQ(0, dv_sms_mgr_generate());
    EXPECT_EQ((std::vector<lines>(3, {"1", "2"})), numbers());
}

/* --- limits and failures --- */

/* A known limit: 4000 characters of an index are read and written back. */
TEST_F(generate, longer_index_is_cut)
{
    const std::string index(4010, '1');

    set_count("1");
    write_file(read_index, index);
    write_file(send_index, index.substr(0, 4000));
    EXPECT_EQ(0, dv_sms_mgr_generate());
    EXPECT_EQ(index.substr(0, 4000) + "1 ", read_file(read_index));
    EXPECT_EQ(index.substr(0, 4000) + "1 ", read_file(send_index));
}

TEST_F(generate, failing_helpers_do_not_stop_it)
{
    for (const char *call : {"cmd_echo", "cmd_cat", "util_get_cmd_result", "set_devinfo_value_by_id"}) {
        fresh();
        set_count("2");
        make_boxes();
        platform.set_result(call, -1);
        EXPECT_EQ(0, dv_sms_mgr_generate()) << call;
        EXPECT_EQ("0", err_code());
        EXPECT_EQ(3, platform.count("statfs " + read_dir));
    }
    fresh();
    set_count("2");
    platform.set_result("util_get_cmd_result", -1);
    EXPECT_EQ(0, dv_sms_mgr_generate()) << "no directory can be made";
    EXPECT_FALSE(exists(read_dir));
}

TEST_F(generate, index_that_is_lost_begins_anew)
{
    set_count("1");
    platform.set_hook([](const std::string &call) {
        if (call == "cmd_cat " + draft_index + " 4000")
            std::filesystem::remove(draft_index);
    });
    EXPECT_EQ(0, dv_sms_mgr_generate());
    EXPECT_EQ((lines{" 1 ", " 1 ", "1 "}), indexes());
}

/* --- through the bus --- */

TEST_F(generate, request_from_the_bus)
{
    sockmsg_record record = request_of(0x5505, "ignored", 4);

    set_count("1");
    EXPECT_EQ(0, dv_sms_mgr_handler(&record));
    EXPECT_EQ((std::vector<lines>(3, {"1"})), numbers());
    EXPECT_EQ("4,21765", platform.flag(DV_SMS_MGR_LAST_RECEIVED_MSG));
    EXPECT_EQ("0", err_code());
    EXPECT_TRACED("dv_sms_mgr_handler", "DV_SMS_MGR_MSG_ID_GENERATE_SMS");
}

TEST_F(generate, flag_is_waited_for_without_the_lock)
{
    bool free_then = false;

    set_count("1");
    platform.set_flag(DV_SMS_MGR_LAST_ERR_CODE, "0");
    seams::on_sleep([&](unsigned, int) {
        free_then = pthread_mutex_trylock(&sms_store_lock) == 0;
        if (free_then)
            pthread_mutex_unlock(&sms_store_lock);
        platform.set_flag(DV_SMS_MGR_LAST_ERR_CODE, "");
    });
    EXPECT_EQ(0, dv_sms_mgr_generate());
    EXPECT_EQ(1, seams::sleeps());
    EXPECT_TRUE(free_then);
}
