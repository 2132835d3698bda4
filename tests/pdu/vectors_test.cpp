/* PDUs from elsewhere, from the file that DV_PDU_VECTORS names: what their sources say is in them, and a reason for
 * every difference of the SMS manager's. */
#include <cstdlib>
#include <fstream>

#include "bench.h"

namespace pdu
{
namespace
{

using json = nlohmann::json;

class Vectors : public testing::Test
{
protected:
    void SetUp() override
    {
        const char *path = std::getenv("DV_PDU_VECTORS");
        if (path == nullptr)
            GTEST_SKIP() << "DV_PDU_VECTORS names no file";
        std::ifstream file(path);
        all = json::parse(file);
    }

    json all;
};

/* Of the source's text, what can be compared: data has none here. */
bool comparable(const json &vector, const message &m, const char *key)
{
    return m.problems.empty() && vector["expected"].is_object() && vector["expected"].contains(key) &&
           vector["expected"][key].is_string();
}

TEST_F(Vectors, AreReadAsTheirSourcesSay)
{
    size_t texts = 0, senders = 0;
    for (const json &vector : all) {
        const message m = read(vector["pdu"]);
        expect_whole(m, vector["id"]);
        if (comparable(vector, m, "text") && m.has_text) {
            EXPECT_EQ(vector["expected"]["text"], m.text) << vector["id"];
            texts++;
        }
        if (comparable(vector, m, "sender")) {
            const std::string sender = vector["expected"]["sender"];
            EXPECT_TRUE(sender == m.address || "+" + sender == m.address) << vector["id"] << ": " << m.address;
            senders++;
        }
    }
    EXPECT_GT(texts, 100u);
    EXPECT_GT(senders, 90u);
}

TEST_F(Vectors, EveryDifferenceHasAReason)
{
    size_t differences = 0;
    for (const json &vector : all) {
        for (const difference &each : inspected(vector["pdu"]).differences) {
            EXPECT_EQ(std::string::npos, each.why.find("own arithmetic")) << vector["id"] << ": " << each.what;
            differences++;
        }
    }
    EXPECT_GT(differences, 50u);
}

} // namespace
} // namespace pdu
