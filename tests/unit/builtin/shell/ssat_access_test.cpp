// Who gets into the debug shell, and what those who do can't do to it.
//
// The shell runs on the daemon's own loop, so a client that stalls it would stop the admission of cards. Such
// clients speak to the socket themselves here: the tools' client is too well-behaved to try.
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "loop/platform_context.h"
#include "shell/protocol.h"
#include "shell/server.h"
#include "ssat_fixture.h"

namespace
{

using ssat_test::handler;
using ssat_test::large_output;
using ssat_test::module;
using ssat_test::print_much;
using ssat_test::Ssat;
using ssat_test::tell_that_the_loop_runs;
using testing::HasSubstr;
using testing_platform::Child;
using testing_platform::patience;
using testing_platform::Signpost;

// --- Clients that misbehave

TEST_F(Ssat, SilentAndHalfClientsKeepNobodyWaiting)
{
    start();
    const platform::Descriptor silent = connect();
    const platform::Descriptor half = connect();
    const std::string request = ssat::encode({"run", module, "nothing"});
    ASSERT_EQ(send(half.get(), request.data(), request.size() - 1, 0),
              static_cast<ssize_t>(request.size() - 1));
    EXPECT_EQ(run("nothing").result, 7);
}

TEST_F(Ssat, ClientThatDoesNotReadKeepsNobodyWaiting)
{
    start();
    const platform::Descriptor slow = connect();
    const std::string request =
        ssat::encode({"run", module, "much", "bytes=" + std::to_string(large_output)});
    ASSERT_EQ(send(slow.get(), request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
    EXPECT_EQ(run("nothing").result, 7);
}

TEST_F(Ssat, ClientThatGoesAwayDoesNotHarm)
{
    start();
    for (int i = 0; i < 20; ++i) {
        const platform::Descriptor gone = connect();
        const std::string request =
            ssat::encode({"run", module, "much", "bytes=" + std::to_string(large_output)});
        ASSERT_EQ(send(gone.get(), request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
    }
    EXPECT_EQ(run("nothing").result, 7);
    EXPECT_EQ(stop(), 0);
}

TEST_F(Ssat, ClientsBeyondTheLimitAreServedWhenOthersHaveGone)
{
    start();
    std::vector<platform::Descriptor> silent(20);
    for (auto &client : silent) {
        client = connect();
    }
    silent.clear();
    EXPECT_EQ(run("nothing").result, 7);
}

TEST_F(Ssat, SilentClientsGiveWayToNewOnesTheOldestFirst)
{
    start();
    std::vector<platform::Descriptor> silent(16);
    for (auto &client : silent) {
        client = connect();
    }
    const std::string request = ssat::encode({"run", module, "nothing"});
    ASSERT_EQ(send(silent[0].get(), request.data(), 1, 0), 1) << "it has begun to speak";
    EXPECT_EQ(run("nothing").result, 7);
    char byte = 0;
    EXPECT_EQ(recv(silent[1].get(), &byte, 1, 0), 0) << "the oldest silent one was hung up on";
    EXPECT_EQ(recv(silent[2].get(), &byte, 1, MSG_DONTWAIT), -1) << "and no other";
    ASSERT_EQ(send(silent[0].get(), request.data() + 1, request.size() - 1, 0),
              static_cast<ssize_t>(request.size() - 1));
    EXPECT_EQ(recv(silent[0].get(), &byte, 1, 0), 1) << "who speaks slowly is served";
    ASSERT_EQ(send(silent[2].get(), request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
    EXPECT_EQ(recv(silent[2].get(), &byte, 1, 0), 1) << "as is who speaks late";
}

// How many sockets a process has open.
size_t sockets_of(pid_t pid)
{
    size_t sockets = 0;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd")) {
        std::error_code gone;
        sockets += read_symlink(entry, gone).string().starts_with("socket:") ? 1 : 0;
    }
    return sockets;
}

// Whether it comes to have so many.
bool comes_to_have(pid_t pid, size_t sockets)
{
    const auto limit = std::chrono::steady_clock::now() + patience;
    while (sockets_of(pid) != sockets && std::chrono::steady_clock::now() < limit) {
        std::this_thread::yield();
    }
    return sockets_of(pid) == sockets;
}

TEST_F(Ssat, ClientsBeyondTheLimitWaitWhenAllOthersHaveBegunToSpeak)
{
    constexpr size_t most = 17; // the limit, and one more
    start();
    const size_t without_clients = sockets_of(daemon->pid());
    const std::string request =
        ssat::encode({"run", module, "much", "bytes=" + std::to_string(large_output)});
    std::vector<platform::Descriptor> slow;
    while (slow.size() < most) {
        slow.push_back(connect());
        ASSERT_TRUE(comes_to_have(daemon->pid(), without_clients + slow.size()));
        ASSERT_EQ(send(slow.back().get(), request.data(), 1, 0), 1);
    }
    const platform::Descriptor next = connect();
    for (size_t i = 0; i < 2; i++) { // two turns of the loop, so one at least in which it could be accepted
        ASSERT_EQ(send(slow[i].get(), request.data() + 1, request.size() - 1, 0),
                  static_cast<ssize_t>(request.size() - 1));
        char byte = 0;
        ASSERT_EQ(recv(slow[i].get(), &byte, 1, 0), 1);
    }
    EXPECT_EQ(sockets_of(daemon->pid()), without_clients + most);
    slow.clear();
    EXPECT_EQ(run("nothing").result, 7);
}

TEST_F(Ssat, ClientsThatNeitherSendNorReadAreHungUpOnInTheEnd)
{
    Signpost ready;
    daemon.emplace([&] {
        vx_global_t *global = vx_global_init(module, nullptr);
        ssat::Shell shell{platform::event_base_of(global), module, {0, 20'000}};
        shell.commands().add(module, "much", "bytes=%d", handler(print_much));
        vx_thread_add_timer_timeval(global, tell_that_the_loop_runs, &ready, {0, 0});
        return shell.open(path) == 0 ? vx_global_run(global) : 2;
    });
    ASSERT_TRUE(ready.wait());
    EXPECT_EQ(answer_to("SAT1"), "") << "half a header";

    const platform::Descriptor slow = connect();
    const std::string request =
        ssat::encode({"run", module, "much", "bytes=" + std::to_string(large_output)});
    ASSERT_EQ(send(slow.get(), request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
    pollfd hung_up{slow.get(), POLLRDHUP, 0};
    EXPECT_EQ(poll(&hung_up, 1, 20'000), 1);
}

TEST_F(Ssat, RequestInPiecesIsARequest)
{
    start();
    const platform::Descriptor fd = connect();
    const std::string request = ssat::encode({"run", module, "nothing"});
    for (const char byte : request) {
        ASSERT_EQ(send(fd.get(), &byte, 1, 0), 1);
        EXPECT_EQ(run("nothing").result, 7); // a turn of the loop at least
    }
    char first = 0;
    EXPECT_EQ(recv(fd.get(), &first, 1, 0), 1);
    EXPECT_EQ(first, 'S');
}

TEST_F(Ssat, NonsenseIsAnsweredAsSuch)
{
    start();
    EXPECT_THAT(answer_to("GET / HTTP/1.0\r\n\r\n"),
                HasSubstr("the request is not of this shell's protocol"));
    EXPECT_THAT(answer_to(std::string("SAT2\0\0\0\0", 8)), HasSubstr("not of this shell's protocol"));
    EXPECT_THAT(answer_to("SAT1\xff\xff\xff\xff"), HasSubstr("the request is too long"));
    EXPECT_THAT(answer_to(std::string("SAT1\0\0\0\5\0\0\0\2x", 13)), HasSubstr("lengths do not add up"));
    EXPECT_THAT(answer_to(std::string("SAT1\0\0\0\2\0\0", 10)), HasSubstr("lengths do not add up"));
    EXPECT_THAT(answer_to(ssat::encode({})), HasSubstr("neither to run a command nor for help"));
    EXPECT_THAT(answer_to(ssat::encode({"run", module})), HasSubstr("neither to run a command nor for help"));
    EXPECT_EQ(run("nothing").result, 7);
    EXPECT_EQ(stop(), 0);
}

// --- Who gets in

TEST_F(Ssat, SocketIsForItsOwnerOnly)
{
    const mode_t before = umask(0);
    start();
    umask(before);
    struct stat info {
    };
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0600U);
}

// Asks as another user. Returns 0 when the client is told that it is not permitted.
int ask_as_nobody(const std::string &path)
{
    constexpr uid_t nobody = 65534;
    if (setresuid(nobody, nobody, nobody) != 0) {
        return 2;
    }
    try {
        ssat::run(path, module, "nothing", {}, patience);
    } catch (const ssat::Error &error) {
        return error.failure() == ssat::Failure::not_permitted ? 0 : 3;
    }
    return 4;
}

TEST_F(Ssat, OtherUsersAreRefusedByTheFileAndByTheShell)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    chmod(folder.path().c_str(), 0711);
    start();
    Child kept_out_by_file{[&] { return ask_as_nobody(path); }};
    EXPECT_EQ(kept_out_by_file.wait(), 0);
    chmod(path.c_str(), 0666);
    Child kept_out_by_shell{[&] { return ask_as_nobody(path); }};
    EXPECT_EQ(kept_out_by_shell.wait(), 0);
    EXPECT_EQ(run("nothing").result, 7);
}

// --- The socket file

TEST_F(Ssat, SocketFileGoesWithTheDaemon)
{
    start();
    EXPECT_EQ(stop(), 0);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(Ssat, SocketFileOfADeadDaemonIsReplaced)
{
    start();
    daemon->send(SIGKILL);
    daemon->wait();
    EXPECT_TRUE(std::filesystem::exists(path));
    start();
    EXPECT_EQ(run("nothing").result, 7);
}

TEST_F(Ssat, SocketOfALiveDaemonIsLeftToIt)
{
    start();
    vx_global_t *global = vx_global_init(module, nullptr);
    testing::internal::CaptureStderr();
    EXPECT_EQ(ssat_lib_init(global, module), -EADDRINUSE);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("platform: no debug shell on " + path + ": "));
    vx_global_finish(global);
    EXPECT_EQ(run("nothing").result, 7);
}

} // namespace
