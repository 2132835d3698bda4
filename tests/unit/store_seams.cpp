#include "store_seams.h"

#include <dirent.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <atomic>

extern "C" {
DIR *__real_opendir(const char *path);
dirent *__real_readdir(DIR *dir);
int __real_rename(const char *from, const char *to);
DIR *__wrap_opendir(const char *path);
dirent *__wrap_readdir(DIR *dir);
int __wrap_rename(const char *from, const char *to);
}

static std::atomic<bool> types_hidden, opendir_fails, rename_fails;
static std::atomic<const char *> vanishing;

void store_seams::hide_types(bool hidden)
{
    types_hidden = hidden;
}

void store_seams::vanish(const char *name)
{
    vanishing = name;
}

void store_seams::fail_opendir(bool fails)
{
    opendir_fails = fails;
}

void store_seams::fail_rename(bool fails)
{
    rename_fails = fails;
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
    if (entry != nullptr && vanishing != nullptr && strcmp(entry->d_name, vanishing) == 0)
        unlinkat(dirfd(dir), entry->d_name, 0);
    return entry;
}

int __wrap_rename(const char *from, const char *to)
{
    if (rename_fails) {
        errno = EXDEV;
        return -1;
    }
    return __real_rename(from, to);
}
