// A card in a slot, followed from outside.
#ifndef TRACKER_FIXTURE_H
#define TRACKER_FIXTURE_H

#include "admission/card_tracker.h"

#include <gmock/gmock.h>

using namespace admission;
using namespace std::chrono_literals;

inline constexpr int32_t line_card = 3;
inline constexpr int32_t main_board = 2;
inline constexpr Position slot3{1, 3, 0};

class CardTrackerTest : public testing::Test
{
protected:
    CardTrackerTest() : CardTrackerTest(std::vector<std::string>{"m1", "m2", "m3"}) {}
    // Nothing: they are not known.
    explicit CardTrackerTest(std::optional<std::vector<std::string>> modules)
    {
        if (modules) {
            tracker.set_modules(std::move(*modules));
        }
    }

    static CardFacts card(bool online, int32_t type = line_card)
    {
        return {slot3, "lc", "0a", type, 17, 259, 1259, online};
    }
    void plug(bool existing = false) { tracker.card_written(card(true), now, existing); }
    void ask(bool existing = false) { tracker.request_written(slot3, now, existing); }
    void answer(const std::string &module, int32_t ret = 0, const std::string &reason = "")
    {
        tracker.answered(slot3, {module, ret, reason, now}, false);
    }
    // The result, then the request's end: as the daemon ends each check.
    void end(bool pass)
    {
        tracker.result_written(1259, pass, now, false);
        tracker.request_deleted(slot3, now, false);
    }
    void go_offline()
    {
        tracker.card_written(card(false), now, false);
        tracker.result_deleted(1259, now);
        tracker.request_deleted(slot3, now, false);
    }
    const TrackedCard &shown() { return *tracker.find(slot3); }

    std::vector<Decision> decisions;
    CardTracker tracker{[this](const Decision &decision) { decisions.push_back(decision); }};
    Time now = Time{} + 1000000s;
};

#endif
