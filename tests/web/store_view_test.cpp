/* The store as it changes. */
#include "store_view.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

namespace
{

using web::box;

struct StoreView : testing::Test {
    StoreView()
    {
        char name[] = "/tmp/sms_web_store_XXXXXX";
        root = mkdtemp(name);
    }
    ~StoreView() override { std::filesystem::remove_all(root); }

    void put(const std::string &file, const std::string &content) const
    {
        const std::filesystem::path path = root + '/' + file;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << content;
    }

    /* Old enough to be looked at no more unless it is another file. */
    void settle() const
    {
        const auto past = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
        for (const auto &entry : std::filesystem::recursive_directory_iterator(root))
            std::filesystem::last_write_time(entry, past);
    }

    std::vector<int> numbers(web::store_view &view, box which) const
    {
        std::vector<int> out;
        for (const auto &each : view.content(which)->messages)
            out.push_back(each.content["number"]);
        return out;
    }

    std::string root;
};

TEST_F(StoreView, ShowsTheNewestFirst)
{
    put("sms_read/1", "1 1 +31612345678 2024/03/05 14:07:00 one");
    put("sms_read/2", "2 0 +31612345678 2024/03/05 14:08:00 two");
    put("sms_read/7", "7 0 +31612345678 2024/03/05 14:08:00 not in the index");
    put("read_index", " 2 1 ");
    web::store_view view(root);
    EXPECT_TRUE(view.poll());
    EXPECT_EQ(numbers(view, box::inbox), (std::vector<int>{7, 1, 2}));
    const auto content = view.content(box::inbox);
    EXPECT_EQ(content->with_state("unread"), 2U);
    EXPECT_EQ(content->with_state("read"), 1U);
    EXPECT_EQ(content->messages[1].content["text"], "one");
    EXPECT_EQ(content->messages[1].content["phone"], "+31612345678");
    EXPECT_EQ(content->messages[1].content["date"], "2024/03/05 14:07:00");
    EXPECT_TRUE(view.content(box::sent)->messages.empty());
}

TEST_F(StoreView, SeesEveryKindOfChange)
{
    put("sms_read/1", "1 0 +31612345678 2024/03/05 14:07:00 one");
    put("read_index", " 1 ");
    put("unread_sms", "1");
    settle();
    web::store_view view(root);
    view.poll();
    EXPECT_FALSE(view.poll()) << "nothing has changed";
    const uint64_t before = view.content(box::inbox)->revision;

    put("sms_read/1", "1 1 +31612345678 2024/03/05 14:07:00 one"); /* written in place, as when it is read */
    put("unread_sms", "0 ");
    EXPECT_TRUE(view.poll());
    EXPECT_EQ(view.content(box::inbox)->with_state("read"), 1U);
    EXPECT_GT(view.content(box::inbox)->revision, before);
    settle();
    view.poll();

    put("sms_read/2", "2 0 NAME 2024/03/05 14:07:00 two");
    put("read_index", " 1 2 ");
    EXPECT_TRUE(view.poll());
    EXPECT_EQ(numbers(view, box::inbox), (std::vector<int>{2, 1}));

    std::filesystem::remove(root + "/sms_read/1");
    EXPECT_TRUE(view.poll());
    EXPECT_EQ(numbers(view, box::inbox), std::vector<int>{2});
    std::filesystem::remove_all(root + "/sms_read");
    EXPECT_TRUE(view.poll());
    EXPECT_TRUE(numbers(view, box::inbox).empty());
}

/* A file whose time does not show the change, because it came within the same tick. */
TEST_F(StoreView, LooksAgainAtWhatIsFresh)
{
    put("sms_draft/1", "1 1 1 2024-03-05 14:07:00 a");
    put("draft_index", " 1 ");
    web::store_view view(root);
    view.poll();
    put("sms_draft/1", "1 1 1 2024-03-05 14:07:00 longer");
    EXPECT_TRUE(view.poll()) << "neither the directory nor the index was touched";
    EXPECT_EQ(view.content(box::drafts)->messages[0].content["text"], "longer");
}

TEST_F(StoreView, NamesAMessageByItsContent)
{
    put("sms_read/1", "1 0 +31612345678 2024/03/05 14:07:00 one");
    web::store_view view(root);
    view.poll();
    const auto key = view.content(box::inbox)->messages[0].content["key"];
    put("sms_read/1", "1 1 +31612345678 2024/03/05 14:07:00 one");
    view.poll();
    EXPECT_EQ(view.content(box::inbox)->messages[0].content["key"], key) << "it was only read";
    put("sms_read/1", "1 0 +31612345678 2024/03/05 14:07:01 one");
    view.poll();
    EXPECT_NE(view.content(box::inbox)->messages[0].content["key"], key);
    EXPECT_EQ(web::key_of(*view.now().read(box::inbox, 1)), view.content(box::inbox)->messages[0].content["key"]);
}

TEST_F(StoreView, SurvivesWhatIsNoRecord)
{
    put("sms_read/1", "");
    put("sms_read/2", "nonsense");
    put("sms_read/3", std::string("3 0 \xFF\xFE 2024/03/05 14:07:00 \xED\xA0\xBD\xED\xB8\x80\xC3"));
    put("sms_read/name", "4 0 x 2024/03/05 14:07:00 y");
    std::filesystem::create_directories(root + "/sms_read/5");
    web::store_view view(root);
    view.poll();
    EXPECT_EQ(numbers(view, box::inbox), (std::vector<int>{3, 2, 1}));
    const auto content = view.content(box::inbox);
    EXPECT_EQ(content->messages[0].content["text"], "😀\uFFFD");
    EXPECT_EQ(content->messages[0].content["text_runs"].size(), 2U);
    EXPECT_FALSE(content->messages[2].content["problem"].get<std::string>().empty());
}

} // namespace
