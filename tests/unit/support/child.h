// Child processes of tests, and waiting for what they do.
#ifndef SUPPORT_CHILD_H
#define SUPPORT_CHILD_H

#include <sys/types.h>

#include <functional>
#include <string>

namespace cg
{

// Waits for a condition by testing it again and again; false when it did not become true within 20 s.
bool eventually(const std::function<bool()> &condition);

// Appends what can be read from a descriptor without waiting, or up to its end.
void read_available(int descriptor, std::string &text);

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

} // namespace cg

#endif
