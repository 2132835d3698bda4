#include "core_bench.h"

#include <pthread.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "MTKT750/mtkt750_sms_init.h"
#include "dv_sms_mgr_lock.h"
#include "dv_sms_mgr_utils.h"

extern "C" int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*body)(void *),
                                     void *argument);

const char cmgf_pdu[] = "\r\n+CMGF: 0\r\n\r\nOK\r\n";
const char cnmi_direct[] = "\r\n+CNMI: 3,2,0,0,0\r\n\r\nOK\r\n";
const char cpms_sim[] = "\r\n+CPMS: \"SM\",2,30,\"SM\",2,30,\"SM\",2,30\r\n\r\nOK\r\n";
const char cscs_ira[] = "\r\n+CSCS: \"IRA\"\r\n\r\nOK\r\n";
const char plain_ok[] = "\r\nOK\r\n";

void core_bench::SetUp()
{
    bench::SetUp();
    if (HasFatalFailure())
        return;
    pthread_mutex_init(&sms_send_lock, nullptr);
    pthread_cond_init(&sms_send_cond, nullptr);
    pthread_mutex_init(&at_lock, nullptr);
    pthread_condattr_init(&at_available_cond_attr);
    pthread_condattr_setclock(&at_available_cond_attr, CLOCK_MONOTONIC);
    pthread_cond_init(&at_available_cond, &at_available_cond_attr);
    g_sms_send_head = list_create();
    ASSERT_EQ(0, init_queue());
    ASSERT_EQ(0, init_pdu_queue());
    sms_enabled = 0;
    at_err_log_enable = 1;
    platform.set_handler(dv_sms_mgr_handler);
    forget();
}

void core_bench::TearDown()
{
    sockmsg_record record;
    char pdu[512];

    modem.reset();
    EXPECT_EQ(lines{}, platform.unclean_reads()) << "these were handed what had stood in their buffers before";
    while (g_sms_send_head != nullptr && list_pop(g_sms_send_head, &record) == 1)
        ;
    free(g_sms_send_head);
    g_sms_send_head = nullptr;
    while (util_dequeue_pdu(pdu, sizeof pdu) == 0)
        ;
    free_rings();
    sms_index_queue.count = 0;
    bench::TearDown();
}

void core_bench::script_ready_modem()
{
    platform.set_devinfo(301001, "1");
    platform.set_flag("SMS_CSCA", "+31653131313");
    modem.script("AT+CMGF?\r", {{cmgf_pdu}});
    modem.script("AT+CNMI?\r", {{cnmi_direct}});
    modem.script("AT+CPMS?\r", {{cpms_sim}});
    modem.script("AT+CSCS?\r", {{cscs_ira}});
}

void core_bench::free_rings()
{
    free(sms_index_queue.slots);
    free(sms_pdu_queue.slots);
    sms_index_queue.slots = nullptr;
    sms_pdu_queue.slots = nullptr;
}

size_t core_bench::times(const std::vector<std::string> &in, const std::string &wanted)
{
    return static_cast<size_t>(std::count(in.begin(), in.end(), wanted));
}

std::string core_bench::ok(const std::string &line)
{
    return line.empty() ? plain_ok : "\r\n" + line + "\r\n" + plain_ok;
}

int core_bench::waiting()
{
    locked hold(&sms_send_lock);
    return g_sms_send_head->count;
}

std::vector<std::string> core_bench::asked()
{
    std::vector<std::string> commands = platform.commands();

    for (std::string &command : commands)
        if (command.size() >= 2 && command.compare(command.size() - 2, 2, "\\r") == 0)
            command.resize(command.size() - 2);
        else
            ADD_FAILURE() << "no carriage return ends " << command;
    return commands;
}

std::vector<std::string> core_bench::calls_but(std::initializer_list<std::string> unwanted)
{
    std::vector<std::string> kept;

    for (const std::string &line : platform.calls()) {
        const std::string word = line.substr(0, line.find(' '));

        if (std::find(unwanted.begin(), unwanted.end(), word) == unwanted.end())
            kept.push_back(line);
    }
    return kept;
}

sockmsg_record make_request(uint32_t msg_id, const std::string &payload, uint32_t sender)
{
    sockmsg_record record = {};

    record.msg_id = msg_id;
    memcpy(record.payload, payload.data(), std::min(payload.size(), sizeof record.payload));
    record.sender_module_id = sender;
    return record;
}

sockmsg_record make_message(uint32_t msg_id, const std::string &phone, const std::string &text, uint32_t sender,
                            uint32_t extra)
{
    sockmsg_record record = make_request(msg_id, "", sender);

    memcpy(record.payload + 32, phone.data(), std::min(phone.size(), size_t{32}));
    memcpy(record.payload + 64, text.data(), std::min(text.size(), size_t{4032}));
    record.sender_extra = extra;
    return record;
}

static void *run(void *what)
{
    (*static_cast<const std::function<void()> *>(what))();
    return nullptr;
}

void run_to_exit(const std::function<void()> &what)
{
    std::function<void()> body = what;
    pthread_t thread;

    ASSERT_EQ(0, __real_pthread_create(&thread, nullptr, run, &body));
    pthread_join(thread, nullptr);
}

bool becomes_true(const std::function<bool()> &condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);

    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}
