/* How long others wait for the daemon: its start, and from one record to the next, beside processes that do nothing but
 * hand a datagram of the same size on. This program is client and owner of the AT port at once; the modem answers at
 * once. Everything lies in memory. Rounds are interleaved.
 *
 *     waiting DAEMON [--rounds N] [--starts N] [--json FILE] */
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "at_msg.h"
#include "devinfo.h"
#include "sms_msg.h"
#include "sockmsg.h"

namespace
{

using Clock = std::chrono::steady_clock;
using Series = std::vector<double>; /* microseconds */

constexpr int patience = 20'000; /* milliseconds until it is taken for lost */

std::string scratch; /* the directory of all that is done here */

double since(Clock::time_point start)
{
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

[[noreturn]] void give_up(const std::string &why)
{
    fprintf(stderr, "%s\n", why.c_str());
    std::filesystem::remove_all(scratch);
    exit(1);
}

/* --- datagrams --- */

sockaddr_un address_of(const std::string &path)
{
    sockaddr_un address = {};

    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        give_up(path + " is too long");
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

int socket_at(const std::string &path)
{
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = address_of(path);

    if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        give_up("no socket at " + path);
    return fd;
}

bool send_to(int fd, const sockaddr_un &address, const sockmsg_record &record)
{
    return sendto(fd, &record, sizeof record, 0, reinterpret_cast<const sockaddr *>(&address), sizeof address) > 0;
}

bool await(int fd, sockmsg_record *record, int milliseconds = patience)
{
    pollfd ready = {fd, POLLIN, 0};

    return recv(fd, record, sizeof *record, MSG_DONTWAIT) > 0 ||
           (poll(&ready, 1, milliseconds) > 0 && recv(fd, record, sizeof *record, 0) > 0);
}

/* --- bare processes --- */

/* So many processes, each of which hands what it gets to the next; the last one gives it back. */
struct Chain {
    sockaddr_un first;
    int back; /* where it arrives again */
};

pid_t start_child()
{
    const pid_t parent = getpid(), child = fork();

    if (child == 0 && (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || getppid() != parent))
        _exit(1);
    return child;
}

Chain start_chain(int length, std::vector<pid_t> *children)
{
    const std::string name = scratch + "/chain" + std::to_string(length) + ".";
    const int back = socket_at(name + "back");

    for (int link = 0; link < length; link++) {
        const int fd = socket_at(name + std::to_string(link));
        const sockaddr_un next = address_of(name + (link + 1 < length ? std::to_string(link + 1) : "back"));
        const pid_t child = start_child();

        if (child == 0)
            for (sockmsg_record record; recv(fd, &record, sizeof record, 0) > 0;)
                if (!send_to(fd, next, record))
                    _exit(1);
        children->push_back(child);
        close(fd);
    }
    return {address_of(name + "0"), back};
}

double hand_round(const Chain &chain)
{
    sockmsg_record record = {};
    const Clock::time_point start = Clock::now();

    if (!send_to(chain.back, chain.first, record) || !await(chain.back, &record))
        give_up("a datagram was lost");
    return since(start);
}

/* --- the daemon --- */

class Router
{
public:
    explicit Router(const std::string &daemon) : daemon_(daemon)
    {
        for (const char *folder : {"bus", "cfg", "flag", "devinfo"})
            std::filesystem::create_directories(platform_ + folder);
        set("cfg/SYS_SMS_SW", "1");
        set("cfg/SYS_SMS_MAX_SAVE_SIZE", "2000");
        set("devinfo/" + std::to_string(DEVINFO_SIM_READY), "1");
        set("devinfo/" + std::to_string(DEVINFO_NETWORK_STATE), "LTE");
        owner_ = socket_at(platform_ + "bus/5");
        manager_ = address_of(platform_ + "bus/27");
    }

    /* Microseconds until it says that it is initialised, answered at once. */
    double start()
    {
        int out[2];

        std::filesystem::remove_all(scratch + "/mnt");
        std::filesystem::create_directories(scratch + "/mnt/data/sms");
        if (pipe2(out, O_CLOEXEC) != 0)
            give_up("no pipe");
        const Clock::time_point begin = Clock::now();
        child_ = start_child();
        if (child_ == 0) {
            dup2(out[1], STDOUT_FILENO);
            execl(daemon_.c_str(), daemon_.c_str(), "-D", nullptr);
            _exit(1);
        }
        close(out[1]);
        const double taken = answer_until("dv_sms_mgr init complete", out[0], begin);
        close(out[0]);
        return taken;
    }

    void start_quietly()
    {
        std::filesystem::remove_all(scratch + "/mnt");
        child_ = start_child();
        if (child_ == 0) {
            if (freopen("/dev/null", "w", stdout) != nullptr)
                execl(daemon_.c_str(), daemon_.c_str(), nullptr);
            _exit(1);
        }
        sockmsg_record record;
        for (int tries = 0; tries < 400; tries++) { /* until the service is on, requests are dropped */
            while (await(owner_, &record, 50)) {
                const ino_t before = filed();

                answer(record);
                if (strstr(text_of(record), "DORVYSMS") != nullptr)
                    return await_filing(before);
            }
            request();
        }
        give_up("the daemon does not send");
    }

    void stop()
    {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }

    /* One message of two parts: to the first command, and from its answer to the second. */
    void send(Series *first, Series *next)
    {
        const ino_t before = filed();
        sockmsg_record record;

        set("flag/" DV_SMS_MGR_LAST_RECEIVED_MSG, "");
        set("flag/" DV_SMS_MGR_LAST_ERR_CODE, "");
        const Clock::time_point asked = Clock::now();
        request();
        if (!await(owner_, &record))
            give_up("no command came");
        first->push_back(since(asked));
        const Clock::time_point answered = Clock::now();
        answer(record);
        if (!await(owner_, &record))
            give_up("no second command came");
        next->push_back(since(answered));
        answer(record);
        await_filing(before);
    }

private:
    void set(const std::string &name, const char *value) { std::ofstream(platform_ + name) << value; }

    static const char *text_of(const sockmsg_record &record)
    {
        return reinterpret_cast<const char *>(&record) + offsetof(at_request, text);
    }

    void answer(const sockmsg_record &asked)
    {
        static const std::map<std::string, const char *> answers = {
            {"AT+CMGF?\r", "\r\n+CMGF: 0\r\n\r\nOK\r\n"},
            {"AT+CNMI?\r", "\r\n+CNMI: 3,2,0,0,0\r\n\r\nOK\r\n"},
            {"AT+CPMS?\r", "\r\n+CPMS: \"SM\",0,50,\"SM\",0,50,\"SM\",0,50\r\n\r\nOK\r\n"},
            {"AT+CSCS?\r", "\r\n+CSCS: \"IRA\"\r\n\r\nOK\r\n"},
            {"AT+CSCA?\r", "\r\n+CSCA: \"+491710760000\",145\r\n\r\nOK\r\n"},
        };
        const auto known = answers.find(text_of(asked));
        at_request request;
        at_response response = {};
        sockmsg_record record;

        memcpy(&request, &asked, sizeof request);
        response.msg_id = AT_MSG_ID_COMMAND;
        response.magic = AT_MSG_MAGIC;
        response.at_id = request.at_id;
        strcpy(response.text, known != answers.end() ? known->second : "\r\nOK\r\n");
        memcpy(&record, &response, sizeof record);
        if (!send_to(owner_, manager_, record))
            give_up("an answer could not be sent");
    }

    double answer_until(const char *sign, int out, Clock::time_point begin)
    {
        std::string said;

        while (said.find(sign) == std::string::npos) {
            pollfd ready[] = {{owner_, POLLIN, 0}, {out, POLLIN, 0}};
            sockmsg_record record;
            char piece[4096];

            if (poll(ready, 2, patience) <= 0)
                give_up("the daemon does not start: " + said);
            if (ready[0].revents != 0 && recv(owner_, &record, sizeof record, 0) > 0)
                answer(record);
            if (ready[1].revents == 0)
                continue;
            const ssize_t got = read(out, piece, sizeof piece);
            if (got <= 0)
                give_up("the daemon ended: " + said);
            said.append(piece, static_cast<size_t>(got));
        }
        return since(begin);
    }

    void request()
    {
        sockmsg_record record = {};
        auto *payload = reinterpret_cast<sms_payload *>(record.payload);

        record.msg_id = DV_SMS_MGR_MSG_ID_SEND_SMS;
        record.length = SOCKMSG_PAYLOAD_SIZE;
        record.sender_module_id = 50;
        strcpy(payload->phone, "+491710000000");
        memset(payload->text, 'x', 200);
        send_to(owner_, manager_, record); /* not there yet: asked again */
    }

    /* The box's flag is replaced by each filing, behind its sync(). */
    ino_t filed() const
    {
        struct stat flag = {};

        stat((platform_ + "devinfo/" + std::to_string(DEVINFO_SMS_SENT_FULL)).c_str(), &flag);
        return flag.st_ino;
    }

    void await_filing(ino_t before)
    {
        const Clock::time_point start = Clock::now();
        sockmsg_record record;

        while (filed() == before) {
            if (await(owner_, &record, 1))
                answer(record);
            if (since(start) > 1000.0 * patience)
                give_up("the message is not filed");
        }
    }

    std::string daemon_, platform_ = scratch + "/platform/";
    int owner_;
    sockaddr_un manager_;
    pid_t child_ = -1;
};

/* --- what came of it --- */

double at_share(Series series, double share)
{
    std::sort(series.begin(), series.end());
    return series[std::min(series.size() - 1, static_cast<size_t>(share * static_cast<double>(series.size())))];
}

void show(const char *what, const Series &ours, const Series &floor)
{
    const double median = at_share(floor, 0.5), late = at_share(floor, 0.99);

    printf("%-46s median %.0f us (%.2f)   p99 %.0f us (%.2f)\n", what, at_share(ours, 0.5),
           at_share(ours, 0.5) / median, at_share(ours, 0.99), at_share(ours, 0.99) / late);
}

void write_json(const char *path, const std::map<std::string, Series> &all)
{
    std::ofstream out(path);
    const char *between = "{";

    for (const auto &[name, series] : all) {
        out << between << "\n  \"" << name << "\": [";
        for (size_t i = 0; i < series.size(); i++)
            out << (i > 0 ? ", " : "") << series[i];
        out << "]";
        between = ",";
    }
    out << "\n}\n";
}

} // namespace

int main(int argc, char **argv)
{
    int rounds = 1500, starts = 5;
    const char *json = nullptr;

    for (int i = 2; i + 1 < argc; i += 2) {
        if (strcmp(argv[i], "--rounds") == 0)
            rounds = atoi(argv[i + 1]);
        else if (strcmp(argv[i], "--starts") == 0)
            starts = atoi(argv[i + 1]);
        else if (strcmp(argv[i], "--json") == 0)
            json = argv[i + 1];
    }
    if (argc < 2 || rounds < 1 || starts < 1) {
        fprintf(stderr, "usage: waiting DAEMON [--rounds N] [--starts N] [--json FILE]\n");
        return 2;
    }
    const std::string daemon = std::filesystem::absolute(argv[1]);
    scratch = "/dev/shm/waiting.XXXXXX";
    if (mkdtemp(scratch.data()) == nullptr || chdir(scratch.c_str()) != 0)
        give_up("no directory in /dev/shm");
    setenv("DV_PLATFORM_ROOT", (scratch + "/platform").c_str(), 1);
    setenv("DV_PLATFORM_SYSLOG", "0", 1);

    std::map<std::string, Series> all;
    std::vector<pid_t> children;
    Router router(daemon);
    const Chain one = start_chain(1, &children), three = start_chain(3, &children);

    for (int i = 0; i < starts; i++) {
        all["start"].push_back(router.start());
        router.stop();
    }
    router.start_quietly();
    for (int i = 0; i < rounds; i++) {
        router.send(&all["request to command"], &all["answer to next command"]);
        all["one process"].push_back(hand_round(one));
        all["three processes"].push_back(hand_round(three));
    }
    router.stop();
    for (const pid_t child : children) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    std::filesystem::remove_all(scratch);

    show("three processes hand a datagram on", all["three processes"], all["three processes"]);
    show("one process hands it on", all["one process"], all["three processes"]);
    show("from request to AT command", all["request to command"], all["three processes"]);
    show("from AT answer to the next part's command", all["answer to next command"], all["three processes"]);
    printf("%-46s median %.1f ms, longest %.1f ms\n", "start, beyond the second that is fixed",
           at_share(all["start"], 0.5) / 1000 - 1000, at_share(all["start"], 1) / 1000 - 1000);
    if (json != nullptr)
        write_json(json, all);
    return 0;
}
