#include "store_view.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <dirent.h>
#include <sys/stat.h>

#include "shown_text.h"

namespace web
{
namespace
{

using nlohmann::json;

constexpr time_t settling = 2; /* seconds in which a file's time may stand for two contents */

/* FNV-1a: tells contents apart, and is no defence against anybody. */
struct digest {
    uint64_t value = 14695981039346656037ULL;

    void add(std::string_view bytes)
    {
        for (const char c : bytes)
            value = (value ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
        value = (value ^ 0x100U) * 1099511628211ULL; /* an end that no byte is */
    }
    void add(const struct stat &file)
    {
        for (const uint64_t number :
             {static_cast<uint64_t>(file.st_ino), static_cast<uint64_t>(file.st_size),
              static_cast<uint64_t>(file.st_mtim.tv_sec), static_cast<uint64_t>(file.st_mtim.tv_nsec)})
            value = (value ^ number) * 1099511628211ULL;
    }
    std::string text() const
    {
        char out[17];
        std::snprintf(out, sizeof out, "%016" PRIx64, value);
        return out;
    }
};

/* Adds what is known of a file without opening it; gives the time of its last change. */
time_t add_file(digest &to, const std::string &path)
{
    struct stat found {
    };
    if (stat(path.c_str(), &found) != 0) {
        to.add("missing");
        return 0;
    }
    to.add(found);
    return found.st_mtim.tv_sec;
}

/* The directory, the index and the counter, which the daemon touches with almost every change. */
uint64_t quick_look(const sms_client::store &store, box which, bool *recent)
{
    digest out;
    time_t newest = 0;
    for (const std::string &path : {store.path(which), store.index_path(which), store.counter_path()})
        newest = std::max(newest, add_file(out, path));
    *recent = newest > std::time(nullptr) - settling;
    return out.value;
}

/* Every message file as well. */
uint64_t whole_look(const sms_client::store &store, box which)
{
    digest out;
    add_file(out, store.index_path(which));
    const std::string folder = store.path(which);
    DIR *open = opendir(folder.c_str());
    if (open == nullptr)
        return out.value;
    uint64_t files = 0; /* whatever the order in which they are told */
    while (const dirent *entry = readdir(open)) {
        if (entry->d_name[0] == '.')
            continue;
        digest one;
        one.add(std::string_view(entry->d_name));
        add_file(one, folder + '/' + entry->d_name);
        files += one.value;
    }
    closedir(open);
    return out.value ^ files;
}

shown_message make_shown(const sms_client::message &m)
{
    shown_message out{m.state_word(), json::object()};
    out.content = {{"number", m.number}, {"state", out.state}, {"key", key_of(m)}};
    show_text(out.content, "phone", m.phone);
    show_text(out.content, "date", m.date);
    show_text(out.content, "text", m.text);
    if (!m.problem.empty())
        out.content["problem"] = m.problem;
    return out;
}

} // namespace

std::string key_of(const sms_client::message &m)
{
    digest out;
    for (const std::string *field : {&m.phone, &m.date, &m.text})
        out.add(*field);
    return out.text();
}

size_t box_content::with_state(std::string_view state) const
{
    return static_cast<size_t>(std::count_if(messages.begin(), messages.end(),
                                             [state](const shown_message &each) { return each.state == state; }));
}

std::shared_ptr<const box_content> store_view::content(box which) const
{
    const std::lock_guard hold(lock_);
    return boxes_[static_cast<size_t>(which)];
}

bool store_view::poll_box(box which)
{
    const auto place = static_cast<size_t>(which);
    const std::shared_ptr<const box_content> before = content(which);
    bool recent = false;
    const uint64_t quick = quick_look(store_, which, &recent);
    if (before->revision > 0 && quick == quick_[place] && !recent)
        return false;
    const uint64_t whole = whole_look(store_, which);
    quick_[place] = quick;
    if (before->revision > 0 && whole == whole_[place])
        return false;
    auto fresh = std::make_shared<box_content>();
    fresh->revision = before->revision + 1;
    for (const sms_client::message &m : store_.list(which))
        fresh->messages.push_back(make_shown(m));
    std::reverse(fresh->messages.begin(), fresh->messages.end());
    whole_[place] = whole;
    const std::lock_guard hold(lock_);
    boxes_[place] = std::move(fresh);
    return true;
}

bool store_view::poll()
{
    bool changed = false;
    for (const box which : sms_client::all_boxes)
        changed = poll_box(which) || changed;
    return changed;
}

} // namespace web
