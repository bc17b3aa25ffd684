// How much power each card draws, and which card came first.
//
// The store is the only memory: the budget is computed from the cards' information, so that a restarted
// module knows as much as one that never stopped. Cards that are not checked (main boards, fans) draw power
// too.
#ifndef POWER_BUDGET_BUDGET_H
#define POWER_BUDGET_BUDGET_H

#include <cstdint>
#include <map>
#include <string>

#include <app_cg_kit.hpp>

#include "table.h"

namespace power_budget
{

class Budget
{
public:
    explicit Budget(Table table) : table_(std::move(table)) {}

    // Accounts for a card that was plugged, changed or pulled. An offline card draws nothing.
    void update(const app_cg_kit::Card &card, bool present);

    // Whether a card fits beside those that came before it or were passed. A denied card is not counted until
    // it has been offline.
    app_cg_kit::Verdict examine(const app_cg_kit::Card &card);

private:
    struct Draw {
        std::int64_t watts = 0;
        std::uint64_t order = 0; // in which the cards came
        bool passed = false;
        bool denied = false;
    };

    std::int64_t used_beside(const std::string &position, std::uint64_t order, int &cards) const;

    Table table_;
    std::map<std::string, Draw> draws_; // by position; online cards
    std::uint64_t cards_seen_ = 0;
};

} // namespace power_budget

#endif
