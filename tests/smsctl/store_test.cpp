/* Reading the store's files. */
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "sandbox.h"
#include "store.h"

using namespace sms_client;

namespace
{

struct record_case {
    box where;
    int number;
    std::string content;
    char state;
    std::string phone, date, text, problem;
};

const record_case record_cases[] = {
    {box::inbox, 1, "1 0 +31612345678 2024/03/05 14:07:00 hi there", '0', "+31612345678", "2024/03/05 14:07:00",
     "hi there", ""},
    {box::sent, 12, "12 1 123 2024-03-05 14:07:00 a\nb\r\n c ", '1', "123", "2024-03-05 14:07:00", "a\nb\r\n c ", ""},
    {box::inbox, 3, "3 1 My Bank 24 2024/03/05 14:07:00 hi", '1', "My Bank 24", "2024/03/05 14:07:00", "hi", ""},
    {box::drafts, 7, "7 0 1300000000 12:21:12 2021-12-21 \xE6\xB5\x8B_7", '0', "1300000000", "12:21:12 2021-12-21",
     "\xE6\xB5\x8B_7", ""},
    {box::inbox, 1, "1 0  2024/03/05 14:07:00 no sender", '0', "", "2024/03/05 14:07:00", "no sender", ""},
    {box::inbox, 1, "1 0 5 20?F/>5/0A 1:/07/00 x", '0', "5", "20?F/>5/0A", "1:/07/00 x", "no date where one belongs"},
    {box::inbox, 1, "1 0 5 20?F/>5/0A 1::07:00 x", '0', "5", "20?F/>5/0A 1::07:00", "x", ""},
    {box::inbox, 1, "1 0 5 2024/03/05 14:07:00  2024/03/05 14:07:00 x", '0', "5", "2024/03/05 14:07:00",
     " 2024/03/05 14:07:00 x", ""},
    {box::inbox, 1, "1 0 5 2024/03/05 14:07:00", '0', "5", "2024/03/05 14:07:00", "", ""},
    {box::inbox, 1, "1 0 5 2024/03/05 14:07:00 ", '0', "5", "2024/03/05 14:07:00", "", ""},
    {box::inbox, 1, "2 0 5 2024/03/05 14:07:00 x", '0', "5", "2024/03/05 14:07:00", "x", "it calls itself number 2"},
    {box::inbox, 1, "1 x 5 2024/03/05 14:07:00 x", 'x', "5", "2024/03/05 14:07:00", "x",
     "its state is neither 0 nor 1"},
    {box::inbox, 1, "1 10 5 2024/03/05 14:07:00 x", '?', "5", "2024/03/05 14:07:00", "x",
     "its state is neither 0 nor 1"},
    {box::inbox, 1, "", '?', "", "", "", "empty file"},
    {box::inbox, 1, "1", '?', "", "", "", "its state is neither 0 nor 1"},
    {box::inbox, 1, "1 0 5 yesterday x y", '0', "5", "yesterday", "x y", "no date where one belongs"},
    {box::inbox, 1, std::string(300, 'x'), '?', "", "", "", "it calls itself number xxxxxxxxxxxxxxxx"},
};

TEST(ParseRecord, Table)
{
    for (const record_case &c : record_cases) {
        const message m = parse_record(c.where, c.number, c.content);
        EXPECT_EQ(m.state, c.state) << c.content;
        EXPECT_EQ(m.phone, c.phone) << c.content;
        EXPECT_EQ(m.date, c.date) << c.content;
        EXPECT_EQ(m.text, c.text) << c.content;
        EXPECT_EQ(m.problem, c.problem) << c.content;
    }
}

TEST(ParseRecord, AnyPieceOfARecord)
{
    for (const record_case &c : record_cases)
        for (size_t length = 0; length < c.content.size(); length++)
            EXPECT_FALSE(dump(to_json(parse_record(c.where, c.number, c.content.substr(0, length)))).empty());
}

TEST(ToJson, WordsAndBytes)
{
    EXPECT_EQ(dump(to_json(parse_record(box::inbox, 1, "1 0 5 2024/03/05 14:07:00 a\"\n"))),
              R"({"box":"inbox","date":"2024/03/05 14:07:00","number":1,"phone":"5","state":"unread","text":"a\"\n"})");
    EXPECT_EQ(to_json(parse_record(box::sent, 1, "1 0 5 2024-03-05 14:07:00 x"))["state"], "failed");
    EXPECT_EQ(to_json(parse_record(box::sent, 1, "1 1 5 2024-03-05 14:07:00 x"))["state"], "sent");
    EXPECT_EQ(to_json(parse_record(box::drafts, 1, "1 1 5 2024-03-05 14:07:00 x"))["state"], "draft");
    const nlohmann::json odd = to_json(parse_record(box::inbox, 1, "1 1 \xFF 2024/03/05 14:07:00 a\xFFz"));
    EXPECT_EQ(odd["text"], "a\xEF\xBF\xBDz");
    EXPECT_EQ(odd["text_hex"], "61ff7a");
    EXPECT_EQ(odd["phone"], "\xEF\xBF\xBD");
    EXPECT_EQ(odd["state"], "read");
    const nlohmann::json pair =
        to_json(parse_record(box::inbox, 1, "1 1 5 2024/03/05 14:07:00 \xED\xA0\xBD\xED\xB8\x80"));
    EXPECT_EQ(pair["text"], "😀");
    EXPECT_FALSE(pair.contains("text_hex"));
}

TEST(ParseNumber, Table)
{
    EXPECT_EQ(parse_number("1"), 1);
    EXPECT_EQ(parse_number("007"), 7);
    for (const char *bad : {"", "0", "-1", "+1", "1a", " 1", "99999999999", "1.5", "../1"})
        EXPECT_FALSE(parse_number(bad)) << bad;
}

TEST(Store, ListFollowsTheIndexAndMissesNothing)
{
    const sandbox s;
    EXPECT_FALSE(s.store().numbers(box::inbox));
    EXPECT_TRUE(s.store().list(box::inbox).empty());
    for (const int n : {1, 2, 3, 10})
        s.write("sms/sms_read/" + std::to_string(n), std::to_string(n) + " 0 5 2024/03/05 14:07:00 x");
    s.write("sms/sms_read/notes", "x");
    s.write("sms/sms_read/007", "x");
    s.write("sms/read_index", " 3 9 x 1 3 ");
    std::vector<int> order;
    for (const message &m : s.store().list(box::inbox))
        order.push_back(m.number);
    EXPECT_EQ(order, (std::vector<int>{3, 1, 2, 10}));
    EXPECT_EQ(s.store().numbers(box::inbox), (std::vector<int>{1, 2, 3, 10}));
    EXPECT_EQ(s.store().index(box::inbox), (std::vector<int>{3, 9, 1, 3}));
    EXPECT_FALSE(s.store().read(box::inbox, 9));
}

TEST(Store, OnlyRegularFilesAreRead)
{
    const sandbox s;
    s.write("sms/sms_read/1", "1 0 5 2024/03/05 14:07:00 x");
    ASSERT_EQ(mkfifo((s.root() + "/sms/sms_read/2").c_str(), 0600), 0);
    ASSERT_EQ(mkdir((s.root() + "/sms/sms_read/3").c_str(), 0700), 0);
    EXPECT_EQ(s.store().list(box::inbox).size(), 1u);
}

TEST(Store, AFileIsReadUpTo64K)
{
    const sandbox s;
    s.write("sms/sms_read/1", "1 0 5 2024/03/05 14:07:00 " + std::string(100000, 'x'));
    ASSERT_TRUE(s.store().read(box::inbox, 1));
    EXPECT_EQ(store::content(s.store().path(box::inbox, 1))->size(), 65536u);
}

TEST(Store, Unread)
{
    const sandbox s;
    EXPECT_FALSE(s.store().unread());
    for (const auto &[content, count] : {std::pair{"0", 0}, {"2", 2}, {"3 ", 3}, {"4\n", 4}}) {
        s.write("sms/unread_sms", content);
        EXPECT_EQ(s.store().unread(), count);
    }
    for (const char *bad : {"", "x", "-1"}) {
        s.write("sms/unread_sms", bad);
        EXPECT_FALSE(s.store().unread());
    }
}

TEST(Store, Root)
{
    unsetenv("DV_SMS_STORE");
    EXPECT_EQ(store::default_root(""), "/mnt/data/sms");
    setenv("DV_SMS_STORE", "/a", 1);
    EXPECT_EQ(store::default_root(""), "/a");
    EXPECT_EQ(store::default_root("/b"), "/b");
    unsetenv("DV_SMS_STORE");
}

} // namespace
