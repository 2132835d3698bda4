/* Makes the file system that holds the message store fail as a worn or missing flash does. Preloaded; what is wrong
 * stands in the file that BAD_FLASH names and is looked up at each call:
 *   full       no free space, and nothing can be written
 *   brim       the same, but the free space that is told is plenty: writing begins and breaks off
 *   readonly   nothing can be created, changed or removed
 *   gone       there is no such directory
 * and anything else, or no such file: nothing. The store is whatever path has "mnt/data/sms" in it. */
#define _GNU_SOURCE
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <unistd.h>

enum fault { NONE, FULL, BRIM, READONLY, GONE };

static void *find(const char *name)
{
    void *symbol = dlsym(RTLD_NEXT, name);

    if (symbol == NULL)
        abort();
    return symbol;
}

static enum fault read_fault(void)
{
    static const char *const names[] = {"", "full", "brim", "readonly", "gone"};
    const char *control = getenv("BAD_FLASH");
    char text[16] = "";
    const long fd = control == NULL ? -1 : syscall(SYS_openat, AT_FDCWD, control, O_RDONLY | O_CLOEXEC);

    if (fd < 0)
        return NONE;
    if (syscall(SYS_read, fd, text, sizeof(text) - 1) < 0)
        text[0] = '\0';
    syscall(SYS_close, fd);
    for (int each = FULL; each <= GONE; each++)
        if (strcmp(text, names[each]) == 0)
            return (enum fault)each;
    return NONE;
}

static enum fault fault_of(const char *path)
{
    return path != NULL && strstr(path, "mnt/data/sms") != NULL ? read_fault() : NONE;
}

/* The fault of what is to be changed under this path; errno is set. 0: none. */
static int refuses_change(const char *path)
{
    const enum fault fault = fault_of(path);

    if (fault == READONLY || fault == GONE)
        errno = fault == GONE ? ENOENT : EROFS;
    return fault == READONLY || fault == GONE;
}

static int refuses_look(const char *path)
{
    if (fault_of(path) != GONE)
        return 0;
    errno = ENOENT;
    return 1;
}

int open(const char *path, int flags, ...)
{
    int (*next)(const char *, int, ...);
    va_list arguments;
    mode_t mode = 0;

    *(void **)&next = find("open");
    if (flags & (O_CREAT | O_TMPFILE)) {
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    if ((flags & O_ACCMODE) == O_RDONLY ? refuses_look(path) : refuses_change(path))
        return -1;
    return next(path, flags, mode);
}

/* A stream that takes what it is given and cannot write it stands for one on a full flash. */
FILE *fopen(const char *path, const char *mode)
{
    FILE *(*next)(const char *, const char *);
    const enum fault fault = fault_of(path);

    *(void **)&next = find("fopen");
    if (*mode == 'r' ? refuses_look(path) : refuses_change(path))
        return NULL;
    if (*mode == 'r' || (fault != FULL && fault != BRIM))
        return next(path, mode);
    FILE *file = next(path, mode);
    if (file == NULL)
        return NULL;
    fclose(file);
    return next("/dev/full", mode);
}

ssize_t write(int fd, const void *data, size_t size)
{
    ssize_t (*next)(int, const void *, size_t);
    char path[256] = "", name[64];

    *(void **)&next = find("write");
    snprintf(name, sizeof(name), "/proc/self/fd/%d", fd);
    if (readlink(name, path, sizeof(path) - 1) > 0) {
        const enum fault fault = fault_of(path);
        if (fault == FULL || fault == BRIM) {
            errno = ENOSPC;
            return -1;
        }
    }
    return next(fd, data, size);
}

int mkdir(const char *path, mode_t mode)
{
    int (*next)(const char *, mode_t);

    *(void **)&next = find("mkdir");
    return refuses_change(path) ? -1 : next(path, mode);
}

int rename(const char *from, const char *to)
{
    int (*next)(const char *, const char *);

    *(void **)&next = find("rename");
    return refuses_change(to) ? -1 : next(from, to);
}

int unlink(const char *path)
{
    int (*next)(const char *);

    *(void **)&next = find("unlink");
    return refuses_change(path) ? -1 : next(path);
}

int unlinkat(int folder, const char *path, int flags)
{
    int (*next)(int, const char *, int);

    *(void **)&next = find("unlinkat");
    return refuses_change(path) ? -1 : next(folder, path, flags);
}

int access(const char *path, int mode)
{
    int (*next)(const char *, int);

    *(void **)&next = find("access");
    return refuses_look(path) || ((mode & W_OK) && refuses_change(path)) ? -1 : next(path, mode);
}

DIR *opendir(const char *path)
{
    DIR *(*next)(const char *);

    *(void **)&next = find("opendir");
    return refuses_look(path) ? NULL : next(path);
}

int statfs(const char *path, struct statfs *out)
{
    int (*next)(const char *, struct statfs *);

    *(void **)&next = find("statfs");
    if (refuses_look(path))
        return -1;
    const int result = next(path, out);
    if (result == 0 && fault_of(path) == FULL)
        out->f_bavail = out->f_bfree = 0;
    return result;
}
