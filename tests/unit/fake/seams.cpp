#include "fake/seams.h"

#include <errno.h>
#include <math.h>
#include <pthread.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <map>
#include <mutex>
#include <vector>

#include "fake/fake_modem.h"
#include "fake/fake_platform.h"

extern "C" {
unsigned __real_sleep(unsigned seconds);
time_t __real_time(time_t *out);
int __real_clock_gettime(clockid_t clock, timespec *out);
int __real_pthread_cond_timedwait(pthread_cond_t *cond, pthread_mutex_t *mutex, const timespec *deadline);
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
FILE *__real_fopen(const char *path, const char *mode);
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*body)(void *), void *argument);
int __real_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attr);
int __real_pthread_cond_init(pthread_cond_t *cond, const pthread_condattr_t *attr);
int __real_pthread_condattr_setclock(pthread_condattr_t *attr, clockid_t clock);
int __real_atexit(void (*hook)());
}

namespace
{

struct failure {
    int countdown = 0; /* 0: none; 1: the next call fails */
    bool for_good = false;
    int result = -1;

    bool strikes()
    {
        if (countdown == 0 || --countdown > 0)
            return false;
        if (for_good)
            countdown = 1;
        return true;
    }
};

struct state {
    std::mutex lock;
    std::function<void(unsigned, int)> sleep_hook;
    int sleeps = 0;
    unsigned slept = 0;
    std::map<std::string, failure> failures;
    bool no_threads = false;
    std::vector<seams::thread_start> threads;
    std::vector<void (*)()> exit_hooks;
    long block_size = 4096;
    unsigned long available = 1UL << 18;
    bool statfs_fails = false;
    std::optional<time_t> time;
    std::optional<timespec> monotonic;
    seams::wait_mode wait = seams::as_needed;
    int wait_result = 0;
    double last_wait = 0;
};

state &its()
{
    static auto *only = new state;
    return *only;
}

/* Not in `state`: malloc is called everywhere, and before everything. */
thread_local failure malloc_failure, calloc_failure;

bool strikes(const char *function, int *result)
{
    std::lock_guard hold(its().lock);
    const auto found = its().failures.find(function);

    if (found == its().failures.end() || !found->second.strikes())
        return false;
    *result = found->second.result;
    return true;
}

void note(const std::string &line)
{
    fake::the_platform().record(line);
}

double seconds(const timespec &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

} // namespace

namespace seams
{

void reset()
{
    std::lock_guard hold(its().lock);
    state &now = its();

    now.sleep_hook = nullptr;
    now.sleeps = 0;
    now.slept = 0;
    now.failures.clear();
    now.no_threads = false;
    now.threads.clear();
    now.exit_hooks.clear();
    now.block_size = 4096;
    now.available = 1UL << 18;
    now.statfs_fails = false;
    now.time.reset();
    now.monotonic.reset();
    now.wait = as_needed;
    now.wait_result = 0;
    now.last_wait = 0;
    malloc_failure = {};
    calloc_failure = {};
}

void on_sleep(std::function<void(unsigned, int)> hook)
{
    std::lock_guard hold(its().lock);
    its().sleep_hook = std::move(hook);
}

int sleeps()
{
    std::lock_guard hold(its().lock);
    return its().sleeps;
}

unsigned slept()
{
    std::lock_guard hold(its().lock);
    return its().slept;
}

void fail(const std::string &function, int nth, int result, bool for_good)
{
    const failure wanted = {nth, for_good, result};

    if (function == "malloc") {
        malloc_failure = wanted;
    } else if (function == "calloc") {
        calloc_failure = wanted;
    } else {
        std::lock_guard hold(its().lock);
        its().failures[function] = wanted;
    }
}

void start_no_threads(bool hold_them)
{
    std::lock_guard hold(its().lock);
    its().no_threads = hold_them;
}

thread_start thread(size_t index)
{
    std::lock_guard hold(its().lock);
    return its().threads.at(index);
}

size_t threads()
{
    std::lock_guard hold(its().lock);
    return its().threads.size();
}

size_t exit_hooks()
{
    std::lock_guard hold(its().lock);
    return its().exit_hooks.size();
}

void (*exit_hook(size_t index))()
{
    std::lock_guard hold(its().lock);
    return its().exit_hooks.at(index);
}

void set_free_space(long block_size, unsigned long available)
{
    std::lock_guard hold(its().lock);
    its().block_size = block_size;
    its().available = available;
    its().statfs_fails = false;
}

void fail_statfs()
{
    std::lock_guard hold(its().lock);
    its().statfs_fails = true;
}

void set_time(time_t now)
{
    std::lock_guard hold(its().lock);
    its().time = now;
}

void set_monotonic(timespec now)
{
    std::lock_guard hold(its().lock);
    its().monotonic = now;
}

void set_wait(wait_mode mode, int result)
{
    std::lock_guard hold(its().lock);
    its().wait = mode;
    its().wait_result = result;
}

double last_wait()
{
    std::lock_guard hold(its().lock);
    return its().last_wait;
}

} // namespace seams

/* The modem's thread outlives the tests, and ThreadSanitizer would wait a second for it each time. */
extern "C" const char *__tsan_default_options();
extern "C" const char *__tsan_default_options()
{
    return "atexit_sleep_ms=0";
}

/* --- in place of the system's --- */

extern "C" {

unsigned __wrap_sleep(unsigned seconds);
void __wrap_sync();
int __wrap_statfs(const char *path, struct statfs *out);
time_t __wrap_time(time_t *out);
int __wrap_clock_gettime(clockid_t clock, timespec *out);
int __wrap_pthread_cond_timedwait(pthread_cond_t *cond, pthread_mutex_t *mutex, const timespec *deadline);
void *__wrap_malloc(size_t size);
void *__wrap_calloc(size_t count, size_t size);
FILE *__wrap_fopen(const char *path, const char *mode);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*body)(void *), void *argument);
int __wrap_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attr);
int __wrap_pthread_cond_init(pthread_cond_t *cond, const pthread_condattr_t *attr);
int __wrap_pthread_condattr_setclock(pthread_condattr_t *attr, clockid_t clock);
int __wrap_atexit(void (*hook)());

unsigned __wrap_sleep(unsigned seconds)
{
    std::function<void(unsigned, int)> hook;
    int count;

    note("sleep " + std::to_string(seconds));
    {
        std::lock_guard hold(its().lock);
        count = ++its().sleeps;
        its().slept += seconds;
        if (its().time)
            *its().time += seconds;
        if (its().monotonic)
            its().monotonic->tv_sec += seconds;
        hook = its().sleep_hook;
    }
    if (hook)
        hook(seconds, count);
    else
        sched_yield();
    return 0;
}

void __wrap_sync()
{
    note("sync");
}

int __wrap_statfs(const char *path, struct statfs *out)
{
    note(std::string("statfs ") + path);
    std::lock_guard hold(its().lock);
    if (its().statfs_fails) {
        errno = ENOENT;
        return -1;
    }
    memset(out, 0, sizeof *out);
    out->f_bsize = its().block_size;
    out->f_bavail = its().available;
    return 0;
}

time_t __wrap_time(time_t *out)
{
    time_t now;
    {
        std::lock_guard hold(its().lock);
        now = its().time ? *its().time : __real_time(nullptr);
    }
    if (out != nullptr)
        *out = now;
    return now;
}

int __wrap_clock_gettime(clockid_t clock, timespec *out)
{
    std::lock_guard hold(its().lock);
    if (clock == CLOCK_MONOTONIC && its().monotonic)
        *out = *its().monotonic;
    else if (clock == CLOCK_REALTIME && its().time)
        *out = {*its().time, 0};
    else
        return __real_clock_gettime(clock, out);
    return 0;
}

/* Waits in short slices, so that a wait for an answer that never comes takes no time. The slices are
 * measured on the monotonic clock; a condition that uses another one only makes them shorter. */
static int wait_as_needed(pthread_cond_t *cond, pthread_mutex_t *mutex)
{
    for (;;) {
        timespec slice;

        __real_clock_gettime(CLOCK_MONOTONIC, &slice);
        slice.tv_nsec += 20'000'000;
        slice.tv_sec += slice.tv_nsec / 1'000'000'000;
        slice.tv_nsec %= 1'000'000'000;
        const bool coming = fake::the_modem().busy();
        const int result = __real_pthread_cond_timedwait(cond, mutex, &slice);
        if (result != ETIMEDOUT || !coming)
            return result;
        sched_yield();
    }
}

int __wrap_pthread_cond_timedwait(pthread_cond_t *cond, pthread_mutex_t *mutex, const timespec *deadline)
{
    seams::wait_mode mode;
    timespec now;
    int result;

    __wrap_clock_gettime(CLOCK_MONOTONIC, &now);
    const double left = seconds(*deadline) - seconds(now);
    {
        std::lock_guard hold(its().lock);
        its().last_wait = left;
        mode = its().wait;
        result = its().wait_result;
    }
    note("pthread_cond_timedwait " + std::to_string(lround(left)));
    if (mode == seams::at_once)
        return result;
    if (mode == seams::really)
        return __real_pthread_cond_timedwait(cond, mutex, deadline);
    if (!fake::the_modem().busy())
        return ETIMEDOUT;
    return wait_as_needed(cond, mutex);
}

void *__wrap_malloc(size_t size)
{
    if (malloc_failure.strikes()) {
        errno = ENOMEM;
        return nullptr;
    }
    return __real_malloc(size);
}

void *__wrap_calloc(size_t count, size_t size)
{
    if (calloc_failure.strikes()) {
        errno = ENOMEM;
        return nullptr;
    }
    return __real_calloc(count, size);
}

FILE *__wrap_fopen(const char *path, const char *mode)
{
    int result;

    note(std::string("fopen ") + path + " " + mode);
    if (strikes("fopen", &result)) {
        errno = EACCES;
        return nullptr;
    }
    return __real_fopen(path, mode);
}

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*body)(void *), void *argument)
{
    int result;

    note("pthread_create");
    if (strikes("pthread_create", &result))
        return result;
    {
        std::lock_guard hold(its().lock);
        its().threads.push_back({body, argument});
        if (its().no_threads) {
            *thread = pthread_self();
            return 0;
        }
    }
    return __real_pthread_create(thread, attr, body, argument);
}

int __wrap_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attr)
{
    int result;

    note("pthread_mutex_init");
    return strikes("pthread_mutex_init", &result) ? result : __real_pthread_mutex_init(mutex, attr);
}

int __wrap_pthread_cond_init(pthread_cond_t *cond, const pthread_condattr_t *attr)
{
    int result;

    note("pthread_cond_init");
    return strikes("pthread_cond_init", &result) ? result : __real_pthread_cond_init(cond, attr);
}

int __wrap_pthread_condattr_setclock(pthread_condattr_t *attr, clockid_t clock)
{
    int result;

    note("pthread_condattr_setclock " + std::to_string(clock));
    return strikes("pthread_condattr_setclock", &result) ? result : __real_pthread_condattr_setclock(attr, clock);
}

int __wrap_atexit(void (*hook)())
{
    int result;

    note("atexit");
    if (strikes("atexit", &result))
        return result;
    {
        std::lock_guard hold(its().lock);
        its().exit_hooks.push_back(hook);
        if (its().no_threads)
            return 0;
    }
    return __real_atexit(hook);
}

} /* extern "C" */
