#include "modem.h"

#include <algorithm>
#include <utility>

namespace sim
{
namespace
{

constexpr size_t most_logged = 20000;
constexpr size_t most_indications = 200;
/* The owner of a freshly opened port may throw away what came before its first command. */
constexpr timer_queue::milliseconds settling_time{1000};

enum indication_setting { cnmi_mode, cnmi_mt, cnmi_bm, cnmi_ds, cnmi_bfr };

} // namespace

modem::modem(const modem_config &config, timer_queue &timers, trace &trace)
    : state(config), timers_(timers), trace_(trace), out_(timers)
{
    out_.write = [this](std::string_view bytes) {
        if (!port_open_)
            return;
        trace_.to_port(bytes);
        if (write)
            write(bytes);
    };
    state.send = [this](const std::string &hex, size_t stated, unsigned &reference) {
        return send_to_network(hex, stated, reference);
    };
}

void modem::log(const std::string &text)
{
    if (log_.size() >= most_logged)
        log_.pop_front();
    log_.push_back({timers_.elapsed(), text, ""});
}

void modem::set_result(const std::string &text)
{
    if (!log_.empty())
        log_.back().result = text;
}

/* From the port to an answer */

void modem::receive(std::string_view bytes)
{
    trace_.from_port(bytes);
    reader_.append(bytes);
    pump();
}

void modem::pump()
{
    while (!busy_) {
        std::string echo;
        const auto event = reader_.next(echo);
        if (state.settings.echo && !fault.silent && !echo.empty())
            out_.send(std::move(echo));
        if (!event)
            return;
        handle(*event);
    }
}

void modem::handle(const line_reader::event &event)
{
    const bool is_line = event.what == line_reader::kind::line || event.what == line_reader::kind::too_long;
    if (event.what == line_reader::kind::line && command_start(event.text) == std::string::npos)
        return;
    log(event.text);
    const bool swallowed = !fault.silent && is_line && fault.swallow > 0;
    if (swallowed)
        fault.swallow--;
    if (fault.silent || swallowed) {
        trace_.note("ignored: " + event.text);
        return;
    }
    busy_ = true;
    if (state.config.delay.count() == 0) {
        finish(event);
        return;
    }
    answer_timer_ = timers_.after(state.config.delay, [this, event] {
        answer_timer_.reset();
        finish(event);
        pump();
    });
}

answer modem::carry_out(const line_reader::event &event)
{
    switch (event.what) {
    case line_reader::kind::line: {
        const std::string failure = fault.take_failure(event.text);
        return failure.empty() ? run_line(state, event.text) : answer{.final_result = failure};
    }
    case line_reader::kind::text:
        return run_text(state, event.text);
    case line_reader::kind::cancelled:
        return {};
    case line_reader::kind::too_long:
        break;
    }
    return {.final_result = "ERROR"};
}

void modem::finish(const line_reader::event &event)
{
    const auto before = state.settings.indications;
    give(carry_out(event));
    busy_ = false;
    now_listening();
    const auto &after = state.settings.indications;
    if (after != before && after[cnmi_mode] != 0 && after[cnmi_bfr] == 1)
        indications_.clear();
    flush_indications();
    deliver_waiting();
}

void modem::give(const answer &what)
{
    if (fault.lose > 0) {
        fault.lose--;
        return;
    }
    if (what.prompt) {
        reader_.expect_text();
        out_.send("\r\n> " + fault.take_planned(moment::after_prompt));
        return;
    }
    set_result(what.final_result);
    const std::string before = fault.take_planned(moment::before_answer);
    const std::string middle = fault.take_planned(moment::in_answer) + std::exchange(held_, std::string());
    std::string whole = render_lines(what) + middle + render_result(what);
    if (fault.repeat)
        whole += render_lines(what) + render_result(what);
    whole = before + fault.garbled(std::move(whole));
    if (!fault.split) {
        out_.send(std::move(whole));
        return;
    }
    const size_t cut = fault.split_at > 0 ? std::min(fault.split_at, whole.size()) : whole.size() / 2;
    out_.send(whole.substr(0, cut));
    out_.send(whole.substr(cut), fault.split_delay);
}

/* From the network to an indication */

bool modem::can_speak() const
{
    return listening_ && !fault.silent && !reader_.expecting_text();
}

bool modem::can_indicate() const
{
    return can_speak() && state.settings.indications[cnmi_mode] != 0;
}

bool modem::say(std::string_view line)
{
    if (!port_open_ || fault.silent || reader_.expecting_text())
        return false;
    out_.send(unsolicited(line));
    return true;
}

void modem::emit_indication(const std::string &line)
{
    if (fault.hold_messages)
        held_ += unsolicited(line);
    else
        out_.send(unsolicited(line));
}

/* 27.005, 3.4.1: what cannot be said now is kept, and the oldest gives way. */
void modem::indicate(std::string line)
{
    if (can_indicate()) {
        emit_indication(line);
        return;
    }
    if (indications_.size() >= most_indications)
        indications_.pop_front();
    indications_.push_back(std::move(line));
}

void modem::flush_indications()
{
    while (can_indicate() && !indications_.empty()) {
        emit_indication(indications_.front());
        indications_.pop_front();
    }
}

bool modem::deliver_directly(const waiting_message &message)
{
    if (!can_indicate() || state.settings.format != 0)
        return false;
    emit_indication("+CMT: ," + std::to_string(tpdu_length(message.pdu)) + "\r\n" + to_hex(message.pdu));
    return true;
}

bool modem::store(const waiting_message &message)
{
    const auto index = state.store(memory_receive).add({message.pdu, message_state::unread, message.note});
    if (!index)
        return false;
    if (state.settings.indications[cnmi_mt] != 0)
        indicate("+CMTI: \"" + state.settings.memories[memory_receive] + "\"," + std::to_string(*index));
    return true;
}

/* True when the modem has taken it. */
bool modem::deliver(const waiting_message &message)
{
    if (!state.registered || !state.sim_inserted || fault.silent)
        return false;
    const int mt = state.settings.indications[cnmi_mt];
    const bool may_be_direct = (mt == 2 && message.message_class != 2u) || (mt == 3 && message.message_class == 3u);
    if (message.way != route::stored && may_be_direct)
        return deliver_directly(message);
    return message.way != route::direct && store(message);
}

void modem::deliver_waiting()
{
    std::deque<waiting_message> left;
    for (waiting_message &message : waiting_)
        if (!deliver(message))
            left.push_back(std::move(message));
    waiting_ = std::move(left);
}

void modem::offer(waiting_message message)
{
    waiting_.push_back(std::move(message));
    deliver_waiting();
}

/* From the router to the handset */

cms_error modem::send_to_network(const std::string &hex, size_t stated, unsigned &reference)
{
    if (!state.registered)
        return cms_no_network;
    const auto pdu = from_hex(hex);
    if (!pdu) {
        last_refusal_ = "not an even number of hex digits";
        trace_.note("submit refused: " + last_refusal_);
        return cms_invalid_pdu_parameter;
    }
    try {
        submit content = parse_submit(*pdu, stated);
        if (content.service_centre.empty())
            content.service_centre = state.service_centre;
        if (content.service_centre.empty()) {
            last_refusal_ = "no service centre";
            trace_.note("submit refused: " + last_refusal_);
            return cms_service_centre_unknown;
        }
        reference = content.message_reference;
        trace_.note("submit to " + content.to + ", " + std::to_string(content.codes.size()) + " codes");
        phone.take({std::move(content), to_hex(*pdu), format_timestamp(current_timestamp(std::nullopt))});
    } catch (const malformed_pdu &reason) {
        last_refusal_ = reason.what();
        trace_.note("submit refused: " + last_refusal_);
        return cms_invalid_pdu_parameter;
    }
    return cms_none;
}

/* Switches */

void modem::now_listening()
{
    if (!port_open_ || listening_)
        return;
    listening_ = true;
    if (settle_timer_)
        timers_.cancel(*settle_timer_);
    settle_timer_.reset();
}

void modem::set_port_open(bool open)
{
    if (open == port_open_)
        return;
    port_open_ = open;
    listening_ = false;
    trace_.note(open ? "port opened" : "port closed");
    if (settle_timer_)
        timers_.cancel(*settle_timer_);
    settle_timer_.reset();
    if (!open) {
        out_.clear();
        return;
    }
    settle_timer_ = timers_.after(settling_time, [this] {
        settle_timer_.reset();
        now_listening();
        faults_changed();
    });
}

void modem::restart()
{
    if (answer_timer_)
        timers_.cancel(*answer_timer_);
    answer_timer_.reset();
    busy_ = false;
    reader_.clear();
    out_.clear();
    indications_.clear();
    held_.clear();
    state.settings = state.config.power_up;
    trace_.note("restart");
    say("^BOOT:0");
}

void modem::say_registration()
{
    const struct {
        const char *name;
        int reports;
    } services[] = {{"+CREG: ", state.settings.registration_reports}, {"+CEREG: ", state.settings.packet_reports}};
    for (const auto &service : services)
        if (service.reports != 0)
            say(service.name + registration_status(service.reports, state.registered));
}

void modem::set_registered(bool registered)
{
    if (std::exchange(state.registered, registered) != registered)
        say_registration();
    deliver_waiting();
}

void modem::set_sim(bool inserted)
{
    state.sim_inserted = inserted;
    deliver_waiting();
}

void modem::faults_changed()
{
    if (!fault.hold_messages && !held_.empty() && port_open_)
        out_.send(std::exchange(held_, std::string()));
    flush_indications();
    deliver_waiting();
    pump();
}

} // namespace sim
