// A store server of one's own: started, restarted and removed with the object that stands for it.
//
// It listens on a socket in a folder that nobody else may enter, so nothing of an installation is touched and
// any number of them run at a time.
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

    // Starts it. Throws Failure when there is no server program, saying which package has one, or when it
    // does not come up.
    PrivateStore();
    ~PrivateStore();
    PrivateStore(const PrivateStore &) = delete;
    PrivateStore &operator=(const PrivateStore &) = delete;

    // Ends the server, which keeps its data in a file. start() has it back with them; throws Failure.
    void stop();
    void start();

    // As VX_MOM_ENDPOINT has it.
    [[nodiscard]] std::string endpoint() const { return "unix:" + socket().string(); }
    // For other files that are to go with it.
    [[nodiscard]] const std::filesystem::path &folder() const { return folder_; }

private:
    [[nodiscard]] std::filesystem::path socket() const { return folder_ / socket_name; }

    std::filesystem::path folder_;
    std::string program_;
    std::unique_ptr<ChildProcess> server_;
};

} // namespace cg

#endif
