// One server or sentinel for tests; see the header.
#include "server_process.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "unit/support/raw_command.h"
#include "unit/support/store_program.h"

namespace store_test
{

namespace
{

constexpr timeval patience{2, 0}; // with a server that may be frozen

bool is_free(int port)
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int on = 1;
    (void)setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const bool bound = bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    (void)close(fd);
    return bound;
}

// Below the ports that the system gives to whoever connects somewhere, lest one be taken by the time that a
// server that was killed comes back to it. Tests that run at the same time begin at different ones.
int next_free_port()
{
    constexpr int first = 12000;
    constexpr int count = 20000;
    static int tried = getpid() * 61;
    for (int i = 0; i < count; i++) {
        const int port = first + tried++ % count;
        if (is_free(port)) {
            return port;
        }
    }
    throw std::runtime_error("no port is free");
}

} // namespace

bool eventually(const std::function<bool()> &condition, std::chrono::milliseconds limit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        (void)poll(nullptr, 0, 10);
    }
    return true;
}

ServerProcess::ServerProcess(const Settings &settings) : settings_(settings)
{
    const char *kind = settings.is_sentinel ? "/sentinel" : "/server";
    for (int attempt = 0; attempt < 20; attempt++) {
        port_ = next_free_port();
        folder_ = settings.folder;
        folder_.append(kind).append(std::to_string(port_));
        std::filesystem::create_directory(folder_);
        if (start()) {
            return;
        }
    }
    throw std::runtime_error("no server comes up in " + folder_);
}

bool ServerProcess::start()
{
    std::ofstream(folder_ + "/conf") << "port " << port_ << "\nbind " << loopback << "\ndir " << folder_
                                     << "\nlogfile " << folder_ << "/log\n"
                                     << settings_.lines;
    pid_ = fork();
    if (pid_ == 0) {
        become();
    }
    const std::string own = "process_id:" + std::to_string(pid_) + "\r\n";
    const bool is_up = eventually([&] {
                           return has_ended() || run({"INFO", "server"}).find(own) != std::string::npos;
                       }) &&
                       pid_ > 0;
    if (!is_up) {
        kill();
    }
    return is_up;
}

void ServerProcess::become() const
{
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL); // should the test itself be killed
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    (void)dup2(null, STDIN_FILENO);
    (void)dup2(null, STDOUT_FILENO);
    (void)dup2(null, STDERR_FILENO);
    std::vector<std::string> arguments{folder_ + "/conf"};
    if (settings_.is_sentinel) {
        arguments.emplace_back("--sentinel");
    }
    cg::become_store_server(arguments);
    _exit(127);
}

bool ServerProcess::has_ended()
{
    if (pid_ > 0 && waitpid(pid_, nullptr, WNOHANG) == pid_) {
        pid_ = -1;
    }
    return pid_ <= 0;
}

void ServerProcess::kill()
{
    if (pid_ > 0) {
        (void)::kill(pid_, SIGKILL);
        (void)waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
}

void ServerProcess::freeze()
{
    (void)::kill(pid_, SIGSTOP);
    int status = 0;
    (void)waitpid(pid_, &status, WUNTRACED);
}

void ServerProcess::thaw()
{
    (void)::kill(pid_, SIGCONT);
}

std::string ServerProcess::run(const std::vector<std::string> &command)
{
    const cg::RawContext context(redisConnectWithTimeout(loopback, port_, patience));
    if (context == nullptr || context->err != 0) {
        return "(no reply)";
    }
    (void)redisSetTimeout(context.get(), patience);
    if (!settings_.password.empty()) {
        (void)cg::run_raw(*context, {"AUTH", settings_.password});
    }
    return cg::run_raw(*context, command);
}

} // namespace store_test
