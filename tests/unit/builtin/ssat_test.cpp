// The debug shell, as its client sees it.
//
// The daemon is a child whose standard output is a file, because its descriptor 1 is half of what is tested.
// A test that needs to talk nonsense to the shell speaks to the socket itself.
#include "ssat.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform_context.h"
#include "platform_fixture.h"
#include "ssat_client.h"
#include "ssat_protocol.h"
#include "ssat_shell.h"
#include "ssat_socket.h"
#include "vx_thread.h"

namespace
{

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing_platform::Child;
using testing_platform::content_of;
using testing_platform::patience;
using testing_platform::ScopedSetting;
using testing_platform::Signpost;

using Texts = std::vector<std::string>;

constexpr size_t large_output = size_t{4} * 1024 * 1024;
constexpr const char *module = "test";

// --- The daemon's commands

int32_t nothing()
{
    return 7;
}

int32_t print_two(int32_t a, int32_t b)
{
    printf("a=%d b=%d\r\n", a, b);
    return a - b;
}

int32_t one(int32_t a)
{
    return a;
}
int32_t three(int32_t a, int32_t b, int32_t c)
{
    return a + 2 * b + 3 * c;
}
int32_t four(int32_t a, int32_t b, int32_t c, int32_t d)
{
    return three(a, b, c) + 4 * d;
}
int32_t five(int32_t a, int32_t b, int32_t c, int32_t d, int32_t e)
{
    return four(a, b, c, d) + 5 * e;
}
int32_t six(int32_t a, int32_t b, int32_t c, int32_t d, int32_t e, int32_t f)
{
    return five(a, b, c, d, e) + 6 * f;
}
int32_t seven(int32_t a, int32_t b, int32_t c, int32_t d, int32_t e, int32_t f, int32_t g)
{
    return six(a, b, c, d, e, f) + 7 * g;
}
int32_t eight(int32_t a, int32_t b, int32_t c, int32_t d, int32_t e, int32_t f, int32_t g, int32_t h)
{
    return seven(a, b, c, d, e, f, g) + 8 * h;
}

int32_t print_much(int32_t bytes)
{
    const std::string piece(1024, 'm');
    for (int32_t done = 0; done < bytes; done += 1024) {
        fwrite(piece.data(), 1, piece.size(), stdout);
    }
    return 0;
}

int32_t print_binary()
{
    fwrite("a\0\xff\n\x1b", 1, 5, stdout);
    return 0;
}

// Points descriptors 0 to 2 at a file for good, keeps a duplicate of the old standard output for ever, and
// tries in vain to undo it.
int32_t move_output()
{
    puts("before");
    fflush(stdout);
    static_cast<void>(dup(STDOUT_FILENO));
    const char *path = getenv("MOVED_TO");
    const int fd = open(path == nullptr ? "" : path, O_RDWR | O_CREAT, 0644);
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        dup2(fd, standard);
    }
    puts("after");
    close(fd);
    fflush(stdout);
    dup2(fd, STDOUT_FILENO);
    return 0;
}

int32_t keep_duplicate()
{
    static_cast<void>(dup(STDOUT_FILENO));
    puts("kept");
    return 0;
}

int32_t close_output()
{
    puts("last");
    fflush(stdout);
    close(STDOUT_FILENO);
    return 0;
}

int32_t end_process()
{
    exit(77);
}

template <typename Function>
ssat_handler_f handler(Function *function)
{
    return reinterpret_cast<ssat_handler_f>(reinterpret_cast<void (*)()>(function));
}

void register_all()
{
    ssat_reg_mod_cmd(module, "nothing", 0, "void", nothing);
    ssat_reg_mod_cmd(module, "one", 0, "a=%d", handler(one));
    ssat_reg_mod_cmd(module, "two", 0, "a=%d b=%d", handler(print_two));
    ssat_reg_mod_cmd(module, "three", 0, "a=%d b=%d c=%d", handler(three));
    ssat_reg_mod_cmd(module, "four", 0, "a=%d b=%d c=%d d=%d", handler(four));
    ssat_reg_mod_cmd(module, "five", 0, "a=%d b=%d c=%d d=%d e=%d", handler(five));
    ssat_reg_mod_cmd(module, "six", 0, "a=%d b=%d c=%d d=%d e=%d f=%d", handler(six));
    ssat_reg_mod_cmd(module, "seven", 0, "a=%d b=%d c=%d d=%d e=%d f=%d g=%d", handler(seven));
    ssat_reg_mod_cmd(module, "eight", 0, "a=%d b=%d c=%d d=%d e=%d f=%d g=%d h=%d", handler(eight));
    ssat_reg_mod_cmd(module, "much", 0, "bytes=%d", handler(print_much));
    ssat_reg_mod_cmd(module, "binary", 0, "void", print_binary);
    ssat_reg_mod_cmd(module, "move", 0, "void", move_output);
    ssat_reg_mod_cmd(module, "keep", 0, "void", keep_duplicate);
    ssat_reg_mod_cmd(module, "close", 0, "void", close_output);
    ssat_reg_mod_cmd(module, "end", 0, "void", end_process);
}

// --- The fixture

int32_t tell_that_the_loop_runs(vx_thread_t *t)
{
    static_cast<Signpost *>(t->arg)->reach();
    return 0;
}

class Ssat : public testing::Test
{
protected:
    void start()
    {
        Signpost ready;
        daemon.emplace([&] {
            dup2(open(printed.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), STDOUT_FILENO);
            return live(ready);
        });
        ASSERT_TRUE(ready.wait());
    }
    static int live(Signpost &ready)
    {
        vx_global_t *global = vx_global_init(module, nullptr);
        if (ssat_lib_init(global, module) != 0) {
            return 2;
        }
        register_all();
        vx_thread_add_timer_timeval(global, tell_that_the_loop_runs, &ready, {0, 0});
        const int32_t result = vx_global_run(global);
        vx_global_finish(global);
        return result;
    }
    // Ends the daemon as its manager does; a sanitizer's finding shows in the status.
    int stop()
    {
        daemon->send(SIGTERM);
        return daemon->wait();
    }
    ssat::Reply run(const std::string &command, const Texts &arguments = {}) const
    {
        return ssat::run(path, module, command, arguments, patience);
    }
    // Runs a command that must not be called, and returns why.
    ssat::Error refusal_of(const std::string &command, const Texts &arguments = {}) const
    {
        try {
            run(command, arguments);
        } catch (const ssat::Error &error) {
            return error;
        }
        ADD_FAILURE() << command << " was run";
        return {ssat::Failure::broken, ""};
    }
    platform::Descriptor connect() const
    {
        platform::Descriptor fd{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
        const auto address = ssat::address_of(path);
        EXPECT_EQ(::connect(fd.get(), reinterpret_cast<const sockaddr *>(&*address), sizeof(*address)), 0);
        return fd;
    }
    // Sends bytes and returns all that comes back until the shell hangs up.
    std::string answer_to(const std::string &bytes) const
    {
        const platform::Descriptor fd = connect();
        EXPECT_EQ(send(fd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
        std::string answer;
        char byte = 0;
        pollfd wanted{fd.get(), POLLIN, 0};
        while (poll(&wanted, 1, 20'000) > 0 && read(fd.get(), &byte, 1) == 1) {
            answer += byte;
        }
        return answer;
    }

    testing_platform::TempFolder folder;
    const std::string path = folder.file("shell");
    const std::string printed = folder.file("stdout");
    const std::string moved_to = folder.file("moved");
    ScopedSetting socket_setting{"SSAT_SOCKET", path};
    ScopedSetting moved_setting{"MOVED_TO", moved_to};
    std::optional<Child> daemon;
};

// --- Calling

TEST_F(Ssat, HandlerGetsItsArgumentsInTheTemplatesOrder)
{
    start();
    const ssat::Reply reply = run("two", {"b=3", "a=10"});
    EXPECT_EQ(reply.result, 7);
    EXPECT_EQ(reply.output, "a=10 b=3\r\n");
    EXPECT_EQ(reply.output_at, "");
    EXPECT_FALSE(reply.truncated);
    EXPECT_EQ(stop(), 0);
}

TEST_F(Ssat, HandlersTakeUpToEightArguments)
{
    start();
    EXPECT_EQ(run("nothing").result, 7);
    const Texts names = {"one", "two", "three", "four", "five", "six", "seven", "eight"};
    const std::vector<int32_t> results = {1, 1 - 10, 321, 4321, 54321, 654321, 7654321, 87654321};
    Texts arguments;
    int32_t value = 1;
    for (size_t i = 0; i < names.size(); ++i, value *= 10) {
        arguments.push_back(std::string(1, static_cast<char>('a' + i)) + "=" + std::to_string(value));
        EXPECT_EQ(run(names[i], arguments).result, results[i]) << names[i];
    }
    EXPECT_EQ(stop(), 0);
}

TEST_F(Ssat, NumbersOfThirtyTwoBitsAreTaken)
{
    start();
    EXPECT_EQ(run("one", {"a=-2147483648"}).result, INT32_MIN);
    EXPECT_EQ(run("one", {"a=2147483647"}).result, INT32_MAX);
    EXPECT_EQ(run("one", {"a=0x7fffFFFF"}).result, INT32_MAX);
    EXPECT_EQ(run("one", {"a=-0x80000000"}).result, INT32_MIN);
    EXPECT_EQ(run("one", {"a=010"}).result, 10);
}

TEST_F(Ssat, AnythingElseIsNoNumber)
{
    start();
    for (const std::string value : {"", "x", "1x", "1 ", " 1", "1.0", "--1", "+1", "0x", "2147483648",
                                    "-2147483649", "0xffffffff", "99999999999999999999"}) {
        const ssat::Error error = refusal_of("one", {"a=" + value});
        EXPECT_EQ(error.failure(), ssat::Failure::wrong_usage) << value;
        EXPECT_EQ(std::string(error.what()),
                  "'a=" + value + "' is not a number from -2147483648 to 2147483647 (decimal, or 0x...); " +
                      "usage: one a=NUMBER");
    }
}

TEST_F(Ssat, EveryArgumentIsWantedExactlyOnce)
{
    start();
    const auto complaint = [&](const std::string &command, const Texts &arguments) {
        const ssat::Error error = refusal_of(command, arguments);
        EXPECT_EQ(error.failure(), ssat::Failure::wrong_usage);
        return std::string(error.what());
    };
    const std::string usage = "; usage: two a=NUMBER b=NUMBER";
    EXPECT_EQ(complaint("two", {"a=1"}), "'b' is missing" + usage);
    EXPECT_EQ(complaint("two", {}), "'a' is missing" + usage);
    EXPECT_EQ(complaint("two", {"a=1", "b=2", "a=1"}), "'a' is given twice" + usage);
    EXPECT_EQ(complaint("two", {"a=1", "b=2", "c=3"}), "'c' is not an argument of this command" + usage);
    EXPECT_EQ(complaint("two", {"1", "2"}), "'1' is not of the form NAME=NUMBER" + usage);
    EXPECT_EQ(complaint("two", {"\x1b[2J=1"}), "'\\x1b[2J' is not an argument of this command" + usage);
    EXPECT_EQ(complaint("nothing", {"a=1"}),
              "'a' is not an argument of this command; usage: nothing (no arguments)");
}

TEST_F(Ssat, WhatIsNotOfferedIsNamed)
{
    start();
    const ssat::Error error = refusal_of("nonsense");
    EXPECT_EQ(error.failure(), ssat::Failure::unknown_command);
    EXPECT_EQ(std::string(error.what()), "module 'test' has no command 'nonsense'");
    try {
        ssat::run(path, "other", "nothing", {}, patience);
        ADD_FAILURE() << "it was run";
    } catch (const ssat::Error &other) {
        EXPECT_EQ(other.failure(), ssat::Failure::unknown_command);
    }
}

TEST_F(Ssat, HelpListsCommandsInTheOrderOfRegistration)
{
    start();
    const auto commands = ssat::commands(path, patience);
    ASSERT_EQ(commands.size(), 15U);
    EXPECT_EQ(commands[0].module, "test");
    EXPECT_EQ(commands[0].name, "nothing");
    EXPECT_EQ(commands[0].args_template, "void");
    EXPECT_EQ(commands[2].name, "two");
    EXPECT_EQ(commands[2].args_template, "a=%d b=%d");
}

// --- Descriptor 1

TEST_F(Ssat, OutputOfAnyBytesGoesToTheClientAlone)
{
    start();
    EXPECT_EQ(run("binary").output, std::string("a\0\xff\n\x1b", 5));
    EXPECT_EQ(run("nothing").output, "");
    EXPECT_EQ(stop(), 0);
    EXPECT_EQ(content_of(printed), "");
}

TEST_F(Ssat, DuplicateThatACommandKeepsDoesNotEndTheLoan)
{
    start();
    for (int i = 0; i < 3; ++i) {
        const ssat::Reply reply = run("keep");
        EXPECT_EQ(reply.output, "kept\n");
        EXPECT_EQ(reply.output_at, "");
    }
    EXPECT_EQ(stop(), 0);
    EXPECT_EQ(content_of(printed), "");
}

TEST_F(Ssat, OutputThatACommandHasMovedStaysWhereItPointed)
{
    start();
    const ssat::Reply mover = run("move");
    EXPECT_EQ(mover.output, "before\n");
    EXPECT_EQ(mover.output_at, moved_to);

    const ssat::Reply later = run("two", {"a=1", "b=2"});
    EXPECT_EQ(later.output, "");
    EXPECT_EQ(later.output_at, moved_to);
    EXPECT_EQ(content_of(moved_to), "after\na=1 b=2\r\n");
    EXPECT_EQ(later.result, -1);

    EXPECT_EQ(run("move").output_at, moved_to) << "moved a second time, to a fresh opening";
    EXPECT_EQ(stop(), 0);
    EXPECT_EQ(content_of(printed), "");
}

TEST_F(Ssat, ClosedOutputIsToldAndDoesNotBecomeAConnection)
{
    start();
    const ssat::Reply reply = run("close");
    EXPECT_EQ(reply.output, "last\n");
    EXPECT_EQ(reply.output_at, "closed");
    EXPECT_EQ(run("two", {"a=1", "b=2"}).output_at, "/dev/null");
    EXPECT_EQ(stop(), 0);
}

TEST_F(Ssat, OutputBeyondTheLimitIsCutAndSaidSo)
{
    start();
    const size_t bytes = ssat::max_output_size;
    const ssat::Reply whole = run("much", {"bytes=" + std::to_string(bytes)});
    EXPECT_EQ(whole.output.size(), bytes);
    EXPECT_FALSE(whole.truncated);
    const ssat::Reply cut = run("much", {"bytes=" + std::to_string(bytes + 1024)});
    EXPECT_EQ(cut.output.size(), bytes);
    EXPECT_TRUE(cut.truncated);
}

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

// --- Opening and registering

class SsatRegistration : public Ssat
{
protected:
    ~SsatRegistration() override { vx_global_finish(global); }
    vx_global_t *global = vx_global_init(module, nullptr);
};

TEST_F(SsatRegistration, OpeningMayFailAndThenSucceed)
{
    testing_platform::write_file(path, "somebody's file");
    testing::internal::CaptureStderr();
    EXPECT_EQ(ssat_lib_init(global, module), -EEXIST);
    EXPECT_LT(ssat_reg_mod_cmd(module, "nothing", 0, "void", nothing), 0) << "there is no shell yet";
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(content_of(path), "somebody's file");
    std::filesystem::remove(path);
    EXPECT_EQ(ssat_lib_init(global, module), 0);
    EXPECT_EQ(ssat_lib_init(global, module), 0) << "it is open";
    EXPECT_EQ(ssat_reg_mod_cmd(module, "nothing", 0, "void", nothing), 0);
    EXPECT_LT(ssat_lib_init(global, "other"), 0) << "a process has one shell";
}

TEST_F(SsatRegistration, OpeningNeedsAContextAndAModuleThatCanNameAFile)
{
    EXPECT_LT(ssat_lib_init(nullptr, module), 0);
    EXPECT_LT(ssat_lib_init(global, nullptr), 0);
    EXPECT_LT(ssat_lib_init(global, ""), 0);
    EXPECT_LT(ssat_lib_init(global, "../test"), 0);
}

TEST_F(SsatRegistration, PathThatIsTooLongForASocketIsRefused)
{
    const ScopedSetting too_long("SSAT_SOCKET", "/" + std::string(200, 'x'));
    testing::internal::CaptureStderr();
    EXPECT_EQ(ssat_lib_init(global, module), -ENAMETOOLONG);
    testing::internal::GetCapturedStderr();
}

TEST_F(SsatRegistration, ArgumentsThatAreNoneAreRefused)
{
    ASSERT_EQ(ssat_lib_init(global, module), 0);
    EXPECT_LT(ssat_reg_mod_cmd(nullptr, "c", 0, "void", nothing), 0);
    EXPECT_LT(ssat_reg_mod_cmd("other", "c", 0, "void", nothing), 0);
    EXPECT_LT(ssat_reg_mod_cmd(module, nullptr, 0, "void", nothing), 0);
    EXPECT_LT(ssat_reg_mod_cmd(module, "", 0, "void", nothing), 0);
    EXPECT_LT(ssat_reg_mod_cmd(module, "two words", 0, "void", nothing), 0);
    EXPECT_LT(ssat_reg_mod_cmd(module, "c", 1, "void", nothing), 0);
    EXPECT_LT(ssat_reg_mod_cmd(module, "c", 0, "void", nullptr), 0);
    for (const char *args_template : {"", " ", "void void", "a", "a=%s", "a=%d,b=%d", "=%d", "a=%d a=%d",
                                      "a=%dx", "a=%d b=%d c=%d d=%d e=%d f=%d g=%d h=%d i=%d"}) {
        EXPECT_LT(ssat_reg_mod_cmd(module, "c", 0, args_template, nothing), 0) << args_template;
    }
    EXPECT_LT(ssat_reg_mod_cmd(module, "c", 0, nullptr, nothing), 0);
}

int32_t other_nothing()
{
    return 8;
}

TEST_F(SsatRegistration, CommandRegisteredAgainTakesTheEarlierOnesPlace)
{
    ASSERT_EQ(ssat_lib_init(global, module), 0);
    EXPECT_EQ(ssat_reg_mod_cmd(module, "nothing", 0, "void", nothing), 0);
    EXPECT_EQ(ssat_reg_mod_cmd(module, "later", 0, "void", nothing), 0);
    EXPECT_EQ(ssat_reg_mod_cmd(module, "nothing", 0, "void", other_nothing), 0);
    Child served{[&] { return vx_global_run(global); }};
    EXPECT_EQ(run("nothing").result, 8);
    EXPECT_EQ(ssat::commands(path, patience).size(), 2U);
}

// --- The client

TEST_F(Ssat, ClientTellsWhenNobodyIsThere)
{
    EXPECT_EQ(refusal_of("nothing").failure(), ssat::Failure::nobody_there);
    start();
    daemon->send(SIGKILL);
    daemon->wait();
    const ssat::Error dead = refusal_of("nothing");
    EXPECT_EQ(dead.failure(), ssat::Failure::nobody_there);
    EXPECT_EQ(std::string(dead.what()), path + ": no process listens there");
}

TEST_F(Ssat, ClientGivesUpOnASilentShell)
{
    ssat::SocketFile silent;
    int error = 0;
    ASSERT_TRUE(silent.open(path, error));
    try {
        ssat::run(path, module, "nothing", {}, 20ms);
        ADD_FAILURE() << "nobody can have answered";
    } catch (const ssat::Error &failure) {
        EXPECT_EQ(failure.failure(), ssat::Failure::timed_out);
    }
}

TEST_F(Ssat, ClientTellsWhenTheProcessEndsInTheMiddle)
{
    start();
    EXPECT_EQ(refusal_of("end").failure(), ssat::Failure::broken);
    EXPECT_EQ(daemon->wait(), 77);
}

TEST(SsatProtocol, FieldsSurviveTheJourney)
{
    const ssat::Fields fields = {"", std::string("\0\n", 2), std::string(70'000, 'x')};
    const std::string frame = ssat::encode(fields);
    const auto length = ssat::decode_header(frame);
    ASSERT_TRUE(length.has_value());
    EXPECT_EQ(*length, frame.size() - ssat::header_size);
    EXPECT_EQ(ssat::decode_fields(frame.substr(ssat::header_size)), fields);
}

} // namespace
