// Replies of the server; see the header. A monotonic buffer gives memory out piece by piece and takes it back
// all at once: when the last reply is returned, unless the reader has begun another one meanwhile.
//
// An array's list of elements grows as they come and not to what the server announces: it may announce
// thousands of millions and send none.
#include "store/connection/reply.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstddef>
#include <cstring>
#include <memory_resource>
#include <new>

namespace store
{

namespace
{

constexpr size_t first_piece = 2048; // most answers fit
constexpr int first_room = 64;

// What hiredis knows of it is the reply; so a pointer to that is one to all.
struct Object {
    redisReply reply{};
    int room = 0; // in the list of elements
};

} // namespace

class ReplyMemory
{
public:
    // Makes an object and puts it into the array that it belongs to, if any.
    Object &make(const redisReadTask &task)
    {
        Object &object = *new (allocate(sizeof(Object), alignof(Object))) Object;
        object.reply.type = task.type;
        if (task.parent == nullptr) {
            begun_ = true;
        } else {
            put(*static_cast<Object *>(task.parent->obj), task.idx, object);
        }
        return object;
    }
    char *copy(const char *text, size_t length)
    {
        char *place = static_cast<char *>(allocate(length + 1, 1));
        std::memcpy(place, text, length);
        place[length] = '\0';
        return place;
    }
    void make_list(Object &array, int room)
    {
        auto *list = static_cast<redisReply **>(
            allocate(static_cast<size_t>(room) * sizeof(redisReply *), alignof(void *)));
        std::copy_n(array.reply.element, array.room, list);
        array.reply.element = list;
        array.room = room;
    }
    // The reply that was begun is complete, and held by a caller.
    void hand_out()
    {
        begun_ = false;
        held_++;
    }
    void take_back()
    {
        assert(held_ > 0); // else memory is given back under a reply
        held_--;
        if (held_ == 0 && !begun_) {
            pieces_.release();
        }
    }

private:
    void *allocate(size_t size, size_t alignment) { return pieces_.allocate(size, alignment); }
    void put(Object &array, int at, Object &element)
    {
        if (at == array.room) {
            make_list(array,
                      std::min(array.room, static_cast<int>(array.reply.elements) - array.room) + array.room);
        }
        array.reply.element[at] = &element.reply;
    }

    alignas(std::max_align_t) std::array<std::byte, first_piece> first_;
    std::pmr::monotonic_buffer_resource pieces_{first_.data(), first_.size()};
    size_t held_ = 0;
    bool begun_ = false;
};

namespace
{

// No exception may reach hiredis, which is C; it takes null for a lack of memory.
template <typename Fill>
void *made(const redisReadTask *task, const Fill &fill) noexcept
{
    auto &memory = *static_cast<ReplyMemory *>(task->privdata);
    try {
        Object &object = memory.make(*task);
        fill(memory, object);
        return &object;
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

void *make_string(const redisReadTask *task, char *text, size_t length)
{
    return made(task, [&](ReplyMemory &memory, Object &object) {
        object.reply.str = memory.copy(text, length);
        object.reply.len = length;
    });
}

void *make_array(const redisReadTask *task, int elements)
{
    return made(task, [&](ReplyMemory &memory, Object &object) {
        object.reply.elements = static_cast<size_t>(elements);
        if (elements > 0) {
            memory.make_list(object, std::min(elements, first_room));
        }
    });
}

void *make_integer(const redisReadTask *task, long long value)
{
    return made(task, [&](ReplyMemory & /*memory*/, Object &object) { object.reply.integer = value; });
}

void *make_nil(const redisReadTask *task)
{
    return made(task, [](ReplyMemory & /*memory*/, Object &object) { object.reply.type = REDIS_REPLY_NIL; });
}

// The memory goes with the others'. Called for what is incomplete when the stream breaks.
void free_nothing(void * /*object*/) {}

redisReplyObjectFunctions functions{make_string, make_array, make_integer, make_nil, free_nothing};

} // namespace

void ReturnReply::operator()(redisReply * /*reply*/) const
{
    memory->take_back();
}

ReplyMaker::ReplyMaker() : memory_(std::make_shared<ReplyMemory>()) {}

void ReplyMaker::serve(redisReader &reader)
{
    reader.fn = &functions;
    reader.privdata = memory_.get();
}

Reply ReplyMaker::take(void *made)
{
    if (made == nullptr) {
        return nullptr;
    }
    memory_->hand_out();
    return Reply(&static_cast<Object *>(made)->reply, ReturnReply{memory_});
}

std::string text_of(const redisReply *reply)
{
    return std::string(view_of(reply));
}

bool is_error(const redisReply *reply)
{
    return reply == nullptr || reply->type == REDIS_REPLY_ERROR;
}

bool is_error(const redisReply *reply, const char *code)
{
    const size_t length = std::strlen(code);
    return reply != nullptr && reply->type == REDIS_REPLY_ERROR &&
           std::strncmp(reply->str, code, length) == 0 &&
           (reply->str[length] == ' ' || reply->str[length] == '\0');
}

} // namespace store
