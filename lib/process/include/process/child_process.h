// A command that runs beside us: started, listened to and ended without ever waiting for it.
//
// posix_spawn rather than fork: the parent has an event loop, connections and locks of libraries that a
// forked child would share. The child leads a process group of its own, so that what it starts ends with it.
#ifndef PROCESS_CHILD_PROCESS_H
#define PROCESS_CHILD_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "loop/descriptor.h"

namespace cg
{

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

    // Readable as long as poll() has something to do: output to read, or the end of the process to note. For
    // an event loop; stays this object's.
    [[nodiscard]] int descriptor() const { return events_.get(); }

    // Reads what it has printed. Returns the wait status (see waitpid(2)) once it has ended; nothing while it
    // runs.
    std::optional<int> poll();

    // The same, once it has ended, or nothing after the limit.
    std::optional<int> wait_for(std::chrono::milliseconds limit);

    // Sends a signal to it and to all that it has started in its group. Does nothing once it has ended.
    void signal_group(int signal_number);

    // What it printed so far, the first few kilobytes.
    [[nodiscard]] const std::string &output() const { return output_; }
    [[nodiscard]] const std::string &errors() const { return errors_; }

private:
    void watch(const platform::Descriptor &source);
    void end();

    pid_t pid_ = -1; // -1 once it was waited for
    std::optional<int> status_;
    platform::Descriptor events_; // an epoll of the three below
    platform::Descriptor end_;    // readable once the process has ended
    platform::Descriptor output_pipe_;
    platform::Descriptor error_pipe_;
    std::string output_;
    std::string errors_;
};

// The path of a command's program, as execvp(3) would find it; empty when none can be executed.
std::string find_program(const std::string &program);

} // namespace cg

#endif
