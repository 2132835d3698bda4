/* Whoever touches the store's files holds its lock while doing so. */
#include <pthread.h>

#include <algorithm>

#include "MTKT750/mtkt750_sms_init.h"
#include "dv_sms_mgr_generate.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_read.h"
#include "dv_sms_mgr_send.h"
#include "store_bench.h"
#include "store_pdu.h"

class store_lock : public store_bench
{
protected:
    int held = 0;
    lines unguarded;

    /* Looks at the lock at every access from here on. */
    void watch()
    {
        platform.set_hook([this](const std::string &call) {
            const std::string word = call.substr(0, call.find(' '));

            if (word != "fopen" && word != "sync" && word.compare(0, 4, "cmd_") != 0 &&
                word.compare(0, 5, "util_") != 0)
                return;
            if (pthread_mutex_trylock(&sms_store_lock) == 0) {
                pthread_mutex_unlock(&sms_store_lock);
                unguarded.push_back(call);
            } else {
                held++;
            }
        });
    }

    void expect_guarded(int accesses)
    {
        EXPECT_EQ(lines{}, unguarded);
        EXPECT_EQ(accesses, held);
        held = 0;
        unguarded.clear();
        EXPECT_EQ(0, pthread_mutex_trylock(&sms_store_lock)) << "and it is given back";
        pthread_mutex_unlock(&sms_store_lock);
    }
};

TEST_F(store_lock, filing)
{
    const sockmsg_record record = record_of({"1", "x", "d"}), empty = record_of({});

    watch();
    EXPECT_EQ(0, dv_sms_mgr_write_sms_to_file(BOX_RECEIVED, 0, &record));
    expect_guarded(7);
    EXPECT_EQ(0, dv_sms_mgr_write_sms_to_file(BOX_SENT, 1, &record));
    expect_guarded(5);
    EXPECT_EQ(-1, dv_sms_mgr_write_sms_to_file(BOX_DRAFT, 1, &empty));
    expect_guarded(1);
}

TEST_F(store_lock, reading)
{
    put(BOX_RECEIVED, 1);
    put(BOX_RECEIVED, 2);
    write_file(read_index, " 1 2 ");
    watch();
    dv_sms_mgr_read_recvive_sms("1");
    expect_guarded(5);
    dv_sms_mgr_read_recvive_sms("READ ALL");
    expect_guarded(6);
}

TEST_F(store_lock, deleting)
{
    put(BOX_RECEIVED, 1);
    write_file(read_index, " 1 ");
    watch();
    EXPECT_EQ(0, dv_sms_mgr_delete_sms("1", read_dir.c_str(), read_index.c_str()));
    expect_guarded(8);
    EXPECT_EQ(-1, dv_sms_mgr_delete_sms("1", read_dir.c_str(), read_index.c_str()));
    expect_guarded(2);
    EXPECT_EQ(0, dv_sms_mgr_delete_sms("DELETE ALL", read_dir.c_str(), read_index.c_str()));
    expect_guarded(4);
}

/* Whoever may wait for somebody else gives the lock back first. */
TEST_F(store_lock, nothing_waits_with_it)
{
    const sockmsg_record record = record_of({"1", "x", "d"});
    lines waited, holding;

    platform.set_cfg("SYS_SMS_MAX_SAVE_SIZE", "1");
    platform.set_cfg("USR_SMS_REDIRECT_SW", "1");
    platform.set_cfg("USR_SMS_REDIRECT_PHONE", "123");
    platform.set_devinfo(301002, "LTE");
    platform.set_flag("SMS_CSCA", "+31653131313");
    modem.script("AT+CMGR=*", {{"\r\n+CMGR: 0,,24\r\n" + pdu_of("hi") + "\r\n\r\nOK\r\n"}});
    platform.set_hook([&](const std::string &call) {
        const std::string word = call.substr(0, call.find(' '));

        if (word != "sleep" && word != "bus" && word != "pthread_cond_timedwait" && word.compare(0, 5, "flag_") != 0)
            return;
        waited.push_back(word);
        if (pthread_mutex_trylock(&sms_store_lock) == 0)
            pthread_mutex_unlock(&sms_store_lock);
        else
            holding.push_back(call);
    });
    platform.set_flag(DV_SMS_MGR_LAST_ERR_CODE, "0"); /* not cleared: each outcome waits */
    EXPECT_EQ(CMTI_FILED, dv_sms_mgr_receive_sms_by_cmti(3));
    dv_sms_mgr_receive_sms_by_cmt(pdu_of("ho").c_str());
    EXPECT_EQ(0, dv_sms_mgr_send_sms(&record));
    for (const uint32_t id : {DV_SMS_MGR_MSG_ID_READ_SMS, DV_SMS_MGR_MSG_ID_DELETE_RECEIVE_SMS,
                              DV_SMS_MGR_MSG_ID_DELETE_SEND_SMS, DV_SMS_MGR_MSG_ID_GENERATE_SMS}) {
        sockmsg_record request = request_of(id, "1");

        dv_sms_mgr_handler(&request);
    }
    sockmsg_record draft = record_of({"1", "draft"});
    draft.msg_id = DV_SMS_MGR_MSG_ID_SAVE_DRAFT_SMS;
    dv_sms_mgr_handler(&draft);
    rebuild_sms_index();
    init_sms_box_state();

    EXPECT_EQ(lines{}, holding);
    for (const char *word : {"sleep", "bus", "pthread_cond_timedwait", "flag_get_item", "flag_set"})
        EXPECT_NE(waited.end(), std::find(waited.begin(), waited.end(), word)) << word << " is never reached";
}

TEST_F(store_lock, start_and_generation)
{
    platform.set_cfg("SYS_SMS_MAX_SAVE_SIZE", "1");
    make_boxes();
    watch();
    rebuild_sms_index();
    expect_guarded(9);
    init_sms_box_state();
    expect_guarded(6);
    EXPECT_EQ(0, dv_sms_mgr_generate());
    expect_guarded(12 + 10);
}
