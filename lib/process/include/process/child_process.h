// A command that runs beside us: started, listened to and ended without ever waiting for it.
//
// posix_spawn rather than fork: the parent has an event loop, connections and locks of libraries that a
// forked child would share. The child leads a process group of its own, so that what it starts ends with it.
#ifndef PROCESS_CHILD_PROCESS_H
#define PROCESS_CHILD_PROCESS_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace cg
{

// A file descriptor that is closed with its owner.
class Descriptor
{
public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor &&other) noexcept;
    Descriptor &operator=(Descriptor &&other) noexcept;
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    [[nodiscard]] int get() const { return number_; }
    void reset();

private:
    int number_ = -1;
};

class ChildProcess
{
public:
    // Starts a command, searched for in PATH, with this environment ("NAME=VALUE") and empty input. Throws
    // std::system_error when it cannot be started.
    ChildProcess(const std::vector<std::string> &command, const std::vector<std::string> &environment);

    // Kills what still runs, and waits for that.
    ~ChildProcess();

    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    // Takes what it has printed. Returns the wait status (see waitpid(2)) once it has ended; nothing while it
    // runs.
    std::optional<int> poll();

    // Sends a signal to it and to all that it has started in its group. Does nothing once it has ended.
    void signal_group(int signal_number);

    // What it printed so far, the first few kilobytes.
    [[nodiscard]] const std::string &output() const { return output_; }
    [[nodiscard]] const std::string &errors() const { return errors_; }

private:
    void start(const std::vector<std::string> &command, const std::vector<std::string> &environment,
               const Descriptor &output_end, const Descriptor &error_end);

    pid_t pid_ = -1; // -1 once it was waited for
    std::optional<int> status_;
    Descriptor output_pipe_;
    Descriptor error_pipe_;
    std::string output_;
    std::string errors_;
};

// Whether the command's program can be found and executed.
bool is_executable(const std::string &program);

} // namespace cg

#endif
