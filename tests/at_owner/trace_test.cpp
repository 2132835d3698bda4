/* The form of a trace line, which other programs read. */
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <sys/stat.h>
#include <unistd.h>

#include "trace.h"

namespace
{

TEST(Trace, Escapes)
{
    EXPECT_EQ(at_owner::escaped("\r\n+CMGF: 0\\\x1A\x7F\xC3\xA9\r\n"), "\\r\\n+CMGF: 0\\\\\\x1A\\x7F\\xC3\\xA9\\r\\n");
}

TEST(Trace, AppendsLinesThatOthersCannotRead)
{
    char path[] = "/tmp/at_owner_trace_XXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    unlink(path);
    for (int i = 0; i < 2; i++) {
        at_owner::trace t;
        ASSERT_TRUE(t.open(path));
        t.item('>', "AT\r");
    }
    struct stat status {
    };
    ASSERT_EQ(stat(path, &status), 0);
    EXPECT_EQ(status.st_mode & 07, 0u);
    std::ifstream in(path);
    std::string line;
    int lines = 0;
    const std::regex form(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z > AT\\r)");
    for (; std::getline(in, line); lines++)
        EXPECT_TRUE(std::regex_match(line, form)) << line;
    EXPECT_EQ(lines, 2);
    unlink(path);
}

TEST(Trace, CannotBeOpened)
{
    at_owner::trace t;
    EXPECT_FALSE(t.open("/nowhere/at/all"));
    t.item('>', "AT\r"); /* nothing happens */
}

} // namespace
