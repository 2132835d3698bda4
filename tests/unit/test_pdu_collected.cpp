/* PDUs collected from many places, with what those places say is in them: a JSON file named by the
 * environment variable DV_PDU_VECTORS. It does not come with the sources.
 *
 * Each entry has a kind ("deliver", "submit"), the hex text, `expected` (what its source says; may be
 * null), `derived` (what can be read straight off) and, for received ones, `daemon_differs`: the fields
 * that the daemon reads in another way, all for one of these reasons:
 *
 *   sender         A name is taken from the letters in the address' hex text, not from its type: one
 *                  without a letter comes out as digits. Of a name of eight octets and more the last
 *                  octets are not read.
 *   concatenation  Only the first element of the header counts, and only one with an 8-bit reference.
 *   text           A header that fills whole septets (six octets, or 20) costs the first letter; the
 *                  capital c-cedilla comes out small; an unknown extension is the byte 0xFF and not the
 *                  letter itself; what is missing of the last septets is filled up; surrogates are
 *                  written one by one.
 *
 * There the reference says what must come out. For everything else the sources do. */
#include <fstream>
#include <nlohmann/json.hpp>

#include "devinfo.h"
#include "sms_msg.h"
#include "vectors/encode_bench.h"

using json = nlohmann::json;

class pdu_collected : public encode
{
protected:
    void SetUp() override
    {
        const char *path = getenv("DV_PDU_VECTORS");

        encode::SetUp();
        if (path == nullptr || *path == '\0')
            GTEST_SKIP() << "DV_PDU_VECTORS does not name the file of collected PDUs";
        std::ifstream file(path);
        ASSERT_TRUE(file) << "cannot read " << path;
        entries = json::parse(file, nullptr, false);
        ASSERT_TRUE(entries.is_array()) << path;
        ASSERT_FALSE(entries.empty()) << path;
        for (const json &entry : entries)
            ASSERT_TRUE(entry.at("kind") == "deliver" || entry.at("kind") == "submit") << entry.at("id");
        platform.set_flag(SMS_CSCA_FLAG, "+31624000000");
        platform.set_devinfo(DEVINFO_NETWORK_STATE, "LTE");
        be_quiet();
    }

    /* All of a kind, one after another. */
    template <typename Check> void each(const char *kind, Check check)
    {
        int found = 0;

        for (const json &entry : entries) {
            if (entry.at("kind") != kind)
                continue;
            SCOPED_TRACE(entry.at("id").get<std::string>() + " from " + entry.at("source").get<std::string>());
            platform.forget();
            check(entry, expected(entry), derived(entry));
            found++;
        }
        EXPECT_GT(found, 0);
    }

    static json part_of(const json &entry, const char *name)
    {
        return entry.contains(name) && entry.at(name).is_object() ? entry.at(name) : json::object();
    }
    static json expected(const json &entry) { return part_of(entry, "expected"); }
    static json derived(const json &entry) { return part_of(entry, "derived"); }
    static bool has(const json &object, const char *key) { return object.contains(key) && !object.at(key).is_null(); }
    static std::string text_of(const json &object, const char *key) { return object.at(key).get<std::string>(); }
    static unsigned number_of(const json &object, const char *key) { return object.at(key).get<unsigned>(); }

    static bool differs(const json &entry, const char *field)
    {
        for (const json &name : entry.value("daemon_differs", json::array()))
            if (name == field)
                return true;
        return false;
    }

    json entries;
};

/* --- received --- */

/* A text as it comes out of UCS-2: what lies beyond U+FFFF is written as two surrogates. */
static std::string through_ucs2(const std::string &text)
{
    std::string out;

    for (const char32_t value : reference::characters(text)) {
        if (value > 0xFFFF)
            out += reference::utf8(0xD800 + (value - 0x10000) / 0x400) + reference::utf8(0xDC00 + value % 0x400);
        else
            out += reference::utf8(value);
    }
    return out;
}

TEST_F(pdu_collected, received_by_the_reference)
{
    each("deliver", [](const json &entry, const json &said, const json &read_off) {
        const std::string pdu = text_of(entry, "pdu");
        const reference::delivered found = reference::decode(pdu);

        EXPECT_TRUE(agrees_with_reference(pdu));
        if (has(read_off, "scts")) {
            EXPECT_EQ(text_of(read_off, "scts"), current_sms_msg->date);
        }
        for (const json &about : {said, read_off}) {
            if (has(about, "dcs")) {
                EXPECT_EQ(number_of(about, "dcs"), found.dcs);
            }
            if (has(about, "udl")) {
                EXPECT_EQ(number_of(about, "udl"), found.udl);
            }
        }
    });
}

TEST_F(pdu_collected, every_one_cut_short)
{
    for (const json &entry : entries) {
        const std::string pdu = text_of(entry, "pdu");

        for (size_t length = 0; length < pdu.size(); length += 1 + length % 5) {
            platform.forget();
            ASSERT_TRUE(agrees_with_reference(pdu.substr(0, length))) << entry.at("id");
        }
    }
}

TEST_F(pdu_collected, texts)
{
    int compared = 0;

    each("deliver", [&](const json &entry, const json &said, const json &) {
        const std::string text = decode(text_of(entry, "pdu")).text;

        if (has(said, "text")) {
            const std::string whole = reference::cut(text_of(said, "text"), SMS_MSG_TEXT_SIZE - 1);
            if (differs(entry, "text")) {
                EXPECT_NE(whole, text) << "no difference after all";
            } else {
                EXPECT_EQ(whole, text);
                compared++;
            }
        }
        if (has(said, "data_hex") && !differs(entry, "text")) {
            EXPECT_EQ(text_of(said, "data_hex"), reference::hex({text.begin(), text.end()}));
            compared++;
        }
    });
    EXPECT_GT(compared, 0);
}

TEST_F(pdu_collected, senders)
{
    each("deliver", [](const json &entry, const json &said, const json &) {
        if (!has(said, "sender"))
            return;
        std::string sender = text_of(said, "sender");
        std::replace(sender.begin(), sender.end(), ' ', '$'); /* filed without blanks */
        const std::string phone = decode(text_of(entry, "pdu")).phone;
        const bool sign_dropped = entry.value("note", "").find("without its plus sign") != std::string::npos;
        if (differs(entry, "sender"))
            EXPECT_NE(sender, phone) << "no difference after all";
        else
            EXPECT_EQ(sign_dropped ? "+" + sender : sender, phone);
    });
}

TEST_F(pdu_collected, parts)
{
    each("deliver", [](const json &entry, const json &said, const json &) {
        const dv_sms_msg &msg = decode(text_of(entry, "pdu"));

        if (differs(entry, "concatenation")) {
            EXPECT_EQ(0U, msg.concatenated); /* one message by itself */
            return;
        }
        if (has(said, "multipart")) {
            EXPECT_EQ(said.at("multipart").get<bool>(), msg.concatenated == 1);
        }
        if (has(said, "reference")) {
            EXPECT_EQ(1U, msg.concatenated);
            EXPECT_EQ(number_of(said, "reference"), msg.reference);
            EXPECT_EQ(number_of(said, "total"), msg.total);
            EXPECT_EQ(number_of(said, "sequence"), msg.sequence);
        }
    });
}

TEST_F(pdu_collected, service_centres)
{
    each("deliver", [](const json &entry, const json &said, const json &) {
        if (has(said, "smsc")) { /* skipped unread by the daemon, so this is about the collection */
            EXPECT_EQ(text_of(said, "smsc"), reference::decode(text_of(entry, "pdu")).smsc);
        }
    });
}

/* Dates are written in many ways: "2011-02-28T11:50:50-05", "29.03.2099 15:16:59 +02:00". Year, month,
 * day, hour, minute and second, whichever way round; empty when there are not so many. */
static std::vector<int> numbers_of_date(const std::string &date)
{
    std::vector<int> numbers;
    size_t from = date.size();

    for (size_t i = 0; i <= date.size() && numbers.size() < 6; i++) {
        const bool digit = i < date.size() && isdigit(static_cast<unsigned char>(date[i]));
        if (digit && from == date.size()) {
            from = i;
        } else if (!digit && from < i) {
            numbers.push_back(std::stoi(date.substr(from, i - from)));
            from = date.size();
        }
    }
    if (numbers.size() < 6)
        return {};
    if (numbers[2] > 31)
        std::swap(numbers[0], numbers[2]);
    if (numbers[0] < 100)
        numbers[0] += 2000;
    return numbers;
}

static time_t seconds_of(const std::vector<int> &numbers)
{
    struct tm broken = {};

    broken.tm_year = numbers[0] - 1900;
    broken.tm_mon = numbers[1] - 1;
    broken.tm_mday = numbers[2];
    broken.tm_hour = numbers[3];
    broken.tm_min = numbers[4];
    broken.tm_sec = numbers[5];
    return timegm(&broken);
}

/* The zone of a stamp in seconds: quarters of an hour, swapped, with a sign bit. */
static int zone_of(const std::string &stamp)
{
    const unsigned octet = reference::unhex(stamp).at(6);
    const int quarters = static_cast<int>((octet & 0x07) * 10 + (octet >> 4));

    return (octet & 0x08) != 0 ? -quarters * 900 : quarters * 900;
}

TEST_F(pdu_collected, dates)
{
    each("deliver", [](const json &entry, const json &said, const json &) {
        if (!has(said, "date"))
            return;
        const std::string pdu = text_of(entry, "pdu");
        const std::vector<int> numbers = numbers_of_date(text_of(said, "date"));
        const std::vector<int> ours = numbers_of_date(decode(pdu).date);
        ASSERT_EQ(6U, numbers.size());
        ASSERT_EQ(6U, ours.size());
        if (numbers == ours)
            return;
        /* Some sources give the time in UTC; the daemon keeps the service centre's own. */
        EXPECT_EQ(seconds_of(numbers), seconds_of(ours) - zone_of(reference::decode(pdu).stamp))
            << text_of(said, "date") << " and " << current_sms_msg->date;
    });
}

/* Parts that make one text: kept as the receive path keeps them, and joined. */
TEST_F(pdu_collected, whole_texts)
{
    std::map<std::string, lines> messages;

    each("deliver", [&](const json &entry, const json &said, const json &) {
        if (has(said, "whole_text") && !differs(entry, "text") && !differs(entry, "concatenation"))
            messages[text_of(said, "whole_text")].push_back(text_of(entry, "pdu"));
    });
    for (const auto &[text, pdus] : messages) {
        int missing = 1;
        for (const std::string &pdu : pdus) {
            decode(pdu);
            ASSERT_EQ(1U, current_sms_msg->concatenated);
            missing = dv_sms_mgr_link_part();
        }
        ASSERT_EQ(0, missing) << text;
        char joined[SMS_TEXT_SIZE];
        ASSERT_EQ(0, dv_sms_mgr_join_parts(joined));
        EXPECT_EQ(through_ucs2(text), joined);
    }
}

/* --- submitted --- */

/* What goes out for a text and a number, part by part. */
static std::vector<reference::submitted> submit(const std::string &text, const std::string &number)
{
    std::vector<reference::submitted> parts;
    sockmsg_record record = {};
    auto *payload = reinterpret_cast<sms_payload *>(record.payload);

    memcpy(payload->phone, number.data(), std::min(number.size(), sizeof payload->phone));
    memcpy(payload->text, text.data(), std::min(text.size(), sizeof payload->text));
    EXPECT_EQ(0, dv_sms_mgr_parse_send_data(&record));
    while (dv_sms_send_state.seq <= dv_sms_send_state.total && dv_sms_mgr_pack_pdu_data() == 0) {
        std::string pdu = dv_sms_pdu_text;
        pdu.pop_back();
        const auto part = reference::parse_submit(pdu);
        EXPECT_TRUE(part) << pdu;
        if (!part)
            break;
        parts.push_back(*part);
    }
    return parts;
}

/* Behind the header. */
static reference::bytes body(const reference::bytes &ud, size_t header)
{
    return {ud.begin() + static_cast<long>(std::min(header, ud.size())), ud.end()};
}

TEST_F(pdu_collected, submitted_by_the_reference)
{
    each("submit", [](const json &entry, const json &said, const json &read_off) {
        const auto known = reference::parse_submit(text_of(entry, "pdu"));

        /* A few are damaged, and their sources say so: nothing is said of what is in them. */
        if (!known) {
            EXPECT_FALSE(has(said, "text"));
            return;
        }
        EXPECT_EQ(number_of(read_off, "first_octet"), known->first_octet);
        EXPECT_EQ(number_of(read_off, "message_reference"), known->message_reference);
        EXPECT_EQ(number_of(read_off, "pid"), known->pid);
        EXPECT_EQ(number_of(read_off, "dcs"), known->dcs);
        EXPECT_EQ(number_of(read_off, "udl"), known->udl);
        EXPECT_EQ(text_of(read_off, "ud"), reference::hex(known->ud));
        if (has(said, "destination")) {
            EXPECT_EQ(text_of(said, "destination"), known->destination);
        }
        if (has(said, "smsc")) {
            EXPECT_EQ(text_of(said, "smsc"), known->smsc);
        }
        if (has(said, "text") && known->header.empty()) {
            EXPECT_EQ(through_ucs2(text_of(said, "text")), known->text);
        }
        if (has(said, "class")) {
            EXPECT_EQ(0x10 + number_of(said, "class"), known->dcs);
        }
        if (has(said, "charset")) {
            EXPECT_EQ(text_of(said, "charset") == "UCS2" ? 0x08U : 0x00U, known->dcs);
        }
    });
}

/* The addresses of the collection, encoded: the types other than national and international are not
 * the daemon's. */
TEST_F(pdu_collected, addresses)
{
    each("submit", [](const json &entry, const json &said, const json &) {
        const auto known = reference::parse_submit(text_of(entry, "pdu"));
        const std::string pdu = text_of(entry, "pdu");
        dv_sms_pdu record = {};
        const auto two = [](unsigned value) { return reference::hex({static_cast<uint8_t>(value)}); };

        if (has(said, "destination") && (known->destination_type == 0x91 || known->destination_type == 0x81)) {
            ASSERT_EQ(0, dv_sms_mgr_pdu_gen_phone(text_of(said, "destination").c_str(), &record, PHONE_DEST));
            const size_t at = pdu.find(two(record.dest_type) + record.dest_digits);
            ASSERT_NE(std::string::npos, at) << record.dest_digits << " is not in " << pdu;
            /* One source counts the fill of an odd number as a digit. */
            EXPECT_EQ((record.dest_len + 1) / 2, (reference::unhex(pdu.substr(at - 2, 2))[0] + 1) / 2);
        }
        if (has(said, "smsc") && (known->smsc_type == 0x91 || known->smsc_type == 0x81)) {
            ASSERT_EQ(0, dv_sms_mgr_pdu_gen_phone(text_of(said, "smsc").c_str(), &record, PHONE_SMSC));
            const std::string address = two(record.smsc_len) + two(record.smsc_type) + record.smsc_digits;
            EXPECT_EQ(address, pdu.substr(0, address.size()));
        }
    });
}

static std::string whole(const json &said)
{
    return said.at(said.contains("whole_text") ? "whole_text" : "text").get<std::string>();
}

/* Octet for octet, where the source chooses the alphabet and the division that the daemon does. */
TEST_F(pdu_collected, user_data)
{
    int compared = 0;

    each("submit", [&](const json &entry, const json &said, const json &read_off) {
        if (!entry.at("user_data_comparable").get<bool>())
            return;
        const bool in_parts = has(said, "whole_text");
        const std::string number = has(said, "destination") ? text_of(said, "destination") : "12345";
        const std::vector<reference::submitted> parts = submit(whole(said), number);
        const size_t index = in_parts ? number_of(said, "sequence") - 1 : 0;
        ASSERT_LT(index, parts.size());
        const reference::submitted &part = parts[index];

        EXPECT_EQ(number, part.destination);
        ASSERT_EQ(in_parts, !part.header.empty());
        if (in_parts) {
            EXPECT_EQ(number_of(said, "total"), parts.size());
            EXPECT_EQ(number_of(said, "total"), part.header.at(4));
            EXPECT_EQ(number_of(said, "sequence"), part.header.at(5));
        }
        EXPECT_EQ(number_of(read_off, "udl"), part.udl);
        EXPECT_EQ(number_of(read_off, "dcs"), part.dcs);
        const reference::bytes known = reference::unhex(text_of(read_off, "ud"));
        EXPECT_EQ(body(known, part.header.size()), body(part.ud, part.header.size())) /* references differ */
            << text_of(read_off, "ud") << " and " << reference::hex(part.ud);
        compared++;
    });
    EXPECT_GT(compared, 0);
}

/* Where the daemon chooses another alphabet than the source, the text arrives all the same; surrogates
 * apart, whose upper bits are lost. */
TEST_F(pdu_collected, texts_arrive)
{
    each("submit", [](const json &, const json &said, const json &) {
        if (!has(said, "text") && !has(said, "whole_text"))
            return;
        std::string arrived, expected_text;
        for (const reference::submitted &part : submit(whole(said), "12345"))
            arrived += part.text;
        for (const char32_t value : reference::characters(whole(said)))
            expected_text += reference::utf8(value & 0xFFFF);
        EXPECT_EQ(expected_text, arrived);
    });
}
