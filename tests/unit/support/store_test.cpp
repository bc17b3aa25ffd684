// A test with a store; see the header.
#include "unit/support/store_test.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

namespace cg
{

namespace
{

constexpr std::array global_endpoints{"VX_MOM_ENDPOINT_28", "VX_MOM_ENDPOINT_33"};

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

} // namespace

GlobalStore::GlobalStore()
{
    for (const char *setting : global_endpoints) {
        setenv(setting, endpoint().c_str(), 1);
    }
}

GlobalStore::~GlobalStore()
{
    for (const char *setting : global_endpoints) {
        unsetenv(setting);
    }
}

StoreTest::StoreTest()
{
    setenv("VX_MOM_ENDPOINT", server_.endpoint().c_str(), 1);
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
