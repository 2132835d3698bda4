/* The owner of the AT port, following a script. Answers are delivered to the bus handler on a thread
 * of their own, since whoever asks holds the lock that the delivery needs. */
#ifndef FAKE_MODEM_H
#define FAKE_MODEM_H

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "at_msg.h"

namespace fake
{

struct answer {
    enum manner {
        normal,
        other_id, /* carries another at_id than the request's */
        silent,   /* never comes: the wait ends with ETIMEDOUT at once */
        late,     /* so too, and it waits for deliver_late() */
        not_sent  /* the bus refuses the request with `error` as its result */
    };
    std::string text = "\r\nOK\r\n"; /* may be as long as the field; longer texts are cut without a terminator */
    int error = 0;
    manner how = normal;
    std::string detail = {};
};

class modem
{
public:
    modem();

    /* Forgets the script and waits until nothing is being delivered. */
    void reset();

    /* The answers to a command, "\r" included, in turn; the last one is given from then on. A
     * command that ends in "*" stands for all that begin so; the longest that fits is taken.
     * A command that nothing fits is answered with "\r\nOK\r\n". */
    void script(const std::string &command, std::vector<answer> answers);

    /* Run on the asker's thread when a command was sent, before its answer comes. */
    void set_hook(std::function<void(const std::string &command)> hook);

    /* Hands a record to the bus handler on the modem's thread and waits until it was taken. */
    void deliver(const sockmsg_record &record);
    void indicate(const std::string &text, uint32_t magic = AT_MSG_MAGIC);

    /* Delivers what was late. How many answers that were. */
    int deliver_late();

    /* Whether an answer is on its way. */
    bool busy();

    /* The requests as they were sent. */
    std::vector<at_request> requests();

    int take(const at_request &request); /* for the platform */

private:
    struct entry {
        std::vector<answer> answers;
        size_t next = 0;
    };

    answer choose(const std::string &command);
    void enqueue(const sockmsg_record &record);
    void run();

    std::mutex lock_;
    std::condition_variable changed_;
    std::map<std::string, entry> script_;
    std::deque<sockmsg_record> outgoing_;
    std::vector<sockmsg_record> late_;
    std::vector<at_request> requests_;
    std::function<void(const std::string &)> hook_;
    bool delivering_ = false;
};

modem &the_modem();

} // namespace fake

#endif
