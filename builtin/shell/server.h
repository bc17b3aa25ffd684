// The debug shell's server: connections on the loop, one request each. Sixteen at a time; then the client
// that has said nothing for longest gives way to a new one. When each has begun to speak there is one more,
// and others wait in the socket's backlog.
#ifndef SHELL_SERVER_H
#define SHELL_SERVER_H

#include <list>
#include <string>

#include <sys/time.h>

#include "loop/libevent_handles.h"
#include "shell/commands.h"
#include "shell/output.h"
#include "shell/socket.h"

namespace ssat
{

class Shell
{
public:
    // base      the loop; must outlive the shell.
    // deadline  how long a client may need to send its request, and again to read the reply.
    Shell(event_base *base, std::string module, timeval deadline = {30, 0});
    ~Shell();
    Shell(const Shell &) = delete;
    Shell &operator=(const Shell &) = delete;

    // Starts to listen. Returns 0, or a negative errno.
    int32_t open(const std::string &path);

    // The module whose commands it offers, as given to the constructor.
    const std::string &module() const noexcept { return module_; }
    // What it offers. Commands may be added at any time.
    CommandTable &commands() noexcept { return commands_; }

private:
    struct Connection;

    void accept(int fd);
    void give_place();
    bool serve(int fd);
    void read_request(Connection &connection);
    void answer(Connection &connection, const Fields &reply);
    static void hang_up(void *connection);
    void pause();
    void resume();

    event_base *base_;
    std::string module_;
    timeval deadline_;
    Identity original_output_;
    CommandTable commands_;
    SocketFile socket_;
    platform::Listener listener_;
    platform::Event resume_later_;
    std::list<Connection> connections_;
};

} // namespace ssat

#endif
