#include "handset.h"

#include <gtest/gtest.h>

#include "storage.h"

namespace sim
{
namespace
{

received_part part(const std::string &text, const char *to, std::optional<concatenation> place)
{
    received_part out;
    out.content.to = to;
    out.content.place = place;
    out.content.codes.assign(text.begin(), text.end());
    out.date = "2024-03-05 14:07:00";
    return out;
}

std::optional<concatenation> place(unsigned reference, unsigned total, unsigned sequence, bool wide = false)
{
    return concatenation{reference, wide, total, sequence};
}

TEST(handset, single_messages_are_complete_at_once)
{
    handset phone;
    phone.take(part("one", "123", std::nullopt));
    phone.take(part("two", "+456", std::nullopt));
    ASSERT_EQ(phone.complete().size(), 2u);
    EXPECT_EQ(text_of(phone.complete()[0]), "one");
    EXPECT_EQ(phone.complete()[1].to, "+456");
    EXPECT_EQ(codes_of(phone.complete()[1]), "74776F");
    phone.clear();
    EXPECT_TRUE(phone.complete().empty());
}

TEST(handset, parts_join_in_any_order)
{
    handset phone;
    phone.take(part("c", "123", place(7, 3, 3)));
    phone.take(part("a", "123", place(7, 3, 1)));
    EXPECT_TRUE(phone.complete().empty());
    EXPECT_EQ(phone.partial().size(), 1u);
    phone.take(part("b", "123", place(7, 3, 2)));
    EXPECT_TRUE(phone.partial().empty());
    ASSERT_EQ(phone.complete().size(), 1u);
    EXPECT_EQ(text_of(phone.complete()[0]), "abc");
    EXPECT_TRUE(phone.complete()[0].complete);
}

TEST(handset, messages_of_different_reference_width_total_or_number_keep_apart)
{
    handset phone;
    phone.take(part("a", "123", place(7, 2, 1)));
    phone.take(part("b", "124", place(7, 2, 2)));
    phone.take(part("c", "123", place(8, 2, 2)));
    phone.take(part("d", "123", place(7, 3, 2)));
    phone.take(part("e", "123", place(7, 2, 2, true)));
    EXPECT_TRUE(phone.complete().empty());
    EXPECT_EQ(phone.partial().size(), 5u);
    phone.take(part("z", "123", place(7, 2, 2)));
    ASSERT_EQ(phone.complete().size(), 1u);
    EXPECT_EQ(text_of(phone.complete()[0]), "az");
}

TEST(handset, a_part_that_comes_twice_counts_once)
{
    handset phone;
    phone.take(part("a", "123", place(7, 2, 1)));
    phone.take(part("a", "123", place(7, 2, 1)));
    EXPECT_EQ(phone.partial().size(), 1u);
    phone.take(part("b", "123", place(7, 2, 2)));
    ASSERT_EQ(phone.complete().size(), 1u);
    EXPECT_EQ(text_of(phone.complete()[0]), "ab");
}

TEST(handset, a_reference_used_again_begins_a_new_message)
{
    handset phone;
    phone.take(part("old", "123", place(7, 2, 1)));
    phone.take(part("new", "123", place(7, 2, 1)));
    phone.take(part("er", "123", place(7, 2, 2)));
    ASSERT_EQ(phone.complete().size(), 1u);
    EXPECT_EQ(text_of(phone.complete()[0]), "newer");
    ASSERT_EQ(phone.partial().size(), 1u);
    EXPECT_EQ(text_of(phone.partial()[0]), "old");
}

TEST(storage, takes_the_lowest_free_place)
{
    message_store store(3);
    EXPECT_EQ(store.add({{1}, message_state::unread, ""}), 1u);
    EXPECT_EQ(store.add({{2}, message_state::unread, ""}), 2u);
    EXPECT_EQ(store.add({{3}, message_state::unread, ""}), 3u);
    EXPECT_TRUE(store.full());
    EXPECT_FALSE(store.add({{4}, message_state::unread, ""}));
    store.remove(2);
    EXPECT_EQ(store.add({{5}, message_state::unread, ""}), 2u);
    EXPECT_EQ(store.find(2)->pdu, octets{5});
    EXPECT_EQ(store.find(4), nullptr);
    EXPECT_TRUE(store.holds(3));
    EXPECT_FALSE(store.holds(0));
    EXPECT_FALSE(store.holds(4));
}

TEST(storage, a_store_without_places_is_full)
{
    message_store store(0);
    EXPECT_TRUE(store.full());
    EXPECT_FALSE(store.add({{1}, message_state::unread, ""}));
}

TEST(storage, tpdu_length_leaves_the_service_centre_out)
{
    EXPECT_EQ(tpdu_length(*from_hex("00112233")), 3u);
    EXPECT_EQ(tpdu_length(*from_hex("0291"
                                    "21"
                                    "112233")),
              3u);
    EXPECT_EQ(tpdu_length(*from_hex("05")), 0u);
    EXPECT_EQ(tpdu_length({}), 0u);
}

} // namespace
} // namespace sim
