// A private store server for tests; see the header.
#include "unit/support/store_server.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <stdexcept>

#include "unit/support/raw_command.h"
#include "unit/support/store_program.h"

namespace cg
{

namespace
{

[[noreturn]] void become_server(const Folder &folder, const std::string &databases)
{
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    (void)dup2(null, STDIN_FILENO);
    (void)dup2(null, STDOUT_FILENO);
    (void)dup2(null, STDERR_FILENO);
    become_store_server({"--databases", databases, "--port", "0", "--bind", "127.0.0.1", "--unixsocket",
                         folder.path("store"), "--save", "", "--appendonly", "no", "--dir", folder.path("")});
    _exit(127);
}

} // namespace

StoreServer::StoreServer(int databases) : databases_(databases)
{
    start();
}

StoreServer::~StoreServer()
{
    kill();
}

void StoreServer::kill()
{
    end(SIGKILL);
}

void StoreServer::stop()
{
    end(SIGTERM);
}

void StoreServer::end(int signal)
{
    if (pid_ > 0) {
        (void)::kill(pid_, signal);
        (void)waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
}

void StoreServer::start()
{
    (void)unlink(socket_path().c_str());
    const std::string databases = std::to_string(databases_);
    pid_ = fork();
    if (pid_ == 0) {
        become_server(folder_, databases);
    }
    wait_until_it_answers();
}

void StoreServer::freeze()
{
    (void)::kill(pid_, SIGSTOP);
    int status = 0;
    (void)waitpid(pid_, &status, WUNTRACED);
}

void StoreServer::thaw()
{
    (void)::kill(pid_, SIGCONT);
}

std::string StoreServer::run(int database, const std::vector<std::string> &command)
{
    const RawContext context(redisConnectUnix(socket_path().c_str()));
    if (context == nullptr || context->err != 0) {
        return "(no connection)";
    }
    (void)run_raw(*context, {"SELECT", std::to_string(database)});
    return run_raw(*context, command);
}

std::string StoreServer::run_as(const std::string &user, const std::string &password,
                                const std::vector<std::string> &command)
{
    const RawContext context(redisConnectUnix(socket_path().c_str()));
    if (context == nullptr || context->err != 0) {
        return "(no connection)";
    }
    (void)run_raw(*context, {"AUTH", user, password});
    return run_raw(*context, command);
}

void StoreServer::wait_until_it_answers()
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < deadline) {
        if (run(0, {"PING"}) == "PONG") {
            return;
        }
        (void)poll(nullptr, 0, 2);
    }
    throw std::runtime_error("the store server does not come up at " + socket_path());
}

} // namespace cg
