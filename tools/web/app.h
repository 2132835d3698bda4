/* The server's parts put together: which path does what. */
#ifndef SMS_WEB_APP_H
#define SMS_WEB_APP_H

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "events.h"
#include "guard.h"
#include "handset.h"
#include "http.h"
#include "http_server.h"
#include "jobs.h"
#include "router.h"
#include "store_view.h"
#include "traffic.h"

namespace web
{

struct app_options {
    std::string listen = "127.0.0.1";
    uint16_t port = 8080;
    guard_rules rules;
    std::string store = "/mnt/data/sms";
    std::string handset_control; /* the simulator's socket; empty: no handset */
    std::string handset_number = "+31687654321";
    std::string trace;         /* the file of the owner of the AT port; empty: no traffic */
    std::string assets_folder; /* empty: the page that is part of the program */
};

class app
{
public:
    /* Listens and watches from now on. Throws std::runtime_error when that is not possible. */
    explicit app(app_options options);
    ~app();
    app(const app &) = delete;
    app &operator=(const app &) = delete;

    /* Where the page is. */
    const std::string &url() const { return url_; }

private:
    struct route {
        const char *method;
        const char *path; /* one that ends with "/" stands for all that begin so */
        bool guarded;     /* for our own page, and with the token */
        outcome (app::*act)(const request &);
    };
    static const route routes[];

    outcome answer(const request &asked);
    outcome dispatch(const request &asked);

    outcome get_health(const request &asked);
    outcome get_metrics(const request &asked);
    outcome get_state(const request &asked);
    outcome get_events(const request &asked);
    outcome get_messages(const request &asked);
    outcome get_request(const request &asked);
    outcome get_handset(const request &asked);
    outcome get_traffic(const request &asked);
    outcome post_session(const request &asked);
    outcome post_session_end(const request &asked);
    outcome post_message(const request &asked);
    outcome post_draft(const request &asked);
    outcome post_read(const request &asked);
    outcome post_delete(const request &asked);
    outcome post_handset(const request &asked);
    outcome post_trouble(const request &asked);
    outcome post_inspect(const request &asked);

    response submit(const json &body, const char *kind, lane where, job_table::work what);
    json state() const;
    json tell_state();
    void wake();
    void watch();
    void watch_handset();
    bool pause();

    const app_options options_;
    const std::string instance_; /* another one with every start: ids of requests begin with it */
    guard guard_;                /* of the server's thread */
    store_view store_;
    const router router_;
    handset handset_;
    traffic traffic_;
    event_hub events_;
    std::mutex told_lock_; /* guards what follows, and keeps states in order */
    json told_;            /* the newest state that anybody was told of */
    uint64_t told_turn_ = 0;
    std::mutex server_lock_; /* guards the pointer */
    std::unique_ptr<http_server> server_;
    std::unique_ptr<job_table> jobs_;
    std::mutex lock_; /* guards stopping_ */
    std::condition_variable ended_;
    bool stopping_ = false;
    std::thread watcher_, handset_watcher_;
    std::string url_;
};

} // namespace web

#endif
