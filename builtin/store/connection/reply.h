// Replies of the server, each in one piece of memory.
//
// hiredis would allocate two pieces for every text of a reply and free them one by one, which was most of the
// client's work in reading records. Its reader takes functions that make the objects instead. Those here make
// the same objects, so that everybody goes on reading a redisReply, out of memory that is used again as soon
// as no reply is held.
#ifndef CONNECTION_REPLY_H
#define CONNECTION_REPLY_H

#include <hiredis/hiredis.h>

#include <memory>
#include <string>
#include <string_view>

namespace store
{

class ReplyMemory;

// Gives a reply's memory back. A reply may outlive the connection that it came on.
struct ReturnReply {
    std::shared_ptr<ReplyMemory> memory;
    void operator()(redisReply *reply) const;
};
using Reply = std::unique_ptr<redisReply, ReturnReply>;

// Makes the replies of one reader of hiredis.
class ReplyMaker
{
public:
    ReplyMaker();

    // From now on `reader` makes its replies here. To be called before it has read anything. Destroy the
    // reader first.
    void serve(redisReader &reader);
    // Makes the holder of a reply that the reader has made; of none when that is null.
    Reply take(void *made);

private:
    std::shared_ptr<ReplyMemory> memory_;
};

// The bytes of a text reply, which live as long as it does; empty for any other.
inline std::string_view view_of(const redisReply *reply)
{
    const bool has_text =
        reply != nullptr && (reply->type == REDIS_REPLY_STRING || reply->type == REDIS_REPLY_STATUS ||
                             reply->type == REDIS_REPLY_ERROR);
    return has_text ? std::string_view(reply->str, reply->len) : std::string_view();
}
// The same, copied.
std::string text_of(const redisReply *reply);

// Whether the reply is an error whose first word is `code`.
bool is_error(const redisReply *reply, const char *code);
bool is_error(const redisReply *reply);

} // namespace store

#endif
