#include "sandbox.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

sandbox::sandbox()
{
    std::string name = std::filesystem::temp_directory_path() / "dvplatform.XXXXXX";

    if (!mkdtemp(name.data()))
        abort();
    directory = name;
    state = directory + "/state";
    log = directory + "/log";
    chmod(directory.c_str(), 0755); /* another user gets as far as the state directory */
    setenv("DV_PLATFORM_ROOT", state.c_str(), 1);
    setenv("DV_PLATFORM_LOG", log.c_str(), 1);
    setenv("DV_PLATFORM_SYSLOG", "0", 1);
}

sandbox::~sandbox()
{
    std::error_code ignored;

    std::filesystem::remove_all(directory, ignored);
}

std::string read_text(const std::string &path)
{
    std::ifstream file(path);
    std::ostringstream text;

    if (!file)
        return "(none)";
    text << file.rdbuf();
    return text.str();
}

void write_text(const std::string &path, const std::string &text)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path) << text;
}

std::vector<std::string> lines_of(const std::string &path)
{
    std::ifstream file(path);
    std::vector<std::string> lines;

    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    return lines;
}

std::vector<std::string> entries_of(const std::string &path)
{
    std::vector<std::string> names;

    for (const auto &entry : std::filesystem::directory_iterator(path))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

unsigned mode_of(const std::string &path)
{
    struct stat status = {};

    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

std::string plainly(const std::string &command)
{
    FILE *output = popen(command.c_str(), "r");
    std::string text;

    for (int c; output && (c = fgetc(output)) != EOF;)
        text += static_cast<char>(c);
    if (output)
        pclose(output);
    return text;
}

int run_as(uid_t user, gid_t group, const std::function<int()> &act)
{
    int status = 0;
    const pid_t pid = fork();

    if (pid == 0) {
        if (setgroups(0, nullptr) != 0 || setgid(group) != 0 || setuid(user) != 0)
            _exit(255);
        _exit(act());
    }
    if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status))
        return -1;
    return WEXITSTATUS(status);
}
