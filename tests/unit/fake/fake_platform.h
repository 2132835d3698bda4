/* A platform in memory, for tests that link the daemon's own objects.
 *
 * It keeps the three stores, works on the files of the test's scratch directory and records every
 * call in the order of its beginning, as one line of text with control characters made visible:
 *
 *   cfg_get_item SYS_SMS_SW 2            flag_set SMS_CSCA "+316540881003"
 *   get_CFG_int SYS_SMS_MAX_SAVE_SIZE    set_devinfo_value_by_id 306001 "1" 1
 *   savelog 0 [dv_sms_mgr] f: text       bus 5 AT+CMGF?\r
 *   cmd_cat mnt/data/sms/read_index 4096 cmd_echo " " mnt/data/sms/read_index
 *   sleep 1        sync                  fopen mnt/data/sms/sms_read/1 w
 *
 * What the interface leaves open is settled by the switches, in the way that is hardest to bear at
 * first. All of it may be used from any thread. */
#ifndef FAKE_PLATFORM_H
#define FAKE_PLATFORM_H

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "sockmsg.h"

namespace fake
{

/* How a call that reads into a caller's buffer of N characters behaves. */
struct read_mode {
    bool fills_all = true;      /* a value of N or more characters takes all N, without a terminator; */
                                /* false: N - 1 and a terminator */
    bool empties_unset = false; /* an unset value empties the buffer; false: leaves it untouched */
    bool scribbles = false;     /* the characters behind a shorter value's terminator become 0xA5 */
    int unset_result = -1;      /* what the call returns then */
};

class platform
{
public:
    /* Everything as at the start of a test. */
    void reset();

    /* --- the stores; unset is: not in the map --- */
    void set_cfg(const std::string &key, const std::string &value);
    void unset_cfg(const std::string &key);
    void set_flag(const std::string &name, const std::string &value);
    void unset_flag(const std::string &name);
    void set_devinfo(int id, const std::string &value);
    void unset_devinfo(int id);
    std::string cfg(const std::string &key);   /* "(unset)" when it is */
    std::string flag(const std::string &name); /* so too */
    std::string devinfo(int id);               /* so too */

    /* --- switches --- */
    void set_read_mode(const std::string &function, const read_mode &mode); /* "cfg_get_item", "cmd_cat", ... */
    void set_read_mode(const read_mode &mode);                              /* of all of them */
    void set_result(const std::string &function, int result); /* the call is recorded, does nothing and returns this */
    void clear_result(const std::string &function);
    void set_bus_result(int module_id, int result); /* of sends to that module; nothing is delivered */
    void set_app_name(int module_id, const std::string &name);
    void set_null_app_names(bool null_names); /* of modules without a name of their own */
    /* Run at each line recorded, on the thread that made the call and before the call does its work,
     * with no lock of the platform's held: the world may change under the daemon's feet. */
    void set_hook(std::function<void(const std::string &line)> hook);

    /* --- what happened --- */
    void record(const std::string &line); /* one more line, as it stands */
    std::vector<std::string> calls();     /* all of them */
    /* Those whose first word is one of these. */
    std::vector<std::string> calls(std::initializer_list<std::string_view> functions);
    std::vector<std::string> saved();    /* the log's lines: "0 [dv_sms_mgr] f: text" */
    std::vector<std::string> commands(); /* the modem's, as they were sent, escaped */
    int count(const std::string &line);  /* how often this very line was recorded */
    void forget();                       /* the calls, not the settings */

    /* The calls since the last such question that were handed a buffer which was not zeroed, and forgets them. An
     * unset value may leave a buffer as it was, so what stood there would be taken for the value. */
    std::vector<std::string> unclean_reads();

    /* The records that the bus took, with the modules they went to. */
    std::vector<std::pair<int, sockmsg_record>> sent();

    /* --- the bus --- */
    void set_handler(sockmsg_handler taker); /* init_sockmsg sets it too */
    sockmsg_handler handler();

    /* --- for the C functions --- */
    int read(const char *function, const std::map<std::string, std::string> &store, const std::string &key,
             char *buffer, int size);
    int fill(const char *function, const std::string *value, char *buffer, int size);
    bool overridden(const char *function, int *result);
    const char *app_name(int module_id);
    int send(int module_id, const sockmsg_record *record);

    std::map<std::string, std::string> cfg_store, flag_store, devinfo_store; /* under the lock */
    std::recursive_mutex lock;

private:
    std::map<std::string, read_mode> read_modes_;
    std::map<std::string, int> results_;
    std::map<int, int> bus_results_;
    std::map<int, std::string> app_names_;
    std::set<std::string> name_pool_; /* names given out stay where they are */
    bool null_names_ = false;
    std::vector<std::string> calls_;
    std::vector<std::string> unclean_reads_;
    std::vector<std::pair<int, sockmsg_record>> sent_;
    sockmsg_handler handler_ = nullptr;
    std::function<void(const std::string &)> hook_;
};

platform &the_platform();

/* "\r" as backslash r, "\n" as backslash n, other control characters as \xNN. */
std::string visible(std::string_view text);

} // namespace fake

#endif
