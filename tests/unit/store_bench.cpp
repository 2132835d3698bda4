#include "store_bench.h"

#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <filesystem>
#include <ostream>

#include "MTKT750/mtkt750_sms_init.h"
#include "dv_sms_mgr_utils.h"

namespace fs = std::filesystem;

const std::string root = "mnt/data/sms";
const std::string read_dir = root + "/sms_read", read_index = root + "/read_index";
const std::string send_dir = root + "/sms_send", send_index = root + "/send_index";
const std::string draft_dir = root + "/sms_draft", draft_index = root + "/draft_index";
const std::string unread = root + "/unread_sms";

bool operator==(const message &a, const message &b)
{
    return a.phone == b.phone && a.text == b.text && a.date == b.date;
}

void PrintTo(const message &what, std::ostream *out)
{
    *out << "{" << what.phone << ", " << what.text << ", " << what.date << "}";
}

template <size_t Size> static void put_field(char (&field)[Size], const std::string &text)
{
    ASSERT_LE(text.size(), Size);
    memcpy(field, text.data(), text.size());
}

sockmsg_record record_of(const message &what)
{
    sockmsg_record record = {};
    auto *payload = reinterpret_cast<sms_payload *>(record.payload);

    put_field(payload->date, what.date);
    put_field(payload->phone, what.phone);
    put_field(payload->text, what.text);
    return record;
}

sockmsg_record request_of(uint32_t msg_id, const std::string &payload, uint32_t sender)
{
    sockmsg_record record = {};

    record.msg_id = msg_id;
    memcpy(record.payload, payload.data(), std::min(payload.size(), sizeof record.payload));
    record.sender_module_id = sender;
    return record;
}

/* What an earlier test of the same process may have left. */
static void forget_the_past()
{
    char pdu[512];
    uint32_t index;

    free(current_sms_msg);
    current_sms_msg = nullptr;
    while (sms_part_head != nullptr) {
        sms_part_node *gone = sms_part_head;
        sms_part_head = gone->next;
        free(gone);
    }
    if (g_sms_send_head == nullptr)
        g_sms_send_head = list_create();
    if (sms_index_queue.slots == nullptr)
        init_queue();
    if (sms_pdu_queue.slots == nullptr)
        init_pdu_queue();
    sockmsg_record record;
    while (list_pop(g_sms_send_head, &record) == 1)
        ;
    while (util_dequeue(&index) == 0 || util_dequeue_pdu(pdu, sizeof pdu) == 0)
        ;
}

void store_bench::SetUp()
{
    bench::SetUp();
    if (HasFatalFailure())
        return;
    setenv("TZ", "UTC0", 1);
    tzset();
    sms_enabled = 1;
    fresh();
}

void store_bench::TearDown()
{
    modem.reset();
    EXPECT_EQ(lines{}, platform.unclean_reads()) << "these were handed what had stood in their buffers before";
    forget_the_past();
    free(g_sms_send_head);
    g_sms_send_head = nullptr;
    free(sms_index_queue.slots);
    sms_index_queue.slots = nullptr;
    free(sms_pdu_queue.slots);
    sms_pdu_queue.slots = nullptr;
    sms_enabled = 0;
    bench::TearDown();
}

void store_bench::fresh()
{
    modem.reset();
    platform.reset();
    seams::reset();
    platform.set_handler(dv_sms_mgr_handler);
    platform.set_flag(DV_SMS_MGR_LAST_ERR_CODE, "");
    platform.set_flag(DV_SMS_MGR_LAST_RECEIVED_MSG, "");
    forget_the_past();
    fs::remove_all("mnt");
    forget();
}

void store_bench::make_boxes()
{
    for (const dv_sms_box &box : dv_sms_boxes)
        fs::create_directories(box.dir);
}

std::string store_bench::line_of(int number, int state, const std::string &text)
{
    return std::to_string(number) + " " + std::to_string(state) + " +31612345678 2024/03/05 14:07:00 " + text;
}

std::string store_bench::put(int box, int number, int state, const std::string &text)
{
    const std::string path = std::string(dv_sms_boxes[box].dir) + "/" + std::to_string(number);

    write_file(path, line_of(number, state, text));
    return path;
}

lines store_bench::names(const std::string &dir)
{
    lines found;

    if (fs::exists(dir))
        for (const fs::directory_entry &entry : fs::directory_iterator(dir))
            found.push_back(entry.path().filename());
    std::sort(found.begin(), found.end());
    return found;
}

void store_bench::put_files(const std::string &dir, int count)
{
    fs::create_directories(dir);
    if (count > 0)
        write_file(dir + "/1", "x");
    for (int number = 2; number <= count; number++)
        fs::create_hard_link(dir + "/1", dir + "/" + std::to_string(number)); /* quicker than one by one */
}

lines store_bench::calls()
{
    lines kept;

    for (const std::string &line : platform.calls())
        if (line.compare(0, 8, "savelog ") != 0)
            kept.push_back(line);
    return kept;
}

bool store_bench::silent()
{
    return output().empty() && platform.saved().empty();
}

std::vector<sockmsg_record> store_bench::queued_records()
{
    std::vector<sockmsg_record> records;
    sockmsg_record record;

    while (list_pop(g_sms_send_head, &record) == 1)
        records.push_back(record);
    return records;
}

std::vector<message> store_bench::queued()
{
    std::vector<message> found;

    for (const sockmsg_record &record : queued_records()) {
        const auto *payload = reinterpret_cast<const sms_payload *>(record.payload);

        found.push_back({payload->phone, payload->text, payload->date});
    }
    return found;
}
