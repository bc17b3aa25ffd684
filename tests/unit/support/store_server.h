// A private store server for tests: on a unix socket in a folder of its own, stopped by its destructor. A
// test may open a TCP port on it; only this machine reaches that.
//
// Tests talk to it past the client under test, with commands of their own, to see what is really stored and
// to break what the client relies on. A stand-in for the server was rejected: what has to be right is the
// agreement with the real one.
#ifndef SUPPORT_STORE_SERVER_H
#define SUPPORT_STORE_SERVER_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "unit/support/folder.h"

namespace cg
{

class StoreServer
{
public:
    // Starts a server and waits until it answers. Throws when it does not come up.
    explicit StoreServer(int databases = 64);
    StoreServer(const StoreServer &) = delete;
    StoreServer &operator=(const StoreServer &) = delete;
    ~StoreServer();

    const Folder &folder() const { return folder_; }
    std::string socket_path() const { return folder_.path("store"); }
    std::string endpoint() const { return "unix:" + socket_path(); }

    // Ends the server with all that it has in memory: at once, or so that it cleans up behind itself.
    void kill();
    void stop();
    // Starts it again, from what was last saved with SAVE, if anything.
    void start();
    // Stops and resumes its process.
    void freeze();
    void thaw();

    // Runs a command in a database and returns its reply as text; see raw_command.h.
    std::string run(int database, const std::vector<std::string> &command);

    // The same in database 0, as a user with a password.
    std::string run_as(const std::string &user, const std::string &password,
                       const std::vector<std::string> &command);

private:
    void end(int signal);
    void wait_until_it_answers();

    int databases_;
    Folder folder_;
    pid_t pid_ = -1;
};

} // namespace cg

#endif
