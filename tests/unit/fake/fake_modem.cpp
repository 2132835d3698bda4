#include "fake/fake_modem.h"

#include <string.h>

#include <algorithm>

#include "fake/fake_platform.h"

namespace fake
{

modem &the_modem()
{
    static auto *only = new modem; /* its thread runs until the process ends */
    return *only;
}

modem::modem()
{
    std::thread([this] { run(); }).detach();
}

void modem::reset()
{
    std::unique_lock hold(lock_);

    changed_.wait(hold, [this] { return outgoing_.empty() && !delivering_; });
    script_.clear();
    late_.clear();
    requests_.clear();
    hook_ = nullptr;
}

void modem::script(const std::string &command, std::vector<answer> answers)
{
    std::lock_guard hold(lock_);
    script_[command] = {std::move(answers), 0};
}

void modem::set_hook(std::function<void(const std::string &)> hook)
{
    std::lock_guard hold(lock_);
    hook_ = std::move(hook);
}

answer modem::choose(const std::string &command)
{
    entry *best = nullptr;
    size_t best_length = 0;

    for (auto &[pattern, found] : script_) {
        const bool whole = pattern == command;
        const bool prefix = !pattern.empty() && pattern.back() == '*' &&
                            command.compare(0, pattern.size() - 1, pattern, 0, pattern.size() - 1) == 0;

        if (whole || (prefix && pattern.size() > best_length)) {
            best = &found;
            best_length = pattern.size();
        }
        if (whole)
            break;
    }
    if (best == nullptr || best->answers.empty())
        return {};
    return best->answers[std::min(best->next++, best->answers.size() - 1)];
}

static sockmsg_record make_response(const at_request &request, const answer &given)
{
    at_response response = {};
    sockmsg_record record;

    response.msg_id = AT_MSG_ID_COMMAND;
    response.length = AT_MSG_LENGTH;
    response.magic = AT_MSG_MAGIC;
    response.at_id = given.how == answer::other_id ? request.at_id + 1 : request.at_id;
    memcpy(response.text, given.text.data(), std::min(given.text.size(), sizeof response.text));
    response.error_code = given.error;
    memcpy(response.error_detail, given.detail.data(), std::min(given.detail.size(), sizeof response.error_detail));
    response.sender[0] = AT_MODULE_ID;
    memcpy(&record, &response, sizeof record);
    return record;
}

int modem::take(const at_request &request)
{
    const std::string command(request.text, strnlen(request.text, sizeof request.text));
    std::function<void(const std::string &)> hook;
    answer given;
    {
        std::lock_guard hold(lock_);
        requests_.push_back(request);
        hook = hook_;
        given = choose(command);
    }
    if (hook)
        hook(command);
    switch (given.how) {
    case answer::not_sent:
        return given.error;
    case answer::silent:
        return 0;
    case answer::late: {
        std::lock_guard hold(lock_);
        late_.push_back(make_response(request, given));
        return 0;
    }
    default:
        enqueue(make_response(request, given));
        return 0;
    }
}

void modem::enqueue(const sockmsg_record &record)
{
    std::lock_guard hold(lock_);
    outgoing_.push_back(record);
    changed_.notify_all();
}

void modem::run()
{
    std::unique_lock hold(lock_);

    for (;;) {
        changed_.wait(hold, [this] { return !outgoing_.empty(); });
        sockmsg_record record = outgoing_.front();
        outgoing_.pop_front();
        delivering_ = true;
        hold.unlock();
        if (const sockmsg_handler handler = the_platform().handler())
            handler(&record);
        memset(&record, 0xA5, sizeof record); /* the record was the bus library's: nobody may still look at it */
        hold.lock();
        delivering_ = false;
        changed_.notify_all();
    }
}

void modem::deliver(const sockmsg_record &record)
{
    enqueue(record);
    std::unique_lock hold(lock_);
    changed_.wait(hold, [this] { return outgoing_.empty() && !delivering_; });
}

void modem::indicate(const std::string &text, uint32_t magic)
{
    at_indication indication = {};
    sockmsg_record record;

    indication.msg_id = AT_MSG_ID_INDICATION;
    indication.length = AT_MSG_LENGTH;
    indication.magic = magic;
    memcpy(indication.text, text.data(), std::min(text.size(), sizeof indication.text));
    indication.sender[0] = AT_MODULE_ID;
    memcpy(&record, &indication, sizeof record);
    deliver(record);
}

int modem::deliver_late()
{
    std::vector<sockmsg_record> late;
    {
        std::lock_guard hold(lock_);
        late.swap(late_);
    }
    for (const sockmsg_record &record : late)
        deliver(record);
    return static_cast<int>(late.size());
}

bool modem::busy()
{
    std::lock_guard hold(lock_);
    return delivering_ || !outgoing_.empty();
}

std::vector<at_request> modem::requests()
{
    std::lock_guard hold(lock_);
    return requests_;
}

} // namespace fake
