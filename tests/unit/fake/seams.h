/* The system calls that the linker leads here (-Wl,--wrap). They pass through to the system unless a
 * test says otherwise, but for these:
 *
 *   sleep                   never sleeps; recorded as "sleep N"; moves a clock that was set
 *   sync                    recorded as "sync"
 *   statfs                  recorded as "statfs PATH"; reports what the test set, at first 1 GB free
 *   pthread_cond_timedwait  recorded as "pthread_cond_timedwait N", N the seconds to the deadline;
 *                           ends as soon as nothing more can come (see wait_mode)
 *   fopen, atexit, pthread_create, pthread_mutex_init, pthread_cond_init, pthread_condattr_setclock
 *                           recorded by name; fopen as "fopen PATH MODE"
 *
 * The record is the platform's, so that the order across both is seen. */
#ifndef SEAMS_H
#define SEAMS_H

#include <time.h>

#include <functional>
#include <optional>
#include <string>

namespace seams
{

/* Everything as at the start of a test. */
void reset();

/* Run at each sleep on the sleeping thread, after the sleep was recorded; it may end the thread with
 * pthread_exit, clear a flag, deliver an answer. `count` is the number of this sleep from 1. */
void on_sleep(std::function<void(unsigned seconds, int count)> hook);
int sleeps();     /* how many */
unsigned slept(); /* seconds altogether */

/* Makes the next call that counts fail: the `nth` from now (1: the next one), once or from then on.
 * The functions: malloc, calloc (both: of the calling thread only), fopen, pthread_create,
 * pthread_mutex_init, pthread_cond_init, pthread_condattr_setclock, atexit. `result` is the value
 * returned by those that return a number. */
void fail(const std::string &function, int nth = 1, int result = -1, bool for_good = false);

/* pthread_create only records and returns 0: no thread runs. */
void start_no_threads(bool hold);

/* The body and the argument of each thread that was to be created, in order. */
struct thread_start {
    void *(*body)(void *);
    void *argument;
};
thread_start thread(size_t index);
size_t threads();

/* The functions given to atexit, in order; they are not registered while start_no_threads holds. */
size_t exit_hooks();
void (*exit_hook(size_t index))();

/* statfs: free blocks and their size; or failure. */
void set_free_space(long block_size, unsigned long available);
void fail_statfs();

/* time and clock_gettime stand still at these (sleep moves them on) until reset. */
void set_time(time_t now);
void set_monotonic(timespec now);

/* How timed waits end: `as_needed`: when they are woken, or with ETIMEDOUT once no answer of the
 * modem is on its way; `really`: as the system has it; `at_once`: with `result`. */
enum wait_mode { as_needed, really, at_once };
void set_wait(wait_mode mode, int result = 0);

/* The deadline minus now of the last timed wait, in seconds. */
double last_wait();

} // namespace seams

#endif
