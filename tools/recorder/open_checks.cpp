// The checks that stand, as the history has them: only what differs from it is written.
#include "open_checks.h"

#include <utility>

namespace recorder
{

OpenChecks::OpenChecks(Put put) : put_(std::move(put)) {}

void OpenChecks::update(const std::vector<const admission::TrackedCard *> &cards)
{
    std::map<history::Position, history::OpenCheck> standing;
    for (const admission::TrackedCard *card : cards) {
        if (!card->open) {
            continue; // what was decided is in the history, whether its request still stands or not
        }
        const history::OpenCheck check{card->card,    card->requested_at, card->waiting_for,
                                       card->answers, card->any_will_do,  card->asked};
        const auto found = written_.find(check.card.position);
        if (found == written_.end() || found->second != check) {
            put_([check](history::Writer &writer) { writer.set_open(check); });
        }
        standing.emplace(check.card.position, check);
    }
    for (const auto &[position, ignored] : written_) {
        if (!standing.contains(position)) {
            put_([at = position](history::Writer &writer) { writer.close_open(at); });
        }
    }
    written_ = std::move(standing);
}

} // namespace recorder
