#include "scratch.h"

#include <cstdlib>
#include <deque>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "dv_sms_mgr_paths.h"
#include "must.h"

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);

namespace fs = std::filesystem;

namespace scratch
{
namespace
{

std::string directory;
pid_t owner;
auto &kept = *new std::deque<std::string>; /* arguments, to the very end */

void leave()
{
    std::error_code ignored;

    if (getpid() == owner) {
        fs::current_path("/", ignored);
        fs::remove_all(directory, ignored);
    }
}

/* The fuzzer reads its arguments after this, from another directory. */
void make_absolute(char **argument)
{
    const std::string text = *argument;
    size_t path = 0;

    if (text.starts_with("-")) {
        const size_t equals = text.find('=');
        const std::string name = text.substr(0, equals);
        if (name != "-dict" && name != "-artifact_prefix" && name != "-exact_artifact_path")
            return;
        path = equals + 1;
    }
    const bool slash = text.ends_with('/');
    kept.push_back(text.substr(0, path) + fs::absolute(text.substr(path)).string());
    *argument = kept.back().data();
    must(!slash || kept.back().ends_with('/'));
}

} // namespace

/* Makes the directory under TMPDIR, else in memory, and changes into it. */
static void enter(int argc, char **argv)
{
    const char *place = getenv("TMPDIR");
    std::string name = std::string(place != nullptr ? place : fs::exists("/dev/shm") ? "/dev/shm" : "/tmp");

    for (int i = 1; i < argc; i++)
        make_absolute(&argv[i]);
    name += "/dv_fuzz.XXXXXX";
    must(mkdtemp(name.data()) != nullptr);
    directory = name;
    owner = getpid();
    atexit(leave);
    must(chdir(directory.c_str()) == 0);
    must(freopen("/dev/null", "w", stdout) != nullptr);
    fs::create_directories(dv_sms_root);
    for (const dv_sms_box &box : dv_sms_boxes)
        must(mkdir(box.dir, 0777) == 0);
}

static void empty(const char *path)
{
    DIR *dir = opendir(path);

    if (dir == nullptr) {
        must(mkdir(path, 0777) == 0);
        return;
    }
    const int fd = dirfd(dir);
    while (const dirent *entry = readdir(dir))
        if (entry->d_type != DT_DIR)
            unlinkat(fd, entry->d_name, 0);
    closedir(dir);
}

void empty_store()
{
    empty(dv_sms_root);
    for (const dv_sms_box &box : dv_sms_boxes)
        empty(box.dir);
}

void write(const std::string &path, const std::string &content)
{
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);

    must(fd >= 0);
    must(::write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
    close(fd);
}

std::string read(const std::string &path)
{
    std::string content;
    char piece[8192];
    ssize_t got;
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);

    if (fd < 0)
        return content;
    while ((got = ::read(fd, piece, sizeof piece)) > 0)
        content.append(piece, static_cast<size_t>(got));
    close(fd);
    return content;
}

bool exists(const std::string &path)
{
    return access(path.c_str(), F_OK) == 0;
}

int files_in(const std::string &path)
{
    int count = 0;
    DIR *dir = opendir(path.c_str());

    if (dir == nullptr)
        return 0;
    while (const dirent *entry = readdir(dir))
        count += entry->d_type == DT_REG ? 1 : 0;
    closedir(dir);
    return count;
}

} // namespace scratch

/* Called once by the fuzzer, or by the replay, before the first input. */
int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    static auto &arguments = *new std::vector<char *>(*argv, *argv + *argc);

    scratch::kept.emplace_back("-artifact_prefix=./");
    arguments.insert(arguments.begin() + 1,
                     scratch::kept.back().data()); /* one that is given comes later, and counts */
    *argc += 1;
    scratch::enter(*argc, arguments.data());
    arguments.push_back(nullptr);
    *argv = arguments.data();
    return 0;
}
