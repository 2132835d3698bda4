/* PDUs that stand as examples in standards, manuals of modems and tutorials, or follow from the charts
 * there: what everybody reads in them the daemon reads, too. */
#include "devinfo.h"
#include "sms_msg.h"
#include "vectors/encode_bench.h"

class pdu_known : public encode
{
};

TEST_F(pdu_known, received)
{
    static const struct {
        const char *name, *pdu, *phone, *date, *text;
    } rows[] = {
        {"two words in septets, a sender of unknown plan",
         "07917283010010F5 04 0BC8 7238880900F1 00 00 99309251619580 0A E8329BFD4697D9EC37", "27838890001",
         "2099/03/29 15:16:59", "hellohello"},
        {"a question", "07911326040000F0 04 0B91 1346610089F6 00 00 20806291731408 0C C8F71D14969741F977FD07",
         "+31641600986", "2002/08/26 19:37:41", "How are you?"},
        {"a sentence",
         "07915892000000F0 04 0B91 5892214365F7 00 00 70402132522423 31 "
         "493A283D0795C3F33C88FE06C9CB6132885EC6D341EDF27C1E3E97E7207B3A0C0A5241E377BB1D7693E72E",
         "+85291234567", "2007/04/12 23:25:42", "It is easy to read text messages via AT commands."},
        {"a name as the sender", "0791448720003023 24 0DD0 E474D81C0EBB01 00 00 11101131521400 0B E474D81C0EBB5DE3771B",
         "diafaan", "2011/01/11 13:25:41", "diafaan.com"},
        {"a service centre of an even count of digits",
         "06917228195339 04 0B91 7228214365F7 00 00 31308051206180 05 "
         "D4F29C2E03",
         "+27821234567", "2013/03/08 15:02:16", "Test2"},
        {"UCS-2, Cyrillic", "07919730071111F1 04 0B91 9746121611F1 00 08 11309291024061 08 0442043504410442",
         "+79642161111", "2011/03/29 19:20:04", "тест"},
        {"class 0, shown at once", "0004 0B91 1316325476F8 00 10 42305041700002 02 E834", "+31612345678",
         "2024/03/05 14:07:00", "hi"},
        {"class 1, octets (TS 23.038, 4)", "0004 0B91 1316325476F8 00 F5 42305041700002 03 414243", "+31612345678",
         "2024/03/05 14:07:00", "ABC"},
        {"a message waiting, no text", "0004 0B91 1316325476F8 00 C8 42305041700002 00", "+31612345678",
         "2024/03/05 14:07:00", ""},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const dv_sms_msg &msg = decode(row.pdu);
        EXPECT_STREQ(row.phone, msg.phone);
        EXPECT_STREQ(row.date, msg.date);
        EXPECT_STREQ(row.text, msg.text);
        EXPECT_TRUE(agrees_with_reference(reference::squeeze(row.pdu)));
    }
}

/* The chart of TS 23.038 from its first code to its last; the escape (followed by the space here) and
 * the capital c-cedilla are where the daemon reads something else. */
TEST_F(pdu_known, the_default_alphabet)
{
    reference::bytes septets;
    std::string text;

    for (unsigned code = 0; code < 128; code++) {
        if (code == 0x1B)
            continue;
        septets.push_back(static_cast<uint8_t>(code));
        text += code == 0x09 ? "ç" : reference::utf8(reference::default_character(code));
    }
    const std::string pdu = "00040B911316325476F8000042305041700002"
                            "7F" +
                            reference::hex(reference::pack(septets));
    EXPECT_EQ(text, decode(pdu).text);
}

TEST_F(pdu_known, the_extension_table)
{
    const reference::bytes septets = {0x1B, 0x0A, 0x1B, 0x14, 0x1B, 0x28, 0x1B, 0x29, 0x1B, 0x2F,
                                      0x1B, 0x3C, 0x1B, 0x3D, 0x1B, 0x3E, 0x1B, 0x40, 0x1B, 0x65};
    const std::string pdu = "00040B911316325476F8000042305041700002"
                            "14" +
                            reference::hex(reference::pack(septets));

    EXPECT_STREQ("\f^{}\\[~]|€", decode(pdu).text);
}

/* Parts by the example of TS 23.040, 9.2.3.24.1: an 8-bit reference, two parts. */
TEST_F(pdu_known, a_message_in_two_parts)
{
    decode("00 44 0B91 1316325476F8 00 00 42305041700002 0C 050003CC0201 D06536FB0D");
    EXPECT_EQ(1U, current_sms_msg->concatenated);
    EXPECT_EQ(0xCC, current_sms_msg->reference);
    EXPECT_EQ(2, current_sms_msg->total);
    EXPECT_EQ(1, current_sms_msg->sequence);
    EXPECT_STREQ("hello", current_sms_msg->text);
    decode("00 44 0B91 1316325476F8 00 00 42305041700002 0C 050003CC0202 EE6F399B0C");
    EXPECT_EQ(2, current_sms_msg->sequence);
    EXPECT_STREQ("world", current_sms_msg->text);
}

/* Submitted messages: number and user data are those of the daemon for the same text. Service centre,
 * reference and validity are the sender's to choose, and differ. */
TEST_F(pdu_known, submitted)
{
    static const struct {
        const char *name, *pdu, *destination, *text;
    } rows[] = {
        {"two words, four days", "00 11 00 0B91 6407281553F8 00 00 AA 0A E8329BFD4697D9EC37", "+46708251358",
         "hellohello"},
        {"no validity", "00 01 00 0B91 6407281553F8 00 00 0A E8329BFD4697D9EC37", "+46708251358", "hellohello"},
        {"a service centre of its own",
         "07911326040000F0 31 0D 0B91 1326880736F4 00 00 A9 0F F7FBDD454E87CDE1B0DB357EB701", "+31628870634",
         "www.diafaan.com"},
        {"UCS-2", "00 11 00 09 81 56355476F8 00 08 AA 0E 0420044304410441043A04380439", "655345678", "Русский"},
        {"a brace", "00 31 00 0B91 6407281553F8 00 00 0B 02 1B14", "+46708251358", "{"},
    };

    platform.set_flag(SMS_CSCA_FLAG, "+31624000000");
    platform.set_devinfo(DEVINFO_NETWORK_STATE, "LTE");
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const auto known = reference::parse_submit(reference::squeeze(row.pdu));
        ASSERT_TRUE(known);
        EXPECT_EQ(row.destination, known->destination);
        EXPECT_EQ(row.text, known->text);

        sockmsg_record record = {};
        auto *payload = reinterpret_cast<sms_payload *>(record.payload);
        strcpy(payload->phone, row.destination);
        strcpy(payload->text, row.text);
        ASSERT_EQ(0, dv_sms_mgr_parse_send_data(&record));
        const auto ours = reference::parse_submit(pack());
        ASSERT_TRUE(ours);
        EXPECT_EQ(known->destination, ours->destination);
        EXPECT_EQ(known->destination_type, ours->destination_type);
        EXPECT_EQ(known->dcs, ours->dcs);
        EXPECT_EQ(known->udl, ours->udl);
        EXPECT_EQ(known->ud, ours->ud);
    }
}
