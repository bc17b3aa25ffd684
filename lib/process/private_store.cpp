// A store server of one's own.
#include "process/private_store.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
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
constexpr std::chrono::milliseconds poll_interval{5};

// Debian's redis-tools has the server's program under another name. The program behaves according to the name
// that it is called by; hence the link.
std::string server_program(const fs::path &folder)
{
    for (const char *name : {"redis-server", "valkey-server"}) {
        if (std::string place = find_program(name); !place.empty()) {
            return place;
        }
    }
    const std::string other_name = find_program("redis-check-rdb");
    if (other_name.empty()) {
        throw Failure(failed,
                      "no store server: PATH has neither redis-server nor valkey-server nor redis-check-rdb; "
                      "`apt-get install redis-tools` installs one");
    }
    fs::create_symlink(other_name, folder / "redis-server");
    return folder / "redis-server";
}

// Whether a server listens that has loaded its data.
bool answers(const fs::path &socket_path)
{
    const platform::Descriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
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

// In $TMPDIR, unless the path of a socket there would be longer than the system allows.
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
    server_.reset(); // killed: its data is discarded
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
}

void PrivateStore::start()
{
    // "save" has it write its data at a regular exit.
    const std::vector<std::string> command{
        program_, "--databases",    "64",           "--port",          "0",
        "--dir",  folder_.string(), "--unixsocket", socket().string(), "--unixsocketperm",
        "700",    "--save",         "3600 1",       "--appendonly",    "no"};
    try {
        server_ = std::make_unique<ChildProcess>(command, std::vector<std::string>{"PATH=/usr/bin:/bin"});
    } catch (const std::system_error &problem) {
        throw Failure(failed, program_ + " cannot be started: " + problem.what());
    }
    const auto deadline = std::chrono::steady_clock::now() + patience;
    bool serves = answers(socket());
    while (!serves && !server_->wait_for(poll_interval) && std::chrono::steady_clock::now() < deadline) {
        serves = answers(socket());
    }
    if (!serves) {
        throw Failure(failed,
                      program_ + " did not start: " + visible(server_->output() + server_->errors(), 500));
    }
}

void PrivateStore::stop()
{
    server_->signal_group(SIGTERM);
    if (!server_->wait_for(patience)) {
        throw Failure(failed, program_ + " does not exit");
    }
    server_.reset();
}

} // namespace cg
