#include "store.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

#include "devinfo.h"
#include "sms_msg.h"
#include "text.h"

namespace sms_client
{
namespace
{

constexpr box_facts facts[] = {
    {"inbox", "sms_read", "read_index", DEVINFO_SMS_RECEIVED_FULL, DV_SMS_MGR_MSG_ID_DELETE_RECEIVE_SMS, "unread",
     "read"},
    {"sent", "sms_send", "send_index", DEVINFO_SMS_SENT_FULL, DV_SMS_MGR_MSG_ID_DELETE_SEND_SMS, "failed", "sent"},
    {"drafts", "sms_draft", "draft_index", DEVINFO_SMS_DRAFT_FULL, DV_SMS_MGR_MSG_ID_DELETE_DRAFT_SMS, "draft",
     "draft"},
};

constexpr size_t most_content = 65536;
constexpr size_t most_phone = 31;
constexpr size_t date_size = 19;

/* "2024/03/05 14:07:00", "2024-03-05 14:07:00", and "12:21:12 2021-12-21" of the test messages. A damaged time stamp
 * may have anything for digits. */
bool is_date(std::string_view text)
{
    constexpr std::string_view forms[] = {"dddd/dd/dd dd:dd:dd", "dddd-dd-dd dd:dd:dd", "dd:dd:dd dddd-dd-dd"};
    return text.size() == date_size && std::any_of(std::begin(forms), std::end(forms), [text](std::string_view form) {
               return std::equal(form.begin(), form.end(), text.begin(),
                                 [](char f, char c) { return f == 'd' ? c != ' ' : f == c; });
           });
}

std::string_view take_word(std::string_view &in)
{
    const size_t end = std::min(in.find(' '), in.size());
    const std::string_view word = in.substr(0, end);
    in.remove_prefix(std::min(end + 1, in.size()));
    return word;
}

/* A sender's name may hold spaces, so the date shows where it ends. Without a date, words it is. */
void take_phone_date_text(std::string_view in, message &out)
{
    for (size_t start = 0; start <= most_phone && start + date_size < in.size(); start++) {
        if (in[start] != ' ' || !is_date(in.substr(start + 1, date_size)))
            continue;
        const std::string_view behind = in.substr(start + 1 + date_size);
        if (!behind.empty() && behind.front() != ' ')
            continue;
        out.phone = in.substr(0, start);
        out.date = in.substr(start + 1, date_size);
        out.text = behind.substr(std::min<size_t>(1, behind.size()));
        return;
    }
    out.phone = take_word(in);
    out.date = take_word(in);
    out.text = in;
    out.problem = "no date where one belongs";
}

} // namespace

const box_facts &facts_of(box which)
{
    return facts[static_cast<size_t>(which)];
}

std::optional<box> find_box(std::string_view name)
{
    for (const box b : all_boxes)
        if (name == facts_of(b).name)
            return b;
    return std::nullopt;
}

const char *message::state_word() const
{
    return state == '0' ? facts_of(where).state_0 : state == '1' ? facts_of(where).state_1 : "?";
}

std::optional<int> parse_number(std::string_view text)
{
    int out = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), out);
    if (error != std::errc() || end != text.data() + text.size() || out <= 0)
        return std::nullopt;
    return out;
}

message parse_record(box where, int number, std::string_view content)
{
    message out;
    out.where = where;
    out.number = number;
    if (content.empty()) {
        out.problem = "empty file";
        return out;
    }
    const std::string_view stated = take_word(content);
    const std::string_view state = take_word(content);
    take_phone_date_text(content, out);
    if (state.size() == 1)
        out.state = state.front();
    if (stated != std::to_string(number))
        out.problem = "it calls itself number " + printable(stated.substr(0, 16));
    else if (state != "0" && state != "1")
        out.problem = "its state is neither 0 nor 1";
    return out;
}

nlohmann::json to_json(const message &m)
{
    const readable text = make_readable(m.text);
    nlohmann::json out = {{"box", facts_of(m.where).name},
                          {"number", m.number},
                          {"state", m.state_word()},
                          {"phone", make_readable(m.phone).text},
                          {"date", make_readable(m.date).text},
                          {"text", text.text}};
    if (!text.complete)
        out["text_hex"] = to_hex(m.text);
    if (!m.problem.empty())
        out["problem"] = m.problem;
    return out;
}

std::string dump(const nlohmann::json &value)
{
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string store::default_root(const std::string &given)
{
    if (!given.empty())
        return given;
    const char *set = std::getenv("DV_SMS_STORE");
    return set != nullptr && *set != '\0' ? set : "/mnt/data/sms";
}

std::string store::path(box which) const
{
    return root_ + "/" + facts_of(which).directory;
}

std::string store::path(box which, int number) const
{
    return path(which) + "/" + std::to_string(number);
}

std::string store::index_path(box which) const
{
    return root_ + "/" + facts_of(which).index;
}

std::string store::counter_path() const
{
    return root_ + "/unread_sms";
}

/* Only regular files: a pipe or a device of that name would keep the reader waiting. */
std::optional<std::string> store::content(const std::string &path)
{
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    struct stat status {
    };
    std::string out;
    if (fd < 0)
        return std::nullopt;
    bool good = fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    while (good && out.size() < most_content) {
        char piece[4096];
        const ssize_t got = ::read(fd, piece, sizeof piece);
        if (got < 0 && errno == EINTR)
            continue;
        good = got >= 0;
        if (got <= 0)
            break;
        out.append(piece, static_cast<size_t>(got));
    }
    close(fd);
    return good ? std::optional(std::move(out)) : std::nullopt;
}

std::optional<std::vector<int>> store::numbers(box which) const
{
    DIR *directory = opendir(path(which).c_str());
    if (directory == nullptr)
        return std::nullopt;
    std::vector<int> out;
    while (const dirent *entry = readdir(directory)) {
        const auto number = parse_number(entry->d_name);
        if (number && std::to_string(*number) == entry->d_name)
            out.push_back(*number);
    }
    closedir(directory);
    std::sort(out.begin(), out.end());
    return out;
}

std::vector<int> store::index(box which) const
{
    const std::string content_ = content(index_path(which)).value_or("");
    std::string_view rest = content_;
    std::vector<int> out;
    while (!rest.empty())
        if (const auto number = parse_number(take_word(rest)))
            out.push_back(*number);
    return out;
}

std::optional<message> store::read(box which, int number) const
{
    const auto found = content(path(which, number));
    return found ? std::optional(parse_record(which, number, *found)) : std::nullopt;
}

std::vector<message> store::list(box which) const
{
    std::vector<int> order = index(which);
    const std::vector<int> files = numbers(which).value_or(std::vector<int>());
    order.insert(order.end(), files.begin(), files.end());
    std::set<int> seen;
    std::vector<message> out;
    for (const int number : order)
        if (seen.insert(number).second)
            if (auto m = read(which, number))
                out.push_back(std::move(*m));
    return out;
}

std::optional<int> store::unread() const
{
    std::string_view text;
    const auto found = content(counter_path());
    if (!found)
        return std::nullopt;
    text = *found;
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())))
        text.remove_suffix(1);
    return text == "0" ? 0 : parse_number(text);
}

} // namespace sms_client
