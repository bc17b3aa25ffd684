// A command that runs beside us.
#include "process/child_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "base/text.h"

namespace cg
{

namespace
{

constexpr std::size_t most_kept = 4096; // of what a command prints; the rest is read and forgotten

void check(int error, const char *what)
{
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), what);
    }
}

struct Pipe {
    Descriptor reading;
    Descriptor writing;
};

Pipe make_pipe()
{
    std::array<int, 2> ends{};
    check(pipe2(ends.data(), O_CLOEXEC) == 0 ? 0 : errno, "pipe");
    Pipe result{Descriptor(ends[0]), Descriptor(ends[1])};
    check(fcntl(ends[0], F_SETFL, O_NONBLOCK) == 0 ? 0 : errno, "pipe");
    return result;
}

class FileActions
{
public:
    FileActions() { check(posix_spawn_file_actions_init(&actions_), "posix_spawn"); }
    ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }
    FileActions(const FileActions &) = delete;
    FileActions &operator=(const FileActions &) = delete;

    void set_up(int output_end, int error_end)
    {
        check(posix_spawn_file_actions_addopen(&actions_, 0, "/dev/null", O_RDONLY, 0), "posix_spawn");
        check(posix_spawn_file_actions_adddup2(&actions_, output_end, 1), "posix_spawn");
        check(posix_spawn_file_actions_adddup2(&actions_, error_end, 2), "posix_spawn");
        // The store's connections are none of its business.
        check(posix_spawn_file_actions_addclosefrom_np(&actions_, 3), "posix_spawn");
    }
    [[nodiscard]] const posix_spawn_file_actions_t *get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_{};
};

class Attributes
{
public:
    Attributes() { check(posix_spawnattr_init(&attributes_), "posix_spawn"); }
    ~Attributes() { posix_spawnattr_destroy(&attributes_); }
    Attributes(const Attributes &) = delete;
    Attributes &operator=(const Attributes &) = delete;

    // A group of its own, and signals as a program expects to find them.
    void set_up()
    {
        sigset_t none;
        sigset_t defaults;
        sigemptyset(&none);
        sigemptyset(&defaults);
        sigaddset(&defaults, SIGPIPE);
        sigaddset(&defaults, SIGTERM);
        sigaddset(&defaults, SIGINT);
        check(posix_spawnattr_setpgroup(&attributes_, 0), "posix_spawn");
        check(posix_spawnattr_setsigmask(&attributes_, &none), "posix_spawn");
        check(posix_spawnattr_setsigdefault(&attributes_, &defaults), "posix_spawn");
        check(posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK |
                                                         POSIX_SPAWN_SETSIGDEF),
              "posix_spawn");
    }
    [[nodiscard]] const posix_spawnattr_t *get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_{};
};

// The form that exec takes. The texts stay the caller's.
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

void drain(const Descriptor &pipe, std::string &kept)
{
    std::array<char, most_kept> buffer{};
    for (;;) {
        const ssize_t count = read(pipe.get(), buffer.data(), buffer.size());
        if (count <= 0) {
            return; // nothing now, or the end; the end is seen by the process' own
        }
        kept.append(buffer.data(), std::min(static_cast<std::size_t>(count), most_kept - kept.size()));
    }
}

} // namespace

Descriptor::Descriptor(Descriptor &&other) noexcept : number_(std::exchange(other.number_, -1)) {}

Descriptor &Descriptor::operator=(Descriptor &&other) noexcept
{
    std::swap(number_, other.number_);
    return *this;
}

void Descriptor::reset()
{
    if (number_ >= 0) {
        close(std::exchange(number_, -1));
    }
}

ChildProcess::ChildProcess(const std::vector<std::string> &command,
                           const std::vector<std::string> &environment)
{
    Pipe output = make_pipe();
    Pipe errors = make_pipe();
    output_pipe_ = std::move(output.reading);
    error_pipe_ = std::move(errors.reading);
    start(command, environment, output.writing, errors.writing);
}

void ChildProcess::start(const std::vector<std::string> &command, const std::vector<std::string> &environment,
                         const Descriptor &output_end, const Descriptor &error_end)
{
    FileActions actions;
    actions.set_up(output_end.get(), error_end.get());
    Attributes attributes;
    attributes.set_up();
    std::vector<std::string> words = command;
    std::vector<std::string> variables = environment;
    check(posix_spawnp(&pid_, command.front().c_str(), actions.get(), attributes.get(),
                       pointers(words).data(), pointers(variables).data()),
          "posix_spawn");
}

ChildProcess::~ChildProcess()
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
        drain(output_pipe_, output_); // after the question, so that nothing it printed is missed
        drain(error_pipe_, errors_);
        if (ended == pid_) {
            status_ = status;
            pid_ = -1;
            output_pipe_.reset();
            error_pipe_.reset();
        }
    }
    return status_;
}

void ChildProcess::signal_group(int signal_number)
{
    if (pid_ > 0) {
        kill(-pid_, signal_number);
    }
}

bool is_executable(const std::string &program)
{
    if (program.find('/') != std::string::npos) {
        return access(program.c_str(), X_OK) == 0;
    }
    const char *path = getenv("PATH");
    const std::vector<std::string> folders = split(path == nullptr ? "/bin:/usr/bin" : path, ':');
    return std::any_of(folders.begin(), folders.end(), [&](const std::string &folder) {
        return access((folder.empty() ? program : folder + '/' + program).c_str(), X_OK) == 0;
    });
}

} // namespace cg
