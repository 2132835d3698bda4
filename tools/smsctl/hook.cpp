#include "hook.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#ifdef SMSCTL_HAS_CURL
#include <curl/curl.h> /* TLS, proxies, time-outs: nothing to write oneself */
#endif

#include "command.h"
#include "text.h"

extern char **environ;

namespace smsctl
{
namespace
{

using clock = std::chrono::steady_clock;

/* A file that is already gone, so nothing can block on a program that does not read. */
FILE *input_with(const std::string &text)
{
    FILE *file = std::tmpfile();
    if (file == nullptr)
        return nullptr;
    const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size() && std::fflush(file) == 0 &&
                         std::fseek(file, 0, SEEK_SET) == 0;
    if (!written) {
        std::fclose(file);
        return nullptr;
    }
    return file;
}

std::vector<std::string> environment_for(const sms_client::message &m)
{
    std::vector<std::string> out;
    for (char **entry = environ; *entry != nullptr; entry++)
        if (std::strncmp(*entry, "SMS_", 4) != 0)
            out.emplace_back(*entry);
    const auto add = [&out](const char *name, const std::string &value) {
        out.push_back(std::string(name) + "=" + sms_client::make_readable(value.substr(0, value.find('\0'))).text);
    };
    add("SMS_BOX", sms_client::facts_of(m.where).name);
    add("SMS_NUMBER", std::to_string(m.number));
    add("SMS_STATE", m.state_word());
    add("SMS_PHONE", m.phone);
    add("SMS_DATE", m.date);
    return out;
}

/* The child: nothing but calls that are safe after fork. */
[[noreturn]] void become(const std::string &program, FILE *input, char *const *environment)
{
    char *const arguments[] = {const_cast<char *>(program.c_str()), nullptr};
    setpgid(0, 0);
    for (const int number : {SIGINT, SIGTERM, SIGPIPE})
        signal(number, SIG_DFL);
    if (dup2(fileno(input), STDIN_FILENO) >= 0) {
        environ = const_cast<char **>(environment);
        execvp(program.c_str(), arguments);
    }
    _exit(127);
}

/* Its exit status; -1 when it had to be ended. */
int await_end(pid_t child, double seconds)
{
    const auto deadline = clock::now() + std::chrono::milliseconds(static_cast<long>(seconds * 1000));
    int status = 0;
    for (;;) {
        const pid_t got = waitpid(child, &status, WNOHANG);
        if (got == child)
            return status;
        if (got < 0 && errno != EINTR)
            return -1;
        if (clock::now() >= deadline || stop_requested)
            break;
        sms_client::pause(std::chrono::milliseconds(20));
    }
    kill(-child, SIGKILL); /* and what it has started */
    waitpid(child, &status, 0);
    return -1;
}

} // namespace

bool run_program(const std::string &program, const sms_client::message &m, double seconds)
{
    FILE *input = input_with(sms_client::make_readable(m.text).text);
    if (input == nullptr) {
        complain("%s: no temporary file: %s", program.c_str(), std::strerror(errno));
        return false;
    }
    const std::vector<std::string> words = environment_for(m);
    std::vector<char *> environment;
    for (const std::string &word : words)
        environment.push_back(const_cast<char *>(word.c_str()));
    environment.push_back(nullptr);
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0)
        become(program, input, environment.data());
    std::fclose(input);
    if (child < 0) {
        complain("%s: %s", program.c_str(), std::strerror(errno));
        return false;
    }
    const int status = await_end(child, seconds);
    if (status == -1)
        complain("%s: was still running and has been ended", program.c_str());
    else if (WIFEXITED(status) && WEXITSTATUS(status) == 127)
        complain("%s: cannot be run", program.c_str());
    else if (WIFEXITED(status) && WEXITSTATUS(status) != 0)
        complain("%s: exit code %d", program.c_str(), WEXITSTATUS(status));
    else if (WIFSIGNALED(status))
        complain("%s: ended by signal %d", program.c_str(), WTERMSIG(status));
    return status == 0;
}

std::string complaint_about_url(const std::string &url)
{
#ifdef SMSCTL_HAS_CURL
    return url.starts_with("http://") || url.starts_with("https://") ? ""
                                                                     : "not an http:// or https:// address: " + url;
#else
    return url + ": this smsctl was built without libcurl";
#endif
}

#ifdef SMSCTL_HAS_CURL

namespace
{

constexpr int most_tries = 3;
constexpr std::chrono::milliseconds first_pause{1000};

size_t ignore_body(char *, size_t size, size_t count, void *)
{
    return size * count;
}

/* Worth another try: nobody there, or a server that says that it has a problem. */
enum class posted { good, bad, try_again };

posted post_once(const std::string &url, const std::string &body, double seconds, std::string &why)
{
    const std::unique_ptr<CURL, void (*)(CURL *)> handle(curl_easy_init(), curl_easy_cleanup);
    const std::unique_ptr<curl_slist, void (*)(curl_slist *)> headers(
        curl_slist_append(nullptr, "Content-Type: application/json"), curl_slist_free_all);
    if (!handle || !headers)
        return posted::try_again;
    CURL *c = handle.get();
    curl_easy_setopt(c, CURLOPT_URL, url.c_str());
    curl_easy_setopt(c, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(c, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(c, CURLOPT_USERAGENT, "smsctl/" DV_VERSION);
    curl_easy_setopt(c, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    curl_easy_setopt(c, CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(c, CURLOPT_TIMEOUT_MS, static_cast<long>(seconds * 1000));
    curl_easy_setopt(c, CURLOPT_WRITEFUNCTION, ignore_body);
    const CURLcode result = curl_easy_perform(c);
    long status = 0;
    curl_easy_getinfo(c, CURLINFO_RESPONSE_CODE, &status);
    if (result != CURLE_OK) {
        why = curl_easy_strerror(result);
        return posted::try_again;
    }
    why = "answer " + std::to_string(status);
    return status / 100 == 2 ? posted::good : status / 100 == 5 || status == 429 ? posted::try_again : posted::bad;
}

} // namespace

bool post_message(const std::string &url, const sms_client::message &m, double seconds)
{
    static const CURLcode ready = curl_global_init(CURL_GLOBAL_DEFAULT);
    const std::string body = sms_client::dump(sms_client::to_json(m));
    std::string why = "libcurl cannot start";
    std::chrono::milliseconds wait = first_pause;
    for (int tries = 0; ready == CURLE_OK && tries < most_tries && !stop_requested; tries++, wait *= 2) {
        if (tries > 0)
            sms_client::pause(wait);
        const posted p = post_once(url, body, seconds, why);
        if (p == posted::good)
            return true;
        if (p == posted::bad)
            break;
    }
    complain("%s: %s", url.c_str(), why.c_str());
    return false;
}

#else

bool post_message(const std::string &, const sms_client::message &, double)
{
    return false;
}

#endif

} // namespace smsctl
