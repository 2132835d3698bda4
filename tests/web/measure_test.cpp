/* The server counts as the page does: both read the same table, and the page's tests send such texts. */
#include "measure.h"

#include <fstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace
{

using nlohmann::json;

/* A text, or pieces and how often each is repeated. */
std::string text_of(const json &described)
{
    if (described.is_string())
        return described;
    std::string out;
    for (size_t i = 0; i + 1 < described.size(); i += 2)
        for (int n = 0; n < described[i + 1].get<int>(); n++)
            out += described[i].get<std::string>();
    return out;
}

TEST(Measure, CountsAsTheTableSays)
{
    std::ifstream file(MEASURE_VECTORS);
    const json cases = json::parse(file);
    ASSERT_GT(cases.size(), 20U);
    for (const json &each : cases) {
        SCOPED_TRACE(each["name"].get<std::string>());
        const web::text_measure measured = web::measure_text(text_of(each["text"]));
        EXPECT_EQ(measured.wide, each["wide"].get<bool>());
        EXPECT_EQ(measured.units, each["units"].get<size_t>());
        EXPECT_EQ(measured.parts, each["parts"].get<size_t>());
        EXPECT_EQ(measured.lost, each["lost"].get<size_t>());
    }
}

} // namespace
