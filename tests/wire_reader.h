// hiredis' reader over bytes that a test gives it: with replies of ours, or with the library's own, which say
// what is right.
#ifndef WIRE_READER_H
#define WIRE_READER_H

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "store/connection/reply.h"

namespace wire_test
{

struct FreeReader {
    void operator()(redisReader *reader) const { redisReaderFree(reader); }
};
using Reader = std::unique_ptr<redisReader, FreeReader>;

class OurReader
{
public:
    OurReader() { maker_.serve(*reader_); }
    void feed(std::string_view bytes) { (void)redisReaderFeed(reader_.get(), bytes.data(), bytes.size()); }
    store::Reply next()
    {
        void *reply = nullptr;
        (void)redisReaderGetReply(reader_.get(), &reply);
        return maker_.take(reply);
    }
    bool failed() const { return reader_->err != 0; }

private:
    store::ReplyMaker maker_;
    Reader reader_{redisReaderCreate()};
};

class TheirReader
{
public:
    struct FreeReply {
        void operator()(redisReply *reply) const { freeReplyObject(reply); }
    };
    using Reply = std::unique_ptr<redisReply, FreeReply>;

    void feed(std::string_view bytes) { (void)redisReaderFeed(reader_.get(), bytes.data(), bytes.size()); }
    Reply next()
    {
        void *reply = nullptr;
        (void)redisReaderGetReply(reader_.get(), &reply);
        return Reply(static_cast<redisReply *>(reply));
    }
    bool failed() const { return reader_->err != 0; }

private:
    Reader reader_{redisReaderCreate()};
};

// All that a reply holds, as text: one text for one content.
inline std::string shown(const redisReply *reply)
{
    if (reply == nullptr) {
        return "none";
    }
    std::string text = std::to_string(reply->type) + ' ' + std::to_string(reply->integer);
    if (reply->str != nullptr) {
        // One byte more: a text is ended for those who take it for one of C.
        text += ' ' + std::to_string(reply->len) + ':' + std::string(reply->str, reply->len + 1);
    }
    for (size_t i = 0; i < reply->elements; i++) {
        text += (i == 0 ? " [" : ", ") + shown(reply->element[i]);
    }
    return reply->elements == 0 ? text : text + ']';
}

} // namespace wire_test

#endif
