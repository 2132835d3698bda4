#include "doctor.h"

#include <algorithm>
#include <cstring>
#include <dirent.h>
#include <map>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include "devinfo.h"
#include "sms_msg.h"
#include "text.h"
#include "values.h"

namespace sms_client
{
namespace
{

constexpr size_t most_index = 4096;         /* bytes of an index that are read when it is changed */
constexpr unsigned long least_space = 1024; /* KB that a filing wants */
constexpr size_t most_named = 12;           /* numbers in one finding */

constexpr const char *not_mended = "no start mends that";
constexpr const char *counted_anew = "the next start counts anew";
constexpr const char *rebuild =
    "no start mends an index that is there; removed, it is rebuilt from the directory at the "
    "next start";

struct box_state {
    box which = box::inbox;
    bool there = false;
    std::vector<int> numbers;        /* regular files named like numbers, ascending */
    std::vector<std::string> others; /* names of everything else */
    size_t regular = 0;              /* regular files of any name: what the daemon counts */
    std::optional<std::string> index;
    std::vector<message> messages;
};

struct report {
    std::vector<finding> findings;

    void add(const std::string &about, const std::string &what, const std::string &then)
    {
        findings.push_back({about, what, then});
    }
};

std::string named(const std::vector<int> &numbers)
{
    std::string out;
    for (size_t i = 0; i < numbers.size() && i < most_named; i++)
        out += (i > 0 ? ", " : "") + std::to_string(numbers[i]);
    return numbers.size() > most_named ? out + " and " + std::to_string(numbers.size() - most_named) + " more" : out;
}

std::string files(size_t count)
{
    return std::to_string(count) + (count == 1 ? " file" : " files");
}

box_state look_at(const store &s, box which)
{
    box_state out;
    out.which = which;
    out.index = store::content(s.index_path(which));
    DIR *directory = opendir(s.path(which).c_str());
    if (directory == nullptr)
        return out;
    out.there = true;
    while (const dirent *entry = readdir(directory)) {
        const std::string name = entry->d_name;
        struct stat status {
        };
        if (name == "." || name == "..")
            continue;
        const bool regular = lstat((s.path(which) + "/" + name).c_str(), &status) == 0 && S_ISREG(status.st_mode);
        const auto number = parse_number(name);
        out.regular += regular;
        if (regular && number && std::to_string(*number) == name)
            out.numbers.push_back(*number);
        else
            out.others.push_back(name);
    }
    closedir(directory);
    std::sort(out.numbers.begin(), out.numbers.end());
    std::sort(out.others.begin(), out.others.end());
    for (const int number : out.numbers)
        if (auto m = s.read(which, number))
            out.messages.push_back(std::move(*m));
    return out;
}

std::vector<std::string> words_of(std::string_view text)
{
    std::vector<std::string> out;
    while (!text.empty()) {
        const size_t end = std::min(text.find(' '), text.size());
        if (end > 0)
            out.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return out;
}

void check_index_form(const box_state &b, const std::string &about, report &out)
{
    const std::string &index = *b.index;
    if (index.empty() || index.front() != ' ' || index.back() != ' ')
        out.add(about, "its index does not begin and end with a blank, so the first or last number cannot be taken out",
                rebuild);
    if (index.size() > most_index)
        out.add(about,
                "its index has " + std::to_string(index.size()) + " bytes; what lies behind " +
                    std::to_string(most_index) + " is lost when a message is deleted",
                not_mended);
}

void check_index_content(const box_state &b, const std::string &about, report &out)
{
    std::map<std::string, int> count;
    std::vector<int> missing, twice, unlisted;
    for (const std::string &word : words_of(*b.index)) {
        const auto number = parse_number(word);
        if (++count[word] > 1) {
            if (number && count[word] == 2)
                twice.push_back(*number);
        } else if (!number || std::to_string(*number) != word) {
            out.add(about, "its index names \"" + printable(word) + "\", which is no number", rebuild);
        } else if (!std::binary_search(b.numbers.begin(), b.numbers.end(), *number)) {
            missing.push_back(*number);
        }
    }
    for (const int number : b.numbers)
        if (count.find(std::to_string(number)) == count.end())
            unlisted.push_back(number);
    if (!missing.empty())
        out.add(about, "its index names messages that are not there: " + named(missing), rebuild);
    if (!twice.empty())
        out.add(about, "its index names messages twice: " + named(twice), rebuild);
    if (!unlisted.empty())
        out.add(about, "messages that its index does not name: " + named(unlisted), rebuild);
}

void check_index(const box_state &b, const std::string &about, report &out)
{
    if (b.index) {
        check_index_form(b, about, out);
        check_index_content(b, about, out);
    } else if (b.there) {
        const bool can_rebuild = get_cfg("SYS_SMS_MAX_SAVE_SIZE").has_value();
        out.add(about, "its index is missing",
                can_rebuild ? "the next start rebuilds it from the directory, oldest first"
                            : "the next start makes an empty one, since SYS_SMS_MAX_SAVE_SIZE is not set");
    }
}

void check_files(const box_state &b, const std::string &about, report &out)
{
    for (const std::string &name : b.others)
        out.add(about, "\"" + printable(name) + "\" in its directory is no message", not_mended);
    for (const message &m : b.messages)
        if (!m.problem.empty())
            out.add(about, "message " + std::to_string(m.number) + ": " + m.problem, not_mended);
}

/* The flag that says so is set when the last place is taken, and cleared by any deletion. */
void check_capacity(const box_state &b, const std::string &about, report &out)
{
    const auto capacity = static_cast<size_t>(box_capacity());
    const bool full = b.regular >= capacity;
    const bool marked = get_devinfo(facts_of(b.which).full_item) == "1";
    if (full)
        out.add(about,
                "it is full: " + files(b.regular) + ", room for " + std::to_string(capacity) +
                    (b.which == box::inbox ? "; new messages are lost" : "; nothing more is filed in it"),
                "deleting messages makes room");
    if (full != marked)
        out.add(about,
                std::string("item ") + std::to_string(facts_of(b.which).full_item) +
                    (marked ? " says that it is full, but it is not" : " does not say that it is full"),
                "the next start sets it anew");
}

size_t count_unread(const box_state &inbox, int up_to)
{
    return static_cast<size_t>(std::count_if(inbox.messages.begin(), inbox.messages.end(), [up_to](const message &m) {
        return m.state == '0' && m.number <= up_to;
    }));
}

void check_unread(const store &s, const box_state &inbox, report &out)
{
    const size_t unread = count_unread(inbox, 1 << 30);
    const size_t found_at_start = count_unread(inbox, static_cast<int>(inbox.regular) + 1);
    const auto counter = s.unread();
    const std::string then = found_at_start == unread
                                 ? counted_anew
                                 : "the next start counts " + std::to_string(found_at_start) +
                                       ": it does not look beyond number " + std::to_string(inbox.regular + 1);
    if (!counter && unread > 0)
        out.add("inbox", "the count of unread messages is missing or no number; there are " + std::to_string(unread),
                then);
    else if (counter && static_cast<size_t>(*counter) != unread)
        out.add("inbox",
                "the count of unread messages is " + std::to_string(*counter) + "; there are " + std::to_string(unread),
                then);
    const bool marked = get_devinfo(DEVINFO_SMS_UNREAD) == "1";
    if (marked != (unread > 0))
        out.add("inbox",
                marked ? "item 306001 says that there are unread messages; there are none"
                       : "item 306001 does not say that there are unread messages",
                then);
}

void check_space(const store &s, report &out)
{
    struct statvfs space {
    };
    if (statvfs(s.root().c_str(), &space) != 0)
        return;
    const unsigned long free_kb = space.f_bavail * (space.f_frsize / 512) / 2;
    if (free_kb < least_space)
        out.add("store",
                std::to_string(free_kb) + " KB are free; below " + std::to_string(least_space) +
                    " no message is filed, and received ones are lost",
                "making room on the flash helps");
}

void check_flags(report &out)
{
    for (const char *name : {DV_SMS_MGR_LAST_RECEIVED_MSG, DV_SMS_MGR_LAST_ERR_CODE})
        if (const auto value = get_flag(name))
            out.add("flags",
                    std::string(name) + " was left at \"" + printable(*value) +
                        "\", unless a request is under way; the next one may wait three seconds for it",
                    "whoever asks next clears it");
}

void check_configuration(report &out)
{
    const std::string key = "SYS_SMS_MAX_SAVE_SIZE";
    const auto value = get_cfg(key);
    if (!value)
        out.add("configuration", key + " is not set", "the next start marks every box full; filing takes 500 for it");
    else if (box_capacity() != parse_number(*value).value_or(0))
        out.add("configuration", key + " is \"" + printable(*value) + "\"; filing takes 500 for anything but 1 to 2000",
                not_mended);
}

} // namespace

std::vector<finding> examine(const store &s)
{
    report out;
    struct stat status {
    };
    check_configuration(out);
    check_flags(out);
    if (stat(s.root().c_str(), &status) != 0) {
        out.add("store", printable(s.root()) + ": " + std::strerror(errno), "the first message makes it");
        return out.findings;
    }
    check_space(s, out);
    for (const box which : all_boxes) {
        const box_state b = look_at(s, which);
        const std::string about = facts_of(which).name;
        if (!b.there && b.index)
            out.add(about, "it has an index but no directory", "the next message makes the directory");
        if (b.there)
            check_index(b, about, out);
        check_files(b, about, out);
        if (b.there)
            check_capacity(b, about, out);
        if (which == box::inbox)
            check_unread(s, b, out);
    }
    return out.findings;
}

} // namespace sms_client
