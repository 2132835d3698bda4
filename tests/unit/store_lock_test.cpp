/* Whoever touches the store's files holds its lock while doing so. */
#include <pthread.h>

#include "MTKT750/mtkt750_sms_init.h"
#include "dv_sms_mgr_generate.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_read.h"
#include "store_bench.h"

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
