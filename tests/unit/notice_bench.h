/* What the tests of the notices share: the queue as the only outcome, and texts in chunks. */
#ifndef NOTICE_BENCH_H
#define NOTICE_BENCH_H

#include <string>

#include "dv_sms_mgr_generate.h"
#include "store_bench.h"

inline const char flow_switch[] = "USR_FLOW_SMS_NOTICE_SWITCH";
inline const char flow_phone[] = "USR_FLOW_SMS_NOTICE_PHONE_NUMBER";
inline const char failover_key[] = "USR_FLOW_SMS_NOTICE_TEXT_";
inline const char half_key[] = "USR_SMS_NOTICE_FLOW_OVER_PERCENT_50_TEXT_";
inline const char all_key[] = "USR_SMS_NOTICE_FLOW_OVER_PERCENT_100_TEXT_";
inline const char default_traced[] = "empty USR_FLOW_SMS_NOTICE_TEXT, just use text as default..";

class notice_bench : public store_bench
{
protected:
    /* The chunks under the key's numbers, from 0. */
    void set_chunks(const std::string &key, const lines &chunks)
    {
        for (size_t n = 0; n < chunks.size(); n++)
            platform.set_cfg(key + std::to_string(n), chunks[n]);
    }

    /* How the chunks of a key are asked for when there are so many. */
    static lines chunk_reads(const std::string &key, int count)
    {
        lines reads;

        for (int n = 0; n <= count && n < 32; n++)
            reads.push_back("cfg_get_item " + key + std::to_string(n) + " 128");
        return reads;
    }
};

#endif
