// A private store server, and the command run against it.
//
// The command is called as a function where it ends by itself, and in a forked child where it stays until it
// is stopped, so that signals and pipes are real there.
#ifndef CGCTL_STORE_FIXTURE_H
#define CGCTL_STORE_FIXTURE_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "records/record_text.h"

namespace cg
{

// What came of one invocation.
struct Outcome {
    int status = -1;
    std::string out;
    std::string err;

    [[nodiscard]] Json json() const { return Json::parse(out); }
};

// Runs the command in this process.
Outcome run_cgctl(const std::vector<std::string> &arguments);

// Waits for a condition, looking at it again and again; false when it did not become true within 20 s.
bool eventually(const std::function<bool()> &condition);

// A temporary folder, removed with all that is in it.
class Folder
{
public:
    Folder();
    ~Folder();
    Folder(const Folder &) = delete;
    Folder &operator=(const Folder &) = delete;
    [[nodiscard]] std::string path(const std::string &name) const { return path_ + '/' + name; }

private:
    std::string path_;
};

// A child process whose standard output and standard error are read here. Ended with SIGKILL at the latest
// when this object dies.
class Child
{
public:
    // Runs `body` in the child, which exits with its result.
    explicit Child(const std::function<int()> &body);
    ~Child();
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    [[nodiscard]] pid_t pid() const { return pid_; }
    // What it has printed so far.
    const std::string &out();
    const std::string &err();
    // Waits until it has printed this; false after 20 s or when it ended without.
    bool prints(const std::string &text);
    bool says(const std::string &text); // on standard error
    void send(int signal_number) const;
    // Waits for its end and returns its exit status; 128 and the signal's number when it was killed.
    int wait();

private:
    void read_pipes();

    pid_t pid_ = -1;
    int out_pipe_ = -1;
    int err_pipe_ = -1;
    std::string out_;
    std::string err_;
};

// Starts the command in a child.
std::unique_ptr<Child> start_cgctl(const std::vector<std::string> &arguments);

// A test with an empty store of its own.
class StoreTest : public testing::Test
{
protected:
    StoreTest();
    ~StoreTest() override;

    void start_server();
    void stop_server();

    // Has the server carry out its own commands, one a line, past the command under test. Returns what it
    // answered.
    [[nodiscard]] std::string tell_server(const std::string &lines) const;

    // Runs the command and expects success.
    std::string cgctl(const std::vector<std::string> &arguments);

    Folder folder_;

private:
    std::unique_ptr<Child> server_;
};

} // namespace cg

#endif
