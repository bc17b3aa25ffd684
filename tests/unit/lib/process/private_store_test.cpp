// A real server, started and stopped.
#include "process/private_store.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstdlib>
#include <fstream>

#include "base/failure.h"

namespace cg
{

namespace
{

namespace fs = std::filesystem;

// Sends one inline command and returns the first line of the reply.
std::string reply_to(const PrivateStore &store, const std::string &command)
{
    const platform::Descriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const std::string path = store.endpoint().substr(5);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(static_cast<char *>(address.sun_path), sizeof address.sun_path - 1);
    if (connect(connection.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        return "no connection";
    }
    const std::string line = command + "\r\n";
    EXPECT_EQ(send(connection.get(), line.data(), line.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(line.size()));
    std::string reply;
    for (char byte = 0; recv(connection.get(), &byte, 1, 0) == 1 && byte != '\n';) {
        reply += byte;
    }
    return reply;
}

// A setting of the environment, restored at the end of a scope.
class ScopedVariable
{
public:
    ScopedVariable(const char *name, const std::string &value) : name_(name)
    {
        if (const char *before = getenv(name)) {
            before_ = before;
        }
        setenv(name, value.c_str(), 1);
    }
    ~ScopedVariable() { before_ ? setenv(name_, before_->c_str(), 1) : unsetenv(name_); }
    ScopedVariable(const ScopedVariable &) = delete;
    ScopedVariable &operator=(const ScopedVariable &) = delete;

private:
    const char *name_;
    std::optional<std::string> before_;
};

} // namespace

TEST(PrivateStore, ServesInAFolderOfItsOwnAndLeavesNothing)
{
    fs::path folder;
    {
        const PrivateStore store;
        const PrivateStore another;
        folder = store.folder();
        EXPECT_NE(folder, another.folder());
        EXPECT_EQ(store.endpoint(), "unix:" + (folder / "store.sock").string());
        EXPECT_EQ(fs::status(folder).permissions(), fs::perms::owner_all);
        std::ofstream(folder / "more") << "";
        EXPECT_EQ(reply_to(store, "PING"), "+PONG\r");
    }
    EXPECT_FALSE(fs::exists(folder));
}

TEST(PrivateStore, KeepsItsDataOverARestart)
{
    PrivateStore store;
    EXPECT_EQ(reply_to(store, "SET a 17"), "+OK\r");
    store.stop();
    EXPECT_EQ(reply_to(store, "PING"), "no connection");
    store.start();
    EXPECT_EQ(reply_to(store, "STRLEN a"), ":2\r");
}

TEST(PrivateStore, HasDatabasesEnoughForARealOne)
{
    const PrivateStore store;
    EXPECT_EQ(reply_to(store, "SELECT 63"), "+OK\r");
}

TEST(PrivateStore, SaysWhichPackageHasAServer)
{
    const ScopedVariable path("PATH", "/nowhere");
    try {
        const PrivateStore store;
        FAIL() << "a server without a program";
    } catch (const Failure &problem) {
        EXPECT_EQ(problem.status(), failed);
        EXPECT_NE(std::string(problem.what()).find("apt-get install redis-tools"), std::string::npos);
    }
}

TEST(PrivateStore, SaysWhatAServerThatDoesNotStartPrinted)
{
    const ScopedVariable folder("TMPDIR", "/tmp");
    const fs::path programs = fs::temp_directory_path() / ("programs." + std::to_string(getpid()));
    fs::create_directory(programs);
    std::ofstream(programs / "redis-server") << "#!/bin/sh\necho no licence >&2; exit 1\n";
    fs::permissions(programs / "redis-server", fs::perms::owner_all);
    const ScopedVariable path("PATH", programs.string());
    EXPECT_THROW(
        {
            try {
                const PrivateStore store;
            } catch (const Failure &problem) {
                EXPECT_EQ(std::string(problem.what()),
                          (programs / "redis-server").string() + " did not start: no licence\\n");
                throw;
            }
        },
        Failure);
    fs::remove_all(programs);
}

TEST(PrivateStore, SaysWhyAServerCannotBeStarted)
{
    const fs::path programs = fs::temp_directory_path() / ("not-programs." + std::to_string(getpid()));
    fs::create_directory(programs);
    std::ofstream(programs / "redis-server") << "no program";
    fs::permissions(programs / "redis-server", fs::perms::owner_all);
    const ScopedVariable path("PATH", programs.string());
    std::string problem;
    try {
        const PrivateStore store;
    } catch (const Failure &failure) {
        problem = failure.what();
    }
    EXPECT_EQ(problem,
              (programs / "redis-server").string() + " cannot be started: posix_spawn: Exec format error");
    fs::remove_all(programs);
}

// A socket's path has at most some hundred bytes.
TEST(PrivateStore, AFolderTooDeepForASocketIsNotUsed)
{
    const fs::path deep =
        fs::temp_directory_path() / ("deep." + std::to_string(getpid())) / std::string(90, 'd');
    fs::create_directories(deep);
    {
        const ScopedVariable folder("TMPDIR", deep.string());
        const PrivateStore store;
        EXPECT_TRUE(fs::is_empty(deep));
        EXPECT_EQ(reply_to(store, "PING"), "+PONG\r");
    }
    fs::remove_all(deep.parent_path());
}

} // namespace cg
