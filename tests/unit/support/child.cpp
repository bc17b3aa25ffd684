// Child processes of tests; see the header.
#include "unit/support/child.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <iostream>
#include <stdexcept>

namespace cg
{

namespace
{

constexpr std::chrono::seconds patience{20};
constexpr int test_again_ms = 2;

} // namespace

bool eventually(const std::function<bool()> &condition)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        poll(nullptr, 0, test_again_ms);
    }
    return true;
}

void read_available(int descriptor, std::string &text)
{
    std::array<char, 4096> buffer{};
    for (;;) {
        const ssize_t count = read(descriptor, buffer.data(), buffer.size());
        if (count <= 0) {
            return;
        }
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

Child::Child(const std::function<int()> &body)
{
    std::array<int, 2> out{};
    std::array<int, 2> err{};
    if (pipe2(out.data(), O_CLOEXEC) != 0 || pipe2(err.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe");
    }
    std::cout.flush();
    pid_ = fork();
    if (pid_ == 0) {
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        const int status = body();
        std::cout.flush();
        _exit(status);
    }
    close(out[1]);
    close(err[1]);
    out_pipe_ = out[0];
    err_pipe_ = err[0];
    fcntl(out_pipe_, F_SETFL, O_NONBLOCK);
    fcntl(err_pipe_, F_SETFL, O_NONBLOCK);
}

Child::~Child()
{
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    close(out_pipe_);
    close(err_pipe_);
}

void Child::read_pipes()
{
    read_available(out_pipe_, out_);
    read_available(err_pipe_, err_);
}

const std::string &Child::out()
{
    read_pipes();
    return out_;
}

const std::string &Child::err()
{
    read_pipes();
    return err_;
}

bool Child::prints(const std::string &text)
{
    return eventually([&] { return out().find(text) != std::string::npos; });
}

bool Child::says(const std::string &text)
{
    return eventually([&] { return err().find(text) != std::string::npos; });
}

void Child::send(int signal_number) const
{
    kill(pid_, signal_number);
}

int Child::wait()
{
    int status = 0;
    const bool ended = eventually([&] { return waitpid(pid_, &status, WNOHANG) == pid_; });
    if (!ended) {
        return -1;
    }
    pid_ = -1;
    read_pipes();
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace cg
