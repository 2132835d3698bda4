/* Notes when files are moved, removed and written by stdio: one line "NANOSECONDS CALL PATH" each, appended to the
 * file that FILE_TIMES names. Preloaded; the time is the real monotonic clock, whatever else is preloaded. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

static void *find(const char *name)
{
    void *symbol = dlsym(RTLD_NEXT, name);

    if (symbol == NULL)
        abort();
    return symbol;
}

static void note(const char *call, const char *path)
{
    const char *log = getenv("FILE_TIMES");
    struct timespec now;
    char line[512];

    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
    const int fd = log == NULL ? -1 : open(log, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd < 0)
        return;
    const int length =
        snprintf(line, sizeof(line), "%lld %s %s\n", (long long)now.tv_sec * 1000000000 + now.tv_nsec, call, path);
    if (write(fd, line, (size_t)length) != length)
        abort();
    close(fd);
}

int rename(const char *from, const char *to)
{
    int (*next)(const char *, const char *);
    *(void **)&next = find("rename");
    const int result = next(from, to);

    note("rename", to);
    return result;
}

int unlink(const char *path)
{
    int (*next)(const char *);
    *(void **)&next = find("unlink");
    const int result = next(path);

    note("unlink", path);
    return result;
}

int unlinkat(int folder, const char *path, int flags)
{
    int (*next)(int, const char *, int);
    *(void **)&next = find("unlinkat");
    const int result = next(folder, path, flags);

    note("unlink", path);
    return result;
}

int fclose(FILE *file)
{
    char path[256] = "", name[64];
    int (*next)(FILE *);
    *(void **)&next = find("fclose");

    snprintf(name, sizeof(name), "/proc/self/fd/%d", fileno(file));
    if (readlink(name, path, sizeof(path) - 1) < 0)
        path[0] = '\0';
    const int result = next(file);

    note("fclose", path);
    return result;
}
