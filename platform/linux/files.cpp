/* Files read, replaced and removed, without a shell. */
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <set>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "state.h"
#include "utf8.h"
#include "util.h"

using namespace dvplatform;

struct target {
    std::string folder, name; /* of the file itself, not of a link to it */
    struct stat status;
    bool exists;
};

/* A link stays a link: its target is what gets the text. */
static int find_target(const char *path, target *out)
{
    struct stat link = {};
    std::string real = path;

    if (lstat(path, &link) == 0 && S_ISLNK(link.st_mode)) {
        char *resolved = realpath(path, nullptr);
        if (!resolved)
            return errno;
        real = resolved;
        free(resolved);
    }
    const size_t slash = real.rfind('/');
    out->folder = slash == std::string::npos ? "." : real.substr(0, slash + 1);
    out->name = slash == std::string::npos ? real : real.substr(slash + 1);
    out->exists = stat(real.c_str(), &out->status) == 0;
    return out->name.empty() ? EISDIR : 0;
}

/* A directory that replace_content works in is named after its process; true: that one is gone. */
static bool is_abandoned(const char *name)
{
    char *end = nullptr;

    if (name[0] != '.' || name[1] != '.' || name[2] < '1' || name[2] > '9')
        return false;
    const long pid = strtol(name + 2, &end, 10);
    return *end == '.' && pid == static_cast<pid_t>(pid) &&
           (pid == getpid() || (kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH));
}

static void remove_folder(const std::string &path)
{
    DIR *folder = opendir(path.c_str());

    while (const dirent *entry = folder ? readdir(folder) : nullptr)
        (void)unlinkat(dirfd(folder), entry->d_name, 0);
    if (folder)
        closedir(folder);
    rmdir(path.c_str());
}

/* Takes away what a change left that a power failure, or a kill, cut short: once a folder, before this
 * process itself changes anything in it. */
static void sweep(const std::string &path)
{
    static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    static auto *swept = new std::set<std::string>; /* stays: other threads may outlive the destructors */
    static constexpr size_t folders_remembered = 64;

    pthread_mutex_lock(&lock);
    if (swept->size() < folders_remembered && swept->insert(path).second) {
        DIR *folder = opendir(path.c_str());
        while (const dirent *entry = folder ? readdir(folder) : nullptr)
            if (is_abandoned(entry->d_name))
                remove_folder(path + "/" + entry->d_name);
        if (folder)
            closedir(folder);
    }
    pthread_mutex_unlock(&lock);
}

/* The new content is prepared in a hidden directory of its own inside the target's directory: on
 * the same file system for certain, and at no moment a file in the target's directory, which the
 * store's owner counts and lists. */
static int replace_content(const target &file, std::string_view text, const std::string &workshop)
{
    const std::string temporary = workshop + "/" + file.name;
    const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);

    if (fd < 0)
        return errno;
    if (file.exists) {
        (void)!fchown(fd, file.status.st_uid, file.status.st_gid); /* only the super-user may always */
        (void)fchmod(fd, file.status.st_mode & 07777);
    }
    return fill_and_rename(fd, temporary, file.folder + "/" + file.name, text, true);
}

/* For what is no regular file, and where the directory takes no new entry. */
static int overwrite(const target &file, std::string_view text)
{
    const std::string path = file.folder + "/" + file.name;
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0666);

    if (fd < 0)
        return errno;
    int error = write_all(fd, text);
    if (close(fd) != 0 && !error)
        error = errno;
    return error;
}

int cmd_cat(const char *path, char *buffer, int size)
{
    std::string text;

    if (!path || !buffer || size <= 0)
        return EINVAL;
    const int error = read_file(path, static_cast<size_t>(size) + 3, &text);
    if (!error)
        copy_out(text, buffer, size);
    return error;
}

int cmd_echo(const char *text, const char *path)
{
    target file = {};

    if (!text || !path || *path == '\0')
        return EINVAL;
    int error = find_target(path, &file);
    if (error)
        return error;
    if (file.exists && !S_ISREG(file.status.st_mode))
        return overwrite(file, text);
    if (file.exists && access(path, W_OK) != 0)
        return errno; /* write protection protects from being replaced, too */

    sweep(file.folder);
    const std::string workshop = file.folder + "/" + temporary_name("");
    if (mkdir(workshop.c_str(), 0700) != 0)
        return file.exists && errno != ENOENT ? overwrite(file, text) : errno;
    error = replace_content(file, text, workshop);
    rmdir(workshop.c_str());
    return error;
}

int cmd_rm(const char *path)
{
    if (!path || *path == '\0')
        return EINVAL;
    return unlink(path) == 0 ? 0 : errno;
}
