// A private store server for tests; see the header.
#include "unit/support/store_test.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>

namespace cg
{

namespace
{

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

} // namespace

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

} // namespace cg
