// The stream to the server; see the header for why hiredis is used without its blocking and asynchronous
// layers.
#include "store/connection/stream.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <array>
#include <charconv>
#include <cstring>

#include "loop/descriptor_reserve.h"

namespace store
{

namespace
{

void append_count(std::string &request, char kind, size_t count)
{
    std::array<char, 24> line;
    line[0] = kind;
    char *end = std::to_chars(line.begin() + 1, line.end() - 2, count).ptr;
    *end++ = '\r';
    *end++ = '\n';
    request.append(line.data(), static_cast<size_t>(end - line.data()));
}

redisContext *begin_connecting(const Endpoint &endpoint)
{
    const platform::LentDescriptors whatever_else_is_open;
    return endpoint.path.empty() ? redisConnectNonBlock(endpoint.host.c_str(), endpoint.port)
                                 : redisConnectUnixNonBlock(endpoint.path.c_str());
}

} // namespace

Stream::Stream(const Endpoint &endpoint) : context_(begin_connecting(endpoint))
{
    if (context_ == nullptr) {
        connect_problem_ = "out of memory";
    } else if (context_->err == 0 && endpoint.path.empty()) {
        // A peer that is gone without a word is noticed only by asking. Fails harmlessly while connecting.
        (void)redisEnableKeepAlive(context_.get());
        context_->err = 0;
    }
    if (context_ != nullptr) {
        replies_.serve(*context_->reader);
    }
    if (context_ != nullptr && context_->fd >= 0) {
        (void)fcntl(context_->fd, F_SETFD, FD_CLOEXEC); // what a command starts has no business here
    }
}

bool Stream::failed() const
{
    return context_ == nullptr || context_->err != 0 || !connect_problem_.empty();
}

std::string Stream::problem() const
{
    if (!connect_problem_.empty() || context_ == nullptr) {
        return connect_problem_;
    }
    return context_->err == 0 ? std::string() : std::string(context_->errstr);
}

int Stream::fd() const
{
    return context_->fd;
}

bool Stream::finish_connecting()
{
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(context_->fd, SOL_SOCKET, SO_ERROR, &error, &size) != 0 || error != 0) {
        connect_problem_ = std::strerror(error);
        return false;
    }
    return true;
}

bool Stream::wait_inside(std::chrono::milliseconds limit)
{
    const timeval span{static_cast<time_t>(limit.count() / 1000),
                       static_cast<suseconds_t>(limit.count() % 1000 * 1000)};
    const int flags = fcntl(context_->fd, F_GETFL);
    return flags >= 0 && setsockopt(context_->fd, SOL_SOCKET, SO_RCVTIMEO, &span, sizeof span) == 0 &&
           setsockopt(context_->fd, SOL_SOCKET, SO_SNDTIMEO, &span, sizeof span) == 0 &&
           fcntl(context_->fd, F_SETFL, flags & ~O_NONBLOCK) == 0;
}

// hiredis would format each argument by itself, at three times the instructions of all the rest of a call.
void Stream::append(const Command &command)
{
    request_.clear();
    append_count(request_, '*', command.size());
    for (const std::string &argument : command) {
        append_count(request_, '$', argument.size());
        request_ += argument;
        request_ += "\r\n";
    }
    (void)redisAppendFormattedCommand(context_.get(), request_.data(), request_.size());
    output_left_ = true;
}

bool Stream::has_output() const
{
    return output_left_;
}

bool Stream::send_some()
{
    int done = 0;
    if (redisBufferWrite(context_.get(), &done) != REDIS_OK) {
        return false;
    }
    output_left_ = done == 0;
    return true;
}

bool Stream::read_some()
{
    return redisBufferRead(context_.get()) == REDIS_OK;
}

Reply Stream::next_reply()
{
    void *reply = nullptr;
    if (redisGetReplyFromReader(context_.get(), &reply) != REDIS_OK) {
        return nullptr;
    }
    return replies_.take(reply);
}

} // namespace store
