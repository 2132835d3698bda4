/* The store's work on the platform that is installed, beside the least that it takes: the calls of the platform and of
 * the system that a reader of the store can see, each made once. In memory, and without the sync() of both sides: what
 * the flash takes for that is no work of the processor.
 *
 *     store_bench [OPTIONS OF THE BENCHMARK]
 *     store_bench --once WORK WHO      once, with sync(), between two marks that bench/calls looks for */
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "MTKT750/mtkt750_sms_init.h"
#include "cfg.h"
#include "devinfo.h"
#include "dv_sms_mgr_paths.h"
#include "dv_sms_mgr_read.h"
#include "dv_sms_mgr_receive.h"
#include "dv_sms_mgr_text.h"
#include "flag.h"
#include "sms_msg.h"
#include "util.h"

static bool with_sync;

/* Put in place of the C library's by the linker. */
extern "C" void __wrap_sync()
{
    if (with_sync)
        syscall(SYS_sync);
}

namespace
{

constexpr char pdu[] = "07911326040000F0040B911386674523F100004230504170000011D37219947FD741613A685EB697DD2E";
constexpr char incoming[] = " +31687654321 2024/03/05 14:07:00 See you at seven.";
constexpr char outgoing[] = " +491710000000 2024-03-05 14:07:00 See you at seven.";
constexpr int large = 2000, listed = 100;

const dv_sms_box &received = dv_sms_boxes[BOX_RECEIVED];

std::string file_of(const dv_sms_box &box, int number)
{
    return std::string(box.dir) + "/" + std::to_string(number);
}

/* --- what is there before --- */

void write_text(const char *path, int flags, const std::string &text)
{
    const int file = open(path, O_WRONLY | O_CREAT | flags, 0666);

    if (file < 0 || write(file, text.data(), text.size()) < 0)
        abort();
    close(file);
}

void fill_box(const dv_sms_box &box, int count, const char *state_and_rest)
{
    std::string index = " ";

    std::filesystem::remove_all(box.dir);
    std::filesystem::create_directories(box.dir);
    for (int number = 1; number <= count; number++) {
        write_text(file_of(box, number).c_str(), O_TRUNC, std::to_string(number) + state_and_rest);
        index += std::to_string(number) + " ";
    }
    write_text(box.index, O_TRUNC, index);
}

void clear_flags()
{
    flag_set(DV_SMS_MGR_LAST_ERR_CODE, "");
}

void one_in_the_box(int count)
{
    fill_box(received, count, " 1 +31687654321 2024/03/05 14:07:00 See you at seven.");
    fill_box(dv_sms_boxes[BOX_SENT], count, " 1 +491710000000 2024-03-05 14:07:00 See you at seven.");
}

void empty_boxes()
{
    one_in_the_box(1);
    unlink(file_of(received, 1).c_str());
    unlink(file_of(dv_sms_boxes[BOX_SENT], 1).c_str());
}

void full_but_one()
{
    one_in_the_box(large - 1);
}

void full_of_unread()
{
    for (const dv_sms_box &box : dv_sms_boxes)
        fill_box(box, large, (std::string(" 0") + incoming).c_str());
    cmd_echo("2000", dv_sms_unread_path);
    clear_flags();
}

/* --- the floors --- */

int stored_count()
{
    char count[16] = {};

    cmd_cat(dv_sms_unread_path, count, 6);
    return atoi(count);
}

void count_unread_floor(int more)
{
    write_text(dv_sms_unread_path, O_TRUNC, std::to_string(stored_count() + more));
}

/* One look at the box, one message, one entry. */
void file_floor(const dv_sms_box &box, const char *rest)
{
    struct statfs space;
    int files = 0;

    access(box.dir, F_OK);
    get_CFG_int("SYS_SMS_MAX_SAVE_SIZE");
    DIR *directory = opendir(box.dir);
    while (const dirent *entry = readdir(directory))
        files += entry->d_type == DT_REG;
    closedir(directory);
    statfs(box.dir, &space);
    write_text(file_of(box, files + 1).c_str(), O_TRUNC, std::to_string(files + 1) + rest);
    if (box.full_id == received.full_id) {
        get_CFG_int("USR_SMS_REDIRECT_SW");
        count_unread_floor(1);
        set_devinfo_value_by_id(DEVINFO_SMS_UNREAD, "1", 1);
    }
    access(box.index, F_OK);
    write_text(box.index, O_APPEND, std::to_string(files + 1) + " ");
    __wrap_sync();
    set_devinfo_value_by_id(box.full_id, "0", 1);
}

void receive_floor()
{
    file_floor(received, (std::string(" 0") + incoming).c_str());
}

void file_sent_floor()
{
    file_floor(dv_sms_boxes[BOX_SENT], (std::string(" 1") + outgoing).c_str());
}

void report_floor()
{
    char code[9];

    flag_get_item(DV_SMS_MGR_LAST_ERR_CODE, code, 8);
    flag_set(DV_SMS_MGR_LAST_ERR_CODE, "0");
}

void read_all_floor()
{
    char index[4097] = {}, text[4097], *rest = nullptr;

    cmd_cat(received.index, index, 4096);
    for (const char *number = strtok_r(index, " ", &rest); number != nullptr; number = strtok_r(nullptr, " ", &rest)) {
        const std::string path = std::string(received.dir) + "/" + number;

        memset(text, 0, sizeof text);
        if (access(path.c_str(), F_OK) == 0 && cmd_cat(path.c_str(), text, 4096) == 0) {
            text[strlen(number) + 1] = '1';
            cmd_echo(text, path.c_str());
        }
    }
    write_text(dv_sms_unread_path, O_TRUNC, "0");
    set_devinfo_value_by_id(DEVINFO_SMS_UNREAD, "0", 1);
    __wrap_sync();
    report_floor();
}

std::string list_of_messages()
{
    std::string list = "1";

    for (int number = 2; number <= listed; number++)
        list += "," + std::to_string(number);
    return list;
}

bool begins_unread(const char *path)
{
    char start[7] = {};
    const int file = open(path, O_RDONLY);
    const bool there = file >= 0 && read(file, start, 6) > 0;

    if (file >= 0)
        close(file);
    return there && strstr(start, " 0") != nullptr;
}

void delete_floor()
{
    char index[4097] = {};

    access(received.dir, F_OK);
    access(received.index, F_OK);
    cmd_cat(received.index, index, 4096);
    for (int number = 1; number <= listed; number++) {
        const std::string path = file_of(received, number);

        if (begins_unread(path.c_str()))
            count_unread_floor(-1);
        __wrap_sync();
        cmd_rm(path.c_str());
    }
    cmd_echo(strstr(index, " 101 "), received.index);
    __wrap_sync();
    report_floor();
}

void start_floor()
{
    char text[16] = {};
    bool any = false;

    access(dv_sms_root, F_OK);
    for (const dv_sms_box &box : dv_sms_boxes) {
        access(box.dir, F_OK);
        access(box.index, F_OK);
    }
    for (const int id : {DEVINFO_SMS_UNREAD, DEVINFO_SMS_SENT_FULL, DEVINFO_SMS_DRAFT_FULL, DEVINFO_SMS_RECEIVED_FULL})
        set_devinfo_value_by_id(id, "0", 1);
    write_text(dv_sms_unread_path, O_TRUNC, "0");
    for (int reads = 0; reads < 2; reads++)
        cfg_get_item("SYS_SMS_MAX_SAVE_SIZE", text, 6);
    for (const dv_sms_box &box : dv_sms_boxes) {
        access(box.dir, F_OK);
        util_get_cmd_result((std::string("ls -lR ") + box.dir + " | grep \"^-\" | wc -l").c_str(), text, 6);
        set_devinfo_value_by_id(box.full_id, "1", 1);
    }
    for (int number = 1; number <= large + 1; number++) {
        if (begins_unread(file_of(received, number).c_str())) {
            count_unread_floor(1);
            any = true;
        }
        __wrap_sync();
    }
    if (any)
        set_devinfo_value_by_id(DEVINFO_SMS_UNREAD, "1", 1);
}

/* --- the daemon's --- */

void receive()
{
    dv_sms_mgr_receive_sms_by_cmt(pdu);
}

void file_sent()
{
    sockmsg_record record = {};

    copy_text(payload_of(&record)->phone, "+491710000000");
    copy_text(payload_of(&record)->text, "See you at seven.");
    if (dv_sms_mgr_write_sms_to_file(BOX_SENT, SMS_FILE_STATE_DONE, &record) != 0)
        abort();
}

void read_all()
{
    dv_sms_mgr_read_recvive_sms("READ ALL");
}

void delete_some()
{
    if (dv_sms_mgr_delete_sms(list_of_messages().c_str(), received.dir, received.index) != 0)
        abort();
}

void start()
{
    rebuild_sms_index();
    init_sms_box_state();
}

/* --- running them --- */

struct Work {
    const char *name;
    void (*prepare)();
    void (*daemon)();
    void (*floor)();
};

constexpr Work works[] = {
    {"receive into an empty box", empty_boxes, receive, receive_floor},
    {"receive, 1999 in the box", full_but_one, receive, receive_floor},
    {"file as sent, empty box", empty_boxes, file_sent, file_sent_floor},
    {"file as sent, 1999 in the box", full_but_one, file_sent, file_sent_floor},
    {"READ ALL of 2000", full_of_unread, read_all, read_all_floor},
    {"delete 100 of 2000", full_of_unread, delete_some, delete_floor},
    {"start with three boxes of 2000", full_of_unread, start, start_floor},
};

/* Takes away the one message that came; the large works prepare anew. */
void undo(const Work &work)
{
    if (work.prepare == full_of_unread) {
        work.prepare();
        return;
    }
    const int last = work.prepare == empty_boxes ? 1 : large;

    for (const dv_sms_box *box : {&received, &dv_sms_boxes[BOX_SENT]}) {
        unlink(file_of(*box, last).c_str());
        cmd_echo(" ", box->index);
    }
}

void add(const Work &work, const char *who, void (*run)())
{
    benchmark::RegisterBenchmark((std::string("store/") + work.name + "/" + who).c_str(),
                                 [&work, run](benchmark::State &state) {
                                     work.prepare();
                                     for (auto _ : state) {
                                         run();
                                         state.PauseTiming();
                                         undo(work);
                                         state.ResumeTiming();
                                     }
                                     state.SetItemsProcessed(state.iterations());
                                 });
}

/* By a child, which a tracer does not follow. */
void prepare_apart(void (*step)(const Work &), const Work &work)
{
    const pid_t child = fork();

    if (child == 0) {
        step(work);
        _exit(0);
    }
    waitpid(child, nullptr, 0);
}

/* The marks are writes to no file: a tracer sees them, and nothing else happens. */
int run_once(const char *name, bool floor)
{
    for (const Work &work : works) {
        if (strcmp(work.name, name) != 0)
            continue;
        prepare_apart([](const Work &each) { each.prepare(); }, work);
        (floor ? work.floor : work.daemon)(); /* what is looked up once a process has been looked up */
        prepare_apart(undo, work);
        with_sync = true;
        (void)!write(-1, "begin", 5);
        (floor ? work.floor : work.daemon)();
        (void)!write(-1, "end", 3);
        return 0;
    }
    fprintf(stderr, "no such work: %s\n", name);
    return 2;
}

} // namespace

int main(int argc, char **argv)
{
    const char *memory = std::filesystem::exists("/dev/shm") ? "/dev/shm" : "/tmp";
    std::string scratch = std::string(memory) + "/store_bench.XXXXXX";
    int result = 0;

    if (mkdtemp(scratch.data()) == nullptr || chdir(scratch.c_str()) != 0) {
        perror(scratch.c_str());
        return 1;
    }
    setenv("DV_PLATFORM_ROOT", scratch.c_str(), 1);
    setenv("DV_PLATFORM_SYSLOG", "0", 1);
    std::filesystem::create_directories(scratch + "/cfg");
    write_text("cfg/SYS_SMS_MAX_SAVE_SIZE", O_TRUNC, std::to_string(large));
    if (argc == 4 && strcmp(argv[1], "--once") == 0) {
        result = run_once(argv[2], strcmp(argv[3], "floor") == 0);
    } else {
        for (const Work &work : works) {
            add(work, "floor", work.floor);
            add(work, "dv_sms_mgr", work.daemon);
        }
        benchmark::Initialize(&argc, argv);
        benchmark::RunSpecifiedBenchmarks();
    }
    std::filesystem::remove_all(scratch);
    return result;
}
