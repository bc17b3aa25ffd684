// A private store server, and the command run against it.
#include "store_fixture.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <stdexcept>

#include "command_line/cli.h"

namespace cg
{

namespace
{

constexpr std::chrono::seconds patience{20};
constexpr int look_again_ms = 2;

// A socket; whether it is connected is in `connected`.
int connect_to(const std::string &path, bool &connected)
{
    const int socket_number = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    connected = connect(socket_number, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    return socket_number;
}

bool can_connect(const std::string &path)
{
    bool connected = false;
    close(connect_to(path, connected));
    return connected;
}

// Reads what is there. False at the end of the pipe.
void read_available(int pipe, std::string &text)
{
    std::array<char, 4096> buffer{};
    for (;;) {
        const ssize_t count = read(pipe, buffer.data(), buffer.size());
        if (count <= 0) {
            return;
        }
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

} // namespace

Outcome run_cgctl(const std::vector<std::string> &arguments)
{
    std::ostringstream out;
    std::ostringstream err;
    const int status = run(arguments, out, err);
    return {status, out.str(), err.str()};
}

bool eventually(const std::function<bool()> &condition)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        poll(nullptr, 0, look_again_ms);
    }
    return true;
}

Folder::Folder()
{
    const char *base = getenv("TMPDIR");
    path_ = std::string(base == nullptr ? "/tmp" : base) + "/cgctl-XXXXXX";
    if (mkdtemp(path_.data()) == nullptr) {
        throw std::runtime_error("mkdtemp " + path_ + ": " + std::strerror(errno));
    }
}

Folder::~Folder()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
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

std::unique_ptr<Child> start_cgctl(const std::vector<std::string> &arguments)
{
    return std::make_unique<Child>([&] { return run(arguments, std::cout, std::cerr); });
}

StoreTest::StoreTest()
{
    start_server();
    setenv("VX_MOM_ENDPOINT", ("unix:" + folder_.path("store")).c_str(), 1);
}

StoreTest::~StoreTest()
{
    stop_server();
}

void StoreTest::start_server()
{
    const std::string socket_path = folder_.path("store");
    server_ = std::make_unique<Child>([&] {
        execl(REDIS_SERVER_PATH, "redis-server", "--databases", "64", "--port", "0", "--unixsocket",
              socket_path.c_str(), "--save", "", "--appendonly", "no", "--dir", folder_.path("").c_str(),
              static_cast<char *>(nullptr));
        return 127;
    });
    if (!eventually([&] { return can_connect(socket_path); })) {
        throw std::runtime_error("the store server did not start: " + server_->out() + server_->err());
    }
}

void StoreTest::stop_server()
{
    if (server_) {
        server_->send(SIGTERM);
        server_->wait();
        server_.reset();
    }
}

std::string StoreTest::tell_server(const std::string &lines) const
{
    bool connected = false;
    const int server = connect_to(folder_.path("store"), connected);
    const std::string request = lines + "QUIT\r\n"; // so that the answers end
    std::string answers;
    if (connected && write(server, request.data(), request.size()) == static_cast<ssize_t>(request.size())) {
        read_available(server, answers);
    }
    close(server);
    return answers;
}

std::string StoreTest::cgctl(const std::vector<std::string> &arguments)
{
    const Outcome outcome = run_cgctl(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    return outcome.out;
}

} // namespace cg
