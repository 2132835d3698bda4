/* Who speaks to the modem: one command at a time, everything by the clock. */
#ifndef AT_OWNER_OWNER_H
#define AT_OWNER_OWNER_H

#include <chrono>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "at_stream.h"
#include "bus_side.h"
#include "device_watch.h"
#include "port.h"
#include "trace.h"
#include "translate.h"

namespace at_owner
{

struct owner_settings {
    translation translate;
    std::vector<std::string> init; /* commands for a port just opened, each with its "\r"; the echo is off by then */
    bool silent_timeouts = false;  /* no answer at all where the modem gave none */
    int block_after = 5;           /* time-outs in a row that AT_MSG_ID_BLOCK tells of; 0: never */
    bool set_devinfo = false;
    std::chrono::seconds watch_interval{5}; /* of the questions for it, while nothing else is to be done */
};

class owner
{
public:
    owner(owner_settings settings, port &device, bus_side &bus, trace &traffic);

    /* Opens the port or begins to wait for it, and says so on standard output; then serves until `stop_fd` is readable.
     */
    void run(int stop_fd);

private:
    using clock = std::chrono::steady_clock;
    using moment = clock::time_point;

    enum class purpose { client, init, watch };
    struct job {
        purpose why;
        request from;               /* of a client */
        std::vector<exchange> ways; /* see translate */
        size_t way;
        bool data_sent;
        moment deadline;
    };
    struct waiting_request {
        request from;
        std::optional<moment> deadline; /* from when it is the next one */
    };

    void wait(int stop_fd, bool &stop);
    int wait_time() const;
    void take_requests();
    void serve_port(short revents);
    void open_port();
    void lose_port();
    void check_time();
    void proceed();

    void start(job what);
    void start_client();
    void start_init();
    void start_question();
    void write_way();
    void write(std::string_view bytes);
    void handle(const event &e);
    void handle_answer(const event &e);
    void handle_prompt();
    void handle_indication(const std::string &text);
    void finish(const event &e);
    void finish_init(const event &e);
    void time_out();
    void count_time_out();
    void answer(const request &to, const std::string &text, int error_code, const std::string &detail);
    void refuse(const request &to, int error_code, const char *why);
    void refuse_all(int error_code, const char *why);
    void note(const std::string &text);

    void lose_step();
    void probe();
    void handle_probe_answer(const event &e);
    void regain_step(const char *why);
    bool is_wanted() const;
    bool is_last_answer(std::string_view text) const;

    owner_settings settings_;
    port &port_;
    bus_side &bus_;
    trace &trace_;
    device_watch watch_;
    at_stream stream_;

    moment now_ = clock::now(), next_open_{};
    std::string complaint_; /* why the port cannot be opened, as last logged */
    std::deque<waiting_request> clients_;
    std::optional<job> current_;
    size_t init_at_ = 0; /* next of the init commands */
    int echo_tries_ = 0;
    int time_outs_ = 0; /* in a row */
    bool blocked_ = false;
    moment next_watch_{};
    size_t question_ = 0;

    /* Out of step: an answer may still come that nobody waits for any more. */
    bool in_step_ = true;
    size_t probes_ = 0; /* since then */
    int probe_errors_ = 0;
    moment next_probe_{};
    std::optional<moment> quiet_at_; /* the modem knows no probe; with nothing more until then, it has said all */
};

} // namespace at_owner

#endif
