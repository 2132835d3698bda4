/* The bus, from outside and between processes. */
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <sched.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "peer.h"
#include "sandbox.h"
#include "sockmsg.h"

using std::chrono::steady_clock;

static double seconds_since(steady_clock::time_point start)
{
    return std::chrono::duration<double>(steady_clock::now() - start).count();
}

static sockmsg_record numbered(unsigned id)
{
    sockmsg_record record = {};

    record.msg_id = id;
    return record;
}

static int send_number(int module_id, unsigned id)
{
    const sockmsg_record record = numbered(id);

    return sockmsg_send_common_msg(module_id, &record);
}

/* To a receiver that reads, and that may stand still for longer than a sender's patience. */
static int send_to_reader(int module_id, unsigned id)
{
    int result = send_number(module_id, id);

    for (int tries = 0; result == ENOBUFS && tries < 50; tries++)
        result = send_number(module_id, id);
    return result;
}

static std::string record_line(unsigned id)
{
    return "record " + std::to_string(id) + " 0 0 0";
}

class bus : public sandbox
{
protected:
    /* What a program without this library may do to a module's socket. */
    void send_raw(int module_id, size_t size)
    {
        const std::string name = state + "/bus/" + std::to_string(module_id);
        const std::vector<char> data(size, 'x');
        struct sockaddr_un address = {};
        const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);

        address.sun_family = AF_UNIX;
        ASSERT_LT(name.size(), sizeof address.sun_path);
        memcpy(address.sun_path, name.c_str(), name.size());
        EXPECT_EQ(static_cast<ssize_t>(size),
                  sendto(fd, data.data(), size, 0, reinterpret_cast<struct sockaddr *>(&address), sizeof address));
        close(fd);
    }
};

TEST_F(bus, carries_every_byte_of_a_record)
{
    peer receiver(50, "print");
    sockmsg_record record = {};
    unsigned sum = 0xA1B2C3D4u * 31 + 0x01020304u;

    record.msg_id = 0xFFFFFFFF;
    record.reserved = 0xA1B2C3D4;
    record.length = 0x01020304;
    for (size_t i = 0; i < sizeof record.payload; i++) {
        record.payload[i] = static_cast<uint8_t>(i * 7 + i / 256 + 1);
        sum = sum * 31 + record.payload[i];
    }
    record.sender_extra = 0x80000001;
    ASSERT_EQ(0, receiver.joined());
    EXPECT_EQ(0, sockmsg_send_common_msg(50, &record));
    EXPECT_EQ("record 4294967295 0 2147483649 " + std::to_string(sum), receiver.next_line());
}

TEST_F(bus, stamps_the_module_of_the_sender_and_leaves_the_extra_word)
{
    peer receiver(50, "print"), sender(27, "print");

    ASSERT_EQ(0, receiver.joined());
    ASSERT_EQ(0, sender.joined());
    sender.command("send 50 7 1234");
    EXPECT_EQ("sent 0", sender.next_line());
    EXPECT_EQ("record 7 27 1234 0", receiver.next_line());
}

TEST_F(bus, a_sender_that_has_not_joined_is_module_0)
{
    peer receiver(50, "print");
    sockmsg_record record = numbered(8);

    record.sender_module_id = 27;
    ASSERT_EQ(0, receiver.joined());
    EXPECT_EQ(0, sockmsg_send_common_msg(50, &record));
    EXPECT_EQ("record 8 0 0 0", receiver.next_line());
    EXPECT_EQ(27u, record.sender_module_id) << "the caller's record is the caller's";
}

TEST_F(bus, a_module_can_send_to_itself)
{
    peer receiver(50, "print");

    ASSERT_EQ(0, receiver.joined());
    receiver.command("send 50 9 0");
    std::vector<std::string> lines = {receiver.next_line(), receiver.next_line()};
    EXPECT_NE(lines.end(), std::find(lines.begin(), lines.end(), "sent 0"));
    EXPECT_NE(lines.end(), std::find(lines.begin(), lines.end(), "record 9 50 0 0"));
}

TEST_F(bus, a_module_without_a_handler_can_send_and_drops_what_it_gets)
{
    peer quiet(51, "none"), receiver(50, "print");

    ASSERT_EQ(0, quiet.joined());
    ASSERT_EQ(0, receiver.joined());
    for (unsigned i = 0; i < 600; i++)
        ASSERT_EQ(0, send_to_reader(51, i)) << i;
    quiet.command("send 50 3 4");
    EXPECT_EQ("sent 0", quiet.next_line());
    EXPECT_EQ("record 3 51 4 0", receiver.next_line());
}

TEST_F(bus, an_absent_module_is_an_error_at_once)
{
    const auto start = steady_clock::now();

    EXPECT_EQ(ECONNREFUSED, send_number(50, 1)) << "no directory yet";
    peer other(51, "print");
    ASSERT_EQ(0, other.joined());
    EXPECT_EQ(ECONNREFUSED, send_number(50, 1)) << "never joined";
    other.kill();
    EXPECT_EQ(ECONNREFUSED, send_number(51, 1)) << "gone, its socket is left";
    EXPECT_LT(seconds_since(start), 10);
}

TEST_F(bus, bad_arguments_are_errors)
{
    const sockmsg_record record = {};

    EXPECT_EQ(EINVAL, sockmsg_send_common_msg(50, nullptr));
    EXPECT_EQ(EINVAL, sockmsg_send_common_msg(0, &record));
    EXPECT_EQ(EINVAL, sockmsg_send_common_msg(-1, &record));
    EXPECT_EQ(EINVAL, init_sockmsg(0, nullptr, 0));
    EXPECT_EQ(EINVAL, init_sockmsg(-27, nullptr, 0));
    EXPECT_FALSE(std::filesystem::exists(state)) << "nothing is made for them";
}

TEST_F(bus, a_directory_too_deep_for_a_socket_address_is_an_error)
{
    setenv("DV_PLATFORM_ROOT", (directory + "/" + std::string(100, 'd')).c_str(), 1);
    peer receiver(50, "print");

    EXPECT_EQ(ENAMETOOLONG, receiver.joined());
    EXPECT_NE(std::string::npos, receiver.errors().find("File name too long"));
    EXPECT_EQ(ENAMETOOLONG, send_number(50, 1));
}

TEST_F(bus, a_second_process_for_a_module_is_refused_with_a_clear_word)
{
    peer first(27, "print"), second(27, "print");
    /* whichever comes second is the one refused */
    const int first_result = first.joined(), second_result = second.joined();
    peer &refused = first_result == 0 ? second : first, &live = first_result == 0 ? first : second;

    ASSERT_EQ(EAGAIN, first_result + second_result);
    EXPECT_NE(std::string::npos, refused.errors().find("another process is that module"));
    EXPECT_NE(std::string::npos, read_text(log).find("module 27 cannot join: another process is that module"));
    EXPECT_EQ(0, send_number(27, 1)) << "the first one is not disturbed";
    EXPECT_EQ(record_line(1), live.next_line());
}

TEST_F(bus, a_process_joins_only_once)
{
    peer program(27, "print");

    ASSERT_EQ(0, program.joined());
    program.command("join 28");
    EXPECT_EQ(EBUSY, program.joined());
    program.command("join 27");
    EXPECT_EQ(EBUSY, program.joined());
    peer second(27, "print");
    EXPECT_EQ(EAGAIN, second.joined()) << "what was refused has not let go of the module";
}

TEST_F(bus, the_socket_of_a_killed_process_is_taken_over)
{
    for (unsigned round = 0; round < 3; round++) {
        peer program(27, "print");
        ASSERT_EQ(0, program.joined()) << round;
        ASSERT_EQ(0, send_number(27, round));
        EXPECT_EQ(record_line(round), program.next_line());
        program.kill();
        EXPECT_TRUE(std::filesystem::exists(state + "/bus/27"));
    }
}

TEST_F(bus, a_stale_socket_without_a_lock_file_is_taken_over)
{
    {
        peer program(27, "print");
        ASSERT_EQ(0, program.joined());
    }
    ASSERT_TRUE(std::filesystem::remove(state + "/bus/27.lock"));
    peer next(27, "print");
    ASSERT_EQ(0, next.joined());
    EXPECT_EQ(0, send_number(27, 1));
    EXPECT_EQ(record_line(1), next.next_line());
}

TEST_F(bus, of_many_starters_one_joins_and_is_the_one_that_hears)
{
    for (unsigned round = 0; round < 3; round++) {
        std::unique_ptr<peer> starters[6];
        peer *joined = nullptr;
        for (auto &starter : starters)
            starter = std::make_unique<peer>(27, "print");
        for (auto &starter : starters) {
            const int result = starter->joined();
            EXPECT_TRUE(result == 0 || result == EAGAIN) << result;
            EXPECT_FALSE(result == 0 && joined) << "two have joined";
            joined = result == 0 ? starter.get() : joined;
        }
        ASSERT_NE(nullptr, joined);
        EXPECT_EQ(0, send_number(27, round));
        EXPECT_EQ(record_line(round), joined->next_line());
    }
}

TEST_F(bus, a_datagram_of_another_size_is_dropped_and_logged)
{
    peer receiver(50, "print");

    ASSERT_EQ(0, receiver.joined());
    for (const size_t size :
         {size_t{0}, size_t{1}, sizeof(sockmsg_record) - 1, sizeof(sockmsg_record) + 1, size_t{60000}})
        send_raw(50, size);
    EXPECT_EQ(0, send_number(50, 5));
    EXPECT_EQ(record_line(5), receiver.next_line());
    const std::string text = read_text(log);
    for (const char *size : {" 0 ", " 1 ", " 4115 ", " 4117 ", " 60000 "})
        EXPECT_NE(std::string::npos, text.find("a datagram of" + std::string(size) + "bytes is dropped")) << size;
    EXPECT_EQ(5u, lines_of(log).size());
}

TEST_F(bus, a_burst_finds_room_while_the_handler_is_busy)
{
    constexpr unsigned burst = 250;
    peer receiver(50, "hold");

    ASSERT_EQ(0, receiver.joined());
    for (unsigned i = 0; i < burst; i++)
        ASSERT_EQ(0, send_to_reader(50, i)) << i;
    EXPECT_EQ("holding", receiver.next_line());
    receiver.command("go");
    EXPECT_EQ(record_line(0), receiver.next_line());
    for (unsigned i = 1; i < burst; i++) {
        EXPECT_EQ("holding", receiver.next_line());
        EXPECT_EQ(record_line(i), receiver.next_line());
    }
}

TEST_F(bus, a_full_receiver_is_an_error_soon_and_loses_nothing_it_took)
{
    peer receiver(50, "hold"), other(51, "print");
    unsigned taken = 0;
    int error = 0;

    ASSERT_EQ(0, receiver.joined());
    ASSERT_EQ(0, other.joined());
    EXPECT_EQ(0, send_number(51, 0));
    EXPECT_EQ(record_line(0), other.next_line());
    const size_t descriptors = entries_of("/proc/self/fd").size();
    while (taken < 5000 && (error = send_number(50, taken)) == 0)
        taken++;
    EXPECT_EQ(ENOBUFS, error);
    EXPECT_GE(taken, 256u);
    const auto start = steady_clock::now();
    EXPECT_EQ(ENOBUFS, send_number(50, 9999));
    EXPECT_LT(seconds_since(start), 5);
    EXPECT_EQ(0, send_number(51, 1)) << "another receiver does not suffer";
    EXPECT_EQ(record_line(1), other.next_line());
    EXPECT_EQ(descriptors, entries_of("/proc/self/fd").size());

    receiver.command("go");
    for (unsigned i = 0; i < taken; i++) {
        EXPECT_EQ("holding", receiver.next_line());
        EXPECT_EQ(record_line(i), receiver.next_line());
    }
    EXPECT_EQ(0, send_number(50, taken));
    EXPECT_EQ("holding", receiver.next_line());
    EXPECT_EQ(record_line(taken), receiver.next_line());
}

TEST_F(bus, a_stopped_receiver_never_hangs_the_sender)
{
    peer receiver(50, "count");
    const auto start = steady_clock::now();
    int error = 0;

    ASSERT_EQ(0, receiver.joined());
    receiver.signal(SIGSTOP);
    for (unsigned i = 0; i < 2000 && error == 0; i++)
        error = send_number(50, i);
    EXPECT_EQ(ENOBUFS, error);
    EXPECT_LT(seconds_since(start), 10);
}

/* Sends `count` records, again when there was no room for one; how many times that was. */
static unsigned send_all(int module_id, unsigned count)
{
    unsigned refused = 0;

    for (unsigned i = 0; i < count;) {
        const int error = send_number(module_id, i);
        i += error == 0 ? 1 : 0;
        refused += error == 0 ? 0 : 1;
        EXPECT_TRUE(error == 0 || error == ENOBUFS) << error;
    }
    return refused;
}

/* The counts, once as many records as expected have come or nothing comes any more. */
static std::string final_count(peer *receiver, unsigned expected)
{
    const std::string complete = "count " + std::to_string(expected) + " ";
    std::string answer, before;

    for (int unchanged = 0; unchanged < 200 && answer.rfind(complete, 0) != 0; unchanged++) {
        before = answer;
        receiver->command("count");
        answer = receiver->next_line();
        if (answer != before)
            unchanged = 0;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return answer;
}

TEST_F(bus, a_flood_of_a_hundred_thousand_records_arrives_in_order)
{
    constexpr unsigned flood = 100000;
    peer receiver(50, "count");
    const auto start = steady_clock::now();

    ASSERT_EQ(0, receiver.joined());
    send_all(50, flood);
    EXPECT_EQ("count 100000 100000 0", final_count(&receiver, flood));
    EXPECT_LT(seconds_since(start), 60);
}

/* A network namespace of its own, whose datagram sockets queue a thousand records in the kernel. */
static bool have_long_queues()
{
    const int fd = unshare(CLONE_NEWNET) == 0 ? open("/proc/sys/net/unix/max_dgram_qlen", O_WRONLY) : -1;

    return fd >= 0 && write(fd, "1000", 4) == 4 && close(fd) == 0;
}

TEST_F(bus, more_records_in_the_kernel_than_the_library_keeps_all_arrive)
{
    constexpr unsigned burst = 700;
    peer receiver(50, "count", have_long_queues);

    if (receiver.joined() != 0)
        GTEST_SKIP() << "no right to a network namespace";
    receiver.signal(SIGSTOP);
    for (unsigned i = 0; i < burst; i++)
        ASSERT_EQ(0, send_number(50, i)) << i;
    receiver.signal(SIGCONT);
    EXPECT_EQ("count 700 700 0", final_count(&receiver, burst));
}

TEST_F(bus, records_of_many_senders_are_handled_one_at_a_time)
{
    constexpr unsigned each = 2500;
    peer receiver(50, "count");
    std::thread senders[4];

    ASSERT_EQ(0, receiver.joined());
    for (std::thread &sender : senders)
        sender = std::thread(send_all, 50, each);
    for (std::thread &sender : senders)
        sender.join();
    const std::string answer = final_count(&receiver, 4 * each);
    unsigned records = 0, in_order = 0, overlaps = 1;
    ASSERT_EQ(3, sscanf(answer.c_str(), "count %u %u %u", &records, &in_order, &overlaps)) << answer;
    EXPECT_EQ(4 * each, records);
    EXPECT_EQ(0u, overlaps);
}

TEST_F(bus, directory_and_socket_are_for_owner_and_group_whatever_the_umask)
{
    for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{077}}) {
        const mode_t before = umask(mask);
        peer receiver(50, "print");
        ASSERT_EQ(0, receiver.joined());
        umask(before);
        EXPECT_EQ(0770u, mode_of(state)) << mask;
        EXPECT_EQ(0770u, mode_of(state + "/bus")) << mask;
        EXPECT_EQ(0660u, mode_of(state + "/bus/50")) << mask;
        EXPECT_EQ(0660u, mode_of(state + "/bus/50.lock")) << mask;
        receiver.kill();
        std::filesystem::remove_all(state);
    }
}

TEST_F(bus, another_user_is_kept_out_and_a_member_of_the_group_is_let_in)
{
    constexpr gid_t group = 54321;

    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    ASSERT_EQ(0, mkdir(state.c_str(), 0770));
    ASSERT_EQ(0, chmod(state.c_str(), 0770));
    ASSERT_EQ(0, chown(state.c_str(), 0, group));
    peer receiver(50, "print");
    ASSERT_EQ(0, receiver.joined());

    EXPECT_EQ(EACCES, run_as(nobody, no_group, [] { return send_number(50, 1); }));
    EXPECT_EQ(0, run_as(nobody, group, [] { return send_number(50, 2); }));
    EXPECT_EQ(record_line(2), receiver.next_line());

    ASSERT_EQ(0, chmod(state.c_str(), 0777));
    ASSERT_EQ(0, chmod((state + "/bus").c_str(), 0777));
    EXPECT_EQ(EACCES, run_as(nobody, no_group, [] { return send_number(50, 3); })) << "the socket is closed, too";
    EXPECT_EQ(EACCES, run_as(nobody, no_group, [] { return init_sockmsg(50, nullptr, 0); }));
}

TEST_F(bus, its_descriptors_do_not_get_into_commands)
{
    const std::string count = "ls -l /proc/self/fd | grep -c -e socket: -e /bus/";
    peer program(50, "print");

    ASSERT_EQ(0, program.joined());
    program.command("run " + count);
    EXPECT_EQ(plainly(count), program.next_line() + "\n");
}

TEST(bus_names, known_modules_have_a_name)
{
    EXPECT_STREQ("at_owner", get_app_name_by_id(5));
    EXPECT_STREQ("dv_sms_mgr", get_app_name_by_id(27));
    EXPECT_STREQ("smsctl", get_app_name_by_id(40));
    EXPECT_STREQ("sms_web", get_app_name_by_id(41));
    EXPECT_STREQ("test", get_app_name_by_id(50));
    EXPECT_STREQ("test", get_app_name_by_id(59));
    for (const int unknown : {-1, 0, 4, 6, 26, 28, 42, 49, 60, 2147483647})
        EXPECT_EQ(nullptr, get_app_name_by_id(unknown)) << unknown;
}
