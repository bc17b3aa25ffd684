// Raw commands; see the header.
#include "unit/support/raw_command.h"

namespace cg
{

namespace
{

struct FreeReply {
    void operator()(redisReply *reply) const { freeReplyObject(reply); }
};

std::string text_of(const redisReply &reply)
{
    switch (reply.type) {
    case REDIS_REPLY_NIL:
        return "(nil)";
    case REDIS_REPLY_INTEGER:
        return std::to_string(reply.integer);
    case REDIS_REPLY_ERROR:
        return "(error) " + std::string(reply.str, reply.len);
    case REDIS_REPLY_ARRAY: {
        std::string text;
        for (size_t i = 0; i < reply.elements; i++) {
            text += text_of(*reply.element[i]) + "\n";
        }
        return text;
    }
    default:
        return {reply.str, reply.len};
    }
}

} // namespace

std::string run_raw(redisContext &context, const std::vector<std::string> &command)
{
    std::vector<const char *> texts;
    std::vector<size_t> lengths;
    for (const std::string &argument : command) {
        texts.push_back(argument.data());
        lengths.push_back(argument.size());
    }
    const std::unique_ptr<redisReply, FreeReply> reply(static_cast<redisReply *>(
        redisCommandArgv(&context, static_cast<int>(command.size()), texts.data(), lengths.data())));
    return reply == nullptr ? "(no reply)" : text_of(*reply);
}

} // namespace cg
