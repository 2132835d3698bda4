/* A directory of its own for a store and a platform, gone when the test ends. */
#ifndef SMS_CLIENT_TEST_SANDBOX_H
#define SMS_CLIENT_TEST_SANDBOX_H

#include <string>

#include "store.h"

class sandbox
{
public:
    sandbox();
    ~sandbox();
    sandbox(const sandbox &) = delete;
    sandbox &operator=(const sandbox &) = delete;

    const std::string &root() const { return root_; }
    sms_client::store store() const { return sms_client::store(root_ + "/sms"); }

    /* Paths are relative to the sandbox; folders are made. */
    void write(const std::string &path, const std::string &content) const;
    void remove(const std::string &path) const;
    void cfg(const std::string &key, const std::string &value) const { write("platform/cfg/" + key, value); }
    void item(int id, const std::string &value) const { write("platform/devinfo/" + std::to_string(id), value); }

private:
    std::string root_;
};

#endif
