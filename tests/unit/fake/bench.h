/* The fixture of every unit test: a scratch directory of its own as the working directory, the fake
 * platform and the seams as at first, tracing on and standard output captured. */
#ifndef BENCH_H
#define BENCH_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fake/fake_modem.h"
#include "fake/fake_platform.h"
#include "fake/seams.h"

/* A located trace line: "%s--%s--%d: message". */
struct trace_line {
    std::string file;
    std::string function;
    int line;
    std::string message; /* up to the line's end; control characters visible */
};

class bench : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    fake::platform &platform = fake::the_platform();
    fake::modem &modem = fake::the_modem();

    std::string scratch; /* the directory's absolute path */

    /* What was written to standard output since the start or the last forget(). */
    std::string output();
    std::vector<std::string> output_lines(); /* without their line ends, visible */
    std::vector<trace_line> trace_lines();   /* the located ones */
    std::vector<std::string> traced();       /* those as "function: message" */

    /* The lines of the persistent log at this level, as "function: message" (the tag taken off). */
    std::vector<std::string> saved(int level = 0);

    /* Once each in the trace, in the log, or in both, under this function's name. */
    bool in_trace(const std::string &function, const std::string &message);
    bool in_log(const std::string &function, const std::string &message);

    void forget(); /* output and calls */

    /* --- files below the scratch directory --- */
    static void write_file(const std::string &path, const std::string &content); /* makes the directories too */
    static std::string read_file(const std::string &path);                       /* "(none)" when it is not there */
    static bool exists(const std::string &path);

private:
    std::string before_;
    int stdout_ = -1;
    long output_from_ = 0;
};

/* Exactly one trace line, exactly one line at level 0, or one of each, with this text under this name. */
#define EXPECT_TRACED(function, message) EXPECT_TRUE(in_trace(function, message)) << ::testing::PrintToString(traced())
#define EXPECT_SAVED(function, message) EXPECT_TRUE(in_log(function, message)) << ::testing::PrintToString(saved())
#define EXPECT_BOTH(function, message)                                                                                 \
    do {                                                                                                               \
        EXPECT_TRACED(function, message);                                                                              \
        EXPECT_SAVED(function, message);                                                                               \
    } while (0)
#define EXPECT_ONLY_TRACED(function, message)                                                                          \
    do {                                                                                                               \
        EXPECT_TRACED(function, message);                                                                              \
        EXPECT_FALSE(in_log(function, message)) << ::testing::PrintToString(saved());                                  \
    } while (0)
#define EXPECT_ONLY_SAVED(function, message)                                                                           \
    do {                                                                                                               \
        EXPECT_SAVED(function, message);                                                                               \
        EXPECT_FALSE(in_trace(function, message)) << ::testing::PrintToString(traced());                               \
    } while (0)

/* A buffer of exactly `size` bytes with a marker of 64 behind it: intact() says whether it survived.
 * The sanitizers see less than the marker does, since a structure's fields lie side by side. */
class marked_buffer
{
public:
    explicit marked_buffer(size_t size, char filling = '\0') : size_(size), bytes_(size, filling)
    {
        bytes_.resize(size + 64, marker);
    }

    char *data() { return bytes_.data(); }
    uint8_t *octets() { return reinterpret_cast<uint8_t *>(bytes_.data()); }
    size_t size() const { return size_; }
    bool intact() const { return bytes_.find_first_not_of(marker, size_) == std::string::npos; }
    bool untouched_from(size_t position) const
    {
        return bytes_.find_first_not_of(marker, position) == std::string::npos;
    }

    static constexpr char marker = '\x5A';

private:
    size_t size_;
    std::string bytes_;
};

#endif
