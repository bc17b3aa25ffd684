// Whether cards are as a scenario expects them.
#ifndef SIM_EXPECTATION_H
#define SIM_EXPECTATION_H

#include <map>
#include <string>

#include "admission/card_tracker.h"
#include "scenario.h"

namespace cg
{

// What came of an expectation.
struct ExpectationResult {
    std::string file{};
    std::size_t line = 0;
    Position position{};
    std::string name{}; // of the card
    std::string expected{};
    std::string seen{};
    bool held = false;
    scenario::Milliseconds after{0}; // the daemon's
};

class Judge
{
public:
    // The tracker lives longer.
    explicit Judge(const admission::CardTracker &tracker) : tracker_(tracker) {}

    // The card is about to be checked again: what was decided of it before now does not count.
    void begin(const Position &position, admission::Time now) { fresh_[position] = {now, false}; }
    // A check of the card has ended, or it needed none.
    void ended(const Position &position);

    // Whether the card is now as expected.
    [[nodiscard]] bool holds(const scenario::Expect &expect) const;
    // How the card is, in the words of an expectation: "denied by m1: too warm", "waiting for m2".
    [[nodiscard]] std::string seen(const Position &position) const;

private:
    struct Fresh {
        admission::Time at{};
        bool decided = true;
    };

    const admission::CardTracker &tracker_;
    std::map<Position, Fresh> fresh_;
};

} // namespace cg

#endif
