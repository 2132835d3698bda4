/* What one look finds after another. */
#include <gtest/gtest.h>

#include "sandbox.h"
#include "values.h"
#include "watcher.h"

using namespace sms_client;

namespace
{

std::string show(const std::vector<change> &changes)
{
    constexpr const char *names[] = {"added", "altered", "removed", "value"};
    std::string out;
    for (const change &c : changes)
        out += std::string(names[c.what]) + " " +
               (c.what == change::value_set
                    ? c.name + "=" + c.value
                    : std::string(facts_of(c.about.where).name) + std::to_string(c.about.number) + c.about.state) +
               "; ";
    return out;
}

void file(const sandbox &s, int number, const std::string &rest)
{
    s.write("sms/sms_read/" + std::to_string(number), std::to_string(number) + " " + rest);
}

TEST(Watcher, Messages)
{
    const sandbox s;
    const store where = s.store();
    watcher w(where);
    file(s, 1, "0 5 2024/03/05 14:07:00 one");
    s.write("sms/read_index", " 1 ");
    EXPECT_EQ(show(w.look()), "");
    EXPECT_EQ(show(w.look()), "");
    file(s, 2, "0 5 2024/03/05 14:07:01 two");
    EXPECT_EQ(show(w.look()), ""); /* its writer is not done */
    s.write("sms/read_index", " 1 2 ");
    EXPECT_EQ(show(w.look()), "added inbox20; ");
    file(s, 1, "1 5 2024/03/05 14:07:00 one");
    EXPECT_EQ(show(w.look()), "altered inbox11; ");
    s.remove("sms/sms_read/1");
    s.write("sms/read_index", " 2 ");
    EXPECT_EQ(show(w.look()), "removed inbox11; ");
    file(s, 2, "0 5 2024/03/05 14:09:00 another under the same number");
    EXPECT_EQ(show(w.look()), "removed inbox20; added inbox20; ");
    s.remove("sms");
    EXPECT_EQ(show(w.look()), "removed inbox20; ");
    EXPECT_EQ(show(w.look()), "");
}

TEST(Watcher, Values)
{
    const sandbox s;
    const store where = s.store();
    watcher w(where);
    w.look();
    set_flag("DV_SMS_MGR_LAST_ERR_CODE", "500");
    s.item(306001, "1");
    EXPECT_EQ(show(w.look()), "value 306001=1; value DV_SMS_MGR_LAST_ERR_CODE=500; ");
    set_flag("DV_SMS_MGR_LAST_ERR_CODE", "");
    EXPECT_EQ(show(w.look()), "value DV_SMS_MGR_LAST_ERR_CODE=; ");
}

TEST(Watcher, Json)
{
    change c{change::added, parse_record(box::inbox, 1, "1 0 5 2024/03/05 14:07:00 x"), {}, {}};
    EXPECT_EQ(to_json(c)["event"], "added");
    EXPECT_EQ(to_json(c)["message"]["text"], "x");
    c = {change::value_set, {}, "306001", "1"};
    EXPECT_EQ(dump(to_json(c)), R"({"event":"value","name":"306001","value":"1"})");
}

} // namespace
