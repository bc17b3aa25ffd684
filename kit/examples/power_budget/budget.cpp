// How much power each card draws, and which card came first.
#include "budget.h"

namespace power_budget
{

namespace
{

std::string name_of(const app_cg_kit::Card &card)
{
    return card.info ? card.info->name : "";
}

std::string watts_text(std::int64_t watts)
{
    return std::to_string(watts) + " W";
}

} // namespace

void Budget::update(const app_cg_kit::Card &card, bool present)
{
    if (!present || !card.info || !card.info->online) {
        draws_.erase(card.position());
        return;
    }
    const auto [place, is_new] = draws_.try_emplace(card.position());
    if (is_new) {
        place->second.order = ++cards_seen_;
    }
    place->second.watts = table_.watts(card.type, name_of(card)).value_or(0);
}

app_cg_kit::Verdict Budget::examine(const app_cg_kit::Card &card)
{
    const std::string position = card.position();
    const auto found = draws_.find(position);
    const auto watts = table_.watts(card.type, name_of(card));
    int cards = 0;
    const std::int64_t used =
        used_beside(position, found == draws_.end() ? cards_seen_ + 1 : found->second.order, cards);
    const bool fits = watts && used + *watts <= table_.budget;
    if (found != draws_.end()) {
        found->second.passed = fits;
        found->second.denied = !fits;
    }
    if (!watts) {
        return app_cg_kit::deny("the power table has neither type " + std::to_string(card.type) +
                                " nor of name '" + name_of(card) + "'");
    }
    if (!fits) {
        return app_cg_kit::deny("draws " + watts_text(*watts) + ", but " + watts_text(used) + " of " +
                                watts_text(table_.budget) + " are in use by " + std::to_string(cards) +
                                (cards == 1 ? " card" : " cards"));
    }
    return app_cg_kit::pass();
}

std::int64_t Budget::used_beside(const std::string &position, std::uint64_t order, int &cards) const
{
    std::int64_t used = 0;
    for (const auto &[where, draw] : draws_) {
        if (where != position && !draw.denied && (draw.passed || draw.order < order)) {
            used += draw.watts;
            cards++;
        }
    }
    return used;
}

} // namespace power_budget
