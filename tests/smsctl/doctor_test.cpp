/* Each thing that can be off is found, and nothing else. */
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "doctor.h"
#include "sandbox.h"
#include "values.h"

using namespace sms_client;

namespace
{

std::string record(int number, const char *state = "1")
{
    return std::to_string(number) + " " + state + " 5 2024/03/05 14:07:00 x";
}

/* A store in which all is well: two messages received, one of them unread, and empty boxes. */
void make_well(const sandbox &s)
{
    s.cfg("SYS_SMS_MAX_SAVE_SIZE", "4");
    s.write("sms/sms_read/1", record(1));
    s.write("sms/sms_read/2", record(2, "0"));
    s.write("sms/read_index", " 1 2 ");
    s.write("sms/unread_sms", "1");
    s.item(306001, "1");
    for (const int id : {306002, 306003, 306004})
        s.item(id, "0");
    for (const char *name : {"send", "draft"}) {
        s.write(std::string("sms/sms_") + name + "/x", "");
        s.remove(std::string("sms/sms_") + name + "/x");
        s.write(std::string("sms/") + name + "_index", " ");
    }
}

std::string show(const std::vector<finding> &findings)
{
    std::string out;
    for (const finding &f : findings)
        out += f.about + ": " + f.what + " -> " + f.then + "\n";
    return out;
}

TEST(Doctor, NothingIsOff)
{
    const sandbox s;
    make_well(s);
    EXPECT_EQ(show(examine(s.store())), "");
}

struct ill_case {
    const char *name;
    void (*make_ill)(const sandbox &s);
    std::vector<const char *> words; /* of one finding each, and there are no others */
};

const ill_case ill_cases[] = {
    {"no store", [](const sandbox &s) { s.remove("sms"); }, {"store: "}},
    {"index names what is not there",
     [](const sandbox &s) { s.write("sms/read_index", " 1 2 4 9 "); },
     {"inbox: its index names messages that are not there: 4, 9"}},
    {"index does not name what is there",
     [](const sandbox &s) { s.write("sms/read_index", " 1 "); },
     {"inbox: messages that its index does not name: 2"}},
    {"index names one twice",
     [](const sandbox &s) { s.write("sms/read_index", " 1 2 1 1 "); },
     {"inbox: its index names messages twice: 1"}},
    {"index names what is no number",
     [](const sandbox &s) { s.write("sms/read_index", " 1 ../x 2 01 "); },
     {"names \"../x\"", "names \"01\""}},
    {"index without its blanks",
     [](const sandbox &s) { s.write("sms/read_index", "1 2 "); },
     {"does not begin and end with a blank"}},
    {"index missing",
     [](const sandbox &s) { s.remove("sms/read_index"); },
     {"its index is missing -> the next start rebuilds it"}},
    {"index missing, and no size is set",
     [](const sandbox &s) {
         s.remove("sms/read_index");
         s.remove("platform/cfg/SYS_SMS_MAX_SAVE_SIZE");
     },
     {"configuration: SYS_SMS_MAX_SAVE_SIZE is not set", "its index is missing -> the next start makes an empty one"}},
    {"index too long",
     [](const sandbox &s) { s.write("sms/read_index", " 1 2" + std::string(4093, ' ')); },
     {"its index has 4097 bytes"}},
    {"index without a directory",
     [](const sandbox &s) { s.remove("sms/sms_send"); },
     {"sent: it has an index but no directory"}},
    {"what is no message",
     [](const sandbox &s) {
         s.write("sms/sms_send/notes\n", "");
         mkdir((s.root() + "/sms/sms_send/3").c_str(), 0700);
     },
     {"sent: \"3\" in its directory is no message", "sent: \"notes\\n\" in its directory is no message"}},
    {"damaged record",
     [](const sandbox &s) { s.write("sms/sms_read/1", "7 1 5 2024/03/05 14:07:00 x"); },
     {"inbox: message 1: it calls itself number 7"}},
    {"wrong count",
     [](const sandbox &s) { s.write("sms/unread_sms", "5"); },
     {"the count of unread messages is 5; there are 1 -> the next start counts anew"}},
    {"no count", [](const sandbox &s) { s.remove("sms/unread_sms"); }, {"missing or no number"}},
    {"unread mark missing",
     [](const sandbox &s) { s.item(306001, "0"); },
     {"item 306001 does not say that there are unread messages"}},
    {"unread mark too many",
     [](const sandbox &s) {
         s.write("sms/sms_read/2", record(2));
         s.write("sms/unread_sms", "0");
     },
     {"item 306001 says that there are unread messages; there are none"}},
    {"a number beyond what the start counts",
     [](const sandbox &s) {
         s.write("sms/sms_read/9", record(9, "0"));
         s.write("sms/read_index", " 1 2 9 ");
         s.write("sms/unread_sms", "1");
     },
     {"there are 2 -> the next start counts 1: it does not look beyond number 4"}},
    {"full, and marked so",
     [](const sandbox &s) {
         s.cfg("SYS_SMS_MAX_SAVE_SIZE", "2");
         s.item(306002, "1");
     },
     {"inbox: it is full: 2 files, room for 2"}},
    {"full, and not marked so",
     [](const sandbox &s) { s.cfg("SYS_SMS_MAX_SAVE_SIZE", "2"); },
     {"inbox: it is full", "item 306002 does not say that it is full"}},
    {"marked full",
     [](const sandbox &s) { s.item(306003, "1"); },
     {"sent: item 306003 says that it is full, but it is not"}},
    {"odd size",
     [](const sandbox &s) { s.cfg("SYS_SMS_MAX_SAVE_SIZE", "5000"); },
     {"SYS_SMS_MAX_SAVE_SIZE is \"5000\""}},
    {"flags left",
     [](const sandbox &) {
         set_flag("DV_SMS_MGR_LAST_RECEIVED_MSG", "3,21760");
         set_flag("DV_SMS_MGR_LAST_ERR_CODE", "0");
     },
     {"flags: DV_SMS_MGR_LAST_RECEIVED_MSG was left at \"3,21760\"", "flags: DV_SMS_MGR_LAST_ERR_CODE"}},
};

TEST(Doctor, Table)
{
    for (const ill_case &c : ill_cases) {
        const sandbox s;
        make_well(s);
        c.make_ill(s);
        const std::vector<finding> findings = examine(s.store());
        const std::string text = show(findings);
        EXPECT_EQ(findings.size(), c.words.size()) << c.name << "\n" << text;
        for (const char *words : c.words)
            EXPECT_NE(text.find(words), std::string::npos) << c.name << "\n" << text;
    }
}

} // namespace
