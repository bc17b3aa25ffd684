// The loop as C++ programs use it.
#include "loop/loop.h"

#include <csignal>
#include <stdexcept>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "loop/descriptor.h"

namespace
{

using platform::Loop;
using platform::Timer;
using platform::Watch;
using std::chrono::milliseconds;
using testing::ElementsAre;

struct Pipe {
    Pipe()
    {
        int ends[2] = {};
        if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
            throw std::runtime_error("no pipe");
        }
        out.reset(ends[0]);
        in.reset(ends[1]);
    }
    platform::Descriptor out;
    platform::Descriptor in;
};

TEST(LoopTest, TimersFireOnceInTheOrderOfTheirTimes)
{
    Loop loop("loop_test");
    std::vector<int> fired;
    const Timer second = loop.after(milliseconds(20), [&] { fired.push_back(2); });
    const Timer last = loop.after(milliseconds(40), [&] { loop.stop(); });
    const Timer first = loop.after(milliseconds(0), [&] { fired.push_back(1); });
    EXPECT_TRUE(first.is_armed());
    loop.run();
    EXPECT_THAT(fired, ElementsAre(1, 2));
    EXPECT_FALSE(first.is_armed());
}

TEST(LoopTest, ATimerThatIsDestroyedOrReplacedOrCancelledDoesNotFire)
{
    Loop loop("loop_test");
    std::vector<int> fired;
    {
        const Timer gone = loop.after(milliseconds(0), [&] { fired.push_back(1); });
    }
    Timer replaced = loop.after(milliseconds(0), [&] { fired.push_back(2); });
    replaced = loop.after(milliseconds(0), [&] { fired.push_back(3); });
    Timer cancelled = loop.after(milliseconds(0), [&] { fired.push_back(4); });
    cancelled.cancel();
    EXPECT_FALSE(cancelled.is_armed());
    const Timer moved = std::move(replaced);
    const Timer last = loop.after(milliseconds(10), [&] { loop.stop(); });
    loop.run();
    EXPECT_THAT(fired, ElementsAre(3));
}

TEST(LoopTest, ATimerMayBeArmedAgainByItsOwnHandler)
{
    Loop loop("loop_test");
    int fired = 0;
    Timer timer;
    std::function<void()> tick = [&] {
        if (++fired == 3) {
            loop.stop();
        } else {
            timer = loop.after(milliseconds(0), tick);
        }
    };
    timer = loop.after(milliseconds(0), tick);
    loop.run();
    EXPECT_EQ(fired, 3);
}

TEST(LoopTest, AWatchIsCalledForAsLongAsThereIsSomething)
{
    Loop loop("loop_test");
    const Pipe pipe;
    std::string read_text;
    Watch watch;
    watch = loop.watch(pipe.out.get(), Watch::Until::readable, [&] {
        char byte = 0;
        if (read(pipe.out.get(), &byte, 1) == 1) {
            read_text += byte;
        }
        if (read_text == "ab") {
            watch = {}; // by its own handler
        }
    });
    int writable = 0;
    Watch writing = loop.watch(pipe.in.get(), Watch::Until::writable, [&] {
        writable++;
        writing.cancel();
        ASSERT_EQ(write(pipe.in.get(), "abc", 3), 3);
    });
    const Timer last = loop.after(milliseconds(30), [&] { loop.stop(); });
    loop.run();
    EXPECT_EQ(read_text, "ab");
    EXPECT_EQ(writable, 1);
}

TEST(LoopTest, WhatAHandlerThrowsEndsTheLoopAndIsThrownByRun)
{
    Loop loop("loop_test");
    int later = 0;
    const Timer bad = loop.after(milliseconds(0), [] { throw std::invalid_argument("first"); });
    const Timer next = loop.after(milliseconds(0), [&] { later++; });
    EXPECT_THROW(loop.run(), std::invalid_argument);
    EXPECT_EQ(later, 0);
    const Timer last = loop.after(milliseconds(5), [&] { loop.stop(); });
    loop.run(); // and what was thrown is thrown once
    EXPECT_EQ(later, 1);
}

TEST(LoopTest, StopBeforeRunHasItReturnAtOnce)
{
    Loop loop("loop_test");
    const Timer never = loop.after(milliseconds(0), [] { FAIL() << "it served"; });
    loop.stop();
    EXPECT_TRUE(loop.is_stopping());
    loop.run();
    EXPECT_FALSE(loop.is_stopping());
}

TEST(LoopTest, ASignalEndsItUnlessSignalsAreLeftToTheProgram)
{
    Loop loop("loop_test");
    const Timer ended = loop.after(milliseconds(0), [] { (void)raise(SIGTERM); });
    loop.run();

    static volatile sig_atomic_t handled = 0;
    (void)std::signal(SIGTERM, [](int) { handled = 1; });
    const Timer signal = loop.after(milliseconds(0), [] { (void)raise(SIGTERM); });
    const Timer last = loop.after(milliseconds(5), [&] { loop.stop(); });
    loop.run(Loop::Signals::leave);
    (void)std::signal(SIGTERM, SIG_DFL);
    EXPECT_EQ(handled, 1);
    EXPECT_FALSE(last.is_armed()) << "it went on after the signal";
}

TEST(LoopTest, ALoopOnAContextLeavesItToItsOwner)
{
    vx_global_t *context = vx_global_init("loop_test", nullptr);
    {
        Loop loop(context);
        const Timer last = loop.after(milliseconds(0), [&] { loop.stop(); });
        loop.run();
    }
    vx_global_finish(context);
}

TEST(LoopTest, AFileThatCannotBeWatchedIsRefused)
{
    Loop loop("loop_test");
    const platform::Descriptor file(open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
    EXPECT_THROW(Watch(loop.context(), file.get(), Watch::Until::readable, [] {}), std::runtime_error);
    EXPECT_THROW((void)loop.after(milliseconds(-1), [] {}), std::runtime_error);
}

} // namespace
