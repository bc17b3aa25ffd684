// The reserve of descriptors; see the header.
//
// Kept for the process and not for a loop: descriptors are the process's.
#include "loop/descriptor_reserve.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>
#include <system_error>

#include <fcntl.h>
#include <sys/resource.h>

#include "loop/descriptor.h"

namespace platform
{

namespace
{

// Two connections for each of three databases, a folder, and one to spare.
constexpr std::size_t reserve_size = 8;

struct Reserve {
    bool is_held = false;
    int lent = 0; // how many LentDescriptors there are
    std::array<Descriptor, reserve_size> descriptors;
};

// Never destroyed: what ends with the process may still borrow.
Reserve &reserve()
{
    static auto &only = *std::make_unique<Reserve>().release();
    return only;
}

// Each is an open file of its own: the system's table of those may be full as well.
void take(Reserve &from)
{
    for (Descriptor &descriptor : from.descriptors) {
        if (!descriptor) {
            descriptor.reset(open("/dev/null", O_RDONLY | O_CLOEXEC));
        }
    }
}

rlimit limits() noexcept
{
    rlimit limit{};
    (void)getrlimit(RLIMIT_NOFILE, &limit);
    return limit;
}

} // namespace

void hold_descriptor_reserve() noexcept
{
    Reserve &held = reserve();
    if (held.is_held) {
        return;
    }
    held.is_held = true;
    rlimit limit = limits();
    limit.rlim_cur = limit.rlim_max;
    (void)setrlimit(RLIMIT_NOFILE, &limit); // may always be raised so far
    take(held);
}

bool is_descriptor_reserve_used() noexcept
{
    const Reserve &held = reserve();
    return held.is_held && held.lent == 0 &&
           !std::all_of(held.descriptors.begin(), held.descriptors.end(),
                        [](const Descriptor &one) { return bool(one); });
}

LentDescriptors::LentDescriptors() noexcept : lends_(reserve().is_held)
{
    Reserve &held = reserve();
    if (lends_ && held.lent++ == 0) {
        for (Descriptor &descriptor : held.descriptors) {
            descriptor.reset();
        }
    }
}

LentDescriptors::~LentDescriptors()
{
    Reserve &held = reserve();
    if (lends_ && --held.lent == 0) {
        take(held);
    }
}

DescriptorCount count_descriptors()
{
    const LentDescriptors one_to_count_with;
    DescriptorCount count{reserve_size, limits().rlim_cur};
    std::error_code problem;
    const auto entries = std::filesystem::directory_iterator("/proc/self/fd", problem);
    if (problem) {
        count.open = count.limit;
        return count;
    }
    count.open +=
        static_cast<std::size_t>(std::distance(begin(entries), end(entries))) - 1; // less the folder itself
    count.open = std::min(count.open, count.limit);
    return count;
}

} // namespace platform
