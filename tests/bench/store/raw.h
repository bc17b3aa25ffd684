// The bare way to the store: hiredis, blocking, with nothing in between. What every ratio is taken against.
#ifndef BENCH_RAW_H
#define BENCH_RAW_H

#include <hiredis/hiredis.h>

#include <memory>
#include <string>
#include <vector>

namespace bench
{

using Words = std::vector<std::string>;

struct FreeContext {
    void operator()(redisContext *context) const { redisFree(context); }
};
struct FreeReply {
    void operator()(redisReply *reply) const { freeReplyObject(reply); }
};
using RawReply = std::unique_ptr<redisReply, FreeReply>;

// A command whose arguments lie ready as hiredis takes them, so that sending it costs nothing but hiredis.
class Prepared
{
public:
    explicit Prepared(Words words);
    Prepared(const Prepared &) = delete;
    Prepared(Prepared &&) = default;
    Prepared &operator=(const Prepared &) = delete;
    Prepared &operator=(Prepared &&) = delete;
    ~Prepared() = default;

    int count() const { return static_cast<int>(texts_.size()); }
    const char **texts() const { return const_cast<const char **>(texts_.data()); }
    const size_t *lengths() const { return lengths_.data(); }

private:
    Words words_;
    std::vector<const char *> texts_;
    std::vector<size_t> lengths_;
};

// One connection. Every function throws when the server does not answer or answers with an error.
class Raw
{
public:
    Raw(const std::string &socket, int database);

    int fd() const { return context_->fd; }
    // Sends and waits for the reply.
    RawReply run(const Prepared &command);
    RawReply run(const Words &words) { return run(Prepared(words)); }
    // Puts into the output buffer; next() sends what is there and takes one reply.
    void append(const Prepared &command);
    RawReply next();
    // Sends all in pipelines of so many and takes all replies.
    void pipeline(const std::vector<Prepared> &commands, size_t depth);

private:
    std::unique_ptr<redisContext, FreeContext> context_;
};

std::string text_of(const redisReply &reply);

} // namespace bench

#endif
