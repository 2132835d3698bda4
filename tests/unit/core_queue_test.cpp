/* The queue of requests, the two receive rings and the logger of raw AT data. */
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>
#include <vector>

#include "core_bench.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_utils.h"

namespace
{

class queues : public core_bench
{
};

static uint32_t number_of(const sockmsg_record &record)
{
    return record.reserved;
}

static sockmsg_record numbered(uint32_t number)
{
    sockmsg_record record = make_message(DV_SMS_MGR_MSG_ID_SEND_SMS, "123", "text");

    record.reserved = number;
    return record;
}

/* --- the list --- */

TEST_F(queues, a_new_list_is_empty)
{
    sms_send_list *list = list_create();
    sockmsg_record record = numbered(7);

    ASSERT_NE(nullptr, list);
    EXPECT_EQ(nullptr, list->first);
    EXPECT_EQ(nullptr, list->last);
    EXPECT_EQ(0, list->count);
    EXPECT_EQ(0, list_pop(list, &record));
    EXPECT_EQ(7u, number_of(record)) << "nothing copied";
    EXPECT_EQ(0, list->count);
    free(list);
}

TEST_F(queues, a_list_or_node_without_memory_is_null)
{
    const sockmsg_record record = numbered(1);

    seams::fail("calloc");
    seams::fail("malloc");
    EXPECT_EQ(nullptr, list_create());
    seams::reset();
    seams::fail("calloc");
    seams::fail("malloc");
    EXPECT_EQ(nullptr, list_node_create(&record));
}

TEST_F(queues, a_node_holds_a_copy_of_the_whole_record)
{
    sockmsg_record record;

    memset(&record, 0xC3, sizeof record);
    sms_send_node *node = list_node_create(&record);
    ASSERT_NE(nullptr, node);
    EXPECT_EQ(0, memcmp(&record, &node->record, sizeof record));
    EXPECT_EQ(nullptr, node->next);
    free(node);
}

TEST_F(queues, a_list_gives_back_in_the_order_of_joining)
{
    sms_send_list list = {};
    sockmsg_record record;

    EXPECT_EQ(0, list_join(nullptr, &list)) << "no node";
    EXPECT_EQ(0, list.count);
    for (uint32_t i = 1; i <= 3; i++) {
        const sockmsg_record each = numbered(i);
        sms_send_node *node = list_node_create(&each);

        EXPECT_EQ(1, list_join(node, &list));
        EXPECT_EQ(node, list.last);
        EXPECT_EQ(static_cast<int32_t>(i), list.count);
    }
    for (uint32_t i = 1; i <= 3; i++) {
        EXPECT_EQ(1, list_pop(&list, &record));
        EXPECT_EQ(i, number_of(record));
        EXPECT_EQ(3 - static_cast<int32_t>(i), list.count);
    }
    EXPECT_EQ(nullptr, list.first) << "the last one popped leaves nothing behind";
    EXPECT_EQ(nullptr, list.last);
    const sockmsg_record again = numbered(9);
    EXPECT_EQ(1, list_join(list_node_create(&again), &list));
    EXPECT_EQ(list.first, list.last);
    EXPECT_EQ(1, list_pop(&list, &record));
    EXPECT_EQ(9u, number_of(record));
}

/* --- pushing --- */

TEST_F(queues, pushing_nothing_is_refused_in_the_trace_only)
{
    EXPECT_EQ(-1, push_sms_into_queue(nullptr));
    EXPECT_ONLY_TRACED("push_sms_into_queue", "invalid parameter");
    EXPECT_EQ(lines{}, platform.calls());
    EXPECT_EQ(0, waiting());
}

TEST_F(queues, a_pushed_request_is_a_copy)
{
    sockmsg_record request = numbered(1), taken;

    EXPECT_EQ(1, push_sms_into_queue(&request));
    EXPECT_ONLY_TRACED("push_sms_into_queue", "join succ");
    memset(&request, 0xFF, sizeof request); /* the bus library takes its record back */
    ASSERT_EQ(1, list_pop(g_sms_send_head, &taken));
    const sockmsg_record wanted = numbered(1);
    EXPECT_EQ(0, memcmp(&wanted, &taken, sizeof taken));
}

TEST_F(queues, sixty_one_requests_wait_and_no_more)
{
    sockmsg_record taken;

    for (uint32_t i = 1; i <= 61; i++) {
        const sockmsg_record request = numbered(i);

        EXPECT_EQ(1, push_sms_into_queue(&request)) << i;
    }
    EXPECT_EQ(lines{}, platform.saved());
    forget();
    const sockmsg_record request = numbered(62);
    EXPECT_EQ(0, push_sms_into_queue(&request));
    EXPECT_BOTH("push_sms_into_queue", "there are too much msgs, just stop push queue");
    EXPECT_EQ(1u, traced().size());
    EXPECT_EQ(61, waiting());

    ASSERT_EQ(1, list_pop(g_sms_send_head, &taken));
    EXPECT_EQ(1u, number_of(taken));
    const sockmsg_record next = numbered(63);
    EXPECT_EQ(1, push_sms_into_queue(&next)) << "with 60 waiting one more is admitted";
    for (uint32_t i = 2; i <= 61; i++) {
        ASSERT_EQ(1, list_pop(g_sms_send_head, &taken));
        EXPECT_EQ(i, number_of(taken));
    }
    ASSERT_EQ(1, list_pop(g_sms_send_head, &taken));
    EXPECT_EQ(63u, number_of(taken)) << "the refused one is nowhere";
    EXPECT_EQ(0, list_pop(g_sms_send_head, &taken));
}

TEST_F(queues, a_request_without_memory_is_refused_and_the_queue_stays_as_it_was)
{
    const sockmsg_record request = numbered(1);

    seams::fail("malloc");
    seams::fail("calloc");
    EXPECT_EQ(-1, push_sms_into_queue(&request));
    EXPECT_EQ(0, waiting());
    EXPECT_EQ(nullptr, g_sms_send_head->first);
    EXPECT_EQ(lines{}, platform.saved());
    seams::reset();
    EXPECT_EQ(1, push_sms_into_queue(&request)) << "and no lock is left held";
}

/* --- the ring of indexes --- */

TEST_F(queues, an_empty_ring_gives_nothing)
{
    uint32_t index = 77;
    char pdu[512] = "as it was";

    EXPECT_EQ(-1, util_dequeue(&index));
    EXPECT_EQ(77u, index);
    EXPECT_EQ(-1, util_dequeue_pdu(pdu, sizeof pdu));
    EXPECT_STREQ("as it was", pdu);
    EXPECT_EQ("", output());
}

TEST_F(queues, the_51st_index_is_lost)
{
    uint32_t index;

    for (uint32_t i = 0; i < 50; i++)
        ASSERT_EQ(0, util_enqueue(100 + i));
    EXPECT_EQ(lines{}, platform.calls());
    EXPECT_EQ(-1, util_enqueue(999));
    EXPECT_BOTH("util_enqueue", "queue is full, can not enqueue");
    EXPECT_EQ(50, sms_index_queue.count);
    for (uint32_t i = 0; i < 50; i++) {
        ASSERT_EQ(0, util_dequeue(&index));
        EXPECT_EQ(100 + i, index);
    }
    EXPECT_EQ(-1, util_dequeue(&index));
}

TEST_F(queues, the_ring_of_indexes_goes_round)
{
    uint32_t index;

    for (uint32_t i = 0; i < 50; i++)
        ASSERT_EQ(0, util_enqueue(i));
    EXPECT_EQ(0, sms_index_queue.write) << "position 0 follows 49";
    ASSERT_EQ(0, util_dequeue(&index));
    EXPECT_EQ(0, util_enqueue(50));
    EXPECT_EQ(50u, sms_index_queue.slots[0]);
    EXPECT_EQ(1, sms_index_queue.write);
    EXPECT_EQ(1, sms_index_queue.read);
    EXPECT_EQ(-1, util_enqueue(51));
    for (uint32_t i = 1; i <= 50; i++) {
        ASSERT_EQ(0, util_dequeue(&index));
        EXPECT_EQ(i, index);
    }
    /* At every position in turn: one in, one out. */
    for (uint32_t i = 0; i < 120; i++) {
        ASSERT_EQ(0, util_enqueue(0xFFFFFFFF - i));
        ASSERT_EQ(0, util_dequeue(&index));
        EXPECT_EQ(0xFFFFFFFF - i, index);
    }
    EXPECT_EQ(0, sms_index_queue.count);
}

/* --- the ring of PDUs --- */

TEST_F(queues, the_51st_pdu_is_lost)
{
    char pdu[512];

    for (int i = 0; i < 50; i++)
        ASSERT_EQ(0, util_enqueue_pdu(std::to_string(i).c_str()));
    EXPECT_EQ(lines{}, platform.calls());
    EXPECT_EQ(-1, util_enqueue_pdu("lost"));
    EXPECT_BOTH("util_enqueue_pdu", "pdu queue is full, can not enqueue");
    EXPECT_EQ(50, sms_pdu_queue.count);
    for (int i = 0; i < 50; i++) {
        memset(pdu, 0, sizeof pdu);
        ASSERT_EQ(0, util_dequeue_pdu(pdu, sizeof pdu));
        EXPECT_EQ(std::to_string(i), pdu);
    }
    EXPECT_EQ(-1, util_dequeue_pdu(pdu, sizeof pdu));
}

TEST_F(queues, the_ring_of_pdus_goes_round)
{
    char pdu[512] = {};

    for (int i = 0; i < 50; i++)
        ASSERT_EQ(0, util_enqueue_pdu("x"));
    EXPECT_EQ(0, sms_pdu_queue.write);
    ASSERT_EQ(0, util_dequeue_pdu(pdu, sizeof pdu));
    EXPECT_EQ(0, util_enqueue_pdu("round"));
    EXPECT_STREQ("round", sms_pdu_queue.slots[0]);
    EXPECT_EQ(1, sms_pdu_queue.write);
    EXPECT_EQ(1, sms_pdu_queue.read);
    while (util_dequeue_pdu(pdu, sizeof pdu) == 0)
        ;
    EXPECT_STREQ("round", pdu);
    for (int i = 0; i < 120; i++) {
        ASSERT_EQ(0, util_enqueue_pdu(std::to_string(i).c_str()));
        ASSERT_EQ(0, util_dequeue_pdu(pdu, sizeof pdu));
        EXPECT_EQ(std::to_string(i), pdu);
    }
}

TEST_F(queues, a_queued_pdu_is_a_copy)
{
    std::string text = "0791";
    char pdu[512] = {};

    EXPECT_EQ(0, util_enqueue_pdu(text.c_str()));
    text = "----";
    EXPECT_EQ(0, util_dequeue_pdu(pdu, sizeof pdu));
    EXPECT_STREQ("0791", pdu);
}

TEST_F(queues, a_pdu_as_long_as_the_buffer_allows_comes_out_whole)
{
    for (const size_t length : {size_t{0}, size_t{1}, size_t{510}, size_t{511}}) {
        const std::string text(length, '7');
        marked_buffer buffer(512);

        EXPECT_EQ(0, util_enqueue_pdu(text.c_str()));
        EXPECT_EQ(0, util_dequeue_pdu(buffer.data(), 512));
        EXPECT_EQ(text, buffer.data());
        EXPECT_TRUE(buffer.intact());
    }
}

TEST_F(queues, a_pdu_never_leaves_a_shorter_buffer)
{
    for (const size_t size : {size_t{1}, size_t{2}, size_t{9}, size_t{10}, size_t{11}}) {
        marked_buffer buffer(size);

        EXPECT_EQ(0, util_enqueue_pdu("0123456789"));
        EXPECT_EQ(0, util_dequeue_pdu(buffer.data(), static_cast<int>(size)));
        EXPECT_EQ(std::string("0123456789").substr(0, size - 1), buffer.data());
        EXPECT_TRUE(buffer.intact()) << size;
    }
}

TEST_F(queues, a_pdu_without_memory_is_lost)
{
    seams::fail("malloc");
    seams::fail("calloc");
    EXPECT_EQ(-1, util_enqueue_pdu("0791"));
    EXPECT_BOTH("util_enqueue_pdu", "malloc failed, can not enqueue");
    EXPECT_EQ(0, sms_pdu_queue.count);
    EXPECT_EQ(0, sms_pdu_queue.write);
    seams::reset();
    EXPECT_EQ(0, util_enqueue_pdu("0791"));
}

/* --- raw AT data --- */

struct log_case {
    const char *text;
    const char *escaped;
};

static const log_case log_cases[] = {
    {"", ""},
    {"AT+CMGF?\r", "AT+CMGF?\\r"},
    {"\r\n+CMGF: 0\r\n\r\nOK\r\n", "\\r\\n+CMGF: 0\\r\\n\\r\\nOK\\r\\n"},
    {"\n\n", "\\n\\n"},
    {"100% %s %n \x1A \\ \t", "100% %s %n \x1A \\ \t"},
};

TEST_F(queues, raw_data_is_printed_with_visible_line_ends_while_tracing)
{
    for (const log_case &each : log_cases) {
        forget();
        dv_sms_mgr_log_data("=> send data :", each.text);
        EXPECT_EQ(std::string("[dv_sms_mgr] => send data :") + each.escaped + "\n", output());
        EXPECT_EQ(lines{}, platform.calls()) << "and not logged";
    }
}

TEST_F(queues, raw_data_is_logged_at_level_3_and_printed_as_it_is_without_tracing)
{
    debug_mode = 0;
    for (const log_case &each : log_cases) {
        forget();
        dv_sms_mgr_log_data("<= recv data :", each.text);
        EXPECT_EQ(std::string("[dv_sms_mgr] <= recv data :") + each.text, output()) << "no line feed behind it";
        EXPECT_EQ(lines{"savelog 3 [dv_sms_mgr] <= recv data :" + fake::visible(each.text)}, platform.calls());
    }
}

TEST_F(queues, the_longest_raw_data_are_printed_whole)
{
    std::string text, escaped;

    for (int i = 0; i < 4083; i++) {
        text += '\r';
        escaped += "\\r";
    }
    dv_sms_mgr_log_data("<= recv atind data:", text.c_str());
    EXPECT_EQ("[dv_sms_mgr] <= recv atind data:" + escaped + "\n", output());
}

TEST_F(queues, raw_data_longer_than_any_record_are_cut_behind_a_whole_line_end)
{
    dv_sms_mgr_log_data("", std::string(9000, '\n').c_str());
    std::string escaped;
    for (int i = 0; i < 4096; i++)
        escaped += "\\n";
    EXPECT_EQ("[dv_sms_mgr] " + escaped + "\n", output());
}

} // namespace
