/* The fixture of the store's tests: nothing received so far, queues and rings empty, both status flags
 * cleared as by an asker, the local time UTC, the store not there yet. */
#ifndef STORE_BENCH_H
#define STORE_BENCH_H

#include <stdint.h>

#include <string>
#include <vector>

#include "dv_sms_mgr.h"
#include "dv_sms_mgr_paths.h"
#include "dv_sms_mgr_receive.h"
#include "fake/bench.h"
#include "sms_msg.h"
#include "sockmsg.h"

using lines = std::vector<std::string>;

/* The places as they are called in a test's directory. */
extern const std::string root, read_dir, read_index, send_dir, send_index, draft_dir, draft_index, unread;

inline const std::string filer = "dv_sms_mgr_write_sms_to_file"; /* who speaks in its log lines */

/* A message as it lies in a record or in a request's queue. */
struct message {
    std::string phone;
    std::string text;
    std::string date = {};
};

bool operator==(const message &a, const message &b);
void PrintTo(const message &what, std::ostream *out);

/* Fields as long as they are given: what fills one has no terminator. */
sockmsg_record record_of(const message &what);
sockmsg_record request_of(uint32_t msg_id, const std::string &payload, uint32_t sender = 3);

class store_bench : public bench
{
protected:
    void SetUp() override;
    void TearDown() override;

    /* As at first: no files, no calls, no output, flags cleared, nothing on its way. For the rows of a table. */
    void fresh();

    void make_boxes(); /* the three directories, empty, without index files */

    /* Puts a file into the box as if it had been filed; the index stays as it is. */
    static std::string put(int box, int number, int state = 0, const std::string &text = "hi");
    static std::string line_of(int number, int state, const std::string &text = "hi"); /* what put writes */

    static lines names(const std::string &dir);               /* its entries, sorted; "." and ".." left out */
    static void put_files(const std::string &dir, int count); /* "1", "2", ..., for counting only: links to one file */

    /* All calls but those of the log. */
    lines calls();

    /* Whether nothing was traced and nothing saved. */
    bool silent();

    /* Takes everything out of the send queue. */
    static std::vector<sockmsg_record> queued_records();
    static std::vector<message> queued();

    std::string err_code() { return platform.flag(DV_SMS_MGR_LAST_ERR_CODE); }
};

#endif
