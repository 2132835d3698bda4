/* PDUs from elsewhere, from the file that DV_PDU_VECTORS names. */
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "storage.h"
#include "submit.h"

namespace sim
{
namespace
{

using json = nlohmann::json;

json load_vectors()
{
    const char *path = std::getenv("DV_PDU_VECTORS");
    if (path == nullptr)
        return nullptr;
    std::ifstream file(path);
    return json::parse(file);
}

bool has_tag(const json &vector, const char *tag)
{
    const json &tags = vector["tags"];
    return std::find(tags.begin(), tags.end(), tag) != tags.end();
}

struct strictness {
    const char *id, *reason;
};

/* Taken from telephones' memories; a network would pass them on, but whoever encodes so has made a mistake. */
constexpr strictness refused_here[] = {
    {"gammu-at-02", "fill bits that are not 0"},
    {"gammu-at-14", "reserved bit set in the data coding scheme"},
    {"gammu-at-20", "cut short in the user-data header"},
    {"gammu-at-31", "a destination of 0 digits"},
};

bool is_refused_here(const json &vector, const std::string &reason)
{
    return std::any_of(std::begin(refused_here), std::end(refused_here),
                       [&](const strictness &s) { return vector["id"] == s.id && reason == s.reason; });
}

/* The source means it to be refused, or its length is not that of what is there, which some readers pass over. */
bool is_malformed(const json &vector)
{
    const std::string note = vector.value("note", "");
    return note.find("REJECT") != std::string::npos || note.find("FAIL") != std::string::npos ||
           has_tag(vector, "user-data-shorter-than-UDL");
}

/* The digits of a number, which sources write with or without "+". */
std::string digits(const std::string &number)
{
    return number.starts_with('+') ? number.substr(1) : number;
}

TEST(vectors, submits_are_read_as_their_sources_say)
{
    const json vectors = load_vectors();
    if (vectors.is_null())
        GTEST_SKIP() << "DV_PDU_VECTORS names no file";
    int compared = 0;
    for (const json &vector : vectors) {
        if (vector["kind"] != "submit")
            continue;
        SCOPED_TRACE(vector["id"].get<std::string>());
        const octets pdu = *from_hex(vector["pdu"].get<std::string>());
        submit content;
        try {
            content = parse_submit(pdu, tpdu_length(pdu));
        } catch (const malformed_pdu &reason) {
            EXPECT_TRUE(is_malformed(vector) || is_refused_here(vector, reason.what())) << reason.what();
            continue;
        }
        EXPECT_FALSE(is_malformed(vector));
        const json &expected = vector["expected"];
        if (expected.is_null())
            continue;
        compared++;
        EXPECT_EQ(content.data_coding, vector["derived"]["dcs"]);
        if (expected.contains("destination")) {
            EXPECT_EQ(digits(content.to), digits(expected["destination"]));
        }
        if (expected.contains("smsc")) {
            EXPECT_EQ(digits(content.service_centre), digits(expected["smsc"]));
        }
        if (expected.contains("text") && expected["text"].is_string()) {
            EXPECT_EQ(text_of(content.coding, std::span(&content.codes, 1)), expected["text"].get<std::string>());
        }
        if (expected.contains("sequence")) {
            EXPECT_EQ(content.place ? content.place->sequence : 0, expected["sequence"]);
        }
    }
    EXPECT_GT(compared, 50);
}

} // namespace
} // namespace sim
