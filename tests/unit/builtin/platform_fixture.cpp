// What the tests of the platform's own libraries share.
//
// fork without exec: the child tests the very code that was linked into the test program, sanitizers
// included.
#include "platform_fixture.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "unit/private_view.h"

namespace testing_platform
{
namespace
{

[[noreturn]] void fail(const char *what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

int milliseconds(std::chrono::milliseconds span)
{
    return static_cast<int>(span.count());
}

bool readable(int fd, std::chrono::milliseconds within)
{
    pollfd wanted{fd, POLLIN, 0};
    int ready = 0;
    do {
        ready = poll(&wanted, 1, milliseconds(within));
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

// A view without anything of the system's in /run and /dev.
bool enter_empty_view()
{
    return enter_private_view() && mount("tmpfs", "/run", "tmpfs", 0, nullptr) == 0 &&
           mount("tmpfs", "/dev", "tmpfs", 0, nullptr) == 0;
}

} // namespace

TempFolder::TempFolder()
{
    const char *base = getenv("TMPDIR");
    std::string pattern = std::string(base == nullptr ? "/tmp" : base) + "/platform_test.XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        fail("mkdtemp");
    }
    path_ = pattern;
}

TempFolder::~TempFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

ScopedSetting::ScopedSetting(std::string name, const char *value) : name_(std::move(name))
{
    const char *before = getenv(name_.c_str());
    was_set_ = before != nullptr;
    before_ = was_set_ ? before : "";
    if (value == nullptr) {
        unsetenv(name_.c_str());
    } else {
        setenv(name_.c_str(), value, 1);
    }
}

ScopedSetting::~ScopedSetting()
{
    if (was_set_) {
        setenv(name_.c_str(), before_.c_str(), 1);
    } else {
        unsetenv(name_.c_str());
    }
}

Signpost::Signpost()
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        fail("pipe2");
    }
    in_.reset(ends[0]);
    out_.reset(ends[1]);
}

void Signpost::reach()
{
    if (write(out_.get(), "!", 1) != 1) {
        fail("write");
    }
}

bool Signpost::wait()
{
    char byte = 0;
    return readable(in_.get(), patience) && read(in_.get(), &byte, 1) == 1;
}

Child::Child(const std::function<int()> &body)
{
    fflush(nullptr);
    pid_ = fork();
    if (pid_ < 0) {
        fail("fork");
    }
    if (pid_ == 0) {
        int result = 1;
        try {
            result = body();
        } catch (const std::exception &problem) {
            fprintf(stderr, "child: %s\n", problem.what());
        }
        // exit, not _exit: the leak checker looks at the end of the process.
        std::exit(testing::Test::HasFailure() && result == 0 ? 1 : result);
    }
}

Child::~Child()
{
    if (running_) {
        send(SIGKILL);
        wait();
    }
}

void Child::send(int signal_number) const
{
    kill(pid_, signal_number);
}

int Child::wait()
{
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    running_ = false;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int run_in_private_view(const std::function<int()> &body)
{
    Child child{[&] { return enter_empty_view() ? body() : cannot_be_tried_here; }};
    return child.wait();
}

std::string content_of(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void write_file(const std::string &path, const std::string &content)
{
    std::ofstream(path, std::ios::binary) << content;
}

void end_loop_after(std::chrono::milliseconds delay)
{
    sigevent how{};
    how.sigev_notify = SIGEV_SIGNAL;
    how.sigev_signo = SIGTERM;
    timer_t timer{};
    if (timer_create(CLOCK_MONOTONIC, &how, &timer) != 0) {
        fail("timer_create");
    }
    itimerspec when{};
    when.it_value.tv_sec = delay.count() / 1000;
    when.it_value.tv_nsec = delay.count() % 1000 * 1'000'000;
    timer_settime(timer, 0, &when, nullptr);
}

timeval to_timeval(std::chrono::microseconds span)
{
    return {static_cast<time_t>(span.count() / 1'000'000),
            static_cast<suseconds_t>(span.count() % 1'000'000)};
}

Mailbox::Mailbox(const std::string &path) : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    auto length = static_cast<socklen_t>(sizeof address);
    if (path.starts_with('@')) {
        address.sun_path[0] = '\0';
        length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
    }
    if (bind(socket_.get(), reinterpret_cast<const sockaddr *>(&address), length) != 0) {
        fail("bind");
    }
}

std::string Mailbox::next(std::chrono::milliseconds within) const
{
    if (!readable(socket_.get(), within)) {
        return {};
    }
    std::string message;
    const ssize_t length = recv(socket_.get(), nullptr, 0, MSG_PEEK | MSG_TRUNC);
    message.resize(static_cast<size_t>(std::max<ssize_t>(length, 0)));
    if (recv(socket_.get(), message.data(), message.size(), 0) != length) {
        fail("recv");
    }
    return message;
}

} // namespace testing_platform
