// The checks that stand, as the history has them: only what differs from it is written.
#include "open_checks.h"

#include <utility>

namespace recorder
{

OpenChecks::OpenChecks(Put put) : put_(std::move(put)) {}

OpenChecks::Written OpenChecks::content_of(const admission::TrackedCard &card)
{
    const auto last = card.answers.empty() ? std::nullopt : std::optional(card.answers.back().at);
    return {card.requested_at, card.answers.size(), last,
            card.waiting_for,  card.any_will_do,    store::text_of(card.asked.origin)};
}

void OpenChecks::update(const std::vector<const admission::TrackedCard *> &cards)
{
    std::map<history::Position, std::optional<Written>> standing;
    for (const admission::TrackedCard *card : cards) {
        if (!card->open) {
            continue; // what was decided is in the history, whether its request still stands or not
        }
        const history::Position &position = card->card.position;
        standing[position] = content_of(*card);
        const auto found = written_.find(position);
        if (found == written_.end() || found->second != standing[position]) {
            put_([check = history::OpenCheck{card->card, card->requested_at, card->waiting_for, card->answers,
                                             card->any_will_do, card->asked}](history::Writer &writer) {
                writer.set_open(check);
            });
        }
    }
    for (const auto &[position, ignored] : written_) {
        if (!standing.contains(position)) {
            put_([at = position](history::Writer &writer) { writer.close_open(at); });
        }
    }
    written_ = std::move(standing);
}

void OpenChecks::found(const history::Position &position)
{
    written_[position].reset();
}

} // namespace recorder
