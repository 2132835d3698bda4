/* Files read, replaced and removed. */
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "sandbox.h"
#include "util.h"

namespace fs = std::filesystem;

class files : public sandbox
{
};

static size_t count_regular_files(const std::string &folder)
{
    size_t count = 0;
    std::error_code gone;

    for (const auto &entry : fs::directory_iterator(folder))
        count += entry.is_regular_file(gone) ? 1 : 0;
    return count;
}

TEST_F(files, cat_reads_within_the_size_and_terminates_where_there_is_room)
{
    const std::string text = "0123456789\n\n";

    write_text(path("f"), text);
    for (size_t size = 1; size <= text.size() + 3; size++) {
        std::string buffer(size + 2, '#');
        ASSERT_EQ(0, cmd_cat(path("f").c_str(), buffer.data() + 1, static_cast<int>(size)));
        EXPECT_EQ('#', buffer.front());
        EXPECT_EQ('#', buffer.back());
        const size_t length = std::min(size, text.size());
        EXPECT_EQ(text.substr(0, length), buffer.substr(1, length)) << "every line feed is content";
        if (length < size) {
            EXPECT_EQ('\0', buffer[1 + length]) << size;
        }
    }
}

TEST_F(files, cat_cuts_between_characters)
{
    write_text(path("f"), "a\xE2\x82\xAC"
                          "b");
    for (const auto &[size, length] : {std::pair{1, 1}, {2, 1}, {3, 1}, {4, 4}, {5, 5}, {6, 5}}) {
        std::string buffer(static_cast<size_t>(size) + 1, '#');
        ASSERT_EQ(0, cmd_cat(path("f").c_str(), buffer.data(), size));
        EXPECT_EQ(static_cast<size_t>(length), strnlen(buffer.data(), static_cast<size_t>(size))) << size;
        EXPECT_EQ('#', buffer.back());
    }
}

TEST_F(files, cat_of_what_is_not_there_leaves_the_buffer)
{
    char buffer[8] = "primed";

    EXPECT_EQ(ENOENT, cmd_cat(path("missing").c_str(), buffer, 7));
    EXPECT_EQ(EISDIR, cmd_cat(directory.c_str(), buffer, 7));
    EXPECT_EQ(EINVAL, cmd_cat(nullptr, buffer, 7));
    EXPECT_EQ(EINVAL, cmd_cat(path("missing").c_str(), nullptr, 7));
    write_text(path("f"), "x");
    EXPECT_EQ(EINVAL, cmd_cat(path("f").c_str(), buffer, 0));
    EXPECT_EQ(EINVAL, cmd_cat(path("f").c_str(), buffer, -7));
    EXPECT_STREQ("primed", buffer);
    write_text(path("empty"), "");
    EXPECT_EQ(0, cmd_cat(path("empty").c_str(), buffer, 7));
    EXPECT_STREQ("", buffer);
}

TEST_F(files, echo_makes_the_text_the_whole_content)
{
    for (const char *text : {" ", "1 2 3 ", "longer than before\nwith lines\n", "short", "", "$(id) `id` \\n %s"}) {
        EXPECT_EQ(0, cmd_echo(text, path("f").c_str()));
        EXPECT_EQ(text, read_text(path("f")));
    }
    const std::string large(300000, 'x');
    EXPECT_EQ(0, cmd_echo(large.c_str(), path("f").c_str()));
    EXPECT_EQ(large, read_text(path("f")));
}

TEST_F(files, names_mean_nothing_to_a_shell)
{
    const std::string name = path("a b;touch c$(touch d)'\"");
    char buffer[4] = {};

    EXPECT_EQ(0, cmd_echo("x", name.c_str()));
    EXPECT_EQ(0, cmd_cat(name.c_str(), buffer, 3));
    EXPECT_STREQ("x", buffer);
    EXPECT_EQ(1u, entries_of(directory).size());
    EXPECT_EQ(0, cmd_rm(name.c_str()));
    EXPECT_EQ(0u, entries_of(directory).size());
}

TEST_F(files, echo_works_with_a_bare_name)
{
    const fs::path before = fs::current_path();

    fs::current_path(directory);
    EXPECT_EQ(0, cmd_echo("x", "bare"));
    EXPECT_EQ(0, cmd_echo("y", "bare"));
    fs::current_path(before);
    EXPECT_EQ("y", read_text(path("bare")));
    EXPECT_EQ(1u, entries_of(directory).size());
}

TEST_F(files, echo_keeps_the_mode_and_gives_a_new_file_the_usual_one)
{
    const mode_t before = umask(027);

    EXPECT_EQ(0, cmd_echo("x", path("f").c_str()));
    umask(before);
    EXPECT_EQ(0640u, mode_of(path("f")));
    for (const mode_t mode : {mode_t{0600}, mode_t{0664}, mode_t{0755}}) {
        ASSERT_EQ(0, chmod(path("f").c_str(), mode));
        EXPECT_EQ(0, cmd_echo("y", path("f").c_str()));
        EXPECT_EQ(mode, mode_of(path("f")));
    }
}

TEST_F(files, echo_keeps_the_owner)
{
    struct stat status = {};

    if (geteuid() != 0)
        GTEST_SKIP() << "only root can give a file away";
    write_text(path("f"), "x");
    ASSERT_EQ(0, chown(path("f").c_str(), nobody, no_group));
    EXPECT_EQ(0, cmd_echo("y", path("f").c_str()));
    ASSERT_EQ(0, stat(path("f").c_str(), &status));
    EXPECT_EQ(nobody, status.st_uid);
    EXPECT_EQ(no_group, status.st_gid);
}

TEST_F(files, echo_through_a_link_changes_what_it_points_to)
{
    write_text(path("there/f"), "x");
    fs::create_symlink(path("there/f"), path("link"));
    EXPECT_EQ(0, cmd_echo("y", path("link").c_str()));
    EXPECT_TRUE(fs::is_symlink(path("link")));
    EXPECT_EQ("y", read_text(path("there/f")));
    fs::create_symlink(path("nowhere"), path("broken"));
    EXPECT_EQ(ENOENT, cmd_echo("y", path("broken").c_str()));
}

TEST_F(files, echo_into_what_is_no_plain_file)
{
    char text[4] = {};

    ASSERT_EQ(0, mkfifo(path("pipe").c_str(), 0600));
    EXPECT_EQ(ENXIO, cmd_echo("x", path("pipe").c_str())) << "nobody reads: an error, not a hang";
    const int reader = open(path("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    EXPECT_EQ(0, cmd_echo("x", path("pipe").c_str()));
    EXPECT_EQ(1, read(reader, text, 3));
    EXPECT_STREQ("x", text);
    EXPECT_EQ(EAGAIN, cmd_echo(std::string(1'000'000, 'x').c_str(), path("pipe").c_str())) << "more than it takes";
    close(reader);
    EXPECT_TRUE(fs::is_fifo(path("pipe"))) << "it is written to, not replaced";
    EXPECT_EQ((std::vector<std::string>{"pipe"}), entries_of(directory));
}

TEST_F(files, echo_into_what_cannot_be_written_is_an_error)
{
    EXPECT_EQ(EISDIR, cmd_echo("x", directory.c_str()));
    EXPECT_EQ(EISDIR, cmd_echo("x", path("").c_str()));
    EXPECT_EQ(ENOENT, cmd_echo("x", path("missing/f").c_str()));
    EXPECT_EQ(EINVAL, cmd_echo("x", ""));
    EXPECT_EQ(EINVAL, cmd_echo(nullptr, path("f").c_str()));
    EXPECT_EQ(EINVAL, cmd_echo("x", nullptr));
    EXPECT_EQ(0u, entries_of(directory).size());
}

TEST_F(files, echo_respects_write_protection_and_rights)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    const std::string shared = path("box/shared"), closed = path("box/closed"), fresh = path("box/new");

    write_text(shared, "old");
    write_text(closed, "old");
    ASSERT_EQ(0, chmod(shared.c_str(), 0666));
    ASSERT_EQ(0, chmod(closed.c_str(), 0444));
    EXPECT_EQ(0, run_as(nobody, no_group, [&] { return cmd_echo("new", shared.c_str()); }))
        << "the directory takes no new entry, but the file may be written";
    EXPECT_EQ("new", read_text(shared));
    EXPECT_EQ(EACCES, run_as(nobody, no_group, [&] { return cmd_echo("new", closed.c_str()); }));
    EXPECT_EQ(EACCES, run_as(nobody, no_group, [&] { return cmd_echo("new", fresh.c_str()); }));
    ASSERT_EQ(0, chmod(path("box").c_str(), 0777));
    EXPECT_EQ(EACCES, run_as(nobody, no_group, [&] { return cmd_echo("new", closed.c_str()); }))
        << "protected, although it could be replaced";
    EXPECT_EQ("old", read_text(closed));
    EXPECT_EQ((std::vector<std::string>{"closed", "shared"}), entries_of(path("box")));
}

TEST_F(files, a_reader_of_an_echoed_file_sees_the_old_or_the_new_text)
{
    const std::string a(4000, 'a'), b(2000, 'b');
    std::atomic<bool> done{false};
    std::atomic<unsigned> reads{0}, wrong{0}, extra{0};

    fs::create_directory(path("box"));
    ASSERT_EQ(0, cmd_echo(a.c_str(), path("box/1").c_str()));
    std::thread reader([&] {
        while (!done) {
            std::string text(4096, '\0');
            const int error = cmd_cat(path("box/1").c_str(), text.data(), 4096);
            text.resize(strlen(text.c_str()));
            wrong += error != 0 || (text != a && text != b) ? 1 : 0;
            extra += count_regular_files(path("box")) != 1 ? 1 : 0;
            reads++;
        }
    });
    while (reads < 2)
        std::this_thread::yield();
    for (int i = 0; i < 300; i++)
        EXPECT_EQ(0, cmd_echo(i % 2 ? a.c_str() : b.c_str(), path("box/1").c_str()));
    done = true;
    reader.join();
    EXPECT_EQ(0u, wrong);
    EXPECT_EQ(0u, extra) << "a file that is being prepared must not be counted in the directory";
    EXPECT_EQ(1u, entries_of(path("box")).size());
}

TEST_F(files, a_kill_in_the_middle_leaves_the_old_or_the_new_text_and_no_other_file)
{
    const std::string a(100000, 'a'), b(50000, 'b'), box = path("box"), file = path("box/1");
    int progress[2];

    fs::create_directory(box);
    ASSERT_EQ(0, cmd_echo(a.c_str(), file.c_str()));
    for (int round = 0; round < 15; round++) {
        ASSERT_EQ(0, pipe(progress));
        const pid_t pid = fork();
        if (pid == 0) {
            for (unsigned i = 0;; i++) {
                cmd_echo(i % 2 ? a.c_str() : b.c_str(), file.c_str());
                if (write(progress[1], "", 1) != 1)
                    _exit(0);
            }
        }
        char sign;
        for (int i = 0; i < 2 + round % 3; i++)
            ASSERT_EQ(1, read(progress[0], &sign, 1));
        usleep(static_cast<useconds_t>(round * 37)); /* another moment of the work each time */
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        close(progress[0]);
        close(progress[1]);
        const std::string text = read_text(file);
        EXPECT_TRUE(text == a || text == b) << text.size();
        EXPECT_EQ(1u, count_regular_files(box));
    }
    EXPECT_EQ(0, cmd_echo("after", file.c_str()));
    EXPECT_EQ("after", read_text(file));
}

TEST_F(files, what_a_kill_left_is_swept_away_by_the_next_process)
{
    const pid_t gone = fork();

    if (gone == 0)
        _exit(0);
    ASSERT_EQ(gone, waitpid(gone, nullptr, 0));
    const std::string left = "..", dead = left + std::to_string(gone) + ".0.1a", own = left + std::to_string(getpid());
    const std::string alive = left + std::to_string(getppid()) + ".0.1a";
    for (const std::string &name : {dead, own + ".7.1a", alive, std::string("..no"), left + std::to_string(gone)}) {
        ASSERT_TRUE(fs::create_directory(path(name)));
        write_text(path(name) + "/f", "half");
    }
    EXPECT_EQ(0, cmd_echo("x", path("f").c_str()));
    std::vector<std::string> expected = {alive, left + std::to_string(gone), "..no", "f"};
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(expected, entries_of(directory));
    ASSERT_TRUE(fs::create_directory(path(dead)));
    EXPECT_EQ(0, cmd_echo("y", path("f").c_str()));
    EXPECT_TRUE(fs::exists(path(dead))) << "it is not looked for again and again";
}

TEST_F(files, rm_removes_a_file_and_nothing_but_a_file)
{
    write_text(path("f"), "x");
    EXPECT_EQ(0, cmd_rm(path("f").c_str()));
    EXPECT_FALSE(fs::exists(path("f")));
    EXPECT_EQ(ENOENT, cmd_rm(path("f").c_str()));
    fs::create_directory(path("d"));
    EXPECT_NE(0, cmd_rm(path("d").c_str()));
    EXPECT_TRUE(fs::exists(path("d")));
    EXPECT_NE(0, cmd_rm(path("*").c_str()));
    EXPECT_EQ(EINVAL, cmd_rm(nullptr));
    EXPECT_EQ(EINVAL, cmd_rm(""));
}
