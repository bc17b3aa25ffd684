// The event loop and its timers.
//
// On the real clock, with spans of some milliseconds: what is tested is the clock's use. Bounds are lower
// ones; a busy machine may be late at any time.
#include "vx_thread.h"

#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "loop/libevent_handles.h"
#include "loop/platform_context.h"
#include "unit/builtin/platform_fixture.h"

namespace
{

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testing_platform::to_timeval;

struct FinishContext {
    void operator()(vx_global_t *global) const { vx_global_finish(global); }
};
using Context = std::unique_ptr<vx_global_t, FinishContext>;

class VxThread : public testing::Test
{
protected:
    VxThread() : context(vx_global_init("test", nullptr)) {}

    using Action = std::function<void(vx_thread_t *)>;

    // Arms a timer that runs the action; the action lives as long as the test.
    vx_thread_t *after(std::chrono::microseconds span, Action action)
    {
        actions.push_back(std::make_unique<Action>(std::move(action)));
        return vx_thread_add_timer_timeval(context.get(), run_action, actions.back().get(), to_timeval(span));
    }
    static int32_t run_action(vx_thread_t *t)
    {
        (*static_cast<Action *>(t->arg))(t);
        return 0;
    }
    void end_after(std::chrono::microseconds span)
    {
        after(span, [](vx_thread_t *) { raise(SIGTERM); });
    }

    std::vector<std::unique_ptr<Action>> actions;
    Context context;
};

TEST_F(VxThread, ContextKnowsItsModule)
{
    EXPECT_EQ(platform::module_of(context.get()), "test");
}

TEST_F(VxThread, ContextNeedsAModuleAndNothingReserved)
{
    int something = 0;
    EXPECT_EQ(vx_global_init(nullptr, nullptr), nullptr);
    EXPECT_EQ(vx_global_init("test", &something), nullptr);
}

TEST_F(VxThread, FinishingNothingIsAllowed)
{
    vx_global_finish(nullptr);
}

TEST_F(VxThread, RunningNothingFails)
{
    EXPECT_LT(vx_global_run(nullptr), 0);
}

TEST_F(VxThread, TimersFireInTheOrderOfTheirTimesWithTheirHandles)
{
    std::string fired;
    vx_thread_t *late = nullptr;
    vx_thread_t *early = nullptr;
    late = after(20ms, [&](vx_thread_t *t) { fired += t == late ? "late " : "stranger "; });
    early = after(5ms, [&](vx_thread_t *t) { fired += t == early ? "early " : "stranger "; });
    end_after(30ms);
    EXPECT_EQ(vx_global_run(context.get()), 0);
    EXPECT_EQ(fired, "early late ");
}

TEST_F(VxThread, TimerFiresOnceAndNotBeforeItsTime)
{
    int fired = 0;
    const auto armed = Clock::now();
    Clock::duration waited{};
    after(20ms, [&](vx_thread_t *) {
        ++fired;
        waited = Clock::now() - armed;
    });
    end_after(80ms);
    EXPECT_EQ(vx_global_run(context.get()), 0);
    EXPECT_EQ(fired, 1);
    EXPECT_GE(waited, 20ms);
}

TEST_F(VxThread, TimerCountsFromArmingThoughTheCallbackHasBeenLong)
{
    Clock::time_point armed;
    Clock::duration waited{};
    after(0ms, [&](vx_thread_t *) {
        const auto busy_until = Clock::now() + 60ms;
        while (Clock::now() < busy_until) {
        }
        armed = Clock::now();
        after(40ms, [&](vx_thread_t *) {
            waited = Clock::now() - armed;
            raise(SIGTERM);
        });
    });
    EXPECT_EQ(vx_global_run(context.get()), 0);
    EXPECT_GE(waited, 40ms);
}

TEST_F(VxThread, CancelledTimerDoesNotFire)
{
    bool fired = false;
    vx_thread_cancel(after(5ms, [&](vx_thread_t *) { fired = true; }));
    end_after(20ms);
    EXPECT_EQ(vx_global_run(context.get()), 0);
    EXPECT_FALSE(fired);
}

TEST_F(VxThread, CancellingNothingIsAllowed)
{
    vx_thread_cancel(nullptr);
}

TEST_F(VxThread, CallbackCancelsAnotherTimerThatIsDueAsWell)
{
    std::string fired;
    vx_thread_t *first = nullptr;
    vx_thread_t *second = nullptr;
    first = after(0ms, [&](vx_thread_t *) {
        fired += "first";
        vx_thread_cancel(second);
    });
    second = after(0ms, [&](vx_thread_t *) {
        fired += "second";
        vx_thread_cancel(first);
    });
    end_after(20ms);
    EXPECT_EQ(vx_global_run(context.get()), 0);
    EXPECT_TRUE(fired == "first" || fired == "second") << fired;
}

TEST_F(VxThread, TimeSpansThatAreNoneAreRefused)
{
    const auto arm = [&](time_t seconds, suseconds_t microseconds) {
        return vx_thread_add_timer_timeval(context.get(), run_action, nullptr, {seconds, microseconds});
    };
    EXPECT_EQ(arm(-1, 0), nullptr);
    EXPECT_EQ(arm(0, -1), nullptr);
    EXPECT_EQ(arm(0, 1'000'000), nullptr);
    EXPECT_EQ(vx_thread_add_timer_timeval(context.get(), nullptr, nullptr, {1, 0}), nullptr);
    EXPECT_EQ(vx_thread_add_timer_timeval(nullptr, run_action, nullptr, {1, 0}), nullptr);
}

TEST_F(VxThread, FinishFreesArmedTimersAndDoesNotRunThem)
{
    bool fired = false;
    for (int i = 0; i < 100; ++i) {
        after(0ms, [&](vx_thread_t *) { fired = true; });
    }
    context.reset(); // the leak checker looks for the rest
    EXPECT_FALSE(fired);
}

TEST_F(VxThread, SignalsEndTheLoopAndGetTheirOldMeaningBack)
{
    for (const int signal_number : {SIGTERM, SIGINT}) {
        after(0ms, [&](vx_thread_t *) { raise(signal_number); });
        EXPECT_EQ(vx_global_run(context.get()), 0);
        struct sigaction action {
        };
        sigaction(signal_number, nullptr, &action);
        EXPECT_EQ(action.sa_handler, SIG_DFL);
    }
}

TEST_F(VxThread, SignalEndsTheLoopThoughCallbacksNeverLeaveItIdle)
{
    int turns = 0;
    std::function<void(vx_thread_t *)> again = [&](vx_thread_t *) {
        if (++turns == 50) {
            raise(SIGTERM);
        }
        after(0ms, again);
    };
    after(0ms, again);
    EXPECT_EQ(vx_global_run(context.get()), 0);
    EXPECT_GE(turns, 50);
}

TEST_F(VxThread, LoopWithNothingToDoWaitsForASignal)
{
    const auto started = Clock::now();
    testing_platform::end_loop_after(60ms);
    EXPECT_EQ(vx_global_run(context.get()), 0);
    EXPECT_GE(Clock::now() - started, 60ms);
}

TEST_F(VxThread, LoopCannotRunWithinItself)
{
    int32_t inner = 0;
    after(0ms, [&](vx_thread_t *) {
        inner = vx_global_run(context.get());
        raise(SIGTERM);
    });
    EXPECT_EQ(vx_global_run(context.get()), 0);
    EXPECT_LT(inner, 0);
}

TEST_F(VxThread, PartsEndInTheirOrderWhileTheLoopStillStands)
{
    std::string ended;
    const auto part = [&](const char *name) {
        auto ev = std::make_shared<platform::Event>(evtimer_new(
            platform::event_base_of(context.get()), [](int, short, void *) {}, nullptr));
        return std::shared_ptr<void>(nullptr, [&ended, name, ev](void *) {
            ended += name;
            ev->reset();
        });
    };
    platform::slot_of(context.get(), platform::Slot::debug_shell) = part("shell ");
    platform::slot_of(context.get(), platform::Slot::store_client) = part("store ");
    context.reset();
    EXPECT_EQ(ended, "store shell ");
}

} // namespace
