/* The message store as its readers see it: one file a message, one index a box. Nothing here changes it. */
#ifndef SMS_CLIENT_STORE_H
#define SMS_CLIENT_STORE_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp> /* writes valid JSON whatever the text holds */

namespace sms_client
{

enum class box { inbox, sent, drafts };
inline constexpr std::array all_boxes = {box::inbox, box::sent, box::drafts};

struct box_facts {
    const char *name; /* "inbox" */
    const char *directory, *index;
    int full_item;      /* device-information item: "1" when the box is full */
    uint32_t delete_id; /* message id that deletes from it */
    const char *state_0, *state_1;
};
const box_facts &facts_of(box which);
std::optional<box> find_box(std::string_view name);

struct message {
    box where = box::inbox;
    int number = 0;      /* the file's name */
    char state = '?';    /* '0' or '1'; what it means depends on the box */
    std::string phone;   /* bytes as stored; a sender may be a name */
    std::string date;    /* "2024/03/05 14:07:00" as the network gave it, "2024-03-05 14:07:00" local time */
    std::string text;    /* bytes as stored */
    std::string problem; /* why the file is no record; empty: it is one */

    const char *state_word() const; /* "unread", "read", "sent", "failed", "draft", or "?" */
};

/* Takes a record "number state phone date text" apart. A number other than the file's is a problem, not an error. */
message parse_record(box where, int number, std::string_view content);

/* {"box", "number", "state", "phone", "date", "text"}; bytes that are no text: U+FFFD in "text" and all of them in
 * "text_hex"; with "problem" where the file is no record. */
nlohmann::json to_json(const message &m);

/* One line, without a line break in it whatever a message holds. */
std::string dump(const nlohmann::json &value);

/* A message number as people write it: digits, above 0. */
std::optional<int> parse_number(std::string_view text);

class store
{
public:
    explicit store(std::string root) : root_(std::move(root)) {}

    /* `given`, else DV_SMS_STORE, else "/mnt/data/sms". */
    static std::string default_root(const std::string &given);

    const std::string &root() const { return root_; }
    std::string path(box which) const;
    std::string path(box which, int number) const;
    std::string index_path(box which) const;
    std::string counter_path() const;

    /* The whole file, up to 64 KB; nothing when it cannot be read. */
    static std::optional<std::string> content(const std::string &path);

    /* The numbers that the directory has, ascending; nothing when it is not there. */
    std::optional<std::vector<int>> numbers(box which) const;
    /* The numbers of the index, in its order; what is no number is left out. */
    std::vector<int> index(box which) const;

    std::optional<message> read(box which, int number) const;
    /* All messages: in the index's order, then those that it does not name. */
    std::vector<message> list(box which) const;

    /* The stored count of unread messages; nothing when it is missing or no number. */
    std::optional<int> unread() const;

private:
    std::string root_;
};

} // namespace sms_client

#endif
