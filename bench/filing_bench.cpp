/* Filing one message in a box of some, beside the least that it takes: the record, the index and, where
 * there are others, one look at the directory and at the free space. In memory, and without the sync() that
 * both sides end with: what the flash takes for that is no work of the processor. */
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "dv_sms_mgr_paths.h"
#include "dv_sms_mgr_receive.h"
#include "dv_sms_mgr_text.h"
#include "sms_msg.h"

/* Put in place of the C library's by the linker. */
extern "C" void __wrap_sync() {}

namespace
{

const dv_sms_box &box = dv_sms_boxes[BOX_SENT];

std::string file_of(int number)
{
    return std::string(box.dir) + "/" + std::to_string(number);
}

void write_text(const std::string &path, int flags, const std::string &text)
{
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | flags, 0666);

    if (file < 0 || write(file, text.data(), text.size()) < 0)
        abort();
    close(file);
}

/* A box of messages 1 to `count`, as if it had been filled. */
void fill_box(int count)
{
    std::filesystem::remove_all(box.dir);
    std::filesystem::create_directories(box.dir);
    write_text(box.index, O_TRUNC, " ");
    for (int number = 1; number <= count; number++)
        write_text(file_of(number), O_TRUNC, "1 1 +491710000000 2024-03-05 14:07:00 hello");
}

void empty_again(int count)
{
    unlink(file_of(count + 1).c_str());
    write_text(box.index, O_TRUNC, " ");
}

void file_with_daemon(int)
{
    sockmsg_record record = {};

    copy_text(payload_of(&record)->phone, "+491710000000");
    copy_text(payload_of(&record)->text, "See you at seven.");
    if (dv_sms_mgr_write_sms_to_file(BOX_SENT, SMS_FILE_STATE_DONE, &record) != 0)
        abort();
}

void file_at_least(int count)
{
    write_text(file_of(count + 1), O_TRUNC, "1 1 +491710000000 2024-03-05 14:07:00 See you at seven.");
    write_text(box.index, O_APPEND, "1 ");
}

void look_and_file_at_least(int count)
{
    struct statfs space;
    DIR *directory = opendir(box.dir);

    while (readdir(directory) != nullptr) {
    }
    closedir(directory);
    statfs(box.dir, &space);
    file_at_least(count);
}

void add(const char *name, int count, void (*file)(int))
{
    benchmark::RegisterBenchmark(("file/" + std::to_string(count) + " in the box/" + name).c_str(),
                                 [count, file](benchmark::State &state) {
                                     fill_box(count);
                                     for (auto _ : state) {
                                         file(count);
                                         state.PauseTiming();
                                         empty_again(count);
                                         state.ResumeTiming();
                                     }
                                     state.SetItemsProcessed(state.iterations());
                                 });
}

} // namespace

int main(int argc, char **argv)
{
    const char *memory = std::filesystem::exists("/dev/shm") ? "/dev/shm" : "/tmp";
    std::string scratch = std::string(memory) + "/filing_bench.XXXXXX";

    if (mkdtemp(scratch.data()) == nullptr || chdir(scratch.c_str()) != 0) {
        perror(scratch.c_str());
        return 1;
    }
    for (const int count : {0, 500, 1999}) {
        add("floor", count, count == 0 ? file_at_least : look_and_file_at_least);
        add("dv_sms_mgr", count, file_with_daemon);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    std::filesystem::remove_all(scratch);
}
