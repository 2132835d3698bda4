#include "fake/bench.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "dv_sms_mgr_log.h"

namespace fs = std::filesystem;

static const char output_name[] = ".stdout";

/* Removes the scratch directory of a test that ends its process. A child that was only forked shares
 * its parent's and leaves it alone. */
static struct sweeper {
    std::string directory;
    pid_t owner = 0;

    void sweep()
    {
        if (!directory.empty() && owner == getpid())
            fs::remove_all(directory);
        directory.clear();
    }
    ~sweeper() { sweep(); }
} left_over;

void bench::SetUp()
{
    std::string pattern = (fs::temp_directory_path() / "dv_sms_mgr_XXXXXX").string();

    before_ = fs::current_path();
    ASSERT_NE(nullptr, mkdtemp(pattern.data()));
    scratch = pattern;
    left_over.directory = scratch;
    left_over.owner = getpid();
    ASSERT_EQ(0, chdir(scratch.c_str()));

    fake::the_modem().reset();
    platform.reset();
    platform.unclean_reads();
    seams::reset();

    fflush(stdout);
    stdout_ = dup(STDOUT_FILENO);
    const int file = open(output_name, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    ASSERT_GE(file, 0);
    dup2(file, STDOUT_FILENO);
    close(file);
    debug_mode = 1;
}

void bench::TearDown()
{
    debug_mode = 0;
    modem.reset();
    if (stdout_ >= 0) {
        fflush(stdout);
        dup2(stdout_, STDOUT_FILENO);
        close(stdout_);
        if (HasFailure()) { /* what was expected and missed was written there, too */
            const std::string all = read_file(scratch + "/" + output_name);
            fwrite(all.data(), 1, all.size(), stdout);
        }
    }
    if (!before_.empty() && chdir(before_.c_str()) != 0)
        ADD_FAILURE() << "cannot go back to " << before_;
    left_over.sweep();
    seams::reset();
    platform.reset();
}

std::string bench::output()
{
    std::ifstream file(scratch + "/" + output_name, std::ios::binary);

    fflush(stdout);
    file.seekg(output_from_);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> bench::output_lines()
{
    std::vector<std::string> lines;
    std::istringstream stream(output());

    for (std::string line; std::getline(stream, line);)
        lines.push_back(fake::visible(line));
    return lines;
}

std::vector<trace_line> bench::trace_lines()
{
    std::vector<trace_line> found;

    for (const std::string &line : output_lines()) {
        const size_t first = line.find("--");
        const size_t second = first == std::string::npos ? first : line.find("--", first + 2);
        const size_t colon = second == std::string::npos ? second : line.find(": ", second + 2);
        if (colon == std::string::npos)
            continue;
        const std::string number = line.substr(second + 2, colon - second - 2);
        if (number.empty() || number.find_first_not_of("0123456789") != std::string::npos)
            continue;
        found.push_back({line.substr(0, first), line.substr(first + 2, second - first - 2), std::stoi(number),
                         line.substr(colon + 2)});
    }
    return found;
}

std::vector<std::string> bench::traced()
{
    std::vector<std::string> lines;

    for (const trace_line &line : trace_lines())
        lines.push_back(line.function + ": " + line.message);
    return lines;
}

std::vector<std::string> bench::saved(int level)
{
    const std::string prefix = std::to_string(level) + " [dv_sms_mgr] ";
    std::vector<std::string> lines;

    for (const std::string &line : platform.saved())
        if (line.compare(0, prefix.size(), prefix) == 0)
            lines.push_back(line.substr(prefix.size()));
    return lines;
}

bool bench::in_trace(const std::string &function, const std::string &message)
{
    const std::vector<std::string> lines = traced();
    return std::count(lines.begin(), lines.end(), function + ": " + message) == 1;
}

bool bench::in_log(const std::string &function, const std::string &message)
{
    const std::vector<std::string> lines = saved();
    return std::count(lines.begin(), lines.end(), function + ": " + message) == 1;
}

void bench::forget()
{
    fflush(stdout);
    output_from_ = static_cast<long>(fs::file_size(scratch + "/" + output_name));
    platform.forget();
}

void bench::write_file(const std::string &path, const std::string &content)
{
    const fs::path parent = fs::path(path).parent_path();

    if (!parent.empty())
        fs::create_directories(parent);
    std::ofstream(path, std::ios::binary) << content;
}

std::string bench::read_file(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);

    if (!file)
        return "(none)";
    return {std::istreambuf_iterator<char>(file), {}};
}

bool bench::exists(const std::string &path)
{
    return fs::exists(path);
}
