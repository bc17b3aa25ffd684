// Who draws how much, and who came first.
//
// The store is the only memory: what the cards' information says is counted, so that a module that was
// restarted knows as much as one that never stopped. Cards of which nobody asks (main boards, fans) draw,
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

    // A card came, changed or went. One that is off line draws nothing.
    void notice(const app_cg_kit::Card &card, bool present);

    // Whether a card fits beside those that came before it or were passed. One that is denied is not counted
    // until it was off line.
    app_cg_kit::Verdict examine(const app_cg_kit::Card &card);

private:
    struct Draw {
        std::int64_t watts = 0;
        std::uint64_t turn = 0; // grows: who came when
        bool passed = false;
        bool denied = false;
    };

    std::int64_t used_beside(const std::string &position, std::uint64_t turn, int &cards) const;

    Table table_;
    std::map<std::string, Draw> draws_; // by position; cards that are on line
    std::uint64_t turns_ = 0;
};

} // namespace power_budget

#endif
