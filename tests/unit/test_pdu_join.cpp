/* The joiner: parts off the list, in order, into one text that fits the record it is filed from. */
#include "sms_msg.h"
#include "vectors/codec_bench.h"

class pdu_join : public codec
{
protected:
    struct part {
        unsigned reference, sequence;
        std::string text;
    };

    static sms_part_node *node(const part &of)
    {
        auto *made = static_cast<sms_part_node *>(calloc(1, sizeof(sms_part_node)));

        EXPECT_LT(of.text.size(), sizeof made->text);
        memcpy(made->text, of.text.data(), of.text.size());
        made->reference = static_cast<uint16_t>(of.reference);
        made->sequence = static_cast<uint8_t>(of.sequence);
        return made;
    }

    /* A list as the receive path builds it: a head without a part, then these from front to back. */
    static void list(const std::vector<part> &parts)
    {
        sms_part_node **link = &sms_part_head;

        ASSERT_EQ(nullptr, sms_part_head);
        *link = node({0x2A, 1, ""}); /* the head is passed over, whatever it holds */
        for (const part &each : parts) {
            link = &(*link)->next;
            *link = node(each);
        }
    }

    static void want(unsigned reference, unsigned total)
    {
        current_sms_msg->concatenated = 1;
        current_sms_msg->reference = static_cast<uint16_t>(reference);
        current_sms_msg->total = static_cast<uint8_t>(total);
    }

    /* The texts that the list still holds. */
    static lines left()
    {
        lines texts;

        for (const sms_part_node *at = sms_part_head->next; at != nullptr; at = at->next)
            texts.emplace_back(at->text);
        return texts;
    }

    /* The joined text; the output is exactly as large as promised. */
    static std::string join()
    {
        marked_buffer output(SMS_TEXT_SIZE, '~');

        EXPECT_EQ(0, dv_sms_mgr_join_parts(output.data()));
        EXPECT_TRUE(output.intact());
        const size_t length = strnlen(output.data(), SMS_TEXT_SIZE);
        EXPECT_LT(length, size_t{SMS_TEXT_SIZE});
        return {output.data(), length};
    }
};

TEST_F(pdu_join, joins)
{
    static const struct {
        const char *name;
        unsigned reference, total;
        std::vector<part> parts;
        const char *text;
        lines left;
    } rows[] = {
        {"in order", 42, 3, {{42, 1, "one "}, {42, 2, "two "}, {42, 3, "three"}}, "one two three", {}},
        {"newest first", 42, 3, {{42, 3, "three"}, {42, 1, "one "}, {42, 2, "two "}}, "one two three", {}},
        {"one part", 7, 1, {{7, 1, "alone"}}, "alone", {}},
        {"other references stay",
         5,
         2,
         {{6, 1, "a"}, {5, 2, "2"}, {6, 2, "b"}, {5, 1, "1"}, {4, 1, "c"}},
         "12",
         {"a", "b", "c"}},
        {"the reference has 16 bits", 0x1234, 1, {{0x34, 1, "no"}, {0x1234, 1, "yes"}}, "yes", {"no"}},
        {"a missing part leaves nothing", 9, 3, {{9, 3, "3"}, {9, 1, "1"}}, "13", {}},
        {"a part twice: the later on the list stays in the slot, and both count",
         9,
         2,
         {{9, 1, "b"}, {9, 1, "a"}},
         "a",
         {}},
        {"no more than the total are taken", 9, 2, {{9, 2, "2"}, {9, 1, "1"}, {9, 1, "old"}}, "12", {"old"}},
        {"sequence 0 is dropped and counts", 9, 2, {{9, 0, "zero"}, {9, 1, "1"}, {9, 2, "2"}}, "1", {"2"}},
        {"so is one above the total", 9, 2, {{9, 3, "three"}, {9, 2, "2"}, {9, 1, "1"}}, "2", {"1"}},
        {"and 255", 9, 1, {{9, 255, "far"}, {9, 1, "1"}}, "", {"1"}},
        {"empty texts", 9, 2, {{9, 1, ""}, {9, 2, "2"}}, "2", {}},
        {"a total of 0 takes nothing", 9, 0, {{9, 1, "1"}, {9, 0, "0"}}, "", {"1", "0"}},
        {"nothing of the reference there", 9, 2, {{8, 1, "8"}}, "", {"8"}},
        {"an empty list", 9, 2, {}, "", {}},
        {"characters as they are", 9, 2, {{9, 1, "中"}, {9, 2, "é€"}}, "中é€", {}},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        list(row.parts);
        want(row.reference, row.total);
        EXPECT_EQ(row.text, join());
        EXPECT_EQ(row.left, left());
        while (sms_part_head != nullptr) {
            sms_part_node *next = sms_part_head->next;
            free(sms_part_head);
            sms_part_head = next;
        }
    }
}

TEST_F(pdu_join, nothing_is_said)
{
    list({{9, 1, "1"}});
    want(9, 1);
    join();
    EXPECT_EQ(lines{}, traced());
    EXPECT_EQ(lines{}, saved());
}

TEST_F(pdu_join, refusals)
{
    char output[SMS_TEXT_SIZE] = "as it was";

    want(9, 1);
    EXPECT_EQ(-1, dv_sms_mgr_join_parts(output)); /* no list */
    list({{9, 1, "1"}});
    EXPECT_EQ(-1, dv_sms_mgr_join_parts(nullptr));
    seams::fail("calloc");
    seams::fail("malloc");
    EXPECT_EQ(-1, dv_sms_mgr_join_parts(output));
    seams::reset();
    EXPECT_STREQ("as it was", output);
    EXPECT_EQ((lines{"1"}), left()); /* refused, it takes nothing off the list */
    EXPECT_EQ(0, dv_sms_mgr_join_parts(output));
    EXPECT_STREQ("1", output);
    EXPECT_EQ(lines{}, left());
}

TEST_F(pdu_join, all_255_parts)
{
    std::vector<part> parts;
    std::string text;

    for (unsigned i = 255; i >= 1; i--)
        parts.push_back({1, i, std::string(1, static_cast<char>('a' + i % 26)) + "123456789"});
    for (unsigned i = 1; i <= 255; i++)
        text += std::string(1, static_cast<char>('a' + i % 26)) + "123456789";
    list(parts);
    want(1, 255);
    EXPECT_EQ(text, join());
    EXPECT_EQ(lines{}, left());
}

TEST_F(pdu_join, the_text_is_cut_to_4031_bytes_in_front_of_a_character)
{
    static const std::string units[] = {"x", "é", "中", "😀"};

    /* 16 parts of about 255 bytes: at the limit stands each byte of each kind of character in turn. */
    for (const std::string &unit : units) {
        for (size_t letters = 0; letters < 4; letters++) {
            std::vector<part> parts;
            std::string whole;
            for (unsigned i = 1; i <= 17; i++) {
                std::string text = i == 1 ? std::string(letters, 'a') : "";
                while (text.size() + unit.size() <= 255)
                    text += unit;
                parts.push_back({3, i, text});
                whole += text;
            }
            ASSERT_GT(whole.size(), 4031U);
            list(parts);
            want(3, 17);
            EXPECT_EQ(reference::cut(whole, 4031), join());
            EXPECT_EQ(lines{}, left()); /* what was cut off is taken off the list all the same */
            free(sms_part_head);
            sms_part_head = nullptr;
        }
    }
}

TEST_F(pdu_join, lengths_around_the_limit)
{
    for (const size_t length : {4030U, 4031U, 4032U, 4033U, 4080U}) {
        std::vector<part> parts;
        for (unsigned i = 1; i <= 16; i++)
            parts.push_back({3, i, std::string(std::min<size_t>(255, length - (i - 1) * 255), 'y')});
        list(parts);
        want(3, 16);
        EXPECT_EQ(std::string(std::min<size_t>(length, 4031), 'y'), join()) << length;
        free(sms_part_head);
        sms_part_head = nullptr;
    }
}

/* Parts of 8-bit data may divide a character between them; the cut must not. */
TEST_F(pdu_join, a_character_divided_between_parts_at_the_limit)
{
    std::vector<part> parts;

    for (unsigned i = 1; i <= 15; i++)
        parts.push_back({3, i, std::string(255, 'y')});       /* 3825 */
    parts.push_back({3, 16, std::string(205, 'y') + "\xE4"}); /* 4030 and a lead byte at index 4030 */
    parts.push_back({3, 17,
                     "\xB8\xAD"
                     "and more"});
    list(parts);
    want(3, 17);
    EXPECT_EQ(std::string(4030, 'y'), join());
}
