// The reserve of descriptors, each case in a process of its own, since limits are the process's.
#include "loop/descriptor_reserve.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>

#include "loop/descriptor.h"
#include "unit/support/child.h"

namespace
{

using platform::Descriptor;
using platform::LentDescriptors;

constexpr rlim_t hardest = 64;

void limit_to(rlim_t soft, rlim_t hard)
{
    const rlimit limit{soft, hard};
    (void)setrlimit(RLIMIT_NOFILE, &limit);
}

Descriptor opened()
{
    return Descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
}

std::vector<Descriptor> all_there_are()
{
    std::vector<Descriptor> all;
    for (Descriptor one = opened(); one; one = opened()) {
        all.push_back(std::move(one));
    }
    return all;
}

// Runs it in a process with few descriptors and a reserve; 0 when it returned true.
template <typename Body>
int with_reserve(const Body &body)
{
    cg::Child child([&] {
        limit_to(hardest / 2, hardest);
        platform::hold_descriptor_reserve();
        return body() ? 0 : 1;
    });
    return child.wait();
}

TEST(DescriptorReserve, TheLimitIsRaisedAsFarAsItMayBe)
{
    EXPECT_EQ(with_reserve([] { return platform::count_descriptors().limit == hardest; }), 0);
}

TEST(DescriptorReserve, EightAreLeftForWhoeverIsLentThem)
{
    EXPECT_EQ(with_reserve([] {
                  const std::vector<Descriptor> others = all_there_are();
                  if (opened() || errno != EMFILE) {
                      return false;
                  }
                  const LentDescriptors lent;
                  const LentDescriptors nested;
                  return all_there_are().size() == 8;
              }),
              0);
}

TEST(DescriptorReserve, WhatIsLentIsTakenBackAsSoonAsThatIsPossible)
{
    EXPECT_EQ(with_reserve([] {
                  std::vector<Descriptor> others = all_there_are();
                  Descriptor kept;
                  {
                      const LentDescriptors lent;
                      kept = opened();
                  }
                  const bool was_used = kept && platform::is_descriptor_reserve_used() && !opened();
                  others.clear();
                  const bool was_still_used = platform::is_descriptor_reserve_used();
                  (void)platform::count_descriptors();
                  return was_used && was_still_used && !platform::is_descriptor_reserve_used();
              }),
              0);
}

TEST(DescriptorReserve, AllThatAreOpenAreCounted)
{
    EXPECT_EQ(with_reserve([] {
                  const std::size_t before = platform::count_descriptors().open;
                  const std::vector<Descriptor> two = [] {
                      std::vector<Descriptor> made;
                      made.push_back(opened());
                      made.push_back(opened());
                      return made;
                  }();
                  const std::size_t with_two = platform::count_descriptors().open;
                  const std::vector<Descriptor> others = all_there_are();
                  return with_two == before + 2 && platform::count_descriptors().open == hardest;
              }),
              0);
}

TEST(DescriptorReserve, WithoutOneNothingIsLent)
{
    const LentDescriptors nothing;
    EXPECT_FALSE(platform::is_descriptor_reserve_used());
}

} // namespace
