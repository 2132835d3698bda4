/* The bus: a Unix datagram socket a module, one record a datagram. */
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <pthread.h>
#include <string>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include "commlog.h"
#include "sockmsg.h"
#include "state.h"

using namespace dvplatform;

struct application {
    int first, last; /* module ids */
    const char *name;
};
static constexpr application applications[] = {
    {5, 5, "at_owner"}, {27, 27, "dv_sms_mgr"}, {40, 40, "smsctl"}, {41, 41, "sms_web"}, {50, 59, "test"},
};

static constexpr size_t waiting_limit = 256;          /* records in the process, beside the kernel's few */
static constexpr int send_patience = 100;             /* milliseconds that a full receiver is given */
static constexpr size_t stack_size = size_t{4} << 20; /* the handler is the program's own code */

static pthread_mutex_t join_lock = PTHREAD_MUTEX_INITIALIZER;
static std::atomic<int> g_module_id{0}; /* 0: not joined */

/* Two threads of the library serve the socket, and the arrival of a record wakes one of them. It
 * moves what has come into the ring and, when nobody handles records yet, handles them until none
 * is left; meanwhile the other one moves what comes. So a handler that takes its time never keeps
 * senders out, and an idle program is at work after a single wake-up. */
static pthread_mutex_t reading = PTHREAD_MUTEX_INITIALIZER;
static int g_socket = -1;   /* guarded by reading */
static int g_arrivals = -1; /* an epoll; this and the following stay once there are threads */
static sockmsg_handler g_handler;

static pthread_mutex_t waiting_lock = PTHREAD_MUTEX_INITIALIZER; /* guards the following */
static pthread_cond_t waiting_room = PTHREAD_COND_INITIALIZER;
static sockmsg_record waiting[waiting_limit]; /* a ring */
static size_t g_waiting_first, g_waiting_count;
static bool g_handling;

static int bus_address(int module_id, struct sockaddr_un *address)
{
    const std::string path = state_path("bus", std::to_string(module_id));

    *address = {};
    address->sun_family = AF_UNIX;
    if (path.size() >= sizeof address->sun_path)
        return ENAMETOOLONG;
    memcpy(address->sun_path, path.c_str(), path.size() + 1);
    return 0;
}

/* ---- receiving ---- */

/* The next free place of the ring, waited for. Only who holds `reading` takes places, so the place
 * needs no lock afterwards. */
static sockmsg_record *wait_for_place()
{
    pthread_mutex_lock(&waiting_lock);
    while (g_waiting_count == waiting_limit)
        pthread_cond_wait(&waiting_room, &waiting_lock);
    if (g_waiting_count == 0)
        g_waiting_first = 0; /* the same few pages again, instead of a megabyte in turn */
    sockmsg_record *place = &waiting[(g_waiting_first + g_waiting_count) % waiting_limit];
    pthread_mutex_unlock(&waiting_lock);
    return place;
}

/* True: nobody is handling, and the caller now is the one. */
static bool add_record()
{
    pthread_mutex_lock(&waiting_lock);
    g_waiting_count++;
    const bool mine = !g_handling;
    g_handling = true;
    pthread_mutex_unlock(&waiting_lock);
    return mine;
}

static sockmsg_record *first_record() /* null: none is left, and the caller handles no longer */
{
    pthread_mutex_lock(&waiting_lock);
    g_handling = g_waiting_count > 0;
    sockmsg_record *record = g_handling ? &waiting[g_waiting_first] : nullptr;
    pthread_mutex_unlock(&waiting_lock);
    return record;
}

static void remove_record()
{
    pthread_mutex_lock(&waiting_lock);
    g_waiting_first = (g_waiting_first + 1) % waiting_limit;
    g_waiting_count--;
    pthread_cond_signal(&waiting_room);
    pthread_mutex_unlock(&waiting_lock);
}

enum class received { record, nothing_useful, nothing };

static received receive_record(sockmsg_record *record)
{
    const ssize_t got = recv(g_socket, record, sizeof *record, MSG_TRUNC | MSG_DONTWAIT);

    if (got < 0 && errno == EINTR)
        return received::nothing_useful;
    if (got < 0) {
        if (errno != EAGAIN)
            savelog(0, "[bus] receiving failed: %s", strerror(errno));
        return received::nothing;
    }
    if (static_cast<size_t>(got) != sizeof *record) {
        savelog(0, "[bus] a datagram of %zd bytes is dropped: a record has %zu", got, sizeof *record);
        return received::nothing_useful;
    }
    return g_handler ? received::record : received::nothing_useful;
}

/* Moves records from the socket to the ring. True: the caller is the one to handle them; then the
 * ring was empty, and after at most as many turns as it has places it is time to handle, so that
 * this caller never waits for room that it must make itself. `emptied`: nothing is left to move. */
static bool move_records(bool *emptied)
{
    bool mine = false;

    *emptied = false;
    pthread_mutex_lock(&reading);
    for (size_t turn = 0; !*emptied && !(mine && turn >= waiting_limit); turn++) {
        const received what = receive_record(wait_for_place());
        *emptied = what == received::nothing;
        if (what == received::record)
            mine = add_record() || mine;
    }
    pthread_mutex_unlock(&reading);
    return mine;
}

/* An arrival is told once, to one thread; who was told sees to it that the socket is emptied. */
static void *serve(void *)
{
    for (;;) {
        struct epoll_event arrival;
        bool emptied = epoll_wait(g_arrivals, &arrival, 1, -1) < 1;
        while (!emptied && move_records(&emptied)) {
            while (sockmsg_record *record = first_record()) {
                g_handler(record);
                remove_record();
            }
        }
    }
}

/* ---- joining ---- */

static int refuse(int module_id, int error, const char *reason)
{
    savelog(0, "[bus] module %d cannot join: %s", module_id, reason);
    fprintf(stderr, "module %d cannot join the bus in %s: %s\n", module_id, state_path("bus").c_str(), reason);
    return error;
}

/* The lock goes with the process, however it ends, so whoever holds it is the module; the lock file
 * stays, so two starters never hold locks of two different files. -1: refused, and errno says why. */
static int lock_module(int module_id)
{
    const std::string path = state_path("bus", std::to_string(module_id) + ".lock");
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, file_mode);
    struct flock whole = {};
    struct stat status = {};

    if (fd < 0)
        return -1;
    if (fstat(fd, &status) == 0 && status.st_uid == geteuid())
        share_file(fd, path, file_mode);
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    if (fcntl(fd, F_SETLK, &whole) == 0)
        return fd;
    const int error = errno == EACCES ? EAGAIN : errno;
    close(fd);
    errno = error;
    return -1;
}

static int open_socket(const struct sockaddr_un &address)
{
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    struct stat folder = {};

    if (fd < 0)
        return -1;
    (void)fchmod(fd, file_mode); /* the name appears with no more than this */
    unlink(address.sun_path);    /* left by a process that is gone: the lock is ours */
    if (bind(fd, reinterpret_cast<const struct sockaddr *>(&address), sizeof address) != 0 ||
        chmod(address.sun_path, file_mode) != 0) {
        const int error = errno;
        close(fd);
        errno = error;
        return -1;
    }
    if (stat(state_path("bus").c_str(), &folder) == 0)
        (void)!chown(address.sun_path, static_cast<uid_t>(-1), folder.st_gid);
    return fd;
}

/* The program's signals stay with the program's threads. */
static int start_threads()
{
    pthread_attr_t attributes;
    pthread_t thread;
    sigset_t all, before;
    int error = pthread_attr_init(&attributes);

    if (error)
        return error;
#ifdef M_ARENA_MAX
    mallopt(M_ARENA_MAX, 1); /* threads that wait most of the time do without memory of their own each */
#endif
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attributes, stack_size);
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    for (int i = 0; i < 2 && !error; i++)
        error = pthread_create(&thread, &attributes, serve, nullptr);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    return error;
}

/* The threads see the socket only when both are there; a lone one goes on waiting for nothing. */
static int serve_module(int module_id, sockmsg_handler handler, int fd)
{
    struct epoll_event arrival = {};

    if (g_arrivals < 0)
        g_arrivals = epoll_create1(EPOLL_CLOEXEC);
    if (g_arrivals < 0)
        return errno;
    const int error = start_threads();
    if (error)
        return error;
    pthread_mutex_lock(&reading);
    g_handler = handler;
    g_socket = fd;
    pthread_mutex_unlock(&reading);
    g_module_id = module_id;
    arrival.events = EPOLLIN | EPOLLET;
    if (epoll_ctl(g_arrivals, EPOLL_CTL_ADD, fd, &arrival) == 0)
        return 0;
    g_module_id = 0;
    return errno;
}

static int join(int module_id, sockmsg_handler handler)
{
    struct sockaddr_un address;

    if (module_id <= 0)
        return refuse(module_id, EINVAL, "no such module number");
    if (g_module_id != 0)
        return refuse(module_id, EBUSY, "this process is a module already");
    int error = make_state_folder("bus");
    if (!error)
        error = bus_address(module_id, &address);
    if (error)
        return refuse(module_id, error, strerror(error));
    const int lock = lock_module(module_id);
    if (lock < 0)
        return refuse(module_id, errno, errno == EAGAIN ? "another process is that module" : strerror(errno));
    const int fd = open_socket(address);
    error = fd < 0 ? errno : serve_module(module_id, handler, fd);
    if (!error)
        return 0;
    if (fd >= 0)
        close(fd);
    close(lock);
    return refuse(module_id, error, strerror(error));
}

/* ---- sending ---- */

static int connect_to(const struct sockaddr_un &address, int *fd)
{
    *fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (*fd < 0)
        return errno;
    return connect(*fd, reinterpret_cast<const struct sockaddr *>(&address), sizeof address) == 0 ? 0 : errno;
}

/* Each wait ends as soon as there is room. */
static int send_patiently(int fd, const struct msghdr &message)
{
    const int64_t deadline = milliseconds_now() + send_patience;

    for (;;) {
        if (sendmsg(fd, &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0)
            return 0;
        if (errno == EINTR)
            continue;
        if (errno != EAGAIN && errno != ENOBUFS)
            return errno;
        const int64_t left = deadline - milliseconds_now();
        if (left <= 0)
            return ENOBUFS;
        struct pollfd room = {fd, POLLOUT, 0};
        poll(&room, 1, static_cast<int>(left));
    }
}

/* A receiver without room gets a socket of its own to be waited for with: what waits at it then
 * counts against nobody else. */
static int send_record(struct sockaddr_un &address, struct msghdr &message)
{
    static const int common = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    int fd = -1;

    message.msg_name = &address;
    message.msg_namelen = sizeof address;
    if (sendmsg(common, &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0)
        return 0;
    message.msg_name = nullptr;
    message.msg_namelen = 0;
    if (errno != EAGAIN && errno != ENOBUFS && errno != EINTR && errno != EBADF)
        return errno;
    int error = connect_to(address, &fd);
    if (!error)
        error = send_patiently(fd, message);
    if (fd >= 0)
        close(fd);
    return error;
}

int init_sockmsg(int module_id, sockmsg_handler handler, int flags)
{
    (void)flags; /* none has a meaning here */
    pthread_mutex_lock(&join_lock);
    const int error = join(module_id, handler);
    pthread_mutex_unlock(&join_lock);
    return error;
}

int sockmsg_send_common_msg(int module_id, const sockmsg_record *record)
{
    struct sockaddr_un address;

    if (module_id <= 0 || !record)
        return EINVAL;
    int error = bus_address(module_id, &address);
    if (error)
        return error;

    /* The caller's record but for the stamp, and no copy of it. */
    auto stamp = static_cast<uint32_t>(g_module_id.load());
    auto *whole = const_cast<sockmsg_record *>(record); /* only read */
    struct iovec pieces[] = {{whole, offsetof(sockmsg_record, sender_module_id)},
                             {&stamp, sizeof stamp},
                             {&whole->sender_extra, sizeof whole->sender_extra}};
    struct msghdr message = {};
    message.msg_iov = pieces;
    message.msg_iovlen = 3;
    error = send_record(address, message);
    return error == ENOENT ? ECONNREFUSED : error; /* never joined, or gone: all the same to the caller */
}

const char *get_app_name_by_id(int module_id)
{
    for (const application &a : applications) {
        if (module_id >= a.first && module_id <= a.last)
            return a.name;
    }
    return nullptr;
}
