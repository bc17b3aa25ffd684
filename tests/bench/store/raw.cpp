// The bare way to the store; see the header.
#include "raw.h"

#include <poll.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace bench
{

Prepared::Prepared(Words words) : words_(std::move(words))
{
    for (const std::string &word : words_) {
        texts_.push_back(word.data());
        lengths_.push_back(word.size());
    }
}

Raw::Raw(const std::string &socket, int database) : context_(redisConnectUnix(socket.c_str()))
{
    if (context_ == nullptr || context_->err != 0) {
        throw std::runtime_error("no connection to " + socket);
    }
    (void)run({"SELECT", std::to_string(database)});
}

RawReply Raw::run(const Prepared &command)
{
    append(command);
    return next();
}

void Raw::append(const Prepared &command)
{
    if (redisAppendCommandArgv(context_.get(), command.count(), command.texts(), command.lengths()) !=
        REDIS_OK) {
        throw std::runtime_error("hiredis takes no command");
    }
}

RawReply Raw::next()
{
    void *reply = nullptr;
    if (redisGetReply(context_.get(), &reply) != REDIS_OK) {
        throw std::runtime_error(std::string("the store does not answer: ") + context_->errstr);
    }
    RawReply owned(static_cast<redisReply *>(reply));
    if (owned->type == REDIS_REPLY_ERROR) {
        throw std::runtime_error("the store answers: " + text_of(*owned));
    }
    return owned;
}

void Raw::pipeline(const std::vector<Prepared> &commands, size_t depth)
{
    for (size_t from = 0; from < commands.size(); from += depth) {
        const size_t to = std::min(from + depth, commands.size());
        for (size_t i = from; i < to; i++) {
            append(commands[i]);
        }
        for (size_t i = from; i < to; i++) {
            (void)next();
        }
    }
}

std::string text_of(const redisReply &reply)
{
    return reply.str == nullptr ? std::string() : std::string(reply.str, reply.len);
}

} // namespace bench
