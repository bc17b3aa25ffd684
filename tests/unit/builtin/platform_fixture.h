// What the tests of the platform's own libraries share: private folders, settings, and processes to try
// things in.
//
// Much of what is tested belongs to a whole process (its standard output, its signals, its locks, its end),
// so it is tried in a child: a fork of the test program, which runs one function and ends with its result.
#ifndef PLATFORM_FIXTURE_H
#define PLATFORM_FIXTURE_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include <sys/types.h>

#include "loop/descriptor.h"
#include "vx_thread.h"

namespace testing_platform
{

constexpr std::chrono::seconds patience{20}; // for what is certain to come

// A folder below $TMPDIR that disappears with the object.
class TempFolder
{
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder &) = delete;
    TempFolder &operator=(const TempFolder &) = delete;

    const std::string &path() const { return path_; }
    std::string file(const std::string &name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

// A setting in the environment for the lifetime of the object; null unsets it.
class ScopedSetting
{
public:
    ScopedSetting(std::string name, const char *value);
    ScopedSetting(const std::string &name, const std::string &value) : ScopedSetting(name, value.c_str()) {}
    ~ScopedSetting();
    ScopedSetting(const ScopedSetting &) = delete;
    ScopedSetting &operator=(const ScopedSetting &) = delete;

private:
    std::string name_;
    std::string before_;
    bool was_set_;
};

// A line between a child and its parent: the child says "here I am", the parent waits for it.
class Signpost
{
public:
    Signpost();
    void reach();              // any process: passed on to whoever waits
    [[nodiscard]] bool wait(); // false when nobody reached it in time

private:
    platform::Descriptor in_;
    platform::Descriptor out_;
};

// A child process that runs a function; killed and reaped at the latest with the object.
class Child
{
public:
    // The function's result becomes the exit status, 1 when a test's expectation failed in it.
    explicit Child(const std::function<int()> &body);
    ~Child();
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    pid_t pid() const { return pid_; }
    void send(int signal_number) const;
    // Waits for the end. Returns the exit status, or 128 plus the number of the signal that ended it.
    int wait();

private:
    pid_t pid_;
    bool running_ = true;
};

constexpr int cannot_be_tried_here = 77;

// Runs a function in a child that has /run and /dev for itself, both empty. Returns its exit status, or
// cannot_be_tried_here when the system does not let us have such a view.
int run_in_private_view(const std::function<int()> &body);

// Reads a whole file; "" when there is none.
std::string content_of(const std::string &path);
void write_file(const std::string &path, const std::string &content);

// A timer that sends this process SIGTERM, from outside of the loop.
void end_loop_after(std::chrono::milliseconds delay);

timeval to_timeval(std::chrono::microseconds span);

// A datagram socket that things are reported to.
class Mailbox
{
public:
    explicit Mailbox(const std::string &path);
    // Returns the next message, "" when none came in time.
    std::string next(std::chrono::milliseconds within = patience) const;

private:
    platform::Descriptor socket_;
};

} // namespace testing_platform

#endif
