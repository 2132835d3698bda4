#include "owner.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <utility>

#include "commlog.h"

namespace at_owner
{
namespace
{

using namespace std::chrono_literals;

constexpr auto open_interval = 1s;
constexpr auto own_timeout = 5s;    /* of the owner's own commands */
constexpr int default_timeout = 15; /* seconds, for a request that states none */
constexpr int most_timeout = 3600;
constexpr int most_echo_tries = 3;

/* Answers come in order, and each of these tells which of them it belongs to: when the one to the last of them comes,
 * nothing older is left. Those that wait are told apart for as long as this table is gone through. */
struct probe_kind {
    const char *command;
    std::string_view answer;
};
constexpr probe_kind probes[] = {{"AT+CMEE?\r", "+CMEE: "},   {"AT+CMEE=?\r", "+CMEE: ("}, {"AT+CMGF=?\r", "+CMGF: ("},
                                 {"AT+CNMI=?\r", "+CNMI: ("}, {"AT+CSCS=?\r", "+CSCS: ("}, {"AT+CPMS=?\r", "+CPMS: ("}};
constexpr auto first_probe_interval = 3s;
constexpr auto probe_interval = 6s;
constexpr int most_probe_errors = 3; /* a modem that knows none of so many knows none */
constexpr auto quiet_time = 5s;      /* for such a modem */

constexpr const char *escape = "\x1B";

/* Lines with which a modem says that it has started: what it was set to is lost. */
constexpr std::string_view boot_lines[] = {"\r\n^BOOT", "\r\n^SYSSTART", "\r\nRDY\r\n"};

/* Null: a single command line. Anything behind its end would be another command with an answer of its own. */
const char *what_is_wrong(const std::string &text)
{
    const size_t end = text.find_first_of("\r\n");
    if (text.size() < 3)
        return "empty command";
    if (text.back() != '\r')
        return "command without its end";
    return end + 1 != text.size() ? "more than one line" : nullptr;
}

} // namespace

owner::owner(owner_settings settings, port &device, bus_side &bus, trace &traffic)
    : settings_(std::move(settings)), port_(device), bus_(bus), trace_(traffic)
{
}

void owner::note(const std::string &text)
{
    trace_.item('#', text);
    savelog(0, "[at_owner] %s", text.c_str());
}

/* ---- answering ---- */

void owner::answer(const request &to, const std::string &text, int error_code, const std::string &detail)
{
    bus_.answer(to, text, error_code, detail);
}

void owner::refuse(const request &to, int error_code, const char *why)
{
    trace_.item('#', "module " + std::to_string(to.module) + " is told: " + why);
    answer(to, "", error_code, why);
}

void owner::refuse_all(int error_code, const char *why)
{
    if (current_ && current_->why == purpose::client)
        refuse(current_->from, error_code, why);
    current_.reset();
    for (const waiting_request &w : std::exchange(clients_, {}))
        refuse(w.from, error_code, why);
}

void owner::take_requests()
{
    for (request &r : bus_.take_requests()) {
        const char *wrong = what_is_wrong(r.text);
        if (wrong != nullptr)
            refuse(r, error_malformed, wrong);
        else if (clients_.size() >= most_requests)
            refuse(r, error_busy, "too many requests wait");
        else
            clients_.push_back({std::move(r), std::nullopt});
    }
}

/* ---- the port ---- */

void owner::open_port()
{
    std::string reason;
    next_open_ = now_ + open_interval;
    if (!port_.open(reason)) {
        if (std::exchange(complaint_, reason) != reason)
            note("waiting for the port: " + reason);
        return;
    }
    complaint_.clear();
    note("port opened: " + port_.device());
    stream_.reset();
    in_step_ = true;
    init_at_ = 0;
    echo_tries_ = 0;
    time_outs_ = 0;
    blocked_ = false;
    next_watch_ = now_;
    question_ = 0;
}

void owner::lose_port()
{
    note("the modem is gone: " + port_.device());
    port_.close();
    stream_.reset();
    next_open_ = now_ + open_interval;
    refuse_all(error_no_modem, "the modem is gone");
    bus_.notice(AT_MSG_ID_ASSERT);
    if (settings_.set_devinfo)
        watch_.gone();
}

void owner::serve_port(short revents)
{
    std::string bytes;
    std::vector<event> events;
    if ((revents & POLLOUT) != 0 && !port_.write_waiting()) {
        lose_port();
        return;
    }
    if ((revents & (POLLIN | POLLHUP | POLLERR | POLLNVAL)) == 0)
        return;
    if (!port_.read(bytes)) {
        lose_port();
        return;
    }
    stream_.feed(bytes, events);
    for (const event &e : events)
        handle(e);
}

void owner::write(std::string_view bytes)
{
    trace_.item('>', bytes);
    port_.write(bytes); /* a device that is gone shows when it is read */
}

/* ---- commands ---- */

void owner::start(job what)
{
    current_ = std::move(what);
    write_way();
}

void owner::write_way()
{
    const exchange &way = current_->ways[current_->way];
    current_->data_sent = false;
    if (way.data.empty())
        stream_.expect(way.command);
    else
        stream_.expect_prompt(way.command);
    write(way.command);
}

void owner::start_client()
{
    waiting_request next = std::move(clients_.front());
    clients_.pop_front();
    std::vector<exchange> ways = translate(settings_.translate, next.from.text);
    start({purpose::client, std::move(next.from), std::move(ways), 0, false, next.deadline.value_or(now_)});
}

void owner::start_init()
{
    start({purpose::init, {}, {{settings_.init[init_at_], {}}}, 0, false, now_ + own_timeout});
}

void owner::start_question()
{
    start({purpose::watch, {}, {{watch_.questions()[question_], {}}}, 0, false, now_ + own_timeout});
}

void owner::handle(const event &e)
{
    switch (e.kind) {
    case event_kind::answer:
        trace_.item('<', e.text);
        handle_answer(e);
        break;
    case event_kind::prompt:
        trace_.item('<', "\r\n> ");
        handle_prompt();
        break;
    case event_kind::indication:
        trace_.item('!', e.text);
        handle_indication(e.text);
        break;
    case event_kind::stray:
        trace_.item('?', e.text);
        break;
    case event_kind::dropped:
        note("a line of more than " + std::to_string(most_in_line) + " bytes is dropped");
        break;
    }
}

void owner::handle_prompt()
{
    if (!current_)
        return;
    const std::string &data = current_->ways[current_->way].data;
    current_->data_sent = true;
    stream_.expect_data(data);
    write(data);
}

void owner::handle_indication(const std::string &text)
{
    bus_.indicate(text);
    const auto begins = [&text](std::string_view line) { return text.starts_with(line); };
    if (std::any_of(std::begin(boot_lines), std::end(boot_lines), begins)) {
        init_at_ = 0;
        echo_tries_ = 0;
        next_watch_ = now_;
    }
    if (device_watch::concerns(text))
        next_watch_ = now_;
}

void owner::handle_answer(const event &e)
{
    if (!in_step_)
        handle_probe_answer(e);
    else if (current_)
        finish(e);
}

void owner::finish(const event &e)
{
    event result = e;
    const exchange &way = current_->ways[current_->way];
    time_outs_ = 0;
    blocked_ = false;
    if (!way.data.empty() && !current_->data_sent && e.error_code == 0) {
        result.error_code = 1; /* it never asked for the data, so it sent none */
        result.detail = "no prompt";
    }
    if (result.error_code != 0 && current_->way + 1 < current_->ways.size()) {
        current_->way++;
        write_way();
        return;
    }
    const job done = *std::exchange(current_, std::nullopt);
    switch (done.why) {
    case purpose::client:
        answer(done.from, result.text, result.error_code, result.detail);
        break;
    case purpose::init:
        finish_init(result);
        break;
    case purpose::watch:
        watch_.take(question_, result.text, result.error_code == 0);
        question_ = (question_ + 1) % watch_.questions().size();
        if (question_ == 0)
            next_watch_ = now_ + settings_.watch_interval;
        break;
    }
}

/* The first command may have found half a line of an earlier owner, or an answer of its: it is repeated, and what
 * else comes is drained. */
void owner::finish_init(const event &e)
{
    const bool first = init_at_ == 0;
    if (!first || e.error_code == 0 || ++echo_tries_ >= most_echo_tries)
        init_at_++;
    if (first)
        lose_step();
}

void owner::count_time_out()
{
    time_outs_++;
    if (blocked_ || settings_.block_after == 0 || time_outs_ < settings_.block_after)
        return;
    blocked_ = true;
    note("the modem does not answer any more");
    bus_.notice(AT_MSG_ID_BLOCK);
}

void owner::time_out()
{
    const job late = *std::exchange(current_, std::nullopt);
    const bool prompted = !late.ways[late.way].data.empty() || stream_.is_prompted();
    const std::string half = stream_.abandon();
    if (!half.empty())
        trace_.item('?', half);
    note("no answer to " + escaped(late.ways[late.way].command));
    port_.discard_waiting();
    if (prompted)
        write(escape); /* 27.005, 3.5.1: gives up the message that the modem waits for */
    if (late.why == purpose::client && !settings_.silent_timeouts)
        refuse(late.from, error_timeout, "no answer from the modem");
    if (late.why == purpose::init)
        init_at_ = 0;
    question_ = 0;
    next_watch_ = now_ + settings_.watch_interval;
    lose_step();
    count_time_out();
}

/* ---- finding back into step ---- */

void owner::lose_step()
{
    in_step_ = false;
    probes_ = probe_errors_ = 0;
    quiet_at_.reset();
    next_probe_ = now_;
}

/* A modem that is deaf is asked again only when something waits for it. */
bool owner::is_wanted() const
{
    return probes_ == 0 || !clients_.empty() || init_at_ < settings_.init.size();
}

void owner::probe()
{
    const char *command = probes[probes_ % std::size(probes)].command;
    next_probe_ = now_ + (probes_ == 0 ? first_probe_interval : probe_interval);
    if (probes_++ == 0)
        stream_.expect(command, true);
    else
        stream_.expect_data(command); /* what has come of an answer stays */
    write(command);
}

/* Nothing but "+CMEE: 1" tells the answer to a read from that to a test. */
bool owner::is_last_answer(std::string_view text) const
{
    const probe_kind &last = probes[(probes_ - 1) % std::size(probes)];
    const size_t found = text.find(last.answer);
    if (found == std::string_view::npos)
        return false;
    return last.answer.ends_with('(') || text.substr(found + last.answer.size(), 1) != "(";
}

void owner::handle_probe_answer(const event &e)
{
    if (is_last_answer(e.text)) {
        regain_step("in step again");
        return;
    }
    if (e.error_code == 0)
        return; /* of an older command; the last one's is still to come */
    if (++probe_errors_ < most_probe_errors)
        probe();
    else
        quiet_at_ = now_ + quiet_time;
}

void owner::regain_step(const char *why)
{
    trace_.item('#', why);
    stream_.abandon();
    in_step_ = true;
    time_outs_ = 0;
    blocked_ = false;
}

/* ---- the clock ---- */

void owner::check_time()
{
    if (!port_.is_open()) {
        if (now_ >= next_open_)
            open_port();
        return;
    }
    if (current_ && now_ >= current_->deadline)
        time_out();
    if (!current_ && !clients_.empty() && clients_.front().deadline && now_ >= *clients_.front().deadline) {
        const request late = std::move(clients_.front().from);
        clients_.pop_front();
        if (!settings_.silent_timeouts)
            refuse(late, error_timeout, "no answer from the modem");
        count_time_out();
    }
    if (!in_step_ && quiet_at_ && now_ >= *quiet_at_)
        regain_step("quiet");
}

void owner::proceed()
{
    if (!port_.is_open()) {
        refuse_all(error_no_modem, "no modem");
        return;
    }
    if (!clients_.empty() && !clients_.front().deadline && (!current_ || current_->why != purpose::client)) {
        const int seconds = clients_.front().from.timeout;
        clients_.front().deadline =
            now_ + std::chrono::seconds(seconds < 1 ? default_timeout : std::min(seconds, most_timeout));
    }
    if (current_)
        return;
    if (!in_step_) {
        if (now_ >= next_probe_ && is_wanted())
            probe();
    } else if (init_at_ < settings_.init.size()) {
        start_init();
    } else if (!clients_.empty() && question_ == 0) {
        start_client();
    } else if (settings_.set_devinfo && (question_ != 0 || now_ >= next_watch_)) {
        start_question();
    }
}

/* Milliseconds until something is due by itself, rounded up; -1 for never. */
int owner::wait_time() const
{
    std::optional<moment> next;
    const auto consider = [&next](const std::optional<moment> &when) {
        if (when && (!next || *when < *next))
            next = when;
    };
    if (!port_.is_open()) {
        consider(next_open_);
    } else {
        if (current_)
            consider(current_->deadline);
        else if (!clients_.empty())
            consider(clients_.front().deadline);
        if (!in_step_)
            consider(quiet_at_);
        if (!in_step_ && is_wanted())
            consider(next_probe_);
        if (settings_.set_devinfo && in_step_ && !current_)
            consider(next_watch_);
    }
    if (!next)
        return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*next - clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, 60000));
}

void owner::wait(int stop_fd, bool &stop)
{
    const auto port_events = static_cast<short>(port_.has_waiting() ? POLLIN | POLLOUT : POLLIN);
    std::array<pollfd, 3> fds = {{{stop_fd, POLLIN, 0}, {bus_.wake_fd(), POLLIN, 0}, {port_.fd(), port_events, 0}}};
    const int ready = poll(fds.data(), fds.size(), wait_time()); /* a closed port's -1 is passed over */
    now_ = clock::now();
    if (ready < 0) {
        if (errno != EINTR)
            note(std::string("poll: ") + std::strerror(errno));
        return;
    }
    stop = fds[0].revents != 0;
    if (fds[1].revents != 0)
        take_requests();
    if (fds[2].revents != 0)
        serve_port(fds[2].revents);
}

void owner::run(int stop_fd)
{
    bool stop = false;
    open_port();
    if (!port_.is_open() && settings_.set_devinfo)
        watch_.gone();
    std::puts("ready");
    std::fflush(stdout);
    while (!stop) {
        check_time();
        proceed();
        wait(stop_fd, stop);
    }
    refuse_all(error_no_modem, "the owner of the port ends");
}

} // namespace at_owner
