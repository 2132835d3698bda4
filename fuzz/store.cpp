/* Files of the store as something else left them: sections divided by null characters. The first names what is done,
 * the next are the request, the index, the unread counter and the configured capacity, and all others are messages. */
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "MTKT750/mtkt750_sms_init.h"
#include "devinfo.h"
#include "dv_sms_mgr.h"
#include "dv_sms_mgr_paths.h"
#include "dv_sms_mgr_read.h"
#include "must.h"
#include "platform.h"
#include "scratch.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace
{

constexpr size_t most_messages = 12;
constexpr size_t read_whole = 4096; /* bytes of a file that the daemon handles */

struct left_behind {
    std::string actions, request, index, unread, capacity;
    std::vector<std::string> messages;
};

left_behind read_sections(const std::string &input)
{
    left_behind out;
    std::string *const named[] = {&out.actions, &out.request, &out.index, &out.unread, &out.capacity};
    size_t number = 0;

    for (size_t start = 0; start <= input.size(); number++) {
        const size_t end = std::min(input.find('\0', start), input.size());
        const std::string section = input.substr(start, end - start);
        if (number < 5)
            *named[number] = section;
        else if (out.messages.size() < most_messages)
            out.messages.push_back(section);
        start = end + 1;
    }
    return out;
}

std::string path_of(int box, size_t number)
{
    return std::string(dv_sms_boxes[box].dir) + "/" + std::to_string(number);
}

constexpr char sentinel[] = "1 0 +31612345678 2024/03/05 14:07:00 untouched";

void lay_out(const left_behind &files, int box)
{
    scratch::empty_store();
    for (int other = 0; other < BOX_COUNT; other++) {
        if (other == box)
            continue;
        scratch::write(path_of(other, 1), sentinel);
        scratch::write(dv_sms_boxes[other].index, " 1 ");
    }
    for (size_t i = 0; i < files.messages.size(); i++)
        if (!files.messages[i].empty())
            scratch::write(path_of(box, i + 1), files.messages[i]);
    if (files.actions.find('x') == std::string::npos)
        scratch::write(dv_sms_boxes[box].index, files.index);
    if (files.actions.find('u') == std::string::npos)
        scratch::write(dv_sms_unread_path, files.unread);
    platform::cfg["SYS_SMS_MAX_SAVE_SIZE"] = files.capacity;
}

/* Nothing of another box changes, save that reading and deleting always mean the box that they name. */
void check_others(int box)
{
    for (int other = 0; other < BOX_COUNT; other++) {
        if (other == box)
            continue;
        must(scratch::files_in(dv_sms_boxes[other].dir) == 1);
        must(scratch::read(path_of(other, 1)) == sentinel);
        must(scratch::read(dv_sms_boxes[other].index) == " 1 ");
    }
    must(scratch::files_in("mnt/data") == 0 && scratch::files_in(".") == 0);
}

/* A message that is still there is the same but for its state, or cut where the daemon cannot hold it. */
void check_messages(const left_behind &files, int box)
{
    int there = 0;

    for (size_t i = 0; i < files.messages.size(); i++) {
        const std::string path = path_of(box, i + 1);
        const std::string &before = files.messages[i];
        if (before.empty() || !scratch::exists(path))
            continue;
        const std::string after = scratch::read(path);
        int changed = 0;
        there++;
        must(after.size() == before.size() || (before.size() >= read_whole && after.size() > read_whole - 6));
        for (size_t at = 0; at < after.size(); at++)
            changed += after[at] != before[at] ? 1 : 0;
        must(changed <= 1 || before.size() > read_whole);
    }
    must(scratch::files_in(dv_sms_boxes[box].dir) == there);
}

/* Counted once more from the files: those numbered up to one more than there are. */
void check_unread(int box)
{
    const int files = scratch::files_in(dv_sms_boxes[BOX_RECEIVED].dir);
    int unread = 0;

    for (int number = 1; number <= files + 1; number++) {
        const std::string start = scratch::read(path_of(BOX_RECEIVED, static_cast<size_t>(number))).substr(0, 6);
        const size_t blank = start.find(' ');
        unread += blank != std::string::npos && start.substr(blank + 1, 1) == "0" ? 1 : 0;
    }
    must(scratch::read(dv_sms_unread_path) == std::to_string(unread));
    must(platform::devinfo[DEVINFO_SMS_UNREAD] == (unread > 0 ? "1" : "0"));
    must(box != BOX_RECEIVED || unread <= static_cast<int>(most_messages));
}

void ask(uint32_t id, const std::string &request)
{
    sockmsg_record record = platform::make_record(id, request);

    platform::flags.clear();
    must(dv_sms_mgr_handler(&record) == 0);
    const std::string code = platform::flags[DV_SMS_MGR_LAST_ERR_CODE];
    must(code == "0" || code == "500");
}

void act(char action, const left_behind &files, int box)
{
    static constexpr uint32_t deletions[BOX_COUNT] = {
        DV_SMS_MGR_MSG_ID_DELETE_RECEIVE_SMS, DV_SMS_MGR_MSG_ID_DELETE_SEND_SMS, DV_SMS_MGR_MSG_ID_DELETE_DRAFT_SMS};
    switch (action) {
    case 'r':
        if (box == BOX_RECEIVED)
            ask(DV_SMS_MGR_MSG_ID_READ_SMS, files.request);
        break;
    case 'd':
        ask(deletions[box], files.request);
        break;
    case 'i':
        rebuild_sms_index();
        must(scratch::exists(dv_sms_boxes[box].index));
        init_sms_box_state();
        check_unread(box);
        break;
    default:
        break;
    }
}

/* replace_first as std::string would have it. */
void check_replacing(const std::string &text, const std::string &pattern)
{
    const std::string replacement = " ";
    std::string expected = text;
    const size_t at = pattern.size() < replacement.size() ? std::string::npos : text.find(pattern);
    std::vector<char> buffer(text.c_str(), text.c_str() + text.size() + 1);

    if (pattern.size() < replacement.size())
        return;
    const bool replaced = text.size() >= 3 && at != std::string::npos;
    if (replaced)
        expected.replace(at, pattern.size(), replacement);
    must(replace_first(buffer.data(), pattern.c_str(), replacement.c_str()) == (replaced ? 1 : 0));
    must(expected == buffer.data());
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const left_behind files = read_sections(std::string(reinterpret_cast<const char *>(data), size));
    const int box = files.actions.empty() ? 0 : static_cast<uint8_t>(files.actions[0]) % BOX_COUNT;

    platform::reset();
    lay_out(files, box);
    platform::running now;
    for (const char action : files.actions.substr(0, 8)) {
        act(action, files, box);
        check_others(box);
        check_messages(files, box);
    }
    check_replacing(files.index, files.request);
    return 0;
}
