// Verdicts from other threads, at the moments at which they could be lost, doubled or given to the wrong
// question.
//
// Where the order is the test's, a thread is joined at the place; where it is not, whatever happened must fit
// together, and ThreadSanitizer has something to look at.
#include <algorithm>
#include <atomic>
#include <thread>

#include "module_fixture.h"

namespace kit_test
{

namespace
{

using namespace std::chrono_literals;

constexpr int32_t rounds = 100;

// Does something on another thread and waits for its end.
void elsewhere(const std::function<void()> &action)
{
    std::thread(action).join();
}

// Says that this thread has come to a number, and waits until the other one has. It gives its processor away
// only when that takes long: other programs run here too.
void meet(std::atomic<int> &mine, const std::atomic<int> &others, int number)
{
    mine = number;
    for (int turns = 0; others < number; turns++) {
        if (turns > 2000) {
            std::this_thread::yield();
        }
    }
}

class Threads : public ModuleTest
{
};

} // namespace

TEST_F(Threads, AVerdictThatComesBeforeTheFunctionWantsToBeAskedAgainIsWritten)
{
    int asked = 0;
    serve(
        [&](app_cg_kit_check &check) {
            asked++;
            elsewhere([&] { EXPECT_EQ(check.answer(false, "told"), 0); });
            return APP_CG_KIT_AGAIN;
        },
        [&] {
            request(3);
            EXPECT_EQ(answers(), (Strings{"3 DENY told"}));
            EXPECT_TRUE(fake_loop::turn()) << "the verdict's own way to the loop";
            fake_loop::advance(10s);
            EXPECT_EQ(answers().size(), 1U);
        });
    EXPECT_EQ(asked, 1);
}

TEST_F(Threads, AVerdictThatComesAfterItIsDroppedAndTheNextOneCounts)
{
    std::shared_ptr<app_cg_kit_check> first;
    serve(
        [&](app_cg_kit_check &check) {
            if (first) {
                return APP_CG_KIT_PASS;
            }
            first = check.shared_from_this();
            return APP_CG_KIT_AGAIN;
        },
        [&] {
            request(3);
            elsewhere([&] { EXPECT_EQ(first->answer(false, "too late"), APP_CG_KIT_E_WITHDRAWN); });
            EXPECT_FALSE(fake_loop::turn());
            EXPECT_EQ(answers(), Strings{});
            fake_loop::advance(1s);
            EXPECT_EQ(answers(), (Strings{"3 PASS"}));
        });
}

// The verdict and the wish to be asked again at the same time: either the verdict was taken, is written once
// and nobody is asked again, or it was refused and the function is asked again.
TEST_F(Threads, AVerdictAndTheWishToBeAskedAgainLeaveOneAnswer)
{
    int result = 1;
    int asked = 0;
    std::thread other;
    const auto examine = [&](app_cg_kit_check &check) {
        if (asked++ > 0) {
            return APP_CG_KIT_PASS;
        }
        other = std::thread([&, held = check.shared_from_this()] { result = held->answer(false, "told"); });
        return APP_CG_KIT_AGAIN;
    };
    serve(examine, [&] {
        for (int32_t round = 1; round <= rounds; round++) {
            (void)take_answers();
            asked = 0;
            request(round);
            other.join();
            (void)fake_loop::turn();
            fake_loop::advance(2s);
            const bool was_taken = result == 0;
            EXPECT_TRUE(was_taken || result == APP_CG_KIT_E_WITHDRAWN) << result;
            EXPECT_EQ(asked, was_taken ? 1 : 2);
            EXPECT_EQ(answers(), Strings{std::to_string(round) + (was_taken ? " DENY told" : " PASS")});
            withdraw(round);
        }
    });
}

// The same without the module, so that the two meet as closely as they can: each waits for the other before
// each examination, and one a little longer every time.
TEST_F(Threads, AnExaminationIsAnsweredOrEndedAndNeverBoth)
{
    constexpr int many = 20000;
    const auto mailbox = std::make_shared<kit::Mailbox>([] {}, kit::Log());
    std::vector<std::shared_ptr<app_cg_kit_check>> checks;
    checks.reserve(many);
    for (int i = 0; i < many; i++) {
        checks.push_back(std::make_shared<app_cg_kit_check>(kit::Facts(), mailbox));
    }
    std::atomic<int> answering{-1};
    std::atomic<int> ending{-1};
    std::vector<int> results(many);
    std::thread other([&] {
        for (int i = 0; i < many; i++) {
            meet(answering, ending, i);
            results[static_cast<std::size_t>(i)] = checks[static_cast<std::size_t>(i)]->answer(true, "");
        }
    });
    int wrong = 0;
    std::size_t taken = 0;
    for (int i = 0; i < many; i++) {
        const auto &check = checks[static_cast<std::size_t>(i)];
        meet(ending, answering, i);
        for (std::atomic<int> turns{i % 499}; turns > 0; turns--) {
        }
        const bool has_ended = check->end_unless_answered(APP_CG_KIT_E_WITHDRAWN);
        taken += has_ended ? 0 : 1;
        wrong +=
            has_ended == check->is_answered() ? 1 : 0; // the other's turn may still come, and is refused then
    }
    other.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(mailbox->receive().size(), taken);
    EXPECT_EQ(static_cast<std::size_t>(std::count(results.begin(), results.end(), 0)), taken);
}

TEST_F(Threads, AVerdictAndItsPromiseLeaveOneAnswer)
{
    std::thread other;
    const auto examine = [&](app_cg_kit_check &check) {
        check.hold();
        other = std::thread([held = check.shared_from_this()] {
            EXPECT_EQ(held->answer(true, ""), 0);
            held->release();
        });
        return APP_CG_KIT_LATER;
    };
    serve(examine, [&] {
        for (int32_t round = 1; round <= rounds; round++) {
            (void)take_answers();
            request(round);
            other.join();
            (void)fake_loop::turn();
            EXPECT_EQ(answers(), Strings{std::to_string(round) + " PASS"});
        }
    });
    EXPECT_EQ(logged("nobody holds the handle"), 0U) << log();
    EXPECT_EQ(logged("released without a verdict"), 0U) << log();
}

// The withdrawal and the verdict at the same time: nothing is written for a request that is gone.
TEST_F(Threads, AVerdictAndAWithdrawalLeaveNoAnswer)
{
    std::shared_ptr<app_cg_kit_check> kept;
    const auto examine = [&](app_cg_kit_check &check) {
        check.hold();
        kept = check.shared_from_this();
        return APP_CG_KIT_LATER;
    };
    serve(examine, [&] {
        for (int32_t round = 1; round <= rounds; round++) {
            request(round);
            std::thread other([held = kept] {
                const int result = held->answer(false, "told");
                EXPECT_TRUE(result == 0 || result == APP_CG_KIT_E_WITHDRAWN) << result;
                held->release();
            });
            withdraw(round);
            other.join();
            (void)fake_loop::turn();
            EXPECT_FALSE(kept->is_open());
        }
        EXPECT_EQ(answers(), Strings{});
    });
}

TEST_F(Threads, OfManyVerdictsOneCounts)
{
    std::shared_ptr<app_cg_kit_check> kept;
    const auto examine = [&](app_cg_kit_check &check) {
        check.hold();
        kept = check.shared_from_this();
        return APP_CG_KIT_LATER;
    };
    serve(examine, [&] {
        request(3);
        std::atomic<int> taken{0};
        constexpr int threads = 8;
        std::vector<std::thread> others;
        others.reserve(threads);
        for (int i = 0; i < threads; i++) {
            others.emplace_back([&] { taken += kept->answer(true, "") == 0 ? 1 : 0; });
        }
        for (std::thread &other : others) {
            other.join();
        }
        (void)fake_loop::turn();
        EXPECT_EQ(taken, 1);
        EXPECT_EQ(answers(), (Strings{"3 PASS"}));
    });
    kept->release();
}

// The module ends while threads still give verdicts; those that come too late are told so.
TEST_F(Threads, AVerdictAndTheModulesEndTouchNothingThatIsGone)
{
    for (int round = 0; round < 20; round++) {
        fake_store::reset();
        std::vector<std::thread> others;
        const auto examine = [&](app_cg_kit_check &check) {
            check.hold();
            others.emplace_back([held = check.shared_from_this()] {
                const int result = held->answer(false, "");
                EXPECT_TRUE(result == 0 || result == APP_CG_KIT_E_STOPPED) << result;
                held->release();
            });
            return APP_CG_KIT_LATER;
        };
        serve(examine, [&] {
            for (int32_t slot = 1; slot <= 8; slot++) {
                request(slot);
            }
        });
        for (std::thread &other : others) {
            other.join();
        }
    }
}

} // namespace kit_test
