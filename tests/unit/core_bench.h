/* The fixture of the core's tests: locks, queues and rings as start-up leaves them, the bus joined. */
#ifndef CORE_BENCH_H
#define CORE_BENCH_H

#include <stdint.h>

#include <functional>
#include <string>
#include <vector>

#include "dv_sms_mgr.h"
#include "fake/bench.h"
#include "sms_msg.h"
#include "sockmsg.h"

extern "C" int daemon_main(int argc, char **argv);

/* What the modem says to what start-up asks when there is nothing to settle. */
extern const char cmgf_pdu[], cnmi_direct[], cpms_sim[], cscs_ira[], plain_ok[];

class core_bench : public bench
{
protected:
    void SetUp() override;
    void TearDown() override;

    /* Start-up's questions get the answers above, and the service centre is known. */
    void script_ready_modem();

    /* The answer "\r\nOK\r\n" behind this line. */
    static std::string ok(const std::string &line = "");

    /* What the queue of requests holds. */
    static int waiting();

    /* The commands that the modem got since the last forget(), "\r" as it stands. */
    std::vector<std::string> asked();

    /* Each start-up makes its own. */
    static void free_rings();

    static size_t times(const std::vector<std::string> &in, const std::string &wanted);

    /* Calls without the traffic of logging and waiting inside the AT channel. */
    std::vector<std::string> calls_but(std::initializer_list<std::string> unwanted);
};

/* Records as other programs send them. */
sockmsg_record make_request(uint32_t msg_id, const std::string &payload = "", uint32_t sender = 0);
sockmsg_record make_message(uint32_t msg_id, const std::string &phone, const std::string &text, uint32_t sender = 0,
                            uint32_t extra = 0);

/* Runs something that ends its thread, as start-up and the workers do, on a thread of its own. */
void run_to_exit(const std::function<void()> &what);

/* Waits, a moment at a time, until it is so; false when it is not so after 20 seconds. */
bool becomes_true(const std::function<bool()> &condition);

using lines = std::vector<std::string>;

#endif
