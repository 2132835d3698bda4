#include "store_seams.h"

#include <dirent.h>
#include <errno.h>

#include <atomic>

extern "C" {
DIR *__real_opendir(const char *path);
dirent *__real_readdir(DIR *dir);
DIR *__wrap_opendir(const char *path);
dirent *__wrap_readdir(DIR *dir);
}

static std::atomic<bool> types_hidden, opendir_fails;

void store_seams::hide_types(bool hidden)
{
    types_hidden = hidden;
}

void store_seams::fail_opendir(bool fails)
{
    opendir_fails = fails;
}

DIR *__wrap_opendir(const char *path)
{
    if (opendir_fails) {
        errno = EMFILE;
        return nullptr;
    }
    return __real_opendir(path);
}

dirent *__wrap_readdir(DIR *dir)
{
    dirent *entry = __real_readdir(dir);

    if (entry != nullptr && types_hidden)
        entry->d_type = DT_UNKNOWN;
    return entry;
}
