// What is not well with this process; see the header.
#include "loop/health.h"

#include <exception>
#include <memory>
#include <mutex>
#include <utility>

namespace platform
{

namespace
{

struct Noted {
    std::mutex mutex; // of the numbers
    Health numbers;
    std::function<void()> changed;
    bool is_public = false;
};

// Never destroyed: the end of the process may still note.
Noted &noted()
{
    static auto &all = *std::make_unique<Noted>().release();
    return all;
}

} // namespace

void note_health(const char *field, uint64_t number) noexcept
try {
    {
        const std::lock_guard lock(noted().mutex);
        const auto [place, is_new] = noted().numbers.try_emplace(field, number);
        if (!is_new && place->second == number) {
            return;
        }
        place->second = number;
    }
    if (noted().changed) {
        noted().changed();
    }
} catch (const std::exception &) {
    return;
}

Health noted_health()
{
    const std::lock_guard lock(noted().mutex);
    return noted().numbers;
}

void on_health_noted(std::function<void()> changed)
{
    noted().changed = std::move(changed);
}

void make_health_public() noexcept
{
    noted().is_public = true;
}

bool is_health_public() noexcept
{
    return noted().is_public;
}

} // namespace platform
