// A private store server: started, restarted and removed with the object that represents it.
//
// It listens on a socket in a folder that nobody else may enter, so it touches nothing of an installation,
// and any number of them can run at the same time.
#ifndef PROCESS_PRIVATE_STORE_H
#define PROCESS_PRIVATE_STORE_H

#include <filesystem>
#include <memory>
#include <string>

#include "process/child_process.h"

namespace cg
{

class PrivateStore
{
public:
    static constexpr const char *socket_name = "store.sock";

    // Starts the server and waits until it serves. Throws Failure when no server program is installed, with
    // the package that has one, or when it does not start.
    PrivateStore();
    ~PrivateStore();
    PrivateStore(const PrivateStore &) = delete;
    PrivateStore &operator=(const PrivateStore &) = delete;

    // Ends the server, which saves its data; start() starts it again with them. Throw Failure.
    void stop();
    void start();

    // In the form of VX_MOM_ENDPOINT.
    [[nodiscard]] std::string endpoint() const { return "unix:" + socket().string(); }
    // For files that are to be removed with the server.
    [[nodiscard]] const std::filesystem::path &folder() const { return folder_; }

private:
    [[nodiscard]] std::filesystem::path socket() const { return folder_ / socket_name; }

    std::filesystem::path folder_;
    std::string program_;
    std::unique_ptr<ChildProcess> server_;
};

} // namespace cg

#endif
