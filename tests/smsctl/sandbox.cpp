#include "sandbox.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

sandbox::sandbox()
{
    char name[] = "/tmp/sms_client_XXXXXX";
    if (mkdtemp(name) == nullptr)
        std::abort();
    root_ = name;
    fs::create_directories(root_ + "/platform");
    setenv("DV_PLATFORM_ROOT", (root_ + "/platform").c_str(), 1);
    setenv("DV_PLATFORM_SYSLOG", "0", 1);
}

sandbox::~sandbox()
{
    fs::remove_all(root_);
}

/* As the daemon does: another file takes the place of the one before. */
void sandbox::write(const std::string &path, const std::string &content) const
{
    const fs::path whole = root_ + "/" + path;
    const std::string fresh = root_ + "/fresh";
    fs::create_directories(whole.parent_path());
    std::ofstream(fresh, std::ios::binary) << content;
    fs::rename(fresh, whole);
}

void sandbox::remove(const std::string &path) const
{
    fs::remove_all(root_ + "/" + path);
}
