#include "state.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace dvplatform
{

static std::atomic<unsigned> g_temporary_count{0};

int64_t milliseconds_now()
{
    struct timespec now = {};

    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

static std::string folder_of(const std::string &path)
{
    const size_t slash = path.rfind('/');

    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string state_path(std::string_view folder, std::string_view name)
{
    const char *root = getenv("DV_PLATFORM_ROOT");
    std::string path = root && *root ? root : "/run/dvplatform";

    path.append("/").append(folder);
    if (!name.empty())
        path.append("/").append(name);
    return path;
}

/* A set-group-id bit that the directory above hands down stays. */
static int make_folder(const std::string &path)
{
    struct stat made = {};

    if (mkdir(path.c_str(), folder_mode) != 0)
        return errno == EEXIST ? 0 : errno;
    if (stat(path.c_str(), &made) != 0 || chmod(path.c_str(), (made.st_mode & S_ISGID) | folder_mode) != 0)
        return errno;
    return 0;
}

int make_state_folder(std::string_view folder)
{
    const std::string path = state_path(folder);
    struct stat status = {};
    int error = 0;

    if (stat(path.c_str(), &status) == 0)
        return S_ISDIR(status.st_mode) ? 0 : ENOTDIR;
    for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        const std::string above = path.substr(0, slash);
        if (stat(above.c_str(), &status) == 0)
            continue;
        error = make_folder(above);
        if (error)
            return error;
    }
    error = make_folder(path);
    if (!error && stat(folder_of(path).c_str(), &status) == 0)
        (void)!chown(path.c_str(), static_cast<uid_t>(-1), status.st_gid); /* not allowed: stays as it is */
    return error;
}

void share_file(int fd, const std::string &path, mode_t mode)
{
    struct stat folder = {}, file = {};

    if (stat(folder_of(path).c_str(), &folder) == 0 && fstat(fd, &file) == 0 && folder.st_gid != file.st_gid)
        (void)!fchown(fd, static_cast<uid_t>(-1), folder.st_gid); /* not allowed: stays with its owner */
    (void)fchmod(fd, mode);
}

std::string temporary_name(std::string_view name)
{
    const unsigned count = g_temporary_count.fetch_add(1, std::memory_order_relaxed);
    struct timespec now = {};
    char suffix[64];

    clock_gettime(CLOCK_REALTIME, &now); /* a process of an earlier boot may have had this number */
    snprintf(suffix, sizeof suffix, ".%ld.%u.%lx", static_cast<long>(getpid()), count,
             static_cast<unsigned long>(now.tv_nsec));
    return std::string(".").append(name).append(suffix);
}

int read_file(const char *path, size_t limit, std::string *text)
{
    char piece[4096];
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    int error = 0;

    if (fd < 0)
        return errno;
    text->clear();
    while (text->size() < limit) {
        const size_t want = limit - text->size() < sizeof piece ? limit - text->size() : sizeof piece;
        const ssize_t got = read(fd, piece, want);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            error = errno;
        if (got <= 0)
            break;
        text->append(piece, static_cast<size_t>(got));
    }
    close(fd);
    return error;
}

int write_all(int fd, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t done = write(fd, text.data(), text.size());
        if (done < 0 && errno == EINTR)
            continue;
        if (done < 0)
            return errno;
        text.remove_prefix(static_cast<size_t>(done));
    }
    return 0;
}

int fill_and_rename(int fd, const std::string &temporary, const std::string &path, std::string_view text, bool durable)
{
    int error = write_all(fd, text);

    if (!error && durable && fsync(fd) != 0)
        error = errno;
    if (close(fd) != 0 && !error)
        error = errno;
    if (!error && rename(temporary.c_str(), path.c_str()) != 0)
        error = errno;
    if (error)
        unlink(temporary.c_str());
    return error;
}

} // namespace dvplatform
