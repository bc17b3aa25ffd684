// A store server of one's own.
#include "process/private_store.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <system_error>
#include <vector>

#include "base/failure.h"
#include "base/text.h"

namespace cg
{

namespace
{

namespace fs = std::filesystem;

constexpr std::chrono::seconds patience{20};
constexpr int look_again_ms = 5;

bool eventually(const std::function<bool()> &condition)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        ::poll(nullptr, 0, look_again_ms);
    }
    return true;
}

// The program's path; empty when PATH has none of the name.
std::string found_in_path(const std::string &program)
{
    const char *path = getenv("PATH");
    for (const std::string &folder : split(path == nullptr ? "/usr/bin:/bin" : path, ':')) {
        std::string place = (folder.empty() ? "." : folder) + '/' + program;
        if (access(place.c_str(), X_OK) == 0) {
            return place;
        }
    }
    return {};
}

// Debian's redis-tools has the server's program under another name, and the program goes by the name that it
// is called by; hence the link.
std::string server_program(const fs::path &folder)
{
    for (const char *name : {"redis-server", "valkey-server"}) {
        if (std::string place = found_in_path(name); !place.empty()) {
            return place;
        }
    }
    const std::string other_name = found_in_path("redis-check-rdb");
    if (other_name.empty()) {
        throw Failure(failed,
                      "no store server: PATH has neither redis-server nor valkey-server nor redis-check-rdb; "
                      "the package redis-tools has one, `apt-get install redis-tools`");
    }
    fs::create_symlink(other_name, folder / "redis-server");
    return folder / "redis-server";
}

// Whether somebody who has read his data listens.
bool answers(const fs::path &socket_path)
{
    const Descriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socket_path.native().copy(static_cast<char *>(address.sun_path), sizeof address.sun_path - 1);
    if (connect(connection.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        return false;
    }
    const std::string question = "PING\r\n";
    std::string answer(5, '\0');
    return send(connection.get(), question.data(), question.size(), MSG_NOSIGNAL) > 0 &&
           recv(connection.get(), answer.data(), answer.size(), MSG_WAITALL) > 0 && answer == "+PONG";
}

// Below $TMPDIR, unless that lies so deep that the path of a socket there would be longer than the system
// allows.
fs::path new_folder()
{
    const fs::path name = "cgctl-store-XXXXXX";
    const fs::path asked_for = fs::temp_directory_path() / name;
    const bool has_room =
        (asked_for / PrivateStore::socket_name).native().size() < sizeof(sockaddr_un::sun_path);
    std::string path = has_room ? asked_for : "/tmp" / name;
    if (mkdtemp(path.data()) == nullptr) {
        throw Failure(failed, "cannot make a folder like " + path + ": " + strerror(errno));
    }
    return path;
}

} // namespace

PrivateStore::PrivateStore() : folder_(new_folder())
{
    try {
        program_ = server_program(folder_);
        start();
    } catch (const std::exception &) {
        std::error_code ignored;
        server_.reset();
        fs::remove_all(folder_, ignored);
        throw;
    }
}

PrivateStore::~PrivateStore()
{
    server_.reset(); // by force; the data are not wanted any more
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
}

void PrivateStore::start()
{
    // "save" has it write its data at a regular end.
    const std::vector<std::string> command{
        program_, "--databases",    "64",           "--port",          "0",
        "--dir",  folder_.string(), "--unixsocket", socket().string(), "--unixsocketperm",
        "700",    "--save",         "3600 1",       "--appendonly",    "no"};
    try {
        server_ = std::make_unique<ChildProcess>(command, std::vector<std::string>{"PATH=/usr/bin:/bin"});
    } catch (const std::system_error &problem) {
        throw Failure(failed, program_ + " cannot be started: " + problem.what());
    }
    if (!eventually([this] { return answers(socket()) || server_->poll().has_value(); }) || server_->poll()) {
        throw Failure(failed,
                      program_ + " did not come up: " + visible(server_->output() + server_->errors(), 500));
    }
}

void PrivateStore::stop()
{
    server_->signal_group(SIGTERM);
    if (!eventually([this] { return server_->poll().has_value(); })) {
        throw Failure(failed, program_ + " does not end");
    }
    server_.reset();
}

} // namespace cg
