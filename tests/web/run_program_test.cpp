/* Another program, run within bounds. */
#include "run_program.h"

#include <filesystem>
#include <stdexcept>

#include <gtest/gtest.h>

namespace
{

using namespace std::chrono_literals;
using web::program_end;
using web::run_program;

program_end shell(const char *command, std::chrono::milliseconds patience = 20s, size_t most = 100000)
{
    return run_program({"/bin/sh", "-c", command}, patience, most);
}

TEST(RunProgram, GivesWhatItSays)
{
    const program_end end = shell("echo out; echo err >&2; exit 3");
    EXPECT_EQ(end.status, 3);
    EXPECT_EQ(end.out, "out\n");
    EXPECT_EQ(end.err, "err\n");
}

TEST(RunProgram, PassesArgumentsAsTheyAre)
{
    const program_end end = run_program({"/bin/echo", "$(id)", "a b;c"}, 20s, 1000);
    EXPECT_EQ(end.out, "$(id) a b;c\n");
}

TEST(RunProgram, GivesItNothingToRead)
{
    EXPECT_EQ(shell("cat; echo end").out, "end\n");
}

TEST(RunProgram, TellsOfASignal)
{
    EXPECT_EQ(shell("kill -9 $$").status, -1);
}

TEST(RunProgram, ReadsMoreThanAPipeHolds)
{
    EXPECT_EQ(shell("head -c 90000 /dev/zero; head -c 90000 /dev/zero >&2").out.size(), 90000U);
}

TEST(RunProgram, EndsWhatTakesTooLong)
{
    EXPECT_THROW(shell("sleep 100", 100ms), std::runtime_error);
    EXPECT_THROW(shell("exec >&- 2>&-; sleep 100", 100ms), std::runtime_error) << "also when it says nothing more";
}

TEST(RunProgram, EndsWhatSaysTooMuch)
{
    EXPECT_THROW(shell("cat /dev/zero", 20s, 1000), std::runtime_error);
    EXPECT_THROW(shell("cat /dev/zero >&2", 20s, 1000), std::runtime_error);
}

TEST(RunProgram, SaysWhatIsNotThere)
{
    EXPECT_THROW(run_program({"/nowhere/at/all"}, 1s, 100), std::runtime_error);
}

size_t open_files()
{
    size_t count = 0;
    for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator("/proc/self/fd"))
        count++;
    return count;
}

TEST(RunProgram, LeavesNothingOpen)
{
    const size_t before = open_files();
    shell("true");
    EXPECT_THROW(shell("sleep 100", 10ms), std::runtime_error);
    EXPECT_THROW(run_program({"/nowhere"}, 1s, 100), std::runtime_error);
    EXPECT_EQ(open_files(), before);
}

} // namespace
