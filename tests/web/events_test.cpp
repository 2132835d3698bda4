/* Who listens hears everything, once and in order. */
#include "events.h"

#include <gtest/gtest.h>

namespace
{

using web::endless;
using web::event_hub;

constexpr const char hello[] = "retry: 1000\nevent: hello\ndata: {}\n\n";

struct Events : testing::Test {
    int wakes = 0;
    event_hub hub{[this] { wakes++; }};

    endless listen()
    {
        auto stream = hub.listen();
        EXPECT_TRUE(stream.has_value());
        EXPECT_EQ(stream->next().value_or(""), hello);
        return std::move(*stream);
    }
};

TEST_F(Events, ReachEveryListener)
{
    endless a = listen(), b = listen();
    EXPECT_EQ(a.next(), "");
    hub.publish("state", {{"x", 1}});
    hub.publish("state", {{"x", 2}});
    EXPECT_EQ(wakes, 2);
    const std::string both = "event: state\ndata: {\"x\":1}\n\nevent: state\ndata: {\"x\":2}\n\n";
    EXPECT_EQ(a.next(), both);
    EXPECT_EQ(a.next(), "");
    EXPECT_EQ(b.next(), both);
}

TEST_F(Events, AreOneLineWhateverTheyHold)
{
    endless a = listen();
    hub.publish("state", {{"x", "two\nlines\r\n and \xFF"}});
    EXPECT_EQ(a.next(), "event: state\ndata: {\"x\":\"two\\nlines\\r\\n and \uFFFD\"}\n\n");
}

TEST_F(Events, OfBeforeAreNotTold)
{
    hub.publish("state", {});
    endless a = listen();
    hub.publish("late", {});
    EXPECT_EQ(a.next(), "event: late\ndata: null\n\n");
}

TEST_F(Events, BeginAnewForWhoIsTooSlow)
{
    endless slow = listen(), quick = listen();
    for (size_t i = 0; i < web::most_behind + 1; i++) {
        hub.publish("x", i);
        EXPECT_EQ(quick.next(), "event: x\ndata: " + std::to_string(i) + "\n\n");
    }
    EXPECT_EQ(slow.next(), hello);
    hub.publish("y", {});
    EXPECT_EQ(slow.next(), "event: y\ndata: null\n\n");
}

TEST_F(Events, HaveACommentThatKeepsTheStreamAlive)
{
    endless a = listen();
    hub.keep_alive();
    EXPECT_TRUE(a.next().value_or("").starts_with(":"));
}

TEST_F(Events, HaveOnlySoManyListeners)
{
    std::vector<endless> all;
    for (size_t i = 0; i < web::most_listeners; i++)
        all.push_back(listen());
    EXPECT_FALSE(hub.listen());
    EXPECT_EQ(hub.listeners(), web::most_listeners);
    all.pop_back();
    EXPECT_EQ(hub.listeners(), web::most_listeners - 1);
    EXPECT_TRUE(hub.listen());
    all.clear();
    EXPECT_EQ(hub.listeners(), 0U);
}

} // namespace
