/* Parts of concatenated messages: kept until none is missing, joined in order, filed as one. */
#include <stdlib.h>
#include <string.h>

#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_pdu.h"
#include "store_bench.h"
#include "store_pdu.h"

class receive_parts : public store_bench
{
protected:
    /* Makes a part the current message. */
    static void take(int reference, int total, int sequence, const std::string &text)
    {
        free(current_sms_msg);
        current_sms_msg = static_cast<dv_sms_msg *>(calloc(1, sizeof(dv_sms_msg)));
        current_sms_msg->concatenated = 1;
        current_sms_msg->reference = static_cast<uint16_t>(reference);
        current_sms_msg->total = static_cast<uint8_t>(total);
        current_sms_msg->sequence = static_cast<uint8_t>(sequence);
        ASSERT_LT(text.size(), sizeof current_sms_msg->text);
        memcpy(current_sms_msg->text, text.data(), text.size());
        strcpy(current_sms_msg->phone, "+31612345678");
        strcpy(current_sms_msg->date, "2024/03/05 14:07:00");
    }

    static int link(int reference, int total, int sequence, const std::string &text)
    {
        take(reference, total, sequence, text);
        return dv_sms_mgr_link_part();
    }

    static std::string joined()
    {
        char text[SMS_TEXT_SIZE];

        memset(text, '?', sizeof text);
        return dv_sms_mgr_join_parts(text) == 0 ? std::string(text, strnlen(text, sizeof text)) : "(none)";
    }

    static lines waiting() /* newest first, as "reference/sequence text" */
    {
        lines found;

        for (const sms_part_node *each = sms_part_head->next; each != nullptr; each = each->next)
            found.push_back(std::to_string(each->reference) + "/" + std::to_string(each->sequence) + " " + each->text);
        return found;
    }

    /* Filed texts in the order of their numbers, without what stands in front of them. */
    static lines filed()
    {
        lines texts;

        for (size_t number = 1; number <= names(read_dir).size(); number++)
            texts.push_back(read_file(read_dir + "/" + std::to_string(number))
                                .substr(line_of(static_cast<int>(number), 0, "").size()));
        return texts;
    }
};

/* --- the list --- */

TEST_F(receive_parts, list_begins_with_a_head_that_carries_nothing)
{
    EXPECT_EQ(nullptr, sms_part_head);
    dv_sms_mgr_create_link();
    ASSERT_NE(nullptr, sms_part_head);
    EXPECT_EQ(nullptr, sms_part_head->next);
}

TEST_F(receive_parts, newest_part_stands_first)
{
    link(7, 3, 1, "one");
    link(8, 2, 2, "other");
    link(7, 3, 3, "three");
    EXPECT_EQ((lines{"7/3 three", "8/2 other", "7/1 one"}), waiting());
    EXPECT_STREQ("", sms_part_head->text);
}

TEST_F(receive_parts, text_is_zero_behind_its_end_and_may_fill_the_node)
{
    const std::string longest(255, 'x');

    link(7, 3, 1, "one");
    EXPECT_EQ("one" + std::string(253, '\0'), std::string(sms_part_head->next->text, 256));
    link(7, 3, 2, longest);
    EXPECT_EQ(longest + std::string(1, '\0'), std::string(sms_part_head->next->text, 256));
}

TEST_F(receive_parts, part_is_inserted_first_and_then_counted)
{
    EXPECT_EQ(1, link(7, 2, 1, "one")); /* the first ever: the list is made */
    EXPECT_EQ(1, link(8, 2, 1, "one"));
    EXPECT_EQ(0, link(7, 2, 2, "two"));
    EXPECT_EQ(-1, link(7, 2, 2, "two"));
    take(7, 5, 1, "");
    EXPECT_EQ(2, count_missing_parts()) << "the current message's own total counts";
}

TEST_F(receive_parts, one_of_one_is_complete_at_once)
{
    EXPECT_EQ(0, link(7, 1, 1, "one")) << "with a new list";
    EXPECT_EQ(0, link(8, 1, 1, "one")) << "with a list";
}

TEST_F(receive_parts, parts_are_counted_in_eight_bits)
{
    dv_sms_mgr_create_link();
    for (int i = 0; i < 255; i++) {
        take(7, 9, 1, "");
        EXPECT_EQ(0, dv_sms_mgr_insert_link());
    }
    EXPECT_EQ(9 - 255, count_missing_parts());
    dv_sms_mgr_insert_link();
    EXPECT_EQ(9, count_missing_parts());
    dv_sms_mgr_insert_link();
    EXPECT_EQ(8, count_missing_parts());
}

TEST_F(receive_parts, reference_alone_makes_parts_belong_together)
{
    EXPECT_EQ(1, link(0x0102, 2, 1, "one "));
    EXPECT_EQ(1, link(0x0202, 2, 1, "other")) << "sixteen bits of it";
    take(0x0102, 9, 2, "two");
    strcpy(current_sms_msg->phone, "+49170");
    EXPECT_EQ(7, dv_sms_mgr_link_part()) << "another sender and another total do not matter";
}

/* --- no memory --- */

TEST_F(receive_parts, without_memory_for_the_list_the_part_is_dropped)
{
    take(7, 2, 1, "one");
    seams::fail("calloc");
    seams::fail("malloc");
    EXPECT_EQ(1, dv_sms_mgr_link_part());
    EXPECT_BOTH("dv_sms_mgr_create_link", "link creat failed");
    EXPECT_EQ(nullptr, sms_part_head);
    EXPECT_EQ(1, link(7, 2, 2, "two")) << "the next one finds its place";
    EXPECT_EQ(lines{"7/2 two"}, waiting());
}

TEST_F(receive_parts, without_memory_for_its_node_the_part_is_dropped)
{
    link(7, 2, 1, "one");
    take(7, 2, 2, "two");
    seams::fail("calloc");
    seams::fail("malloc");
    EXPECT_EQ(1, dv_sms_mgr_link_part());
    EXPECT_BOTH("dv_sms_mgr_insert_link", "link creat failed");
    EXPECT_EQ(lines{"7/1 one"}, waiting());
    seams::fail("calloc");
    seams::fail("malloc");
    EXPECT_EQ(0, dv_sms_mgr_insert_link());
}

TEST_F(receive_parts, what_cannot_be_joined_is_not_filed)
{
    char text[SMS_TEXT_SIZE];

    take(7, 2, 2, "two");
    EXPECT_EQ(-1, dv_sms_mgr_join_parts(text)) << "no list";
    dv_sms_mgr_save_receive_msg();
    EXPECT_BOTH("dv_sms_mgr_save_receive_msg", "packing casc error, return");
    EXPECT_EQ(nullptr, current_sms_msg);

    forget();
    link(7, 1, 1, "one");
    EXPECT_EQ(-1, dv_sms_mgr_join_parts(nullptr)) << "no place for it";
    seams::fail("calloc");
    seams::fail("malloc");
    dv_sms_mgr_save_receive_msg();
    EXPECT_BOTH("dv_sms_mgr_save_receive_msg", "packing casc error, return");
    EXPECT_EQ(nullptr, current_sms_msg);
    EXPECT_EQ(lines{"7/1 one"}, waiting());
    EXPECT_EQ(lines{}, calls());
    EXPECT_FALSE(exists(root));
}

TEST_F(receive_parts, nothing_to_file_is_reported)
{
    dv_sms_mgr_save_receive_msg();
    EXPECT_BOTH("dv_sms_mgr_save_receive_msg", "dv_sms_msg data is null");
    EXPECT_EQ(lines{}, calls());
}

/* --- joining --- */

TEST_F(receive_parts, joining_takes_its_own_parts_off_the_list)
{
    link(7, 3, 3, "three");
    link(8, 2, 1, "other");
    link(7, 3, 1, "one ");
    link(7, 3, 2, "two ");
    EXPECT_EQ("one two three", joined());
    EXPECT_EQ(lines{"8/1 other"}, waiting());
    take(8, 2, 2, "");
    EXPECT_EQ("other", joined());
    EXPECT_EQ(lines{}, waiting());
    EXPECT_NE(nullptr, sms_part_head) << "the head stays for the next message";
}

TEST_F(receive_parts, joining_takes_no_more_than_the_total)
{
    link(7, 3, 1, "oldest");
    link(7, 3, 1, "one ");
    link(7, 2, 2, "two");
    EXPECT_EQ("one two", joined());
    EXPECT_EQ(lines{"7/1 oldest"}, waiting());
}

TEST_F(receive_parts, of_the_same_part_twice_the_older_one_stays)
{
    link(7, 3, 1, "old ");
    link(7, 3, 1, "new ");
    link(7, 3, 2, "two");
    EXPECT_EQ("old two", joined()) << "it is met last, and both have one slot";
}

TEST_F(receive_parts, parts_without_a_slot_are_taken_and_dropped)
{
    for (const int sequence : {0, 3, 4, 255}) {
        fresh();
        EXPECT_EQ(1, link(7, 2, sequence, "lost"));
        EXPECT_EQ(0, link(7, 2, 2, "two"));
        EXPECT_EQ("two", joined()) << sequence;
        EXPECT_EQ(lines{}, waiting()) << sequence;
    }
}

TEST_F(receive_parts, total_of_255_has_room_for_all)
{
    std::string expected;

    for (int sequence = 255; sequence >= 1; sequence--)
        EXPECT_EQ(sequence - 1, link(7, 255, sequence, std::to_string(sequence) + ","));
    for (int sequence = 1; sequence <= 255; sequence++)
        expected += std::to_string(sequence) + ",";
    EXPECT_EQ(expected, joined());
}

/* At most 4031 bytes, and no half of a character. */
TEST_F(receive_parts, joined_text_is_cut_to_fit_a_record)
{
    static const struct {
        const char *what;
        const char *character;
        size_t bytes; /* a part */
        int parts;
        size_t length;
    } rows[] = {
        {"all of it fits", "x", 155, 26, 4030},        {"to the last byte", "x", 139, 29, 4031},
        {"one byte too many", "x", 252, 16, 4031},     {"single bytes", "x", 255, 16, 4031},
        {"two bytes each", "é", 254, 16, 4030},        {"three bytes each", "中", 255, 16, 4029},
        {"four bytes each", "😀", 252, 17, 4028},       {"characters on both sides of a limit", "中", 130, 32, 4029},
        {"a limit inside a part", "😀", 250, 17, 4028},
    };

    for (const auto &row : rows) {
        std::string whole;

        SCOPED_TRACE(row.what);
        fresh();
        while (whole.size() < row.bytes * static_cast<size_t>(row.parts))
            whole += row.character;
        for (int i = 0; i < row.parts; i++)
            link(7, row.parts, i + 1, whole.substr(static_cast<size_t>(i) * row.bytes, row.bytes));
        dv_sms_mgr_save_receive_msg();
        ASSERT_EQ(1U, filed().size());
        EXPECT_EQ(row.length, filed()[0].size());
        EXPECT_EQ(whole.substr(0, row.length), filed()[0]);
        EXPECT_EQ(lines{}, waiting());
    }
}

TEST_F(receive_parts, joined_text_stays_within_the_field)
{
    marked_buffer field(SMS_TEXT_SIZE, 'y');

    for (int sequence = 1; sequence <= 17; sequence++)
        link(7, 17, sequence, std::string(255, 'x'));
    EXPECT_EQ(0, dv_sms_mgr_join_parts(field.data()));
    EXPECT_TRUE(field.intact());
    EXPECT_EQ(4031U, strlen(field.data()));
}

/* --- from the PDU to the file --- */

struct arrival {
    part which;
    const char *text;
    int remaining; /* as traced; 0: filed */
};

class receive_arrivals : public receive_parts, public ::testing::WithParamInterface<size_t>
{
};

static const struct {
    const char *name;
    std::vector<arrival> arrivals;
    lines filed;
    lines waiting;
} scenarios[] = {
    {"in_order", {{{42, 3, 1}, "one ", 2}, {{42, 3, 2}, "two ", 1}, {{42, 3, 3}, "three", 0}}, {"one two three"}, {}},
    {"2_1_3", {{{42, 3, 2}, "two ", 2}, {{42, 3, 1}, "one ", 1}, {{42, 3, 3}, "three", 0}}, {"one two three"}, {}},
    {"3_2_1", {{{42, 3, 3}, "three", 2}, {{42, 3, 2}, "two ", 1}, {{42, 3, 1}, "one ", 0}}, {"one two three"}, {}},
    {"first_part_twice", {{{42, 2, 1}, "one ", 1}, {{42, 2, 1}, "one ", 0}}, {"one "}, {}},
    {"late_part_waits_for_ever",
     {{{42, 2, 1}, "one ", 1}, {{42, 2, 1}, "one ", 0}, {{42, 2, 2}, "two", 1}},
     {"one "},
     {"42/2 two"}},
    {"interleaved",
     {{{5, 2, 1}, "five ", 1}, {{6, 2, 2}, "six", 1}, {{5, 2, 2}, "five", 0}, {{6, 2, 1}, "six ", 0}},
     {"five five", "six six"},
     {}},
    {"two_senders_with_one_reference", {{{5, 2, 1}, "his ", 1}, {{5, 2, 2}, "hers", 0}}, {"his hers"}, {}},
    {"one_of_one", {{{42, 1, 1}, "one", 0}}, {"one"}, {}},
    {"total_0_files_nothing", {{{42, 0, 1}, "one", 0}}, {}, {"42/1 one"}},
    {"sequence_0", {{{42, 2, 0}, "zero", 1}, {{42, 2, 2}, "two", 0}}, {"two"}, {}},
    {"sequence_above_the_total", {{{42, 2, 3}, "three", 1}, {{42, 2, 1}, "one", 0}}, {"one"}, {}},
    {"all_empty_slots", {{{42, 1, 2}, "two", 0}}, {}, {}},
    {"single_between_parts",
     {{{42, 2, 1}, "one ", 1}, {{}, "single", 0}, {{42, 2, 2}, "two", 0}},
     {"single", "one two"},
     {}},
    {"reference_0", {{{0, 2, 2}, "two", 1}, {{0, 2, 1}, "one ", 0}}, {"one two"}, {}},
    {"long_references",
     {{{0x0142, 2, 1}, "one ", 1}, {{0x42, 2, 1}, "other ", 1}, {{0x0142, 2, 2}, "two..", 0}},
     {"one two.."},
     {"66/1 other "}},
    {"never_complete", {{{42, 255, 1}, "one", 254}}, {}, {"42/1 one"}},
};

TEST_P(receive_arrivals, end_as_they_should)
{
    const auto &scenario = scenarios[GetParam()];
    const std::string name = "dv_sms_mgr_receive_sms_by_cmt";

    for (const arrival &each : scenario.arrivals) {
        forget();
        dv_sms_mgr_receive_sms_by_cmt(pdu_of(each.text, each.which).c_str());
        EXPECT_EQ(each.remaining == 0, in_trace(name, "start write data to file"));
        EXPECT_EQ(each.remaining != 0, in_trace(name, "cascade seq " + std::to_string(each.which.reference) +
                                                          " sms not receive finish, has " +
                                                          std::to_string(each.remaining) + " message not receive"));
        EXPECT_EQ(nullptr, current_sms_msg);
    }
    EXPECT_EQ(scenario.filed, filed());
    EXPECT_EQ(scenario.waiting, waiting());
    EXPECT_EQ(scenario.filed.empty(), !exists(unread));
}

INSTANTIATE_TEST_SUITE_P(parts, receive_arrivals, ::testing::Range(size_t{0}, std::size(scenarios)),
                         [](const auto &row) { return std::string(scenarios[row.param].name); });

TEST_F(receive_parts, total_0_is_refused_as_without_data)
{
    dv_sms_mgr_receive_sms_by_cmt(pdu_of("one", {42, 0, 1}).c_str());
    dv_sms_mgr_receive_sms_by_cmt(pdu_of("two", {42, 0, 2}).c_str());
    EXPECT_EQ((lines{"42/2 two", "42/1 one"}), waiting());
    EXPECT_EQ(lines{}, filed());
    EXPECT_FALSE(in_log("dv_sms_mgr_save_receive_msg", "packing casc error, return"));
    EXPECT_NE(std::string::npos, output().find("receive sms no data !"));
}

TEST_F(receive_parts, sender_and_date_are_those_of_the_last_part_to_come)
{
    dv_sms_mgr_receive_sms_by_cmt(pdu_of("two", {42, 2, 2}, "04812143").c_str());
    dv_sms_mgr_receive_sms_by_cmt(pdu_of("one ", {42, 2, 1}).c_str());
    EXPECT_EQ(line_of(1, 0, "one two"), read_file(read_dir + "/1"));
}

/* 160 characters of two bytes each: more than a part may hold. */
TEST_F(receive_parts, part_longer_than_its_field_is_cut_at_a_character)
{
    std::string expected;

    for (int i = 0; i < 127; i++)
        expected += "é";
    dv_sms_mgr_receive_sms_by_cmt(pdu_of_septets(0x05, 160).c_str());
    EXPECT_EQ(lines{expected}, filed());
}
