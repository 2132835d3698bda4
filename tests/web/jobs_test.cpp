/* What is asked for is done once, in order, and remembered. */
#include "jobs.h"

#include <future>

#include <gtest/gtest.h>

namespace
{

using web::job_result;
using web::job_table;
using web::json;
using web::lane;

/* A table, and a way to wait for what happens in it. */
struct Jobs : testing::Test {
    void await(const std::string &what)
    {
        std::unique_lock hold(lock);
        ASSERT_TRUE(changed.wait_for(hold, std::chrono::seconds(30), [&] {
            return std::find(seen.begin(), seen.end(), what) != seen.end();
        })) << what;
    }

    job_table::taken submit(const std::string &id, const std::string &content, job_table::work what,
                            lane where = lane::router)
    {
        return table.submit(id, "test", content, where, std::move(what));
    }

    static job_table::work counting(std::atomic<int> &runs)
    {
        return [&runs](const std::atomic<bool> &) {
            runs++;
            return job_result{true, "done", {{"run", runs.load()}}};
        };
    }

    std::mutex lock;
    std::condition_variable changed;
    std::vector<std::string> seen;
    /* Last, so that it is gone before what its threads touch. */
    job_table table{[this](const json &job) {
        const std::lock_guard hold(lock);
        seen.push_back(job["id"].get<std::string>() + " " + job["state"].get<std::string>());
        changed.notify_all();
    }};
};

TEST_F(Jobs, RunAndAreRemembered)
{
    std::atomic<int> runs = 0;
    EXPECT_EQ(submit("a", "x", counting(runs)), job_table::taken::fresh);
    await("a finished");
    const auto job = table.show("a");
    ASSERT_TRUE(job);
    EXPECT_EQ((*job)["state"], "finished");
    EXPECT_EQ((*job)["ok"], true);
    EXPECT_EQ((*job)["code"], "done");
    EXPECT_EQ((*job)["details"]["run"], 1);
    EXPECT_FALSE(table.show("b"));
}

TEST_F(Jobs, AreNotDoneTwice)
{
    std::atomic<int> runs = 0;
    std::promise<void> go;
    std::shared_future<void> gone = go.get_future().share();
    const auto slow = [&](const std::atomic<bool> &) {
        gone.wait();
        runs++;
        return job_result{true, "done", {}};
    };
    EXPECT_EQ(submit("a", "x", slow), job_table::taken::fresh);
    EXPECT_EQ(submit("a", "x", slow), job_table::taken::known) << "while it runs or waits";
    go.set_value();
    await("a finished");
    EXPECT_EQ(submit("a", "x", slow), job_table::taken::known) << "when it has ended";
    EXPECT_EQ(submit("a", "y", slow), job_table::taken::conflict);
    EXPECT_EQ(table.submit("a", "other", "x", lane::router, slow), job_table::taken::conflict);
    EXPECT_EQ(submit("b", "x", counting(runs)), job_table::taken::fresh);
    await("b finished");
    EXPECT_EQ(runs, 2);
}

TEST_F(Jobs, OfALaneWaitForEachOtherButNotForTheOtherLane)
{
    std::promise<void> go;
    std::shared_future<void> gone = go.get_future().share();
    std::atomic<int> runs = 0;
    submit("slow", "", [&](const std::atomic<bool> &) {
        gone.wait();
        return job_result{true, "done", {}};
    });
    submit("behind", "", counting(runs));
    submit("beside", "", counting(runs), lane::other);
    await("beside finished");
    EXPECT_EQ((*table.show("behind"))["state"], "waiting");
    EXPECT_EQ(runs, 1);
    go.set_value();
    await("behind finished");
}

TEST_F(Jobs, AreRefusedWhenTooManyWait)
{
    std::promise<void> go;
    std::shared_future<void> gone = go.get_future().share();
    const auto slow = [&](const std::atomic<bool> &) {
        gone.wait();
        return job_result{true, "done", {}};
    };
    submit("first", "", slow);
    await("first running");
    for (size_t i = 0; i < web::most_waiting; i++)
        EXPECT_EQ(submit(std::to_string(i), "", slow), job_table::taken::fresh);
    EXPECT_EQ(submit("one more", "", slow), job_table::taken::full);
    EXPECT_FALSE(table.show("one more"));
    go.set_value();
    await(std::to_string(web::most_waiting - 1) + " finished");
    EXPECT_EQ(submit("one more", "", slow), job_table::taken::fresh);
    await("one more finished");
}

TEST_F(Jobs, AreForgottenTheOldestFirst)
{
    std::atomic<int> runs = 0;
    for (size_t i = 0; i <= web::most_remembered; i++) {
        const std::string id = std::to_string(i);
        ASSERT_EQ(submit(id, "", counting(runs)), job_table::taken::fresh);
        await(id + " finished");
    }
    EXPECT_FALSE(table.show("0"));
    EXPECT_TRUE(table.show("1"));
    EXPECT_EQ((table.counts()[{"test", "done"}]), web::most_remembered + 1);
}

TEST_F(Jobs, ThatThrowHaveFailed)
{
    submit("a", "", [](const std::atomic<bool> &) -> job_result { throw std::runtime_error("oh"); });
    await("a finished");
    EXPECT_EQ((*table.show("a"))["ok"], false);
    EXPECT_EQ((*table.show("a"))["code"], "internal");
    EXPECT_EQ((*table.show("a"))["details"]["message"], "oh");
}

TEST(JobTable, EndsWithWorkThatLooksWhetherItShould)
{
    std::promise<void> begun;
    auto table = std::make_unique<job_table>([](const json &) {});
    std::atomic<bool> second = false;
    table->submit("a", "", "", lane::router, [&begun](const std::atomic<bool> &stopping) {
        begun.set_value();
        while (!stopping)
            std::this_thread::yield();
        return job_result{};
    });
    table->submit("b", "", "", lane::router, [&second](const std::atomic<bool> &) {
        second = true;
        return job_result{};
    });
    begun.get_future().wait();
    table.reset();
    EXPECT_FALSE(second) << "what has not begun is dropped";
}

} // namespace
