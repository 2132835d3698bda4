/* The modem between its port and the network. It knows of bytes and of time, not of files or sockets. */
#ifndef SIM_MODEM_H
#define SIM_MODEM_H

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "at_commands.h"
#include "faults.h"
#include "handset.h"
#include "line_reader.h"
#include "modem_state.h"
#include "timers.h"
#include "trace.h"
#include "transmitter.h"

namespace sim
{

/* How a message to the router travels its last step. */
enum class route {
    follow, /* as +CNMI says */
    direct, /* +CMT only: waits in the service centre until +CNMI lets it through */
    stored  /* into the storage, as a message of class 2 does */
};

struct waiting_message {
    octets pdu; /* service centre in front */
    route way = route::follow;
    std::optional<unsigned> message_class;
    std::string note;
};

struct logged_command {
    std::chrono::milliseconds at{}; /* since the start */
    std::string text;               /* the line without its "\r" */
    std::string result;             /* "" while, or when, there is no answer */
};

class modem
{
public:
    modem(const modem_config &config, timer_queue &timers, trace &trace);

    /* Where the bytes for the port go. */
    std::function<void(std::string_view)> write;

    void receive(std::string_view bytes);

    /* Somebody opened the port, or the last one closed it. */
    void set_port_open(bool open);
    bool port_open() const { return port_open_; }

    /* Power off and on: settings as at the beginning, what was under way is lost. Messages stay where they are. */
    void restart();

    void set_registered(bool registered);
    void set_sim(bool inserted);

    /* An unasked-for line now, whatever +CNMI says. False when it cannot be said. */
    bool say(std::string_view line);

    /* To be called when a fault was changed from outside. */
    void faults_changed();

    /* Into the service centre's hands, which gives it to the router as soon as that can be. */
    void offer(waiting_message message);
    const std::deque<waiting_message> &waiting() const { return waiting_; }
    void forget_waiting() { waiting_.clear(); }

    /* Why the last refused message was refused; "" when none was. */
    const std::string &last_refusal() const { return last_refusal_; }

    /* The newest of them. */
    const std::deque<logged_command> &commands() const { return log_; }
    void clear_commands() { log_.clear(); }

    modem_state state;
    faults fault;
    handset phone;

private:
    cms_error send_to_network(const std::string &hex, size_t stated, unsigned &reference);
    void pump();
    void handle(const line_reader::event &event);
    answer carry_out(const line_reader::event &event);
    void finish(const line_reader::event &event);
    void give(const answer &what);
    void log(const std::string &text);
    void set_result(const std::string &text);
    void now_listening();
    void say_registration();

    bool can_speak() const;
    bool can_indicate() const;
    void emit_indication(const std::string &line);
    void indicate(std::string line);
    void flush_indications();
    void deliver_waiting();
    bool deliver(const waiting_message &message);
    bool deliver_directly(const waiting_message &message);
    bool store(const waiting_message &message);

    timer_queue &timers_;
    trace &trace_;
    line_reader reader_;
    transmitter out_;
    bool port_open_ = false;
    bool listening_ = false; /* the port is open, and its owner has had time to settle */
    bool busy_ = false;
    std::optional<timer_queue::id> answer_timer_, settle_timer_;
    std::deque<std::string> indications_; /* kept until they can be said */
    std::string held_;                    /* for the middle of the next answer */
    std::deque<waiting_message> waiting_;
    std::deque<logged_command> log_;
    std::string last_refusal_;
};

} // namespace sim

#endif
