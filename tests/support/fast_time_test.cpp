// fast_time_test FACTOR: every call that libfast_time.so covers waits for its time by the process's own
// clock, while FACTOR times less of it passes outside. Run with the library preloaded.

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <thread>

#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace
{

// Waited for by each call, on the process's clock; in milliseconds.
constexpr long wait_ms = 1000;
// A busy machine may wake a process late, never early.
constexpr double late_ms = 1500;

double to_ms(const timespec &time)
{
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

double clock_ms(clockid_t clock)
{
    timespec now{};

    clock_gettime(clock, &now);
    return to_ms(now);
}

double outside_ms() // the kernel's own word, which no library stands in front of
{
    timespec now{};

    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
    return to_ms(now);
}

timespec after(clockid_t clock, long ms)
{
    timespec time{};

    clock_gettime(clock, &time);
    time.tv_sec += ms / 1000;
    time.tv_nsec += ms % 1000 * 1000000;
    if (time.tv_nsec >= 1000000000) {
        time.tv_nsec -= 1000000000;
        time.tv_sec++;
    }
    return time;
}

void wait_on_condition(clockid_t clock)
{
    pthread_condattr_t attributes;
    pthread_cond_t condition;
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    const timespec until = after(clock, wait_ms);

    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, clock);
    pthread_cond_init(&condition, &attributes);
    pthread_mutex_lock(&mutex);
    while (pthread_cond_timedwait(&condition, &mutex, &until) == 0) {
    }
    pthread_mutex_unlock(&mutex);
    pthread_cond_destroy(&condition);
    pthread_condattr_destroy(&attributes);
}

struct call {
    const char *name;
    std::function<void()> wait;
};

const timespec wait_time{wait_ms / 1000, wait_ms % 1000 * 1000000};

const call calls[] = {
    {"sleep", [] { sleep(wait_ms / 1000); }},
    {"usleep", [] { usleep(wait_ms * 1000); }},
    {"nanosleep", [] { nanosleep(&wait_time, nullptr); }},
    {"clock_nanosleep", [] { clock_nanosleep(CLOCK_MONOTONIC, 0, &wait_time, nullptr); }},
    {"clock_nanosleep until",
     [] {
         const timespec until = after(CLOCK_MONOTONIC, wait_ms);
         clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
     }},
    {"sleep_for", [] { std::this_thread::sleep_for(std::chrono::milliseconds(wait_ms)); }},
    {"poll", [] { poll(nullptr, 0, wait_ms); }},
    {"ppoll", [] { ppoll(nullptr, 0, &wait_time, nullptr); }},
    {"select",
     [] {
         timeval timeout{wait_ms / 1000, wait_ms % 1000 * 1000};
         select(0, nullptr, nullptr, nullptr, &timeout);
     }},
    {"pselect", [] { pselect(0, nullptr, nullptr, nullptr, &wait_time, nullptr); }},
    {"epoll_wait",
     [] {
         epoll_event event{};
         const int fd = epoll_create1(0);
         epoll_wait(fd, &event, 1, wait_ms);
         close(fd);
     }},
    {"pthread_cond_timedwait, monotonic", [] { wait_on_condition(CLOCK_MONOTONIC); }},
    {"pthread_cond_timedwait, realtime", [] { wait_on_condition(CLOCK_REALTIME); }},
    {"condition_variable",
     [] {
         std::condition_variable condition;
         std::mutex mutex;
         std::unique_lock<std::mutex> hold(mutex);
         condition.wait_for(hold, std::chrono::milliseconds(wait_ms), [] { return false; });
     }},
};

bool passed_as_asked(const call &call, double factor)
{
    const double inside_before = clock_ms(CLOCK_MONOTONIC);
    const double outside_before = outside_ms();
    const double date_before = clock_ms(CLOCK_REALTIME);

    call.wait();

    const double date = clock_ms(CLOCK_REALTIME) - date_before;
    const double outside = outside_ms() - outside_before;
    const double inside = clock_ms(CLOCK_MONOTONIC) - inside_before;
    // A wait by the date ends at its date, which does not run faster: only outside time tells.
    const bool good = outside >= wait_ms / factor && outside < wait_ms / factor + late_ms && inside >= wait_ms &&
                      inside >= outside * factor * 0.999 && date < outside + late_ms;

    printf("%s %s: %.0f ms inside, %.1f ms outside\n", good ? "ok" : "FAILED", call.name, inside, outside);
    return good;
}

bool wakes_at_once() // a wait that something ends does not wait for its time
{
    const double before = outside_ms();
    int ends[2] = {-1, -1};

    if (pipe(ends) != 0 || write(ends[1], "x", 1) != 1)
        return false;
    pollfd readable{ends[0], POLLIN, 0};
    const bool woken = poll(&readable, 1, -1) == 1 && poll(&readable, 1, 3600 * 1000) == 1;
    close(ends[0]);
    close(ends[1]);
    printf("%s poll wakes for data\n", woken ? "ok" : "FAILED");
    return woken && outside_ms() - before < late_ms;
}

bool seconds_pass_as_asked()
{
    const bool fast = getenv("FAST_SECONDS") != nullptr;
    const time_t before = time(nullptr);
    const double outside_before = outside_ms();

    sleep(100);
    const time_t passed = time(nullptr) - before;
    const double outside = (outside_ms() - outside_before) / 1e3;
    const bool good = fast ? passed >= 99 : static_cast<double>(passed) <= outside + 1;
    printf("%s time: %ld seconds, %.1f outside\n", good ? "ok" : "FAILED", static_cast<long>(passed), outside);
    return good;
}

} // namespace

int main(int argc, char **argv)
{
    const double factor = argc == 2 ? atof(argv[1]) : 0;
    bool good = factor >= 1;

    if (!good)
        fputs("usage: fast_time_test FACTOR\n", stderr);
    for (const call &call : calls)
        good = good && passed_as_asked(call, factor);
    good = good && wakes_at_once() && (factor < 100 || seconds_pass_as_asked());
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
