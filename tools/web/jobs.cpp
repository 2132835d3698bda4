#include "jobs.h"

#include <exception>

namespace web
{

job_table::job_table(std::function<void(const json &)> changed) : changed_(std::move(changed))
{
    for (line &each : lines_)
        each.worker = std::thread([this, &each] { serve(each); });
}

job_table::~job_table()
{
    {
        const std::lock_guard hold(lock_);
        stopping_ = true;
    }
    more_.notify_all();
    for (line &each : lines_)
        each.worker.join();
}

json job_table::shown(const job &which)
{
    constexpr const char *names[] = {"waiting", "running", "finished"};
    json out{{"id", which.id}, {"kind", which.kind}, {"state", names[static_cast<int>(which.now)]}};
    if (which.now == job::state::finished) {
        out["ok"] = which.result.ok;
        out["code"] = which.result.code;
        out["details"] = which.result.details;
    }
    return out;
}

job_table::taken job_table::submit(const std::string &id, const std::string &kind, const std::string &content,
                                   lane where, work what)
{
    json now;
    {
        const std::lock_guard hold(lock_);
        const auto found = jobs_.find(id);
        if (found != jobs_.end())
            return found->second.kind == kind && found->second.content == content ? taken::known : taken::conflict;
        line &into = lines_[static_cast<size_t>(where)];
        if (into.waiting.size() >= most_waiting || stopping_)
            return taken::full;
        job &fresh = jobs_[id];
        fresh.id = id;
        fresh.kind = kind;
        fresh.content = content;
        fresh.what = std::move(what);
        into.waiting.push_back(&fresh);
        now = shown(fresh);
    }
    more_.notify_all();
    changed_(now);
    return taken::fresh;
}

std::optional<json> job_table::show(const std::string &id) const
{
    const std::lock_guard hold(lock_);
    const auto found = jobs_.find(id);
    return found == jobs_.end() ? std::nullopt : std::optional(shown(found->second));
}

std::map<std::pair<std::string, std::string>, uint64_t> job_table::counts() const
{
    const std::lock_guard hold(lock_);
    return counts_;
}

void job_table::serve(line &from)
{
    std::unique_lock hold(lock_);
    for (;;) {
        more_.wait(hold, [this, &from] { return stopping_ || !from.waiting.empty(); });
        if (stopping_)
            return;
        job &next = *from.waiting.front();
        from.waiting.pop_front();
        next.now = job::state::running;
        const json now = shown(next);
        hold.unlock();
        changed_(now);
        run(next);
        hold.lock();
    }
}

/* A running job stays in the table, so it can be worked on without the lock. */
void job_table::run(job &which)
{
    job_result result;
    try {
        result = which.what(stopping_);
    } catch (const std::exception &reason) {
        result = {false, "internal", {{"message", reason.what()}}};
    }
    json now;
    {
        const std::lock_guard hold(lock_);
        which.result = std::move(result);
        which.what = nullptr;
        which.now = job::state::finished;
        counts_[{which.kind, which.result.code}]++;
        finished_.push_back(which.id);
        now = shown(which);
        forget_old();
    }
    changed_(now);
}

void job_table::forget_old()
{
    while (finished_.size() > most_remembered) {
        jobs_.erase(finished_.front());
        finished_.pop_front();
    }
}

} // namespace web
