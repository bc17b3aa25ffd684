// One stream to the server, never blocking: connects, sends commands, splits what comes into replies.
//
// Both the synchronous connection (driven by poll with a deadline) and the asynchronous one (driven by the
// event loop) stand on it. hiredis' blocking calls were rejected because their time-out starts over with
// every read; its own asynchronous layer because a refused subscription ends the connection there, and
// because a callback of it that frees the connection runs into what hiredis does next.
#ifndef CONNECTION_STREAM_H
#define CONNECTION_STREAM_H

#include <hiredis/hiredis.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "store/connection/endpoint.h"
#include "store/connection/reply.h"

namespace store
{

// A command: its name and arguments, any bytes.
using Command = std::vector<std::string>;

class Stream
{
public:
    // Starts to connect. When that fails at once, failed() is true.
    explicit Stream(const Endpoint &endpoint);

    bool failed() const;
    // What went wrong; empty as long as nothing did.
    std::string problem() const;
    int fd() const;

    // To be called when the descriptor is writable for the first time: whether the connection stands.
    bool finish_connecting();
    // From now on sending and reading wait for the server, up to so long at a time. Returns whether they do.
    bool wait_inside(std::chrono::milliseconds limit);
    void append(const Command &command);
    bool has_output() const;
    // Sends and reads what is possible without waiting (but see wait_inside()). Return false when the
    // connection is lost.
    bool send_some();
    bool read_some();
    // The next reply that has come completely; null when there is none, or the stream is broken (failed()).
    Reply next_reply();

private:
    struct FreeContext {
        void operator()(redisContext *context) const { redisFree(context); }
    };
    ReplyMaker replies_;
    std::unique_ptr<redisContext, FreeContext> context_; // its reader is served: gone before
    std::string connect_problem_;
    std::string request_; // the command that is being sent; kept for its memory
    bool output_left_ = false;
};

} // namespace store

#endif
