// The memory of a decoded record; see the header.
#include "store/codec/message.h"

#include <new>

namespace store
{

// No exception may reach protobuf-c, which is C; it takes null for a lack of memory.
void *MessageMemory::give(void *self, size_t size) noexcept
{
    try {
        return static_cast<MessageMemory *>(self)->pieces_.allocate(size);
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

} // namespace store
