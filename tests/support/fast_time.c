/* Makes the time that a process waits through pass FAST_TIME times as fast (an integer, 1 to 1000).
 *
 * Preloaded, it divides the time-outs of the calls below and multiplies the rate of the monotonic
 * clocks, so that a program which waits by them sees consistent time and needs to know nothing.
 * CLOCK_REALTIME and time() stay as they are, but for time() where FAST_SECONDS is set: it then passes as
 * fast, for whom a second that lasts too long would be no second. Preload it in front of a sanitizer's library: its
 * calls then go through the sanitizer's own (AddressSanitizer wants verify_asan_link_order=0). */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <time.h>
#include <unistd.h>

enum { MAX_FACTOR = 1000 };
static const int64_t SECOND = 1000000000;

typedef int clock_gettime_fn(clockid_t, struct timespec *);
typedef int clock_nanosleep_fn(clockid_t, int, const struct timespec *, struct timespec *);
typedef int ppoll_fn(struct pollfd *, nfds_t, const struct timespec *, const sigset_t *);
typedef int pselect_fn(int, fd_set *, fd_set *, fd_set *, const struct timespec *, const sigset_t *);
typedef int epoll_pwait2_fn(int, struct epoll_event *, int, const struct timespec *, const sigset_t *);
typedef int epoll_pwait_fn(int, struct epoll_event *, int, int, const sigset_t *);
typedef int cond_clockwait_fn(pthread_cond_t *, pthread_mutex_t *, clockid_t, const struct timespec *);

/* The next library's calls. pthread_cond_timedwait has several versions in glibc, of which a look-up
 * by name may find the wrong one; pthread_cond_clockwait has one and does the same. */
static struct {
    clock_gettime_fn *clock_gettime;
    clock_nanosleep_fn *clock_nanosleep;
    ppoll_fn *ppoll;
    pselect_fn *pselect;
    epoll_pwait2_fn *epoll_pwait2;
    epoll_pwait_fn *epoll_pwait;
    cond_clockwait_fn *cond_clockwait;
} next;

static int64_t factor;      /* 0 until set up */
static int64_t origin;      /* where the real and the fast monotonic clock agree, in ns */
static int64_t origin_date; /* the date then, in ns; 0: time() stays as it is */

static int64_t to_ns(const struct timespec *time)
{
    return time->tv_sec * SECOND + time->tv_nsec;
}

static struct timespec to_timespec(int64_t ns)
{
    return (struct timespec){.tv_sec = ns / SECOND, .tv_nsec = ns % SECOND};
}

static void find(const char *name, void *function)
{
    void *symbol = dlsym(RTLD_NEXT, name);

    if (symbol == NULL)
        abort();
    memcpy(function, &symbol, sizeof(symbol));
}

static int64_t real_now(clockid_t clock)
{
    struct timespec now = {0};

    next.clock_gettime(clock, &now);
    return to_ns(&now);
}

/* Runs before the process has a second thread: as a constructor, or at the first call if another
 * library's constructor makes one earlier. */
__attribute__((constructor)) static void set_up(void)
{
    const char *text = getenv("FAST_TIME");
    const long value = text == NULL ? 1 : strtol(text, NULL, 10);

    if (factor != 0)
        return;
    find("clock_gettime", &next.clock_gettime);
    find("clock_nanosleep", &next.clock_nanosleep);
    find("ppoll", &next.ppoll);
    find("pselect", &next.pselect);
    find("epoll_pwait2", &next.epoll_pwait2);
    find("epoll_pwait", &next.epoll_pwait);
    find("pthread_cond_clockwait", &next.cond_clockwait);
    origin = real_now(CLOCK_MONOTONIC);
    origin_date = getenv("FAST_SECONDS") == NULL ? 0 : real_now(CLOCK_REALTIME);
    factor = value < 1 ? 1 : value > MAX_FACTOR ? MAX_FACTOR : value;
}

static int is_fast(clockid_t clock)
{
    if (factor == 0)
        set_up();
    return factor > 1 && (clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_RAW || clock == CLOCK_MONOTONIC_COARSE ||
                          clock == CLOCK_BOOTTIME);
}

static int64_t to_fast(int64_t real)
{
    return origin + (real - origin) * factor;
}

/* Rounded up, so that a wait never ends before its fast deadline. */
static int64_t shorten(int64_t ns)
{
    return ns <= 0 ? ns : (ns - 1) / factor + 1;
}

/* The shortened time-out, in *room; null (for ever) stays null, and what is invalid stays so. */
static const struct timespec *shorten_timeout(const struct timespec *timeout, struct timespec *room)
{
    if (factor == 0)
        set_up();
    if (timeout == NULL || timeout->tv_sec < 0 || timeout->tv_nsec < 0 || timeout->tv_nsec >= SECOND ||
        timeout->tv_sec >= INT64_MAX / SECOND)
        return timeout;
    *room = to_timespec(shorten(to_ns(timeout)));
    return room;
}

static const struct timespec *shorten_ms(int ms, struct timespec *room)
{
    const struct timespec timeout = {.tv_sec = ms / 1000, .tv_nsec = ms % 1000 * 1000000L};

    return shorten_timeout(ms < 0 ? NULL : &timeout, room);
}

int clock_gettime(clockid_t clock, struct timespec *time)
{
    const int fast = is_fast(clock);
    const int result = next.clock_gettime(clock, time);

    if (result == 0 && fast)
        *time = to_timespec(to_fast(to_ns(time)));
    return result;
}

time_t time(time_t *room)
{
    time_t now;

    if (factor == 0)
        set_up();
    now = (origin_date == 0 ? real_now(CLOCK_REALTIME) : origin_date + to_fast(real_now(CLOCK_MONOTONIC)) - origin) /
          SECOND;
    if (room != NULL)
        *room = now;
    return now;
}

/* Sleeps for a shortened time; what is left is given in fast time again. Returns an error number. */
static int sleep_for(const struct timespec *request, struct timespec *left)
{
    struct timespec room;
    const int error = next.clock_nanosleep(CLOCK_MONOTONIC, 0, shorten_timeout(request, &room), left);

    if (error == EINTR && left != NULL)
        *left = to_timespec(to_ns(left) * factor);
    return error;
}

int clock_nanosleep(clockid_t clock, int flags, const struct timespec *request, struct timespec *left)
{
    struct timespec until;

    if ((flags & TIMER_ABSTIME) == 0)
        return sleep_for(request, left);
    if (!is_fast(clock))
        return next.clock_nanosleep(clock, flags, request, left);
    until = to_timespec(origin + shorten(to_ns(request) - origin));
    return next.clock_nanosleep(clock, flags, &until, left);
}

int nanosleep(const struct timespec *request, struct timespec *left)
{
    const int error = sleep_for(request, left);

    errno = error != 0 ? error : errno;
    return error == 0 ? 0 : -1;
}

unsigned sleep(unsigned seconds)
{
    const struct timespec request = {.tv_sec = seconds};
    struct timespec left = {0};

    return sleep_for(&request, &left) == 0 ? 0 : (unsigned)left.tv_sec + (left.tv_nsec != 0);
}

int usleep(useconds_t us)
{
    const struct timespec request = {.tv_sec = us / 1000000, .tv_nsec = us % 1000000 * 1000L};

    return nanosleep(&request, NULL);
}

int ppoll(struct pollfd *fds, nfds_t count, const struct timespec *timeout, const sigset_t *mask)
{
    struct timespec room;
    const struct timespec *shortened = shorten_timeout(timeout, &room);

    return next.ppoll(fds, count, shortened, mask);
}

int poll(struct pollfd *fds, nfds_t count, int ms)
{
    struct timespec room;
    const struct timespec *shortened = shorten_ms(ms, &room);

    return next.ppoll(fds, count, shortened, NULL);
}

/* What a fortified build calls instead of poll and ppoll. */
int __poll_chk(struct pollfd *fds, nfds_t count, int ms, size_t size);
int __ppoll_chk(struct pollfd *fds, nfds_t count, const struct timespec *timeout, const sigset_t *mask, size_t size);

int __poll_chk(struct pollfd *fds, nfds_t count, int ms, size_t size)
{
    if (size / sizeof(*fds) < count)
        abort();
    return poll(fds, count, ms);
}

int __ppoll_chk(struct pollfd *fds, nfds_t count, const struct timespec *timeout, const sigset_t *mask, size_t size)
{
    if (size / sizeof(*fds) < count)
        abort();
    return ppoll(fds, count, timeout, mask);
}

int pselect(int count, fd_set *in, fd_set *out, fd_set *except, const struct timespec *timeout, const sigset_t *mask)
{
    struct timespec room;
    const struct timespec *shortened = shorten_timeout(timeout, &room);

    return next.pselect(count, in, out, except, shortened, mask);
}

int select(int count, fd_set *in, fd_set *out, fd_set *except, struct timeval *timeout)
{
    struct timespec wanted = {0};
    int64_t until;
    int result;

    if (timeout == NULL)
        return pselect(count, in, out, except, NULL, NULL);
    wanted = (struct timespec){.tv_sec = timeout->tv_sec + timeout->tv_usec / 1000000,
                               .tv_nsec = timeout->tv_usec % 1000000 * 1000L};
    if (factor == 0)
        set_up();
    until = to_fast(real_now(CLOCK_MONOTONIC)) + to_ns(&wanted);
    result = pselect(count, in, out, except, &wanted, NULL);
    if (result >= 0) { /* as the kernel does: what is left of the time */
        int64_t left = until - to_fast(real_now(CLOCK_MONOTONIC));

        left = left < 0 ? 0 : left;
        *timeout = (struct timeval){.tv_sec = left / SECOND, .tv_usec = left % SECOND / 1000};
    }
    return result;
}

int epoll_pwait2(int fd, struct epoll_event *events, int count, const struct timespec *timeout, const sigset_t *mask)
{
    struct timespec room;
    const struct timespec *shortened = shorten_timeout(timeout, &room);

    return next.epoll_pwait2(fd, events, count, shortened, mask);
}

int epoll_pwait(int fd, struct epoll_event *events, int count, int ms, const sigset_t *mask)
{
    if (factor == 0)
        set_up();
    return next.epoll_pwait(fd, events, count, ms <= 0 ? ms : (int)((ms - 1) / factor + 1), mask);
}

int epoll_wait(int fd, struct epoll_event *events, int count, int ms)
{
    return epoll_pwait(fd, events, count, ms, NULL);
}

int pthread_cond_clockwait(pthread_cond_t *cond, pthread_mutex_t *mutex, clockid_t clock, const struct timespec *until)
{
    struct timespec room;
    int64_t deadline;

    if (factor == 0)
        set_up();
    if (factor == 1 || until->tv_nsec < 0 || until->tv_nsec >= SECOND || until->tv_sec >= INT64_MAX / SECOND)
        return next.cond_clockwait(cond, mutex, clock, until);
    if (is_fast(clock)) {
        deadline = origin + shorten(to_ns(until) - origin);
    } else {
        const int64_t left = to_ns(until) - real_now(CLOCK_REALTIME);

        deadline = real_now(CLOCK_REALTIME) + shorten(left);
    }
    room = to_timespec(deadline);
    return next.cond_clockwait(cond, mutex, clock, &room);
}

/* A condition does not tell its clock, so the deadline does: it belongs to the clock that it is
 * nearer to. The two are decades apart. */
int pthread_cond_timedwait(pthread_cond_t *cond, pthread_mutex_t *mutex, const struct timespec *until)
{
    int64_t fast;
    int64_t real;

    if (factor == 0)
        set_up();
    fast = to_fast(real_now(CLOCK_MONOTONIC)) / SECOND;
    real = real_now(CLOCK_REALTIME) / SECOND;
    return pthread_cond_clockwait(cond, mutex,
                                  until->tv_sec < fast + (real - fast) / 2 ? CLOCK_MONOTONIC : CLOCK_REALTIME, until);
}
