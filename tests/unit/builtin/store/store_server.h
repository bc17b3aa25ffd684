// A private store server for tests: on a unix socket in a folder of its own, stopped by its destructor. A
// test may open a TCP port on it; only this machine reaches that.
//
// Tests talk to it past the client under test, with commands of their own, to see what is really stored and
// to break what the client relies on. A stand-in for the server was rejected: what has to be right is the
// agreement with the real one.
#ifndef STORE_SERVER_H
#define STORE_SERVER_H

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

namespace store_test
{

class StoreServer
{
public:
    // Starts a server and waits until it answers. Throws when it does not come up.
    explicit StoreServer(int databases = 64);
    StoreServer(const StoreServer &) = delete;
    StoreServer &operator=(const StoreServer &) = delete;
    ~StoreServer();

    const std::string &folder() const { return folder_; }
    std::string socket_path() const { return folder_ + "/s"; }
    std::string endpoint() const { return "unix:" + socket_path(); }

    // Stops the server with all that it has in memory.
    void kill();
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
    void wait_until_it_answers();

    int databases_;
    std::string folder_;
    pid_t pid_ = -1;
};

} // namespace store_test

#endif
