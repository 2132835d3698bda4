/* Segmentation: which alphabet a message takes, how many parts it makes, and what each part carries. */
#include <string>
#include <vector>

#include "core_sending.h"
#include "dv_sms_mgr_send.h"

using fake::answer;

namespace
{

static const uint8_t ref_at_start = dv_sms_send_state.ref; /* before any test */

struct segment_case {
    const char *name;
    std::string text;
    unsigned dcs;
    std::vector<unsigned> udl; /* of each part */
    std::string sent;          /* septets, or code units in hex */
};

TEST_F(sending, cuts_a_message_into_parts_of_the_right_size)
{
    const std::string esc_open = "\x1B\x3C"; /* "[" */
    const segment_case cases[] = {
        {"one character", "x", 0, {1}, "x"},
        {"160 septets", letters(160), 0, {160}, letters(160)},
        {"161 septets", letters(161), 0, {160, 15}, letters(161)},
        {"306 septets", letters(306), 0, {160, 160}, letters(306)},
        {"307 septets", letters(307), 0, {160, 160, 8}, letters(307)},
        {"459 septets", letters(459), 0, {160, 160, 160}, letters(459)},
        {"80 brackets are 160 septets", repeat("[", 80), 0, {160}, repeat(esc_open, 80)},
        {"159 letters and a bracket", letters(159) + "[", 0, {160, 15}, letters(159) + esc_open},
        {"158 letters and a bracket", letters(158) + "[", 0, {160}, letters(158) + esc_open},
        {"an escape that would end a part begins the next",
         letters(152) + "[" + letters(20),
         0,
         {159, 29},
         letters(152) + esc_open + letters(20)},
        {"an escape whose code ends a part stays",
         letters(151) + "[" + letters(20),
         0,
         {160, 27},
         letters(151) + esc_open + letters(20)},
        {"kept on purpose: the part count does not follow a moved escape, the last septet is not sent",
         letters(152) + "[" + letters(152),
         0,
         {159, 160},
         letters(152) + esc_open + letters(151)},
        {"the last byte of ASCII", "\x7F", 0, {1}, "\x7F"},
        {"a character of the default alphabet beyond ASCII", e_acute, 8, {2}, "00E9"},
        {"one such among letters", std::string("ab") + e_acute, 8, {6}, "0061006200E9"},
        {"70 characters", repeat(chinese, 70), 8, {140}, repeat("4E2D", 70)},
        {"71 characters", repeat(chinese, 71), 8, {140, 14}, repeat("4E2D", 71)},
        {"134 characters", repeat(chinese, 134), 8, {140, 140}, repeat("4E2D", 134)},
        {"135 characters", repeat(chinese, 135), 8, {140, 140, 8}, repeat("4E2D", 135)},
        {"characters, not bytes, are counted", letters(69) + e_acute, 8, {140}, ""},
        {"a lone continuation byte counts as a character", std::string(70, '\x80'), 8, {140}, ""},
        {"71 of those", std::string(71, '\x80'), 8, {140, 14}, ""},
        {"the longest ASCII text", letters(4000), 0, {}, letters(4000)},
        {"the longest text is cut to 4000 bytes", letters(4031), 0, {}, letters(4000)},
        {"the cut leaves a character out that would be broken: ASCII remains",
         letters(3999) + e_acute,
         0,
         {},
         letters(3999)},
        {"2000 characters of two bytes", repeat(e_acute, 2000), 8, {}, repeat("00E9", 2000)},
        {"1333 characters of three bytes, the last one cut away", repeat(chinese, 1334), 8, {}, repeat("4E2D", 1333)},
    };

    for (const segment_case &each : cases) {
        start_over();
        EXPECT_EQ(0, send("+31612345678", each.text)) << each.name;
        const std::vector<submit> parts = submitted();
        const bool several = parts.size() > 1;
        std::string sent;
        std::vector<unsigned> udl;

        for (size_t i = 0; i < parts.size(); i++) {
            const submit &part = parts[i];
            char header[16];

            snprintf(header, sizeof header, "05000301%02X%02X", static_cast<unsigned>(parts.size()),
                     static_cast<unsigned>(i + 1));
            EXPECT_TRUE(part.well_formed) << each.name;
            EXPECT_EQ(several ? 0x51u : 0x11u, part.first_octet) << each.name;
            EXPECT_EQ(1u, part.reference) << each.name;
            EXPECT_EQ("+31612345678", part.number);
            EXPECT_EQ(0u, part.pid);
            EXPECT_EQ(each.dcs, part.dcs) << each.name;
            EXPECT_EQ(8u, part.validity);
            EXPECT_EQ(several ? header : "", part.header) << each.name;
            EXPECT_LE(part.udl, each.dcs == 0 ? 160u : 140u);
            udl.push_back(part.udl);
            sent += part.text;
        }
        EXPECT_EQ(each.udl.empty() ? udl : each.udl, udl) << each.name;
        EXPECT_EQ(each.sent.empty() ? sent : each.sent, sent) << each.name;
        EXPECT_EQ("0", platform.flag(last_code)) << each.name;
        EXPECT_EQ("1 1 +31612345678 2024-03-05 14:07:00 " + each.text, filed())
            << each.name << ": the request's whole text is filed";
    }
}

TEST_F(sending, the_longest_texts_make_27_30_and_20_parts)
{
    const std::pair<std::string, size_t> cases[] = {
        {letters(4000), 27}, {repeat(e_acute, 2000), 30}, {repeat(chinese, 1333), 20}};

    for (const auto &[text, parts] : cases) {
        start_over();
        EXPECT_EQ(0, send("123", text));
        EXPECT_EQ(parts, submitted().size());
    }
}

TEST_F(sending, a_text_of_nothing_but_brackets_stays_within_its_buffer)
{
    EXPECT_EQ(0, send("123", std::string(4031, '[')));
    EXPECT_EQ(27u, submitted().size()) << "4001 septets";
    EXPECT_EQ('\0', dv_sms_send_text[SEND_TEXT_MAX + 1]);
    EXPECT_EQ("0", platform.flag(last_code));
}

TEST_F(sending, fields_without_terminator_end_with_their_field)
{
    const std::string text = letters(4032);

    /* What stands behind the text would show: the sender's number is "AAAA". */
    EXPECT_EQ(0, send(std::string(20, '7'), text, 0x41414141, 0x41414141));
    EXPECT_EQ("1 1 " + std::string(20, '7') + " 2024-03-05 14:07:00 " + text, filed());
    start_over();
    EXPECT_EQ(0, send(std::string(32, '7'), text, 0x41414141, 0x41414141));
    EXPECT_EQ(std::string(31, '7'), dv_sms_send_phone) << "the copy holds 31 and a terminator";
    EXPECT_EQ("1 0 " + std::string(32, '7') + " 2024-03-05 14:07:00 " + text, filed());
    start_over();
    EXPECT_EQ(0, send(letters(30) + e_acute, "hi"));
    EXPECT_EQ(letters(30), dv_sms_send_phone) << "cut in front of a character";
}

struct state_case {
    const char *name;
    std::string text;
    unsigned concatenated, seg_size, total, text_len;
};

TEST_F(sending, prepares_the_segmentation)
{
    const state_case cases[] = {
        {"160 septets", letters(160), 0, 160, 1, 160},         {"161 septets", letters(161), 1, 153, 2, 161},
        {"escapes count", repeat("~", 100), 1, 153, 2, 200},   {"one septet", "x", 0, 160, 1, 1},
        {"70 characters", repeat(chinese, 70), 0, 70, 1, 210}, {"3 characters", repeat(e_acute, 3), 0, 3, 1, 6},
        {"71 characters", repeat(chinese, 71), 1, 67, 2, 213},
    };

    for (const state_case &each : cases) {
        const sockmsg_record request = make_message(0, "123", each.text);
        const dv_sms_send_ctx &state = dv_sms_send_state;

        dv_sms_send_state.seq = 9;
        dv_sms_send_state.ref = 41;
        EXPECT_EQ(0, dv_sms_mgr_parse_send_data(&request)) << each.name;
        EXPECT_EQ(each.concatenated, state.concatenated) << each.name;
        EXPECT_EQ(each.seg_size, state.seg_size) << each.name;
        EXPECT_EQ(each.total, state.total) << each.name;
        EXPECT_EQ(each.text_len, state.text_len) << each.name;
        EXPECT_EQ(1, state.seq);
        EXPECT_EQ(42, state.ref);
        EXPECT_EQ(dv_sms_send_text, state.text_start);
        EXPECT_EQ(dv_sms_send_text, state.text_pos);
        EXPECT_STREQ("123", state.dest);
    }
}

TEST_F(sending, the_reference_is_raised_once_a_message_that_passed_the_checks)
{
    EXPECT_EQ(0, ref_at_start);
    EXPECT_EQ(0, send("123", letters(400)));
    platform.set_devinfo(301002, "Unkown");
    EXPECT_EQ(0, send("123", "no network"));
    platform.set_flag("SMS_CSCA", "");
    modem.script("AT+CSCA?\r", {{.error = 38}});
    EXPECT_EQ(0, send("123", "no service centre"));
    platform.set_flag("SMS_CSCA", "+3");
    platform.set_devinfo(301002, "LTE");
    modem.script("AT+DORVYSMS*", {{.error = 38}, {plain_ok}});
    EXPECT_EQ(0, send("123", "refused"));
    EXPECT_EQ(0, send("123", "sent"));
    dv_sms_send_state.ref = 254;
    EXPECT_EQ(0, send("123", "x"));
    EXPECT_EQ(0, send("123", "x"));
    std::vector<unsigned> references;
    for (const submit &part : submitted())
        references.push_back(part.reference);
    EXPECT_EQ((std::vector<unsigned>{1, 1, 1, 2, 3, 255, 0}), references);
}

TEST_F(sending, nothing_of_the_message_before_stays_behind)
{
    EXPECT_EQ(0, send("12345678901234567890", repeat(chinese, 200)));
    EXPECT_EQ(0, send("123", letters(300)));
    EXPECT_EQ(0, send("1", "x"));
    const submit last = submitted().back();
    EXPECT_TRUE(last.well_formed);
    EXPECT_EQ("1", last.number);
    EXPECT_EQ("x", last.text);
    EXPECT_EQ(0x11u, last.first_octet);
    EXPECT_EQ(std::string(31, '\0'), std::string(dv_sms_send_phone + 1, 31));
    EXPECT_EQ(std::string(4001, '\0'), std::string(dv_sms_send_text + 1, 4001));
}

} // namespace
