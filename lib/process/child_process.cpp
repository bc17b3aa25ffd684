// A command that runs beside us.
#include "process/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "base/text.h"

namespace cg
{

namespace
{

constexpr std::size_t most_kept = 4096; // bytes of what a command prints; the rest is discarded

void check(int error, const char *what)
{
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), what);
    }
}

struct Pipe {
    platform::Descriptor reading;
    platform::Descriptor writing;
};

Pipe make_pipe()
{
    std::array<int, 2> ends{};
    check(pipe2(ends.data(), O_CLOEXEC) == 0 ? 0 : errno, "pipe");
    Pipe result{platform::Descriptor(ends[0]), platform::Descriptor(ends[1])};
    check(fcntl(ends[0], F_SETFL, O_NONBLOCK) == 0 ? 0 : errno, "pipe");
    return result;
}

// The arguments of exec. The texts stay the caller's.
std::vector<char *> pointers(std::vector<std::string> &texts)
{
    std::vector<char *> result;
    result.reserve(texts.size() + 1);
    for (std::string &text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

// How a command is started: what it has open, its group, and signals as a program expects to find them.
class Spawning
{
public:
    Spawning(int output_end, int error_end) : Spawning()
    {
        require(posix_spawn_file_actions_addopen(&actions_, 0, "/dev/null", O_RDONLY, 0));
        require(posix_spawn_file_actions_adddup2(&actions_, output_end, 1));
        require(posix_spawn_file_actions_adddup2(&actions_, error_end, 2));
        // It must not hold connections and locks of ours open.
        require(posix_spawn_file_actions_addclosefrom_np(&actions_, 3));
        sigset_t none;
        sigset_t defaults;
        sigemptyset(&none);
        sigemptyset(&defaults);
        sigaddset(&defaults, SIGPIPE);
        sigaddset(&defaults, SIGTERM);
        sigaddset(&defaults, SIGINT);
        require(posix_spawnattr_setpgroup(&attributes_, 0));
        require(posix_spawnattr_setsigmask(&attributes_, &none));
        require(posix_spawnattr_setsigdefault(&attributes_, &defaults));
        require(posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK |
                                                           POSIX_SPAWN_SETSIGDEF));
    }
    ~Spawning()
    {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    Spawning(const Spawning &) = delete;
    Spawning &operator=(const Spawning &) = delete;

    pid_t start(std::vector<std::string> words, std::vector<std::string> variables) const
    {
        pid_t pid = -1;
        require(posix_spawnp(&pid, words.front().c_str(), &actions_, &attributes_, pointers(words).data(),
                             pointers(variables).data()));
        return pid;
    }

private:
    Spawning()
    {
        require(posix_spawn_file_actions_init(&actions_));
        require(posix_spawnattr_init(&attributes_));
    }
    static void require(int error) { check(error, "posix_spawn"); }

    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

// Closes the pipe at its end, which would otherwise stay readable.
void drain(platform::Descriptor &pipe, std::string &kept)
{
    std::array<char, most_kept> buffer{};
    while (pipe) {
        const ssize_t count = read(pipe.get(), buffer.data(), buffer.size());
        if (count < 0) {
            return; // nothing now
        }
        if (count == 0) {
            pipe.reset();
        }
        kept.append(buffer.data(), std::min(static_cast<std::size_t>(count), most_kept - kept.size()));
    }
}

} // namespace

ChildProcess::ChildProcess(const std::vector<std::string> &command,
                           const std::vector<std::string> &environment)
{
    Pipe output = make_pipe();
    Pipe errors = make_pipe();
    output_pipe_ = std::move(output.reading);
    error_pipe_ = std::move(errors.reading);
    events_.reset(epoll_create1(EPOLL_CLOEXEC));
    check(events_ ? 0 : errno, "epoll");
    watch(output_pipe_);
    watch(error_pipe_);
    pid_ = Spawning(output.writing.get(), errors.writing.get()).start(command, environment);
    try {
        end_.reset(static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)));
        check(end_ ? 0 : errno, "pidfd_open");
        watch(end_);
    } catch (const std::system_error &) {
        end();
        throw;
    }
}

void ChildProcess::watch(const platform::Descriptor &source)
{
    epoll_event event{};
    event.events = EPOLLIN;
    check(epoll_ctl(events_.get(), EPOLL_CTL_ADD, source.get(), &event) == 0 ? 0 : errno, "epoll");
}

ChildProcess::~ChildProcess()
{
    end();
}

void ChildProcess::end()
{
    if (pid_ > 0) {
        signal_group(SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

std::optional<int> ChildProcess::poll()
{
    if (pid_ > 0) {
        int status = 0;
        const pid_t ended = waitpid(pid_, &status, WNOHANG);
        drain(output_pipe_, output_); // after waitpid(), so that nothing it printed is missed
        drain(error_pipe_, errors_);
        if (ended == pid_) {
            status_ = status;
            pid_ = -1;
            end_.reset();
            output_pipe_.reset();
            error_pipe_.reset();
        }
    }
    return status_;
}

std::optional<int> ChildProcess::wait_for(std::chrono::milliseconds limit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!poll()) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            break;
        }
        pollfd event{events_.get(), POLLIN, 0};
        ::poll(&event, 1, static_cast<int>(std::min<int64_t>(left.count(), INT_MAX)));
    }
    return status_;
}

void ChildProcess::signal_group(int signal_number)
{
    if (pid_ > 0) {
        kill(-pid_, signal_number);
    }
}

std::string find_program(const std::string &program)
{
    if (program.find('/') != std::string::npos) {
        return access(program.c_str(), X_OK) == 0 ? program : "";
    }
    const char *path = getenv("PATH");
    for (const std::string &folder : split(path == nullptr ? "/bin:/usr/bin" : path, ':')) {
        std::string place = folder.empty() ? "." : folder;
        place.append("/").append(program);
        if (access(place.c_str(), X_OK) == 0) {
            return place;
        }
    }
    return {};
}

} // namespace cg
