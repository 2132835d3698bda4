/* A directory of its own for every test, and what the tests need to look into it. */
#ifndef TESTS_PLATFORM_SANDBOX_H
#define TESTS_PLATFORM_SANDBOX_H

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/types.h>
#include <vector>

class sandbox : public testing::Test
{
protected:
    sandbox();
    ~sandbox() override;

    std::string path(const std::string &name) const { return directory + "/" + name; }

    std::string directory; /* removed at the end */
    std::string state;     /* DV_PLATFORM_ROOT; not there yet */
    std::string log;       /* DV_PLATFORM_LOG; syslog is off */
};

std::string read_text(const std::string &path); /* "(none)" when there is no such file */
void write_text(const std::string &path, const std::string &text);
std::vector<std::string> lines_of(const std::string &path);
std::vector<std::string> entries_of(const std::string &path); /* sorted, without "." and ".." */
unsigned mode_of(const std::string &path);                    /* the permission bits; 0 when missing */

/* What a command writes, run without the library under test. */
std::string plainly(const std::string &command);

/* Runs `act` in a child that has become this user and group, with no other groups; its exit status,
 * or -1. The caller is root. */
int run_as(uid_t user, gid_t group, const std::function<int()> &act);

constexpr uid_t nobody = 65534;
constexpr gid_t no_group = 65534;

#endif
