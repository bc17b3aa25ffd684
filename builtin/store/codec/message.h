// A decoded record with its memory.
#ifndef CODEC_MESSAGE_H
#define CODEC_MESSAGE_H

#include <protobuf-c/protobuf-c.h>

#include <array>
#include <cstddef>
#include <memory>
#include <memory_resource>

namespace store
{

// What a decoded record lies in, all of it in one piece where it is small: protobuf-c would allocate six, and
// look through the whole record to free them.
class MessageMemory
{
public:
    MessageMemory() = default;
    MessageMemory(const MessageMemory &) = delete;
    MessageMemory &operator=(const MessageMemory &) = delete;
    ~MessageMemory() = default;

    ProtobufCAllocator &allocator() { return allocator_; }

private:
    static void *give(void *self, size_t size) noexcept;
    static void take_back(void * /*self*/, void * /*piece*/) {} // all at once, in the end

    static constexpr size_t first_piece = 512; // most records fit

    alignas(std::max_align_t) std::array<std::byte, first_piece> first_;
    std::pmr::monotonic_buffer_resource pieces_{first_.data(), first_.size()};
    ProtobufCAllocator allocator_{give, take_back, this};
};

// Frees a message with its memory, or one that protobuf-c has allocated.
struct FreeMessage {
    void operator()(ProtobufCMessage *message) const
    {
        if (memory == nullptr) {
            protobuf_c_message_free_unpacked(message, nullptr);
        }
    }
    std::unique_ptr<MessageMemory> memory;
};
using MessagePtr = std::unique_ptr<ProtobufCMessage, FreeMessage>;

} // namespace store

#endif
