/* What the server was asked to do and how it went. One after the other in each lane, and never twice. */
#ifndef SMS_WEB_JOBS_H
#define SMS_WEB_JOBS_H

#include <array>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "http.h"

namespace web
{

/* The daemon's two flags are one slot, so its requests share a lane; what the simulator does does not
 * wait for them. */
enum class lane { router, other };
inline constexpr size_t lane_count = 2;

inline constexpr size_t most_waiting = 16;      /* in a lane */
inline constexpr size_t most_remembered = 1000; /* finished ones */

struct job_result {
    bool ok = false;
    std::string code; /* one word: "done", "failed", "service-off" ... */
    json details = json::object();
};

class job_table
{
public:
    /* `stopping` is raised while the work runs when there is no time left to end it properly. */
    using work = std::function<job_result(const std::atomic<bool> &stopping)>;

    enum class taken { fresh, known, conflict, full };

    /* `changed` is called after every change of a job, on any thread, with the job as it is shown. */
    explicit job_table(std::function<void(const json &job)> changed);
    ~job_table(); /* what has not begun is dropped */
    job_table(const job_table &) = delete;
    job_table &operator=(const job_table &) = delete;

    /* Takes work up under an id of the asker's. An id that is known is not worked on again: `known` if it was for the
     * same content, else `conflict`. `full`: too many wait. */
    taken submit(const std::string &id, const std::string &kind, const std::string &content, lane where, work what);

    /* {"id", "kind", "state": "waiting", "running" or "finished", "ok", "code", "details"}; nothing for an id
     * that is not, or no longer, known. */
    std::optional<json> show(const std::string &id) const;

    /* Finished ones since the start: kind and code, and how many. */
    std::map<std::pair<std::string, std::string>, uint64_t> counts() const;

private:
    struct job {
        std::string id, kind, content;
        work what;
        enum class state { waiting, running, finished } now = state::waiting;
        job_result result;
    };
    struct line {
        std::deque<job *> waiting;
        std::thread worker;
    };

    static json shown(const job &which);
    void serve(line &from);
    void run(job &which);
    void forget_old();

    const std::function<void(const json &)> changed_;
    std::atomic<bool> stopping_{false};
    mutable std::mutex lock_; /* guards what follows */
    std::condition_variable more_;
    std::map<std::string, job> jobs_;
    std::deque<std::string> finished_; /* ids, the oldest first */
    std::map<std::pair<std::string, std::string>, uint64_t> counts_;
    std::array<line, lane_count> lines_;
};

} // namespace web

#endif
